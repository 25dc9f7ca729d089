#include "WelkingWorker.h"

#include "DeformationGraphRoutine.h"
#include "EmbeddedGraphSparseProblem.h"
#include "FindClosestPointsFunctorWithFilteringHeuristics.h"
#include "ICPRoutine.h"
#include "ModifiedRodrigues.h"

#include "geometry/ProgressInterface.h"
#include "search/KDTree.h"

#include <QDebug>
#include <QElapsedTimer>

#include <cmath>
#include <limits>
#include <memory>

namespace Welk {

namespace {

Eigen::Vector3d toEigen(const QVector3D& v) { return Eigen::Vector3d(v.x(), v.y(), v.z()); }
QVector3D toQt(const Eigen::Vector3d& v) { return QVector3D(float(v.x()), float(v.y()), float(v.z())); }

bool allFinite(const QVector<QVector3D>& points)
{
    for (const QVector3D& p : points)
        if (!std::isfinite(p.x()) || !std::isfinite(p.y()) || !std::isfinite(p.z()))
            return false;
    return true;
}

QVector<QVector3D> mapped(const QMatrix4x4& m, QVector<QVector3D> points)
{
    for (QVector3D& p : points)
        p = m.map(p);
    return points;
}

} // namespace

WelkingWorker::WelkingWorker(const QVector<QVector3D>& vertices, const QVector<int>& triangles,
                             const QMatrix4x4& transform, const QVector<QVector3D>& targetVertices,
                             const QVector<QVector3D>& targetNormals, const QVector<int>& targetTriangles,
                             const QMatrix4x4& targetTransform, const QVector<WPointOnTriangle>& basePoints,
                             const QVector<WPointOnTriangle>& targetPoints, const QVector<bool>& mask,
                             const WelkingParameters& parameters, float size, ProgressInterface* progress,
                             bool dijkstraSampler, QObject* parent)
    : QObject(parent), m_triangles(triangles), m_targetTriangles(targetTriangles), m_basePoints(basePoints),
      m_targetPoints(targetPoints), m_mask(mask), m_parameters(parameters), m_progress(progress),
      m_dijkstraSampler(dijkstraSampler), m_graphCallback(new Welking::WelkingCallbackGraphCreation(progress)),
      m_callback(new Welking::WelkingCallback(progress))
{
    // One uniform scale for both models, from the basemesh's box: every
    // distance setting of the fit is then free of the model's units.
    QVector3D lo(std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
                 std::numeric_limits<float>::max());
    QVector3D hi = -lo;
    for (const QVector3D& v : vertices) {
        const QVector3D p = transform.map(v);
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], p[a]);
            hi[a] = std::max(hi[a], p[a]);
        }
    }
    const float longest = vertices.isEmpty() ? 1.0f : std::max({hi.x() - lo.x(), hi.y() - lo.y(), hi.z() - lo.z()});
    QMatrix4x4 scale;
    scale.scale(longest > 0.0f ? size / longest : 1.0f);
    m_normalisation = scale * transform;
    m_normalisationInverse = m_normalisation.inverted();
    m_targetNormalisation = scale * targetTransform;
    m_vertices = mapped(m_normalisation, vertices);
    m_targetVertices = mapped(m_targetNormalisation, targetVertices);
    if (targetNormals.size() == targetVertices.size()) {
        const QMatrix3x3 normalMatrix = m_targetNormalisation.normalMatrix();
        m_targetNormals.reserve(targetNormals.size());
        for (const QVector3D& n : targetNormals) {
            QVector3D m;
            for (int r = 0; r < 3; ++r)
                m[r] = normalMatrix(r, 0) * n.x() + normalMatrix(r, 1) * n.y() + normalMatrix(r, 2) * n.z();
            m_targetNormals.append(m.normalized());
        }
    } else {
        m_targetNormals = Welking::FindClosestPointsFunctorWithFilteringHeuristics::vertexNormals(m_targetVertices,
                                                                                                  targetTriangles);
    }

    connect(m_callback, &Welking::WelkingCallback::updated, this, &WelkingWorker::onUpdate, Qt::DirectConnection);
    connect(this, &WelkingWorker::interruptionRequested, m_callback, &Welking::WelkingCallback::interrupt);
    connect(this, &WelkingWorker::interruptionRequested, m_graphCallback,
            &Welking::WelkingCallbackGraphCreation::interrupt);
}

