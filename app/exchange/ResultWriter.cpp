#include "ResultWriter.h"

#include "ModelsData.h"

#include "document/WImg.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

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
    const QString path = models.exchange().resultTexturePath();
    const QFileInfo info(path);
    // Same folder, so the rename cannot cross file systems; same suffix, so
    // the image library picks the same format.
    const QString partial = info.dir().filePath(QStringLiteral(".%1.partial.%2").arg(info.completeBaseName(), info.suffix()));
    QString saveError;
    if (image.isNull())
        saveError = QStringLiteral("There is no result image");
    else if (!image.save(partial, &saveError))
        QFile::remove(partial);
    else if (QFile::exists(path) && !QFile::remove(path))
        saveError = QStringLiteral("%1 can't be replaced").arg(path);
    else if (!QFile::rename(partial, path))
        saveError = QStringLiteral("%1 can't be renamed to %2").arg(partial, path);
    if (!saveError.isEmpty()) {
        QFile::remove(partial);
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
