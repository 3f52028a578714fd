#include "vendor/StandardError.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigpending() and the like
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace ZceBoard {

namespace {

// While it lives, a write of this thread to a pipe that nobody reads fails and raises nothing.
class CNoBrokenPipe {
  public:
    CNoBrokenPipe() {
        sigset_t pending;
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigpending(&pending);
        m_bPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~CNoBrokenPipe() {
        if (!m_bPending) {  // one that was there before is the application's
            const timespec now{0, 0};
            sigtimedwait(&m_pipe, nullptr, &now);
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    CNoBrokenPipe(const CNoBrokenPipe&) = delete;
    CNoBrokenPipe& operator=(const CNoBrokenPipe&) = delete;

  private:
    sigset_t m_pipe;
    sigset_t m_before;
    bool m_bPending;
};

// A second description of standard error's pipe or terminal, one that does not wait: the flag on
// the first one would reach every process that shares it. -1: there is none.
int OpenAnew() {
    return open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

void WriteOnce(int file, const char* line, size_t size) {
    [[maybe_unused]] const ssize_t written = write(file, line, size);  // lost is lost
}

// Whether there is a standard error. If the application has closed it, the number is that of the
// next file that was opened: the board's memory, for one. A standard error is there for programs
// that the process starts, and such a file is not.
bool IsThere(struct stat& output) {
    const int flags = fcntl(STDERR_FILENO, F_GETFD);
    return flags >= 0 && (flags & FD_CLOEXEC) == 0 && fstat(STDERR_FILENO, &output) == 0;
}

// Only if there is room just now. Somebody else may still take it first.
void WriteIfThereIsRoom(const char* line, size_t size) {
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    if (poll(&room, 1, 0) == 1) {
        WriteOnce(STDERR_FILENO, line, size);
    }
}

}  // namespace

void TellWithoutWaiting(const char* line, size_t size) {
    const int err = errno;
    struct stat output {};
    if (IsThere(output)) {
        const CNoBrokenPipe quiet;
        if (S_ISSOCK(output.st_mode)) {
            send(STDERR_FILENO, line, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        } else if (S_ISFIFO(output.st_mode) || S_ISCHR(output.st_mode)) {
            if (const int file = OpenAnew(); file >= 0) {
                WriteOnce(file, line, size);
                close(file);
            } else {
                WriteIfThereIsRoom(line, size);
            }
        } else {
            WriteOnce(STDERR_FILENO, line, size);
        }
    }
    errno = err;
}

}  // namespace ZceBoard
