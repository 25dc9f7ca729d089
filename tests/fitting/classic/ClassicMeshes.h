#pragma once

#include <QVector3D>
#include <QVector>

#include <cmath>
#include <functional>

namespace ClassicMeshes {

struct Mesh
{
    QVector<QVector3D> vertices;
    QVector<int> triangles;
};

/// An n x n vertex grid over [0, size]^2 at height z(x, y), two triangles
/// per cell; `shear` slants the cells so that half the triangles have an
/// obtuse corner.
inline Mesh grid(int n, float size, const std::function<float(float, float)>& z = {}, float shear = 0.0f)
{
    Mesh m;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const float y = size * float(j) / float(n - 1);
            const float x = size * float(i) / float(n - 1) + shear * y;
            m.vertices.append(QVector3D(x, y, z ? z(x, y) : 0.0f));
        }
    for (int j = 0; j + 1 < n; ++j)
        for (int i = 0; i + 1 < n; ++i) {
            const int a = j * n + i;
            m.triangles << a << a + 1 << a + n + 1 << a << a + n + 1 << a + n;
        }
    return m;
}

/// Both meshes in one, the second's indices shifted.
inline Mesh merged(Mesh a, const Mesh& b)
{
    const int offset = a.vertices.size();
    a.vertices += b.vertices;
    for (int t : b.triangles)
        a.triangles.append(t + offset);
    return a;
}

inline Mesh translated(Mesh m, const QVector3D& by)
{
    for (QVector3D& v : m.vertices)
        v += by;
    return m;
}

} // namespace ClassicMeshes
