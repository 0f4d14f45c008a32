#pragma once

#include <QLoggingCategory>

namespace clarovi {

/// The one category for the program's fixed log lines ("MULTIPLIER %f", "calc", ...). They are
/// debug messages, off by default: on with --verbose or QT_LOGGING_RULES="clarovi.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcClarovi)

/// Writes one fixed log line, printf-style, without quoting, when the category's debug level is on.
void logLine(const char* format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(1, 2);

} // namespace clarovi
