#include "ICPRoutine.h"

#include "geometry/ProgressInterface.h"
#include "search/KDTree.h"

#include <lapacke.h>

#include <cmath>

namespace ICPRoutine {

namespace {

constexpr double Degenerate = 1e-7;

struct Centroids
{
    QVector3D source;
    QVector3D target;
};

template <typename Weight>
Centroids centroids(const QVector<QVector3D>& source, const QVector<QVector3D>& target, Weight weight)
{
    QVector3D s(0, 0, 0), t(0, 0, 0);
    float total = 0;
    for (int i = 0; i < source.size(); ++i) {
        const float w = weight(i);
        s += w * source[i];
        t += w * target[i];
        total += w;
    }
    return {s / total, t / total};
}

/// Horn's method on the weighted cross-covariance of the deviations.
template <typename Weight>
void absoluteOrientation(const QVector<QVector3D>& source, const QVector<QVector3D>& target, Weight weight,
                         QQuaternion& rotation, QVector3D& translation, bool* valid)
{
    const Centroids c = centroids(source, target, weight);
    float M[3][3] = {};
    for (int i = 0; i < source.size(); ++i) {
        const QVector3D s = source[i] - c.source, t = target[i] - c.target;
        const float w = weight(i);
        for (int a = 0; a < 3; ++a)
            for (int b = 0; b < 3; ++b)
                M[a][b] += w * s[a] * t[b];
    }
    const float Sxx = M[0][0], Sxy = M[0][1], Sxz = M[0][2];
    const float Syx = M[1][0], Syy = M[1][1], Syz = M[1][2];
    const float Szx = M[2][0], Szy = M[2][1], Szz = M[2][2];
    const float N[4][4] = {{Sxx + Syy + Szz, Syz - Szy, Szx - Sxz, Sxy - Syx},
                           {Syz - Szy, Sxx - Syy - Szz, Sxy + Syx, Szx + Sxz},
                           {Szx - Sxz, Sxy + Syx, -Sxx + Syy - Szz, Syz + Szy},
                           {Sxy - Syx, Szx + Sxz, Syz + Szy, -Sxx - Syy + Szz}};
    double a[16];
    for (int r = 0; r < 4; ++r)
        for (int k = 0; k < 4; ++k)
            a[r * 4 + k] = double(N[r][k]);
    double eigenvalues[4];
    const lapack_int info = LAPACKE_dsyev(LAPACK_ROW_MAJOR, 'V', 'U', 4, a, 4, eigenvalues);
    double spread = 0;
    for (double e : eigenvalues)
        spread += std::fabs(e);
    if (info != 0 || spread < Degenerate) {
        rotation = QQuaternion();
        if (valid)
            *valid = false;
    } else {
        // Ascending order: the last column belongs to the largest eigenvalue.
        rotation = QQuaternion(float(a[3]), float(a[7]), float(a[11]), float(a[15])).normalized();
        if (valid)
            *valid = eigenvalues[3] - eigenvalues[2] > Degenerate;
    }
    translation = c.target - rotation.rotatedVector(c.source);
}

} // namespace

void rigidTransform(const QVector<QVector3D>& source, const QVector<QVector3D>& target, QQuaternion& rotation,
                    QVector3D& translation, bool* valid)
{
    absoluteOrientation(source, target, [](int) { return 1.0f; }, rotation, translation, valid);
}

void rigidTransformWeighted(const QVector<QVector3D>& source, const QVector<QVector3D>& target,
                            const QVector<float>& weights, QQuaternion& rotation, QVector3D& translation, bool* valid)
{
    absoluteOrientation(source, target, [&](int i) { return weights[i]; }, rotation, translation, valid);
}

void similarityTransform(const QVector<QVector3D>& source, const QVector<QVector3D>& target, QQuaternion& rotation,
                         QVector3D& translation, float& scale, bool* valid)
{
    rigidTransform(source, target, rotation, translation, valid);
    const Centroids c = centroids(source, target, [](int) { return 1.0f; });
    double along = 0, spread = 0;
    for (int i = 0; i < source.size(); ++i) {
        const QVector3D s = rotation.rotatedVector(source[i] - c.source);
        along += double(QVector3D::dotProduct(target[i] - c.target, s));
        spread += double(s.lengthSquared());
    }
    scale = spread > 0 ? float(along / spread) : 1.0f;
    if (!(scale > 0)) {
        // A reflection or no spread: keep the size.
        scale = 1.0f;
        if (valid)
            *valid = false;
    }
    translation = c.target - scale * rotation.rotatedVector(c.source);
}

void icpAlignment(const QVector<QVector3D>& source, const QVector<QVector3D>& target, const KDTree::NodeBase& tree,
                  QQuaternion& rotation, QVector3D& translation, int maxIterations, float errorThreshold,
                  float* finalError, int* iterationCount, Welk::ProgressInterface* progress,
                  QVector<QQuaternion>* rotationHistory, QVector<QVector3D>* translationHistory)
{
    const QString label = QStringLiteral("ICP Aligment...");
    QVector<QVector3D> moving(source.size());
    for (int i = 0; i < source.size(); ++i)
        moving[i] = rotation.rotatedVector(source[i]) + translation;
    if (progress)
        progress->start(label, 100);
    if (rotationHistory)
        rotationHistory->append(rotation);
    if (translationHistory)
        translationHistory->append(translation);

    float error = 10000000000.0f;
    int iteration = 0;
    QVector<QVector3D> matched(source.size());
    while (iteration < maxIterations) {
        for (int i = 0; i < moving.size(); ++i) {
            const int nearest = tree.findNearestPointInd(moving[i], target);
            matched[i] = nearest >= 0 ? target[nearest] : moving[i];
        }
        QQuaternion stepRotation;
        QVector3D stepTranslation;
        rigidTransform(moving, matched, stepRotation, stepTranslation);
        error = 0.0f;
        for (QVector3D& p : moving) {
            const QVector3D moved = stepRotation.rotatedVector(p) + stepTranslation;
            error += (moved - p).lengthSquared();
            p = moved;
        }
        rotation = (stepRotation * rotation).normalized();
        translation = stepRotation.rotatedVector(translation) + stepTranslation;
        ++iteration;
        if (rotationHistory)
            rotationHistory->append(rotation);
        if (translationHistory)
            translationHistory->append(translation);
        if (progress)
            progress->setValue(iteration * 100 / std::max(1, maxIterations), label);
        if (error < errorThreshold)
            break;
    }
    if (finalError)
        *finalError = error;
    if (iterationCount)
        *iterationCount = iteration;
    if (progress)
        progress->end();
}

} // namespace ICPRoutine
