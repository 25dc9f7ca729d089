#include "ZModelPreview.h"

#include "geometry/GeomStackTriangulated.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLinearGradient>
#include <QPainter>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace WelkPlugin {

namespace {

constexpr int MaxDrawnTriangles = 400000;
constexpr int MaxDrawnPoints = 300000;

QToolButton* toggle(const QString& text, const QString& tip, QWidget* parent)
{
    auto* button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(tip);
    button->setCheckable(true);
    return button;
}

} // namespace

ZModelPreview::ZModelPreview(const QString& role, QWidget* parent) : QWidget(parent), m_role(role)
{
    setMinimumSize(240, 200);
    setAttribute(Qt::WA_OpaquePaintEvent);

    m_header = new QWidget(this);
    m_header->setObjectName(QStringLiteral("viewportHeader"));
    auto* layout = new QHBoxLayout(m_header);
    layout->setContentsMargins(8, 4, 8, 4);
    auto* text = new QVBoxLayout;
    text->setSpacing(0);
    m_title = new QLabel(m_header);
    m_title->setStyleSheet(QStringLiteral("font-weight: bold;"));
    m_counts = new QLabel(m_header);
    text->addWidget(m_title);
    text->addWidget(m_counts);
    layout->addLayout(text, 1);
    m_wireframe = toggle(tr("Wire"), tr("Show the wireframe of this model"), m_header);
    m_texture = toggle(tr("Texture"), tr("Show this model's texture"), m_header);
    m_lighting = toggle(tr("Light"), tr("Light this model"), m_header);
    layout->addWidget(m_wireframe);
    layout->addWidget(m_texture);
    layout->addWidget(m_lighting);
    connect(m_wireframe, &QToolButton::toggled, this, &ZModelPreview::wireframeToggled);
    connect(m_texture, &QToolButton::toggled, this, &ZModelPreview::textureToggled);
    connect(m_lighting, &QToolButton::toggled, this, &ZModelPreview::lightingToggled);
    m_title->setText(m_role);
}

void ZModelPreview::setModel(const GeometryStack2::GeomStack* mesh, const QString& fileName)
{
    m_mesh = mesh;
    m_title->setText(QStringLiteral("%1 \u2014 %2").arg(m_role, fileName));
    if (mesh)
        m_counts->setText(tr("%L1 vertices, %L2 polygons").arg(mesh->vertexCount()).arg(mesh->polygonCount()));
    renderModel();
    update();
}

void ZModelPreview::setVisualParams(const PluginGLVisualParams& params)
{
    m_params = params;
    renderModel();
    update();
}

void ZModelPreview::setToggles(bool wireframe, bool texture, bool lighting)
{
    const QSignalBlocker b1(m_wireframe), b2(m_texture), b3(m_lighting);
    m_wireframe->setChecked(wireframe);
    m_texture->setChecked(texture);
    m_lighting->setChecked(lighting);
}

QString ZModelPreview::headerText() const
{
    return m_title->text() + QLatin1Char('\n') + m_counts->text();
}

void ZModelPreview::resizeEvent(QResizeEvent*)
{
    m_header->setGeometry(0, 0, width(), m_header->sizeHint().height());
    renderModel();
}

