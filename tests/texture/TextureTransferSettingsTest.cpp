// The texture step's remembered values in an ini file, as the window keeps
// them between runs.
#include "steps/texture/TextureTransferSettings.h"

#include <gtest/gtest.h>

#include <QSettings>
#include <QTemporaryDir>

#include <limits>

using WelkPlugin::TextureTransferSettings;

namespace {

class TextureTransferSettingsFile : public ::testing::Test
{
protected:
    QTemporaryDir m_dir;
};

TEST_F(TextureTransferSettingsFile, ValuesComeBackButTheTileOffsetsStartAtZero)
{
    TextureTransferSettings written;
    written.width = 2048;
    written.height = 512;
    written.limitDistance = true;
    written.distance = 0.25;
    written.uOffset = 3;
    written.vOffset = -1;
    written.fillEmptyTexels = false;
    {
        QSettings settings(m_dir.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);
        written.write(settings);
    }
    QSettings settings(m_dir.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);
    const TextureTransferSettings read = TextureTransferSettings::read(settings);
    EXPECT_EQ(read.width, 2048);
    EXPECT_EQ(read.height, 512);
    EXPECT_TRUE(read.limitDistance);
    EXPECT_DOUBLE_EQ(read.distance, 0.25);
    EXPECT_EQ(read.uOffset, 3);
    EXPECT_EQ(read.vOffset, -1);
    EXPECT_FALSE(read.fillEmptyTexels);
    EXPECT_FLOAT_EQ(read.maxDistance(), 0.25f);

    const TextureTransferSettings started = TextureTransferSettings::readAtStartup(settings);
    EXPECT_EQ(started.width, 2048);
    EXPECT_EQ(started.uOffset, 0);
    EXPECT_EQ(started.vOffset, 0);
    // The reset is in the file too, not only in the returned values.
    QSettings again(m_dir.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);
    EXPECT_EQ(again.value(QStringLiteral("textureTransferSettings/UOffset")).toInt(), 0);
}

TEST_F(TextureTransferSettingsFile, UnusableValuesTakeTheDefaults)
{
    QSettings settings(m_dir.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);
    settings.setValue(QStringLiteral("textureTransferSettings/Width"), 0);
    settings.setValue(QStringLiteral("textureTransferSettings/Height"), 99999);
    settings.setValue(QStringLiteral("textureTransferSettings/Distance"), QStringLiteral("far"));
    const TextureTransferSettings read = TextureTransferSettings::read(settings);
    const TextureTransferSettings defaults;
    EXPECT_EQ(read.width, defaults.width);
    EXPECT_EQ(read.height, defaults.height);
    EXPECT_DOUBLE_EQ(read.distance, defaults.distance);
    EXPECT_FALSE(read.limitDistance);
    EXPECT_EQ(read.maxDistance(), std::numeric_limits<float>::max());
}

} // namespace
