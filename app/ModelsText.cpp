#include "ModelsText.h"

#include "exchange/ModelSummary.h"

namespace WelkPlugin {

QString modelsText(const ModelsData& models)
{
    QString html;
    for (int side = 0; side < 2; ++side) {
        const ModelSummary s = ModelSummary::of(models, side);
        html +=
            QStringLiteral(
                "<p><b>%1</b><br>%L2 vertices, %L3 polygons<br>%L4 masked polygons, %5 polygroups<br>%6</p>")
                .arg(s.fileName.toHtmlEscaped())
                .arg(s.vertices)
                .arg(s.polygons)
                .arg(s.maskedPolygons)
                .arg(s.polygroups)
                .arg(s.textureFile.isEmpty()
                         ? QStringLiteral("no texture")
                         : QStringLiteral("texture %1 x %2").arg(s.textureWidth).arg(s.textureHeight));
    }
    return html;
}

} // namespace WelkPlugin