WelkingWorker::~WelkingWorker()
{
    delete m_callback;
    delete m_graphCallback;
}

void WelkingWorker::terminate()
{
    if (m_progress)
        m_progress->setValue(0, QStringLiteral("Terminating"));
    // Raise the flags here as well: the signal may be queued to a thread
    // that is busy with the fit.
    m_callback->interrupt();
    m_graphCallback->interrupt();
    Q_EMIT interruptionRequested();
}

void WelkingWorker::onUpdate(QVector<QVector3D> vertices, QVector<QVector3D> nodes)
{
    Q_EMIT updated(mapped(m_normalisationInverse, std::move(vertices)), mapped(m_normalisationInverse, std::move(nodes)));
}

void WelkingWorker::start()
{
    m_error = m_parameters.validate();
    QVector<QVector3D> result = m_vertices;
    if (m_error.isEmpty() && (m_triangles.size() < 3 || m_targetVertices.isEmpty()))
        m_error = QStringLiteral("The classic fit needs triangles on the basemesh and vertices on the target");
    if (m_error.isEmpty())
        result = fit();
    m_interrupted = m_callback->isInterrupted() || m_graphCallback->isInterrupted();
    m_verticesWelked = mapped(m_normalisationInverse, result);
    Q_EMIT finished(m_verticesWelked);
}

QVector<QVector3D> WelkingWorker::fit()
{
    const std::unique_ptr<KDTree::NodeBase> tree(KDTree::build(m_targetVertices, 128));

    double edgeSum = 0.0;
    long long edgeCount = 0;
    for (int t = 0; t + 2 < m_triangles.size(); t += 3)
        for (int c = 0; c < 3; ++c) {
            edgeSum += (toEigen(m_vertices[m_triangles[t + c]]) - toEigen(m_vertices[m_triangles[t + (c + 1) % 3]])).norm();
            ++edgeCount;
        }
    const double meanEdge = edgeSum / double(std::max(1LL, edgeCount));
    const float radiusMin = float(m_parameters.samplingMinMultiplier * meanEdge);
    const float radiusMax = float(m_parameters.samplingMaxMultiplier * meanEdge);
    qDebug() << "average len of triangle edge" << meanEdge;
    qDebug() << "samplingRadiusMin" << radiusMin;
    qDebug() << "samplingRadiusMax" << radiusMax;
    if (!(radiusMin > 0.0f)) {
        m_error = QStringLiteral("The classic fit cannot sample a graph on a basemesh whose edges have no length");
        return m_vertices;
    }

    QVector<int> controlVertices;
    QVector<QVector3D> controlBarycentrics, controlTargets;
    const int pairs = std::min(m_basePoints.size(), m_targetPoints.size());
    for (int i = 0; i < pairs; ++i) {
        const WPointOnTriangle& s = m_basePoints[i];
        const WPointOnTriangle& t = m_targetPoints[i];
        if (!s.isValid() || !t.isValid() || 3 * s.triangle + 2 >= m_triangles.size() ||
            3 * t.triangle + 2 >= m_targetTriangles.size())
            continue;
        for (int c = 0; c < 3; ++c)
            controlVertices.append(m_triangles[3 * s.triangle + c]);
        controlBarycentrics.append(QVector3D(s.u, s.v, 1.0f - s.u - s.v));
        controlTargets.append(t.position(m_targetVertices, m_targetTriangles));
    }

    Welking::FindClosestPointsFunctorWithFilteringHeuristics match(*tree, m_targetNormals, m_triangles, m_mask,
                                                                   m_parameters.minCosBetweenNormals);
    QElapsedTimer timer;
    timer.start();
    const QVector<QVector3D> result =
        fitLevels(controlVertices, controlBarycentrics, controlTargets, match, radiusMin, radiusMax);
    qDebug() << "Welking done. Elapsed:" << double(timer.elapsed()) / 1000.0;
    return result;
}

