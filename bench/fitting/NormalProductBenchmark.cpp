// The fast fit's J^T J v product on a Jacobian of the deformer's shape
// (4 rows per pair over the 8 nodes influencing its vertex, 6 unknowns per
// node): the fused one-pass product with fixed row blocks, against two
// peers: the same pass summing into one vector per thread (what the fit did
// before; its rounding depends on scheduling) and the two products J v and
// J^T u apart (row form, then column form). Prints the best of several runs
// and the ratios.
//
//   normal_product [--nodes N] [--pairs N] [--runs N] [--blocks N]
#include "fitting/accelerated/JacobianSparseStorage.h"

#include <fmt/format.h>

#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <random>
#include <set>

using EmbeddedGraphDeformer::IterativeSolverDeformer::JacobianSparseStorage;

namespace {

double bestOf(int runs, const std::function<void()>& job)
{
    double best = 1e30;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        job();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

/// The scheduling-dependent form: each thread sums the rows it is handed
/// into its own vector.
void perThreadNormal(const JacobianSparseStorage& J, const Eigen::VectorXf& v, Eigen::VectorXf& out,
                     tbb::enumerable_thread_specific<Eigen::VectorXf>& partials)
{
    const long long columns = J.columns();
    for (auto& partial : partials)
        partial.setZero(columns);
    const auto& offsets = J.rowOffsets();
    const auto& columnIndex = J.rowColumns();
    const auto& values = const_cast<JacobianSparseStorage&>(J).values();
    tbb::parallel_for(tbb::blocked_range<long long>(0, J.rows(), 64), [&](const tbb::blocked_range<long long>& r) {
        Eigen::VectorXf& partial = partials.local();
        if (partial.size() != columns)
            partial.setZero(columns);
        for (long long row = r.begin(); row < r.end(); ++row) {
            float dot = 0.0f;
            for (long long e = offsets[size_t(row)]; e < offsets[size_t(row) + 1]; ++e)
                dot += values[size_t(e)] * v[columnIndex[size_t(e)]];
            for (long long e = offsets[size_t(row)]; e < offsets[size_t(row) + 1]; ++e)
                partial[columnIndex[size_t(e)]] += dot * values[size_t(e)];
        }
    });
    out.setZero(columns);
    for (const auto& partial : partials)
        if (partial.size() == columns)
            out += partial;
}

} // namespace

int main(int argc, char** argv)
{
    long long nodes = 20000, pairs = 40000;
    int runs = 20;
    int blocks = 0;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--nodes"))
            nodes = std::atoll(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--pairs"))
            pairs = std::atoll(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--blocks"))
            blocks = std::atoi(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--runs"))
            runs = std::atoi(argv[i + 1]);
    }
    std::mt19937 random(3);
    std::uniform_int_distribution<long long> pick(0, nodes - 1);
    std::vector<long long> offsets{0}, columns;
    for (long long p = 0; p < pairs; ++p) {
        // Influencing nodes lie near each other, as on a mesh.
        const long long centre = pick(random);
        std::set<long long> influences;
        while (influences.size() < 8)
            influences.insert(std::clamp<long long>(centre + long(random() % 64) - 32, 0, nodes - 1));
        for (int row = 0; row < 4; ++row) {
            for (long long n : influences)
                for (int c = 0; c < 6; ++c)
                    columns.push_back(6 * n + c);
            offsets.push_back((long long)columns.size());
        }
    }
    JacobianSparseStorage J;
    J.setPattern(offsets, columns, 6 * nodes);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    for (float& x : J.values())
        x = value(random);
    J.syncColumns(true);
    if (blocks > 0)
        J.setRowBlocks(blocks);
    Eigen::VectorXf v(6 * nodes);
    for (Eigen::Index i = 0; i < v.size(); ++i)
        v[i] = value(random);

    Eigen::VectorXf fused, first, twoPass, again, perThread;
    tbb::enumerable_thread_specific<Eigen::VectorXf> partials;
    const double perThreadSeconds = bestOf(runs, [&] { perThreadNormal(J, v, perThread, partials); });
    const double fusedSeconds = bestOf(runs, [&] { J.multiplyNormal(v, fused, true); });
    const double twoPassSeconds = bestOf(runs, [&] {
        J.multiply(v, first, true);
        J.multiplyTransposed(first, twoPass, true);
    });
    J.multiplyNormal(v, again, true);
    fmt::print("{} nodes, {} pairs, {} non-zeros\n", nodes, pairs, columns.size());
    fmt::print("fused, fixed blocks   {:8.3f} ms\n", 1e3 * fusedSeconds);
    fmt::print("fused, per thread     {:8.3f} ms\n", 1e3 * perThreadSeconds);
    fmt::print("two products apart    {:8.3f} ms\n", 1e3 * twoPassSeconds);
    fmt::print("ratio per-thread/fixed {:7.2f}\n", perThreadSeconds / fusedSeconds);
    fmt::print("ratio two-pass/fixed  {:8.2f}\n", twoPassSeconds / fusedSeconds);
    fmt::print("max |fused - two-pass| {:.3g}, repeat identical: {}\n", (fused - twoPass).cwiseAbs().maxCoeff(),
               fused == again ? "yes" : "no");
    return 0;
}
