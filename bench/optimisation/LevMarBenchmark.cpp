// One Levenberg-Marquardt solve of a deformation-graph-sized problem
// (6 unknowns per node, smoothness between neighbours, a non-linear data
// row per node) in each of our forms, and with Eigen's own sparse
// Cholesky in place of CHOLMOD as the peer of the direct solve.
//
//   levmar [--nodes N] [--neighbours K] [--iterations N]
#include "support/GraphProblem.h"

#include "optimisation/LambdaJacobianProblem.h"
#include "optimisation/WNewton.h"

#include <Eigen/SparseCholesky>

#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace {

template <typename Vector> double objective(const TestSupport::GraphProblem& graph, const Vector& x)
{
    Eigen::VectorXd r;
    graph(Eigen::VectorXd(x.template cast<double>()), r, static_cast<Eigen::SparseMatrix<double, Eigen::RowMajor, int>*>(nullptr));
    return 0.5 * r.squaredNorm();
}

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

} // namespace

int main(int argc, char** argv)
{
    int nodes = 4000, neighbours = 8, iterations = 10;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--nodes"))
            nodes = std::atoi(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--neighbours"))
            neighbours = std::atoi(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--iterations"))
            iterations = std::atoi(argv[i + 1]);
    }
    const TestSupport::GraphProblem graph(nodes, neighbours, 1.5f);
    WNewton::SolverParameters parameters;
    parameters.maxIterations = iterations;
    WNewton::Tolerances tolerances;
    tolerances.gradientTolerance = 1e-4;
    tolerances.stepTolerance = 1e-7;

    fmt::print("{} nodes x 6 unknowns, {} neighbours, {} residual rows, {} accepted steps at most\n\n", nodes,
               neighbours, graph.residualCount(), iterations);
    fmt::print("| form | linear solve | best of 3, s | final f | vs Eigen SimplicialLLT (double) |\n|---|---|---|---|---|\n");

    Eigen::VectorXd xCholmod, xEigen;
    const double cholmod = bestOf(3, [&] {
        WNewton::LambdaJacobianSparseProblem<double> problem(std::cref(graph));
        xCholmod = Eigen::VectorXd::Zero(graph.variableCount());
        WNewton::minimize(problem, xCholmod, parameters, tolerances);
    });
    const double eigen = bestOf(3, [&] {
        WNewton::LambdaJacobianSparseProblem<double> problem(std::cref(graph));
        xEigen = Eigen::VectorXd::Zero(graph.variableCount());
        WNewton::minimize<double, Eigen::SimplicialLLT<WNewton::SparseHessian<double>>>(problem, xEigen, parameters,
                                                                                         tolerances);
    });
    Eigen::VectorXf xFloat, xFree;
    const double sparseFloat = bestOf(3, [&] {
        WNewton::LambdaJacobianSparseProblem<float> problem(std::cref(graph));
        xFloat = Eigen::VectorXf::Zero(graph.variableCount());
        WNewton::minimize(problem, xFloat, parameters, tolerances);
    });
    const double matrixFree = bestOf(3, [&] {
        WNewton::LambdaJacobianMatrixFreeProblem<float> problem(std::cref(graph), 6, 100, 5e-4);
        xFree = Eigen::VectorXf::Zero(graph.variableCount());
        WNewton::minimize(problem, xFree, parameters, tolerances);
    });
    fmt::print("| double, sparse | CHOLMOD supernodal LLT | {:.3f} | {:.6g} | {:.2f}x |\n", cholmod,
               objective(graph, xCholmod), eigen / cholmod);
    fmt::print("| double, sparse | Eigen SimplicialLLT (peer) | {:.3f} | {:.6g} | 1.00x |\n", eigen,
               objective(graph, xEigen));
    fmt::print("| float, sparse | Eigen SimplicialLLT | {:.3f} | {:.6g} | {:.2f}x |\n", sparseFloat,
               objective(graph, xFloat), eigen / sparseFloat);
    fmt::print("| float, matrix-free | PCG, 6x6 block Jacobi | {:.3f} | {:.6g} | {:.2f}x |\n", matrixFree,
               objective(graph, xFree), eigen / matrixFree);
    return 0;
}
