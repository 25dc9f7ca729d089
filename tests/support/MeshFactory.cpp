#include "MeshFactory.h"

namespace TestSupport {

using GeometryStack2::GeomStack;

GeomStack polygonSoup(const QVector<QVector3D>& vertices, const QVector<QVector<int>>& polygons)
{
    QVector<int> corners, sizes, offsets;
    for (const QVector<int>& p : polygons) {
        offsets.append(corners.size());
        sizes.append(p.size());
        corners += p;
    }
    offsets.append(corners.size());
    return GeomStack(vertices, corners, sizes, offsets, {}, {}, {}, QVector<int>(polygons.size(), -1), {},
                     QVector<int>(polygons.size(), -1), {}, QString());
}

GeomStack heightField(int n, float size, const std::function<float(float, float)>& height)
{
    QVector<QVector3D> vertices;
    QVector<QVector<int>> quads;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const float x = size * float(i) / float(n - 1), y = size * float(j) / float(n - 1);
            vertices.append(QVector3D(x, y, height(x, y)));
        }
    for (int j = 0; j + 1 < n; ++j)
        for (int i = 0; i + 1 < n; ++i) {
            const int a = j * n + i;
            quads.append({a, a + 1, a + n + 1, a + n});
        }
    return polygonSoup(vertices, quads);
}

GeomStack twoQuads()
{
    const QVector<QVector3D> vertices = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 1, 0}, {1, 1, 0}, {2, 1, 0}};
    const QVector<QVector2D> uvs = {{0, 0}, {0.5f, 0}, {1, 0}, {0, 1}, {0.5f, 1}, {1, 1}};
    const QVector<int> corners = {0, 1, 4, 3, 1, 2, 5, 4};
    return GeomStack(vertices, corners, {4, 4}, {0, 4, 8}, uvs, corners, {}, {0, 1},
                     {QStringLiteral("left"), QStringLiteral("right")}, {0, 0}, {QStringLiteral("clay")},
                     QStringLiteral("two.mtl"));
}

GeomStack cube(const QVector3D& lo, const QVector3D& hi)
{
    QVector<QVector3D> v;
    for (int i = 0; i < 8; ++i)
        v.append(QVector3D(i & 1 ? hi.x() : lo.x(), i & 2 ? hi.y() : lo.y(), i & 4 ? hi.z() : lo.z()));
    return polygonSoup(v, {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}});
}

} // namespace TestSupport
