#pragma once

#include <QLoggingCategory>

namespace clarovi {

/// The one category for the program's fixed log lines ("MULTIPLIER %f", "calc", ...); to stderr.
Q_DECLARE_LOGGING_CATEGORY(lcClarovi)

/// Writes one fixed log line, printf-style, without quoting.
void logLine(const char* format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(1, 2);

} // namespace clarovi
