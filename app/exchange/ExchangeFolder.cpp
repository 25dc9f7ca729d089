#include "ExchangeFolder.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QtEndian>

namespace WelkPlugin {

namespace {

constexpr int SubtoolRecordSize = 248;
constexpr int SubtoolNameSize = 240;
constexpr int ParamsSize = 44;

QString withSlash(const QString& dir)
{
    QString path = QDir(dir).absolutePath();
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return path;
}

} // namespace

QString ExchangeFolder::defaultTemporaryDir()
{
#if defined(Q_OS_WIN)
    return QStringLiteral("C:/Users/Public/Seproniom/ZWelk");
#elif defined(Q_OS_MACOS)
    return QStringLiteral("/Users/Shared/Seproniom/ZWelk");
#else
    return QDir::tempPath() + QStringLiteral("/Seproniom/ZWelk");
#endif
}

ExchangeFolder::ExchangeFolder(const QString& applicationDir)
    : m_applicationDir(applicationDir), m_temporaryDir(defaultTemporaryDir()),
      m_filesDir(defaultTemporaryDir() + QStringLiteral("/Files"))
{
    if (m_applicationDir.isEmpty())
        m_applicationDir =
            QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QDir::currentPath();
    m_applicationDir = QDir(m_applicationDir).absolutePath();
}

bool ExchangeFolder::checkUtilityFiles(QString& error)
{
    // ZBrush's plug-in may redirect the exchange through a file beside us.
    QFile redirect(applicationDirPath() + m_tempDirPathFileName);
    if (redirect.exists()) {
        QString path;
        if (redirect.open(QIODevice::ReadOnly))
            path = QString::fromUtf8(redirect.readAll()).trimmed();
        m_temporaryDir = path;
        m_filesDir = QDir(path).filePath(QStringLiteral("Files/"));
    }
    return checkFolders(error);
}

bool ExchangeFolder::checkFolders(QString& error) const
{
    if (!QDir(m_temporaryDir).exists()) {
        error = QDir(m_temporaryDir).absolutePath();
        return false;
    }
    if (!QDir(m_filesDir).exists()) {
        error = QDir(m_filesDir).absolutePath();
        return false;
    }
    return true;
}

void ExchangeFolder::setTemporaryDir(const QString& path)
{
    m_temporaryDir = path;
    m_filesDir = QDir(path).filePath(QStringLiteral("Files/"));
}

ApplicationMode ExchangeFolder::modeFromWord(const QString& word)
{
    // The plug-in writes "welk" or "texture"; anything unknown means welk.
    return word.startsWith(QLatin1String("texture"), Qt::CaseSensitive) ? TextureMode : WelkMode;
}

ApplicationMode ExchangeFolder::readApplicationMode(const QStringList& arguments) const
{
    if (arguments.size() > 1)
        return modeFromWord(arguments.at(1));
    QString word;
    QFile status(statusFilePath());
    if (status.open(QIODevice::ReadOnly)) {
        QByteArray bytes = status.read(8);
        const int zero = bytes.indexOf('\0');
        if (zero >= 0)
            bytes.truncate(zero);
        word = QString::fromUtf8(bytes);
    }
    return modeFromWord(word);
}

PluginGLVisualParams ExchangeFolder::parseViewportParameters(const QByteArray& data)
{
    QByteArray bytes = data.left(ParamsSize);
    bytes.append(QByteArray(ParamsSize - bytes.size(), '\0'));
    const uchar* p = reinterpret_cast<const uchar*>(bytes.constData());
    const auto colour = [](const uchar* bgra) {
        // Widened to 16 bits; the alpha byte is ignored: colours are opaque.
        QColor c;
        c.setRgba64(QRgba64::fromRgba64(quint16(bgra[2] * 257), quint16(bgra[1] * 257), quint16(bgra[0] * 257),
                                        0xFFFF));
        return c;
    };
    PluginGLVisualParams params;
    params.backgroundColor = colour(p);
    params.secondColor = colour(p + 4);
    params.thirdColor = colour(p + 8);
    params.gradientA = qFromLittleEndian<float>(p + 12);
    params.gradientB = qFromLittleEndian<float>(p + 16);
    params.gradientC = qFromLittleEndian<float>(p + 20);
    params.perspective = qFromLittleEndian<qint32>(p + 24) != 0;
    // The file stores twice the field of view.
    const float fieldOfView = float(qFromLittleEndian<quint32>(p + 28) >> 1);
    params.fieldOfView = (fieldOfView < 2.0f || fieldOfView > 90.0f) ? 35.0f : fieldOfView;
    params.viewportOptionA = qFromLittleEndian<qint32>(p + 32) != 0;
    params.viewportOptionB = qFromLittleEndian<qint32>(p + 36) != 0;
    params.viewportMode = qFromLittleEndian<qint32>(p + 40);
    return params;
}

PluginGLVisualParams ExchangeFolder::loadViewportParameters(QString& error) const
{
    QFile file(temporaryDirPath() + m_paramsFileName);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("Cannot open file %1").arg(file.fileName());
        return PluginGLVisualParams();
    }
    return parseViewportParameters(file.read(ParamsSize));
}

