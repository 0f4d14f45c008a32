#pragma once

#include "auto/data.h"

#include <QMutex>
#include <QStringList>
#include <QThreadPool>

#include <vector>

namespace clarovi::cli {

/// Writes the thumbnails of a search into a folder as NNNN.png while the search goes on, one
/// after another on a thread of its own, and their index.csv once it is done. A failure takes
/// back what was written, and the folders made for it.
class SearchWriter {
  public:
    explicit SearchWriter(QString folder);
    /// Waits for the writes under way.
    ~SearchWriter();
    SearchWriter(const SearchWriter&) = delete;
    SearchWriter& operator=(const SearchWriter&) = delete;

    /// Makes the folder; an empty string, or why it cannot.
    QString open();
    /// Queues one result to be written; its index is the number queued before it.
    void add(const autosearch::AutoResult& result);
    /// A write has failed: nothing more is written.
    bool failed() const;
    /// Waits for the writes, then writes index.csv; an empty string, or why the search could not
    /// be written (all of it taken back then).
    QString finish();

  private:
    void writeThumbnail(const QImage& thumbnail, const QString& path);
    QString takeBack(const QString& error);

    QString m_folder;
    QStringList m_madeFolders;
    QString m_index;
    int m_count = 0;
    QThreadPool m_writer;
    mutable QMutex m_lock; ///< guards what the writer's thread records
    QStringList m_written;
    QString m_error;
};

} // namespace clarovi::cli
