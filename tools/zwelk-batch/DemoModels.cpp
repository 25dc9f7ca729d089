#include "DemoModels.h"

#include "document/WImg.h"

#include <QHash>

#include <cmath>

namespace ZWelkBatch {

using GeometryStack2::GeomStack;

namespace {

constexpr float Pi = 3.14159265358979f;

GeomStack buildMesh(const QVector<QVector3D>& vertices, const QVector<int>& corners, int cornersPerPolygon,
                    const QVector<QVector2D>& texCoords, const QVector<int>& texIndices,
                    const QVector<int>& groups, const QStringList& groupNames)
{
    const int polygonCount = corners.size() / cornersPerPolygon;
    QVector<int> sizes(polygonCount, cornersPerPolygon);
    QVector<int> offsets(polygonCount + 1);
    for (int p = 0; p <= polygonCount; ++p)
        offsets[p] = p * cornersPerPolygon;
    return GeomStack(vertices, corners, sizes, offsets, texCoords, texIndices, {}, groups, groupNames,
                     QVector<int>(polygonCount, -1), {}, QString());
}

} // namespace

GeomStack makeDemoBasemesh(int n)
{
    n = std::max(2, n);
    // Cube faces as (origin, u axis, v axis); vertices on shared edges are
    // merged by their integer lattice position.
    struct Face
    {
        QVector3D origin, u, v;
    };
    const Face faces[6] = {
        {{-1, -1, 1}, {2, 0, 0}, {0, 2, 0}},  {{1, -1, -1}, {-2, 0, 0}, {0, 2, 0}},
        {{1, -1, 1}, {0, 0, -2}, {0, 2, 0}},  {{-1, -1, -1}, {0, 0, 2}, {0, 2, 0}},
        {{-1, 1, 1}, {2, 0, 0}, {0, 0, -2}},  {{-1, -1, -1}, {2, 0, 0}, {0, 0, 2}},
    };
    QHash<qint64, int> lattice;
    QVector<QVector3D> vertices;
    QVector<QVector2D> texCoords;
    QVector<int> corners, texIndices, groups;
    const auto vertexAt = [&](const QVector3D& cube) {
        const qint64 key = (qint64(std::lround((cube.x() + 1) * n)) * 4096 + std::lround((cube.y() + 1) * n)) * 4096 +
                           std::lround((cube.z() + 1) * n);
        auto it = lattice.constFind(key);
        if (it != lattice.constEnd())
            return it.value();
        // Onto a sphere, then shaped: a head-like ellipsoid, flatter at the back.
        QVector3D s = cube.normalized();
        s = QVector3D(s.x() * 0.78f, s.y() * 1.0f, s.z() * (s.z() > 0 ? 0.9f : 0.75f));
        vertices.append(s * 10.0f);
        lattice.insert(key, vertices.size() - 1);
        return vertices.size() - 1;
    };
    for (int f = 0; f < 6; ++f) {
        const Face& face = faces[f];
        // A 3 x 2 atlas of face islands with a small gutter.
        const QVector2D island((f % 3) / 3.0f + 0.01f, (f / 3) / 2.0f + 0.01f);
        const int texBase = texCoords.size();
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i)
                texCoords.append(island + QVector2D(float(i) / n * 0.313f, float(j) / n * 0.48f));
        for (int j = 0; j < n; ++j) {
            for (int i = 0; i < n; ++i) {
                const int ids[4][2] = {{i, j}, {i + 1, j}, {i + 1, j + 1}, {i, j + 1}};
                float centreY = 0;
                for (const auto& c : ids) {
                    const QVector3D cube = face.origin + face.u * (float(c[0]) / n) + face.v * (float(c[1]) / n);
                    corners.append(vertexAt(cube));
                    texIndices.append(texBase + c[1] * (n + 1) + c[0]);
                    centreY += cube.y();
                }
                groups.append(centreY > 0 ? 0 : 1);
            }
        }
    }
    return buildMesh(vertices, corners, 4, texCoords, texIndices, groups,
                     {QStringLiteral("upper"), QStringLiteral("lower")});
}

