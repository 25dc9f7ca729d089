#include "ExchangeInput.h"

namespace ZWelkBatch {

std::shared_ptr<WelkPlugin::ModelsData> loadExchangeModels(const QString& dir, WelkPlugin::ExchangeFolder& exchange,
                                                           QString& error)
{
    exchange.setTemporaryDir(dir);
    if (!exchange.checkFolders(error)) {
        error = QStringLiteral("Folder for temporary files does not exist:\n") + error;
        return nullptr;
    }
    // As ZWelk at its start: an earlier run's import.txt must not announce
    // a result this run did not write.
    exchange.removeImportFile();
    QVector<bool> flags;
    QString listError;
    if (!exchange.setModelFiles(exchange.getModelFilenames(flags, listError))) {
        error = QStringLiteral("Can't find mesh files required to start ZWelk in a directory:\n") +
                exchange.filesDirPath() + QLatin1Char('\n') + exchange.modelFilesProblem();
        return nullptr;
    }
    std::shared_ptr<WelkPlugin::ModelsData> models = WelkPlugin::loadModelsData(exchange, flags, error);
    if (!error.isEmpty()) {
        error = QStringLiteral("Cannot open file\n") + error;
        return nullptr;
    }
    return models;
}

} // namespace ZWelkBatch
