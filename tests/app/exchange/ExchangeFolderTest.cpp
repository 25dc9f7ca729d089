#include "ExchangeFixture.h"

#include "support/TestFiles.h"

#include <QDir>
#include <QtEndian>

using namespace WelkPlugin;

namespace {

QByteArray records(const QVector<QPair<bool, QString>>& subtools)
{
    QByteArray bytes;
    for (int i = 0; i < subtools.size(); ++i)
        bytes += ExchangeFolderWriter::subtoolRecord(i, subtools[i].first, subtools[i].second);
    return bytes;
}

QStringList names(const QFileInfoList& files)
{
    QStringList result;
    for (const QFileInfo& f : files)
        result << f.fileName();
    return result;
}

} // namespace

using SubtoolsFile = ExchangeFixture;

TEST_F(SubtoolsFile, ListsTheNamedRecordsInOrderWithTheirTextureFlags)
{
    touch(folder() + QStringLiteral("/subtools.txt"),
          records({{true, QStringLiteral("2_Scan")}, {false, QString()}, {false, QStringLiteral("1_Head")}}));
    QVector<bool> flags;
    QString error;
    const QFileInfoList files = exchange().getModelFilenames(flags, error);
    EXPECT_TRUE(error.isEmpty());
    EXPECT_EQ(names(files), (QStringList{QStringLiteral("2_Scan.GoZ"), QStringLiteral("1_Head.GoZ")}));
    EXPECT_EQ(files[0].absoluteFilePath(), meshPath(QStringLiteral("2_Scan.GoZ")));
    // The empty record is skipped with its flag.
    EXPECT_EQ(flags, (QVector<bool>{true, false}));

    // The files swap into place: element 0 is the "1_" subtool.
    ExchangeFolder e = exchange();
    ASSERT_TRUE(e.setModelFiles(files));
    EXPECT_EQ(e.meshFileName(0), QStringLiteral("1_Head.GoZ"));
    EXPECT_EQ(e.meshFileName(1), QStringLiteral("2_Scan.GoZ"));
}

TEST_F(SubtoolsFile, WrongRecordCountsSetTheMeshFolderAsError)
{
    QVector<bool> flags;
    QString error;
    touch(folder() + QStringLiteral("/subtools.txt"),
          records({{false, QStringLiteral("1_a")}, {false, QStringLiteral("2_b")}, {false, QStringLiteral("3_c")}}));
    QFileInfoList files = exchange().getModelFilenames(flags, error);
    EXPECT_EQ(error, exchange().filesDirPath());
    // Three entries still start: the first two are used.
    ExchangeFolder e = exchange();
    EXPECT_TRUE(e.setModelFiles(files));
    EXPECT_EQ(e.meshFiles().size(), 3);

    error.clear();
    touch(folder() + QStringLiteral("/subtools.txt"), records({{false, QStringLiteral("1_a")}}));
    files = exchange().getModelFilenames(flags, error);
    EXPECT_EQ(files.size(), 1);
    EXPECT_EQ(error, exchange().filesDirPath());
    EXPECT_FALSE(e.setModelFiles(files));

    // An empty file opened fine: the folder scan is not tried.
    error.clear();
    touch(meshPath(QStringLiteral("1_x.GoZ")));
    touch(meshPath(QStringLiteral("2_y.GoZ")));
    touch(folder() + QStringLiteral("/subtools.txt"));
    files = exchange().getModelFilenames(flags, error);
    EXPECT_TRUE(files.isEmpty());
    EXPECT_EQ(error, exchange().filesDirPath());
}

using FolderScan = ExchangeFixture;

TEST_F(FolderScan, FindsPrefixedFilesAndOrdersThem)
{
    touch(meshPath(QStringLiteral("2_a.obj")));
    touch(meshPath(QStringLiteral("notes.obj")));
    touch(meshPath(QStringLiteral("1_b.obj")));
    QVector<bool> flags;
    QString error;
    const QFileInfoList files = exchange().getModelFilenames(flags, error);
    EXPECT_TRUE(error.isEmpty());
    EXPECT_TRUE(flags.isEmpty());
    ExchangeFolder e = exchange();
    ASSERT_TRUE(e.setModelFiles(files));
    EXPECT_EQ(e.meshFileName(0), QStringLiteral("1_b.obj"));
    EXPECT_EQ(e.meshFileName(1), QStringLiteral("2_a.obj"));
}

