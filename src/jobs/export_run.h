#pragma once

#include "full_size_export.h"

#include <QFutureWatcher>
#include <QObject>

#include <atomic>
#include <memory>

namespace clarovi::jobs {

/// The full-size export of the opened photograph, one at a time, off the main thread: its
/// progress and its outcome are reported on the thread that started it.
class ExportRun : public QObject {
    Q_OBJECT
  public:
    ExportRun();
    /// Stops an export under way and waits for it; nothing is written then.
    ~ExportRun() override;

    /// Starts the export; does nothing and returns false while one runs.
    bool start(const ExportRequest& request);
    /// Asks the export under way to stop; its outcome then says it was cancelled.
    void cancel();
    bool running() const { return m_watcher.isRunning(); }

    /// Progress is reported in steps of 1 / kProgressSteps.
    static constexpr int kProgressSteps = 1000;

  signals:
    void progressed(int steps);
    void finished(const clarovi::jobs::ExportResult& result, const QString& target);

  private:
    QFutureWatcher<ExportResult> m_watcher;
    /// Read by the worker: a flag of its own rather than the future's cancel, so that its result
    /// always arrives and says whether the file was written.
    std::shared_ptr<std::atomic<bool>> m_stop;
    QString m_target;
};

} // namespace clarovi::jobs
