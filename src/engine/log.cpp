#include "log.h"

#include <cstdarg>

namespace clarovi {

Q_LOGGING_CATEGORY(lcClarovi, "clarovi", QtInfoMsg)

void logLine(const char* format, ...) {
    if (!lcClarovi().isInfoEnabled())
        return;
    va_list args;
    va_start(args, format);
    const QString text = QString::vasprintf(format, args);
    va_end(args);
    qCInfo(lcClarovi).noquote() << text;
}

} // namespace clarovi
