#pragma once

#include "AffineBlockJacobian.h"
#include "DeformerTypes.h"
#include "NodeBlocks.h"

#include "optimisation/WNewtonProblem.h"

#include <Eigen/SparseCore>

namespace CartoonWelking {
namespace Iterative {

using EmbeddedGraphDeformer::ControlPoint;
using EmbeddedGraphDeformer::EnergyWeights;
using EmbeddedGraphDeformer::SurfacePair;
using EmbeddedGraphDeformer::Vec3;

/// The cartoon fit's energy for one graph level: twelve unknowns per node,
/// a general matrix A (by columns) and a translation t, so that a node may
/// shear and scale. A vertex v deforms to sum_k w_k (A_k (v - n_k) + n_k + t_k).
///
/// Residuals, in order: smoothness (three rows per directed neighbour
/// entry), fitting (four rows per source vertex, zero where the vertex has
/// no pair, so that the Jacobian's structure is fixed for the level),
/// control points (three rows each), rigidity (nine rows per node, the
/// entries of A^T A - I). The Jacobian is an Eigen sparse matrix whose
/// structure is set when the problem is made; later evaluations only
/// rewrite its values. It gives the gradient; the conjugate gradients'
/// products and the preconditioner's blocks come from the same Jacobian
/// held by its structure (`AffineBlockJacobian`), in parallel.
///
/// Surface pairs (points on the basemesh's triangles pulled to target
/// points, four rows each like a vertex pair) change from round to round,
/// so they stay out of the sparse matrix: their rows enter the products and
/// blocks as pair groups, and their value and gradient are added here, as
/// are the anchor rows (`setAnchor`), which touch one node each and enter
/// the products as that node's own 9x9 block, like the rigidity rows.
class Problem : public WNewton::MatrixFreeProblem<float>
{
public:
    using Vector = Eigen::VectorXf;
    using Jacobian = Eigen::SparseMatrix<float, Eigen::RowMajor, int>;

    Problem(const WelkingAcceleratedVersion::EmbeddedGraphLevel& level, std::vector<Vec3> restVertices,
            std::vector<Vec3> nodePositions, std::vector<ControlPoint> controls, const EnergyWeights& weights,
            float rigidity);

    void setPairs(const std::vector<long long>& sources, const std::vector<Vec3>& targets,
                  const std::vector<Vec3>& normals, std::vector<SurfacePair> surface = {});
    void setConjugateGradient(long long iterations, double tolerance);
    /// Holds every node's matrix at its value in x: nine rows per node,
    /// sqrt(h_k) (A_k - A_k(x)), with h_k `strength` times the mean diagonal
    /// of the node's matrix part of J^T J for the pairs set (call after
    /// setPairs; 0 removes the hold). The rows are linear and vanish where
    /// a solve starts, so they change no fixed point of the fit; they give
    /// the directions that nothing else sees a value.
    void setAnchor(const Vector& x, float strength);

    void evaluateValue(const Vector& x, float& value, WNewton::Timings* timings) override;
    void evaluateAll(const Vector& x, float& value, Vector& gradient,
                     LinearSystemsSolvers::ProductHolder<float>& product, WNewton::Timings* timings) override;
    LinearSystemsSolvers::ProductHolder<float>& product() override { return m_product; }
    LinearSystemsSolvers::Preconditioner<float, long long>& preconditioner() override { return m_preconditioner; }
    long long conjugateGradientIterations() const override { return m_cgIterations; }
    double conjugateGradientTolerance() const override { return m_cgTolerance; }

    void computeResiduals(const Vector& x, Vector& r) const;
    /// Rewrites the Jacobian's values at x.
    void computeJacobian(const Vector& x);
    const Jacobian& jacobian() const { return m_J; }

    void currentVertices(const Vector& x, std::vector<Vec3>& out) const;
    void currentNodes(const Vector& x, std::vector<Vec3>& out) const;
    long long variableCount() const { return 12 * (long long)m_nodes.size(); }
    /// The identity state: A = I and t = 0 for every node.
    Vector identity() const;

private:
    /// Calls emit(row, column, value) for every structural entry, always in
    /// the same order; values are those at x.
    template <typename Emit> void visitJacobian(const Vector& x, Emit emit) const;

    class Product : public LinearSystemsSolvers::ProductHolder<float>
    {
    public:
        explicit Product(const AffineBlockJacobian& J) : m_J(J) {}
        void multiply(const Vector& v, Vector& y) const override;

    private:
        const AffineBlockJacobian& m_J;
    };

    /// Inverts one 12 x 12 block of J^T J + damping I per node.
    class BlockDiagonalPreconditioner : public LinearSystemsSolvers::Preconditioner<float, long long>
    {
    public:
        using Block = Eigen::Matrix<float, 12, 12>;
        void collect(const AffineBlockJacobian& J) { J.nodeBlocks(m_blocks, true); }
        void refresh(double damping) override;
        void apply(const Vector& in, Vector& out) const override;

    private:
        std::vector<Block> m_blocks;
        std::vector<Block> m_inverse;
    };

    const WelkingAcceleratedVersion::EmbeddedGraphLevel& m_level;
    std::vector<Vec3> m_rest;
    std::vector<Vec3> m_nodes;
    std::vector<ControlPoint> m_controls;
    EnergyWeights m_weights;
    float m_rigidity;
    std::vector<std::pair<long long, long long>> m_edges;
    /// Per vertex: its pair's target and normal, and whether it has one.
    std::vector<char> m_paired;
    std::vector<Vec3> m_pairTargets;
    std::vector<Vec3> m_pairNormals;
    /// Per vertex, its influences sorted by node, so each row's columns ascend.
    std::vector<std::vector<std::pair<long long, float>>> m_influences;
    /// Per control point, the (node, weight, rest offset) terms, by node.
    std::vector<std::vector<std::pair<long long, std::vector<std::pair<float, Vec3>>>>> m_controlTerms;
    /// Per surface pair, the (node, weight, rest offset) terms of its corners,
    /// by node, as for a control point.
    std::vector<SurfacePair> m_surface;
    std::vector<std::vector<std::pair<long long, std::vector<std::pair<float, Vec3>>>>> m_surfaceTerms;
    /// The (node, weights, offsets) terms of a point on a triangle.
    std::vector<std::pair<long long, std::vector<std::pair<float, Vec3>>>> pointTerms(const long long* corners,
                                                                                      const float* weights) const;
    /// Half the surface pairs' squared residuals at the deformed vertices;
    /// with `gradient`, their J^T r is added to it.
    double surfaceValue(const std::vector<Vec3>& deformed, Vector* gradient) const;
    /// The blocks' values that do not depend on the state, for the pairs set.
    void fillBlocks();
    /// The rigidity and anchor rows' J^T J per node at x; none when both
    /// weights are 0.
    void fillRigidity(const Vector& x);

    /// Half the anchor rows' squared residuals at x; with `gradient`, their
    /// J^T r is added to it.
    double anchorValue(const Vector& x, Vector* gradient) const;
    std::vector<float> m_anchorWeights; ///< h_k per node, or none
    Vector m_anchor;

    Jacobian m_J;
    AffineBlockJacobian m_blocks;
    std::vector<int> m_positions; ///< value index of each emitted entry
    Vector m_r;
    Product m_product;
    BlockDiagonalPreconditioner m_preconditioner;
    long long m_cgIterations = 30;
    double m_cgTolerance = 0.0005;
};

} // namespace Iterative
} // namespace CartoonWelking
