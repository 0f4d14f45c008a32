#include "recent_files.h"

#include <QFileInfo>
#include <QSettings>

namespace clarovi::app {

namespace {
constexpr auto kKey = "recentFiles";
}

QStringList RecentFiles::paths() const {
    return m_settings.value(QLatin1String(kKey)).toStringList();
}

void RecentFiles::store(const QStringList& paths) {
    m_settings.setValue(QLatin1String(kKey), paths.mid(0, kLimit));
}

void RecentFiles::add(const QString& path) {
    const QString absolute = QFileInfo(path).absoluteFilePath();
    QStringList list = paths();
    list.removeAll(absolute);
    list.prepend(absolute);
    store(list);
}

void RecentFiles::remove(const QString& path) {
    QStringList list = paths();
    list.removeAll(QFileInfo(path).absoluteFilePath());
    store(list);
}

QStringList RecentFiles::pruneMissing() {
    QStringList kept;
    QStringList missing;
    for (const QString& path : paths())
        (QFileInfo::exists(path) ? kept : missing) << path;
    if (!missing.isEmpty())
        store(kept);
    return missing;
}

} // namespace clarovi::app
