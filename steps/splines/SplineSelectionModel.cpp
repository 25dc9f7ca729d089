#include "SplineSelectionModel.h"

#include "SplineMirror.h"
#include "WSplinesCommands.h"

#include "search/FastContinuousProjectionOnTriangleFinder.h"

#include <QRegularExpression>

namespace WelkPlugin {

using Welk::WPointOnTriangle;

namespace {

/// "Left"/"Right", "left"/"right", "L"/"R" as separate words swapped: the
/// usual way artists name the two sides.
QString swappedSideName(const QString& name)
{
    static const QRegularExpression words(QStringLiteral("(?<![A-Za-z])(Left|Right|left|right|LEFT|RIGHT|L|R|l|r)(?![a-z])"));
    QString result;
    int last = 0;
    QRegularExpressionMatchIterator it = words.globalMatch(name);
    while (it.hasNext()) {
        const QRegularExpressionMatch match = it.next();
        result += name.mid(last, match.capturedStart() - last);
        const QString word = match.captured(1);
        static const QHash<QString, QString> swaps{
            {QStringLiteral("Left"), QStringLiteral("Right")}, {QStringLiteral("Right"), QStringLiteral("Left")},
            {QStringLiteral("left"), QStringLiteral("right")}, {QStringLiteral("right"), QStringLiteral("left")},
            {QStringLiteral("LEFT"), QStringLiteral("RIGHT")}, {QStringLiteral("RIGHT"), QStringLiteral("LEFT")},
            {QStringLiteral("L"), QStringLiteral("R")},         {QStringLiteral("R"), QStringLiteral("L")},
            {QStringLiteral("l"), QStringLiteral("r")},         {QStringLiteral("r"), QStringLiteral("l")}};
        result += swaps.value(word, word);
        last = match.capturedEnd();
    }
    result += name.mid(last);
    return result;
}

bool allOnMesh(const QVector<WPointOnTriangle>& points, const GeometryStack2::GeomStackTriangulated& mesh)
{
    for (const WPointOnTriangle& p : points)
        if (!p.isValid() || p.triangle >= mesh.triangleCount())
            return false;
    return true;
}

/// Whether two splines run through the same places: a point on a vertex or
/// an edge has several equal names (one per triangle around it), so the
/// positions are compared, within a millionth of the model's size.
bool samePlaces(const QVector<WPointOnTriangle>& a, const QVector<WPointOnTriangle>& b,
                const GeometryStack2::GeomStackTriangulated& mesh)
{
    if (a.size() != b.size() || !allOnMesh(a, mesh) || !allOnMesh(b, mesh))
        return false;
    QVector3D lo = mesh.vertices().value(0), hi = lo;
    for (const QVector3D& v : mesh.vertices())
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], v[k]);
            hi[k] = std::max(hi[k], v[k]);
        }
    const float tolerance = 1e-6f * std::max((hi - lo).length(), 1e-20f);
    for (int i = 0; i < a.size(); ++i)
        if ((a[i].position(mesh.vertices(), mesh.triangleVertexIndices()) -
             b[i].position(mesh.vertices(), mesh.triangleVertexIndices()))
                .length() > tolerance)
            return false;
    return true;
}

} // namespace

SplineSelectionModel::SplineSelectionModel(QObject* parent)
    : QObject(parent), m_commands(-1), m_curve(WSpline::makeCurve(WSpline::CurveType::CatmullRom))
{
    m_commands.setLogging(false);
}

SplineSelectionModel::~SplineSelectionModel() = default;

void SplineSelectionModel::setMesh(const GeometryStack2::GeomStackTriangulated& mesh)
{
    m_mesh = mesh;
    m_lookup = nullptr;
    m_pendingDragFinder = {};
    m_dragFinder.reset();
    m_symmetry.reset();
    m_commands.clear();
    m_state = SplinesState();
    Q_EMIT splinesChanged();
}

QString SplineSelectionModel::selected() const
{
    return m_state.splines.contains(m_state.selected) ? m_state.selected : QString();
}

QVector<QVector3D> SplineSelectionModel::controlPositions(const QString& name) const
{
    return WSpline::controlPositions(m_state.splines.value(name), m_mesh);
}

void SplineSelectionModel::setCurveType(WSpline::CurveType type)
{
    m_curve = WSpline::makeCurve(type);
    Q_EMIT splinesChanged();
}

void SplineSelectionModel::setPointsPerSpline(int count)
{
    m_pointsPerSpline = std::clamp(count, kMinPoints, kMaxPoints);
}

SplineMap SplineSelectionModel::sampledSplines() const
{
    SplineMap sampled;
    for (auto it = m_state.splines.begin(); it != m_state.splines.end(); ++it)
        sampled.insert(it.key(),
                       WSpline::sampleOnSurface(*m_curve, it.value(), m_mesh, m_pointsPerSpline, closestPointLookup()));
    return sampled;
}

void SplineSelectionModel::setClosestPointLookup(const ClosestPointLookup& lookup)
{
    m_lookup = lookup;
    m_pendingDragFinder = {};
    m_dragFinder.reset();
}

