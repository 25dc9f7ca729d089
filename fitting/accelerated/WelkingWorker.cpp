#include "WelkingWorker.h"

#include "Deformer.h"
#include "IterativeSolverProblem.h"

#include <QDebug>
#include <QElapsedTimer>

#include <tbb/parallel_for.h>

#include <limits>

namespace WelkingAcceleratedVersion {

namespace {

using Vec3 = EmbeddedGraphDeformer::Vec3;

Vec3 toVec(const QVector3D& v)
{
    return Vec3(v.x(), v.y(), v.z());
}

QVector<QVector3D> toQt(const std::vector<Vec3>& points, const QMatrix4x4* transform = nullptr)
{
    QVector<QVector3D> result(int(points.size()));
    for (size_t i = 0; i < points.size(); ++i) {
        const QVector3D p(points[i].x(), points[i].y(), points[i].z());
        result[int(i)] = transform ? transform->map(p) : p;
    }
    return result;
}

/// Unit normals per vertex, one unit vector per triangle corner, edges
/// scaled by 1000 so that small triangles keep a direction in float.
std::vector<Vec3> vertexNormals(const std::vector<Vec3>& vertices, const std::vector<long long>& triangles)
{
    std::vector<Vec3> normals(vertices.size(), Vec3::Zero());
    for (size_t t = 0; t + 2 < triangles.size(); t += 3)
        for (int c = 0; c < 3; ++c) {
            const long long v = triangles[t + size_t(c)];
            const Vec3 a = (vertices[size_t(triangles[t + size_t((c + 1) % 3)])] - vertices[size_t(v)]) * 1000.0f;
            const Vec3 b = (vertices[size_t(triangles[t + size_t((c + 2) % 3)])] - vertices[size_t(v)]) * 1000.0f;
            const Vec3 n = a.cross(b);
            const float length = n.norm();
            if (length > 0)
                normals[size_t(v)] += n / length;
        }
    for (Vec3& n : normals) {
        const float length = n.norm();
        if (length > 0)
            n /= length;
    }
    return normals;
}

} // namespace

WelkingWorker::WelkingWorker(const QVector<QVector3D>& sourceVertices, const QVector<int>& sourceTriangles,
                             const QMatrix4x4& sourceTransform, const QVector<QVector3D>& targetVertices,
                             const QVector<QVector3D>& targetNormals, const QMatrix4x4& targetTransform,
                             const QVector<int>& targetTriangles, const QVector<Welk::WPointOnTriangle>& sourcePoints,
                             const QVector<Welk::WPointOnTriangle>& targetPoints, const QVector<quint8>& excluded,
                             std::vector<EmbeddedGraphLevel> levels, const AcceleratedParameters& parameters,
                             float normalisedSize, Welk::ProgressInterface* progress, QObject* parent)
    : QObject(parent), m_levels(std::move(levels)), m_parameters(parameters), m_callback(progress)
{
    m_sourceTriangles.assign(sourceTriangles.begin(), sourceTriangles.end());

    // One scale for both models: the basemesh's largest extent becomes
    // `normalisedSize`, so every distance setting is unit-free.
    QVector3D lo(std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
                 std::numeric_limits<float>::max());
    QVector3D hi = -lo;
    for (const QVector3D& v : sourceVertices) {
        const QVector3D p = sourceTransform.map(v);
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], p[a]);
            hi[a] = std::max(hi[a], p[a]);
        }
    }
    const float extent = std::max({hi.x() - lo.x(), hi.y() - lo.y(), hi.z() - lo.z(), 1e-12f});
    QMatrix4x4 scale;
    scale.scale(normalisedSize / extent);
    m_normalisation = scale * sourceTransform;
    m_normalisationInverse = m_normalisation.inverted();
    m_targetNormalisation = scale * targetTransform;

    for (const QVector3D& v : sourceVertices)
        m_source.push_back(toVec(m_normalisation.map(v)));
    for (const QVector3D& v : targetVertices)
        m_target.push_back(toVec(m_targetNormalisation.map(v)));
    const QMatrix3x3 normalMatrix = m_targetNormalisation.normalMatrix();
    for (const QVector3D& n : targetNormals) {
        const Vec3 m(normalMatrix(0, 0) * n.x() + normalMatrix(0, 1) * n.y() + normalMatrix(0, 2) * n.z(),
                     normalMatrix(1, 0) * n.x() + normalMatrix(1, 1) * n.y() + normalMatrix(1, 2) * n.z(),
                     normalMatrix(2, 0) * n.x() + normalMatrix(2, 1) * n.y() + normalMatrix(2, 2) * n.z());
        m_targetNormals.push_back(m.norm() > 0 ? Vec3(m.normalized()) : m);
    }

    for (const EmbeddedGraphLevel& level : m_levels) {
        std::vector<Vec3> nodes;
        for (long long n : level.nodes)
            nodes.push_back(m_source[size_t(n)]);
        m_levelNodes.push_back(std::move(nodes));
    }

    m_tree.reset(KDTreeAcceleratedVersion::build<float, long long>(m_target, 128));

    const int controlCount = std::min(sourcePoints.size(), targetPoints.size());
    for (int i = 0; i < controlCount; ++i) {
        const Welk::WPointOnTriangle& s = sourcePoints[i];
        const Welk::WPointOnTriangle& t = targetPoints[i];
        if (!s.isValid() || !t.isValid() || 3 * s.triangle + 2 >= sourceTriangles.size() ||
            3 * t.triangle + 2 >= targetTriangles.size())
            continue;
        EmbeddedGraphDeformer::ControlPoint control;
        const float weights[3] = {s.u, s.v, 1.0f - s.u - s.v};
        for (int c = 0; c < 3; ++c) {
            control.corners[c] = sourceTriangles[3 * s.triangle + c];
            control.weights[c] = weights[c];
        }
        control.target = toVec(m_targetNormalisation.map(t.position(targetVertices, targetTriangles)));
        m_controls.push_back(control);
    }

    m_excluded.assign(m_source.size(), 0);
    for (int i = 0; i < excluded.size() && size_t(i) < m_excluded.size(); ++i)
        m_excluded[size_t(i)] = excluded[i] != 0;
    m_current = m_source;
    connect(&m_callback, &WelkingCallback::updated, this, &WelkingWorker::onUpdate, Qt::DirectConnection);
}

