#pragma once

#include "auto_search.h"
#include "jobs/controller_state.h"

#include <QObject>
#include <QTimer>

#include <atomic>
#include <memory>
#include <thread>

namespace clarovi::autosearch {

/// What an auto run needs of the main window: its overlay with the progress bar and label, the
/// gallery, and the step that applies a pick.
class AutoWindowPort {
  public:
    virtual ~AutoWindowPort() = default;
    virtual void showOverlay(bool shown) = 0;
    virtual void showProgress(double fraction) = 0;
    virtual void showProgressText(const QString& text) = 0;
    /// Opens a fresh gallery on Data's results.
    virtual void showCv() = 0;
    virtual void AppearActions() = 0;
};

/// One auto run at a time: the search on a worker thread behind the overlay, a progress update
/// on the main thread after every step, the gallery when done, and a timer that applies the pick.
class AutoRun : public QObject {
    Q_OBJECT
  public:
    AutoRun(jobs::ControllerState& state, AutoWindowPort& window);
    ~AutoRun() override;

    /// Shows the overlay and starts the search on its own snapshot of the state.
    void MainWrapper();
    /// Asks for a run when the main window next runs AppearActions (after an open).
    void automatizateIt() { autoRequested = true; }
    /// Stops the search after the step under way; its results are dropped and the state stays
    /// as it was before the run.
    void cancel();
    /// Ends the wait for a pick without one: the overlay goes, nothing is restored, and what the
    /// search changed of the state the window's controls stand for is put back.
    void keepCurrentSettings();
    /// At every tick of the pick timer: applies a pick once one waits.
    void unWrap();
    /// Once the gallery has closed: drops the latest results and gives the memory of the run back
    /// to the system.
    void releaseResults();

    bool searching() const { return m_worker.joinable(); }
    const QTimer& pickTimer() const { return m_pickTimer; }
    /// Replaces the restoration of one step, for tests of the run itself.
    void setStepForTests(AutoSearch::Step step) { m_testStep = std::move(step); }

    bool autoRequested = false;

  signals:
    void updated(const clarovi::autosearch::ProgressUpdate& update);
    void completed();
    void cancelled();

  private:
    void onUpdate(const ProgressUpdate& update);
    void completionStep(SearchKind kind);
    void finishCancelled();
    void applyOutcome();
    void joinWorker();

    jobs::ControllerState& m_state;
    AutoWindowPort& m_window;
    std::unique_ptr<AutoSearch> m_search;
    std::thread m_worker;
    std::atomic<bool> m_cancel{false};
    QTimer m_pickTimer;
    /// What the window's controls stood for before the run.
    struct Settings {
        QImage activeImage;
        bool autoSilent = false;
        double currentAngle = 0;
        double currentWidth = 0;
    } m_before;
    AutoSearch::Step m_testStep;
};

} // namespace clarovi::autosearch
