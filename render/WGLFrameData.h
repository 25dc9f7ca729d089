#pragma once

#include <QColor>
#include <QMatrix4x4>
#include <QSize>

class QOpenGLFunctions;

namespace Welk {

class WGLFrameBufferPool;

/// What every object needs to draw one frame of a viewport.
struct WGLFrameData
{
    QMatrix4x4 viewMatrix;       ///< the camera's first matrix
    QMatrix4x4 projectionMatrix; ///< the camera's second matrix
    int width = 0;               ///< logical pixels
    int height = 0;
    QOpenGLFunctions* functions = nullptr;
    QColor clearColor;
    WGLFrameBufferPool* frameBufferPool = nullptr;
    double devicePixelRatio = 1.0;
    int frameNumber = 0;
    /// The camera is moving: objects may draw a lighter version of themselves.
    bool interactive = false;

    /// The size of render targets: logical size times the pixel ratio.
    QSize pixelSize() const
    {
        return QSize(qMax(1, qRound(width * devicePixelRatio)), qMax(1, qRound(height * devicePixelRatio)));
    }
};

} // namespace Welk
