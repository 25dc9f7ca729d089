#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <Eigen/SparseCore>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace TestSupport {

/// A deformation-graph-shaped least-squares problem of 6 unknowns per node
/// (a rotation vector w and a translation t): nodes near a sphere of
/// radius 1 are pushed to radius `radius` (a non-linear row per node),
/// neighbours stay smooth (three rows per directed edge, rotation
/// linearised), and w is lightly regularised. Shared by tests and benches.
class GraphProblem
{
public:
    GraphProblem(int nodes, int neighbours, float radius, unsigned seed = 1) : m_radius(radius)
    {
        std::mt19937 random(seed);
        std::normal_distribution<float> normal(0.0f, 1.0f);
        for (int i = 0; i < nodes; ++i) {
            Eigen::Vector3f p(normal(random), normal(random), normal(random));
            m_nodes.push_back(p.normalized() * (1.0f + 0.05f * normal(random)));
        }
        for (int j = 0; j < nodes; ++j) {
            std::vector<std::pair<float, int>> near;
            for (int k = 0; k < nodes; ++k)
                if (k != j)
                    near.emplace_back((m_nodes[size_t(k)] - m_nodes[size_t(j)]).squaredNorm(), k);
            std::partial_sort(near.begin(), near.begin() + neighbours, near.end());
            for (int n = 0; n < neighbours; ++n)
                m_edges.emplace_back(j, near[size_t(n)].second);
        }
    }

    int variableCount() const { return 6 * int(m_nodes.size()); }
    int residualCount() const { return int(m_nodes.size()) * 4 + 3 * int(m_edges.size()); }

    template <typename Scalar>
    void operator()(const Eigen::Matrix<Scalar, Eigen::Dynamic, 1>& x, Eigen::Matrix<Scalar, Eigen::Dynamic, 1>& r,
                    Eigen::SparseMatrix<Scalar, Eigen::RowMajor, int>* J) const
    {
        using Vec3 = Eigen::Matrix<Scalar, 3, 1>;
        r.resize(residualCount());
        std::vector<Eigen::Triplet<Scalar>> entries;
        int row = 0;
        const Scalar smooth = Scalar(std::sqrt(2.0));
        const Scalar regular = Scalar(0.1);
        for (size_t j = 0; j < m_nodes.size(); ++j) {
            const Vec3 p = m_nodes[j].cast<Scalar>() + x.template segment<3>(Eigen::Index(6 * j + 3));
            const Scalar length = p.norm();
            r[row] = length - Scalar(m_radius);
            if (J)
                for (int a = 0; a < 3; ++a)
                    entries.emplace_back(row, int(6 * j + 3) + a, p[a] / length);
            ++row;
            for (int a = 0; a < 3; ++a, ++row) {
                r[row] = regular * x[Eigen::Index(6 * j) + a];
                if (J)
                    entries.emplace_back(row, int(6 * j) + a, regular);
            }
        }
        for (const auto& edge : m_edges) {
            const int j = edge.first, k = edge.second;
            const Vec3 d = (m_nodes[size_t(k)] - m_nodes[size_t(j)]).template cast<Scalar>();
            const Vec3 w = x.template segment<3>(6 * j);
            const Vec3 value = smooth * (w.cross(d) + x.template segment<3>(6 * j + 3) - x.template segment<3>(6 * k + 3));
            for (int a = 0; a < 3; ++a)
                r[row + a] = value[a];
            if (J) {
                // d(w x d)/dw = -[d]x
                const Scalar cross[3][3] = {{0, d[2], -d[1]}, {-d[2], 0, d[0]}, {d[1], -d[0], 0}};
                for (int a = 0; a < 3; ++a) {
                    for (int b = 0; b < 3; ++b)
                        if (cross[a][b] != 0)
                            entries.emplace_back(row + a, 6 * j + b, smooth * cross[a][b]);
                    entries.emplace_back(row + a, 6 * j + 3 + a, smooth);
                    entries.emplace_back(row + a, 6 * k + 3 + a, -smooth);
                }
            }
            row += 3;
        }
        if (J) {
            J->resize(residualCount(), variableCount());
            J->setFromTriplets(entries.begin(), entries.end());
        }
    }

private:
    float m_radius;
    std::vector<Eigen::Vector3f> m_nodes;
    std::vector<std::pair<int, int>> m_edges;
};

} // namespace TestSupport
