// Encodes small seed pictures through Qt's own image writers, for make_corpus.py.
//
// Reads one job per line on stdin and answers one line per job on stdout ("ok" or "error ..."),
// so that the generator can keep it running as a co-process:
//
//   OUTPUT FORMAT WIDTH HEIGHT PIXELS PATTERN SEED [key=value ...]
//
//   FORMAT   anything QImageWriter::supportedImageFormats() lists (jpeg, webp, tiff, ico, ...)
//   PIXELS   rgb32 | argb32 | rgb888 | grey8 | grey16 | indexed8 | mono | rgba64
//   PATTERN  noise | gradient | flat | checker | blocks
//   keys     quality=Q  compression=C  progressive=0|1  optimized=0|1  subtype=S  gamma=G
//            text=KEY:VALUE (stored as image text, when the format keeps it)
//
// Built and driven by make_corpus.py:
//   g++ -std=c++20 -fPIC encode_seed.cpp -o encode_seed $(pkg-config --cflags --libs Qt6Gui)
//   QT_QPA_PLATFORM=offscreen ./encode_seed < jobs.txt

#include <QGuiApplication>
#include <QImage>
#include <QImageWriter>
#include <QStringList>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

namespace {

// A small deterministic generator, so that a seed always gives the same picture.
struct SplitMix {
    std::uint64_t state;
    std::uint64_t next() {
        std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    int below(int n) { return int(next() % std::uint64_t(n)); }
};

QImage::Format formatFor(const QString& pixels) {
    if (pixels == QLatin1String("argb32"))
        return QImage::Format_ARGB32;
    if (pixels == QLatin1String("rgb888"))
        return QImage::Format_RGB888;
    if (pixels == QLatin1String("grey8"))
        return QImage::Format_Grayscale8;
    if (pixels == QLatin1String("grey16"))
        return QImage::Format_Grayscale16;
    if (pixels == QLatin1String("indexed8"))
        return QImage::Format_Indexed8;
    if (pixels == QLatin1String("mono"))
        return QImage::Format_Mono;
    if (pixels == QLatin1String("rgba64"))
        return QImage::Format_RGBA64;
    return QImage::Format_RGB32;
}

// The value (0..255 per channel, 0..65535 for 16 bits) the pattern puts at (x, y).
struct Painter {
    QString pattern;
    int width;
    int height;
    SplitMix random;
    std::uint32_t base[4];

    explicit Painter(const QString& p, int w, int h, std::uint64_t seed)
        : pattern(p), width(w), height(h), random{seed} {
        for (auto& b : base)
            b = std::uint32_t(random.next() & 0xffff);
    }

