#include "picture_file.h"

#include <QBuffer>
#include <QFileInfo>
#include <QImageReader>
#include <QSaveFile>

namespace clarovi::jobs {

namespace {

QString refusal(const QString& path, const QString& reason) {
    return QStringLiteral("Cannot open \u201c%1\u201d: %2").arg(QFileInfo(path).fileName(), reason);
}

QString saveFailure(const QString& path, const QString& reason) {
    return QStringLiteral("Cannot save \u201c%1\u201d: %2").arg(QFileInfo(path).fileName(), reason);
}

} // namespace

LoadedPicture loadPicture(const QString& path) {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    if (!QFileInfo(path).isFile())
        return {{}, refusal(path, QStringLiteral("the file does not exist."))};
    const QSize size = reader.size();
    if (size.isValid() && qint64(size.width()) * size.height() > kMaxPicturePixels)
        return {{},
                refusal(path, QStringLiteral("the picture is %1 × %2 pixels, more than the "
                                             "100 megapixels Clarovi can restore.")
                                  .arg(size.width())
                                  .arg(size.height()))};
    // Enough for a 100-megapixel picture at 16 bits per channel; anything claiming more is
    // refused by the decoder instead of exhausting memory.
    QImageReader::setAllocationLimit(1024);
    QImage image = reader.read();
    if (image.isNull())
        return {{}, refusal(path, reader.errorString() + QLatin1Char('.'))};
    if (qint64(image.width()) * image.height() > kMaxPicturePixels)
        return {{}, refusal(path, QStringLiteral("the picture is larger than 100 megapixels."))};
    return {image, {}};
}

QString savePathFor(const QString& chosenPath) {
    return QFileInfo(chosenPath).suffix().isEmpty() ? chosenPath + QStringLiteral(".png")
                                                    : chosenPath;
}

QString savePng(const QImage& picture, const QString& path) {
    if (picture.isNull())
        return saveFailure(path, QStringLiteral("there is no restored picture yet."));
    // Encoded in memory first: a full disk then fails the write, not the encoder half-way.
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (!picture.save(&buffer, "PNG"))
        return saveFailure(path, QStringLiteral("the picture could not be encoded as PNG."));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(png) != png.size() || !file.commit())
        return saveFailure(path, file.errorString() + QLatin1Char('.'));
    return {};
}

} // namespace clarovi::jobs
