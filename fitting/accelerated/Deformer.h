#pragma once

#include "DeformerTypes.h"

#include <memory>

namespace EmbeddedGraphDeformer {

namespace IterativeSolverDeformer {
class Problem;
}

namespace Abstract {

/// What a fit's loop asks of a deformer for one graph level.
class Deformer
{
public:
    virtual ~Deformer() = default;

    /// Binds the level: its graph, the rest shape, the node positions, the
    /// control points and the weights of the energy's terms.
    virtual void setProblem(const WelkingAcceleratedVersion::EmbeddedGraphLevel& level,
                            const std::vector<Vec3>& restVertices, const std::vector<Vec3>& nodePositions,
                            const std::vector<ControlPoint>& controls, const EnergyWeights& weights,
                            bool parallel) = 0;

    /// Minimises the energy for the pairs (source vertex, target point and
    /// normal) from `state`, which receives the result; `vertices` and
    /// `nodes` receive the deformed shape and node positions.
    virtual void solve(const std::vector<long long>& sources, const std::vector<Vec3>& targets,
                       const std::vector<Vec3>& normals, std::vector<Vec3>& vertices, std::vector<Vec3>& nodes,
                       Eigen::VectorXf& state, const SolveBudget& budget) = 0;

    /// Pairs from points of the surface for the next solves, beside the
    /// vertex pairs `solve` takes; a deformer without them ignores them.
    virtual void setSurfacePairs(std::vector<SurfacePair>) {}
    /// A state in which every node carries its influenced vertices from
    /// `restVertices` to `currentVertices` as well as a rigid motion can.
    /// `nodeVertices` lists, per node, (vertex, weight) pairs.
    virtual void initializeVariables(const std::vector<Vec3>& restVertices, const std::vector<Vec3>& currentVertices,
                                     const std::vector<std::vector<std::pair<long long, float>>>& nodeVertices,
                                     const std::vector<Vec3>& nodePositions, Eigen::VectorXf& state) = 0;
};

} // namespace Abstract

namespace IterativeSolverDeformer {

/// The fast fit's deformer: six unknowns per node (rotation as modified
/// Rodrigues parameters, translation), matrix-free Levenberg-Marquardt with
/// block-preconditioned conjugate gradients (relative tolerance 0.0005).
class Deformer : public Abstract::Deformer
{
public:
    Deformer();
    ~Deformer() override;

    void setProblem(const WelkingAcceleratedVersion::EmbeddedGraphLevel& level, const std::vector<Vec3>& restVertices,
                    const std::vector<Vec3>& nodePositions, const std::vector<ControlPoint>& controls,
                    const EnergyWeights& weights, bool parallel) override;
    void solve(const std::vector<long long>& sources, const std::vector<Vec3>& targets,
               const std::vector<Vec3>& normals, std::vector<Vec3>& vertices, std::vector<Vec3>& nodes,
               Eigen::VectorXf& state, const SolveBudget& budget) override;
    void initializeVariables(const std::vector<Vec3>& restVertices, const std::vector<Vec3>& currentVertices,
                             const std::vector<std::vector<std::pair<long long, float>>>& nodeVertices,
                             const std::vector<Vec3>& nodePositions, Eigen::VectorXf& state) override;
    void setSurfacePairs(std::vector<SurfacePair> pairs) override { m_surfacePairs = std::move(pairs); }

    Problem* problem() const { return m_problem.get(); }

private:
    std::unique_ptr<Problem> m_problem;
    std::vector<SurfacePair> m_surfacePairs;
};

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