namespace {

std::shared_ptr<KeepDistance::FastContinuousProjectionOnTriangleFinder>
makeDragFinder(const GeometryStack2::GeomStackTriangulated& mesh, const ClosestPointLookup& lookup)
{
    return std::make_shared<KeepDistance::FastContinuousProjectionOnTriangleFinder>(
        mesh.vertices(), mesh.triangleVertexIndices(), lookupFinder(lookup, mesh));
}

} // namespace

void SplineSelectionModel::prepareDragFinder()
{
    if (m_dragFinder || m_pendingDragFinder.valid() || !m_lookup || !hasGeometry())
        return;
    // The thread works on its own copies (the lists are shared, not copied).
    m_pendingDragFinder = std::async(std::launch::async, makeDragFinder, m_mesh, m_lookup);
}

const KeepDistance::FastContinuousProjectionOnTriangleFinder& SplineSelectionModel::dragFinder() const
{
    if (!m_dragFinder && m_pendingDragFinder.valid())
        m_dragFinder = m_pendingDragFinder.get();
    if (!m_dragFinder)
        m_dragFinder = makeDragFinder(m_mesh, closestPointLookup());
    return *m_dragFinder;
}

const ClosestPointLookup& SplineSelectionModel::closestPointLookup() const
{
    if (!m_lookup)
        m_lookup = makeClosestPointLookup(m_mesh);
    return m_lookup;
}

QString SplineSelectionModel::uniqueName(const QString& stem) const
{
    for (int n = 1;; ++n) {
        const QString name = stem + QString::number(n);
        if (!m_state.splines.contains(name))
            return name;
    }
}

void SplineSelectionModel::applyState(const SplinesState& state)
{
    m_state = state;
    Q_EMIT splinesChanged();
}

void SplineSelectionModel::pushSplines(const SplineMap& splines, const QStringList& order)
{
    if (splines == m_state.splines && order == m_state.order)
        return;
    m_commands.process(new WSplinesUpdateCommand(this, splines, order));
}

void SplineSelectionModel::pushAll(const SplinesState& state)
{
    if (state == m_state)
        return;
    m_commands.process(new WSplinesAndSelectedUpdateCommand(this, state));
}

QString SplineSelectionModel::addSpline(const QVector<WPointOnTriangle>& points, const QString& name)
{
    SplinesState next = m_state;
    const QString added = name.isEmpty() || next.splines.contains(name) ? uniqueName() : name;
    next.splines.insert(added, points);
    next.order.append(added);
    next.selected = added;
    pushAll(next);
    return added;
}

bool SplineSelectionModel::setSplinePoints(const QString& name, const QVector<WPointOnTriangle>& points)
{
    if (!m_state.splines.contains(name))
        return false;
    SplineMap splines = m_state.splines;
    splines.insert(name, points);
    pushSplines(splines, m_state.order);
    return true;
}

bool SplineSelectionModel::select(const QString& name)
{
    if (!name.isEmpty() && !m_state.splines.contains(name))
        return false;
    if (name != m_state.selected)
        m_commands.process(new WSplinesUpdateSelectedCommand(this, name));
    return true;
}

void SplineSelectionModel::modify(const SplinesState& state)
{
    pushAll(state);
}

QString SplineSelectionModel::validateName(const QString& name, const QString& current) const
{
    if (name.isEmpty())
        return QStringLiteral("Name can't be empty!");
    if (name != current && m_state.splines.contains(name))
        return QStringLiteral("A spline with such name already exists!");
    return QString();
}

QString SplineSelectionModel::rename(const QString& current, const QString& name)
{
    if (!m_state.splines.contains(current))
        return QStringLiteral("No spline is named \"%1\"").arg(current);
    const QString problem = validateName(name, current);
    if (!problem.isEmpty() || name == current)
        return problem;
    SplinesState next = m_state;
    next.splines.insert(name, next.splines.take(current));
    next.order[next.order.indexOf(current)] = name;
    if (next.selected == current)
        next.selected = name;
    pushAll(next);
    return QString();
}

QString SplineSelectionModel::renameAll(const QString& stem)
{
    if (stem.isEmpty())
        return QStringLiteral("Name can't be empty!");
    SplinesState next;
    for (int i = 0; i < m_state.order.size(); ++i) {
        const QString name = stem + QString::number(i + 1);
        next.splines.insert(name, m_state.splines.value(m_state.order[i]));
        next.order.append(name);
        if (m_state.order[i] == m_state.selected)
            next.selected = name;
    }
    pushAll(next);
    return QString();
}

QString SplineSelectionModel::resample(const QString& name, int count)
{
    if (!m_state.splines.contains(name))
        return QStringLiteral("Select a spline to resample");
    if (count < kMinPoints || count > kMaxPoints)
        return QStringLiteral("The number of control points must be from %1 to %2").arg(kMinPoints).arg(kMaxPoints);
    if (!hasGeometry())
        return QStringLiteral("Missing geometry");
    const QVector<WPointOnTriangle>& points = m_state.splines[name];
    if (!allOnMesh(points, m_mesh))
        return QStringLiteral("Spline control points are located on triangles that are not contained in the geometry");
    if (points.isEmpty())
        return QStringLiteral("The spline has no control points");
    setSplinePoints(name, WSpline::sampleOnSurface(*m_curve, points, m_mesh, count, closestPointLookup()));
    return QString();
}

