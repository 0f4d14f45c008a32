#pragma once

#include "engine/blur_estimate.h"
#include "jobs/slider_ranges.h"

#include <QRect>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

namespace clarovi::cli {

/// What one run of clarovi-cli restores and how. Values left out are the sliders' starting values.
struct CliOptions {
    QString input;         ///< the photograph to restore
    QString output;        ///< the PNG to write, used as given
    QStringList inputs;    ///< with --out-dir: every photograph to export
    bool fullSize = false; ///< restore the whole photograph at its own size, in colour
    int depth = 0;         ///< --depth: 8 or 16 bits per channel; 0 follows the source
    int quality = 95;      ///< --quality of a JPEG export
    QString outDir;        ///< --out-dir: the folder a batch of exports goes to
    QString format = QStringLiteral("png"); ///< --format: the extension of a batch's files
    bool motion = false;
    bool focus = false;          ///< with an estimate: look for out-of-focus blur only
    bool estimate = false;       ///< print the estimated blur; restore with it when given OUTPUT
    bool aroundEstimate = false; ///< with --auto: search around the estimated blur
    QRect region;                ///< --region: the part of the photograph to look at, in its pixels
    QString psf;                 ///< --psf: a grey picture of the shake's kernel to restore with
    std::shared_ptr<const cv::Mat> shake; ///< the kernel read from psf, once it has been read
    bool rgb = false;
    bool classic = false;        ///< --filter classic: the Wiener filter of earlier versions
    bool live = false;           ///< one live preview, as a drag step of a slider makes it
    bool verbose = false;        ///< print the program's log lines and what the decoders report
    QString autoDir;             ///< set for --auto: the folder the search's thumbnails go to
    std::optional<float> length; ///< set when --length was given: the length slider was released
    float angle = jobs::kAngleRange.initial;
    std::optional<float> width; ///< set when --width was given
    float sharpness = jobs::kSharpnessRange.initial;

    float lengthOrInitial() const { return length.value_or(jobs::kLengthRange.initial); }
    /// The kind of blur an estimate looks for.
    engine::KindWanted wanted() const {
        return motion ? engine::KindWanted::Motion
                      : (focus ? engine::KindWanted::OutOfFocus : engine::KindWanted::Any);
    }
    float widthOrInitial() const { return width.value_or(jobs::kWidthRange.initial); }
};

/// The outcome of reading the command line: options to run with, a help text to print, or a
/// one-line reason the arguments were refused.
struct CliParseResult {
    enum class Outcome { Run, Help, Error };
    Outcome outcome = Outcome::Error;
    CliOptions options; ///< meaningful for Run
    QString message;    ///< the help text for Help, the reason for Error
};

/// Reads arguments (the program name first, as QCoreApplication::arguments() gives them).
/// Refuses unknown options, numbers that do not parse or lie outside their slider's range, options
/// that do not go together, and anything but exactly two positional arguments (one for --auto,
/// one or two for --estimate, one or more for --out-dir).
CliParseResult parseCliOptions(const QStringList& arguments);

} // namespace clarovi::cli
