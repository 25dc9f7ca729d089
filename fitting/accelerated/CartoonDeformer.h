#pragma once

#include "Deformer.h"

namespace CartoonWelking {
namespace Iterative {

class Problem;

/// The cartoon fit's deformer: a general affine map per node, with the
/// same Levenberg-Marquardt and conjugate-gradient constants as the fast
/// fit. `rigidity` weighs the A^T A - I rows; the fit passes 0.
///
/// `initializeVariables` gives each node the weighted least-squares affine
/// map carrying its influenced vertices from rest to their current
/// positions. Where the patch does not span three dimensions (too few
/// vertices, or all on a plane or a line) the affine fit is undetermined,
/// and the node takes the best rigid motion of the patch instead; with no
/// influenced vertex at all it keeps the identity.
class Deformer : public EmbeddedGraphDeformer::Abstract::Deformer
{
public:
    explicit Deformer(float rigidity = 0.0f);
    ~Deformer() override;

    void setProblem(const WelkingAcceleratedVersion::EmbeddedGraphLevel& level,
                    const std::vector<EmbeddedGraphDeformer::Vec3>& restVertices,
                    const std::vector<EmbeddedGraphDeformer::Vec3>& nodePositions,
                    const std::vector<EmbeddedGraphDeformer::ControlPoint>& controls,
                    const EmbeddedGraphDeformer::EnergyWeights& weights, bool parallel) override;
    void solve(const std::vector<long long>& sources, const std::vector<EmbeddedGraphDeformer::Vec3>& targets,
               const std::vector<EmbeddedGraphDeformer::Vec3>& normals, std::vector<EmbeddedGraphDeformer::Vec3>& vertices,
               std::vector<EmbeddedGraphDeformer::Vec3>& nodes, Eigen::VectorXf& state,
               const EmbeddedGraphDeformer::SolveBudget& budget) override;
    void setSurfacePairs(std::vector<EmbeddedGraphDeformer::SurfacePair> pairs) override
    {
        m_surfacePairs = std::move(pairs);
    }
    void initializeVariables(const std::vector<EmbeddedGraphDeformer::Vec3>& restVertices,
                             const std::vector<EmbeddedGraphDeformer::Vec3>& currentVertices,
                             const std::vector<std::vector<std::pair<long long, float>>>& nodeVertices,
                             const std::vector<EmbeddedGraphDeformer::Vec3>& nodePositions,
                             Eigen::VectorXf& state) override;

    Problem* problem() const { return m_problem.get(); }

private:
    float m_rigidity;
    std::unique_ptr<Problem> m_problem;
    std::vector<EmbeddedGraphDeformer::SurfacePair> m_surfacePairs;
};

} // namespace Iterative
} // namespace CartoonWelking
