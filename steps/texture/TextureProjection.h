#pragma once

#include "document/WImg.h"
#include "geometry/ProgressInterface.h"
#include "search/WRayTracer.h"

#include <QSize>
#include <QString>
#include <QVector2D>
#include <QVector3D>
#include <QVector>

#include <limits>

namespace WelkPlugin {

/// Carries `sourceImage`, painted on the source mesh through its texture
/// coordinates, onto the target mesh's UV layout. For each texel the target
/// point under it is found through `targetUvRayTracer` (the target's UVs as
/// a flat sheet at z = 0), rays leave that point along the interpolated
/// target normal both ways, and the nearer hit on `sourceRayTracer` that
/// faces the same way gives the source texture coordinate to sample.
///
/// The image is worked at the source texture's resolution in 128 x 128
/// tiles on the Qt Concurrent pool and resized (nearest) to `outputSize` at
/// the end. One- and four-channel sources keep their channel count, RGB
/// gains an alpha; texels no ray reached are 0, hence transparent. The pixel
/// depth (8-bit, 16-bit, float) is kept.
///
/// `uOffset`/`vOffset` select the UV tile [u, u+1) x [v, v+1) to fill.
/// `triangleMask` holds one byte per target triangle (0: receives nothing)
/// or is empty. `progress` (may be null) gets "Texture projection..." from
/// 0 to 100 and may stop the run: then the result is null and `error` says
/// so. On failure the result is null and `error` holds the reason; `error`
/// stays empty on success.
Welk::WImg project(const Welk::WImg& sourceImage, const QVector<QVector2D>& sourceTexCoords,
                   const QVector<int>& sourceTriangleTexCoordIndices, const Welk::WRayTracer& sourceRayTracer,
                   const QVector<QVector3D>& targetVertices, const QVector<QVector3D>& targetNormals,
                   const QVector<int>& targetTriangleIndices, const QSize& outputSize,
                   const Welk::WRayTracer& targetUvRayTracer, float maxDistance, int uOffset, int vOffset,
                   const QSize& tileSize, const QVector<quint8>& triangleMask, QString& error,
                   Welk::ProgressInterface* progress = nullptr);

/// The message of a run stopped through the progress interface.
QString projectionStoppedMessage();

} // namespace WelkPlugin
