#include "optimisation/BlasThreads.h"

#include <Eigen/CholmodSupport>
#include <Eigen/SparseCore>

#include <gtest/gtest.h>

#include <dirent.h>
#include <dlfcn.h>

#include <vector>

namespace {

int threadCount()
{
    int count = 0;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (const dirent* entry = readdir(dir))
            count += entry->d_name[0] != '.';
        closedir(dir);
    }
    return count;
}

int blasThreads()
{
    using Get = int (*)();
    auto get = reinterpret_cast<Get>(dlsym(RTLD_DEFAULT, "openblas_get_num_threads"));
    return get ? get() : 1;
}

/// The 5-point Laplacian of an n x n grid plus the identity: large enough
/// for CHOLMOD's supernodal path, whose dense blocks go to the BLAS.
Eigen::SparseMatrix<double> gridMatrix(int n)
{
    std::vector<Eigen::Triplet<double>> entries;
    const auto at = [n](int i, int j) { return i * n + j; };
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            entries.emplace_back(at(i, j), at(i, j), 5.0);
            if (i + 1 < n) {
                entries.emplace_back(at(i, j), at(i + 1, j), -1.0);
                entries.emplace_back(at(i + 1, j), at(i, j), -1.0);
            }
            if (j + 1 < n) {
                entries.emplace_back(at(i, j), at(i, j + 1), -1.0);
                entries.emplace_back(at(i, j + 1), at(i, j), -1.0);
            }
        }
    Eigen::SparseMatrix<double> a(n * n, n * n);
    a.setFromTriplets(entries.begin(), entries.end());
    return a;
}

double solveResidual(const Eigen::SparseMatrix<double>& a)
{
    Eigen::CholmodSupernodalLLT<Eigen::SparseMatrix<double>, Eigen::Lower> solver;
    solver.compute(a);
    if (solver.info() != Eigen::Success)
        return -1.0;
    const Eigen::VectorXd b = Eigen::VectorXd::LinSpaced(a.rows(), -1.0, 1.0);
    const Eigen::VectorXd x = solver.solve(b);
    return (a * x - b).norm() / b.norm();
}

} // namespace

TEST(BlasThreads, ParkingStopsTheIdleWorkersAndCholmodStillSolves)
{
    const int before = threadCount();
    const int workers = blasThreads() - 1;
    const bool parked = LinearSystemsSolvers::parkIdleBlasThreads();
    if (parked && workers > 0)
        EXPECT_EQ(threadCount(), before - workers);
    else
        EXPECT_EQ(threadCount(), before);

    // OpenBLAS restarts its workers on demand: factorisations before and
    // after a second parking give the solution.
    const Eigen::SparseMatrix<double> a = gridMatrix(150);
    const double first = solveResidual(a);
    EXPECT_GE(first, 0.0);
    EXPECT_LT(first, 1e-12);
    LinearSystemsSolvers::parkIdleBlasThreads();
    const double second = solveResidual(a);
    EXPECT_GE(second, 0.0);
    EXPECT_LT(second, 1e-12);
}
