#include "cli_options.h"

#include <QCommandLineParser>

#include <array>
#include <cmath>

namespace clarovi::app {

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

// --depth, --quality and --format into options; why one is refused, or an empty string.
QString readExportOptions(const QCommandLineParser& parser,
                          const std::array<QCommandLineOption, 3>& given, CliOptions& options) {
    const auto& [depth, quality, format] = given;
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
// --auto, --tiled or --full-size given; setting: --length, --angle or --width given.
QString estimateConflict(const CliOptions& options, bool searchOrOther, bool setting) {
    const bool search = !options.autoDir.isEmpty();
    if (options.focus && options.motion)
        return QStringLiteral("--focus and --motion exclude each other");
    if (options.focus && !options.estimate && !options.aroundEstimate)
        return QStringLiteral("--focus goes with --estimate or --around-estimate");
    if (options.aroundEstimate && !search)
        return QStringLiteral("--around-estimate goes with --auto");
    if (options.estimate && searchOrOther)
        return QStringLiteral("--estimate goes with neither --auto, --tiled nor --full-size");
    if ((options.estimate || options.aroundEstimate) && setting)
        return QStringLiteral("--length, --angle and --width are the estimate's to set");
    return {};
}

} // namespace

CliParseResult parseCliOptions(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Restores a blurred photograph and writes the result as PNG: the grey preview, or the "
        "colour restoration with --rgb, at the photograph's aspect ratio, longer side 2048; "
        "with --tiled the live preview of a slider drag (longer side 1024); with --auto the "
        "thumbnails of the automatic search, one PNG each, and their index.csv; with --full-size "
        "the whole photograph at its own size, in colour, with its metadata. --estimate prints "
        "the blur found in the photograph as the sliders would take it, on one line: "
        "\"focus LENGTH CONFIDENCE\" or \"motion LENGTH ANGLE CONFIDENCE\"."));
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption motionOption(
        QStringLiteral("motion"),
        QStringLiteral("Motion blur (a line) instead of defocus (a disk)."));
    const QCommandLineOption focusOption(
        QStringLiteral("focus"),
        QStringLiteral("With --estimate or --around-estimate: look for out-of-focus blur only "
                       "(--motion: motion blur only)."));
    const QCommandLineOption estimateOption(
        QStringLiteral("estimate"),
        QStringLiteral("Find the blur in INPUT and print it; with OUTPUT, restore with it too."));
    const QCommandLineOption aroundOption(
        QStringLiteral("around-estimate"),
        QStringLiteral("With --auto: search finely around the blur found in INPUT instead of the "
                       "fixed grid."));
    const QCommandLineOption rgbOption(
        QStringLiteral("rgb"), QStringLiteral("Restore in colour, not only the grey preview."));
    const NumberOption length{numberOption(QStringLiteral("length"),
                                           QStringLiteral("PSF length or disk diameter in pixels"),
                                           jobs::kLengthRange),
                              jobs::kLengthRange};
    const NumberOption angle{numberOption(QStringLiteral("angle"),
                                          QStringLiteral("Motion angle in degrees"),
                                          jobs::kAngleRange),
                             jobs::kAngleRange};
    const NumberOption width{numberOption(QStringLiteral("width"),
                                          QStringLiteral("Motion line width in pixels"),
                                          jobs::kWidthRange),
                             jobs::kWidthRange};
    const NumberOption sharpness{numberOption(QStringLiteral("sharpness"),
                                              QStringLiteral("Sharpness mu"),
                                              jobs::kSharpnessRange),
                                 jobs::kSharpnessRange};
    parser.addOption(motionOption);
    for (const NumberOption* number : {&length, &angle, &width, &sharpness})
        parser.addOption(number->option);
    parser.addOption(rgbOption);
    const QCommandLineOption tiledOption(
        QStringLiteral("tiled"),
        QStringLiteral("Write the live preview a drag of the length slider shows."));
    const QCommandLineOption autoOption(
        QStringLiteral("auto"),
        QStringLiteral("Run the automatic search and write its thumbnails into OUTDIR."),
        QStringLiteral("OUTDIR"));
    const QCommandLineOption verboseOption(
        QStringLiteral("verbose"),
        QStringLiteral("Print the restoration's log lines and the image libraries' warnings."));
    const QCommandLineOption fullSizeOption(
        QStringLiteral("full-size"),
        QStringLiteral("Restore the whole photograph at its own size, in colour, and write it "
                       "with its metadata as PNG, TIFF or JPEG (by OUTPUT's extension)."));
    const QCommandLineOption depthOption(
        QStringLiteral("depth"),
        QStringLiteral("Bits per channel of a --full-size PNG or TIFF: 8 or 16 (default: the "
                       "photograph's)."),
        QStringLiteral("BITS"));
    const QCommandLineOption qualityOption(
        QStringLiteral("quality"), QStringLiteral("Quality of a --full-size JPEG, 1 to 100 (95)."),
        QStringLiteral("Q"));
    const QCommandLineOption outDirOption(
        QStringLiteral("out-dir"),
        QStringLiteral("With --full-size: export every INPUT into DIR as <name>-restored.<ext>."),
        QStringLiteral("DIR"));
    const QCommandLineOption formatOption(
        QStringLiteral("format"), QStringLiteral("With --out-dir: png, tif or jpg (default png)."),
        QStringLiteral("EXT"));
    for (const QCommandLineOption* option :
         {&focusOption, &estimateOption, &aroundOption, &tiledOption, &autoOption, &verboseOption,
          &fullSizeOption, &depthOption, &qualityOption, &outDirOption, &formatOption})
        parser.addOption(*option);
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

    const QStringList files = parser.positionalArguments();
    options.autoDir = parser.value(autoOption);
    const bool search = parser.isSet(autoOption);
    if (search && options.autoDir.isEmpty())
        return refusal(QStringLiteral("--auto expects a folder"));
    options.verbose = parser.isSet(verboseOption);
    options.motion = parser.isSet(motionOption);
    options.focus = parser.isSet(focusOption);
    options.estimate = parser.isSet(estimateOption);
    options.aroundEstimate = parser.isSet(aroundOption);
    options.rgb = parser.isSet(rgbOption);
    error = estimateConflict(
        options, search || parser.isSet(tiledOption) || parser.isSet(fullSizeOption),
        parser.isSet(length.option) || parser.isSet(angle.option) || parser.isSet(width.option));
    if (!error.isEmpty())
        return refusal(error);
    options.fullSize = parser.isSet(fullSizeOption);
    options.outDir = parser.value(outDirOption);
    const bool batch = parser.isSet(outDirOption);
    if (batch && options.outDir.isEmpty())
        return refusal(QStringLiteral("--out-dir expects a folder"));
    error = readExportOptions(parser, {depthOption, qualityOption, formatOption}, options);
    if (!error.isEmpty())
        return refusal(error);
    if (!options.fullSize && (batch || parser.isSet(depthOption) || parser.isSet(qualityOption) ||
                              parser.isSet(formatOption)))
        return refusal(QStringLiteral("--depth, --quality, --format and --out-dir go with "
                                      "--full-size"));
    if (options.fullSize && (search || parser.isSet(tiledOption)))
        return refusal(QStringLiteral("--full-size goes with neither --auto nor --tiled"));
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
    options.tiled = parser.isSet(tiledOption);
    if (options.tiled && (search || parser.isSet(rgbOption)))
        return refusal(QStringLiteral("--tiled goes with neither --rgb nor --auto"));
    return {CliParseResult::Outcome::Run, options, {}};
}

} // namespace clarovi::app
