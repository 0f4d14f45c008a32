#pragma once

#include <QStringList>

class QSettings;

namespace clarovi::app {

/// The photographs opened last, newest first, kept in the settings across runs.
class RecentFiles {
  public:
    static constexpr int kLimit = 8;

    explicit RecentFiles(QSettings& settings) : m_settings(settings) {}

    /// Puts path first, once.
    void add(const QString& path);
    void remove(const QString& path);
    QStringList paths() const;
    /// Drops the files that are no longer there; returns them.
    QStringList pruneMissing();

  private:
    void store(const QStringList& paths);

    QSettings& m_settings;
};

} // namespace clarovi::app
