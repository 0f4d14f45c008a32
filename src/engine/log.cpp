#include "log.h"

#include <cstdarg>

namespace clarovi {

// Warnings show; the fixed log lines are debug messages, off unless asked for.
Q_LOGGING_CATEGORY(lcClarovi, "clarovi", QtInfoMsg)

void logLine(const char* format, ...) {
    if (!lcClarovi().isDebugEnabled())
        return;
    va_list args;
    va_start(args, format);
    const QString text = QString::vasprintf(format, args);
    va_end(args);
    qCDebug(lcClarovi).noquote() << text;
}

} // namespace clarovi
