#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

namespace clarovi::files {

/// While alive, what the image libraries report on this thread is kept here instead of printed,
/// and passed on only when the decoder category's warnings ("clarovi.decoder") are enabled. Qt's
/// image plugins report through Qt's message handler; libpng and libtiff are given handlers of
/// their own that do the same, so that nothing goes to the standard error stream (where a
/// sanitizer's report must stay visible and the command line prints one line per failure). One
/// handler serves every thread: it is installed while any thread keeps messages, and finds each
/// thread's keeper through a thread-local pointer; messages of threads that keep none go where
/// they went before. Keepers nest on a thread.
class LibraryMessages {
  public:
    LibraryMessages();
    ~LibraryMessages();
    LibraryMessages(const LibraryMessages&) = delete;
    LibraryMessages& operator=(const LibraryMessages&) = delete;

    /// Whether a message kept mentions words.
    bool mention(const char* words) const;

  private:
    static void route(QtMsgType type, const QMessageLogContext& context, const QString& text);
    QStringList m_lines;
    LibraryMessages* m_outer;
};

} // namespace clarovi::files