WelkingWorker::~WelkingWorker() = default;

void WelkingWorker::terminate()
{
    m_callback.interrupt();
    Q_EMIT interruptionRequested();
}

void WelkingWorker::onUpdate(QVector<QVector3D> vertices, QVector<QVector3D> nodes)
{
    for (QVector3D& v : vertices)
        v = m_normalisationInverse.map(v);
    for (QVector3D& n : nodes)
        n = m_normalisationInverse.map(n);
    Q_EMIT updated(vertices, nodes);
}

void WelkingWorker::findPairs(std::vector<long long>& sources, std::vector<Vec3>& targets,
                              std::vector<Vec3>& normals) const
{
    std::vector<long long> match(m_current.size(), -1);
    const std::vector<Vec3> currentNormals = vertexNormals(m_current, m_sourceTriangles);
    tbb::parallel_for(tbb::blocked_range<size_t>(0, m_current.size(), 512), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t v = r.begin(); v < r.end(); ++v) {
            if (m_excluded[v])
                continue;
            const long long nearest = m_tree->findNearestPointInd(m_current[v], m_target);
            // Back-facing and sideways matches are dropped; distance alone never is.
            if (nearest >= 0 && currentNormals[v].dot(m_targetNormals[size_t(nearest)]) >= m_parameters.normalsThreshold)
                match[v] = nearest;
        }
    });
    sources.clear();
    targets.clear();
    normals.clear();
    for (size_t v = 0; v < match.size(); ++v)
        if (match[v] >= 0) {
            sources.push_back((long long)v);
            targets.push_back(m_target[size_t(match[v])]);
            normals.push_back(m_targetNormals[size_t(match[v])]);
        }
}

void WelkingWorker::run(EmbeddedGraphDeformer::Abstract::Deformer* deformer)
{
    runLevels([deformer](int, const std::vector<EmbeddedGraphDeformer::ControlPoint>&,
                         const EmbeddedGraphDeformer::EnergyWeights&) -> EmbeddedGraphDeformer::Abstract::Deformer& {
        return *deformer;
    });
}

