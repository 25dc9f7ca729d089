#include "ExchangeFixture.h"

#include "support/MeshFactory.h"
#include "support/TestFiles.h"

#include "document/WImg.h"
#include "geometry/GoZMeshConversion.h"

#include <QDir>

using namespace WelkPlugin;

ExchangeFixture::ExchangeFixture()
{
    QDir().mkpath(filesDir());
}

void ExchangeFixture::touch(const QString& path, const QByteArray& bytes) const
{
    ASSERT_TRUE(TestSupport::writeFile(path, bytes)) << path.toStdString();
}

ExchangeFolder ExchangeFixture::exchange() const
{
    ExchangeFolder exchange(folder());
    exchange.setTemporaryDir(folder());
    return exchange;
}

void ExchangeFixture::writeExport(const QString& firstTexture, const QString& secondTexture, const QString& mode)
{
    ExchangeExport e;
    e.folder = folder();
    e.modeWord = mode;
    e.subtools[0].name = QStringLiteral("1_Head");
    e.subtools[0].goz = GeometryStack2::gozFromMesh(TestSupport::twoQuads(), "Head");
    e.subtools[0].texturePath = firstTexture;
    e.subtools[1].name = QStringLiteral("2_Scan");
    e.subtools[1].goz = GeometryStack2::gozFromMesh(TestSupport::cube({-1, -1, -1}, {3, 3, 1}), "Scan");
    e.subtools[1].texturePath = secondTexture;
    QString error;
    ASSERT_TRUE(ExchangeFolderWriter::write(e, error)) << error.toStdString();
}

QString ExchangeFixture::writeImage(const QString& name) const
{
    Welk::WImg image(4, 4, 3, Welk::WImg::UInt8);
    const QString path = m_dir.filePath(name);
    EXPECT_TRUE(image.save(path));
    return path;
}
