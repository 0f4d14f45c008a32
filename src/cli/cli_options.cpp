#include "cli/cli_options.h"

#include <QCommandLineParser>

#include <cmath>

namespace clarovi::cli {

namespace {

using jobs::SliderRange;

// One numeric option: its name, the slider whose range it takes, and its help line.
struct NumberOption {
    QCommandLineOption option;
    const SliderRange& range;
};

QString rangeText(const SliderRange& range) {
    return QStringLiteral("%1 to %2").arg(double(range.minimum)).arg(double(range.maximum));
}

QCommandLineOption numberOption(const QString& name, const QString& what,
                                const SliderRange& range) {
    return QCommandLineOption(name,
                              QStringLiteral("%1, %2 (default %3).")
                                  .arg(what, rangeText(range))
                                  .arg(double(range.initial)),
                              name.toUpper());
}

CliParseResult refusal(const QString& reason) {
    return {CliParseResult::Outcome::Error, {}, reason};
}

// The value of a given numeric option, or why it is refused. The range is checked in single
// precision, the sliders' own precision, so that the printed limits themselves are accepted.
std::optional<float> readNumber(const QCommandLineParser& parser, const NumberOption& number,
                                QString& error) {
    const QString text = parser.value(number.option);
    const QString name = QStringLiteral("--") + number.option.names().constFirst();
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value)) {
        error = QStringLiteral("%1 expects a number, not \"%2\"").arg(name, text);
        return std::nullopt;
    }
    const float single = float(value);
    if (!number.range.contains(double(single))) {
        error = QStringLiteral("%1 %2 is outside %3").arg(name, text, rangeText(number.range));
        return std::nullopt;
    }
    return single;
}

// The options that take no number, in the order --help lists them: name, help line, and the
// name of their value for those that take one.
struct PlainOption {
    const char* name;
    const char* help;
    const char* value = nullptr;
};
constexpr PlainOption kPlainOptions[] = {
    {"motion", "Motion blur (a line) instead of defocus (a disk)."},
    {"focus", "With --estimate or --around-estimate: look for out-of-focus blur only (--motion: "
              "motion blur only)."},
    {"rgb", "Restore in colour, not only the grey preview."},
    {"estimate", "Find the blur in INPUT and print it; with OUTPUT, restore with it too."},
    {"live", "Write the live preview a drag of a slider shows (longer side 1024)."},
    {"auto", "Run the automatic search and write its thumbnails into OUTDIR.", "OUTDIR"},
    {"around-estimate", "With --auto: search around the blur found in INPUT, clear or not, in "
                        "its kind (--motion or --focus: of that kind)."},
    {"region",
     "With --estimate or --auto: look at this part of INPUT only, in its own pixels "
     "(a textured part: a face, a plate, a line of text).",
     "X,Y,W,H"},
    {"psf",
     "Restore with the shake whose kernel this grey picture shows, in pixels of the photograph "
     "at 2048 on its longer side (a saved kernel, or a star cut from the photograph).",
     "KERNEL"},
    {"verbose", "Print the restoration's log lines and the image libraries' warnings."},
    {"full-size", "Restore the whole photograph at its own size, in colour, and write it with "
                  "its metadata as PNG, TIFF or JPEG (by OUTPUT's extension)."},
    {"depth",
     "Bits per channel of a --full-size PNG or TIFF: 8 or 16 (default: the "
     "photograph's).",
     "BITS"},
    {"quality", "Quality of a --full-size JPEG, 1 to 100 (95).", "Q"},
    {"filter",
     "The restoration filter: edge (the edge-preserving one, default) or classic (the "
     "Wiener filter of earlier versions, for comparison).",
     "NAME"},
    {"out-dir", "With --full-size: export every INPUT into DIR as <name>-restored.<ext>.", "DIR"},
    {"format", "With --out-dir: png, tif or jpg (default png).", "EXT"},
};

void addPlainOptions(QCommandLineParser& parser) {
    for (const PlainOption& plain : kPlainOptions) {
        QCommandLineOption option(QString::fromLatin1(plain.name), QString::fromUtf8(plain.help));
        if (plain.value)
            option.setValueName(QString::fromLatin1(plain.value));
        parser.addOption(option);
    }
}