QVector<QVector3D> WelkingWorker::fitLevels(const QVector<int>& controlVertices,
                                            const QVector<QVector3D>& controlBarycentrics,
                                            const QVector<QVector3D>& controlTargets,
                                            ICPRoutine::FindClosestPointsFunctor& match, float radiusMin,
                                            float radiusMax)
{
    const WelkingParameters& p = m_parameters;
    const int n = p.nSubdivisions;
    auto connectivity = std::make_shared<DeformationGraphRoutine::MeshConnectivity>(m_vertices.size(), m_triangles);
    std::unique_ptr<DeformationGraphRoutine::NodesSamplerAndInfluenceSearcher> sampler;
    if (m_dijkstraSampler)
        sampler = std::make_unique<DeformationGraphRoutine::DijkstraNodesSamplerAndInfluenceSearcherOld>();
    else
        sampler = std::make_unique<DeformationGraphRoutine::FastMarching2NodesSamplerAndInfluenceSearcher>();
    DeformationGraphRoutine::DeformationGraphUniversalNodesCreator creator(p.nNodesToUse, m_vertices, m_triangles,
                                                                          connectivity, std::move(sampler));

    QElapsedTimer timer;
    timer.start();
    std::vector<DeformationGraphRoutine::NodeLevel> levels;
    m_graphCallback->setLevelSize(2 * m_vertices.size());
    m_graphCallback->begin(2 * m_vertices.size() * n);
    const bool built = DeformationGraphRoutine::createLevels(creator, radiusMin, radiusMax, n, levels, m_graphCallback);
    m_graphCallback->finish();
    qDebug() << "Node graph construction elapsed" << double(timer.elapsed()) / 1000.0;
    qDebug() << "nSubdivisions" << n;
    for (int i = 0; i < int(levels.size()); ++i) {
        m_levelNodeCounts.append(levels[size_t(i)].nodes.size());
        qDebug() << "level" << i << levels[size_t(i)].nodes.size() << "nodes" << "/" << m_vertices.size() << "vertices"
                 << float(levels[size_t(i)].nodes.size()) / float(std::max(1, m_vertices.size()));
    }
    if (!built || m_graphCallback->isInterrupted()) {
        m_callback->finish();
        return m_vertices;
    }

    EmbeddedDeformationManual::ControlData controls;
    for (int c = 0; c < controlTargets.size(); ++c) {
        controls.triangles.push_back({controlVertices[3 * c], controlVertices[3 * c + 1], controlVertices[3 * c + 2]});
        controls.barycentrics.push_back(toEigen(controlBarycentrics[c]));
        controls.targets.push_back(toEigen(controlTargets[c]));
    }
    std::vector<Eigen::Vector3d> reference;
    for (const QVector3D& v : m_vertices)
        reference.push_back(toEigen(v));

    m_callback->begin(n);
    QVector<QVector3D> current = m_vertices;
    for (int i = 0; i < n; ++i) {
        m_callback->subdivisionStarted(i);
        if (m_callback->isInterrupted())
            break;
        QElapsedTimer levelTimer;
        levelTimer.start();
        const DeformationGraphRoutine::NodeLevel& level = levels[size_t(i)];
        const int N = level.nodes.size();
        std::vector<Eigen::Vector3d> nodes;
        for (const QVector3D& g : level.nodes)
            nodes.push_back(toEigen(g));
        Eigen::VectorXd x = Eigen::VectorXd::Zero(6 * N);

        // Warm start: each node takes the weighted rigid motion of the
        // vertices it moves, from their reference to their current places.
        std::vector<std::vector<std::pair<int, float>>> nodeVertices(static_cast<size_t>(N));
        const auto& influences = level.influences;
        for (int v = 0; v < influences.vertexCount(); ++v)
            for (long long k = influences.offsets[size_t(v)]; k < influences.offsets[size_t(v) + 1]; ++k)
                nodeVertices[size_t(influences.nodeIndices[size_t(k)])].emplace_back(v, influences.weights[size_t(k)]);
        for (int j = 0; j < N; ++j) {
            QVector<QVector3D> from, to;
            QVector<float> weights;
            for (const auto& [v, w] : nodeVertices[size_t(j)])
                if (w >= 1e-07f) {
                    from.append(m_vertices[v]);
                    to.append(current[v]);
                    weights.append(w);
                }
            if (from.isEmpty())
                continue;
            QQuaternion q;
            QVector3D t0;
            ICPRoutine::rigidTransformWeighted(from, to, weights, q, t0);
            q.normalize();
            const Eigen::Vector3d s = EmbeddedDeformation::parametersFromQuaternion(
                double(q.scalar()), Eigen::Vector3d(q.x(), q.y(), q.z()));
            const Eigen::Matrix3d R = EmbeddedDeformation::rotationFromParameters(s[0], s[1], s[2]);
            x.segment<3>(3 * j) = s;
            x.segment<3>(3 * N + 3 * j) = R * nodes[size_t(j)] + toEigen(t0) - nodes[size_t(j)];
        }
        if (!x.allFinite())
            x.setZero();

        const float t = float(n - 1 - i) / float(n);
        const float wSmooth = (p.globalSmoothWeightMax - p.globalSmoothWeightMin) * t + p.globalSmoothWeightMin;
        const float wControl =
            (p.globalControlPointsWeightInitial - p.globalControlPointsWeightFinal) * t + p.globalControlPointsWeightFinal;
        EmbeddedDeformationManual::EmbeddedGraphSparseProblem problem(
            nodes, reference, level.influences, level.neighbours, controls, p.globalPoint2PointFittingWeight,
            p.globalPoint2PlaneFittingWeight, wSmooth, wControl);
        const std::vector<Eigen::Vector3d>& warm = problem.deform(x);
        for (int v = 0; v < current.size(); ++v)
            current[v] = toQt(warm[size_t(v)]);
        QVector<QVector3D> nodesMoved(N);
        for (int j = 0; j < N; ++j)
            nodesMoved[j] = toQt(nodes[size_t(j)] + x.segment<3>(3 * N + 3 * j));
        m_callback->reportUpdate(current, nodesMoved);

        m_callback->beginIcp(p.nICPIterations);
        for (int k = 0; k < p.nICPIterations; ++k) {
            m_callback->icpIterationStarted(k);
            if (m_callback->isInterrupted())
                break;
            const int levMarIterations = k == p.nICPIterations - 1 ? p.nEndLevMarIters : p.nUsualLevMarIters;
            qDebug() << "ICP iteration" << k << "/" << levMarIterations;
            const QVector<int> matches = match.findClosestPoints(current, m_targetVertices);
            std::vector<int> sources;
            std::vector<Eigen::Vector3d> targetPoints, targetNormals;
            for (int v = 0; v < matches.size(); ++v)
                if (matches[v] >= 0) {
                    sources.push_back(v);
                    targetPoints.push_back(toEigen(m_targetVertices[matches[v]]));
                    targetNormals.push_back(toEigen(m_targetNormals[matches[v]]));
                }
            // One round alone gives 0 / 0: no step tolerance, as intended.
            const double fraction = double(k) / double(p.nICPIterations - 1);
            const double stepTolerance = (double(p.maxDp) - double(p.minDp)) * (1.0 - fraction) + double(p.minDp);
            m_callback->levMarStarted(levMarIterations);
            QElapsedTimer solveTimer;
            solveTimer.start();
            const Eigen::VectorXd before = x;
            QVector<QVector3D> solved;
            EmbeddedDeformationManual::deform(problem, x, std::move(sources), std::move(targetPoints),
                                              std::move(targetNormals), solved, nodesMoved, levMarIterations,
                                              stepTolerance);
            qDebug() << "ICP deformation elapsed" << double(solveTimer.elapsed()) / 1000.0;
            m_callback->levMarFinished();
            if (!x.allFinite() || !allFinite(solved)) {
                x = before;
                m_error = QStringLiteral("The classic fit stopped at level %1 of %2: the solve gave values that are "
                                         "not numbers; the shape reached before it is kept")
                              .arg(i + 1)
                              .arg(n);
                m_callback->finish();
                return current;
            }
            current = solved;
            m_callback->reportUpdate(current, nodesMoved);
        }
        qDebug() << "Subdivision elapsed" << double(levelTimer.elapsed()) / 1000.0;
    }
    m_callback->finish();
    return current;
}

} // namespace Welk
