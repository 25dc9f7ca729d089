#include "TestFiles.h"

#include <QDir>
#include <QFile>

namespace TestSupport {

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString sharedDataFile(const QString& relativePath)
{
    const QString path = QDir(QStringLiteral(ZWELK_SHARED_DATA)).filePath(relativePath);
    return QFile::exists(path) ? QDir::cleanPath(path) : QString();
}

} // namespace TestSupport
