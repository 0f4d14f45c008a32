#pragma once

#include <csignal>
#include <sys/resource.h>

namespace clarovi::testing {

/// While alive, no file this process writes may grow beyond bytes: writes past it fail as on a
/// full disk, for root too. Used to make saves fail.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &m_saved);
        m_oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = m_saved;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_saved);
        std::signal(SIGXFSZ, m_oldHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit m_saved{};
    void (*m_oldHandler)(int) = nullptr;
};

} // namespace clarovi::testing