TEST_F(FolderScan, RefusesToMixGoZAndObjButIgnoresSuffixCase)
{
    touch(meshPath(QStringLiteral("1_a.GoZ")));
    touch(meshPath(QStringLiteral("2_b.obj")));
    QVector<bool> flags;
    QString error;
    EXPECT_TRUE(exchange().getModelFilenames(flags, error).isEmpty());
    EXPECT_EQ(error, exchange().filesDirPath());

    EXPECT_TRUE(exchange().modelFilesProblem().contains(QStringLiteral("both .GoZ or both .obj")));

    QFile::remove(meshPath(QStringLiteral("2_b.obj")));
    touch(meshPath(QStringLiteral("2_b.goz")));
    error.clear();
    EXPECT_EQ(exchange().getModelFilenames(flags, error).size(), 2);
    EXPECT_TRUE(error.isEmpty());
    EXPECT_TRUE(exchange().modelFilesProblem().isEmpty());
}

TEST_F(SubtoolsFile, ProblemsAreSaidInWords)
{
    const QString subtools = folder() + QStringLiteral("/subtools.txt");
    touch(subtools, "garbage that is no subtool record");
    EXPECT_TRUE(exchange().modelFilesProblem().contains(QStringLiteral("33 bytes"))) << exchange().modelFilesProblem().toStdString();
    touch(subtools, records({{false, QStringLiteral("1_Head")}}));
    EXPECT_TRUE(exchange().modelFilesProblem().contains(QStringLiteral("names 1 subtools")))
        << exchange().modelFilesProblem().toStdString();
    touch(subtools, records({{false, QStringLiteral("1_Head")}, {false, QStringLiteral("2_Scan")}}));
    EXPECT_TRUE(exchange().modelFilesProblem().isEmpty());
}

TEST_F(FolderScan, TextureNamesReplaceNonWordCharacters)
{
    touch(meshPath(QStringLiteral("1_My Head.GoZ")));
    touch(meshPath(QStringLiteral("2_Scan.v2.GoZ")));
    touch(meshPath(QStringLiteral("1_My_Head_TXTR.tif")));
    ExchangeFolder e = exchange();
    QVector<bool> flags;
    QString error;
    ASSERT_TRUE(e.setModelFiles(e.getModelFilenames(flags, error)));
    EXPECT_EQ(e.textureFileName(0), QStringLiteral("1_My_Head_TXTR.tif"));
    // "2_Scan.v2" has the base name "2_Scan", whose texture is missing.
    EXPECT_EQ(ExchangeFolder::expectedTexturePath(QFileInfo(meshPath(QStringLiteral("2_Scan.v2.GoZ")))),
              meshPath(QStringLiteral("2_Scan_TXTR.tif")));
    EXPECT_TRUE(e.textureFilePath(1).isEmpty());
    EXPECT_EQ(ExchangeFolder::sanitizedName(QStringLiteral("a-b c.d")), QStringLiteral("a_b_c_d"));
}

using ViewportParameters = ExchangeFixture;

TEST_F(ViewportParameters, DefaultsWithoutTheFile)
{
    QString error;
    const PluginGLVisualParams p = exchange().loadViewportParameters(error);
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(p.backgroundColor, QColor(44, 44, 44));
    EXPECT_FLOAT_EQ(p.fieldOfView, 25.0f);
    EXPECT_FLOAT_EQ(p.gradientB, 0.75f);
    EXPECT_FALSE(p.perspective);
}