// --depth, --quality and --format into options; why one is refused, or an empty string.
QString readExportOptions(const QCommandLineParser& parser, CliOptions& options) {
    const QString depth = QStringLiteral("depth"), quality = QStringLiteral("quality"),
                  format = QStringLiteral("format");
    if (parser.isSet(depth)) {
        options.depth = parser.value(depth).toInt();
        if (options.depth != 8 && options.depth != 16)
            return QStringLiteral("--depth expects 8 or 16, not \"%1\"").arg(parser.value(depth));
    }
    if (parser.isSet(quality)) {
        bool ok = false;
        options.quality = parser.value(quality).toInt(&ok);
        if (!ok || options.quality < 1 || options.quality > 100)
            return QStringLiteral("--quality expects 1 to 100, not \"%1\"")
                .arg(parser.value(quality));
    }
    if (parser.isSet(format)) {
        options.format = parser.value(format).toLower();
        const QStringList known{"png", "tif", "tiff", "jpg", "jpeg"};
        if (!known.contains(options.format))
            return QStringLiteral("--format expects png, tif or jpg, not \"%1\"")
                .arg(parser.value(format));
    }
    return {};
}

// Why the estimate's options do not go with the others given, or an empty string. searchOrOther:
// --auto, --live or --full-size given; setting: --length, --angle or --width given.
QString estimateConflict(const CliOptions& options, bool searchOrOther, bool setting) {
    const bool search = !options.autoDir.isEmpty();
    if (options.focus && options.motion)
        return QStringLiteral("--focus and --motion exclude each other");
    if (options.focus && !options.estimate && !options.aroundEstimate)
        return QStringLiteral("--focus goes with --estimate or --around-estimate");
    if (options.aroundEstimate && !search)
        return QStringLiteral("--around-estimate goes with --auto");
    if (options.estimate && searchOrOther)
        return QStringLiteral("--estimate goes with neither --auto, --live nor --full-size");
    if ((options.estimate || options.aroundEstimate) && setting)
        return QStringLiteral("--length, --angle and --width are the estimate's to set");
    return {};
}

// "X,Y,W,H" in whole pixels; empty when it is not that or W or H is not above 0.
QRect readRegion(const QString& text) {
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() != 4)
        return {};
    int numbers[4];
    for (int k = 0; k < 4; ++k) {
        bool ok = false;
        numbers[k] = parts[k].trimmed().toInt(&ok);
        if (!ok || numbers[k] < 0)
            return {};
    }
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

} // namespace

