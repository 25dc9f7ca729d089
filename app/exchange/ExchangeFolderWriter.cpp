#include "ExchangeFolderWriter.h"

#include "ExchangeFolder.h"

#include "document/WImg.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QtEndian>

namespace WelkPlugin {

namespace {

bool writeFile(const QString& path, const QByteArray& bytes, QString& error)
{
    // Complete or not at all: the plug-in may read the folder at any time.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        error = QStringLiteral("Cannot write file %1").arg(path);
        return false;
    }
    return true;
}

bool copyReplacing(const QString& from, const QString& to, QString& error)
{
    if (QFileInfo(from).canonicalFilePath() == QFileInfo(to).canonicalFilePath() && QFile::exists(to))
        return true;
    // Copied under a temporary name beside the target, then renamed over it.
    QFile source(from);
    QSaveFile target(to);
    if (!source.open(QIODevice::ReadOnly) || !target.open(QIODevice::WriteOnly)) {
        error = QStringLiteral("Cannot copy %1 to %2").arg(from, to);
        return false;
    }
    while (!source.atEnd()) {
        const QByteArray block = source.read(1 << 20);
        if (block.isEmpty() || target.write(block) != block.size()) {
            error = QStringLiteral("Cannot copy %1 to %2").arg(from, to);
            return false;
        }
    }
    if (!target.commit()) {
        error = QStringLiteral("Cannot copy %1 to %2").arg(from, to);
        return false;
    }
    return true;
}

bool writeTexture(const QString& from, const QString& to, QString& error)
{
    const QString suffix = QFileInfo(from).suffix().toLower();
    if (suffix == QLatin1String("tif") || suffix == QLatin1String("tiff"))
        return copyReplacing(from, to, error);
    Welk::WImg image;
    QString imageError;
    if (!image.load(from, &imageError)) {
        error = QStringLiteral("Cannot read texture %1: %2").arg(from, imageError);
        return false;
    }
    if (!image.save(to, &imageError)) {
        error = QStringLiteral("Cannot write texture %1: %2").arg(to, imageError);
        return false;
    }
    return true;
}

} // namespace

QByteArray ExchangeFolderWriter::viewportParametersBytes(const PluginGLVisualParams& params)
{
    uchar p[44] = {};
    const auto colour = [](const QColor& c, uchar* bgra) {
        bgra[0] = uchar(c.blue());
        bgra[1] = uchar(c.green());
        bgra[2] = uchar(c.red());
        bgra[3] = 255;
    };
    colour(params.backgroundColor, p);
    colour(params.secondColor, p + 4);
    colour(params.thirdColor, p + 8);
    qToLittleEndian<float>(params.gradientA, p + 12);
    qToLittleEndian<float>(params.gradientB, p + 16);
    qToLittleEndian<float>(params.gradientC, p + 20);
    qToLittleEndian<qint32>(params.perspective ? 1 : 0, p + 24);
    qToLittleEndian<qint32>(qint32(params.fieldOfView * 2.0f), p + 28);
    qToLittleEndian<qint32>(params.viewportOptionA ? 1 : 0, p + 32);
    qToLittleEndian<qint32>(params.viewportOptionB ? 1 : 0, p + 36);
    qToLittleEndian<qint32>(params.viewportMode, p + 40);
    return QByteArray(reinterpret_cast<const char*>(p), sizeof p);
}

QByteArray ExchangeFolderWriter::subtoolRecord(int index, bool hasTexture, const QString& name)
{
    uchar p[248] = {};
    qToLittleEndian<qint32>(index, p);
    qToLittleEndian<qint32>(hasTexture ? 1 : 0, p + 4);
    // The name field holds 240 bytes with its terminating zero.
    const QByteArray utf8 = name.toUtf8().left(239);
    std::copy(utf8.begin(), utf8.end(), p + 8);
    return QByteArray(reinterpret_cast<const char*>(p), sizeof p);
}

bool ExchangeFolderWriter::write(const ExchangeExport& exchange, QString& error)
{
    const QDir folder(exchange.folder);
    const QString filesDir = folder.filePath(QStringLiteral("Files"));
    if (!QDir().mkpath(filesDir)) {
        error = QStringLiteral("Cannot create folder %1").arg(filesDir);
        return false;
    }

    QByteArray subtools;
    for (int i = 0; i < 2; ++i) {
        const SubtoolExport& subtool = exchange.subtools[i];
        if (subtool.name.isEmpty()) {
            error = QStringLiteral("Subtool %1 has no name").arg(i + 1);
            return false;
        }
        const QString meshPath = filesDir + QLatin1Char('/') + subtool.name + QStringLiteral(".GoZ");
        if (!subtool.copyFrom.isEmpty()) {
            if (!copyReplacing(subtool.copyFrom, meshPath, error))
                return false;
        } else if (!subtool.goz.write(meshPath)) {
            error = QStringLiteral("Cannot write file %1").arg(meshPath);
            return false;
        }
        const bool hasTexture = !subtool.texturePath.isEmpty();
        if (hasTexture &&
            !writeTexture(subtool.texturePath, ExchangeFolder::expectedTexturePath(QFileInfo(meshPath)), error))
            return false;
        subtools += subtoolRecord(i, hasTexture, subtool.name);
    }

    if (!writeFile(folder.filePath(QStringLiteral("subtools.txt")), subtools, error) ||
        !writeFile(folder.filePath(QStringLiteral("params.txt")), viewportParametersBytes(exchange.params), error) ||
        !writeFile(folder.filePath(QStringLiteral("status.txt")), exchange.modeWord.toUtf8(), error))
        return false;
    // Left over from an earlier run, it would tell the plug-in a result is ready.
    QFile::remove(folder.filePath(QStringLiteral("import.txt")));

    if (!exchange.applicationDir.isEmpty()) {
        const QString redirect = QDir(exchange.applicationDir).filePath(QStringLiteral("TempDirPath.txt"));
        if (!writeFile(redirect, folder.absolutePath().toUtf8(), error))
            return false;
    }
    return true;
}

} // namespace WelkPlugin
