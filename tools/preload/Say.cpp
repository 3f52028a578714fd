#include "preload/Say.h"

#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigtimedwait()
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace ZcePreload {

namespace {

// A write of the calling thread into a pipe that nobody reads does not end the process: its SIGPIPE
// is taken back, unless there was one before.
class CNoPipeSignal {
  public:
    CNoPipeSignal() {
        sigset_t pending;
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_mask);
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
    }
    ~CNoPipeSignal() {
        const int kept = errno;
        const timespec atOnce{0, 0};
        if (!m_wasPending) {
            sigtimedwait(&m_pipe, nullptr, &atOnce);
        }
        pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
        errno = kept;
    }
    CNoPipeSignal(const CNoPipeSignal&) = delete;
    CNoPipeSignal& operator=(const CNoPipeSignal&) = delete;

  private:
    sigset_t m_pipe{};
    sigset_t m_mask{};
    bool m_wasPending = false;
};

}  // namespace

void Say(const char* library, const std::string& text) {
    const std::string line = library + (": " + text) + "\n";
    const int kept = errno;
    const CNoPipeSignal noSignal;
    (void)!write(STDERR_FILENO, line.data(), line.size());
    errno = kept;
}

}  // namespace ZcePreload
