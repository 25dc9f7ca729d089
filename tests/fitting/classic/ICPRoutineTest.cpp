#include "fitting/classic/ICPRoutine.h"

#include "geometry/ProgressInterface.h"
#include "search/KDTree.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

namespace {

QVector<QVector3D> cloud(int n, unsigned seed, float flatten = 1.0f)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    QVector<QVector3D> points;
    for (int i = 0; i < n; ++i)
        points.append(QVector3D(u(random), u(random) * 0.7f, u(random) * flatten));
    return points;
}

QVector<QVector3D> moved(const QVector<QVector3D>& points, const QQuaternion& q, const QVector3D& t, float s = 1.0f)
{
    QVector<QVector3D> result;
    for (const QVector3D& p : points)
        result.append(s * q.rotatedVector(p) + t);
    return result;
}

float largestGap(const QVector<QVector3D>& a, const QVector<QVector3D>& b)
{
    float gap = 0;
    for (int i = 0; i < a.size(); ++i)
        gap = std::max(gap, (a[i] - b[i]).length());
    return gap;
}

const QQuaternion Turn = QQuaternion::fromAxisAndAngle(QVector3D(1, 2, -0.5f).normalized(), 73.0f);
const QVector3D Shift(0.3f, -2.0f, 5.0f);

} // namespace

TEST(AbsoluteOrientation, RecoversAKnownRotationAndTranslation)
{
    const QVector<QVector3D> source = cloud(200, 1);
    const QVector<QVector3D> target = moved(source, Turn, Shift);
    QQuaternion q;
    QVector3D t;
    bool valid = false;
    ICPRoutine::rigidTransform(source, target, q, t, &valid);
    EXPECT_TRUE(valid);
    EXPECT_LT(largestGap(moved(source, q, t), target), 1e-4f);
    EXPECT_NEAR(std::fabs(QQuaternion::dotProduct(q, Turn)), 1.0f, 1e-5f);
}

TEST(AbsoluteOrientation, WeightsSilenceOutliers)
{
    QVector<QVector3D> source = cloud(100, 2);
    QVector<QVector3D> target = moved(source, Turn, Shift);
    QVector<float> weights(100, 1.0f);
    for (int i = 0; i < 10; ++i) {
        target[i] += QVector3D(5, -5, 3);
        weights[i] = 0.0f;
    }
    QQuaternion q;
    QVector3D t;
    ICPRoutine::rigidTransformWeighted(source, target, weights, q, t);
    EXPECT_LT(largestGap(moved(source.mid(10), q, t), target.mid(10)), 1e-4f);
}

TEST(AbsoluteOrientation, SimilarityRecoversScale)
{
    const QVector<QVector3D> source = cloud(150, 3);
    const QVector<QVector3D> target = moved(source, Turn, Shift, 2.5f);
    QQuaternion q;
    QVector3D t;
    float scale = 0;
    bool valid = false;
    ICPRoutine::similarityTransform(source, target, q, t, scale, &valid);
    EXPECT_TRUE(valid);
    EXPECT_NEAR(scale, 2.5f, 1e-4f);
    EXPECT_LT(largestGap(moved(source, q, t, scale), target), 1e-3f);
}

TEST(AbsoluteOrientation, DegenerateAndSpecialSets)
{
    QQuaternion q;
    QVector3D t;
    bool valid = true;
    // No spread at all: identity, invalid, translation between the points.
    ICPRoutine::rigidTransform(QVector<QVector3D>(5, QVector3D(1, 1, 1)), QVector<QVector3D>(5, QVector3D(2, 1, 1)), q,
                               t, &valid);
    EXPECT_FALSE(valid);
    EXPECT_EQ(q, QQuaternion());
    EXPECT_EQ(t, QVector3D(1, 0, 0));

    // Collinear: the rotation about the line is free, so not unique.
    QVector<QVector3D> line;
    for (int i = 0; i < 10; ++i)
        line.append(QVector3D(float(i), 0, 0));
    const QVector<QVector3D> turnedLine = moved(line, Turn, Shift);
    ICPRoutine::rigidTransform(line, turnedLine, q, t, &valid);
    EXPECT_FALSE(valid);
    EXPECT_LT(largestGap(moved(line, q, t), turnedLine), 1e-3f);

    // Coplanar sets still have a unique answer.
    const QVector<QVector3D> plane = cloud(50, 4, 0.0f);
    ICPRoutine::rigidTransform(plane, moved(plane, Turn, Shift), q, t, &valid);
    EXPECT_TRUE(valid);
    EXPECT_LT(largestGap(moved(plane, q, t), moved(plane, Turn, Shift)), 1e-4f);

    // Identical sets: identity and no translation.
    const QVector<QVector3D> same = cloud(30, 5);
    ICPRoutine::rigidTransform(same, same, q, t, &valid);
    EXPECT_TRUE(valid);
    EXPECT_NEAR(std::fabs(q.scalar()), 1.0f, 1e-6f);
    EXPECT_LT(t.length(), 1e-5f);
}

TEST(IcpAlignment, ConvergesOntoTheTargetAndKeepsHistories)
{
    const QVector<QVector3D> target = cloud(3000, 6);
    std::unique_ptr<KDTree::NodeBase> tree(KDTree::build(target, 16));
    const QQuaternion smallTurn = QQuaternion::fromAxisAndAngle(QVector3D(0, 1, 0), 8.0f);
    const QVector<QVector3D> source = moved(target.mid(0, 800), smallTurn, QVector3D(0.05f, -0.03f, 0.02f));

    struct Progress : Welk::ProgressInterface
    {
        QString label;
        long long last = 0;
        void start(const QString& l, long long) override { label = l; }
        void setValue(long long v, const QString&) override { last = v; }
        void end() override {}
    } progress;
    QQuaternion q;
    QVector3D t;
    QVector<QQuaternion> rotations;
    QVector<QVector3D> translations;
    float error = -1;
    int iterations = 0;
    ICPRoutine::icpAlignment(source, target, *tree, q, t, 100, 1e-10f, &error, &iterations, &progress, &rotations,
                             &translations);
    EXPECT_EQ(progress.label, QStringLiteral("ICP Aligment..."));
    EXPECT_EQ(rotations.size(), iterations + 1);
    EXPECT_EQ(translations.size(), iterations + 1);
    EXPECT_LT(error, 1e-10f);
    EXPECT_LT(largestGap(moved(source, q, t), target.mid(0, 800)), 1e-3f);

    // Already aligned: one iteration that moves nothing.
    QQuaternion q0;
    QVector3D t0;
    ICPRoutine::icpAlignment(target, target, *tree, q0, t0, 50, 1e-8f, &error, &iterations);
    EXPECT_EQ(iterations, 1);
    EXPECT_LT(error, 1e-8f);
}