bool SplineSelectionModel::reverse(const QString& name)
{
    if (!m_state.splines.contains(name))
        return false;
    QVector<WPointOnTriangle> points = m_state.splines[name];
    std::reverse(points.begin(), points.end());
    return setSplinePoints(name, points);
}

bool SplineSelectionModel::swapPrevious(const QString& name)
{
    const int i = m_state.order.indexOf(name);
    if (i <= 0)
        return false;
    QStringList order = m_state.order;
    order.swapItemsAt(i, i - 1);
    pushSplines(m_state.splines, order);
    return true;
}

bool SplineSelectionModel::swapNext(const QString& name)
{
    const int i = m_state.order.indexOf(name);
    if (i < 0 || i + 1 >= m_state.order.size())
        return false;
    QStringList order = m_state.order;
    order.swapItemsAt(i, i + 1);
    pushSplines(m_state.splines, order);
    return true;
}

bool SplineSelectionModel::deleteSpline(const QString& name)
{
    if (!m_state.splines.contains(name))
        return false;
    SplinesState next = m_state;
    next.splines.remove(name);
    next.order.removeAll(name);
    if (next.selected == name)
        next.selected.clear();
    pushAll(next);
    return true;
}

bool SplineSelectionModel::clear()
{
    if (m_state.splines.isEmpty())
        return false;
    pushAll(SplinesState());
    return true;
}

const QVector<int>& SplineSelectionModel::symmetryMap(Welk::ProgressInterface* progress) const
{
    if (!m_symmetry)
        m_symmetry = splineSymmetryMap(m_mesh, progress);
    return *m_symmetry;
}

void SplineSelectionModel::setSymmetryMap(const QVector<int>& map)
{
    m_symmetry = map;
}

SplineSelectionModel::MirrorOutcome SplineSelectionModel::mirror(const QString& name, bool addIfEqual,
                                                                 Welk::ProgressInterface* progress)
{
    MirrorOutcome outcome;
    outcome.title = QStringLiteral("Error");
    if (!hasGeometry()) {
        outcome.text = QStringLiteral("Missing geometry");
        return outcome;
    }
    if (!m_state.splines.contains(name)) {
        outcome.text = QStringLiteral("Select a spline to mirror");
        return outcome;
    }
    const QVector<WPointOnTriangle>& points = m_state.splines[name];
    if (!allOnMesh(points, m_mesh)) {
        outcome.text =
            QStringLiteral("Spline control points are located on triangles that are not contained in the geometry");
        return outcome;
    }
    const QVector<int>& map = symmetryMap(progress);
    if (map.isEmpty()) {
        outcome.text = QStringLiteral("Geometry has no topological symmetry");
        return outcome;
    }
    const SplineMirror mirror(m_mesh, map, progress);
    QVector<WPointOnTriangle> mirrored;
    if (!mirror.isValid() || !mirror.mirror(points, mirrored)) {
        outcome.text = QStringLiteral("Geometry has no topological symmetry");
        return outcome;
    }
    if (!addIfEqual)
        for (const QString& existing : m_state.order)
            if (samePlaces(m_state.splines.value(existing), mirrored, m_mesh)) {
                outcome.kind = MirrorOutcome::Question;
                outcome.title = QStringLiteral("Mirror spline");
                outcome.text =
                    QStringLiteral("Mirrored spline will be equal to existing spline \"%1\".\nAdd mirrored spline anyway?")
                        .arg(existing);
                return outcome;
            }
    QString newName = swappedSideName(name);
    if (newName == name)
        newName = name + QStringLiteral(" mirrored");
    if (m_state.splines.contains(newName))
        newName = uniqueName(newName + QLatin1Char(' '));
    outcome.kind = MirrorOutcome::Added;
    outcome.title.clear();
    outcome.name = addSpline(mirrored, newName);
    return outcome;
}

QString SplineSelectionModel::importFile(const QString& path, SplineFile::Form form)
{
    if (!hasGeometry())
        return QStringLiteral("Missing geometry");
    SplineFile::Contents contents;
    QString error;
    const ClosestPointLookup lookup = SplineFile::isOnTriangles(form) ? ClosestPointLookup() : closestPointLookup();
    if (!SplineFile::read(path, form, m_mesh, lookup, contents, error))
        return error;
    SplinesState next;
    next.splines = contents.splines;
    next.order = contents.order;
    pushAll(next);
    return QString();
}

QString SplineSelectionModel::exportFile(const QString& path, SplineFile::Form form) const
{
    QString error;
    SplineFile::write(path, m_state.splines, m_state.order, form, m_mesh, error);
    return error;
}

} // namespace WelkPlugin
