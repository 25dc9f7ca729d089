#pragma once

#include "DeformerTypes.h"
#include "JacobianSparseStorage.h"
#include "NodeBlockJacobian.h"
#include "NodeBlocks.h"
#include "NormalCholesky.h"

#include "optimisation/WNewtonProblem.h"

namespace EmbeddedGraphDeformer {
namespace IterativeSolverDeformer {

/// The embedded deformation energy of one graph level, for the matrix-free
/// Levenberg-Marquardt loop. Six unknowns per node: modified Rodrigues
/// parameters s, then a translation t. A vertex v with influences k and
/// weights w deforms to sum_k w_k (R_k (v - n_k) + n_k + t_k).
///
/// Residuals, in order: four rows per pair (point-to-point weight times
/// v' - target, then point-to-plane weight times its dot with the target
/// normal), three rows per directed neighbour entry (smoothness times
/// R_j (n_k - n_j) + n_j + t_j - n_k - t_k), three rows per control point
/// (control weight times the deformed point minus its target). F = |r|^2 / 2.
class Problem : public WNewton::MatrixFreeProblem<float>
{
public:
    using Vector = Eigen::VectorXf;

    Problem(const WelkingAcceleratedVersion::EmbeddedGraphLevel& level, std::vector<Vec3> restVertices,
            std::vector<Vec3> nodePositions, std::vector<ControlPoint> controls, const EnergyWeights& weights,
            bool parallel);

    /// Sets the pairs (source vertex, target point and normal), and pairs
    /// from points of the surface after them, and with them the Jacobian's
    /// pattern.
    void setPairs(std::vector<long long> sources, std::vector<Vec3> targets, std::vector<Vec3> normals,
                  std::vector<SurfacePair> surface = {});
    void setConjugateGradient(long long iterations, double tolerance);
    /// Preconditions the conjugate gradients with a sparse Cholesky of
    /// J^T J + damping I (one product per solve) instead of the inverted
    /// 6x6 node blocks. Its pattern is set up the first time it is turned on.
    void setDirectSolve(bool direct);
    bool directSolve() const { return m_direct; }

    void evaluateValue(const Vector& x, float& value, WNewton::Timings* timings) override;
    void evaluateAll(const Vector& x, float& value, Vector& gradient,
                     LinearSystemsSolvers::ProductHolder<float>& product, WNewton::Timings* timings) override;
    LinearSystemsSolvers::ProductHolder<float>& product() override { return m_product; }
    LinearSystemsSolvers::Preconditioner<float, long long>& preconditioner() override
    {
        if (m_direct)
            return m_cholesky;
        return m_preconditioner;
    }
    long long conjugateGradientIterations() const override { return m_cgIterations; }
    double conjugateGradientTolerance() const override { return m_cgTolerance; }
    double hessianScale() const override { return m_preconditioner.meanDiagonal(); }

    /// The residual vector at x (for tests and reports).
    void computeResiduals(const Vector& x, Vector& r);
    /// Fills the Jacobian at x; `jacobian()` then reads it.
    void computeResidualsAndJacobian(const Vector& x, Vector& r);
    /// The Jacobian as the products use it.
    const NodeBlockJacobian& nodeBlockJacobian() const { return m_jacobian; }
    /// The same Jacobian entry by entry (only structurally non-zero
    /// entries), written from the blocks when asked for: for the Cholesky
    /// preconditioner and for checks.
    const JacobianSparseStorage& jacobian();

    void currentVertices(const Vector& x, std::vector<Vec3>& out) const;
    void currentNodes(const Vector& x, std::vector<Vec3>& out) const;
    long long variableCount() const { return 6 * (long long)m_nodes.size(); }
    /// Work done since construction, for the debug log.
    struct Counters
    {
        long long values = 0, jacobians = 0, products = 0;
        double productSeconds = 0.0; ///< wall time in the products J^T J v
    };
    const Counters& counters() const { return m_counters; }
    /// The Cholesky preconditioner, for the debug log and checks.
    const NormalCholesky& cholesky() const { return m_cholesky; }

private:
    class Product : public LinearSystemsSolvers::ProductHolder<float>
    {
    public:
        Product(const NodeBlockJacobian& jacobian, const bool& parallel, Counters& counters)
            : m_jacobian(jacobian), m_parallel(parallel), m_counters(counters)
        {
        }
        void multiply(const Vector& v, Vector& y) const override;