TEST_F(ViewportParameters, DecodesTheFortyFourBytes)
{
    PluginGLVisualParams written;
    written.backgroundColor = QColor(10, 20, 30);
    written.secondColor = QColor(255, 0, 128);
    written.thirdColor = QColor(1, 2, 3);
    written.gradientA = 0.1f;
    written.gradientB = -2.0f;
    written.gradientC = 7.5f;
    written.perspective = true;
    written.fieldOfView = 45.0f;
    written.viewportOptionB = true;
    written.viewportMode = 3;
    const QByteArray bytes = ExchangeFolderWriter::viewportParametersBytes(written);
    ASSERT_EQ(bytes.size(), 44);
    // Colours are stored blue first.
    EXPECT_EQ(bytes.left(4), QByteArray("\x1e\x14\x0a\xff", 4));
    touch(folder() + QStringLiteral("/params.txt"), bytes);

    QString error;
    const PluginGLVisualParams read = exchange().loadViewportParameters(error);
    EXPECT_TRUE(error.isEmpty());
    EXPECT_EQ(read.backgroundColor.rgba64(), QRgba64::fromRgba64(10 * 257, 20 * 257, 30 * 257, 0xFFFF));
    EXPECT_EQ(read.secondColor, QColor(255, 0, 128));
    EXPECT_FLOAT_EQ(read.gradientB, -2.0f);
    EXPECT_TRUE(read.perspective);
    EXPECT_FLOAT_EQ(read.fieldOfView, 45.0f);
    EXPECT_FALSE(read.viewportOptionA);
    EXPECT_TRUE(read.viewportOptionB);
    EXPECT_TRUE(read.viewportModeIsOdd());
    EXPECT_TRUE(read.viewportModeAboveOne());
}

TEST_F(ViewportParameters, FieldOfViewIsHalvedThenRangeChecked)
{
    const auto fov = [](qint32 doubled) {
        QByteArray bytes(44, '\0');
        qToLittleEndian<qint32>(doubled, bytes.data() + 28);
        return ExchangeFolder::parseViewportParameters(bytes).fieldOfView;
    };
    EXPECT_FLOAT_EQ(fov(70), 35.0f);
    EXPECT_FLOAT_EQ(fov(200), 35.0f);
    EXPECT_FLOAT_EQ(fov(4), 2.0f);
    EXPECT_FLOAT_EQ(fov(3), 35.0f);
    EXPECT_FLOAT_EQ(fov(180), 90.0f);
    EXPECT_FLOAT_EQ(fov(-2), 35.0f);
    // A short file reads its missing fields as zero.
    EXPECT_FLOAT_EQ(ExchangeFolder::parseViewportParameters(QByteArray(20, '\x01')).fieldOfView, 35.0f);
}

using ApplicationModeWord = ExchangeFixture;

TEST_F(ApplicationModeWord, ArgumentFirstThenStatusFile)
{
    const ExchangeFolder e = exchange();
    const QString program = QStringLiteral("ZWelk");
    EXPECT_EQ(e.readApplicationMode({program, QStringLiteral("texture")}), TextureMode);
    EXPECT_EQ(e.readApplicationMode({program, QStringLiteral("textures please")}), TextureMode);
    EXPECT_EQ(e.readApplicationMode({program, QStringLiteral("Texture")}), WelkMode);
    EXPECT_EQ(e.readApplicationMode({program, QStringLiteral("anything")}), WelkMode);
    EXPECT_EQ(e.readApplicationMode({program}), WelkMode);

    touch(e.statusFilePath(), "texture");
    EXPECT_EQ(e.readApplicationMode({program}), TextureMode);
    // The argument wins over the file.
    EXPECT_EQ(e.readApplicationMode({program, QStringLiteral("welk")}), WelkMode);
    touch(e.statusFilePath(), QByteArray("tex\0ture", 8));
    EXPECT_EQ(e.readApplicationMode({program}), WelkMode);
    // Only eight bytes are read.
    touch(e.statusFilePath(), "welk    texture");
    EXPECT_EQ(e.readApplicationMode({program}), WelkMode);
}

using UtilityFiles = ExchangeFixture;

TEST_F(UtilityFiles, TempDirPathRedirectsTheExchange)
{
    QTemporaryDir appDir;
    TestSupport::writeFile(appDir.filePath(QStringLiteral("TempDirPath.txt")), ("  " + folder() + "\n").toUtf8());
    ExchangeFolder e(appDir.path());
    QString error;
    EXPECT_TRUE(e.checkUtilityFiles(error)) << error.toStdString();
    EXPECT_EQ(e.temporaryDirPath(), QDir(folder()).absolutePath() + QLatin1Char('/'));
    EXPECT_EQ(e.filesDirPath(), QDir(filesDir()).absolutePath() + QLatin1Char('/'));

    QDir(filesDir()).removeRecursively();
    EXPECT_FALSE(e.checkUtilityFiles(error));
    EXPECT_EQ(error, QDir(filesDir()).absolutePath());

    TestSupport::writeFile(appDir.filePath(QStringLiteral("TempDirPath.txt")), "/no/such/folder");
    EXPECT_FALSE(e.checkUtilityFiles(error));
    EXPECT_EQ(error, QStringLiteral("/no/such/folder"));
}

