#pragma once

#include "DeformationGraphTypes.h"

#include "optimisation/WNewtonProblem.h"

#include <Eigen/Core>
#include <Eigen/SparseCore>

#include <array>
#include <vector>

namespace EmbeddedDeformationManual {

using Vector3 = Eigen::Vector3d;

/// Control points of the fit: a point on a basemesh triangle (three vertex
/// indices and barycentric weights) that should reach a target position.
struct ControlData
{
    std::vector<std::array<int, 3>> triangles;
    std::vector<Vector3> barycentrics;
    std::vector<Vector3> targets;
};

/// The embedded deformation energy over a graph of N nodes, as a sparse
/// least-squares problem in double precision. x holds 3 N rotation
/// parameters (modified Rodrigues, per node) then 3 N translations; x = 0
/// is the identity. Residuals, in this order:
///  - per correspondence k: wPoint (p - c) and wPlane (p - c) . n, with p the
///    blended source vertex, c the target point and n its normal;
///  - per node i and neighbour j: wSmooth (R_i (g_j - g_i) + g_i + t_i - g_j - t_j);
///  - per control point: wControl (b0 p0 + b1 p1 + b2 p2 - c).
/// The value is |r|^2 / 2, the gradient J^T r and the Hessian J^T J, from
/// the exact Jacobian. The Hessian's pattern (one 6x6 block per pair of
/// nodes that share a vertex, an edge or a control point) is fixed per
/// graph, so it is built once and later passes only refill values.
class EmbeddedGraphSparseProblem : public WNewton::Problem<double, Eigen::SparseMatrix<double, 0, int>>
{
public:
    using Hessian = Eigen::SparseMatrix<double, 0, int>;

    EmbeddedGraphSparseProblem(std::vector<Vector3> nodes, std::vector<Vector3> vertices,
                               const DeformationGraphRoutine::InfluenceLists& influences,
                               const DeformationGraphRoutine::NeighbourLists& neighbours, ControlData controlData,
                               float wPoint, float wPlane, float wSmooth, float wControl);

    /// Replaces the fitting set: source vertex indices and their target
    /// points and normals, of equal lengths.
    void setCorrespondences(std::vector<int> sources, std::vector<Vector3> targetPoints,
                            std::vector<Vector3> targetNormals);

    void evaluateValue(const Vector& x, double& value, WNewton::Timings* timings) override;
    void evaluateAll(const Vector& x, double& value, Vector& gradient, Hessian& hessian,
                     WNewton::Timings* timings) override;

    /// The residual vector at x, in the order above.
    Vector residuals(const Vector& x);
    /// The blended vertices of the last evaluation.
    const std::vector<Vector3>& deformedVertices() const { return m_deformed; }
    /// Blends all vertices for x; the result is also kept as deformedVertices().
    const std::vector<Vector3>& deform(const Vector& x);

    int nodeCount() const { return int(m_nodes.size()); }
    int variableCount() const { return 6 * nodeCount(); }
    int residualCount() const;
    const std::vector<Vector3>& nodes() const { return m_nodes; }

private:
    using Block46 = Eigen::Matrix<double, 4, 6>;
    using Block36 = Eigen::Matrix<double, 3, 6>;

    void computeRotations(const Vector& x);
    Vector3 blend(int vertex, const Vector& x) const;
    void fillResiduals(const Vector& x, Vector& r);
    void buildPattern(const ControlData& controls);
    int slot(int column, int row) const;
    /// Adds a^T b to the Hessian block of (row node, column node); `index`
    /// is the row node's place in the column node's list.
    template <int Rows> void addProduct(int rowNode, int columnNode, int index,
                                        const Eigen::Matrix<double, Rows, 6>& a,
                                        const Eigen::Matrix<double, Rows, 6>& b, double* values) const;
    /// The 3x6 Jacobian of the blended vertex by each of its nodes.
    void vertexJacobian(int vertex, std::vector<std::pair<int, Block36>>& blocks) const;

    std::vector<Vector3> m_vertices;
    std::vector<Vector3> m_deformed;
    std::vector<Vector3> m_nodes;
    DeformationGraphRoutine::NeighbourLists m_neighbours;
    DeformationGraphRoutine::InfluenceLists m_influences;
    std::vector<int> m_sources;
    std::vector<Vector3> m_targetPoints;
    std::vector<Vector3> m_targetNormals;
    std::vector<Vector3> m_controlTargets;
    std::vector<std::array<int, 3>> m_controlTriangles;
    std::vector<Vector3> m_controlBarycentrics;
    double m_wPoint, m_wPlane, m_wSmooth, m_wControl;
    /// Kept between evaluations: it runs to millions of entries on fine levels.
    Vector m_residuals;

    // Per node: rotation, its three derivatives.
    std::vector<Eigen::Matrix3d> m_rotations;
    std::vector<std::array<Eigen::Matrix3d, 3>> m_rotationDerivatives;

    // The Hessian pattern: per node the sorted list of nodes whose block in
    // its columns is present (itself included); column layout documented
    // in the source.
    std::vector<long long> m_blockOffsets;
    std::vector<int> m_blockRows;
    std::vector<int> m_outer;
    std::vector<int> m_inner;
};

/// One solve of the classic fit: sets the correspondences, runs
/// Levenberg-Marquardt from x (kept in x), and returns the blended
/// vertices and the moved node positions g + t as floats.
void deform(EmbeddedGraphSparseProblem& problem, Eigen::VectorXd& x, std::vector<int> sources,
            std::vector<Vector3> targetPoints, std::vector<Vector3> targetNormals, QVector<QVector3D>& vertices,
            QVector<QVector3D>& nodesOut, int levMarIterations, double stepTolerance);

} // namespace EmbeddedDeformationManual
