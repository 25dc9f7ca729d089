#include "WGLSharedContext.h"

#include <QOffscreenSurface>
#include <QOpenGLContext>

namespace Welk {

WGLSharedContext::WGLSharedContext(QString& error)
{
    QOpenGLContext* global = QOpenGLContext::globalShareContext();
    if (!global) {
        error = QStringLiteral("Failed to get OpenGL global context");
        return;
    }
    m_surface = std::make_unique<QOffscreenSurface>();
    m_surface->setFormat(global->format());
    m_surface->create();
    m_context = std::make_unique<QOpenGLContext>();
    m_context->setShareContext(global);
    m_context->setFormat(global->format());
    if (!m_context->create())
        error = QStringLiteral("Failed to create OpenGL context");
}

WGLSharedContext::~WGLSharedContext()
{
    if (m_context && QOpenGLContext::currentContext() == m_context.get())
        m_context->doneCurrent();
}

void WGLSharedContext::makeCurrentIfNeeded()
{
    if (!m_context)
        return;
    QOpenGLContext* current = QOpenGLContext::currentContext();
    if (current == m_context.get() || (current && QOpenGLContext::areSharing(current, m_context.get())))
        return;
    m_context->makeCurrent(m_surface.get());
}

} // namespace Welk
