#include "ZImageView.h"

#include "WCamera2D.h"
#include "WContextNavigation2DZBrush.h"
#include "WGLSharedContext.h"
#include "WViewport.h"
#include "ZGLImage2D.h"

#include "document/WImg.h"

#include <QLabel>
#include <QVBoxLayout>

namespace WelkPlugin {

using namespace Welk;

ZImageView::ZImageView(const QString& role, WGLSharedContext* context, QWidget* parent)
    : QWidget(parent), m_context(context), m_camera(std::make_shared<WCamera2D>()),
      m_image(std::make_unique<ZGLImage2D>())
{
    setMinimumSize(200, 200);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    auto* header = new QWidget(this);
    header->setObjectName(QStringLiteral("viewportHeader"));
    auto* text = new QVBoxLayout(header);
    text->setContentsMargins(8, 4, 8, 4);
    text->setSpacing(0);
    m_title = new QLabel(role, header);
    m_title->setStyleSheet(QStringLiteral("font-weight: bold;"));
    m_details = new QLabel(header);
    text->addWidget(m_title);
    text->addWidget(m_details);
    layout->addWidget(header);

    m_viewport = new WViewport(m_camera, this);
    m_viewport->setObjectName(role + QStringLiteral("Viewport"));
    m_viewport->setClearColor(QColor(0x2b, 0x2b, 0x2b));
    m_viewport->addObject(m_image.get(), 0);
    m_navigation = new WContextNavigation2DZBrush(m_viewport, m_camera);
    layout->addWidget(m_viewport, 1);
}

ZImageView::~ZImageView()
{
    // The texture lives in the share group, whatever happened to the view.
    if (m_context)
        m_context->makeCurrentIfNeeded();
    m_image.reset();
}

void ZImageView::setImage(const WImg& image)
{
    const QSize before = m_image->imageSize();
    if (m_context)
        m_context->makeCurrentIfNeeded();
    m_image->setImage(image);
    const QSize size = m_image->imageSize();
    m_navigation->setContentRect(QRectF(0, 0, size.width(), size.height()));
    if (!size.isEmpty() && (!m_framed || size != before))
        fitToView();
    m_viewport->update();
}

void ZImageView::setDetails(const QString& text)
{
    m_details->setText(text);
}

QString ZImageView::headerText() const
{
    return m_title->text() + QLatin1Char('\n') + m_details->text();
}

void ZImageView::fitToView()
{
    m_framed = !m_image->imageSize().isEmpty();
    m_navigation->fitToView();
}

QImage ZImageView::grabImage()
{
    return m_viewport->grabFramebuffer();
}

void ZImageView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    m_camera->setViewSize(m_viewport->size());
    // A view that changes size shows the whole image again.
    if (m_framed)
        m_navigation->fitToView();
}

} // namespace WelkPlugin
