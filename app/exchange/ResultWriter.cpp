#include "ResultWriter.h"

#include "ModelsData.h"

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

void announceResult(const ModelsData& models)
{
    models.exchange().createImportFile();
}

} // namespace WelkPlugin