    private:
        const NodeBlockJacobian& m_jacobian;
        const bool& m_parallel;
        Counters& m_counters;
    };

    class BlockDiagonalPreconditioner : public LinearSystemsSolvers::Preconditioner<float, long long>
    {
    public:
        void collect(const NodeBlockJacobian& jacobian, bool parallel)
        {
            m_parallel = parallel;
            jacobian.nodeBlocks(m_blocks, parallel);
        }
        void refresh(double damping) override;
        void apply(const Vector& in, Vector& out) const override;
        double meanDiagonal() const { return meanBlockDiagonal(m_blocks); }

    private:
        std::vector<JacobianSparseStorage::Block> m_blocks;
        std::vector<JacobianSparseStorage::Block> m_inverse;
        bool m_parallel = true;
    };

    /// The rows' node sequences for `NormalCholesky`: every vertex's
    /// influences, then every edge (j, k), then every control point's nodes.
    void setCholeskyPattern();
    void setCholeskyRows();
    /// The entry-by-entry pattern of the current pairs, and its values.
    void reserveSparseForm();
    void setSparsePattern();
    void fillSparseValues();
    Vec3 deformedVertex(long long v, const Vector& x, const std::vector<Eigen::Matrix3f>& rotations) const;
    /// The blocks of a point on a triangle (three corners, barycentric
    /// weights), d point / d node summed over the corners each node moves,
    /// for its `count` nodes (ascending), from `m_influenceArms`, into
    /// `arms` on: a control point's or a surface pair's. `slots`, when
    /// given, holds each (corner, influence) entry's place among `nodes` in
    /// that order, found once per set of pairs rather than searched at
    /// every Jacobian.
    void fillPointBlocks(const long long* corners, const float* weights, const int* nodes, long long count,
                         NodeBlockJacobian::Arm* arms, const int* slots = nullptr) const;
    /// Puts the pairs in the order of their nearest nodes (see the .cpp).
    void orderPairsByNode();
    long long pairCount() const { return (long long)(m_sources.size() + m_surface.size()); }
    void updateRotations(const Vector& x);
    /// The arm of a block: d(R_node a)/ds = [arm]x W_node (see NodeBlockJacobian).
    Vec3 arm(long long node, const Vec3& a) const { return -(m_rotations[size_t(node)] * a); }

    const WelkingAcceleratedVersion::EmbeddedGraphLevel& m_level;
    std::vector<Vec3> m_rest;
    std::vector<Vec3> m_nodes;
    std::vector<ControlPoint> m_controls;
    EnergyWeights m_weights;
    bool m_parallel;
    std::vector<long long> m_sources;
    std::vector<Vec3> m_targets;
    std::vector<Vec3> m_normals;
    std::vector<SurfacePair> m_surface;
    std::vector<Vec3> m_deformed; ///< every vertex's deformed position, when there are surface pairs
    /// Per influence entry of the level (vertex v, node k), the arm of
    /// d(R_k (v - n_k))/ds_k at the last Jacobian, when there are surface
    /// pairs or control points: a vertex is a corner of several surface
    /// pairs besides its own pair.
    std::vector<Vec3> m_influenceArms;
    /// Per surface pair, from `m_surfaceSlotOffsets[s]` on, the slots
    /// `fillPointBlocks` takes.
    std::vector<int> m_surfaceSlots;
    std::vector<long long> m_surfaceSlotOffsets;
    /// Directed neighbour entries (j, k) in row order.
    std::vector<std::pair<long long, long long>> m_edges;
    /// Per control point, the nodes that move it (unique).
    std::vector<std::vector<long long>> m_controlNodes;
    std::vector<Eigen::Matrix3f> m_rotations;
    NodeBlockJacobian m_jacobian;
    JacobianSparseStorage m_storage;
    bool m_sparseFormReserved = false;
    bool m_sparsePatternCurrent = false;
    bool m_sparseValuesCurrent = false;
    /// The pattern's lists, kept from one set of pairs to the next.
    std::vector<long long> m_patternOffsets;
    std::vector<int> m_patternColumns;
    Vector m_r;
    Counters m_counters;
    Product m_product;
    BlockDiagonalPreconditioner m_preconditioner;
    NormalCholesky m_cholesky;
    bool m_direct = false;
    bool m_choleskyPattern = false;
    long long m_cgIterations = 30;
    double m_cgTolerance = 0.0005;
};

} // namespace IterativeSolverDeformer
} // namespace EmbeddedGraphDeformer
