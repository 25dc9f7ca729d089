#include "WViewport.h"

#include "ParentChangeListener.h"
#include "WCamera.h"
#include "WGLFrameBuffer.h"
#include "WGLFrameBufferPool.h"
#include "WGLFrameData.h"
#include "WGLObject.h"
#include "WGLRenderPlane.h"
#include "WGLRenderPlanesData.h"
#include "WGLShaderBuilder.h"
#include "WGLTexture.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions>
#include <QOpenGLFunctions_3_0>
#include <QOpenGLShaderProgram>
#include <QScreen>
#include <QTimer>
#include <QWindow>

#include <algorithm>
#include <cmath>

namespace Welk {

namespace {

const char* errorName(GLenum code)
{
    switch (code) {
    case GL_INVALID_ENUM:
        return "GL_INVALID_ENUM";
    case GL_INVALID_VALUE:
        return "GL_INVALID_VALUE";
    case GL_INVALID_OPERATION:
        return "GL_INVALID_OPERATION";
    case GL_INVALID_FRAMEBUFFER_OPERATION:
        return "GL_INVALID_FRAMEBUFFER_OPERATION";
    case GL_OUT_OF_MEMORY:
        return "GL_OUT_OF_MEMORY";
    default:
        return "unknown error";
    }
}

} // namespace

WViewport::WViewport(std::shared_ptr<WCamera> camera, QWidget* parent)
    : QOpenGLWidget(parent), m_camera(std::move(camera)), m_parentListener(new ParentChangeListener(this))
{
    QSurfaceFormat format = this->format();
    format.setSamples(4);
    format.setDepthBufferSize(24);
    setFormat(format);
    setProperty("isKeyListener", 1);
    m_interactionEnd = new QTimer(this);
    m_interactionEnd->setSingleShot(true);
    m_interactionEnd->setInterval(300);
    connect(m_interactionEnd, &QTimer::timeout, this, &WViewport::endInteraction);
    connect(m_parentListener, &ParentChangeListener::parentAboutToChange, this,
            &WViewport::onParentAboutToChange);
    connect(m_parentListener, &ParentChangeListener::parentChange, this, &WViewport::onParentChange);
}

WViewport::~WViewport()
{
    if (context()) {
        // QOpenGLWidget's destructor destroys the context after this one has
        // run: its aboutToBeDestroyed must not call into a WViewport that is
        // already gone (the resources are freed here instead).
        disconnect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &WViewport::glContextAboutToBeDestroyed);
        makeCurrent();
        m_pool.reset();
        m_planesData.reset();
        m_planeProgram.reset();
        doneCurrent();
    }
}

void WViewport::addObject(WGLObject* object, int plane)
{
    m_planes[plane].push_back(object);
}

void WViewport::removeObject(WGLObject* object)
{
    for (auto& list : m_planes)
        list.erase(std::remove(list.begin(), list.end(), object), list.end());
}

bool WViewport::applyDevicePixelRatio(double ratio)
{
    if (std::abs(ratio - m_devicePixelRatio) * 1e12 <=
        std::min(std::abs(ratio), std::abs(m_devicePixelRatio)))
        return false;
    if (context())
        makeCurrent();
    m_devicePixelRatio = ratio;
    if (m_planesData)
        m_planesData->resize(QSize(qRound(width() * ratio), qRound(height() * ratio)));
    return true;
}

void WViewport::initializeGL()
{
    qDebug() << "WViewport::initializeGL";
    connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &WViewport::glContextAboutToBeDestroyed,
            Qt::UniqueConnection);
    m_functions = context()->functions();
    m_pool = std::make_unique<WGLFrameBufferPool>();
    m_hasGL30 = context()->versionFunctions<QOpenGLFunctions_3_0>() != nullptr;
    m_framebufferSupport = QOpenGLFramebufferObject::hasOpenGLFramebufferObjects();
    m_planesData.reset();
    m_strategy = (m_framebufferSupport && m_requestedStrategy > 0) ? RenderStrategy_UseFramebuffer
                                                                   : RenderStrategy_Basic;
    if (m_strategy == RenderStrategy_UseFramebuffer) {
        qInfo() << "Render strategy: RenderStrategy_UseFramebuffer";
        m_planesData =
            std::make_unique<WGLRenderPlanesData>(QSize(std::max(1, width()), std::max(1, height())));
    } else {
        qInfo() << "Render strategy: RenderStrategy_Basic";
    }
    if (window()->windowHandle()) {
        const double ratio = window()->windowHandle()->screen()
                                 ? window()->windowHandle()->screen()->devicePixelRatio()
                                 : devicePixelRatioF();
        applyDevicePixelRatio(ratio);
        if (m_planesData)
            m_planesData->resize(QSize(qRound(width() * ratio), qRound(height() * ratio)));
    }
    if (m_mustConnectScreen) {
        connectScreen();
        m_mustConnectScreen = false;
    }
}

void WViewport::connectScreen()
{
    QWindow* handle = window()->windowHandle();
    if (!handle)
        return;
    m_screenConnections.append(connect(handle, &QWindow::screenChanged, this, &WViewport::onScreenChanged));
    if (QScreen* screen = handle->screen()) {
        m_screenConnections.append(
            connect(screen, &QScreen::logicalDotsPerInchChanged, this, &WViewport::onScreenSettingsChanged));
        m_screenConnections.append(
            connect(screen, &QScreen::physicalDotsPerInchChanged, this, &WViewport::onScreenSettingsChanged));
    }
}

void WViewport::disconnectScreen()
{
    for (const auto& c : m_screenConnections)
        disconnect(c);
    m_screenConnections.clear();
}

