#pragma once

#include <QString>

#include <memory>

class QOffscreenSurface;
class QOpenGLContext;

namespace Welk {

/// A context that shares with Qt's global share context, on an offscreen
/// surface. Textures, buffers and programs are created while it (or any
/// context of its share group) is current, so they outlive every viewport:
/// a QOpenGLWidget loses its own context whenever it changes window.
class WGLSharedContext
{
public:
    /// Creates the context; `error` holds the start-up message on failure.
    explicit WGLSharedContext(QString& error);
    ~WGLSharedContext();
    WGLSharedContext(const WGLSharedContext&) = delete;
    WGLSharedContext& operator=(const WGLSharedContext&) = delete;

    /// Does nothing when the current context is ours or shares with ours;
    /// otherwise makes ours current on the offscreen surface.
    void makeCurrentIfNeeded();

    QOpenGLContext* context() const { return m_context.get(); }
    QOffscreenSurface* surface() const { return m_surface.get(); }

private:
    std::unique_ptr<QOffscreenSurface> m_surface;
    std::unique_ptr<QOpenGLContext> m_context;
};

} // namespace Welk