QFileInfoList ExchangeFolder::getModelFilenames(QVector<bool>& textureFlags, QString& error) const
{
    QFileInfoList result;
    QFile subtools(temporaryDirPath() + m_subtoolsFileName);
    if (subtools.open(QIODevice::ReadOnly)) {
        while (true) {
            const QByteArray record = subtools.read(SubtoolRecordSize);
            if (record.size() < SubtoolRecordSize)
                break;
            const uchar* p = reinterpret_cast<const uchar*>(record.constData());
            const bool hasTexture = qFromLittleEndian<qint32>(p + 4) != 0;
            const char* nameBytes = record.constData() + 8;
            const QString name = QString::fromUtf8(nameBytes, int(qstrnlen(nameBytes, SubtoolNameSize)));
            if (name.isEmpty())
                continue;
            result.append(QFileInfo(filesDirPath() + name + QStringLiteral(".GoZ")));
            textureFlags.append(hasTexture);
            qInfo().noquote() << QStringLiteral("Subtool: ") + name;
        }
        if (result.size() != 2)
            error = filesDirPath();
        return result;
    }

    const QFileInfoList candidates =
        QDir(filesDirPath())
            .entryInfoList({QStringLiteral("*.GoZ"), QStringLiteral("*.obj")}, QDir::Files | QDir::NoDotAndDotDot,
                           QDir::Type);
    for (const QFileInfo& file : candidates) {
        const QString base = file.baseName();
        if (base.startsWith(QLatin1String("1_")) || base.startsWith(QLatin1String("2_")))
            result.append(file);
        if (result.size() == 2)
            break;
    }
    if (result.size() == 2) {
        if (result[0].suffix().compare(result[1].suffix(), Qt::CaseInsensitive) != 0) {
            // GoZ and OBJ may not be mixed in one exchange.
            error = filesDirPath();
            result.clear();
        }
    } else {
        error = filesDirPath();
    }
    return result;
}

QString ExchangeFolder::modelFilesProblem() const
{
    QVector<bool> flags;
    QString error;
    const QFileInfoList files = getModelFilenames(flags, error);
    if (error.isEmpty() && files.size() == 2)
        return QString();
    const QFileInfo subtools(temporaryDirPath() + m_subtoolsFileName);
    if (subtools.exists()) {
        if (subtools.size() % SubtoolRecordSize != 0 || subtools.size() == 0)
            return QStringLiteral("%1 has %2 bytes; the plug-in writes records of %3 bytes, one per subtool. "
                                  "The file is damaged or from another program.")
                .arg(subtools.filePath())
                .arg(subtools.size())
                .arg(SubtoolRecordSize);
        return QStringLiteral("%1 names %2 subtools; two are needed, the basemesh first and the target second.")
            .arg(subtools.filePath())
            .arg(files.size());
    }
    return QStringLiteral("There is no %1, and the folder does not hold a pair of mesh files 1_* and 2_* of one "
                          "type (both .GoZ or both .obj).")
        .arg(m_subtoolsFileName);
}

bool ExchangeFolder::setModelFiles(const QFileInfoList& files)
{
    if (files.size() < 2)
        return false;
    m_meshFiles = files;
    if (m_meshFiles[0].baseName().startsWith(QLatin1String("2_")) &&
        m_meshFiles[1].baseName().startsWith(QLatin1String("1_")))
        m_meshFiles.swapItemsAt(0, 1);
    qDebug().noquote() << "Mesh files:" << m_meshFiles[0].fileName() << m_meshFiles[1].fileName();
    m_textureFiles.clear();
    for (int i = 0; i < 2; ++i) {
        const QFileInfo texture(expectedTexturePath(m_meshFiles[i]));
        m_textureFiles.append(texture.exists() ? texture : QFileInfo());
    }
    return true;
}

