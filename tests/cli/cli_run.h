#pragma once

#include <QByteArray>
#include <QProcess>
#include <QStringList>

#include <csignal>
#include <sys/resource.h>

namespace clarovi::testing {

/// Whether this build runs under AddressSanitizer, which reserves more address space than a
/// memory limit can allow.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
inline constexpr bool kAddressSanitizer = __has_feature(address_sanitizer);
#else
inline constexpr bool kAddressSanitizer = false;
#endif

struct CliRun {
    int exitCode = -1;
    QByteArray errors;
    QByteArray output;
    qsizetype messages() const { return ("\n" + errors).count("\nclarovi-cli: "); } // its own
};

/// Limits the program runs under, as ulimit sets them; 0 for none.
struct CliLimits {
    rlim_t memory = 0;   ///< address space, bytes
    rlim_t fileSize = 0; ///< bytes, with SIGXFSZ at its default: it ends a program that lets it
};

inline CliRun runCli(const QStringList& arguments, CliLimits limits = {}) {
    QProcess process;
    process.setChildProcessModifier([limits] {
        if (limits.memory) {
            const rlimit memory{limits.memory, limits.memory};
            setrlimit(RLIMIT_AS, &memory);
        }
        if (limits.fileSize) {
            const rlimit size{limits.fileSize, limits.fileSize};
            setrlimit(RLIMIT_FSIZE, &size);
            std::signal(SIGXFSZ, SIG_DFL);
        }
    });
    process.start(QStringLiteral(CLAROVI_CLI), arguments);
    const bool clean =
        process.waitForFinished(60'000) && process.exitStatus() == QProcess::NormalExit;
    process.kill(); // only if it hangs
    return {clean ? process.exitCode() : -1, process.readAllStandardError(),
            process.readAllStandardOutput()};
}

} // namespace clarovi::testing
