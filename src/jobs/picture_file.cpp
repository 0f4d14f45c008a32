#include "picture_file.h"
#include "picture_file_internal.h"

#include <QBuffer>
#include <QColorSpace>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QSaveFile>
#include <QTransform>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace clarovi::jobs {

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

/// Hands the decoder the picture's bytes until its time is up, then fails every read. Decoders
/// stop at a failed read, so a picture made to keep them busy ends within the budget, and no
/// thread has to be abandoned to a decoder that does not stop.
class DeadlineDevice : public QIODevice {
  public:
    DeadlineDevice(QIODevice& source, qint64 budgetMs) : m_source(source), m_budgetMs(budgetMs) {
        m_clock.start();
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
        m_source.seek(0);
    }
    bool isSequential() const override { return false; }
    qint64 size() const override { return m_source.size(); }
    bool seek(qint64 pos) override { return QIODevice::seek(pos) && m_source.seek(pos); }
    bool expired() const { return m_expired; }

  protected:
    qint64 readData(char* data, qint64 maxSize) override {
        if (m_clock.hasExpired(m_budgetMs)) {
            m_expired = true;
            return -1;
        }
        return m_source.read(data, maxSize);
    }
    qint64 writeData(const char*, qint64) override { return -1; }

  private:
    QIODevice& m_source;
    qint64 m_budgetMs;
    QElapsedTimer m_clock;
    bool m_expired = false;
};

/// While alive, what the image libraries report on this thread is kept here instead of printed,
/// and passed on only when lcDecoder's warnings are enabled. Most of it comes through Qt's message
/// handler; libpng writes its errors straight to the standard error stream, which is therefore
/// sent to a scratch file for the time of the decoding (nothing else of the program prints then).
/// Qt messages of other threads go where they went before.
class DecoderMessages {
  public:
    DecoderMessages() {
        t_current = this;
        s_previous = qInstallMessageHandler(&DecoderMessages::route);
        std::fflush(stderr);
        m_scratch = std::tmpfile();
        m_savedStderr = m_scratch ? ::dup(STDERR_FILENO) : -1;
        if (m_savedStderr >= 0)
            ::dup2(::fileno(m_scratch), STDERR_FILENO);
    }
    ~DecoderMessages() {
        if (m_savedStderr >= 0) {
            std::fflush(stderr);
            ::dup2(m_savedStderr, STDERR_FILENO);
            ::close(m_savedStderr);
            keepWritten();
        }
        if (m_scratch)
            std::fclose(m_scratch);
        qInstallMessageHandler(s_previous.load());
        t_current = nullptr;
    }
    DecoderMessages(const DecoderMessages&) = delete;
    DecoderMessages& operator=(const DecoderMessages&) = delete;

    bool mention(const char* words) const {
        return std::any_of(m_lines.cbegin(), m_lines.cend(), [words](const QString& line) {
            return line.contains(QLatin1String(words));
        });
    }

  private:
    static void route(QtMsgType type, const QMessageLogContext& context, const QString& text) {
        if (t_current && qstrcmp(context.category, lcDecoder().categoryName()) != 0) {
            t_current->m_lines << text;
            if (!lcDecoder().isWarningEnabled())
                return;
        }
        if (const QtMessageHandler previous = s_previous.load())
            previous(type, context, text);
        else // Qt's own output, which has no handler of its own to call
            std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, text)));
    }

    // What the libraries wrote to the standard error stream, passed on as decoder messages.
    void keepWritten() {
        std::rewind(m_scratch);
        QByteArray written;
        char block[4096];
        for (size_t n; (n = std::fread(block, 1, sizeof block, m_scratch)) > 0;)
            written.append(block, qsizetype(n));
        for (const QByteArray& line : written.split('\n'))
            if (!line.isEmpty())
                qCWarning(lcDecoder).noquote() << QString::fromLocal8Bit(line);
        m_lines << QString::fromLocal8Bit(written);
    }

    QStringList m_lines;
    std::FILE* m_scratch = nullptr;
    int m_savedStderr = -1;
    static inline thread_local DecoderMessages* t_current = nullptr;
    static inline std::atomic<QtMessageHandler> s_previous = nullptr;
};

/// Pictures of more than 8 bits a channel come down to 8 in place: the program works in 8 bits,
/// and a 100-megapixel picture of 16-bit channels would otherwise be held twice.
void toEightBits(QImage& image) {
    if (hasMoreThanEightBits(image.format()))
        image.convertTo(image.format() == QImage::Format_Grayscale16
                            ? QImage::Format_Grayscale8
                            : QImage::Format_ARGB32_Premultiplied);
}

