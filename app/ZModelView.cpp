#include "ZModelView.h"

#include "ContextSyncController.h"
#include "WCamera3D.h"
#include "WContextNavigation2WithGeom.h"
#include "WGLDataGeomStackTriangulated.h"
#include "WGLMarkers.h"
#include "WGLMaterialCavity.h"
#include "WGLMaterialWireframe.h"
#include "WGLObjectRenderer.h"
#include "WGLObjectShadow.h"
#include "WGLPolylines.h"
#include "WGLSharedContext.h"
#include "WGLTextureImg.h"
#include "ZGLBackground.h"
#include "ZGLGeom.h"
#include "ZGLViewport.h"

#include "document/WImg.h"
#include "geometry/GeomStackTriangulated.h"
#include "steps/texture/TextureTexels.h"

#include <QHBoxLayout>
#include <QVector4D>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

namespace WelkPlugin {

using namespace Welk;

namespace {

QToolButton* toggle(const QString& text, const QString& tip, QWidget* parent)
{
    auto* button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(tip);
    button->setCheckable(true);
    return button;
}

} // namespace

ZModelView::ZModelView(const QString& role, QWidget* parent)
    : QWidget(parent), m_role(role), m_camera(std::make_shared<WCamera3D>()),
      m_background(std::make_unique<ZGLBackground>()), m_shadow(std::make_unique<WGLObjectShadow>()),
      m_markers(std::make_unique<WGLMarkers>()), m_nodeMarkers(std::make_unique<WGLMarkers>()),
      m_splineMarkers(std::make_unique<WGLMarkers>()),
      m_polylines(std::make_unique<WGLPolylines>())
{
    // Running jobs hand positions over through queued calls of setVertices.
    qRegisterMetaType<QVector<QVector3D>>("QVector<QVector3D>");
    setMinimumSize(240, 200);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_header = new QWidget(this);
    m_header->setObjectName(QStringLiteral("viewportHeader"));
    auto* headerLayout = new QHBoxLayout(m_header);
    headerLayout->setContentsMargins(8, 4, 8, 4);
    auto* text = new QVBoxLayout;
    text->setSpacing(0);
    m_title = new QLabel(m_header);
    m_title->setStyleSheet(QStringLiteral("font-weight: bold;"));
    m_counts = new QLabel(m_header);
    text->addWidget(m_title);
    text->addWidget(m_counts);
    headerLayout->addLayout(text, 1);
    m_wireframe = toggle(tr("Wire"), tr("Show the wireframe of this model"), m_header);
    m_texture = toggle(tr("Texture"), tr("Show this model's texture"), m_header);
    m_lighting = toggle(tr("Light"), tr("Light this model"), m_header);
    headerLayout->addWidget(m_wireframe);
    headerLayout->addWidget(m_texture);
    headerLayout->addWidget(m_lighting);
    layout->addWidget(m_header);
    m_title->setText(m_role);

    connect(m_wireframe, &QToolButton::toggled, this, [this](bool on) {
        updateMaterials();
        Q_EMIT wireframeToggled(on);
    });
    connect(m_texture, &QToolButton::toggled, this, [this](bool on) {
        if (m_surface)
            m_surface->setTextureEnabled(on);
        if (m_viewport)
            m_viewport->update();
        Q_EMIT textureToggled(on);
    });
    connect(m_lighting, &QToolButton::toggled, this, [this](bool on) {
        if (m_surface)
            m_surface->setLightingEnabled(on);
        if (m_viewport)
            m_viewport->update();
        Q_EMIT lightingToggled(on);
    });
}

ZModelView::~ZModelView()
{
    // GL objects die in their share group, whichever view is gone already.
    if (m_context)
        m_context->makeCurrentIfNeeded();
    m_geom.reset();
    m_renderer.reset();
    m_data.reset();
    m_surface.reset();
    m_wire.reset();
    m_textureImage.reset();
    m_markers.reset();
    m_nodeMarkers.reset();
    m_splineMarkers.reset();
    m_polylines.reset();
    m_background.reset();
    m_shadow.reset();
}

void ZModelView::setModel(const GeometryStack2::GeomStackTriangulated* mesh, const QString& fileName,
                          WGLSharedContext* context, const WImg& texture)
{
    m_mesh = mesh;
    m_context = context;
    m_title->setText(QStringLiteral("%1 \u2014 %2").arg(m_role, fileName));
    if (mesh)
        m_counts->setText(
            tr("%L1 vertices, %L2 polygons").arg(mesh->vertexCount()).arg(mesh->polygonCount()));
    if (!mesh || !context)
        return;

    context->makeCurrentIfNeeded();
    m_data = std::make_shared<WGLDataGeomStackTriangulated>(context, *mesh);
    m_surface = std::make_shared<WGLMaterialCavity>();
    m_surface->setLightingEnabled(m_lighting->isChecked());
    m_surface->setTextureEnabled(m_texture->isChecked());
    setTexture(texture);
    m_wire = std::make_shared<WGLMaterialWireframe>();
    m_renderer = std::make_shared<WGLObjectRenderer>(m_data);
    m_geom = std::make_unique<ZGLGeom>(context, m_renderer);
    updateMaterials();

    if (!m_viewport) {
        m_viewport = new ZGLViewport(m_camera, m_background.get(), m_shadow.get(), context, this);
        m_viewport->setObjectName(m_role + QStringLiteral("Viewport"));
        m_viewport->addModel(m_geom.get());
        m_viewport->addObject(m_polylines.get(), 1);
        m_viewport->addObject(m_nodeMarkers.get(), 1);
        m_viewport->addObject(m_splineMarkers.get(), 1);
        m_viewport->addObject(m_markers.get(), 1);
        m_nodeMarkers->setRadius(3.0f);
        m_splineMarkers->setRadius(5.0f);
        auto data = m_data;
        m_navigation = new WContextNavigation2WithGeom(
            m_viewport, m_camera, [data] { return std::make_pair(data->boundsMin(), data->boundsMax()); });
        static_cast<QVBoxLayout*>(layout())->addWidget(m_viewport, 1);
    } else {
        m_viewport->removeModel(m_geom.get());
        m_viewport->addModel(m_geom.get());
    }
    m_fitted = false;
    if (m_gozConventions)
        m_camera->setOrientation(QQuaternion::fromAxisAndAngle(1.0f, 0.0f, 0.0f, 180.0f));
    fitToView();
}

void ZModelView::setTexture(const WImg& texture)
{
    if (!m_surface || !m_context)
        return;
    m_context->makeCurrentIfNeeded();
    if (texture.isNull() || !m_mesh || !m_mesh->hasTexCoords()) {
        m_surface->setTexture(nullptr);
        m_textureImage.reset();
    } else {
        // The drawing reads v from the bottom of the image.
        m_textureImage =
            std::make_unique<WGLTextureImg>(m_gozConventions ? WelkPlugin::flippedVertically(texture) : texture);
        m_surface->setTexture(m_textureImage.get());
    }
    if (m_viewport)
        m_viewport->update();
}

void ZModelView::rayAt(const QPointF& p, QVector3D& origin, QVector3D& direction) const
{
    const QSize size = m_viewport ? m_viewport->size() : this->size();
    const QMatrix4x4 inverse =
        (m_camera->projectionMatrix(WCamera::aspectOf(size)) * m_camera->viewMatrix()).inverted();
    const float x = static_cast<float>(2.0 * p.x() / std::max(1, size.width()) - 1.0);
    const float y = static_cast<float>(1.0 - 2.0 * p.y() / std::max(1, size.height()));
    const QVector3D nearPoint = inverse.map(QVector3D(x, y, -1.0f));
    const QVector3D farPoint = inverse.map(QVector3D(x, y, 1.0f));
    origin = nearPoint;
    direction = (farPoint - nearPoint).normalized();
}

bool ZModelView::projectToScreen(const QVector3D& position, QPointF& pixel) const
{
    if (!m_viewport)
        return false;
    const QSize size = m_viewport->size();
    const QVector4D clip = m_camera->projectionMatrix(WCamera::aspectOf(size)) * m_camera->viewMatrix() *
                           QVector4D(position, 1.0f);
    if (clip.w() <= 0.0f)
        return false;
    pixel = QPointF((clip.x() / clip.w() + 1.0) * 0.5 * size.width(), (1.0 - clip.y() / clip.w()) * 0.5 * size.height());
    return true;
}

void ZModelView::updateMaterials()
{
    // The wireframe's edge list is built the first time it is shown.
    if (m_renderer) {
        if (m_wireframe->isChecked())
            m_renderer->setMaterials({m_surface, m_wire});
        else
            m_renderer->setMaterials({m_surface});
    }
    if (m_viewport)
        m_viewport->update();
}

void ZModelView::setVisualParams(const PluginGLVisualParams& params)
{
    m_background->setColor(params.backgroundColor);
    m_background->setGradient(params.gradientA, params.gradientB, params.gradientC);
    m_camera->setFieldOfView(params.fieldOfView > 1.0f && params.fieldOfView < 170.0f ? params.fieldOfView
                                                                                      : 25.0f);
    if (m_viewport) {
        m_viewport->setClearColor(params.backgroundColor);
        m_viewport->update();
    }
}

void ZModelView::setToggles(bool wireframe, bool texture, bool lighting)
{
    m_wireframe->setChecked(wireframe);
    m_texture->setChecked(texture);
    m_lighting->setChecked(lighting);
}

QString ZModelView::headerText() const
{
    return m_title->text() + QLatin1Char('\n') + m_counts->text();
}

QImage ZModelView::grabImage()
{
    return m_viewport ? m_viewport->grabFramebuffer() : QImage();
}

void ZModelView::setVertices(const QVector<QVector3D>& vertices)
{
    if (!m_data || !m_mesh || vertices.size() != m_mesh->vertexCount())
        return;
    m_data->setVertices(vertices);
    if (m_viewport)
        m_viewport->update();
    Q_EMIT verticesShown(vertices);
}

void ZModelView::resetVertices()
{
    if (m_mesh)
        setVertices(m_mesh->vertices());
}

void ZModelView::setPolygonMask(const QVector<quint8>& polygonMask)
{
    m_maskColors.clear();
    if (!m_mesh || polygonMask.size() != m_mesh->polygonCount())
        return;
    QVector<bool> masked(m_mesh->vertexCount(), false);
    bool any = false;
    const QVector<int>& offsets = m_mesh->polygonOffsets();
    const QVector<int>& corners = m_mesh->vertexIndices();
    for (int p = 0; p < polygonMask.size(); ++p) {
        if (!(polygonMask[p] & 1))
            continue;
        any = true;
        for (int c = offsets[p]; c < offsets[p + 1]; ++c)
            masked[corners[c]] = true;
    }
    if (!any)
        return;
    // ZBrush shows masked parts dark; so do we.
    m_maskColors.resize(masked.size());
    for (int v = 0; v < masked.size(); ++v)
        m_maskColors[v] = masked[v] ? QColor(95, 88, 84) : QColor(200, 185, 170);
    setVertexColors({});
}

void ZModelView::setVertexColors(const QVector<QColor>& colors)
{
    if (!m_data)
        return;
    m_data->setVertexColors(colors.isEmpty() ? m_maskColors : colors);
    if (m_viewport)
        m_viewport->update();
}

void ZModelView::fitToView()
{
    if (!m_navigation || !m_viewport || m_viewport->height() < 2)
        return;
    m_navigation->fitToView();
    m_fitted = true;
}

void ZModelView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    // The first real size frames the model; later resizes keep the camera.
    if (!m_fitted && m_viewport && m_viewport->height() > 1)
        fitToView();
}

} // namespace WelkPlugin
