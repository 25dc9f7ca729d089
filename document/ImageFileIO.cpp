#include "ImageFileIO.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLibrary>
#include <QStringList>

namespace Welk::ImageFileIO {

namespace {

struct Module
{
    ReadFunction read = nullptr;
    WriteFunction write = nullptr;
    QString error;

    Module()
    {
        QStringList tried;
        for (const QString& path : modulePaths()) {
            if (!QFileInfo::exists(path)) {
                tried << path;
                continue;
            }
            // Kept loaded for the life of the process: images are read and
            // written until the end.
            QLibrary library(path);
            if (!library.load()) {
                error = QStringLiteral("Cannot load the image file module %1: %2").arg(path, library.errorString());
                return;
            }
            read = reinterpret_cast<ReadFunction>(library.resolve("zwelkReadImage"));
            write = reinterpret_cast<WriteFunction>(library.resolve("zwelkWriteImage"));
            if (!read || !write) {
                read = nullptr;
                write = nullptr;
                error = QStringLiteral("The image file module %1 lacks its functions").arg(path);
            }
            return;
        }
        error = QStringLiteral("The image file module is missing (looked for %1); images cannot be read or written")
                    .arg(tried.join(QStringLiteral(", ")));
    }
};

const Module& module()
{
    static const Module loaded;
    return loaded;
}

} // namespace

QStringList modulePaths()
{
    const QString name = QStringLiteral(ZWELK_IMAGE_IO_MODULE_NAME);
    QStringList paths;
    if (QCoreApplication::instance())
        paths << QCoreApplication::applicationDirPath() + QLatin1Char('/') + name;
    paths << QStringLiteral(ZWELK_IMAGE_IO_MODULE_PATH);
    return paths;
}

ReadFunction reader(QString* error)
{
    if (!module().read && error)
        *error = module().error;
    return module().read;
}

WriteFunction writer(QString* error)
{
    if (!module().write && error)
        *error = module().error;
    return module().write;
}

} // namespace Welk::ImageFileIO
