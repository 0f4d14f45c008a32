#include "auto_run.h"

#include "engine/log.h"
#include "engine/memory_policy.h"

#include <QMetaObject>

namespace clarovi::autosearch {

namespace {
constexpr int kPickPollOutOfFocus = 5000; // milliseconds
constexpr int kPickPollMotion = 2000;
} // namespace

AutoRun::AutoRun(jobs::ControllerState& state, AutoWindowPort& window)
    : m_state(state), m_window(window) {
    connect(&m_pickTimer, &QTimer::timeout, this, &AutoRun::unWrap);
}

AutoRun::~AutoRun() {
    m_cancel = true;
    joinWorker();
}

void AutoRun::joinWorker() {
    if (m_worker.joinable())
        m_worker.join();
}

void AutoRun::MainWrapper() {
    if (searching())
        return;
    m_window.showOverlay(true);
    m_cancel = false;
    m_before = {m_state.activeImage, m_state.autoSilent, m_state.currentAngle,
                m_state.currentWidth};

    m_search = std::make_unique<AutoSearch>(snapshotOf(m_state));
    if (m_testStep)
        m_search->setStep(m_testStep);

    m_worker = std::thread([this, search = m_search.get()] {
        // Updates travel by value to the main thread; the search touches nothing else shared.
        auto post = [this](const ProgressUpdate& update) {
            QMetaObject::invokeMethod(
                this, [this, update] { onUpdate(update); }, Qt::QueuedConnection);
        };
        try {
            search->run(post, m_cancel);
        } catch (const std::exception& error) {
            qCWarning(lcClarovi) << "auto search failed:" << error.what();
            m_cancel = true;
        }
        if (m_cancel.load())
            QMetaObject::invokeMethod(
                this, [this] { finishCancelled(); }, Qt::QueuedConnection);
    });
}

void AutoRun::onUpdate(const ProgressUpdate& update) {
    if (m_cancel.load()) {
        // Cancelled after the search had already posted its last step: end it here.
        if (update.last)
            finishCancelled();
        return;
    }
    m_window.showProgressText(QString::asprintf("Remaining time: %.0f", update.remaining));
    m_window.showProgress(double(update.fraction));
    if (update.kind == SearchKind::OutOfFocus)
        logLine("PROGRESS %f", double(update.fraction));
    emit updated(update);
    if (update.last)
        completionStep(update.kind);
}

void AutoRun::completionStep(SearchKind kind) {
    joinWorker();
    applyOutcome();
    autoRequested = false;
    m_window.showProgressText(QStringLiteral("Waiting for selection..."));
    m_window.showCv();
    m_pickTimer.start(kind == SearchKind::Motion ? kPickPollMotion : kPickPollOutOfFocus);
    emit completed();
}

// What the search leaves in the controller state reaches it here, on the main thread, once the
// search has ended.
void AutoRun::applyOutcome() {
    AutoSearch& search = *m_search;
    Data::getInstance().arrayOfData = std::move(search.results);
    m_state.activeImage = search.activeImage;
    m_state.autoSilent = search.autoSilent;
    m_state.currentAngle = search.currentAngle;
    m_state.currentWidth = search.currentWidth;
    m_state.autoLength = search.autoLength;
    m_state.autoLengthEnd = search.autoLengthEnd;
    m_state.autoAngleIndex = search.autoAngleIndex;
    m_state.autoLabelLength = search.autoLabelLength;
    m_state.autoSize = search.autoSize;
    m_state.autoProgress = search.autoProgress;
    m_search.reset();
}

void AutoRun::cancel() {
    if (searching())
        m_cancel = true;
}

void AutoRun::finishCancelled() {
    if (!m_search)
        return; // already ended
    joinWorker();
    m_search.reset();
    engine::giveBackFreedMemory();
    m_window.showOverlay(false);
    emit cancelled();
}

void AutoRun::keepCurrentSettings() {
    m_pickTimer.stop();
    m_state.activeImage = m_before.activeImage;
    m_state.autoSilent = m_before.autoSilent;
    m_state.currentAngle = m_before.currentAngle;
    m_state.currentWidth = m_before.currentWidth;
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
