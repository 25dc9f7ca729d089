#pragma once

#include "TextureProjection.h"

#include "geometry/GeomStackTriangulated.h"
#include "search/WRayTracerEmbree.h"

#include <QPoint>

#include <memory>

namespace WelkPlugin {

/// The two meshes of a texture transfer and their ray tracers, built once
/// and reused by every run: the source's 3D triangles, and the target's UV
/// layout as a flat sheet at z = 0.
class TextureTransferModels
{
public:
    /// Checks that both meshes carry texture coordinates on every polygon
    /// and builds the tracers. False with `error` otherwise.
    bool setModels(const GeometryStack2::GeomStack& source, const GeometryStack2::GeomStack& target,
                   QString& error);

    bool isValid() const { return m_sourceTracer && m_targetUvTracer; }
    const GeometryStack2::GeomStackTriangulated& source() const { return m_source; }
    const GeometryStack2::GeomStackTriangulated& target() const { return m_target; }
    const Welk::WRayTracer& sourceRayTracer() const { return *m_sourceTracer; }
    const Welk::WRayTracer& targetUvRayTracer() const { return *m_targetUvTracer; }

    /// Declares which meshes count v from the top of their images, as GoZ
    /// files do. Tiles and images are still given and returned the usual
    /// way (v up, tile 0,0 the unit square, image rows as files hold them);
    /// the conversion happens here.
    void setTexCoordsFromTop(bool source, bool target)
    {
        m_sourceFromTop = source;
        m_targetFromTop = target;
    }

    /// The UV tiles (integer u, v of [u, u+1) x [v, v+1)) that hold target
    /// triangles, a triangle counting for the tile of its UV centroid;
    /// sorted by v, then u.
    QVector<QPoint> occupiedTiles() const;
    bool hasTrianglesInTile(int u, int v) const;

    /// What `project` is handed for a texture, a tile's v offset, and what
    /// its image becomes: the identity, unless v counts from the top.
    Welk::WImg projectionSource(const Welk::WImg& texture) const;
    int projectionVOffset(int vTile) const { return m_targetFromTop ? -vTile : vTile; }
    Welk::WImg resultOfProjection(const Welk::WImg& projected) const;

    /// One byte per target triangle from the target's polygon mask (1 marks
    /// a masked polygon): empty when nothing is masked, else 1 for the
    /// triangles that receive the texture.
    QVector<quint8> triangleMask(const QVector<quint8>& polygonMaskFlags) const;

    /// `project` with these meshes and 128 x 128 tiles, with the tile and
    /// the images in the usual orientation (see `setTexCoordsFromTop`).
    Welk::WImg project(const Welk::WImg& sourceImage, const QSize& outputSize, float maxDistance, int uOffset,
                       int vOffset, const QVector<quint8>& triangleMask, QString& error,
                       Welk::ProgressInterface* progress = nullptr) const;

    /// UDIM number of a tile (1001 + u + 10 v), or -1 outside u 0..9, v >= 0.
    static int udim(int u, int v);

private:
    GeometryStack2::GeomStackTriangulated m_source;
    GeometryStack2::GeomStackTriangulated m_target;
    std::unique_ptr<Welk::WRayTracerEmbree> m_sourceTracer;
    std::unique_ptr<Welk::WRayTracerEmbree> m_targetUvTracer;
    bool m_sourceFromTop = false;
    bool m_targetFromTop = false;
};

} // namespace WelkPlugin
