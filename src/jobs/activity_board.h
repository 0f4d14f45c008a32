#pragma once

#include <QObject>

#include <array>

namespace clarovi::jobs {

/// The kinds of work that keep the window busy.
enum class Activity {
    Restoring,    ///< a full restoration is due or under way
    Estimating,   ///< the blur estimate runs in the background
    Exporting,    ///< the full-size export runs behind its progress dialog
    Searching,    ///< an automatic search runs behind its overlay
    AwaitingPick, ///< the gallery of a finished search waits for a pick
};

/// What is running: the one place that the side panel, the menus, the status bar and the
/// overlay learn it from. Each activity is on or off; changed() follows every change.
class ActivityBoard : public QObject {
    Q_OBJECT
  public:
    void setRunning(Activity activity, bool running);
    bool running(Activity activity) const { return m_running[index(activity)]; }
    /// Whether the controls that change the setting, open a picture or start a job take input:
    /// not while a restoration, an export or a search holds the picture. An estimate leaves them
    /// free: it only reads the picture.
    bool controlsFree() const;
    /// Whether the automatic search covers the window (searching, or waiting for a pick).
    bool covered() const;
    /// A word for the status bar: what runs, most important first, or "Ready".
    QString summary() const;

  signals:
    void changed();

  private:
    static size_t index(Activity activity) { return static_cast<size_t>(activity); }
    std::array<bool, 5> m_running{};
};

} // namespace clarovi::jobs
