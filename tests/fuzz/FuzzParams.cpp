// params.txt: the viewport parameters, through the folder as a run reads it.
#include "FuzzInput.h"

#include "app/exchange/ExchangeFolder.h"

using namespace WelkPlugin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = QDir(ZWelkFuzz::workDir()).mkpath(QStringLiteral("Files"));
    (void)ready;
    ZWelkFuzz::writeInput(QStringLiteral("params.txt"), data, size);
    ExchangeFolder exchange(ZWelkFuzz::workDir());
    exchange.setTemporaryDir(ZWelkFuzz::workDir());
    QString error;
    const PluginGLVisualParams fromFile = exchange.loadViewportParameters(error);
    const PluginGLVisualParams fromBytes = ExchangeFolder::parseViewportParameters(ZWelkFuzz::bytes(data, size));
    (void)fromFile;
    (void)fromBytes;
    return 0;
}
