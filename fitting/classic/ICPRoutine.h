#pragma once

#include <QQuaternion>
#include <QVector3D>
#include <QVector>

namespace KDTree {
class NodeBase;
}
namespace Welk {
class ProgressInterface;
}

/// Rigid alignment tools. A transform is a rotation `q` and a translation
/// `t`; a point maps to q.rotatedVector(p) + t.
namespace ICPRoutine {

/// The rotation and translation that carry `source` best onto `target`
/// (equal lengths, pairs by index), by Horn's closed-form quaternion method.
/// `valid`, when given, is false for degenerate input: no spread at all
/// (identity returned) or a rotation that is not unique, as for collinear
/// points (a rotation is still returned). Empty input is not allowed.
void rigidTransform(const QVector<QVector3D>& source, const QVector<QVector3D>& target, QQuaternion& rotation,
                    QVector3D& translation, bool* valid = nullptr);

/// The same with a weight per pair.
void rigidTransformWeighted(const QVector<QVector3D>& source, const QVector<QVector3D>& target,
                            const QVector<float>& weights, QQuaternion& rotation, QVector3D& translation,
                            bool* valid = nullptr);

/// Rotation, translation and one uniform scale s carrying `source` onto
/// `target`: p maps to s * q.rotatedVector(p) + t. The rotation is Horn's;
/// the scale is the least-squares one for that rotation.
void similarityTransform(const QVector<QVector3D>& source, const QVector<QVector3D>& target, QQuaternion& rotation,
                         QVector3D& translation, float& scale, bool* valid = nullptr);

/// Iterative closest points: moves `source` onto the points of `target`
/// (indexed by `tree`) from the start transform in `rotation` and
/// `translation`, which receive the result. Each iteration pairs every moved
/// source point with its nearest target point and applies the rigid fit of
/// the pairs; it stops when the summed squared move of the points falls
/// below `errorThreshold`, or after `maxIterations`. The histories, when
/// given, receive the start and every iteration's composed transform.
void icpAlignment(const QVector<QVector3D>& source, const QVector<QVector3D>& target, const KDTree::NodeBase& tree,
                  QQuaternion& rotation, QVector3D& translation, int maxIterations, float errorThreshold,
                  float* finalError = nullptr, int* iterationCount = nullptr,
                  Welk::ProgressInterface* progress = nullptr, QVector<QQuaternion>* rotationHistory = nullptr,
                  QVector<QVector3D>* translationHistory = nullptr);

} // namespace ICPRoutine
