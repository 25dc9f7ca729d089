#include "PointSelectionModel.h"

#include "PointFile.h"
#include "WCommandPointsOnTr.h"
#include "WSymmetryPoints.h"

namespace WelkPlugin {

using Welk::WPointOnTriangle;

PointSelectionModel::PointSelectionModel(QObject* parent) : QObject(parent), m_commands(-1)
{
    m_commands.setLogging(false);
    qRegisterMetaType<QVector<Welk::WPointOnTriangle>>("QVector<Welk::WPointOnTriangle>");
}

PointSelectionModel::~PointSelectionModel() = default;

void PointSelectionModel::setMesh(int side, const GeometryStack2::GeomStackTriangulated& mesh,
                                  const QVector<quint8>& usableTriangles)
{
    m_meshes[side] = mesh;
    m_usable[side] = usableTriangles.size() == mesh.triangleCount() ? usableTriangles : QVector<quint8>();
    m_tracers[side] = std::make_unique<Welk::WRayTracerEmbree>(mesh.vertices(), mesh.triangleVertexIndices(),
                                                              side == 0 ? 1 : 0, 1);
    m_mirrors[side].reset();
    m_slide.reset();
    m_state.points[side].clear();
    m_state.mirrors[side].clear();
    m_commands.clear();
    Q_EMIT pointsChanged(m_state.points[0], m_state.points[1]);
}

bool PointSelectionModel::isUsable(int side, int triangle) const
{
    if (triangle < 0 || triangle >= m_meshes[side].triangleCount())
        return false;
    return m_usable[side].isEmpty() || m_usable[side][triangle] != 0;
}

void PointSelectionModel::updateVertices(int side, const QVector<QVector3D>& vertices)
{
    if (vertices.size() != m_meshes[side].vertexCount())
        return;
    m_meshes[side].setVertices(vertices);
    if (m_tracers[side])
        m_tracers[side]->updateVertices(vertices);
    m_mirrors[side].reset();
    Q_EMIT pointsChanged(m_state.points[0], m_state.points[1]);
}

WPointOnTriangle PointSelectionModel::pick(int side, const QVector3D& origin, const QVector3D& direction) const
{
    if (!m_tracers[side])
        return WPointOnTriangle();
    return m_tracers[side]->intersectPoint(origin, direction);
}

WPointOnTriangle PointSelectionModel::closestPoint(int side, const QVector3D& position) const
{
    if (!m_tracers[side])
        return WPointOnTriangle();
    return m_tracers[side]->closestPoint(position);
}

QVector3D PointSelectionModel::position(int side, int index) const
{
    const WPointOnTriangle& p = m_state.points[side].at(index);
    if (!p.isValid() || p.triangle >= m_meshes[side].triangleCount())
        return QVector3D();
    return p.position(m_meshes[side].vertices(), m_meshes[side].triangleVertexIndices());
}

int PointSelectionModel::nearestPoint(int side, const QVector3D& position, float maxDistance) const
{
    int best = -1;
    float bestDistance = maxDistance;
    for (int i = 0; i < m_state.points[side].size(); ++i) {
        const float d = (this->position(side, i) - position).length();
        if (d <= bestDistance) {
            bestDistance = d;
            best = i;
        }
    }
    return best;
}

int PointSelectionModel::pairCount() const
{
    return std::min(m_state.points[0].size(), m_state.points[1].size());
}

int PointSelectionModel::unpairedCount() const
{
    return std::abs(m_state.points[0].size() - m_state.points[1].size());
}

QString PointSelectionModel::pairingMessage() const
{
    const int left = m_state.points[0].size(), right = m_state.points[1].size();
    if (left == right)
        return QString();
    return QStringLiteral("%1 point(s) without a pair: the left model has %2 point(s), the right model %3.")
        .arg(std::abs(left - right))
        .arg(left)
        .arg(right);
}

bool PointSelectionModel::checkPoint(int side, const WPointOnTriangle& point, QString* error) const
{
    QString text;
    if (!point.isValid() || point.triangle >= m_meshes[side].triangleCount())
        text = QStringLiteral("The point is not on the model.");
    else if (!isUsable(side, point.triangle))
        text = QStringLiteral("Masked polygons cannot take a point.");
    if (error)
        *error = text;
    return text.isEmpty();
}

const PointMirror* PointSelectionModel::mirrorFor(int side) const
{
    Welk::WSymmetryPoints* symmetry = m_symmetry[side];
    if (!symmetry || symmetry->detectionState() != 0 ||
        symmetry->symmetryMode() != Welk::WSymmetryPoints::TopologicalSymmetry)
        return nullptr;
    if (!m_mirrors[side] || !m_mirrors[side]->isValid())
        m_mirrors[side] = std::make_unique<PointMirror>(m_meshes[side], symmetry->vertexMap());
    return m_mirrors[side]->isValid() ? m_mirrors[side].get() : nullptr;
}

bool PointSelectionModel::mirrorPoint(int side, const WPointOnTriangle& point, WPointOnTriangle& mirrored) const
{
    const PointMirror* mirror = mirrorFor(side);
    return mirror && mirror->mirror(point, mirrored);
}

void PointSelectionModel::push(const PointSelectionState& state)
{
    if (state == m_state)
        return;
    auto* command = new WCmdModifyPointOnTr(this);
    command->addChild(new WCmdUpdatePointsOnTr(this, state));
    m_commands.process(command);
}

bool PointSelectionModel::addPoint(int side, const WPointOnTriangle& point, QString* error)
{
    if (m_slide)
        endSlide();
    if (!checkPoint(side, point, error))
        return false;
    PointSelectionState next = m_state;
    next.points[side].append(point);
    next.mirrors[side].append(-1);
    WPointOnTriangle mirrored;
    if (m_symmetryEnabled && mirrorPoint(side, point, mirrored) && isUsable(side, mirrored.triangle)) {
        // A point on the plane of symmetry is its own mirror: no twin.
        const GeometryStack2::GeomStackTriangulated& mesh = m_meshes[side];
        const QVector3D a = point.position(mesh.vertices(), mesh.triangleVertexIndices());
        const QVector3D b = mirrored.position(mesh.vertices(), mesh.triangleVertexIndices());
        const QVector3D extent = mesh.vertices().isEmpty() ? QVector3D() : mesh.vertices()[0];
        float scale = 0;
        for (const QVector3D& v : mesh.vertices())
            scale = std::max(scale, (v - extent).length());
        if ((a - b).length() > 1e-5f * std::max(scale, 1e-12f)) {
            const int index = next.points[side].size() - 1;
            next.points[side].append(mirrored);
            next.mirrors[side].append(index);
            next.mirrors[side][index] = index + 1;
        }
    }
    push(next);
    return true;
}

void PointSelectionModel::removePoint(PointSelectionState& state, int side, int index)
{
    state.points[side].remove(index);
    state.mirrors[side].remove(index);
    for (int& link : state.mirrors[side]) {
        if (link == index)
            link = -1;
        else if (link > index)
            --link;
    }
}

bool PointSelectionModel::deletePoint(int side, int index)
{
    if (m_slide)
        endSlide();
    if (index < 0 || index >= m_state.points[side].size())
        return false;
    PointSelectionState next = m_state;
    const int twin = next.mirrors[side][index];
    // Remove the later one first so that the other index stays right.
    if (twin >= 0) {
        removePoint(next, side, std::max(index, twin));
        removePoint(next, side, std::min(index, twin));
    } else {
        removePoint(next, side, index);
    }
    push(next);
    return true;
}

bool PointSelectionModel::movePoint(int side, int index, const WPointOnTriangle& point, QString* error)
{
    if (m_slide)
        endSlide();
    if (index < 0 || index >= m_state.points[side].size() || !checkPoint(side, point, error))
        return false;
    PointSelectionState next = m_state;
    next.points[side][index] = point;
    const int twin = next.mirrors[side][index];
    WPointOnTriangle mirrored;
    if (twin >= 0 && mirrorPoint(side, point, mirrored) && isUsable(side, mirrored.triangle))
        next.points[side][twin] = mirrored;
    push(next);
    return true;
}

bool PointSelectionModel::clearPoints(int side)
{
    if (m_slide)
        endSlide();
    PointSelectionState next = m_state;
    for (int s = 0; s < 2; ++s)
        if (side < 0 || side == s) {
            next.points[s].clear();
            next.mirrors[s].clear();
        }
    if (next == m_state)
        return false;
    push(next);
    return true;
}

void PointSelectionModel::modifyPoints(const QVector<WPointOnTriangle>& base, const QVector<WPointOnTriangle>& scan)
{
    if (m_slide)
        endSlide();
    PointSelectionState next = m_state;
    const QVector<WPointOnTriangle>* lists[2] = {&base, &scan};
    for (int s = 0; s < 2; ++s)
        if (next.points[s] != *lists[s]) {
            // New lists carry no twins: their order is the caller's.
            next.points[s] = *lists[s];
            next.mirrors[s].fill(-1, lists[s]->size());
        }
    push(next);
}

bool PointSelectionModel::beginSlide(int side, int index)
{
    if (m_slide)
        endSlide();
    if (index < 0 || index >= m_state.points[side].size())
        return false;
    m_slide = Slide{side, index, m_state};
    return true;
}

bool PointSelectionModel::slideTo(const WPointOnTriangle& point)
{
    if (!m_slide || !checkPoint(m_slide->side, point, nullptr))
        return false;
    const int side = m_slide->side, index = m_slide->index;
    PointSelectionState next = m_state;
    next.points[side][index] = point;
    const int twin = next.mirrors[side][index];
    WPointOnTriangle mirrored;
    if (twin >= 0 && mirrorPoint(side, point, mirrored) && isUsable(side, mirrored.triangle))
        next.points[side][twin] = mirrored;
    applyState(next);
    return true;
}

void PointSelectionModel::endSlide()
{
    if (!m_slide)
        return;
    const PointSelectionState reached = m_state;
    const PointSelectionState before = m_slide->before;
    m_slide.reset();
    if (reached == before)
        return;
    // The history must see the drag as one step from where it began.
    m_state = before;
    push(reached);
}

void PointSelectionModel::cancelSlide()
{
    if (!m_slide)
        return;
    const PointSelectionState before = m_slide->before;
    m_slide.reset();
    applyState(before);
}

QString PointSelectionModel::loadPoints(int side, const QString& path)
{
    QVector<WPointOnTriangle> loaded;
    const QString error = PointFile::loadPointsFromFile(path, m_meshes[side].triangleCount(), loaded,
                                                        side == 0 && !m_usable[0].isEmpty() ? &m_usable[0] : nullptr);
    if (!error.isEmpty())
        return error;
    modifyPoints(side == 0 ? loaded : m_state.points[0], side == 1 ? loaded : m_state.points[1]);
    return QString();
}

QString PointSelectionModel::savePoints(int side, const QString& path) const
{
    return PointFile::savePointsToFile(path, m_state.points[side]);
}

void PointSelectionModel::setSymmetry(int side, Welk::WSymmetryPoints* symmetry)
{
    m_symmetry[side] = symmetry;
    m_mirrors[side].reset();
}

bool PointSelectionModel::undo()
{
    if (m_slide)
        endSlide();
    return m_commands.undo();
}

bool PointSelectionModel::redo()
{
    if (m_slide)
        endSlide();
    return m_commands.redo();
}

void PointSelectionModel::applyState(const PointSelectionState& state)
{
    m_state = state;
    Q_EMIT pointsChanged(m_state.points[0], m_state.points[1]);
}

} // namespace WelkPlugin
