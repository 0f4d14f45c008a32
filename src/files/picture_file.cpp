#include "picture_file.h"
#include "export_target.h"
#include "library_messages.h"
#include "picture_file_internal.h"
#include "png_reader.h"

#include <QBuffer>
#include <QColorSpace>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QTransform>

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace clarovi::files {

Q_LOGGING_CATEGORY(lcDecoder, "clarovi.decoder", QtCriticalMsg)

namespace {

// Enough for a 100-megapixel picture at 16 bits per channel, which the decoders allocate in one
// piece; a decoder asked for more refuses instead of exhausting memory.
constexpr int kAllocationLimitMiB = int((kMaxPicturePixels * 8 + (1 << 20) - 1) >> 20);
// Decoding a sound picture takes well under 10 ns a pixel here; the budget leaves a slow machine
// a wide margin and still ends a file made to stall the decoder within a few seconds.
constexpr qint64 kBudgetBaseMs = 1000;
constexpr double kBudgetNsPerPixel = 40.0;

QString refusal(const QString& name, const QString& reason) {
    return QStringLiteral("Cannot open \u201c%1\u201d: %2").arg(QFileInfo(name).fileName(), reason);
}

QString oversized(QSize size) {
    return QStringLiteral("the picture is %1 \u00d7 %2 pixels, more than the 100 megapixels "
                          "Clarovi can restore.")
        .arg(size.width())
        .arg(size.height());
}

/// Shows the decoder the pieces of the file the header reader chose, one after the other, until
/// its time is up; then the picture ends where the decoder is: reads give nothing and the device
/// is at its end, which every decoder handles as a truncated file (a failed read is not handled
/// as well by all of them). A picture made to keep a decoder busy thus ends within the budget,
/// and no thread has to be abandoned to a decoder that does not stop.
class PictureView : public QIODevice {
  public:
    PictureView(QIODevice& file, const std::vector<FilePiece>& pieces, qint64 budgetMs)
        : m_file(file), m_pieces(pieces), m_budgetMs(budgetMs) {
        for (const FilePiece& piece : pieces) {
            m_starts.push_back(m_size);
            m_size += piece.size;
        }
        m_clock.start();
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    bool isSequential() const override { return false; }
    qint64 size() const override { return m_expired ? pos() : m_size; }
    bool expired() const { return m_expired; }

  protected:
    qint64 readData(char* data, qint64 maxSize) override {
        if (m_clock.hasExpired(m_budgetMs))
            m_expired = true;
        if (m_expired)
            return 0;
        qint64 done = 0;
        for (qint64 at = pos(); done < maxSize && at < m_size;) {
            const size_t k = size_t(std::upper_bound(m_starts.begin(), m_starts.end(), at) -
                                    m_starts.begin() - 1);
            const FilePiece& piece = m_pieces[k];
            const qint64 within = at - m_starts[k];
            qint64 count = std::min(maxSize - done, piece.size - within);
            if (!piece.replacement.isEmpty())
                std::memcpy(data + done, piece.replacement.constData() + within, size_t(count));
            else if (!m_file.seek(piece.offset + within) ||
                     (count = m_file.read(data + done, count)) <= 0)
                break; // the file changed under us: its picture ends here
            done += count;
            at += count;
        }
        return done;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

  private:
    QIODevice& m_file;
    const std::vector<FilePiece>& m_pieces;
    std::vector<qint64> m_starts;
    qint64 m_size = 0;
    qint64 m_budgetMs;
    QElapsedTimer m_clock;
    bool m_expired = false;
};

void tiffMessage(const char* module, const char* format, va_list arguments) {
    const QString text = QString::vasprintf(format, arguments);
    qCWarning(lcDecoder).noquote() << "libtiff:" << QString::fromLocal8Bit(module) << text;
}

/// What every decoding shares, set once: Qt's TIFF plugin leaves libtiff's messages to its
/// default handlers, which print; and the decoders' allocation limit is a global of Qt's.
void prepareDecoders() {
    static std::once_flag prepared;
    std::call_once(prepared, [] {
        TIFFSetErrorHandler(&tiffMessage);
        TIFFSetWarningHandler(&tiffMessage);
        QImageReader::setAllocationLimit(kAllocationLimitMiB);
    });
}

/// Pictures of more than 8 bits a channel come down to 8 in place: the program works in 8 bits,
/// and a 100-megapixel picture of 16-bit channels would otherwise be held twice.
void toEightBits(QImage& image) {
    if (hasMoreThanEightBits(image.format()))
        image.convertTo(image.format() == QImage::Format_Grayscale16
                            ? QImage::Format_Grayscale8
                            : QImage::Format_ARGB32_Premultiplied);
}

/// image turned as its EXIF orientation (1 to 8) says, keeping its colour space: mirrored and
/// flipped first, then turned a quarter clockwise, as the orientation's transformations are
/// defined.
QImage upright(const QImage& image, int orientation) {
    using T = QImageIOHandler::Transformation;
    static const QImageIOHandler::Transformations byOrientation[] = {
        T::TransformationNone,     T::TransformationNone,
        T::TransformationMirror,   T::TransformationRotate180,
        T::TransformationFlip,     T::TransformationFlipAndRotate90,
        T::TransformationRotate90, T::TransformationMirrorAndRotate90,
        T::TransformationRotate270};
    const QImageIOHandler::Transformations turn = byOrientation[std::clamp(orientation, 0, 8)];
    if (image.isNull() || turn == T::TransformationNone)
        return image;
    QImage turned = image.mirrored(turn & T::TransformationMirror, turn & T::TransformationFlip);
    if (turn & T::TransformationRotate90)
        turned = turned.transformed(QTransform().rotate(90));
    turned.setColorSpace(image.colorSpace());
    return turned;
}

LoadedPicture decode(QIODevice& device, const PictureHeader& header, const QString& name,
                     PictureDepth depth) {
    prepareDecoders();
    const qint64 pixels = qint64(header.size.width()) * header.size.height();
    PictureView view(device, header.picture,
                     kBudgetBaseMs + qint64(kBudgetNsPerPixel * pixels / 1e6));
    QImage image;
    bool tooLarge = false;
    {
        const LibraryMessages messages;
        if (header.format == "png") {
            DecodedPng png = decodePng(view, qint64(kAllocationLimitMiB) << 20);
            image = std::move(png.image);
            tooLarge = png.tooLarge;
        } else {
            QImageReader reader(&view, header.format);
            // Only the decoder of the format the content showed: no other plugin sees the file.
            reader.setAutoDetectImageFormat(false);
            // The orientation is the header's to read, and Qt's turning drops the colour space.
            reader.setAutoTransform(false);
            image = reader.read();
            tooLarge = image.isNull() && messages.mention("allocation limit");
        }
    }
    if (view.expired())
        return {{},
                refusal(name, QStringLiteral("decoding it takes too long: the file is damaged or "
                                             "made to stall the decoder."))};
    if (tooLarge)
        return {{}, refusal(name, oversized(header.size))};
    if (image.isNull())
        return {{},
                refusal(name, QStringLiteral("its picture data cannot be decoded: the file is "
                                             "damaged, or it is a kind of %1 that Clarovi "
                                             "cannot read.")
                                  .arg(QString::fromLatin1(header.format.toUpper())))};
    image = upright(image, header.orientation);
    if (tooLargeToOpen(image.size()))
        return {{}, refusal(name, oversized(image.size()))};
    if (depth == PictureDepth::EightBits)
        toEightBits(image);
    return {image, {}};
}

} // namespace

QString openPictureFile(const QString& path, QFile& file) {
    if (!QFileInfo(path).isFile())
        return refusal(path, QStringLiteral("the file does not exist."));
    // Unbuffered: its structure is read a few bytes here and there across the whole file.
    file.setFileName(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return refusal(path, QStringLiteral("it cannot be read: %1.").arg(file.errorString()));
    return {};
}

LoadedPicture readPicture(const QString& path, PictureDepth depth) {
    QFile file;
    if (const QString error = openPictureFile(path, file); !error.isEmpty())
        return {{}, error};
    return readPicture(file, path, depth);
}

LoadedPicture readPicture(QIODevice& device, const QString& name, PictureDepth depth,
                          PictureHeader* read) {
    if (device.size() == 0)
        return {{}, refusal(name, QStringLiteral("the file is empty."))};
    PictureHeader header = readPictureHeader(device);
    if (header.format.isEmpty())
        return {{},
                refusal(name, QStringLiteral("it is not a PNG, JPEG, TIFF, BMP, WebP or GIF "
                                             "picture."))};
    if (tooLargeToOpen(header.size))
        return {{}, refusal(name, oversized(header.size))};
    if (!header.problem.isEmpty())
        return {{}, refusal(name, header.problem + QLatin1Char('.'))};
    LoadedPicture loaded = decode(device, header, name, depth);
    if (read)
        *read = std::move(header);
    return loaded;
}

LoadedPicture loadPicture(const QString& path) {
    return readPicture(path, PictureDepth::EightBits);
}

LoadedPicture loadPicture(QIODevice& device, const QString& name) {
    return readPicture(device, name, PictureDepth::EightBits);
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
    const LibraryMessages messages; // the encoder's warnings are not the user's business
    if (!picture.save(&buffer, "PNG"))
        return saveFailure(path, QStringLiteral("the picture could not be encoded as PNG."));
    return writeAtomically(path, png);
}

bool hasMoreThanEightBits(QImage::Format format) {
    switch (format) {
    case QImage::Format_Grayscale16:
    case QImage::Format_RGBX64:
    case QImage::Format_RGBA64:
    case QImage::Format_RGBA64_Premultiplied:
    case QImage::Format_RGBX16FPx4:
    case QImage::Format_RGBA16FPx4:
    case QImage::Format_RGBA16FPx4_Premultiplied:
    case QImage::Format_RGBX32FPx4:
    case QImage::Format_RGBA32FPx4:
    case QImage::Format_RGBA32FPx4_Premultiplied:
    case QImage::Format_BGR30:
    case QImage::Format_A2BGR30_Premultiplied:
    case QImage::Format_RGB30:
    case QImage::Format_A2RGB30_Premultiplied:
        return true;
    default:
        return false;
    }
}

} // namespace clarovi::files
