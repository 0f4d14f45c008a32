#include "export_run.h"

#include <QPromise>
#include <QtConcurrent/QtConcurrentRun>

namespace clarovi::jobs {

ExportRun::ExportRun() {
    connect(&m_watcher, &QFutureWatcher<ExportResult>::progressValueChanged, this,
            &ExportRun::progressed);
    connect(&m_watcher, &QFutureWatcher<ExportResult>::finished, this,
            [this] { emit finished(m_watcher.result(), m_target); });
}

ExportRun::~ExportRun() {
    cancel();
    m_watcher.waitForFinished();
}

bool ExportRun::start(const ExportRequest& request) {
    if (running())
        return false;
    auto stop = std::make_shared<std::atomic<bool>>(false);
    m_stop = stop;
    m_target = request.target;
    m_watcher.setFuture(QtConcurrent::run([request, stop](QPromise<ExportResult>& promise) {
        promise.setProgressRange(0, kProgressSteps);
        const JobControl control{
            [&promise](double done) { promise.setProgressValue(int(done * kProgressSteps)); },
            [stop] { return stop->load(); }};
        promise.addResult(exportFullSize(request, control));
    }));
    return true;
}

void ExportRun::cancel() {
    if (m_stop)
        *m_stop = true;
}

} // namespace clarovi::jobs