QString ExchangeFolder::sanitizedName(const QString& name)
{
    static const QRegularExpression nonWord(QStringLiteral("\\W"));
    QString result = name;
    return result.replace(nonWord, QStringLiteral("_"));
}

QString ExchangeFolder::expectedTexturePath(const QFileInfo& meshFile)
{
    return meshFile.absolutePath() + QLatin1Char('/') + sanitizedName(meshFile.baseName()) +
           QStringLiteral("_TXTR.tif");
}

QString ExchangeFolder::applicationDirPath() const { return withSlash(m_applicationDir); }
QString ExchangeFolder::temporaryDirPath() const { return withSlash(m_temporaryDir); }
QString ExchangeFolder::filesDirPath() const { return withSlash(m_filesDir); }

QString ExchangeFolder::meshFileName(int index) const
{
    return index < m_meshFiles.size() ? m_meshFiles[index].fileName() : QString();
}

QString ExchangeFolder::meshFilePath(int index) const
{
    return index < m_meshFiles.size() ? m_meshFiles[index].absoluteFilePath() : QString();
}

QString ExchangeFolder::textureFileName(int index) const
{
    return index < m_textureFiles.size() ? m_textureFiles[index].fileName() : QString();
}

QString ExchangeFolder::textureFilePath(int index) const
{
    if (index >= m_textureFiles.size() || m_textureFiles[index].filePath().isEmpty())
        return QString();
    return m_textureFiles[index].absoluteFilePath();
}

QString ExchangeFolder::resultMeshPath() const
{
    if (m_meshFiles.isEmpty())
        return QString();
    return m_meshFiles[0].absolutePath() + QLatin1Char('/') + m_meshFiles[0].fileName().mid(2);
}

QString ExchangeFolder::resultTexturePath() const
{
    if (m_meshFiles.isEmpty())
        return QString();
    return expectedTexturePath(m_meshFiles[0]);
}

namespace {

/// Creates `path` holding `content` unless it exists; logs a failure.
bool createFileIfMissing(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (file.exists())
        return true;
    if (!file.open(QIODevice::WriteOnly)) {
        qDebug() << "Cannot create file" << path;
        return false;
    }
    return file.write(content) == content.size();
}

void removeIfPresent(const QString& path)
{
    if (QFile::exists(path))
        QFile::remove(path);
}

} // namespace

bool ExchangeFolder::createImportFile() const
{
    return createFileIfMissing(importFilePath(), QByteArray());
}

bool ExchangeFolder::createStatusFile() const
{
    return createFileIfMissing(statusFilePath(), QByteArrayLiteral("running"));
}

void ExchangeFolder::removeImportFile() const
{
    removeIfPresent(importFilePath());
}

void ExchangeFolder::removeStatusFile() const
{
    removeIfPresent(statusFilePath());
}

ExchangeFolder::Cleanup ExchangeFolder::planCleanup() const
{
    Cleanup plan;
    const QDir dir(filesDirPath());
    qDebug().noquote() << ".. Cleanup .." << dir.absolutePath();
    if (!dir.exists())
        qDebug().noquote() << "Directory" << dir.absolutePath() << "does not exist";

    const QStringList patterns = {QStringLiteral("*.GoZ"), QStringLiteral("*.tif")};
    for (const QFileInfo& entry : dir.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        if (entry.baseName().isEmpty())
            continue;
        if (entry.isDir() ||
            !patterns.contains(QStringLiteral("*.") + entry.suffix(), Qt::CaseInsensitive)) {
            plan.foreign = true;
            return plan;
        }
    }

    QStringList keep;
    for (const QFileInfoList* list : {&m_meshFiles, &m_textureFiles})
        for (int i = 0; i < qMin(2, list->size()); ++i)
            if (!(*list)[i].fileName().isEmpty())
                keep.append((*list)[i].fileName());
    for (const QFileInfo& file : dir.entryInfoList(patterns, QDir::Files | QDir::NoDotAndDotDot)) {
        if (!keep.contains(file.fileName()))
            plan.filesToDelete.append(file.canonicalFilePath());
    }
    return plan;
}

QStringList ExchangeFolder::deleteFiles(const QStringList& paths)
{
    QStringList failed;
    for (const QString& path : paths) {
        if (!QFile::remove(path)) {
            qDebug().noquote() << "Can't delete" << path;
            failed.append(path);
        }
    }
    return failed;
}

} // namespace WelkPlugin
