#include "ModifiedRodrigues.h"

#include <cmath>

namespace EmbeddedDeformation {

namespace {

Eigen::Matrix3d crossMatrix(const Eigen::Vector3d& s)
{
    Eigen::Matrix3d S;
    S << 0, -s.z(), s.y(), s.z(), 0, -s.x(), -s.y(), s.x(), 0;
    return S;
}

} // namespace

void rotationDerivatives(const Eigen::Vector3d& s, Eigen::Matrix3d derivatives[3])
{
    // R = I + M / d^2 with M = 8 S^2 + 4 (1 - q) S, q = |s|^2, d = 1 + q.
    const Eigen::Matrix3d S = crossMatrix(s);
    const double q = s.squaredNorm();
    const double d = 1.0 + q;
    const Eigen::Matrix3d M = 8.0 * S * S + 4.0 * (1.0 - q) * S;
    for (int i = 0; i < 3; ++i) {
        const Eigen::Matrix3d E = crossMatrix(Eigen::Vector3d::Unit(i));
        const Eigen::Matrix3d dM = 8.0 * (E * S + S * E) + 4.0 * (1.0 - q) * E - 8.0 * s[i] * S;
        derivatives[i] = dM / (d * d) - (4.0 * s[i] / (d * d * d)) * M;
    }
}

Eigen::Vector3d parametersFromQuaternion(double w, const Eigen::Vector3d& v)
{
    const double sign = w < 0.0 ? -1.0 : 1.0;
    return sign * v / (1.0 + std::abs(w));
}

} // namespace EmbeddedDeformation