/// image turned as its EXIF orientation says, keeping its colour space: mirrored and flipped first,
/// then turned a quarter clockwise, as the orientation's transformations are defined.
QImage upright(const QImage& image, QImageIOHandler::Transformations orientation) {
    if (image.isNull() || orientation == QImageIOHandler::TransformationNone)
        return image;
    QImage turned = image.mirrored(orientation & QImageIOHandler::TransformationMirror,
                                   orientation & QImageIOHandler::TransformationFlip);
    if (orientation & QImageIOHandler::TransformationRotate90)
        turned = turned.transformed(QTransform().rotate(90));
    turned.setColorSpace(image.colorSpace());
    return turned;
}

LoadedPicture decode(QIODevice& device, const PictureHeader& header, const QString& name,
                     PictureDepth depth) {
    const qint64 pixels = qint64(header.size.width()) * header.size.height();
    DeadlineDevice limited(device, kBudgetBaseMs + qint64(kBudgetNsPerPixel * pixels / 1e6));
    QImageReader reader(&limited, header.format);
    // Only the decoder of the format the content showed: no other installed plugin sees the file.
    reader.setAutoDetectImageFormat(false);
    // Turned upright here, not by the reader: Qt's turning drops the picture's colour space.
    reader.setAutoTransform(false);
    QImageReader::setAllocationLimit(kAllocationLimitMiB);
    QImage image;
    {
        const DecoderMessages messages;
        image = upright(reader.read(), reader.transformation());
        if (limited.expired())
            return {{},
                    refusal(name, QStringLiteral("decoding it takes too long: the file is "
                                                 "damaged or made to stall the decoder."))};
        if (image.isNull() && messages.mention("allocation limit"))
            return {{}, refusal(name, oversized(header.size))};
    }
    if (image.isNull())
        return {{},
                refusal(name, QStringLiteral("its picture data cannot be decoded: the file is "
                                             "damaged, or it is a kind of %1 that Clarovi "
                                             "cannot read.")
                                  .arg(QString::fromLatin1(header.format.toUpper())))};
    if (tooLargeToOpen(image.size()))
        return {{}, refusal(name, oversized(image.size()))};
    if (depth == PictureDepth::EightBits)
        toEightBits(image);
    return {image, {}};
}

} // namespace

QString saveFailure(const QString& path, const QString& reason) {
    return QStringLiteral("Cannot save \u201c%1\u201d: %2").arg(QFileInfo(path).fileName(), reason);
}

LoadedPicture readPicture(const QString& path, PictureDepth depth) {
    if (!QFileInfo(path).isFile())
        return {{}, refusal(path, QStringLiteral("the file does not exist."))};
    // Unbuffered: its structure is read a few bytes here and there across the whole file.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return {{},
                refusal(path, QStringLiteral("it cannot be read: %1.").arg(file.errorString()))};
    return readPicture(file, path, depth);
}

LoadedPicture readPicture(QIODevice& device, const QString& name, PictureDepth depth) {
    if (device.size() == 0)
        return {{}, refusal(name, QStringLiteral("the file is empty."))};
    const PictureHeader header = readPictureHeader(device);
    if (header.format.isEmpty())
        return {{},
                refusal(name, QStringLiteral("it is not a PNG, JPEG, TIFF, BMP, WebP or GIF "
                                             "picture."))};
    if (tooLargeToOpen(header.size))
        return {{}, refusal(name, oversized(header.size))};
    if (!header.problem.isEmpty())
        return {{}, refusal(name, header.problem + QLatin1Char('.'))};
    return decode(device, header, name, depth);
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
    if (!picture.save(&buffer, "PNG"))
        return saveFailure(path, QStringLiteral("the picture could not be encoded as PNG."));
    return writeAtomically(path, png);
}

QString writeAtomically(const QString& path, const QByteArray& bytes) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return saveFailure(path, file.errorString() + QLatin1Char('.'));
    errno = 0;
    // Flushed first: commit does not notice a failure to write what QFileDevice buffered, which
    // is all of a file of less than 16 KiB.
    if (file.write(bytes) == bytes.size() && file.flush() && file.commit())
        return {};
    // A full disk or a file size limit leaves Qt without words of its own; the system has some.
    const int failure = errno;
    QString reason = file.errorString();
    if (failure != 0 && (reason.isEmpty() || reason == QLatin1String("Unknown error")))
        reason = QString::fromLocal8Bit(std::strerror(failure));
    return saveFailure(path, reason + QLatin1Char('.'));
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

} // namespace clarovi::jobs
