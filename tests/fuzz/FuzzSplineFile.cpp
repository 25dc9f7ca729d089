// Spline files in all four forms for a model of 32 triangles: whatever the
// input, a file that reads gives splines whose points lie on the model.
#include "FuzzInput.h"

#include "steps/splines/SplineFile.h"

#include <QJsonDocument>

using namespace WelkPlugin;

namespace {

/// A 4 x 4 quad grid, two triangles a quad.
const GeometryStack2::GeomStackTriangulated& grid()
{
    static const GeometryStack2::GeomStackTriangulated mesh = [] {
        const int n = 4;
        QVector<QVector3D> vertices;
        for (int y = 0; y <= n; ++y)
            for (int x = 0; x <= n; ++x)
                vertices.append(QVector3D(float(x), float(y), 0.0f));
        QVector<int> corners, sizes, offsets;
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                const int a = y * (n + 1) + x;
                offsets.append(corners.size());
                sizes.append(4);
                corners += {a, a + 1, a + n + 2, a + n + 1};
            }
        offsets.append(corners.size());
        const int count = sizes.size();
        return GeometryStack2::GeomStackTriangulated(GeometryStack2::GeomStack(
            vertices, corners, sizes, offsets, {}, {}, {}, QVector<int>(count, -1), {}, QVector<int>(count, -1), {},
            QString()));
    }();
    return mesh;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = ZWelkFuzz::writeInput(QStringLiteral("splines.json"), data, size);
    const GeometryStack2::GeomStackTriangulated& mesh = grid();
    // 3D points land on triangle 0, so that their forms are exercised too.
    const ClosestPointLookup lookup = [](const QVector3D&) { return Welk::WPointOnTriangle{0, 0.25f, 0.25f}; };
    for (int form = 0; form < 4; ++form) {
        SplineFile::Contents contents;
        QString error;
        if (!SplineFile::read(path, SplineFile::Form(form), mesh, lookup, contents, error)) {
            if (error.isEmpty())
                abort(); // every refusal says why
            continue;
        }
        for (auto it = contents.splines.constBegin(); it != contents.splines.constEnd(); ++it)
            for (const Welk::WPointOnTriangle& p : it.value())
                if (p.triangle < 0 || p.triangle >= mesh.triangleCount())
                    abort(); // a point that reads lies on the model
    }
    return 0;
}
