#include "library_messages.h"

#include "picture_file.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>

namespace clarovi::files {

namespace {

thread_local LibraryMessages* t_keeper = nullptr;
std::mutex s_installing;
int s_keepers = 0;
std::atomic<QtMessageHandler> s_previous = nullptr;

} // namespace

LibraryMessages::LibraryMessages() : m_outer(t_keeper) {
    t_keeper = this;
    const std::lock_guard<std::mutex> lock(s_installing);
    if (s_keepers++ == 0)
        s_previous = qInstallMessageHandler(&LibraryMessages::route);
}

LibraryMessages::~LibraryMessages() {
    {
        const std::lock_guard<std::mutex> lock(s_installing);
        if (--s_keepers == 0)
            qInstallMessageHandler(s_previous.load());
    }
    t_keeper = m_outer;
}

bool LibraryMessages::mention(const char* words) const {
    return std::any_of(m_lines.cbegin(), m_lines.cend(), [words](const QString& line) {
        return line.contains(QLatin1String(words));
    });
}

void LibraryMessages::route(QtMsgType type, const QMessageLogContext& context,
                            const QString& text) {
    if (LibraryMessages* keeper = t_keeper) {
        keeper->m_lines << text;
        // The libraries' handlers write to lcDecoder, whose filter has already spoken.
        const bool decoder = qstrcmp(context.category, lcDecoder().categoryName()) == 0;
        if (!decoder && !lcDecoder().isWarningEnabled())
            return;
    }
    if (const QtMessageHandler previous = s_previous.load())
        previous(type, context, text);
    else // Qt's own output, which has no handler of its own to call
        std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, text)));
}

} // namespace clarovi::files
