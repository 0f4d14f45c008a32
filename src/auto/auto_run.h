#pragma once

#include "auto_search.h"
#include "jobs/activity_board.h"
#include "jobs/controller_state.h"

#include <QFutureWatcher>
#include <QObject>

#include <memory>

namespace clarovi::autosearch {

/// What an auto run needs of the main window: its progress display, the gallery, the step that
/// applies a pick, and a word to the user when the search fails.
class AutoWindowPort {
  public:
    virtual ~AutoWindowPort() = default;
    /// fraction from 0 to 1, with a line on the time left.
    virtual void showProgress(double fraction, const QString& text) = 0;
    /// Opens a fresh gallery on Data's results.
    virtual void showCv() = 0;
    virtual void AppearActions() = 0;
    /// Tells the user why the search ended without results.
    virtual void showSearchFailure(const QString& why) = 0;
};

/// One auto run at a time: the search on a pool thread, a progress update on the main thread
/// after every step, then the gallery, whose pick is applied at once. What it does is on the
/// activity board: searching, then awaiting a pick.
class AutoRun : public QObject {
    Q_OBJECT
  public:
    /// restoration replaces the real restoration of every setting of the grid when given.
    AutoRun(jobs::ControllerState& state, jobs::ActivityBoard& board, AutoWindowPort& window,
            Restoration restoration = {});
    /// Cancels a search under way and waits for it.
    ~AutoRun() override;

    /// Starts the search on its own copy of the photograph (its region, when one is marked) for
    /// blurs of setting's kind, or with kindOfGuess of the kind of the best guess: around the
    /// state's guess when it has one of that kind, around one estimated first otherwise. A shake is
    /// searched as with kindOfGuess.
    void MainWrapper(const jobs::Setting& setting, bool kindOfGuess = false);
    /// Asks for a run when the main window next runs AppearActions (after an open).
    void automatizateIt() { autoRequested = true; }
    /// Stops the search after the step under way; its results are dropped.
    void cancel();
    /// Ends the wait for a pick without one: nothing is restored.
    void keepCurrentSettings();
    /// A pick was made in the gallery: it is applied and the wait ends.
    void unWrap();
    /// Once the gallery has closed: drops the latest results and gives the memory of the run back
    /// to the system.
    void releaseResults();

    bool searching() const { return m_search != nullptr; }

    bool autoRequested = false;

  signals:
    void updated(const clarovi::autosearch::ProgressUpdate& update);
    void completed();
    void cancelled();
    /// The search threw: its results are dropped.
    void failed(const QString& why);

  private:
    void showUpdate(int index);
    void onFinished();
    void complete();
    void endWithoutResults();

    jobs::ControllerState& m_state;
    jobs::ActivityBoard& m_board;
    AutoWindowPort& m_window;
    Restoration m_restoration;
    std::unique_ptr<AutoSearch> m_search; ///< the run's search; the worker's until it finishes
    QFutureWatcher<ProgressUpdate> m_watcher;
    bool m_cancelRequested = false;
    QString m_failure; ///< written by the worker only, read once it has finished
};

/// The overlay's line during a search: "About 12 s left", or "Less than a second left".
QString remainingText(double seconds);

} // namespace clarovi::autosearch
