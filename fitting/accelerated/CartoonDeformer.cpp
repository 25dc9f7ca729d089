#include "CartoonDeformer.h"

#include "CartoonProblem.h"

#include "DeformerSolve.h"

#include <Eigen/Eigenvalues>
#include <Eigen/SVD>

namespace CartoonWelking {
namespace Iterative {

using EmbeddedGraphDeformer::Vec3;

Deformer::Deformer(float rigidity) : m_rigidity(rigidity) {}
Deformer::~Deformer() = default;

void Deformer::setProblem(const WelkingAcceleratedVersion::EmbeddedGraphLevel& level,
                          const std::vector<Vec3>& restVertices, const std::vector<Vec3>& nodePositions,
                          const std::vector<EmbeddedGraphDeformer::ControlPoint>& controls,
                          const EmbeddedGraphDeformer::EnergyWeights& weights, bool)
{
    m_problem = std::make_unique<Problem>(level, restVertices, nodePositions, controls, weights, m_rigidity);
}

void Deformer::solve(const std::vector<long long>& sources, const std::vector<Vec3>& targets,
                     const std::vector<Vec3>& normals, std::vector<Vec3>& vertices, std::vector<Vec3>& nodes,
                     Eigen::VectorXf& state, const EmbeddedGraphDeformer::SolveBudget& budget)
{
    m_problem->setPairs(sources, targets, normals, m_surfacePairs);
    m_problem->setConjugateGradient(budget.conjugateGradientIterations, 0.0005);
    m_problem->setAnchor(state, float(budget.anchor));
    // The damping floor is the fast fit's: the cartoon fit's solves are
    // rarely rejected, and with the floor amm-human-partial ended farther
    // from its target.
    EmbeddedGraphDeformer::SolveBudget cartoonBudget = budget;
    cartoonBudget.dampingFloor = 0.0;
    EmbeddedGraphDeformer::solveWithBudget(*m_problem, state, cartoonBudget);
    m_problem->currentVertices(state, vertices);
    m_problem->currentNodes(state, nodes);
}

void Deformer::initializeVariables(const std::vector<Vec3>& rest, const std::vector<Vec3>& current,
                                   const std::vector<std::vector<std::pair<long long, float>>>& nodeVertices,
                                   const std::vector<Vec3>& nodePositions, Eigen::VectorXf& state)
{
    state = Eigen::VectorXf::Zero(12 * (long long)nodePositions.size());
    for (size_t node = 0; node < nodePositions.size(); ++node) {
        const Vec3& n = nodePositions[node];
        Eigen::Matrix3f A = Eigen::Matrix3f::Identity();
        Vec3 t = Vec3::Zero();
        Vec3 restMean = Vec3::Zero(), currentMean = Vec3::Zero();
        float total = 0.0f;
        for (const auto& [v, w] : nodeVertices[node]) {
            if (w < 1e-7f)
                continue;
            restMean += w * (rest[size_t(v)] - n);
            currentMean += w * (current[size_t(v)] - n);
            total += w;
        }
        if (total > 0.0f) {
            restMean /= total;
            currentMean /= total;
            Eigen::Matrix3d spread = Eigen::Matrix3d::Zero(), cross = Eigen::Matrix3d::Zero();
            for (const auto& [v, w] : nodeVertices[node]) {
                if (w < 1e-7f)
                    continue;
                const Eigen::Vector3d a = (rest[size_t(v)] - n - restMean).cast<double>();
                const Eigen::Vector3d b = (current[size_t(v)] - n - currentMean).cast<double>();
                spread += double(w) * a * a.transpose();
                cross += double(w) * b * a.transpose();
            }
            const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eigen(spread);
            const double largest = eigen.eigenvalues()[2];
            if (largest > 0 && eigen.eigenvalues()[0] > 1e-6 * largest) {
                A = (cross * spread.inverse()).cast<float>();
            } else if (largest > 0) {
                // A flat or thin patch: the rigid motion that fits it best.
                const Eigen::JacobiSVD<Eigen::Matrix3d> svd(cross, Eigen::ComputeFullU | Eigen::ComputeFullV);
                Eigen::Matrix3d D = Eigen::Matrix3d::Identity();
                D(2, 2) = (svd.matrixU() * svd.matrixV().transpose()).determinant() < 0 ? -1.0 : 1.0;
                A = (svd.matrixU() * D * svd.matrixV().transpose()).cast<float>();
            }
            // From v' = A (v - n) + n + t at the means.
            t = currentMean - A * restMean;
        }
        Eigen::Map<Eigen::Matrix3f>(state.data() + 12 * (long long)node) = A;
        state.segment<3>(12 * (long long)node + 9) = t;
    }
}

} // namespace Iterative
} // namespace CartoonWelking
