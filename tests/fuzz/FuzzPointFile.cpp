// Point files (a JSON array of [triangle, u, v]) for a mesh of 64 triangles
// with some masked, and landmark files of positions.
// ZWELK_LANDMARKS selects the landmark reader.
#include "FuzzInput.h"

#include "steps/points/LandmarkFile.h"
#include "steps/points/PointFile.h"

#include <cmath>

using namespace WelkPlugin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
#if ZWELK_LANDMARKS
    const QString path = ZWelkFuzz::writeInput(QStringLiteral("landmarks.csv"), data, size);
    QVector<QVector3D> positions;
    QString error;
    if (LandmarkFile::readPositions(path, positions, error)) {
        for (const QVector3D& p : positions)
            if (!std::isfinite(p.x()) || !std::isfinite(p.y()) || !std::isfinite(p.z()))
                abort(); // the reader promises finite numbers
    }
#else
    const QString path = ZWelkFuzz::writeInput(QStringLiteral("points.json"), data, size);
    constexpr int triangleCount = 64;
    QVector<quint8> usable(triangleCount, 1);
    for (int i = 0; i < triangleCount; i += 3)
        usable[i] = 0;
    QVector<Welk::WPointOnTriangle> points;
    const QString error = PointFile::loadPointsFromFile(path, triangleCount, points, &usable);
    if (error.isEmpty()) {
        for (const Welk::WPointOnTriangle& p : points)
            if (p.triangle > triangleCount || (p.triangle >= 0 && p.triangle < triangleCount && !usable[p.triangle]))
                abort(); // the loader's own rules: never past the count, never on a masked triangle
    }
#endif
    return 0;
}