void ZModelPreview::renderModel()
{
    if (width() <= 0 || height() <= 0)
        return;
    m_image = QImage(size(), QImage::Format_RGB32);
    QPainter painter(&m_image);
    QLinearGradient gradient(0, 0, 0, height());
    gradient.setColorAt(0.0, m_params.backgroundColor.lighter(135));
    gradient.setColorAt(1.0, m_params.backgroundColor.darker(120));
    painter.fillRect(m_image.rect(), gradient);
    if (!m_mesh || m_mesh->vertexCount() == 0)
        return;

    const QVector<QVector3D>& vertices = m_mesh->vertices();
    const QVector<QVector3D>& normals = m_mesh->normals();
    QVector3D lo = vertices[0], hi = vertices[0];
    for (const QVector3D& v : vertices) {
        lo = QVector3D(std::min(lo.x(), v.x()), std::min(lo.y(), v.y()), std::min(lo.z(), v.z()));
        hi = QVector3D(std::max(hi.x(), v.x()), std::max(hi.y(), v.y()), std::max(hi.z(), v.z()));
    }
    const int top = m_header->sizeHint().height() + 8;
    const float availableW = float(width() - 24), availableH = float(height() - top - 16);
    const float scale = std::min(availableW / std::max(hi.x() - lo.x(), 1e-12f),
                                 availableH / std::max(hi.y() - lo.y(), 1e-12f));
    const QPointF centre(width() / 2.0, top + availableH / 2.0);
    const QVector3D middle = (lo + hi) / 2.0f;

    const QColor clay(190, 178, 160);
    const auto project = [&](const QVector3D& v) {
        return QPointF(centre.x() + (v.x() - middle.x()) * scale, centre.y() - (v.y() - middle.y()) * scale);
    };
    const auto shaded = [&](float facing) {
        const float light = 0.25f + 0.75f * std::max(0.0f, facing);
        return QColor::fromRgbF(clay.redF() * light, clay.greenF() * light, clay.blueF() * light);
    };

    const auto* triangulated = dynamic_cast<const GeometryStack2::GeomStackTriangulated*>(m_mesh);
    if (triangulated && triangulated->triangleCount() <= MaxDrawnTriangles) {
        // Flat-shaded triangles, far ones first so near ones cover them.
        const QVector<int>& t = triangulated->triangleVertexIndices();
        std::vector<std::pair<float, int>> order;
        order.reserve(size_t(triangulated->triangleCount()));
        for (int i = 0; i < t.size(); i += 3) {
            const QVector3D n = QVector3D::crossProduct(vertices[t[i + 1]] - vertices[t[i]],
                                                        vertices[t[i + 2]] - vertices[t[i]]);
            if (n.z() <= 0)
                continue;
            order.emplace_back(vertices[t[i]].z() + vertices[t[i + 1]].z() + vertices[t[i + 2]].z(), i);
        }
        std::sort(order.begin(), order.end());
        painter.setRenderHint(QPainter::Antialiasing, false);
        for (const auto& entry : order) {
            const int i = entry.second;
            const QPointF corners[3] = {project(vertices[t[i]]), project(vertices[t[i + 1]]),
                                        project(vertices[t[i + 2]])};
            const QVector3D n = QVector3D::crossProduct(vertices[t[i + 1]] - vertices[t[i]],
                                                        vertices[t[i + 2]] - vertices[t[i]])
                                    .normalized();
            const QColor colour = shaded(n.z());
            painter.setPen(QPen(colour, 0.8));
            painter.setBrush(colour);
            painter.drawPolygon(corners, 3);
        }
        return;
    }

    // Dense models: shaded points, far ones first.
    const int stride = std::max(1, vertices.size() / MaxDrawnPoints);
    std::vector<int> order;
    order.reserve(size_t(vertices.size() / stride + 1));
    for (int i = 0; i < vertices.size(); i += stride)
        order.push_back(i);
    std::sort(order.begin(), order.end(), [&](int a, int b) { return vertices[a].z() < vertices[b].z(); });
    const float dot =
        std::max(1.5f, std::min(4.0f, 0.6f * std::sqrt(availableW * availableH / float(order.size()))));
    for (int i : order) {
        const QPointF p = project(vertices[i]);
        painter.fillRect(QRectF(p.x() - dot / 2, p.y() - dot / 2, dot, dot),
                         shaded(normals.isEmpty() ? 1.0f : normals[i].z()));
    }
}

void ZModelPreview::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    if (m_image.size() != size())
        renderModel();
    painter.drawImage(0, 0, m_image);
}

} // namespace WelkPlugin
