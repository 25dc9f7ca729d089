#include "ResultWriter.h"

#include "ModelsData.h"

#include "document/WImg.h"

#include <opencv2/core.hpp>

namespace WelkPlugin {

SaveResult writeWelkResult(ModelsData& models, QString& error)
{
    QString saveError;
    if (!models.saveGeometry(models.exchange().resultMeshPath(), saveError)) {
        error = QStringLiteral("Cannot save result GoZ-file: \n%1").arg(saveError);
        // The result stays in memory, so the user can try again or cancel.
        return ResultCancelled;
    }
    return ResultWritten;
}

SaveResult writeTextureResult(const ModelsData& models, const Welk::WImg& image, QString& error)
{
    // WImg::save replaces the file in one rename, so ZBrush never finds half
    // an image and a failed write keeps the old one.
    QString saveError = QStringLiteral("There is no result image");
    if (image.isNull() || !image.save(models.exchange().resultTexturePath(), &saveError)) {
        error = QStringLiteral("Cannot save result texture file:\n%1").arg(saveError);
        return ResultCancelled;
    }
    return ResultWritten;
}

Welk::WImg toEightBit(const Welk::WImg& image)
{
    if (image.isNull() || image.pixelType() == Welk::WImg::UInt8)
        return image;
    const double scale = image.pixelType() == Welk::WImg::UInt16 ? 255.0 / 65535.0 : 255.0;
    cv::Mat converted;
    image.mat().convertTo(converted, CV_MAKETYPE(CV_8U, image.channels()), scale);
    return Welk::WImg(converted, image.attributes());
}

void announceResult(const ModelsData& models)
{
    models.exchange().createImportFile();
}

} // namespace WelkPlugin
