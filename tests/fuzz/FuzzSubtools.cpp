// subtools.txt: the names of the two subtools, resolved against a mesh
// folder that holds a few files.
#include "FuzzInput.h"

#include "app/exchange/ExchangeFolder.h"

using namespace WelkPlugin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = [] {
        QDir dir(ZWelkFuzz::workDir());
        dir.mkpath(QStringLiteral("Files"));
        for (const char* name : {"Files/1_Base.GoZ", "Files/2_Scan.GoZ", "Files/1_Base_TXTR.tif"}) {
            QFile file(dir.filePath(QLatin1String(name)));
            file.open(QIODevice::WriteOnly);
        }
        return true;
    }();
    (void)ready;
    ZWelkFuzz::writeInput(QStringLiteral("subtools.txt"), data, size);
    ExchangeFolder exchange(ZWelkFuzz::workDir());
    exchange.setTemporaryDir(ZWelkFuzz::workDir());
    QVector<bool> flags;
    QString error;
    const QFileInfoList files = exchange.getModelFilenames(flags, error);
    const QString problem = exchange.modelFilesProblem();
    if (exchange.setModelFiles(files)) {
        (void)exchange.resultMeshPath();
        (void)exchange.textureFilePath(0);
        (void)exchange.textureFilePath(1);
    }
    (void)problem;
    return 0;
}
