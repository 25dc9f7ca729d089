// Texture images through WImg, as the texture step loads them. The first
// byte picks the file name's extension, the rest is the file.
#include "FuzzInput.h"

#include "document/WImg.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    static const char* const extensions[] = {"tif", "png", "exr", "jpg", "bmp", "tga"};
    const QString name = QStringLiteral("texture.") + QLatin1String(extensions[data[0] % 6]);
    const QString path = ZWelkFuzz::writeInput(name, data + 1, size - 1);
    Welk::WImg image;
    QString error;
    if (image.load(path, &error)) {
        if (image.isNull() || image.width() <= 0 || image.height() <= 0 || image.channels() < 1 || image.channels() > 4)
            abort(); // success must mean a usable image
    } else if (!image.isNull()) {
        abort(); // a failed load leaves the image null
    }
    QFile::remove(path);
    return 0;
}
