// Fit settings .ini files, read for both dialogs; what is read must save
// and read back to the same values.
#include "FuzzInput.h"

#include "steps/fitting/WelkingSettingsFile.h"

using namespace WelkPlugin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = ZWelkFuzz::writeInput(QStringLiteral("settings.ini"), data, size);
    for (WelkingSettingsFile::Dialog dialog : {WelkingSettingsFile::Dialog::Current, WelkingSettingsFile::Dialog::Preset}) {
        WelkingSettings settings = WelkingSettingsFile::defaults(dialog);
        QString error;
        if (!WelkingSettingsFile::load(path, settings, error, dialog))
            continue;
        const QString back = ZWelkFuzz::workDir() + QStringLiteral("/back.ini");
        QFile::remove(back);
        if (!WelkingSettingsFile::save(back, settings, error))
            abort();
    }
    return 0;
}
