#pragma once

#include <QLoggingCategory>
#include <QMutex>
#include <QStringList>
#include <QtGlobal>

namespace clarovi::testing {

/// While alive, turns the program's log lines on and keeps them instead of printing them, for a
/// test to count.
class LogCapture {
  public:
    LogCapture() {
        QMutexLocker locker(&mutex());
        lines().clear();
        m_previous = qInstallMessageHandler(&LogCapture::keep);
        QLoggingCategory::setFilterRules(QStringLiteral("clarovi.debug=true"));
    }
    ~LogCapture() {
        QLoggingCategory::setFilterRules(QString());
        qInstallMessageHandler(m_previous);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// How many lines start with prefix.
    int count(const QString& prefix) const {
        QMutexLocker locker(&mutex());
        int n = 0;
        for (const QString& line : lines())
            n += line.startsWith(prefix) ? 1 : 0;
        return n;
    }
    static QMutex& mutex() {
        static QMutex guard;
        return guard;
    }
    static QStringList& lines() {
        static QStringList kept;
        return kept;
    }

  private:
    static void keep(QtMsgType, const QMessageLogContext&, const QString& message) {
        QMutexLocker locker(&mutex());
        lines() << message;
    }
    QtMessageHandler m_previous = nullptr;
};

} // namespace clarovi::testing
