#include "WRayTracerEmbree.h"

#include "ClosestPointOnTriangle.h"

#include <QDebug>

#include <cmath>

namespace Welk {

namespace {

/// Embree hands the query's context to the filter: the face filter rides
/// there, one value per ray, so concurrent queries never share it.
struct FilterContext
{
    RTCIntersectContext context;
    int faceFilter;
};

std::vector<float> packVertices(const QVector<QVector3D>& vertices)
{
    std::vector<float> packed(size_t(vertices.size()) * 3 + 1, 0.0f);
    for (int i = 0; i < vertices.size(); ++i) {
        packed[3 * size_t(i)] = vertices[i].x();
        packed[3 * size_t(i) + 1] = vertices[i].y();
        packed[3 * size_t(i) + 2] = vertices[i].z();
    }
    return packed;
}

std::vector<float> packVertices(const QVector<QVector2D>& vertices)
{
    std::vector<float> packed(size_t(vertices.size()) * 3 + 1, 0.0f);
    for (int i = 0; i < vertices.size(); ++i) {
        packed[3 * size_t(i)] = vertices[i].x();
        packed[3 * size_t(i) + 1] = vertices[i].y();
    }
    return packed;
}

void reportError(void*, RTCError code, const char* text)
{
    qWarning() << "Embree error" << int(code) << text;
}

} // namespace

WRayTracerEmbree::WRayTracerEmbree(const QVector<QVector3D>& vertices, const QVector<int>& indices, int dynamic,
                                   int robust)
    : WRayTracerEmbree(packVertices(vertices), indices, dynamic, robust, {})
{
}

WRayTracerEmbree::WRayTracerEmbree(const QVector<QVector2D>& vertices, const QVector<int>& indices, int dynamic,
                                   int robust)
    : WRayTracerEmbree(packVertices(vertices), indices, dynamic, robust, {})
{
}

WRayTracerEmbree::WRayTracerEmbree(std::vector<float> vertices, const QVector<int>& indices, int dynamic, int robust,
                                   const QVector<quint8>& mask)
    : m_vertices(std::move(vertices)), m_indices(indices), m_dynamic(dynamic), m_robust(robust), m_triangleMask(mask)
{
    // A trailing partial triangle would make Embree read past the list.
    if (m_indices.size() % 3 != 0)
        m_indices.resize(m_indices.size() - m_indices.size() % 3);
    build();
}

WRayTracerEmbree::~WRayTracerEmbree()
{
    if (m_geometry)
        rtcReleaseGeometry(m_geometry);
    if (m_scene)
        rtcReleaseScene(m_scene);
    if (m_device)
        rtcReleaseDevice(m_device);
}

void WRayTracerEmbree::build()
{
    m_device = rtcNewDevice(nullptr);
    if (!m_device) {
        qWarning() << "Embree device could not be created";
        return;
    }
    rtcSetDeviceErrorFunction(m_device, reportError, nullptr);

    int sceneFlags = RTC_SCENE_FLAG_NONE;
    if (m_dynamic != 0)
        sceneFlags |= RTC_SCENE_FLAG_DYNAMIC;
    if (m_robust == 1)
        sceneFlags |= RTC_SCENE_FLAG_ROBUST;
    m_scene = rtcNewScene(m_device);
    rtcSetSceneFlags(m_scene, RTCSceneFlags(sceneFlags));
    // A scene that changes often is rebuilt cheaply; a static one is built
    // once for the fastest queries.
    rtcSetSceneBuildQuality(m_scene, m_dynamic != 0 ? RTC_BUILD_QUALITY_LOW : RTC_BUILD_QUALITY_MEDIUM);

    const int triangles = triangleCount();
    const int vertices = vertexCount();
    if (triangles > 0 && vertices > 0) {
        m_geometry = rtcNewGeometry(m_device, RTC_GEOMETRY_TYPE_TRIANGLE);
        // A deformable mesh keeps its hierarchy and refits it on update.
        rtcSetGeometryBuildQuality(m_geometry, m_dynamic != 0 ? RTC_BUILD_QUALITY_REFIT : RTC_BUILD_QUALITY_MEDIUM);
        rtcSetSharedGeometryBuffer(m_geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, m_vertices.data(), 0,
                                   3 * sizeof(float), size_t(vertices));
        rtcSetSharedGeometryBuffer(m_geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, m_indices.constData(), 0,
                                   3 * sizeof(int), size_t(triangles));
        rtcSetGeometryIntersectFilterFunction(m_geometry, filter);
        rtcSetGeometryUserData(m_geometry, &m_triangleMask);
        rtcCommitGeometry(m_geometry);
        m_geometryId = int(rtcAttachGeometry(m_scene, m_geometry));
    }
    rtcCommitScene(m_scene);
}

void WRayTracerEmbree::filter(const RTCFilterFunctionNArguments* args)
{
    const auto* mask = static_cast<const QVector<quint8>*>(args->geometryUserPtr);
    const int faceFilter = reinterpret_cast<const FilterContext*>(args->context)->faceFilter;
    for (unsigned i = 0; i < args->N; ++i) {
        if (args->valid[i] != -1)
            continue;
        const unsigned triangle = RTCHitN_primID(args->hit, args->N, i);
        if (mask && !mask->isEmpty() && triangle < unsigned(mask->size()) && (*mask)[int(triangle)] == 0) {
            args->valid[i] = 0;
            continue;
        }
        if (faceFilter == 0)
            continue;
        // Embree 3's Ng is the right-hand normal of the stored corner order
        // (its version 2 pointed the other way and had to be negated).
        const float d = (RTCRayN_dir_x(args->ray, args->N, i) * RTCHitN_Ng_x(args->hit, args->N, i) +
                          RTCRayN_dir_y(args->ray, args->N, i) * RTCHitN_Ng_y(args->hit, args->N, i) +
                          RTCRayN_dir_z(args->ray, args->N, i) * RTCHitN_Ng_z(args->hit, args->N, i));
        if ((faceFilter == 1 && d <= 0.0f) || (faceFilter == 2 && d > 0.0f))
            args->valid[i] = 0;
    }
}

bool WRayTracerEmbree::intersect(const QVector3D& origin, const QVector3D& direction, float nearLimit, float farLimit,
                                 int faceFilter, int& triangle, float& distance, float& b1, float& b2,
                                 QVector3D& normal) const
{
    if (!m_scene || m_geometryId < 0)
        return false;
    FilterContext context;
    rtcInitIntersectContext(&context.context);
    context.faceFilter = faceFilter;

    RTCRayHit record;
    record.ray.org_x = origin.x();
    record.ray.org_y = origin.y();
    record.ray.org_z = origin.z();
    record.ray.dir_x = direction.x();
    record.ray.dir_y = direction.y();
    record.ray.dir_z = direction.z();
    record.ray.tnear = nearLimit;
    record.ray.tfar = farLimit;
    record.ray.time = 0.0f;
    record.ray.mask = 0xFFFFFFFFu;
    record.ray.id = 0;
    record.ray.flags = 0;
    record.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    record.hit.primID = RTC_INVALID_GEOMETRY_ID;
    record.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(m_scene, &context.context, &record);
    if (record.hit.geomID == RTC_INVALID_GEOMETRY_ID)
        return false;
    triangle = int(record.hit.primID);
    distance = record.ray.tfar;
    b1 = record.hit.u;
    b2 = record.hit.v;
    normal = QVector3D(record.hit.Ng_x, record.hit.Ng_y, record.hit.Ng_z);
    return true;
}

WPointOnTriangle WRayTracerEmbree::intersectPoint(const QVector3D& origin, const QVector3D& direction,
                                                  int faceFilter, float nearLimit, float farLimit,
                                                  float* distance) const
{
    // A caller's distance narrows the search only when it means something:
    // an uninitialised zero must not hide every surface.
    float limit = farLimit;
    if (distance && *distance > nearLimit && *distance < limit)
        limit = *distance;
    int triangle = -1;
    float t = 0.0f, b1 = 0.0f, b2 = 0.0f;
    QVector3D normal;
    if (!intersect(origin, direction, nearLimit, limit, faceFilter, triangle, t, b1, b2, normal))
        return WPointOnTriangle();
    if (distance)
        *distance = t;
    return WPointOnTriangle{triangle, 1.0f - b1 - b2, b1};
}

QVector<WPointOnTriangle> WRayTracerEmbree::intersectPoints(const QVector<QVector3D>& origins,
                                                            const QVector<QVector3D>& directions, int faceFilter,
                                                            float nearLimit, float farLimit) const
{
    QVector<WPointOnTriangle> result;
    const int count = std::min(origins.size(), directions.size());
    result.reserve(count);
    for (int i = 0; i < count; ++i)
        result.append(intersectPoint(origins[i], directions[i], faceFilter, nearLimit, farLimit));
    return result;
}

WRayTracer* WRayTracerEmbree::clone() const
{
    return new WRayTracerEmbree(m_vertices, m_indices, m_dynamic, m_robust, m_triangleMask);
}

namespace {

struct ClosestPointQuery
{
    const float* vertices;
    const int* indices;
    const QVector<quint8>* mask;
    WPointOnTriangle best;
};

// Called by Embree for every triangle whose box meets the query sphere;
// shrinking the radius prunes the rest of the traversal.
bool closestPointCallback(RTCPointQueryFunctionArguments* args)
{
    auto* query = static_cast<ClosestPointQuery*>(args->userPtr);
    const int t = int(args->primID);
    if (!query->mask->isEmpty() && (*query->mask)[t] == 0)
        return false;
    auto corner = [query, t](int c) {
        const float* v = query->vertices + 3 * size_t(query->indices[3 * t + c]);
        return QVector3D(v[0], v[1], v[2]);
    };
    const QVector3D p(args->query->x, args->query->y, args->query->z);
    float u = 0.0f, v = 0.0f;
    const QVector3D nearest = ClosestTriangleSearch::closestPointOnTriangle(corner(0), corner(1), corner(2), p, u, v);
    const float d = (nearest - p).length();
    if (!(d < args->query->radius))
        return false;
    args->query->radius = d;
    query->best = WPointOnTriangle{t, u, v};
    return true;
}

} // namespace

WPointOnTriangle WRayTracerEmbree::closestPoint(const QVector3D& position, float maxDistance, float* distance) const
{
    ClosestPointQuery query{m_vertices.data(), m_indices.constData(), &m_triangleMask, WPointOnTriangle()};
    if (m_scene && m_geometry) {
        RTCPointQuery pointQuery;
        pointQuery.x = position.x();
        pointQuery.y = position.y();
        pointQuery.z = position.z();
        pointQuery.time = 0.0f;
        pointQuery.radius = maxDistance;
        RTCPointQueryContext context;
        rtcInitPointQueryContext(&context);
        rtcPointQuery(m_scene, &pointQuery, &context, closestPointCallback, &query);
        if (distance && query.best.isValid())
            *distance = pointQuery.radius;
    }
    return query.best;
}

bool WRayTracerEmbree::updateVertices(const QVector<QVector3D>& vertices)
{
    if (vertices.size() != vertexCount())
        return false;
    for (int i = 0; i < vertices.size(); ++i) {
        m_vertices[3 * size_t(i)] = vertices[i].x();
        m_vertices[3 * size_t(i) + 1] = vertices[i].y();
        m_vertices[3 * size_t(i) + 2] = vertices[i].z();
    }
    if (m_geometry) {
        rtcUpdateGeometryBuffer(m_geometry, RTC_BUFFER_TYPE_VERTEX, 0);
        rtcCommitGeometry(m_geometry);
        rtcCommitScene(m_scene);
    }
    return true;
}

bool WRayTracerEmbree::setTriangleMask(const QVector<quint8>& mask)
{
    if (!mask.isEmpty() && mask.size() != triangleCount())
        return false;
    // The filter reads the mask through the geometry's user data, which
    // points at this member; queries must not run during the swap.
    m_triangleMask = mask;
    return true;
}

} // namespace Welk