CliParseResult parseCliOptions(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Restores a blurred photograph and writes the result as PNG: the grey preview, or the "
        "colour restoration with --rgb, at the photograph's aspect ratio, longer side 2048; "
        "with --live the live preview of a slider drag (longer side 1024); with --auto the "
        "thumbnails of the automatic search, one PNG each, and their index.csv; with --full-size "
        "the whole photograph at its own size, in colour, with its metadata. --estimate prints "
        "the blur found in the photograph as the sliders would take it, on one line: "
        "\"focus LENGTH CONFIDENCE\" or \"motion LENGTH ANGLE CONFIDENCE\"."));
    const QCommandLineOption helpOption = parser.addHelpOption();
    const NumberOption length{numberOption(QStringLiteral("length"),
                                           QStringLiteral("Disk diameter or streak length in "
                                                          "pixels of the photograph at 2048 on its "
                                                          "longer side"),
                                           jobs::kLengthRange),
                              jobs::kLengthRange};
    const NumberOption angle{numberOption(QStringLiteral("angle"),
                                          QStringLiteral("Streak direction in degrees "
                                                         "counter-clockwise from horizontal"),
                                          jobs::kAngleRange),
                             jobs::kAngleRange};
    const NumberOption width{numberOption(QStringLiteral("width"),
                                          QStringLiteral("Streak thickness in the same pixels"),
                                          jobs::kWidthRange),
                             jobs::kWidthRange};
    const NumberOption sharpness{numberOption(QStringLiteral("sharpness"),
                                              QStringLiteral("Sharpness, smoothest to crispest"),
                                              jobs::kSharpnessRange),
                                 jobs::kSharpnessRange};
    for (const NumberOption* number : {&length, &angle, &width, &sharpness})
        parser.addOption(number->option);
    addPlainOptions(parser);
    parser.addPositionalArgument(
        QStringLiteral("INPUT"),
        QStringLiteral("Photograph to restore (PNG, JPEG, TIFF, BMP, WebP, GIF)."));
    parser.addPositionalArgument(QStringLiteral("OUTPUT"), QStringLiteral("PNG file to write."));

    if (!parser.parse(arguments))
        return refusal(parser.errorText());
    if (parser.isSet(helpOption) || parser.isSet(QStringLiteral("help-all")))
        return {CliParseResult::Outcome::Help, {}, parser.helpText()};

    CliOptions options;
    QString error;
    auto given = [&](const NumberOption& number) -> std::optional<float> {
        if (!error.isEmpty() || !parser.isSet(number.option))
            return std::nullopt;
        return readNumber(parser, number, error);
    };
    options.length = given(length);
    options.angle = given(angle).value_or(options.angle);
    options.width = given(width);
    options.sharpness = given(sharpness).value_or(options.sharpness);
    if (!error.isEmpty())
        return refusal(error);

    const auto set = [&parser](const char* name) {
        return parser.isSet(QString::fromLatin1(name));
    };
    const QStringList files = parser.positionalArguments();
    options.autoDir = parser.value(QStringLiteral("auto"));
    const bool search = set("auto");
    if (search && options.autoDir.isEmpty())
        return refusal(QStringLiteral("--auto expects a folder"));
    options.verbose = set("verbose");
    options.motion = set("motion");
    options.focus = set("focus");
    options.estimate = set("estimate");
    options.aroundEstimate = set("around-estimate");
    options.rgb = set("rgb");
    options.psf = parser.value(QStringLiteral("psf"));
    if (set("psf") && (options.psf.isEmpty() || options.motion || set("length") || set("angle") ||
                       set("width") || options.estimate || options.aroundEstimate || search))
        return refusal(QStringLiteral("--psf expects a picture and goes with none of --motion, "
                                      "--length, --angle, --width, --estimate and --auto"));
    if (set("region")) {
        options.region = readRegion(parser.value(QStringLiteral("region")));
        if (options.region.isEmpty())
            return refusal(QStringLiteral("--region expects X,Y,W,H: whole pixels, W and H above "
                                          "0, not \"%1\"")
                               .arg(parser.value(QStringLiteral("region"))));
        if (!options.estimate && !options.aroundEstimate && !search)
            return refusal(QStringLiteral("--region goes with --estimate or --auto"));
    }
    const QString filter = parser.value(QStringLiteral("filter"));
    if (set("filter") && filter != QLatin1String("edge") && filter != QLatin1String("classic"))
        return refusal(QStringLiteral("--filter expects edge or classic, not \"%1\"").arg(filter));
    options.classic = filter == QLatin1String("classic");
    error = estimateConflict(options, search || set("live") || set("full-size"),
                             set("length") || set("angle") || set("width"));
    if (!error.isEmpty())
        return refusal(error);
    options.fullSize = set("full-size");
    options.outDir = parser.value(QStringLiteral("out-dir"));
    const bool batch = set("out-dir");
    if (batch && options.outDir.isEmpty())
        return refusal(QStringLiteral("--out-dir expects a folder"));
    error = readExportOptions(parser, options);
    if (!error.isEmpty())
        return refusal(error);
    if (!options.fullSize && (batch || set("depth") || set("quality") || set("format")))
        return refusal(QStringLiteral("--depth, --quality, --format and --out-dir go with "
                                      "--full-size"));
    if (options.fullSize && (search || set("live")))
        return refusal(QStringLiteral("--full-size goes with neither --auto nor --live"));
    if (batch) {
        if (files.isEmpty())
            return refusal(QStringLiteral("expected at least one INPUT, got 0"));
        options.inputs = files;
        return {CliParseResult::Outcome::Run, options, {}};
    }
    const qsizetype expected = search ? 1 : 2;
    const bool fits = files.size() == expected || (options.estimate && files.size() == 1);
    if (!fits)
        return refusal(
            QStringLiteral("expected %1, got %2 file argument%3")
                .arg(search ? QStringLiteral("INPUT") : QStringLiteral("INPUT and OUTPUT"))
                .arg(files.size())
                .arg(files.size() == 1 ? "" : "s"));
    options.input = files[0];
    options.output = files.size() == 2 ? files[1] : QString();
    options.live = set("live");
    if (options.live && (search || options.rgb))
        return refusal(QStringLiteral("--live goes with neither --rgb nor --auto"));
    return {CliParseResult::Outcome::Run, options, {}};
}

} // namespace clarovi::cli
