#include "FitOptions.h"

namespace WelkPlugin {

QString fitEngineName(FitEngine engine)
{
    return engine == FitEngine::Cartoon ? QStringLiteral("cartoon") : QStringLiteral("fast");
}

QStringList fitEngineNames()
{
    return {fitEngineName(FitEngine::Fast), fitEngineName(FitEngine::Cartoon)};
}

bool fitEngineFromName(const QString& name, FitEngine& engine)
{
    for (FitEngine candidate : {FitEngine::Fast, FitEngine::Cartoon})
        if (name.compare(fitEngineName(candidate), Qt::CaseInsensitive) == 0) {
            engine = candidate;
            return true;
        }
    return false;
}

} // namespace WelkPlugin
