#include "cli/cli_run.h"
#include "engine/memory_policy.h"

#include <QCoreApplication>

#include <csignal>

int main(int argc, char** argv) {
    // Past a file size limit a write then fails with "File too large", which the run reports,
    // instead of the signal ending the program without a word.
    std::signal(SIGXFSZ, SIG_IGN);
    clarovi::engine::keepFreedMemoryForReuse();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("clarovi-cli"));
    return clarovi::cli::runCommandLine(QCoreApplication::arguments());
}