    std::uint32_t channel(int x, int y, int c) {
        if (pattern == QLatin1String("noise"))
            return std::uint32_t(random.next() & 0xffff);
        if (pattern == QLatin1String("flat"))
            return base[c];
        if (pattern == QLatin1String("checker"))
            return ((x / 4 + y / 4) & 1) ? base[c] : 0xffff - base[c];
        if (pattern == QLatin1String("blocks"))
            return std::uint32_t(((x / 16) * 7919 + (y / 16) * 104729 + c * 31) * 2654435761u) &
                   0xffff;
        // gradient
        const std::uint64_t span = std::uint64_t(width + height);
        return std::uint32_t((std::uint64_t(x + y) * 0xffff / span + base[c]) & 0xffff);
    }
};

QImage paint(int width, int height, QImage::Format format, const QString& pattern,
             std::uint64_t seed) {
    QImage image(width, height, format);
    if (image.isNull())
        return image;
    // Scanline padding is not initialised, and some writers copy it: clear it for repeatable files.
    std::memset(image.bits(), 0, size_t(image.sizeInBytes()));
    Painter painter(pattern, width, height, seed);
    if (format == QImage::Format_Indexed8 || format == QImage::Format_Mono) {
        const int colours = format == QImage::Format_Mono ? 2 : 1 + painter.random.below(256);
        // A full table: Qt's TIFF writer copies 256 entries whatever the table's size.
        QList<QRgb> table;
        // A two-colour table other than black and white goes out as 8-bit palette, again a full
        // one.
        if (format == QImage::Format_Mono)
            table = painter.random.below(2) ? QList<QRgb>{qRgb(0, 0, 0), qRgb(255, 255, 255)}
                                            : QList<QRgb>{qRgb(255, 255, 255), qRgb(0, 0, 0)};
        for (int k = 0; format != QImage::Format_Mono && k < 256; ++k)
            table.append(qRgb(painter.random.below(256), painter.random.below(256),
                              painter.random.below(256)));
        image.setColorTable(table);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                image.setPixel(x, y, painter.channel(x, y, 0) % std::uint32_t(colours));
        return image;
    }
    if (format == QImage::Format_Grayscale16) {
        for (int y = 0; y < height; ++y) {
            auto* line = reinterpret_cast<quint16*>(image.scanLine(y));
            for (int x = 0; x < width; ++x)
                line[x] = quint16(painter.channel(x, y, 0));
        }
        return image;
    }
    if (format == QImage::Format_RGBA64) {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                image.setPixelColor(x, y,
                                    QColor::fromRgba64(quint16(painter.channel(x, y, 0)),
                                                       quint16(painter.channel(x, y, 1)),
                                                       quint16(painter.channel(x, y, 2)),
                                                       quint16(painter.channel(x, y, 3) | 0x3fff)));
        return image;
    }
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int r = int(painter.channel(x, y, 0) >> 8);
            const int g = int(painter.channel(x, y, 1) >> 8);
            const int b = int(painter.channel(x, y, 2) >> 8);
            const int a =
                format == QImage::Format_ARGB32 ? int(painter.channel(x, y, 3) >> 8) : 255;
            image.setPixel(x, y, qRgba(r, g, b, a));
        }
    return image;
}

QString runJob(const QStringList& fields) {
    if (fields.size() < 7)
        return QStringLiteral("error short job line");
    const QString output = fields[0];
    const QByteArray format = fields[1].toLatin1();
    const int width = fields[2].toInt();
    const int height = fields[3].toInt();
    const QString pixels = fields[4];
    const QString pattern = fields[5];
    const std::uint64_t seed = fields[6].toULongLong();
    QImage image = paint(width, height, formatFor(pixels), pattern, seed);
    if (image.isNull())
        return QStringLiteral("error cannot allocate %1x%2").arg(width).arg(height);

    QImageWriter writer(output, format);
    for (qsizetype k = 7; k < fields.size(); ++k) {
        const QString key = fields[k].section(QLatin1Char('='), 0, 0);
        const QString value = fields[k].section(QLatin1Char('='), 1);
        if (key == QLatin1String("quality"))
            writer.setQuality(value.toInt());
        else if (key == QLatin1String("compression"))
            writer.setCompression(value.toInt());
        else if (key == QLatin1String("progressive"))
            writer.setProgressiveScanWrite(value.toInt() != 0);
        else if (key == QLatin1String("optimized"))
            writer.setOptimizedWrite(value.toInt() != 0);
        else if (key == QLatin1String("subtype"))
            writer.setSubType(value.toLatin1());
        else if (key == QLatin1String("text"))
            writer.setText(value.section(QLatin1Char(':'), 0, 0),
                           value.section(QLatin1Char(':'), 1));
    }
    if (!writer.write(image))
        return QStringLiteral("error ") + writer.errorString().simplified();
    return QStringLiteral("ok");
}

} // namespace

int main(int argc, char** argv) {
    QGuiApplication application(argc, argv);
    if (argc > 1 && std::string(argv[1]) == "--formats") {
        for (const QByteArray& format : QImageWriter::supportedImageFormats())
            std::printf("%s\n", format.constData());
        return 0;
    }
    std::string line;
    while (std::getline(std::cin, line)) {
        const QStringList fields =
            QString::fromStdString(line).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (fields.isEmpty())
            continue;
        const QString answer = runJob(fields);
        std::printf("%s\n", answer.toUtf8().constData());
        std::fflush(stdout);
    }
    return 0;
}
