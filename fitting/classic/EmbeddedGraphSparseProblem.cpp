#include "EmbeddedGraphSparseProblem.h"

#include "ModifiedRodrigues.h"

#include "optimisation/WNewton.h"

#include <algorithm>
#include <chrono>

namespace EmbeddedDeformationManual {

namespace {

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

// Layout of the Hessian: the variables of node q are the rotation columns
// 3q .. 3q + 2 and the translation columns 3N + 3q .. 3N + 3q + 2. Each of
// these six columns holds the same rows: first the rotation rows of every
// node in q's block list (ascending), then their translation rows, so an
// entry's place follows from the column start and the row node's index in
// that list alone.

EmbeddedGraphSparseProblem::EmbeddedGraphSparseProblem(std::vector<Vector3> nodes, std::vector<Vector3> vertices,
                                                       const DeformationGraphRoutine::InfluenceLists& influences,
                                                       const DeformationGraphRoutine::NeighbourLists& neighbours,
                                                       ControlData controlData, float wPoint, float wPlane,
                                                       float wSmooth, float wControl)
    : m_vertices(std::move(vertices)), m_deformed(m_vertices), m_nodes(std::move(nodes)), m_neighbours(neighbours),
      m_influences(influences), m_controlTargets(std::move(controlData.targets)),
      m_controlTriangles(std::move(controlData.triangles)), m_controlBarycentrics(std::move(controlData.barycentrics)),
      m_wPoint(wPoint), m_wPlane(wPlane), m_wSmooth(wSmooth), m_wControl(wControl)
{
    m_rotations.assign(m_nodes.size(), Eigen::Matrix3d::Identity());
    m_rotationDerivatives.resize(m_nodes.size());
    if (m_neighbours.offsets.size() != m_nodes.size() + 1)
        m_neighbours.offsets.assign(m_nodes.size() + 1, 0), m_neighbours.indices.clear();
    ControlData controls;
    controls.triangles = m_controlTriangles;
    buildPattern(controls);
}

int EmbeddedGraphSparseProblem::residualCount() const
{
    return int(4 * m_sources.size() + 3 * m_neighbours.indices.size() + 3 * m_controlTriangles.size());
}

void EmbeddedGraphSparseProblem::buildPattern(const ControlData& controls)
{
    const int n = nodeCount();
    std::vector<std::vector<int>> lists(static_cast<size_t>(n));
    for (int q = 0; q < n; ++q) {
        lists[size_t(q)].push_back(q);
        for (long long k = m_neighbours.offsets[size_t(q)]; k < m_neighbours.offsets[size_t(q) + 1]; ++k) {
            const int j = m_neighbours.indices[size_t(k)];
            lists[size_t(q)].push_back(j);
            lists[size_t(j)].push_back(q);
        }
    }
    auto connectAll = [&](const std::vector<int>& group) {
        for (int a : group)
            for (int b : group)
                lists[size_t(a)].push_back(b);
    };
    std::vector<int> group;
    for (int v = 0; v < m_influences.vertexCount(); ++v) {
        group.clear();
        for (long long k = m_influences.offsets[size_t(v)]; k < m_influences.offsets[size_t(v) + 1]; ++k)
            if (m_influences.weights[size_t(k)] != 0.0f)
                group.push_back(m_influences.nodeIndices[size_t(k)]);
        connectAll(group);
    }
    for (const auto& triangle : controls.triangles) {
        group.clear();
        for (int v : triangle)
            for (long long k = m_influences.offsets[size_t(v)]; k < m_influences.offsets[size_t(v) + 1]; ++k)
                group.push_back(m_influences.nodeIndices[size_t(k)]);
        connectAll(group);
    }
    m_blockOffsets.assign(size_t(n) + 1, 0);
    m_blockRows.clear();
    for (int q = 0; q < n; ++q) {
        std::vector<int>& list = lists[size_t(q)];
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        m_blockRows.insert(m_blockRows.end(), list.begin(), list.end());
        m_blockOffsets[size_t(q) + 1] = (long long)m_blockRows.size();
        std::vector<int>().swap(list);
    }

    const int columns = 6 * n;
    m_outer.assign(size_t(columns) + 1, 0);
    for (int col = 0; col < columns; ++col) {
        const int q = (col % (3 * std::max(n, 1))) / 3;
        const int m = int(m_blockOffsets[size_t(q) + 1] - m_blockOffsets[size_t(q)]);
        m_outer[size_t(col) + 1] = m_outer[size_t(col)] + 6 * m;
    }
    m_inner.resize(size_t(m_outer.back()));
    for (int col = 0; col < columns; ++col) {
        const int q = (col % (3 * n)) / 3;
        const long long begin = m_blockOffsets[size_t(q)], end = m_blockOffsets[size_t(q) + 1];
        int* out = m_inner.data() + m_outer[size_t(col)];
        for (long long k = begin; k < end; ++k)
            for (int r = 0; r < 3; ++r)
                *out++ = 3 * m_blockRows[size_t(k)] + r;
        for (long long k = begin; k < end; ++k)
            for (int r = 0; r < 3; ++r)
                *out++ = 3 * n + 3 * m_blockRows[size_t(k)] + r;
    }
}

int EmbeddedGraphSparseProblem::slot(int column, int row) const
{
    const auto begin = m_blockRows.begin() + m_blockOffsets[size_t(column)];
    const auto end = m_blockRows.begin() + m_blockOffsets[size_t(column) + 1];
    return int(std::lower_bound(begin, end, row) - begin);
}

template <int Rows>
void EmbeddedGraphSparseProblem::addProduct(int, int columnNode, int index, const Eigen::Matrix<double, Rows, 6>& a,
                                            const Eigen::Matrix<double, Rows, 6>& b, double* values) const
{
    const int n = nodeCount();
    const int m = int(m_blockOffsets[size_t(columnNode) + 1] - m_blockOffsets[size_t(columnNode)]);
    const Eigen::Matrix<double, 6, 6> block = a.transpose() * b;
    for (int c = 0; c < 6; ++c) {
        const int col = c < 3 ? 3 * columnNode + c : 3 * n + 3 * columnNode + c - 3;
        double* column = values + m_outer[size_t(col)];
        for (int r = 0; r < 3; ++r)
            column[3 * index + r] += block(r, c);
        for (int r = 0; r < 3; ++r)
            column[3 * m + 3 * index + r] += block(3 + r, c);
    }
}

void EmbeddedGraphSparseProblem::setCorrespondences(std::vector<int> sources, std::vector<Vector3> targetPoints,
                                                    std::vector<Vector3> targetNormals)
{
    m_sources = std::move(sources);
    m_targetPoints = std::move(targetPoints);
    m_targetNormals = std::move(targetNormals);
}

void EmbeddedGraphSparseProblem::computeRotations(const Vector& x)
{
    const int n = nodeCount();
    for (int j = 0; j < n; ++j) {
        const Vector3 s = x.segment<3>(3 * j);
        m_rotations[size_t(j)] = EmbeddedDeformation::rotationFromParameters(s[0], s[1], s[2]);
    }
}

Vector3 EmbeddedGraphSparseProblem::blend(int vertex, const Vector& x) const
{
    const int n = nodeCount();
    Vector3 p = Vector3::Zero();
    const Vector3& v = m_vertices[size_t(vertex)];
    for (long long k = m_influences.offsets[size_t(vertex)]; k < m_influences.offsets[size_t(vertex) + 1]; ++k) {
        const int j = m_influences.nodeIndices[size_t(k)];
        const double w = double(m_influences.weights[size_t(k)]);
        const Vector3& g = m_nodes[size_t(j)];
        p += w * (m_rotations[size_t(j)] * (v - g) + g + x.segment<3>(3 * n + 3 * j));
    }
    return p;
}

const std::vector<Vector3>& EmbeddedGraphSparseProblem::deform(const Vector& x)
{
    computeRotations(x);
    for (int v = 0; v < int(m_vertices.size()); ++v)
        m_deformed[size_t(v)] = blend(v, x);
    return m_deformed;
}

void EmbeddedGraphSparseProblem::fillResiduals(const Vector& x, Vector& r)
{
    const int n = nodeCount();
    deform(x);
    if (r.size() != residualCount())
        r.resize(residualCount());
    int row = 0;
    for (size_t k = 0; k < m_sources.size(); ++k) {
        const Vector3 d = m_deformed[size_t(m_sources[k])] - m_targetPoints[k];
        r.segment<3>(row) = m_wPoint * d;
        r[row + 3] = m_wPlane * d.dot(m_targetNormals[k]);
        row += 4;
    }
    for (int i = 0; i < n; ++i)
        for (long long k = m_neighbours.offsets[size_t(i)]; k < m_neighbours.offsets[size_t(i) + 1]; ++k) {
            const int j = m_neighbours.indices[size_t(k)];
            const Vector3 &gi = m_nodes[size_t(i)], &gj = m_nodes[size_t(j)];
            r.segment<3>(row) = m_wSmooth * (m_rotations[size_t(i)] * (gj - gi) + gi + x.segment<3>(3 * n + 3 * i) -
                                             gj - x.segment<3>(3 * n + 3 * j));
            row += 3;
        }
    for (size_t c = 0; c < m_controlTriangles.size(); ++c) {
        const auto& t = m_controlTriangles[c];
        const Vector3& b = m_controlBarycentrics[c];
        const Vector3 p = b[0] * m_deformed[size_t(t[0])] + b[1] * m_deformed[size_t(t[1])] +
                          b[2] * m_deformed[size_t(t[2])];
        r.segment<3>(row) = m_wControl * (p - m_controlTargets[c]);
        row += 3;
    }
}

EmbeddedGraphSparseProblem::Vector EmbeddedGraphSparseProblem::residuals(const Vector& x)
{
    Vector r;
    fillResiduals(x, r);
    return r;
}

void EmbeddedGraphSparseProblem::evaluateValue(const Vector& x, double& value, WNewton::Timings* timings)
{
    const auto start = std::chrono::steady_clock::now();
    fillResiduals(x, m_residuals);
    value = 0.5 * m_residuals.squaredNorm();
    if (timings)
        timings->emplace_back("t(f)", secondsSince(start));
}

void EmbeddedGraphSparseProblem::vertexJacobian(int vertex, std::vector<std::pair<int, Block36>>& blocks) const
{
    blocks.clear();
    const Vector3& v = m_vertices[size_t(vertex)];
    for (long long k = m_influences.offsets[size_t(vertex)]; k < m_influences.offsets[size_t(vertex) + 1]; ++k) {
        const double w = double(m_influences.weights[size_t(k)]);
        if (w == 0.0)
            continue;
        const int j = m_influences.nodeIndices[size_t(k)];
        const Vector3 local = v - m_nodes[size_t(j)];
        Block36 J;
        for (int a = 0; a < 3; ++a)
            J.col(a) = w * (m_rotationDerivatives[size_t(j)][size_t(a)] * local);
        J.rightCols<3>() = w * Eigen::Matrix3d::Identity();
        blocks.emplace_back(j, J);
    }
}

void EmbeddedGraphSparseProblem::evaluateAll(const Vector& x, double& value, Vector& gradient, Hessian& hessian,
                                             WNewton::Timings* timings)
{
    auto start = std::chrono::steady_clock::now();
    const int n = nodeCount();
    fillResiduals(x, m_residuals);
    const Vector& r = m_residuals;
    value = 0.5 * r.squaredNorm();
    if (timings)
        timings->emplace_back("t(f)", secondsSince(start));

    start = std::chrono::steady_clock::now();
    for (int j = 0; j < n; ++j) {
        Eigen::Matrix3d d[3];
        EmbeddedDeformation::rotationDerivatives(x.segment<3>(3 * j), d);
        for (int a = 0; a < 3; ++a)
            m_rotationDerivatives[size_t(j)][size_t(a)] = d[a];
    }
    const double derivativeSeconds = secondsSince(start);
    start = std::chrono::steady_clock::now();
    const int columns = 6 * n;
    if (hessian.rows() != columns || hessian.cols() != columns || hessian.nonZeros() != Eigen::Index(m_inner.size()) ||
        !hessian.isCompressed()) {
        hessian.resize(columns, columns);
        hessian.resizeNonZeros(Eigen::Index(m_inner.size()));
        std::copy(m_outer.begin(), m_outer.end(), hessian.outerIndexPtr());
        std::copy(m_inner.begin(), m_inner.end(), hessian.innerIndexPtr());
    }
    double* values = hessian.valuePtr();
    std::fill(values, values + m_inner.size(), 0.0);
    if (gradient.size() != columns)
        gradient.resize(columns);
    gradient.setZero();
    auto addGradient = [&](int node, const Eigen::Matrix<double, 6, 1>& g) {
        gradient.segment<3>(3 * node) += g.head<3>();
        gradient.segment<3>(3 * n + 3 * node) += g.tail<3>();
    };

    // Fitting rows.
    std::vector<std::pair<int, Block36>> vertexBlocks;
    std::vector<std::pair<int, Block46>> rows;
    int row = 0;
    for (size_t k = 0; k < m_sources.size(); ++k, row += 4) {
        vertexJacobian(m_sources[k], vertexBlocks);
        rows.clear();
        const Vector3& normal = m_targetNormals[k];
        for (const auto& [node, J] : vertexBlocks) {
            Block46 B;
            B.topRows<3>() = m_wPoint * J;
            B.row(3) = m_wPlane * (normal.transpose() * J);
            rows.emplace_back(node, B);
        }
        const Eigen::Vector4d rk = r.segment<4>(row);
        for (const auto& [p, Bp] : rows) {
            addGradient(p, Bp.transpose() * rk);
            for (const auto& [q, Bq] : rows)
                addProduct<4>(p, q, slot(q, p), Bp, Bq, values);
        }
    }

    // Smoothness rows: from node i to neighbour j, depending on s_i, t_i, t_j.
    for (int i = 0; i < n; ++i) {
        const int selfSlot = slot(i, i);
        for (long long k = m_neighbours.offsets[size_t(i)]; k < m_neighbours.offsets[size_t(i) + 1]; ++k, row += 3) {
            const int j = m_neighbours.indices[size_t(k)];
            const Vector3 edge = m_nodes[size_t(j)] - m_nodes[size_t(i)];
            Block36 Bi, Bj = Block36::Zero();
            for (int a = 0; a < 3; ++a)
                Bi.col(a) = m_wSmooth * (m_rotationDerivatives[size_t(i)][size_t(a)] * edge);
            Bi.rightCols<3>() = m_wSmooth * Eigen::Matrix3d::Identity();
            Bj.rightCols<3>() = -m_wSmooth * Eigen::Matrix3d::Identity();
            const Vector3 rk = r.segment<3>(row);
            addGradient(i, Bi.transpose() * rk);
            addGradient(j, Bj.transpose() * rk);
            addProduct<3>(i, i, selfSlot, Bi, Bi, values);
            addProduct<3>(j, j, slot(j, j), Bj, Bj, values);
            addProduct<3>(i, j, slot(j, i), Bi, Bj, values);
            addProduct<3>(j, i, slot(i, j), Bj, Bi, values);
        }
    }

    // Control rows: the three corners' nodes, merged.
    std::vector<std::pair<int, Block36>> merged;
    for (size_t c = 0; c < m_controlTriangles.size(); ++c, row += 3) {
        merged.clear();
        for (int corner = 0; corner < 3; ++corner) {
            vertexJacobian(m_controlTriangles[c][size_t(corner)], vertexBlocks);
            const double b = m_wControl * m_controlBarycentrics[c][corner];
            for (const auto& [node, J] : vertexBlocks) {
                auto it = std::find_if(merged.begin(), merged.end(), [&](const auto& e) { return e.first == node; });
                if (it == merged.end())
                    merged.emplace_back(node, b * J);
                else
                    it->second += b * J;
            }
        }
        const Vector3 rk = r.segment<3>(row);
        for (const auto& [p, Bp] : merged) {
            addGradient(p, Bp.transpose() * rk);
            for (const auto& [q, Bq] : merged)
                addProduct<3>(p, q, slot(q, p), Bp, Bq, values);
        }
    }
    if (timings) {
        // The gradient is gathered in the same pass as J^T J; "t(∇f)" is
        // the derivative pass before it.
        timings->emplace_back("t(∇f)", derivativeSeconds);
        timings->emplace_back("t(JtJ)", secondsSince(start));
    }
}

void deform(EmbeddedGraphSparseProblem& problem, Eigen::VectorXd& x, std::vector<int> sources,
            std::vector<Vector3> targetPoints, std::vector<Vector3> targetNormals, QVector<QVector3D>& vertices,
            QVector<QVector3D>& nodesOut, int levMarIterations, double stepTolerance)
{
    problem.setCorrespondences(std::move(sources), std::move(targetPoints), std::move(targetNormals));
    WNewton::SolverParameters parameters;
    parameters.maxIterations = levMarIterations;
    parameters.initialDamping = 1e-9;
    parameters.verbose = false;
    parameters.dampingMode = 10;
    WNewton::Tolerances tolerances;
    tolerances.gradientTolerance = 0.0001;
    tolerances.stepTolerance = stepTolerance;
    WNewton::minimize(problem, x, parameters, tolerances);

    const std::vector<Vector3>& deformed = problem.deform(x);
    vertices.resize(int(deformed.size()));
    for (size_t v = 0; v < deformed.size(); ++v)
        vertices[int(v)] = QVector3D(float(deformed[v].x()), float(deformed[v].y()), float(deformed[v].z()));
    const int n = problem.nodeCount();
    nodesOut.resize(n);
    for (int j = 0; j < n; ++j) {
        const Vector3 moved = problem.nodes()[size_t(j)] + x.segment<3>(3 * n + 3 * j);
        nodesOut[j] = QVector3D(float(moved.x()), float(moved.y()), float(moved.z()));
    }
}

} // namespace EmbeddedDeformationManual
