#include "ModelSummary.h"

#include "ModelsData.h"

#include <algorithm>

namespace WelkPlugin {

ModelSummary ModelSummary::of(const ModelsData& models, int index)
{
    ModelSummary s;
    s.fileName = models.exchange().meshFileName(index);
    if (const auto* mesh = models.geometry(index)) {
        s.vertices = mesh->vertexCount();
        s.polygons = mesh->polygonCount();
        s.triangles = mesh->triangleCount();
        s.polygroups = mesh->polygroupNames().size();
        s.hasTexCoords = mesh->hasTexCoords();
    }
    const QVector<quint8>& mask = models.polygonMaskFlags(index);
    s.maskedPolygons = int(std::count(mask.begin(), mask.end(), quint8(1)));
    const Welk::WImg texture = models.texture(index);
    if (!texture.isNull()) {
        s.textureFile = models.exchange().textureFileName(index);
        s.textureWidth = texture.width();
        s.textureHeight = texture.height();
        s.textureChannels = texture.channels();
    }
    return s;
}

QString ModelSummary::toText() const
{
    QString text = QStringLiteral("file: %1\nvertices: %2\npolygons: %3\ntriangles: %4\nmasked polygons: %5\n"
                                  "polygroups: %6\ntexture coordinates: %7\n")
                       .arg(fileName)
                       .arg(vertices)
                       .arg(polygons)
                       .arg(triangles)
                       .arg(maskedPolygons)
                       .arg(polygroups)
                       .arg(hasTexCoords ? QStringLiteral("yes") : QStringLiteral("no"));
    if (textureFile.isEmpty())
        text += QStringLiteral("texture: none\n");
    else
        text += QStringLiteral("texture: %1 (%2 x %3, %4 channels)\n")
                    .arg(textureFile)
                    .arg(textureWidth)
                    .arg(textureHeight)
                    .arg(textureChannels);
    return text;
}

} // namespace WelkPlugin
