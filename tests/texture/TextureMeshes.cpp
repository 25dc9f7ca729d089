#include "TextureMeshes.h"

#include <QCoreApplication>

namespace TextureTests {

GeometryStack2::GeomStack grid(int n, const std::function<QVector3D(float, float)>& position,
                               const std::function<QVector2D(float, float)>& uv)
{
    QVector<QVector3D> vertices;
    QVector<QVector2D> uvs;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) {
            const float x = float(i) / n, y = float(j) / n;
            vertices.append(position(x, y));
            uvs.append(uv(x, y));
        }
    QVector<int> corners, sizes, offsets;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const int a = j * (n + 1) + i;
            offsets.append(corners.size());
            sizes.append(4);
            corners += {a, a + 1, a + n + 2, a + n + 1};
        }
    offsets.append(corners.size());
    const int count = sizes.size();
    return GeometryStack2::GeomStack(vertices, corners, sizes, offsets, uvs, corners, {}, QVector<int>(count, -1), {},
                                     QVector<int>(count, -1), {}, QString());
}

QVector2D texelUv(int x, int y, int width, int height)
{
    return QVector2D(float(x) / float(width - 1), 1.0f - float(y) / float(height - 1));
}

QObject* application()
{
    static int argc = 1;
    static char name[] = "texture_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = new QCoreApplication(argc, argv);
    return app;
}

Welk::WImg rampImage(int size)
{
    Welk::WImg image(size, size, 3, Welk::WImg::UInt8);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x)
            image.mat().at<cv::Vec3b>(y, x) = cv::Vec3b(uchar(x * 255 / (size - 1)), uchar(y * 255 / (size - 1)), 77);
    return image;
}

} // namespace TextureTests
