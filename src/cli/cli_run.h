#pragma once

#include <QStringList>

namespace clarovi::cli {

/// Runs the command line given its arguments (the program's name first), printing what the run
/// says on stdout and stderr, and returns the process's exit status: 0 done, 1 failed, 2 refused
/// arguments. Needs a QCoreApplication.
int runCommandLine(const QStringList& arguments);

} // namespace clarovi::cli