void WViewport::resizeGL(int width, int height)
{
    if (m_planesData)
        m_planesData->resize(QSize(qRound(width * m_devicePixelRatio), qRound(height * m_devicePixelRatio)));
}

WGLFrameData WViewport::frameData()
{
    WGLFrameData frame;
    frame.width = width();
    frame.height = height();
    frame.viewMatrix = m_camera->viewMatrix();
    frame.projectionMatrix = m_camera->projectionMatrix(WCamera::aspectOf(size()));
    frame.functions = m_functions;
    frame.clearColor = m_clearColor;
    frame.frameBufferPool = m_pool.get();
    frame.devicePixelRatio = m_devicePixelRatio;
    frame.frameNumber = m_frameCount;
    frame.interactive = m_interacting || m_lightweight;
    return frame;
}

void WViewport::drawPlane(int plane, const WGLFrameData& frame)
{
    for (WGLObject* object : m_planes[plane])
        if (object->isVisible())
            object->draw(frame);
}

void WViewport::paintGL()
{
    if (m_strategy == RenderStrategy_UseFramebuffer && m_planesData)
        drawRenderPlanesWithFramebuffer();
    else
        drawRenderPlanesBasic();
    ++m_frameCount;
}

void WViewport::drawRenderPlanesBasic()
{
    const WGLFrameData frame = frameData();
    QOpenGLFunctions* f = m_functions;
    f->glViewport(0, 0, frame.pixelSize().width(), frame.pixelSize().height());
    f->glEnable(GL_DEPTH_TEST);
    f->glEnable(GL_MULTISAMPLE);
    f->glClearColor(m_clearColor.redF(), m_clearColor.greenF(), m_clearColor.blueF(), 1.0f);
    f->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    f->glEnable(GL_BLEND);
    f->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    drawPlane(0, frame);
    f->glClear(GL_DEPTH_BUFFER_BIT);
    drawPlane(1, frame);
    f->glDisable(GL_BLEND);
    drainErrors("drawRenderPlanesBasic");
}

void WViewport::drawRenderPlanesWithFramebuffer()
{
    QOpenGLFunctions* f = m_functions;
    const WGLFrameData frame = frameData();
    const QSize pixels = frame.pixelSize();
    f->glViewport(0, 0, pixels.width(), pixels.height());
    m_planesData->resize(pixels);
    WGLFrameBuffer& target = *m_planesData->frameBuffer;
    target.bind();
    for (int plane = 0; plane < 2; ++plane) {
        target.attachColor(0, *m_planesData->plane[plane]);
        target.attachDepth(*m_planesData->depth);
        target.setDrawBuffers(1);
        f->glViewport(0, 0, pixels.width(), pixels.height());
        f->glEnable(GL_DEPTH_TEST);
        f->glClearColor(0, 0, 0, 0);
        f->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        f->glEnable(GL_BLEND);
        f->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        drawPlane(plane, frame);
    }
    target.release();
    f->glDisable(GL_DEPTH_TEST);
    f->glDisable(GL_MULTISAMPLE);
    f->glClearColor(m_clearColor.redF(), m_clearColor.greenF(), m_clearColor.blueF(), 1.0f);
    f->glClear(GL_COLOR_BUFFER_BIT);
    f->glEnable(GL_BLEND);
    f->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    f->glActiveTexture(GL_TEXTURE0);
    if (!m_planeProgram)
        m_planeProgram = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/render_plane.vert"),
                                                     QStringLiteral(":/shaders/render_plane.frag"));
    if (QOpenGLShaderProgram* program = m_planeProgram.get()) {
        program->bind();
        program->setUniformValue("texture", 0);
        for (int plane = 0; plane < 2; ++plane) {
            m_planesData->plane[plane]->bind(0);
            m_planesData->quad->draw(*program);
        }
        program->release();
    }
    f->glDisable(GL_BLEND);
    f->glEnable(GL_DEPTH_TEST);
    drainErrors("drawRenderPlanesWithFramebuffer");
}

void WViewport::drainErrors(const char* where)
{
    for (GLenum code = m_functions->glGetError(); code != GL_NO_ERROR; code = m_functions->glGetError())
        qWarning().nospace() << "[OpenGL Error " << where << "] (" << code << "): " << errorName(code);
}

void WViewport::beginInteraction()
{
    m_interactionEnd->stop();
    m_interacting = true;
}

void WViewport::endInteraction()
{
    m_interactionEnd->stop();
    if (!m_interacting)
        return;
    m_interacting = false;
    update();
}

void WViewport::interactBriefly()
{
    m_interacting = true;
    m_interactionEnd->start();
}

void WViewport::setLightweight(bool lightweight)
{
    if (m_lightweight == lightweight)
        return;
    m_lightweight = lightweight;
    update();
}

void WViewport::updateOverlayPlane()
{
    update();
}

void WViewport::onScreenSettingsChanged()
{
    if (QWindow* handle = window()->windowHandle())
        if (handle->screen() && applyDevicePixelRatio(handle->screen()->devicePixelRatio()))
            update();
}

void WViewport::onScreenChanged(QScreen* screen)
{
    disconnectScreen();
    connectScreen();
    if (screen && applyDevicePixelRatio(screen->devicePixelRatio()))
        update();
}

void WViewport::onParentAboutToChange()
{
    disconnectScreen();
    m_mustConnectScreen = true;
}

void WViewport::onParentChange()
{
    update();
}

void WViewport::glContextAboutToBeDestroyed()
{
    qDebug() << "WViewport::glContextAboutToBeDestroyed" << objectName();
    makeCurrent();
    m_pool.reset();
    if (m_strategy == RenderStrategy_UseFramebuffer)
        m_planesData.reset();
    doneCurrent();
}

} // namespace Welk