GeomStack makeDemoScan(int subdivisions)
{
    const float t = (1.0f + std::sqrt(5.0f)) / 2.0f;
    QVector<QVector3D> vertices = {{-1, t, 0}, {1, t, 0}, {-1, -t, 0}, {1, -t, 0}, {0, -1, t}, {0, 1, t},
                                   {0, -1, -t}, {0, 1, -t}, {t, 0, -1}, {t, 0, 1}, {-t, 0, -1}, {-t, 0, 1}};
    for (QVector3D& v : vertices)
        v.normalize();
    QVector<int> triangles = {0, 11, 5, 0, 5, 1,  0, 1, 7,   0, 7, 10, 0, 10, 11, 1, 5, 9, 5, 11, 4,
                              11, 10, 2, 10, 7, 6, 7, 1, 8, 3, 9, 4,  3, 4, 2,   3, 2, 6, 3, 6, 8,
                              3, 8, 9,  4, 9, 5,  2, 4, 11, 6, 2, 10, 8, 6, 7,   9, 8, 1};
    for (int level = 0; level < subdivisions; ++level) {
        QHash<qint64, int> midpoints;
        const auto midpoint = [&](int a, int b) {
            const qint64 key = qint64(std::min(a, b)) << 32 | std::max(a, b);
            auto it = midpoints.constFind(key);
            if (it != midpoints.constEnd())
                return it.value();
            vertices.append(((vertices[a] + vertices[b]) / 2.0f).normalized());
            midpoints.insert(key, vertices.size() - 1);
            return vertices.size() - 1;
        };
        QVector<int> finer;
        finer.reserve(triangles.size() * 4);
        for (int i = 0; i < triangles.size(); i += 3) {
            const int a = triangles[i], b = triangles[i + 1], c = triangles[i + 2];
            const int ab = midpoint(a, b), bc = midpoint(b, c), ca = midpoint(c, a);
            finer << a << ab << ca << b << bc << ab << c << ca << bc << ab << bc << ca;
        }
        triangles = finer;
    }

    // Per-corner spherical UVs, with seams mended per triangle.
    QVector<QVector2D> texCoords;
    QVector<int> texIndices;
    const auto sphericalUV = [](const QVector3D& d) {
        return QVector2D(0.5f + std::atan2(d.x(), d.z()) / (2 * Pi), 0.5f + std::asin(qBound(-1.0f, d.y(), 1.0f)) / Pi);
    };
    for (int i = 0; i < triangles.size(); i += 3) {
        QVector2D uv[3];
        for (int k = 0; k < 3; ++k)
            uv[k] = sphericalUV(vertices[triangles[i + k]]);
        for (int k = 0; k < 3; ++k)
            for (int m = 0; m < 3; ++m)
                if (uv[k].x() - uv[m].x() > 0.5f)
                    uv[m].setX(uv[m].x() + 1.0f);
        for (int k = 0; k < 3; ++k) {
            texCoords.append(uv[k]);
            texIndices.append(texCoords.size() - 1);
        }
    }

    // The shape: longer than the basemesh, a brow, a nose-like bump at the
    // front and a lumpy surface.
    for (QVector3D& d : vertices) {
        float r = 1.0f + 0.06f * std::sin(5 * d.x()) * std::sin(4 * d.y() + 1) * std::cos(3 * d.z());
        const QVector3D nose(0, -0.05f, 1), brow(0, 0.35f, 0.94f);
        r += 0.28f * std::exp(-(d - nose.normalized()).lengthSquared() / 0.03f);
        r += 0.10f * std::exp(-(d - brow.normalized()).lengthSquared() / 0.08f);
        d = QVector3D(d.x() * 0.72f * r, d.y() * 1.22f * r, d.z() * 0.85f * r) * 10.0f + QVector3D(0.4f, -0.6f, 0.3f);
    }
    return buildMesh(vertices, triangles, 3, texCoords, texIndices, QVector<int>(triangles.size() / 3, -1), {});
}

bool writeDemoTexture(const QString& path, int width, QString& error)
{
    Welk::WImg image(width, width, 3, Welk::WImg::UInt8);
    cv::Mat& mat = image.mat();
    for (int y = 0; y < width; ++y) {
        auto* row = mat.ptr<uchar>(y);
        for (int x = 0; x < width; ++x) {
            const float u = float(x) / width, v = float(y) / width;
            const bool check = ((x / (width / 16)) + (y / (width / 16))) % 2 == 0;
            const float shade = check ? 1.0f : 0.75f;
            row[3 * x + 0] = uchar(255 * shade * (0.5f + 0.5f * std::sin(2 * Pi * u)));
            row[3 * x + 1] = uchar(255 * shade * v);
            row[3 * x + 2] = uchar(255 * shade * (1.0f - u));
        }
    }
    return image.save(path, &error);
}

} // namespace ZWelkBatch