TEST_F(UtilityFiles, WithoutRedirectTheFallbackFolderIsUsed)
{
    QTemporaryDir appDir;
    ExchangeFolder e(appDir.path());
    EXPECT_EQ(e.temporaryDirPath(), ExchangeFolder::defaultTemporaryDir() + QLatin1Char('/'));
    EXPECT_EQ(e.applicationDirPath(), QDir(appDir.path()).absolutePath() + QLatin1Char('/'));
}

using EndOfRun = ExchangeFixture;

TEST_F(EndOfRun, ResultNameDropsThePrefixAndImportFileIsEmpty)
{
    writeExport();
    ExchangeFolder e = exchange();
    QVector<bool> flags;
    QString error;
    ASSERT_TRUE(e.setModelFiles(e.getModelFilenames(flags, error)));
    EXPECT_EQ(e.resultMeshPath(), meshPath(QStringLiteral("Head.GoZ")));
    EXPECT_EQ(e.resultTexturePath(), meshPath(QStringLiteral("1_Head_TXTR.tif")));

    EXPECT_TRUE(e.createImportFile());
    EXPECT_TRUE(QFile::exists(e.importFilePath()));
    EXPECT_EQ(QFileInfo(e.importFilePath()).size(), 0);
    // An existing import.txt is left as it is.
    touch(e.importFilePath(), "kept");
    EXPECT_TRUE(e.createImportFile());
    EXPECT_EQ(TestSupport::readFile(e.importFilePath()), QByteArray("kept"));
    e.removeImportFile();
    EXPECT_FALSE(QFile::exists(e.importFilePath()));

    EXPECT_TRUE(QFile::exists(e.statusFilePath()));
    e.removeStatusFile();
    EXPECT_FALSE(QFile::exists(e.statusFilePath()));
    EXPECT_TRUE(e.createStatusFile());
    EXPECT_EQ(TestSupport::readFile(e.statusFilePath()), QByteArray("running"));
}

TEST_F(EndOfRun, CleanupKeepsTheCurrentFilesAndLeavesForeignFoldersAlone)
{
    writeExport(writeImage(QStringLiteral("t.tif")));
    touch(meshPath(QStringLiteral("Old.GoZ")));
    touch(meshPath(QStringLiteral("1_Old_TXTR.TIF")));
    ExchangeFolder e = exchange();
    QVector<bool> flags;
    QString error;
    ASSERT_TRUE(e.setModelFiles(e.getModelFilenames(flags, error)));

    ExchangeFolder::Cleanup plan = e.planCleanup();
    EXPECT_FALSE(plan.foreign);
    QStringList planned;
    for (const QString& path : plan.filesToDelete)
        planned << QFileInfo(path).fileName();
    planned.sort();
    EXPECT_EQ(planned, (QStringList{QStringLiteral("1_Old_TXTR.TIF"), QStringLiteral("Old.GoZ")}));
    EXPECT_TRUE(ExchangeFolder::deleteFiles(plan.filesToDelete).isEmpty());
    EXPECT_TRUE(QFile::exists(meshPath(QStringLiteral("1_Head.GoZ"))));
    EXPECT_TRUE(QFile::exists(meshPath(QStringLiteral("1_Head_TXTR.tif"))));

    touch(meshPath(QStringLiteral("Old.GoZ")));
    touch(meshPath(QStringLiteral("holiday.jpg")));
    plan = e.planCleanup();
    EXPECT_TRUE(plan.foreign);
    EXPECT_TRUE(plan.filesToDelete.isEmpty());
    QFile::remove(meshPath(QStringLiteral("holiday.jpg")));
    QDir(filesDir()).mkdir(QStringLiteral("sub"));
    EXPECT_TRUE(e.planCleanup().foreign);
}
