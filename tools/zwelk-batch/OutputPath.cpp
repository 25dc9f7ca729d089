#include "OutputPath.h"

#include <QDir>
#include <QFileInfo>

namespace ZWelkBatch {

bool sameFile(const QString& a, const QString& b)
{
    if (a.isEmpty() || b.isEmpty())
        return false;
    const QFileInfo x(a), y(b);
    if (QDir::cleanPath(x.absoluteFilePath()) == QDir::cleanPath(y.absoluteFilePath()))
        return true;
    return x.exists() && y.exists() && x.canonicalFilePath() == y.canonicalFilePath();
}

bool checkOutputPath(const QString& option, const QString& path, const QStringList& extensions,
                     const QStringList& inputs, QString& error)
{
    const QFileInfo info(path);
    if (!extensions.contains(info.suffix().toLower())) {
        QStringList dotted;
        for (const QString& e : extensions)
            dotted.append(QLatin1Char('.') + e);
        error = QStringLiteral("%1 %2: the file name must end in %3").arg(option, path, dotted.join(QStringLiteral(" or ")));
        return false;
    }
    if (info.isDir()) {
        error = QStringLiteral("%1 %2: this is a folder, not a file name").arg(option, path);
        return false;
    }
    const QFileInfo folder(info.absolutePath());
    if (!folder.exists() || !folder.isDir()) {
        error = QStringLiteral("%1 %2: the folder %3 does not exist").arg(option, path, info.absolutePath());
        return false;
    }
    if (!folder.isWritable() || (info.exists() && !info.isWritable())) {
        error = QStringLiteral("%1 %2: no permission to write there").arg(option, path);
        return false;
    }
    for (const QString& input : inputs)
        if (sameFile(path, input)) {
            error = QStringLiteral("%1 %2: this is also an input file, and would be overwritten").arg(option, path);
            return false;
        }
    return true;
}

} // namespace ZWelkBatch
