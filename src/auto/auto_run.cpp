#include "auto_run.h"

#include "engine/log.h"
#include "engine/memory_policy.h"

#include <QPromise>
#include <QtConcurrent/QtConcurrentRun>

namespace clarovi::autosearch {

namespace {

constexpr int kPickPollOutOfFocus = 5000; // milliseconds
constexpr int kPickPollMotion = 2000;

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

// The search goes around the blur estimated in the picture when it is of the kind searched;
// otherwise, and without an estimate, over the fixed grid.
std::optional<engine::BlurOnPhoto> aroundEstimate(const jobs::ControllerState& state,
                                                  engine::BlurKind kind) {
    if (!state.estimate || state.estimate->kind != kind)
        return std::nullopt;
    return state.estimate;
}

} // namespace

AutoRun::AutoRun(jobs::ControllerState& state, AutoWindowPort& window, Restoration restoration)
    : m_state(state), m_window(window), m_restoration(std::move(restoration)) {
    connect(&m_pickTimer, &QTimer::timeout, this, &AutoRun::unWrap);
    connect(&m_watcher, &QFutureWatcher<ProgressUpdate>::resultReadyAt, this, &AutoRun::showUpdate);
    connect(&m_watcher, &QFutureWatcher<ProgressUpdate>::finished, this, &AutoRun::onFinished);
}

AutoRun::~AutoRun() {
    // The worker uses m_search and m_failure until it has finished.
    m_watcher.cancel();
    m_watcher.waitForFinished();
}

void AutoRun::MainWrapper(const jobs::Setting& setting) {
    if (searching() || m_state.previewSourceImage.isNull())
        return;
    m_window.showOverlay(true);
    m_cancelRequested = false;
    m_failure.clear();
    SearchInput input{m_state.previewSourceImage, setting,
                      aroundEstimate(m_state, setting.blur.kind)};
    m_search = std::make_unique<AutoSearch>(std::move(input), m_restoration);
    m_watcher.setFuture(QtConcurrent::run(searchWorker, m_search.get(), &m_failure));
}

void AutoRun::showUpdate(int index) {
    if (m_cancelRequested)
        return;
    const ProgressUpdate update = m_watcher.resultAt(index);
    m_window.showProgressText(QString::asprintf("Remaining time: %.0f", update.remaining));
    m_window.showProgress(double(update.fraction));
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
    const engine::BlurKind kind = m_search->kind();
    Data::getInstance().arrayOfData = std::move(m_search->results);
    m_search.reset();
    autoRequested = false;
    m_window.showProgressText(QStringLiteral("Waiting for selection..."));
    m_window.showCv();
    m_pickTimer.start(kind == engine::BlurKind::Motion ? kPickPollMotion : kPickPollOutOfFocus);
    emit completed();
}

void AutoRun::endWithoutResults() {
    m_search.reset();
    engine::giveBackFreedMemory();
    m_window.showOverlay(false);
}

void AutoRun::cancel() {
    if (!searching())
        return;
    m_cancelRequested = true;
    m_watcher.cancel();
}

void AutoRun::keepCurrentSettings() {
    m_pickTimer.stop();
    m_window.showOverlay(false);
}

void AutoRun::releaseResults() {
    std::vector<AutoResult>().swap(Data::getInstance().arrayOfData);
    engine::giveBackFreedMemory();
}

void AutoRun::unWrap() {
    if (!Data::getInstance().toPut.load())
        return;
    m_window.showOverlay(false);
    m_window.AppearActions();
    m_pickTimer.stop();
}

} // namespace clarovi::autosearch
