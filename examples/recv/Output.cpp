#include "Output.h"

#include <poll.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

// Why something printed was lost, an errno: the first reason. 0: nothing was.
std::atomic<int> g_iOutputError{0};

}  // namespace

bool CanPrint(int timeoutMs, int fd) {
    pollfd output = {fd, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&output, 1, timeoutMs);
    } while (ready < 0 && errno == EINTR);
    return ready != 0;
}

void Print(const char* format, ...) {
    errno = 0;
    va_list values;
    va_start(values, format);
    const int written = std::vprintf(format, values);
    va_end(values);
    if (written < 0 || std::fflush(stdout) != 0) {
        int none = 0;
        g_iOutputError.compare_exchange_strong(none, errno != 0 ? errno : EIO);
    }
}

bool IsOutputLost() {
    return g_iOutputError != 0;
}

void TellError(const std::string& what, int err) {
    if (CanPrint(outputPatienceMs, STDERR_FILENO)) {
        std::fprintf(stderr, "zce-recv: %s: %s\n", what.c_str(), std::strerror(err));
    }
}

int FinishOutput(int status) {
    if (g_iOutputError == 0) {
        return status;
    }
    TellError("standard output", g_iOutputError);
    return 1;
}
