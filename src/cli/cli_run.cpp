#include "cli_run.h"

#include "auto/auto_search.h"
#include "cli/cli_options.h"
#include "cli/search_writer.h"
#include "engine/blur_estimate.h"
#include "engine/shake_kernel.h"
#include "files/picture_file.h"
#include "jobs/blur_estimation.h"
#include "jobs/control_sequences.h"
#include "jobs/controller_state.h"
#include "jobs/full_size_export.h"
#include "jobs/headless_window.h"
#include "jobs/restoration_jobs.h"
#include "jobs/slider_ranges.h"

#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>

#include <cstdio>
#include <exception>
#include <optional>

namespace clarovi::cli {

namespace {

// A refusal, a failure or a note is one line on stderr, so that scripts can show it as it stands;
// a message of several sentences, one a line, gives as many lines.
void printError(const QString& message) {
    for (const QString& line : message.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        std::fprintf(stderr, "clarovi-cli: %s\n", line.simplified().toUtf8().constData());
}

// The controls set as the user would leave them.
jobs::Setting settingOf(const cli::CliOptions& options) {
    const engine::BlurKind kind =
        options.motion ? engine::BlurKind::Motion : engine::BlurKind::OutOfFocus;
    const engine::BlurOnPhoto blur =
        options.shake ? engine::BlurOnPhoto::shake(options.shake)
                      : engine::BlurOnPhoto{kind, options.lengthOrInitial(), options.angle,
                                            options.widthOrInitial()};
    return {blur, options.sharpness, options.rgb, options.classic};
}

// The kernel --psf names, or null after saying why it cannot be used.
std::shared_ptr<const cv::Mat> shakeFrom(const QString& path) {
    const files::LoadedPicture picture = files::loadPicture(path);
    QString error = picture.error;
    cv::Mat kernel =
        picture.image.isNull() ? cv::Mat() : engine::kernelFromPicture(picture.image, &error);
    if (kernel.empty()) {
        printError(error);
        return nullptr;
    }
    return std::make_shared<const cv::Mat>(std::move(kernel));
}

// The first computations of a fresh picture, in colour when asked for; or the live preview of
// one drag step of the length slider.
void restore(const cli::CliOptions& options, jobs::ControlSequences& sequences) {
    if (options.live)
        sequences.LengthNew(false);
    else
        sequences.showFirstRestoration();
}

// The automatic search of the window's auto button, without the window: around the best guess
// (the one given, or its own), in the setting's kind or the guess's; progress on stderr as the
// overlay shows it, every result written out while the search goes on. Picking one is the
// window's business.
int runSearch(const cli::CliOptions& options, const jobs::ControllerState& state,
              const jobs::Setting& setting, std::optional<engine::BlurEstimate> around = {},
              bool kindOfGuess = false) {
    cli::SearchWriter writer(options.autoDir);
    if (const QString error = writer.open(); !error.isEmpty()) {
        printError(error);
        return 1;
    }
    autosearch::AutoSearch search({state.previewSourceImage, setting, around, state.analysisGrey,
                                   state.region, state.photoScale(), kindOfGuess});
    size_t queued = 0;
    search.run(
        [&](const autosearch::ProgressUpdate& update) {
            for (; queued < search.results.size(); ++queued)
                writer.add(search.results[queued]);
            std::fprintf(stderr, "%3.0f%%  Remaining time: %.0f\n", 100.0 * update.fraction,
                         update.remaining);
        },
        [&] { return writer.failed(); });
    if (const QString error = writer.finish(); !error.isEmpty()) {
        printError(error);
        return 1;
    }
    return 0;
}

// The blur found in the opened picture, as the sliders take it.
jobs::EstimatedSetting estimateOf(const jobs::ControllerState& state, engine::KindWanted wanted) {
    return jobs::settingOf(engine::estimateBlur(state.analysisGrey, state.estimateRequest(wanted)));
}

// One line on stdout, in the C locale's numbers: "focus LENGTH CONFIDENCE" or
// "motion LENGTH ANGLE CONFIDENCE".
void printEstimate(const jobs::EstimatedSetting& found) {
    const QString line = found.blur.kind == engine::BlurKind::Motion
                             ? QStringLiteral("motion %1 %2 %3")
                                   .arg(found.blur.length, 0, 'f', 1)
                                   .arg(found.blur.angle, 0, 'f', 1)
                                   .arg(found.estimate.confidence, 0, 'f', 2)
                             : QStringLiteral("focus %1 %2")
                                   .arg(found.blur.length, 0, 'f', 1)
                                   .arg(found.estimate.confidence, 0, 'f', 2);
    std::printf("%s\n", line.toUtf8().constData());
}

// What the window shows, written to output; 1 after a failed job or save.
int saveShown(const jobs::HeadlessWindow& window, const QString& output) {
    for (const QString& error : window.errors)
        printError(error);
    if (!window.errors.isEmpty())
        return 1;
    const QString saveError = files::savePng(window.shown, output);
    if (!saveError.isEmpty()) {
        printError(saveError);
        return 1;
    }
    return 0;
}

// --estimate and --around-estimate: the blur found in the picture printed, restored with, or
// searched around.
int runEstimate(const cli::CliOptions& options, jobs::ControllerState& state,
                jobs::HeadlessWindow& window, jobs::ControlSequences& sequences) {
    const jobs::EstimatedSetting found = estimateOf(state, options.wanted());
    if (options.estimate)
        printEstimate(found);
    if (options.estimate && options.output.isEmpty())
        return 0;
    // The search takes the estimate's kind when it is sure enough to go by (or the kind asked).
    if (options.aroundEstimate)
        return runSearch(options, state, window.setting(), found.estimate,
                         options.wanted() == engine::KindWanted::Any);
    if (!found.clear) {
        printError(QStringLiteral("No clear blur found, so nothing was restored."));
        return 1;
    }
    sequences.applyEstimate(found);
    return saveShown(window, options.output);
}

// One photograph restored at its own size into target; whether it was written.
bool exportOne(const QString& input, const QString& target, const jobs::Setting& setting,
               const cli::CliOptions& options) {
    const jobs::ExportResult result =
        jobs::exportFullSize({input, target, setting, {options.depth, options.quality}});
    if (result.outcome != jobs::ExportResult::Outcome::Written) {
        printError(result.message);
        return false;
    }
    if (!result.message.isEmpty())
        printError(result.message);
    return true;
}

// Every photograph into the folder, one line each; the run goes on past a failure and ends
// with the list of those that failed. Every target is known before the first is written, so that
// none replaces another's.
int exportBatch(const cli::CliOptions& options, const jobs::Setting& setting) {
    if (!QDir().mkpath(options.outDir)) {
        printError(QStringLiteral("Cannot create the folder \u201c%1\u201d.").arg(options.outDir));
        return 1;
    }
    const std::vector<files::PlannedExport> plan =
        files::planExports(options.inputs, options.outDir, options.format);
    QStringList failures;
    const size_t count = plan.size();
    for (size_t i = 0; i < count; ++i) {
        const files::PlannedExport& planned = plan[i];
        std::fprintf(stderr, "[%zu/%zu] %s\n", i + 1, count,
                     qPrintable(QDir::toNativeSeparators(planned.target)));
        if (!planned.problem.isEmpty())
            printError(planned.problem);
        if (!planned.problem.isEmpty() ||
            !exportOne(planned.source, planned.target, setting, options))
            failures << planned.source;
    }
    if (failures.isEmpty())
        return 0;
    printError(QStringLiteral("%1 of %2 photographs failed: %3")
                   .arg(failures.size())
                   .arg(qsizetype(count))
                   .arg(failures.join(QStringLiteral(", "))));
    return 1;
}

int runFullSize(const cli::CliOptions& options) {
    const jobs::Setting setting = settingOf(options);
    if (!options.outDir.isEmpty())
        return exportBatch(options, setting);
    return exportOne(options.input, options.output, setting, options) ? 0 : 1;
}

int run(cli::CliOptions options) {
    if (!options.psf.isEmpty() && !(options.shake = shakeFrom(options.psf)))
        return 1;
    if (options.fullSize)
        return runFullSize(options);
    if (!options.output.isEmpty())
        if (const QString problem = files::targetProblem(options.output, options.input);
            !problem.isEmpty()) {
            printError(problem);
            return 1;
        }
    const files::LoadedPicture loaded = files::loadPicture(options.input);
    if (loaded.image.isNull()) {
        printError(loaded.error);
        return 1;
    }
    jobs::ControllerState state;
    jobs::HeadlessWindow window;
    window.controls = settingOf(options);
    jobs::RestorationJobs restorations(state, window);
    jobs::ControlSequences sequences(state, window, restorations);
    sequences.setUpDefaults();
    sequences.pickImg(loaded.image, window.controls);
    if (!options.region.isEmpty()) {
        state.region = state.analysedRegion(options.region);
        if (state.region.empty()) {
            printError(QStringLiteral("The region %1,%2,%3,%4 does not lie within the %5 x %6 "
                                      "photograph.")
                           .arg(options.region.x())
                           .arg(options.region.y())
                           .arg(options.region.width())
                           .arg(options.region.height())
                           .arg(state.photoSize.width())
                           .arg(state.photoSize.height()));
            return 1;
        }
    }
    if (options.estimate || options.aroundEstimate)
        return runEstimate(options, state, window, sequences);
    if (!options.autoDir.isEmpty())
        return runSearch(options, state, window.setting());
    restore(options, sequences);
    return saveShown(window, options.output);
}

} // namespace

int runCommandLine(const QStringList& arguments) {
    const CliParseResult parsed = parseCliOptions(arguments);
    // A run prints nothing but its one line of refusal or failure, unless asked for more.
    if (parsed.options.verbose)
        QLoggingCategory::setFilterRules(QStringLiteral("clarovi*=true"));
    switch (parsed.outcome) {
    case CliParseResult::Outcome::Help:
        std::fputs(parsed.message.toUtf8().constData(), stdout);
        return 0;
    case CliParseResult::Outcome::Error:
        printError(parsed.message);
        return 2;
    case CliParseResult::Outcome::Run:
        break;
    }
    // The set-up outside the jobs (the first PSF, the working copies) can fail as well, for
    // instance for lack of memory; it ends the run with its reason like any other failure.
    try {
        return run(parsed.options);
    } catch (const std::exception& error) {
        printError(QStringLiteral("Cannot restore \u201c%1\u201d: %2")
                       .arg(QFileInfo(parsed.options.input).fileName(), jobs::failureOf(error)));
        return 1;
    }
}

} // namespace clarovi::cli
