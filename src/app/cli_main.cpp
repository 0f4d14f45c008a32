#include "auto/auto_search.h"
#include "cli_options.h"
#include "engine/memory_policy.h"
#include "jobs/control_sequences.h"
#include "jobs/controller_state.h"
#include "jobs/full_size_export.h"
#include "jobs/headless_window.h"
#include "jobs/picture_file.h"
#include "jobs/restoration_jobs.h"
#include "jobs/slider_ranges.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSaveFile>

#include <cstdio>
#include <exception>

namespace {

using namespace clarovi;

// A refusal or failure is one line on stderr, so that scripts can show it as it stands.
void printError(const QString& message) {
    std::fprintf(stderr, "clarovi-cli: %s\n", message.simplified().toUtf8().constData());
}

// The controls set as the user would leave them. Releasing the length slider, or the width slider
// (usable only in motion mode), records the length for the border padding; an untouched slider
// leaves it at 0, as after opening.
void applyOptions(const app::CliOptions& options, jobs::ControllerState& state,
                  jobs::HeadlessWindow& window) {
    window.length = options.lengthOrInitial();
    window.mu = options.sharpness;
    window.motion = state.motionBlur = options.motion;
    window.angle = state.currentAngle = options.angle;
    window.width = state.currentWidth = options.widthOrInitial();
    const bool lengthReleased = options.length || (options.motion && options.width);
    state.eventLength = lengthReleased ? window.length : 0.0f;
}

// The first computations of a fresh picture, then the colour restoration when asked for; or
// the live preview of one drag step of the length slider.
void restore(const app::CliOptions& options, jobs::ControlSequences& sequences,
             jobs::RestorationJobs& restorations) {
    if (options.tiled) {
        sequences.LengthNew(false);
        return;
    }
    sequences.showFirstRestoration();
    if (options.rgb)
        restorations.runCompFalse();
}

// The folders of path that do not exist yet, the outermost first.
QStringList missingFolders(const QString& path) {
    QStringList missing;
    for (QString folder = QDir::cleanPath(QDir::current().absoluteFilePath(path));
         !QFileInfo::exists(folder); folder = QFileInfo(folder).path())
        missing.prepend(folder);
    return missing;
}

// Every thumbnail as OUTDIR/NNNN.png and their index.csv; an empty string, or why not. What a
// failed write leaves behind goes again: the files written and the folders made.
QString writeSearch(const std::vector<autosearch::AutoResult>& results, const QString& folder) {
    const QStringList made = missingFolders(folder);
    QStringList written;
    auto fail = [&](const QString& error) {
        for (const QString& file : written)
            QFile::remove(file);
        if (!made.isEmpty())
            QDir(made.first()).removeRecursively();
        return error;
    };
    if (!QDir().mkpath(folder))
        return fail(QStringLiteral("Cannot create the folder \u201c%1\u201d.").arg(folder));
    const QDir dir(folder);
    QString index = QStringLiteral("index,searched length,label length,angle\n");
    for (size_t k = 0; k < results.size(); ++k) {
        const autosearch::AutoResult& result = results[k];
        const QString path = dir.filePath(QStringLiteral("%1.png").arg(k, 4, 10, QLatin1Char('0')));
        if (const QString error = jobs::savePng(result.thumbnail, path); !error.isEmpty())
            return fail(error);
        written << path;
        index += QStringLiteral("%1,%2,%3,%4\n")
                     .arg(k)
                     .arg(result.searchedLength)
                     .arg(result.labelLength)
                     .arg(double(result.angle));
    }
    QSaveFile file(dir.filePath(QStringLiteral("index.csv")));
    if (!file.open(QIODevice::WriteOnly) || file.write(index.toUtf8()) < 0 || !file.commit())
        return fail(
            QStringLiteral("Cannot save \u201cindex.csv\u201d: %1.").arg(file.errorString()));
    return {};
}

// The automatic search of the window's auto button, without the window: progress on stderr as
// the overlay shows it, every result written out. Picking one is the window's business.
int runSearch(const app::CliOptions& options, jobs::ControllerState& state) {
    autosearch::AutoSearch search(autosearch::snapshotOf(state));
    search.run([](const autosearch::ProgressUpdate& update) {
        std::fprintf(stderr, "%3.0f%%  Remaining time: %.0f\n", 100.0 * update.fraction,
                     update.remaining);
    });
    const QString error = writeSearch(search.results, options.autoDir);
    if (!error.isEmpty()) {
        printError(error);
        return 1;
    }
    return 0;
}

// The blur model and sharpness the options set, as the window's controls would show them.
jobs::BlurSetting blurSettingFor(const app::CliOptions& options) {
    jobs::ControllerState state;
    jobs::HeadlessWindow window;
    state.setUpDefaults(window.mu, jobs::kSharpnessRange.minimum, jobs::kSharpnessRange.maximum,
                        window.length);
    applyOptions(options, state, window);
    return jobs::blurSettingOf(state, window.length, window.angle, window.width, window.mu);
}

// One photograph restored at its own size into target; whether it was written.
bool exportOne(const QString& input, const QString& target, const jobs::BlurSetting& setting,
               const app::CliOptions& options) {
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
// with the list of those that failed.
int exportBatch(const app::CliOptions& options, const jobs::BlurSetting& setting) {
    if (!QDir().mkpath(options.outDir)) {
        printError(QStringLiteral("Cannot create the folder \u201c%1\u201d.").arg(options.outDir));
        return 1;
    }
    QStringList failures;
    const qsizetype count = options.inputs.size();
    for (qsizetype i = 0; i < count; ++i) {
        const QString& input = options.inputs[i];
        const QString target = jobs::exportName(input, options.outDir, options.format);
        std::fprintf(stderr, "[%lld/%lld] %s\n", static_cast<long long>(i + 1),
                     static_cast<long long>(count), qPrintable(QDir::toNativeSeparators(target)));
        if (!exportOne(input, target, setting, options))
            failures << input;
    }
    if (failures.isEmpty())
        return 0;
    printError(QStringLiteral("%1 of %2 photographs failed: %3")
                   .arg(failures.size())
                   .arg(count)
                   .arg(failures.join(QStringLiteral(", "))));
    return 1;
}

int runFullSize(const app::CliOptions& options) {
    const jobs::BlurSetting setting = blurSettingFor(options);
    if (!options.outDir.isEmpty())
        return exportBatch(options, setting);
    return exportOne(options.input, options.output, setting, options) ? 0 : 1;
}

int run(const app::CliOptions& options) {
    if (options.fullSize)
        return runFullSize(options);
    const jobs::LoadedPicture loaded = jobs::loadPicture(options.input);
    if (loaded.image.isNull()) {
        printError(loaded.error);
        return 1;
    }
    jobs::ControllerState state;
    jobs::HeadlessWindow window;
    jobs::RestorationJobs restorations(state, window);
    jobs::ControlSequences sequences(state, window, restorations);
    sequences.setUpDefaults();
    sequences.pickImg(loaded.image);
    applyOptions(options, state, window);
    if (!options.autoDir.isEmpty())
        return runSearch(options, state);
    restore(options, sequences, restorations);
    if (!window.errors.isEmpty()) {
        for (const QString& error : window.errors)
            printError(error);
        return 1;
    }
    const QString saveError = jobs::savePng(window.shown, options.output);
    if (!saveError.isEmpty()) {
        printError(saveError);
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    clarovi::engine::keepFreedMemoryForReuse();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("clarovi-cli"));
    const app::CliParseResult parsed = app::parseCliOptions(QCoreApplication::arguments());
    // A run prints nothing but its one line of refusal or failure, unless asked for more.
    if (parsed.options.verbose)
        QLoggingCategory::setFilterRules(QStringLiteral("clarovi*=true"));
    switch (parsed.outcome) {
    case app::CliParseResult::Outcome::Help:
        std::fputs(parsed.message.toUtf8().constData(), stdout);
        return 0;
    case app::CliParseResult::Outcome::Error:
        printError(parsed.message);
        return 2;
    case app::CliParseResult::Outcome::Run:
        break;
    }
    // The set-up outside the jobs (the first PSF, the working copies) can fail as well, for
    // instance for lack of memory; it ends the run with its reason like any other failure.
    try {
        return run(parsed.options);
    } catch (const std::exception& error) {
        printError(QString::fromUtf8(error.what()));
        return 1;
    }
}
