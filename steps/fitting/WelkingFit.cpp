#include "WelkingFit.h"

#include "fitting/accelerated/CartoonWelkingWorker.h"
#include "fitting/accelerated/EmbeddedGraphSampler.h"
#include "fitting/accelerated/FoldOvers.h"
#include "fitting/accelerated/WelkingWorker.h"
#include "fitting/classic/ClassicWelking.h"
#include "fitting/classic/ICPRoutine.h"
#include "geometry/ProgressInterface.h"

#include <QElapsedTimer>
#include <QMetaType>

#include <algorithm>

namespace WelkPlugin {

using GeometryStack2::GeomStack;
using GeometryStack2::GeomStackTriangulated;

/// Forwards every report to the caller's interface and to the fit's
/// signal, and answers cancellation for both the fit and the caller.
class WelkingFit::Progress : public Welk::ProgressInterface
{
public:
    Progress(WelkingFit& fit, Welk::ProgressInterface* outer) : m_fit(fit), m_outer(outer) {}

    void start(const QString& label, long long maximum) override
    {
        m_label = label;
        m_maximum = maximum;
        if (m_outer)
            m_outer->start(label, maximum);
        Q_EMIT m_fit.progressChanged(m_label, 0, int(m_maximum));
    }
    void setValue(long long value, const QString& label) override
    {
        if (!label.isEmpty())
            m_label = label;
        if (m_outer)
            m_outer->setValue(value, label);
        Q_EMIT m_fit.progressChanged(m_label, int(value), int(m_maximum));
    }
    void end() override
    {
        if (m_outer)
            m_outer->end();
        Q_EMIT m_fit.progressChanged(m_label, int(m_maximum), int(m_maximum));
    }
    bool isCancelled() const override { return m_fit.m_stop.load() || (m_outer && m_outer->isCancelled()); }

private:
    WelkingFit& m_fit;
    Welk::ProgressInterface* m_outer;
    QString m_label;
    long long m_maximum = 0;
};

WelkingFit::WelkingFit(FitInput input, FitOptions options, Welk::ProgressInterface* progress, QObject* parent)
    : QObject(parent), m_input(std::move(input)), m_options(std::move(options)),
      m_progress(std::make_unique<Progress>(*this, progress))
{
    // Shapes reach a window through queued connections.
    qRegisterMetaType<QVector<QVector3D>>("QVector<QVector3D>");
    m_options.settings.sampling.levels = m_options.settings.accelerated.subdivisions;
    if (checkInput().isEmpty())
        m_transform = pairTransform(pointPositions(m_input.basePoints, m_input.base),
                                    pointPositions(m_input.targetPoints, m_input.target), m_options.rigid,
                                    m_options.scale);
    m_result.transform = m_transform;
}

WelkingFit::~WelkingFit() = default;

QMatrix4x4 WelkingFit::pairTransform(const QVector<QVector3D>& source, const QVector<QVector3D>& target, bool rigid,
                                     bool scale)
{
    QMatrix4x4 transform;
    if ((!rigid && !scale) || source.size() < 3 || source.size() != target.size())
        return transform;
    QQuaternion rotation;
    QVector3D translation;
    float s = 1.0f;
    if (scale)
        ICPRoutine::similarityTransform(source, target, rotation, translation, s);
    else
        ICPRoutine::rigidTransform(source, target, rotation, translation);
    if (rigid) {
        transform.translate(translation);
        transform.rotate(rotation);
    }
    if (scale)
        transform.scale(s);
    return transform;
}

QVector<quint8> WelkingFit::verticesOfPolygons(const GeomStack& mesh, const QVector<quint8>& polygonMask)
{
    QVector<quint8> vertices(mesh.vertexCount(), 0);
    const QVector<int>& offsets = mesh.polygonOffsets();
    for (int p = 0; p < polygonMask.size() && p + 1 < offsets.size(); ++p)
        if (polygonMask[p])
            for (int c = offsets[p]; c < offsets[p + 1]; ++c)
                vertices[mesh.vertexIndices()[c]] = 1;
    return vertices;
}

QVector<quint8> WelkingFit::verticesNearestPoints(const GeomStackTriangulated& mesh,
                                                  const QVector<Welk::WPointOnTriangle>& points)
{
    QVector<quint8> vertices(mesh.vertexCount(), 0);
    const QVector<int>& corners = mesh.triangleVertexIndices();
    for (const Welk::WPointOnTriangle& p : points) {
        if (!p.isValid() || p.triangle >= mesh.triangleCount())
            continue;
        const float w[3] = {p.u, p.v, 1.0f - p.u - p.v};
        const int c = int(std::max_element(w, w + 3) - w);
        vertices[corners[3 * p.triangle + c]] = 1;
    }
    return vertices;
}

QVector<QVector3D> WelkingFit::pointPositions(const QVector<Welk::WPointOnTriangle>& points,
                                              const GeomStackTriangulated& mesh)
{
    QVector<QVector3D> positions;
    positions.reserve(points.size());
    for (const auto& p : points)
        positions.append(p.position(mesh.vertices(), mesh.triangleVertexIndices()));
    return positions;
}

QString WelkingFit::checkInput() const
{
    if (m_input.base.vertexCount() == 0 || m_input.base.triangleCount() == 0)
        return QStringLiteral("The basemesh has no triangles to fit");
    if (m_input.target.vertexCount() == 0 || m_input.target.triangleCount() == 0)
        return QStringLiteral("The target model has no triangles to fit to");
    if (m_input.basePoints.size() != m_input.targetPoints.size())
        return QStringLiteral("Point Correspondence step should contain equal number of points.");
    const auto offMesh = [](const QVector<Welk::WPointOnTriangle>& points, int triangles) {
        for (int i = 0; i < points.size(); ++i)
            if (points[i].triangle < 0 || points[i].triangle >= triangles)
                return i;
        return -1;
    };
    const int badBase = offMesh(m_input.basePoints, m_input.base.triangleCount());
    if (badBase >= 0)
        return QStringLiteral("Point %1 on the basemesh lies on triangle %2, which the mesh does not have")
            .arg(badBase + 1)
            .arg(m_input.basePoints[badBase].triangle);
    const int badTarget = offMesh(m_input.targetPoints, m_input.target.triangleCount());
    if (badTarget >= 0)
        return QStringLiteral("Point %1 on the target lies on triangle %2, which the mesh does not have")
            .arg(badTarget + 1)
            .arg(m_input.targetPoints[badTarget].triangle);
    if (!m_input.excludedVertices.isEmpty() && m_input.excludedVertices.size() != m_input.base.vertexCount())
        return QStringLiteral("The exclusion mask has %1 entries for %2 vertices")
            .arg(m_input.excludedVertices.size())
            .arg(m_input.base.vertexCount());
    return QString();
}

QVector<QVector3D> WelkingFit::alignedBase() const
{
    return GeomStack::transformedVertices(m_transform, m_input.base.vertices());
}

QVector<ModelWarning> WelkingFit::warnings() const
{
    return modelWarnings(alignedBase(), m_input.base.polygonCount(), m_input.target.vertices(),
                         m_input.target.polygonCount());
}

QVector<quint8> WelkingFit::excludedVertices() const
{
    QVector<quint8> excluded = m_options.excludeMasked ? verticesOfPolygons(m_input.base, m_input.basePolygonMask)
                                                       : QVector<quint8>(m_input.base.vertexCount(), 0);
    for (int v = 0; v < m_input.excludedVertices.size() && v < excluded.size(); ++v)
        excluded[v] = excluded[v] || m_input.excludedVertices[v];
    return excluded;
}

void WelkingFit::stop()
{
    m_stop = true;
    // Only atomics here: this runs from signal handlers too.
    if (auto* worker = m_worker.load())
        worker->callback().interrupt();
}

void WelkingFit::fail(const QString& error)
{
    m_result.status = FitResult::Failed;
    m_result.error = error;
    Q_EMIT finished();
}

void WelkingFit::runClassic()
{
    const QString invalid = m_options.classicParameters.validate();
    if (!invalid.isEmpty()) {
        fail(invalid);
        return;
    }
    QElapsedTimer clock;
    clock.start();
    const GeomStackTriangulated& base = m_input.base;
    const GeomStackTriangulated& target = m_input.target;
    Welk::ClassicWelkingInput input;
    input.vertices = base.vertices();
    input.triangles = base.triangleVertexIndices();
    input.transform = m_transform;
    input.targetVertices = target.vertices();
    input.targetNormals = target.normals();
    input.targetTriangles = target.triangleVertexIndices();
    input.basePoints = m_input.basePoints;
    input.targetPoints = m_input.targetPoints;
    const QVector<quint8> excluded = excludedVertices();
    input.mask.resize(excluded.size());
    for (int v = 0; v < excluded.size(); ++v)
        input.mask[v] = excluded[v] != 0;
    input.parameters = m_options.classicParameters;
    input.normalisedSize = m_options.normalisedSize;
    // The classic fit builds its own graph levels from its settings.
    const Welk::ClassicWelkingResult classic = Welk::runClassicWelking(input, m_progress.get());
    m_result.seconds.append({QStringLiteral("fit"), double(clock.nsecsElapsed()) / 1e9});
    m_result.graphNodes = classic.levelNodeCounts;
    if (!classic.error.isEmpty() && classic.vertices.size() != base.vertexCount()) {
        fail(classic.error);
        return;
    }
    m_result.error = classic.error;
    m_result.welked = classic.vertices;
    m_result.vertices = GeomStack::transformedVertices(m_transform, classic.vertices);
    m_result.status = classic.interrupted || m_progress->isCancelled() ? FitResult::Interrupted
                      : classic.error.isEmpty()                       ? FitResult::Finished
                                                                      : FitResult::Failed;
    if (m_options.measure && m_result.status == FitResult::Finished) {
        clock.restart();
        m_result.report = measureFit(base, alignedBase(), m_result.vertices, target, m_input.basePoints,
                                     m_input.targetPoints);
        m_result.measured = true;
        m_result.seconds.append({QStringLiteral("measure"), double(clock.nsecsElapsed()) / 1e9});
    }
    Q_EMIT finished();
}

void WelkingFit::run()
{
    m_result = FitResult();
    m_result.transform = m_transform;
    const QString inputError = checkInput();
    if (!inputError.isEmpty()) {
        fail(inputError);
        return;
    }
    QElapsedTimer clock;
    clock.start();
    const GeomStackTriangulated& base = m_input.base;
    const GeomStackTriangulated& target = m_input.target;
    if (m_options.engine == FitEngine::Classic) {
        runClassic();
        return;
    }

    std::vector<WelkingAcceleratedVersion::Vertex> vertices;
    vertices.reserve(size_t(base.vertexCount()));
    for (const QVector3D& v : base.vertices())
        vertices.emplace_back(v.x(), v.y(), v.z());
    const std::vector<long long> triangles(base.triangleVertexIndices().begin(), base.triangleVertexIndices().end());
    EmbeddedGraphCreator::EmbeddedGraphCreationCallback graphCallback{m_progress.get()};
    auto levels = WelkingAcceleratedVersion::buildEmbeddedGraph(m_options.settings.sampling, vertices, triangles,
                                                                &graphCallback);
    m_result.seconds.append({QStringLiteral("graph levels"), double(clock.nsecsElapsed()) / 1e9});
    for (const auto& level : levels)
        m_result.graphNodes.append(int(level.nodes.size()));
    if (m_progress->isCancelled()) {
        // Stopped before the fit began: the shape reached is the start shape.
        m_result.status = FitResult::Interrupted;
        m_result.welked = base.vertices();
        m_result.vertices = alignedBase();
        Q_EMIT finished();
        return;
    }
    if (levels.empty()) {
        fail(QStringLiteral("No graph levels could be built over the basemesh"));
        return;
    }

    clock.restart();
    const QVector<quint8> excluded = excludedVertices();
    const WelkingAcceleratedVersion::AcceleratedParameters& parameters = m_options.settings.accelerated;
    std::unique_ptr<WelkingAcceleratedVersion::WelkingWorker> worker;
    if (m_options.engine == FitEngine::Cartoon)
        worker = std::make_unique<CartoonWelking::CartoonWelkingWorker>(
            base.vertices(), base.triangleVertexIndices(), m_transform, target.vertices(), target.normals(),
            QMatrix4x4(), target.triangleVertexIndices(), m_input.basePoints, m_input.targetPoints, excluded,
            std::move(levels), parameters, m_options.settings.rigidity, m_options.normalisedSize, m_progress.get());
    else
        worker = std::make_unique<WelkingAcceleratedVersion::FastWelkingWorker>(
            base.vertices(), base.triangleVertexIndices(), m_transform, target.vertices(), target.normals(),
            QMatrix4x4(), target.triangleVertexIndices(), m_input.basePoints, m_input.targetPoints, excluded,
            std::move(levels), parameters, m_options.normalisedSize, m_progress.get());
    connect(worker.get(), &WelkingAcceleratedVersion::WelkingWorker::updated, this, &WelkingFit::updated,
            Qt::DirectConnection);
    QVector<QVector3D> welked;
    connect(worker.get(), &WelkingAcceleratedVersion::WelkingWorker::finished, this,
            [&welked](QVector<QVector3D> result) { welked = std::move(result); }, Qt::DirectConnection);
    m_worker = worker.get();
    // A stop that came while the worker was being built.
    if (m_progress->isCancelled())
        worker->callback().interrupt();
    worker->start();
    const bool interrupted = worker->callback().isInterrupted() || m_progress->isCancelled();
    m_result.course = worker->course();
    m_result.hasCourse = true;
    m_worker = nullptr;
    worker.reset();
    m_result.seconds.append({QStringLiteral("fit"), double(clock.nsecsElapsed()) / 1e9});

    if (GeomStack::firstUnusableVertex(welked) >= 0 || welked.size() != base.vertexCount()) {
        fail(QStringLiteral("The fit ended with vertex positions that are not finite numbers; the models may be "
                            "degenerate (zero-area triangles, coinciding vertices) or of extreme size"));
        return;
    }
    m_result.welked = welked;
    m_result.vertices = GeomStack::transformedVertices(m_transform, welked);
    m_result.status = interrupted ? FitResult::Interrupted : FitResult::Finished;

    // Fold-overs cost one pass over the basemesh: always counted.
    m_result.report.foldsBefore = WelkingAcceleratedVersion::foldedTriangleCount(alignedBase(), base.triangleVertexIndices());
    m_result.report.foldsAfter = WelkingAcceleratedVersion::foldedTriangleCount(m_result.vertices, base.triangleVertexIndices());
    // A stopped fit is written as it stands; measuring would only delay that.
    if (m_options.measure && m_result.status == FitResult::Finished) {
        clock.restart();
        m_progress->start(QStringLiteral("Measuring the result"), 1);
        m_result.report = measureFit(base, alignedBase(), m_result.vertices, target, m_input.basePoints,
                                     m_input.targetPoints);
        m_progress->end();
        m_result.measured = true;
        m_result.seconds.append({QStringLiteral("measure"), double(clock.nsecsElapsed()) / 1e9});
    }
    Q_EMIT finished();
}

} // namespace WelkPlugin
