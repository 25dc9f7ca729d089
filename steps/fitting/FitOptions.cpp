#include "FitOptions.h"

namespace WelkPlugin {

QString fitEngineName(FitEngine engine)
{
    switch (engine) {
    case FitEngine::Cartoon:
        return QStringLiteral("cartoon");
    case FitEngine::Classic:
        return QStringLiteral("classic");
    default:
        return QStringLiteral("fast");
    }
}

QStringList fitEngineNames()
{
    return {fitEngineName(FitEngine::Fast), fitEngineName(FitEngine::Cartoon), fitEngineName(FitEngine::Classic)};
}

bool fitEngineFromName(const QString& name, FitEngine& engine)
{
    for (FitEngine candidate : {FitEngine::Fast, FitEngine::Cartoon, FitEngine::Classic})
        if (name.compare(fitEngineName(candidate), Qt::CaseInsensitive) == 0) {
            engine = candidate;
            return true;
        }
    return false;
}

} // namespace WelkPlugin
