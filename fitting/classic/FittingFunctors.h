#pragma once

#include "ModifiedRodrigues.h"

#include <Eigen/Core>

/// Residual functors of the embedded deformation fit, for
/// `Block::BlockTypeAutoDiff`. A vertex moves with `Nodes` graph nodes;
/// the block's variables are, per node in order, its three rotation
/// parameters then its three translations. Constants of one vertex:
/// its reference position (3), then per node its position (3) and weight
/// (1); the functors append their own constants after that.
namespace EmbeddedDeformation {

/// The blended vertex sum_j w_j (R(s_j) (v - g_j) + g_j + t_j).
template <int Nodes, typename T>
Eigen::Matrix<T, 3, 1> blendedVertex(const double* constants, const T* variables)
{
    const Eigen::Vector3d v(constants[0], constants[1], constants[2]);
    Eigen::Matrix<T, 3, 1> p = Eigen::Matrix<T, 3, 1>::Constant(T(0.0));
    for (int j = 0; j < Nodes; ++j) {
        const double* node = constants + 3 + 4 * j;
        const Eigen::Vector3d g(node[0], node[1], node[2]);
        const T w(node[3]);
        const T* x = variables + 6 * j;
        const Eigen::Matrix<T, 3, 3> R = rotationFromParameters(x[0], x[1], x[2]);
        const Eigen::Matrix<T, 3, 1> local = (v - g).cast<T>();
        const Eigen::Matrix<T, 3, 1> moved = R * local;
        for (int a = 0; a < 3; ++a)
            p[a] += w * (moved[a] + T(g[a]) + x[3 + a]);
    }
    return p;
}

/// Constants of one vertex before a functor's own.
template <int Nodes> constexpr int vertexConstantCount() { return 3 + 4 * Nodes; }

/// (p - c) w: constants of the vertex, then target c (3), then w.
template <int Nodes> struct FittingPointToPointFunctor
{
    static constexpr int ResidualCount = 3;
    static constexpr int VariableCount = 6 * Nodes;
    static constexpr int ConstantCount = vertexConstantCount<Nodes>() + 4;

    template <typename T> void operator()(const double* constants, const T* variables, T* residuals) const
    {
        const Eigen::Matrix<T, 3, 1> p = blendedVertex<Nodes>(constants, variables);
        const double* c = constants + vertexConstantCount<Nodes>();
        for (int a = 0; a < 3; ++a)
            residuals[a] = (p[a] - T(c[a])) * T(c[3]);
    }
};

/// w ((p - c) . n): constants of the vertex, then target c (3), normal n
/// (3), then w.
template <int Nodes> struct FittingPointToPlaneFunctor
{
    static constexpr int ResidualCount = 1;
    static constexpr int VariableCount = 6 * Nodes;
    static constexpr int ConstantCount = vertexConstantCount<Nodes>() + 7;

    template <typename T> void operator()(const double* constants, const T* variables, T* residuals) const
    {
        const Eigen::Matrix<T, 3, 1> p = blendedVertex<Nodes>(constants, variables);
        const double* c = constants + vertexConstantCount<Nodes>();
        residuals[0] = T(c[6]) * ((p[0] - T(c[0])) * T(c[3]) + (p[1] - T(c[1])) * T(c[4]) + (p[2] - T(c[2])) * T(c[5]));
    }
};

} // namespace EmbeddedDeformation

namespace Welking {

/// The fitting term of the classic energy for one correspondence: the
/// three point rows (p - c) wPoint, then the plane row wPlane ((p - c) . n).
/// Constants of the vertex, then c (3), n (3), wPoint, wPlane.
template <int Nodes> struct FittingPointToPointPointToPlaneFunctor
{
    static constexpr int ResidualCount = 4;
    static constexpr int VariableCount = 6 * Nodes;
    static constexpr int ConstantCount = EmbeddedDeformation::vertexConstantCount<Nodes>() + 8;

    template <typename T> void operator()(const double* constants, const T* variables, T* residuals) const
    {
        const Eigen::Matrix<T, 3, 1> p = EmbeddedDeformation::blendedVertex<Nodes>(constants, variables);
        const double* c = constants + EmbeddedDeformation::vertexConstantCount<Nodes>();
        T plane(0.0);
        for (int a = 0; a < 3; ++a) {
            const T d = p[a] - T(c[a]);
            residuals[a] = d * T(c[6]);
            plane += d * T(c[3 + a]);
        }
        residuals[3] = T(c[7]) * plane;
    }
};

/// A control point: (b0 p0 + b1 p1 + b2 p2 - c) w over the blended corners
/// of a triangle. The corners' nodes overlap, so the block's variables are
/// the union of `Slots` nodes (6 each, as above) and every corner names
/// its nodes by slot. Constants: the slots' node positions (3 each); per
/// corner its reference vertex (3), barycentric coordinate (1) and per
/// influence a slot number and a weight (2 x Nodes); then c (3) and w.
template <int Slots, int Nodes> struct FittingPointToPointOnTriangleFunctor
{
    static constexpr int ResidualCount = 3;
    static constexpr int VariableCount = 6 * Slots;
    static constexpr int CornerConstants = 4 + 2 * Nodes;
    static constexpr int ConstantCount = 3 * Slots + 3 * CornerConstants + 4;

    template <typename T> void operator()(const double* constants, const T* variables, T* residuals) const
    {
        Eigen::Matrix<T, 3, 3> R[Slots];
        for (int s = 0; s < Slots; ++s)
            R[s] = EmbeddedDeformation::rotationFromParameters(variables[6 * s], variables[6 * s + 1],
                                                               variables[6 * s + 2]);
        Eigen::Matrix<T, 3, 1> p = Eigen::Matrix<T, 3, 1>::Constant(T(0.0));
        for (int corner = 0; corner < 3; ++corner) {
            const double* k = constants + 3 * Slots + corner * CornerConstants;
            const Eigen::Vector3d v(k[0], k[1], k[2]);
            const T b(k[3]);
            for (int j = 0; j < Nodes; ++j) {
                const int slot = int(k[4 + 2 * j]);
                const T w(k[5 + 2 * j]);
                const Eigen::Vector3d g(constants[3 * slot], constants[3 * slot + 1], constants[3 * slot + 2]);
                const Eigen::Matrix<T, 3, 1> moved = R[slot] * (v - g).cast<T>();
                for (int a = 0; a < 3; ++a)
                    p[a] += b * w * (moved[a] + T(g[a]) + variables[6 * slot + 3 + a]);
            }
        }
        const double* c = constants + 3 * Slots + 3 * CornerConstants;
        for (int a = 0; a < 3; ++a)
            residuals[a] = (p[a] - T(c[a])) * T(c[3]);
    }
};

} // namespace Welking
