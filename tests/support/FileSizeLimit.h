#pragma once

#include <csignal>
#include <sys/resource.h>

namespace TestSupport {

/// While alive, no file of this process may grow past `bytes`: a write
/// beyond fails with EFBIG as on a full disk, instead of raising SIGXFSZ.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        m_previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_previous);
        rlimit limit = m_previous;
        limit.rlim_cur = bytes;
        m_active = setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_previousHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    bool active() const { return m_active; }

private:
    rlimit m_previous{};
    void (*m_previousHandler)(int) = nullptr;
    bool m_active = false;
};

} // namespace TestSupport
