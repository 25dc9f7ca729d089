// The classic fit's parameters as a JSON file, and their validation.
#include "FuzzInput.h"

#include "fitting/classic/WelkingParameters.h"

using namespace Welk;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = ZWelkFuzz::writeInput(QStringLiteral("parameters.json"), data, size);
    WelkingParameters parameters;
    QString error;
    if (WelkingParameters::load(path, parameters, error))
        (void)parameters.validate();
    return 0;
}
