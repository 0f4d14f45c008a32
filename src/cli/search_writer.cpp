#include "cli/search_writer.h"

#include "files/grey_png.h"
#include "files/picture_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>
#include <QSaveFile>

namespace clarovi::cli {

namespace {

// The folders of path that do not exist yet, the outermost first.
QStringList missingFolders(const QString& path) {
    QStringList missing;
    for (QString folder = QDir::cleanPath(QDir::current().absoluteFilePath(path));
         !QFileInfo::exists(folder); folder = QFileInfo(folder).path())
        missing.prepend(folder);
    return missing;
}

} // namespace

SearchWriter::SearchWriter(QString folder)
    : m_folder(std::move(folder)), m_index(QStringLiteral("index,kind,length,angle,score\n")) {
    // One thread writes every file in turn; the search keeps the other cores.
    m_writer.setMaxThreadCount(1);
}

SearchWriter::~SearchWriter() {
    m_writer.waitForDone();
}

QString SearchWriter::open() {
    m_madeFolders = missingFolders(m_folder);
    if (QDir().mkpath(m_folder))
        return {};
    return takeBack(QStringLiteral("Cannot create the folder \u201c%1\u201d.").arg(m_folder));
}

void SearchWriter::add(const autosearch::AutoResult& result) {
    const QString path =
        QDir(m_folder).filePath(QStringLiteral("%1.png").arg(m_count, 4, 10, QLatin1Char('0')));
    const bool motion = result.blur.kind == engine::BlurKind::Motion;
    m_index += QStringLiteral("%1,%2,%3,%4,%5\n")
                   .arg(m_count)
                   .arg(motion ? QStringLiteral("motion") : QStringLiteral("focus"))
                   .arg(result.blur.length)
                   .arg(result.blur.angle)
                   .arg(result.score, 0, 'f', 4);
    ++m_count;
    m_writer.start([this, thumbnail = result.thumbnail, path] { writeThumbnail(thumbnail, path); });
}

void SearchWriter::writeThumbnail(const QImage& thumbnail, const QString& path) {
    if (failed())
        return;
    const QByteArray png = files::encodeGreyPng(thumbnail);
    // A plain write: the folder is the search's own and a failure takes all of it back, so the
    // temporary file and the flush to disk of an atomic save would only slow the search down.
    QFile file(path);
    QString error;
    if (png.isEmpty())
        error = QStringLiteral("Cannot encode \u201c%1\u201d.").arg(path);
    else if (!file.open(QIODevice::WriteOnly) || file.write(png) != png.size() || !file.flush())
        error = QStringLiteral("Cannot save \u201c%1\u201d: %2.").arg(path, file.errorString());
    QMutexLocker locked(&m_lock);
    if (error.isEmpty())
        m_written << path;
    else if (m_error.isEmpty())
        m_error = error;
}

bool SearchWriter::failed() const {
    QMutexLocker locked(&m_lock);
    return !m_error.isEmpty();
}

QString SearchWriter::finish() {
    m_writer.waitForDone();
    if (failed())
        return takeBack(m_error);
    QSaveFile file(QDir(m_folder).filePath(QStringLiteral("index.csv")));
    if (!file.open(QIODevice::WriteOnly) || file.write(m_index.toUtf8()) < 0 || !file.commit())
        return takeBack(
            QStringLiteral("Cannot save \u201cindex.csv\u201d: %1.").arg(file.errorString()));
    return {};
}

QString SearchWriter::takeBack(const QString& error) {
    m_writer.waitForDone();
    for (const QString& file : m_written)
        QFile::remove(file);
    if (!m_madeFolders.isEmpty())
        QDir(m_madeFolders.first()).removeRecursively();
    return error;
}

} // namespace clarovi::cli
