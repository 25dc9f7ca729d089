#include "Deformer.h"

#include "IterativeSolverProblem.h"

#include "DeformerSolve.h"

#include <Eigen/Eigenvalues>

#include <tbb/parallel_for.h>

namespace EmbeddedGraphDeformer {
namespace IterativeSolverDeformer {

Deformer::Deformer() = default;
Deformer::~Deformer() = default;

void Deformer::setProblem(const WelkingAcceleratedVersion::EmbeddedGraphLevel& level,
                          const std::vector<Vec3>& restVertices, const std::vector<Vec3>& nodePositions,
                          const std::vector<ControlPoint>& controls, const EnergyWeights& weights, bool parallel)
{
    m_problem = std::make_unique<Problem>(level, restVertices, nodePositions, controls, weights, parallel);
}

void Deformer::solve(const std::vector<long long>& sources, const std::vector<Vec3>& targets,
                     const std::vector<Vec3>& normals, std::vector<Vec3>& vertices, std::vector<Vec3>& nodes,
                     Eigen::VectorXf& state, const SolveBudget& budget)
{
    m_problem->setPairs(sources, targets, normals, m_surfacePairs);
    m_problem->setConjugateGradient(budget.conjugateGradientIterations, budget.solveTolerance);
    const long long nodeCount = m_problem->variableCount() / 6;
    // The Cholesky's pattern is that of vertex pairs only.
    m_problem->setDirectSolve(nodeCount > 0 && nodeCount <= budget.directSolveNodes && m_surfacePairs.empty());
    EmbeddedGraphDeformer::solveWithBudget(*m_problem, state, budget);
    m_problem->currentVertices(state, vertices);
    m_problem->currentNodes(state, nodes);
}

void Deformer::initializeVariables(const std::vector<Vec3>& rest, const std::vector<Vec3>& current,
                                   const std::vector<std::vector<std::pair<long long, float>>>& nodeVertices,
                                   const std::vector<Vec3>& nodePositions, Eigen::VectorXf& state)
{
    state = Eigen::VectorXf::Zero(6 * (long long)nodePositions.size());
    tbb::parallel_for(size_t(0), nodePositions.size(), [&](size_t node) {
        Vec3 restCentroid = Vec3::Zero(), currentCentroid = Vec3::Zero();
        float total = 0.0f;
        for (const auto& [v, w] : nodeVertices[node]) {
            if (w < 1e-7f)
                continue;
            restCentroid += w * rest[size_t(v)];
            currentCentroid += w * current[size_t(v)];
            total += w;
        }
        if (total <= 0.0f)
            return; // no influenced vertex: identity, no translation
        restCentroid /= total;
        currentCentroid /= total;
        Eigen::Matrix3f M = Eigen::Matrix3f::Zero();
        for (const auto& [v, w] : nodeVertices[node])
            if (w >= 1e-7f)
                M += w * (rest[size_t(v)] - restCentroid) * (current[size_t(v)] - currentCentroid).transpose();
        const float Sxx = M(0, 0), Sxy = M(0, 1), Sxz = M(0, 2), Syx = M(1, 0), Syy = M(1, 1), Syz = M(1, 2);
        const float Szx = M(2, 0), Szy = M(2, 1), Szz = M(2, 2);
        Eigen::Matrix4f N;
        N << Sxx + Syy + Szz, Syz - Szy, Szx - Sxz, Sxy - Syx, Syz - Szy, Sxx - Syy - Szz, Sxy + Syx, Szx + Sxz,
            Szx - Sxz, Sxy + Syx, -Sxx + Syy - Szz, Syz + Szy, Sxy - Syx, Szx + Sxz, Syz + Szy, -Sxx - Syy + Szz;
        float largest = N.cwiseAbs().maxCoeff();
        if (largest == 0.0f)
            largest = 1.0f;
        N /= largest;
        Eigen::Vector4f q(1, 0, 0, 0);
        if ((M / largest).norm() >= 1e-7f) {
            const Eigen::SelfAdjointEigenSolver<Eigen::Matrix4f> eigen(N);
            q = eigen.eigenvectors().col(3);
        }
        if (q[0] < 0)
            q = -q;
        // Modified Rodrigues parameters of the unit quaternion (w, x, y, z).
        const Vec3 s = q.tail<3>() / (1.0f + q[0]);
        state.segment<3>(6 * (long long)node) = s;
        // From v' = R (v - n) + n + t at the centroids.
        const Vec3& n = nodePositions[node];
        state.segment<3>(6 * (long long)node + 3) = currentCentroid - rotationFromMRP(s) * (restCentroid - n) - n;
    });
}

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
