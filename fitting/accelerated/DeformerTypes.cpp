#include "DeformerTypes.h"

#include <Eigen/Geometry>

namespace EmbeddedGraphDeformer {

Eigen::Matrix3f crossMatrix(const Vec3& v)
{
    Eigen::Matrix3f m;
    m << 0, -v.z(), v.y(), v.z(), 0, -v.x(), -v.y(), v.x(), 0;
    return m;
}

Eigen::Matrix3f rotationFromMRP(const Vec3& s)
{
    const float q = s.squaredNorm();
    const float d = 1.0f + q;
    const Eigen::Matrix3f S = crossMatrix(s);
    return Eigen::Matrix3f::Identity() + (8.0f / (d * d)) * S * S + (4.0f * (1.0f - q) / (d * d)) * S;
}

Vec3 rotateMRP(const Vec3& s, const Vec3& a, Eigen::Matrix3f* derivative)
{
    const float q = s.squaredNorm();
    const float d = 1.0f + q;
    const float c1 = 8.0f / (d * d);
    const float c2 = 4.0f * (1.0f - q) / (d * d);
    const Vec3 A = s.cross(a);
    const Vec3 B = s.cross(A);
    if (derivative) {
        // d(s x a)/ds = -[a]x; d(s x (s x a))/ds = (s.a) I + s a^T - 2 a s^T.
        const Eigen::Matrix3f dA = -crossMatrix(a);
        const Eigen::Matrix3f dB = s.dot(a) * Eigen::Matrix3f::Identity() + s * a.transpose() - 2.0f * a * s.transpose();
        const Eigen::RowVector3f dc1 = (-32.0f / (d * d * d)) * s.transpose();
        const Eigen::RowVector3f dc2 = (-8.0f / (d * d) - 16.0f * (1.0f - q) / (d * d * d)) * s.transpose();
        *derivative = B * dc1 + c1 * dB + A * dc2 + c2 * dA;
    }
    return a + c1 * B + c2 * A;
}

Eigen::Matrix3f ratesOfMRP(const Vec3& s)
{
    const float q = s.squaredNorm();
    const float d = 1.0f + q;
    const float c = 4.0f / (d * d);
    Eigen::Matrix3f W = (2.0f * c) * (crossMatrix(s) + s * s.transpose());
    W.diagonal().array() += c * (1.0f - q);
    return W;
}

} // namespace EmbeddedGraphDeformer
