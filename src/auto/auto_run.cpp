#include "auto_run.h"

#include "engine/log.h"
#include "engine/memory_policy.h"

#include <QPromise>
#include <QtConcurrent/QtConcurrentRun>

#include <cmath>

namespace clarovi::autosearch {

namespace {

// Runs the whole search on a pool thread; what it throws becomes the run's failure.
void searchWorker(QPromise<ProgressUpdate>& promise, AutoSearch* search, QString* failure) {
    try {
        search->run([&](const ProgressUpdate& update) { promise.addResult(update); },
                    [&] { return promise.isCanceled(); });
    } catch (const std::exception& error) {
        *failure = QStringLiteral("The automatic search failed: %1")
                       .arg(QString::fromLocal8Bit(error.what()));
    } catch (...) {
        *failure = QStringLiteral("The automatic search failed.");
    }
}

// The photograph's latest guess, when it is of the kind searched (or the guess decides the kind);
// otherwise the search makes its own.
std::optional<engine::BlurEstimate> guessFor(const jobs::ControllerState& state,
                                             engine::BlurKind kind, bool kindOfGuess) {
    if (!state.guess || !(state.guess->blur.length > 0) ||
        (!kindOfGuess && state.guess->blur.kind != kind))
        return std::nullopt;
    return state.guess;
}

} // namespace

QString remainingText(double seconds) {
    if (seconds < 1.0)
        return QObject::tr("Less than a second left");
    return QObject::tr("About %1 s left").arg(std::lround(seconds));
}

AutoRun::AutoRun(jobs::ControllerState& state, jobs::ActivityBoard& board, AutoWindowPort& window,
                 Restoration restoration)
    : m_state(state), m_board(board), m_window(window), m_restoration(std::move(restoration)) {
    connect(&m_watcher, &QFutureWatcher<ProgressUpdate>::resultReadyAt, this, &AutoRun::showUpdate);
    connect(&m_watcher, &QFutureWatcher<ProgressUpdate>::finished, this, &AutoRun::onFinished);
}

AutoRun::~AutoRun() {
    // The worker uses m_search and m_failure until it has finished.
    m_watcher.cancel();
    m_watcher.waitForFinished();
}

void AutoRun::MainWrapper(const jobs::Setting& asked, bool kindOfGuess) {
    if (searching() || m_state.previewSourceImage.isNull())
        return;
    // A shake's kernel is not searched: the search goes in the kind of the photograph's guess.
    jobs::Setting setting = asked;
    if (setting.blur.kind == engine::BlurKind::Shake) {
        setting.blur = jobs::Setting{}.blur;
        kindOfGuess = true;
    }
    m_board.setRunning(jobs::Activity::Searching, true);
    m_window.showProgress(0.0, {});
    m_cancelRequested = false;
    m_failure.clear();
    SearchInput input{m_state.previewSourceImage,
                      setting,
                      guessFor(m_state, setting.blur.kind, kindOfGuess),
                      m_state.analysisGrey,
                      m_state.region,
                      m_state.photoScale(),
                      kindOfGuess};
    m_search = std::make_unique<AutoSearch>(std::move(input), m_restoration);
    m_watcher.setFuture(QtConcurrent::run(searchWorker, m_search.get(), &m_failure));
}

void AutoRun::showUpdate(int index) {
    if (m_cancelRequested)
        return;
    const ProgressUpdate update = m_watcher.resultAt(index);
    m_window.showProgress(double(update.fraction), remainingText(update.remaining));
    if (update.kind == engine::BlurKind::OutOfFocus)
        logLine("PROGRESS %f", double(update.fraction));
    emit updated(update);
}

void AutoRun::onFinished() {
    if (!searching())
        return;
    if (m_cancelRequested) {
        endWithoutResults();
        emit cancelled();
    } else if (!m_failure.isEmpty()) {
        endWithoutResults();
        m_window.showSearchFailure(m_failure);
        emit failed(m_failure);
    } else {
        complete();
    }
}

// The results go to the gallery, on the main thread, once the search has ended.
void AutoRun::complete() {
    Data::getInstance().arrayOfData = std::move(m_search->results);
    m_search.reset();
    autoRequested = false;
    m_window.showProgress(1.0, tr("Pick the best restoration in the gallery"));
    m_board.setRunning(jobs::Activity::AwaitingPick, true);
    m_board.setRunning(jobs::Activity::Searching, false);
    m_window.showCv();
    emit completed();
}

void AutoRun::endWithoutResults() {
    m_search.reset();
    engine::giveBackFreedMemory();
    m_board.setRunning(jobs::Activity::Searching, false);
}

void AutoRun::cancel() {
    if (!searching())
        return;
    m_cancelRequested = true;
    m_watcher.cancel();
}

void AutoRun::keepCurrentSettings() {
    m_board.setRunning(jobs::Activity::AwaitingPick, false);
}

void AutoRun::releaseResults() {
    std::vector<AutoResult>().swap(Data::getInstance().arrayOfData);
    engine::giveBackFreedMemory();
}

void AutoRun::unWrap() {
    if (!Data::getInstance().toPut.load())
        return;
    m_board.setRunning(jobs::Activity::AwaitingPick, false);
    m_window.AppearActions();
}

} // namespace clarovi::autosearch
