#pragma once

#include "WRayTracer.h"

#include <QVector2D>

#include <embree3/rtcore.h>

#include <vector>

namespace Welk {

/// `WRayTracer` on one Embree scene over one triangle mesh. A UV layout is
/// traced as a mesh in the plane z = 0 (the `QVector2D` constructor).
///
/// `dynamic` non-zero builds a scene meant to change: `updateVertices` then
/// refits it after the mesh deformed (the basemesh during a fit). `robust`
/// 1 asks Embree for its robust traversal, so rays along an edge or through
/// a vertex do not slip between neighbouring triangles.
///
/// The triangle mask holds one byte per triangle, or nothing: a triangle
/// whose byte is 0 is invisible to every query.
class WRayTracerEmbree : public WRayTracer
{
public:
    WRayTracerEmbree(const QVector<QVector3D>& vertices, const QVector<int>& indices, int dynamic = 0,
                     int robust = 1);
    WRayTracerEmbree(const QVector<QVector2D>& vertices, const QVector<int>& indices, int dynamic = 0,
                     int robust = 1);
    ~WRayTracerEmbree() override;

    WRayTracerEmbree(const WRayTracerEmbree&) = delete;
    WRayTracerEmbree& operator=(const WRayTracerEmbree&) = delete;

    WPointOnTriangle intersectPoint(const QVector3D& origin, const QVector3D& direction, int faceFilter = AllFaces,
                                    float nearLimit = 0.0f, float farLimit = std::numeric_limits<float>::infinity(),
                                    float* distance = nullptr) const override;
    QVector<WPointOnTriangle> intersectPoints(const QVector<QVector3D>& origins, const QVector<QVector3D>& directions,
                                              int faceFilter = AllFaces, float nearLimit = 0.0f,
                                              float farLimit = std::numeric_limits<float>::infinity()) const override;
    bool intersect(const QVector3D& origin, const QVector3D& direction, float nearLimit, float farLimit,
                   int faceFilter, int& triangle, float& distance, float& b1, float& b2,
                   QVector3D& normal) const override;
    WRayTracer* clone() const override;

    /// The nearest surface point to `position` within `maxDistance`
    /// (Embree's point query over the scene the rays use, so it costs no
    /// build of its own); invalid when none is that near. Masked triangles
    /// are left out, as for rays. Safe to call from several threads.
    WPointOnTriangle closestPoint(const QVector3D& position,
                                  float maxDistance = std::numeric_limits<float>::infinity(),
                                  float* distance = nullptr) const;

    /// Moves the vertices (same count, same triangles) and rebuilds the
    /// scene: a refit for a dynamic tracer, a full build otherwise. Returns
    /// false, changing nothing, when the count differs.
    bool updateVertices(const QVector<QVector3D>& vertices);

    /// Replaces the triangle mask (one byte a triangle, 0 hides it; empty
    /// shows all). Returns false, changing nothing, for a wrong size.
    bool setTriangleMask(const QVector<quint8>& mask);
    const QVector<quint8>& triangleMask() const { return m_triangleMask; }

    int vertexCount() const { return int((m_vertices.size() - 1) / 3); }
    int triangleCount() const { return m_indices.size() / 3; }
    bool isDynamic() const { return m_dynamic != 0; }
    bool isRobust() const { return m_robust == 1; }

private:
    WRayTracerEmbree(std::vector<float> vertices, const QVector<int>& indices, int dynamic, int robust,
                     const QVector<quint8>& mask);
    void build();
    static void filter(const RTCFilterFunctionNArguments* args);

    /// Three floats per vertex and one spare: Embree reads 16 bytes at each.
    std::vector<float> m_vertices;
    QVector<int> m_indices;
    int m_dynamic = 0;
    int m_robust = 1;
    QVector<quint8> m_triangleMask;
    RTCDevice m_device = nullptr;
    RTCScene m_scene = nullptr;
    RTCGeometry m_geometry = nullptr;
    int m_geometryId = -1;
};

} // namespace Welk