void WelkingWorker::runLevels(const DeformerForLevel& deformerFor)
{
    QElapsedTimer timer;
    timer.start();
    const int subdivisions = std::min<int>(m_parameters.subdivisions, int(m_levels.size()));
    m_callback.start();
    m_callback.setLevels(subdivisions);
    m_callback.setIterations(m_parameters.icpIterations);

    std::vector<long long> sources;
    std::vector<Vec3> targets, normals, nodes;
    QElapsedTimer stage;
    for (int i = 1; i <= subdivisions; ++i) {
        double pairSeconds = 0, solveSeconds = 0;
        m_callback.setLevel(i - 1);
        if (m_callback.isInterrupted())
            break;
        const EmbeddedGraphLevel& level = m_levels[size_t(i - 1)];
        const float t = float(subdivisions - i) / float(subdivisions);

        std::vector<std::vector<std::pair<long long, float>>> nodeVertices(level.nodes.size());
        for (size_t v = 0; v + 1 < level.influenceOffsets.size(); ++v)
            for (long long k = level.influenceOffsets[v]; k < level.influenceOffsets[v + 1]; ++k)
                nodeVertices[size_t(level.influences[size_t(k)])].emplace_back((long long)v, level.weights[size_t(k)]);

        EmbeddedGraphDeformer::EnergyWeights weights;
        weights.smoothness = (m_parameters.smoothnessInitial - m_parameters.smoothnessFinal) * t + m_parameters.smoothnessFinal;
        weights.controlPoints = (m_parameters.controlPointsWeightInitial - m_parameters.controlPointsWeightFinal) * t +
                                m_parameters.controlPointsWeightFinal;
        weights.pointToPoint = m_parameters.pointToPointWeight;
        weights.pointToPlane = m_parameters.pointToPlaneWeight;
        EmbeddedGraphDeformer::Abstract::Deformer* deformer = &deformerFor(i - 1, m_controls, weights);
        Eigen::VectorXf state;
        deformer->initializeVariables(m_source, m_current, nodeVertices, m_levelNodes[size_t(i - 1)], state);
        deformer->setProblem(level, m_source, m_levelNodes[size_t(i - 1)], m_controls, weights, true);

        for (int j = 0; j < m_parameters.icpIterations; ++j) {
            m_callback.setIteration(j);
            if (m_callback.isInterrupted())
                break;
            const float u = m_parameters.icpIterations == 1 ? 1.0f : 1.0f - float(j) / float(m_parameters.icpIterations - 1);
            stage.start();
            findPairs(sources, targets, normals);
            pairSeconds += double(stage.nsecsElapsed()) / 1e9;
            // Setting up a solve over a large mesh takes a while; a stop
            // request that came meanwhile is not held up by it.
            if (m_callback.isInterrupted())
                break;
            stage.start();
            EmbeddedGraphDeformer::SolveBudget budget;
            budget.iterations = j + 1 == m_parameters.icpIterations ? m_parameters.maxOptimizationIterations
                                                                    : m_parameters.optimizationIterations;
            budget.stepTolerance = double((m_parameters.dpInitial - m_parameters.dpFinal) * u + m_parameters.dpFinal);
            budget.conjugateGradientIterations = m_parameters.conjugateGradientIterations;
            budget.interrupted = &m_callback.interruptedFlag();
            deformer->solve(sources, targets, normals, m_current, nodes, state, budget);
            solveSeconds += double(stage.nsecsElapsed()) / 1e9;
            m_callback.update(toQt(m_current), toQt(nodes));
        }
        QString work;
        if (auto* fast = dynamic_cast<EmbeddedGraphDeformer::IterativeSolverDeformer::Deformer*>(deformer)) {
            const auto& c = fast->problem()->counters();
            work = QStringLiteral(", %1 values, %2 Jacobians, %3 products").arg(c.values).arg(c.jacobians).arg(c.products);
        }
        qDebug().noquote() << QStringLiteral("Level %1: %2 nodes, pairs %3 s, solves %4 s%5")
                                  .arg(i)
                                  .arg(level.nodes.size())
                                  .arg(pairSeconds)
                                  .arg(solveSeconds)
                                  .arg(work);
    }
    m_callback.end();
    qDebug() << "Welking time:" << double(timer.elapsed()) / 1000.0;
    Q_EMIT finished(toQt(m_current, &m_normalisationInverse));
}

void FastWelkingWorker::start()
{
    EmbeddedGraphDeformer::IterativeSolverDeformer::Deformer deformer;
    run(&deformer);
}

} // namespace WelkingAcceleratedVersion
