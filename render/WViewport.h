#pragma once

#include <QColor>
#include <QOpenGLWidget>

#include <memory>
#include <vector>

class QOpenGLFunctions;
class QOpenGLShaderProgram;
class QScreen;
class QTimer;

namespace Welk {

class ParentChangeListener;
class WCamera;
class WGLFrameBufferPool;
class WGLObject;
struct WGLFrameData;
struct WGLRenderPlanesData;

/// An OpenGL view that draws its scene in two planes: plane 0 holds the
/// model and everything under it, plane 1 the markers and labels, which
/// always stand on top. Scene objects live in the shared context's group,
/// so the view can lose and rebuild its own context (when it changes
/// window) without touching them.
class WViewport : public QOpenGLWidget
{
    Q_OBJECT
public:
    enum RenderStrategy
    {
        RenderStrategy_Basic = 0,
        RenderStrategy_UseFramebuffer = 1,
    };

    WViewport(std::shared_ptr<WCamera> camera, QWidget* parent = nullptr);
    ~WViewport() override;

    /// Appends `object` to `plane` (0 or 1); objects draw in list order.
    void addObject(WGLObject* object, int plane);
    void removeObject(WGLObject* object);

    WCamera& camera() const { return *m_camera; }
    std::shared_ptr<WCamera> cameraPointer() const { return m_camera; }
    void setClearColor(const QColor& color) { m_clearColor = color; }
    QColor clearColor() const { return m_clearColor; }
    /// Takes effect at the next `initializeGL`.
    void setRequestedRenderStrategy(RenderStrategy strategy) { m_requestedStrategy = strategy; }
    RenderStrategy renderStrategy() const { return m_strategy; }
    double pixelRatio() const { return m_devicePixelRatio; }
    /// Applies a new device pixel ratio unless it is within a relative
    /// tolerance of the current one. Returns whether anything changed.
    bool applyDevicePixelRatio(double ratio);
    /// While interacting (a navigation drag), objects may draw lighter
    /// versions of themselves; the end of it redraws in full.
    void beginInteraction();
    void endInteraction();
    /// An interaction of its own for a short while (a wheel step).
    void interactBriefly();
    bool isInteracting() const { return m_interacting; }
    /// Draws the lighter frames for as long as it is set (a running fit:
    /// every frame drawn in software is time the fit does not get).
    void setLightweight(bool lightweight);
    /// Frames drawn so far.
    int frameCount() const { return m_frameCount; }

public slots:
    void updateOverlayPlane();
    void onScreenSettingsChanged();
    void onScreenChanged(QScreen* screen);
    void onParentAboutToChange();
    void onParentChange();
    void glContextAboutToBeDestroyed();

protected:
    void initializeGL() override;
    void resizeGL(int width, int height) override;
    void paintGL() override;

    WGLFrameData frameData();

private:
    void drawPlane(int plane, const WGLFrameData& frame);
    void drawRenderPlanesBasic();
    void drawRenderPlanesWithFramebuffer();
    void drainErrors(const char* where);
    void connectScreen();
    void disconnectScreen();

    std::shared_ptr<WCamera> m_camera;
    QColor m_clearColor = QColor(95, 95, 95);
    bool m_framebufferSupport = false;
    bool m_hasGL30 = false;
    QOpenGLFunctions* m_functions = nullptr;
    RenderStrategy m_requestedStrategy = RenderStrategy_Basic;
    RenderStrategy m_strategy = RenderStrategy_Basic;
    std::unique_ptr<WGLRenderPlanesData> m_planesData;
    std::unique_ptr<WGLFrameBufferPool> m_pool;
    std::unique_ptr<QOpenGLShaderProgram> m_planeProgram;
    std::vector<WGLObject*> m_planes[2];
    double m_devicePixelRatio = 1.0;
    ParentChangeListener* m_parentListener;
    bool m_mustConnectScreen = true;
    QVector<QMetaObject::Connection> m_screenConnections;
    int m_frameCount = 0;
    bool m_interacting = false;
    bool m_lightweight = false;
    QTimer* m_interactionEnd;
};

} // namespace Welk
