#pragma once

#include <Eigen/Core>

namespace EmbeddedDeformation {

/// The rotation of modified Rodrigues parameters s = (a, b, c):
/// R(s) = I + (8 S^2 + 4 (1 - |s|^2) S) / (1 + |s|^2)^2, with S the cross
/// product matrix of s. Every s gives a proper rotation, and s = 0 the
/// identity. Written for any scalar type (doubles or dual numbers).
template <typename T> Eigen::Matrix<T, 3, 3> rotationFromParameters(const T& a, const T& b, const T& c)
{
    const T q = a * a + b * b + c * c;
    const T d = T(1.0) + q;
    const T k = T(8.0) / (d * d);
    const T h = T(4.0) / d;
    Eigen::Matrix<T, 3, 3> R;
    R(0, 0) = T(1.0) - (b * b + c * c) * k;
    R(0, 1) = (a * b - c) * k + c * h;
    R(0, 2) = (a * c + b) * k - b * h;
    R(1, 0) = (a * b + c) * k - c * h;
    R(1, 1) = T(1.0) - (a * a + c * c) * k;
    R(1, 2) = (b * c - a) * k + a * h;
    R(2, 0) = (a * c - b) * k + b * h;
    R(2, 1) = (b * c + a) * k - a * h;
    R(2, 2) = T(1.0) - (a * a + b * b) * k;
    return R;
}

/// The three derivatives dR/da, dR/db, dR/dc of the rotation above.
void rotationDerivatives(const Eigen::Vector3d& s, Eigen::Matrix3d derivatives[3]);

/// Parameters of a unit quaternion (w, v): s = sign(w) v / (1 + |w|), with
/// sign(0) taken as +1, so that q and -q give the same s.
Eigen::Vector3d parametersFromQuaternion(double w, const Eigen::Vector3d& v);

} // namespace EmbeddedDeformation
