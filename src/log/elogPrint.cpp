#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>

#include "Utils/threadMutex.h"
#include "log/elogOutput.h"

namespace elogoutput {

namespace {

constexpr int g_iSliceMs = 20;  // between two looks whether the process is about to end
constexpr int g_iLastWaitMs = 100;

// How long a text waits for a standard output that stalls.
enum class Patience { endless, onceMore, none };

std::atomic<Patience> s_patience{Patience::endless};
// Standard output's descriptor when the last ordinary text was printed: a handler cannot ask.
std::atomic<int> s_descriptor{STDOUT_FILENO};
static_assert(std::atomic<Patience>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

// A write that would have to wait says so instead. Not every kernel and not every descriptor has
// that; the first one that has not ends the trying.
std::atomic<bool> s_canTellAtOnce{true};

// One text on its way to standard output. Signal handlers do without.
VORBA2::CThreadMutex s_printLock;

// A descriptor that cannot be polled, or that has an error to tell, counts as writable: write()
// will say so. A pipe that is writable has a whole page free: room for a text of g_uiLineBytes and
// for the line of a handler that comes between the question and the write().
bool IsWritable(int descriptor, int timeoutMs) {
    if (descriptor < 0) {
        return true;
    }
    pollfd output{descriptor, POLLOUT, 0};
    int ready = poll(&output, 1, timeoutMs);
    while (ready < 0 && errno == EINTR && timeoutMs == 0) {
        ready = poll(&output, 1, 0);
    }
    return ready > 0 || (ready < 0 && errno != EINTR);
}

// Until standard output takes something; false if it must not be waited for any longer. In slices,
// because the signal that ends the waiting may have come to another thread.
bool WaitUntilWritable(int descriptor) {
    for (;;) {
        switch (s_patience) {
            case Patience::endless:
                if (IsWritable(descriptor, g_iSliceMs)) {
                    return true;
                }
                break;
            case Patience::onceMore:
                if (IsWritable(descriptor, g_iLastWaitMs)) {
                    return true;
                }
                s_patience = Patience::none;
                return false;
            case Patience::none:
                return IsWritable(descriptor, 0);
        }
    }
}

// Writes what can be written without waiting, by one system call where the descriptor allows that.
// As write(); 0 if standard output must not be waited for any longer.
ssize_t WriteWhenPossible(int descriptor, const char* text, std::size_t size) {
    if (s_canTellAtOnce) {
        const iovec piece{const_cast<char*>(text), size};
        const ssize_t written = pwritev2(descriptor, &piece, 1, -1, RWF_NOWAIT);
        if (written >= 0) {
            return written;
        }
        switch (errno) {
            case EAGAIN:
                break;
            case EOPNOTSUPP:
            case EINVAL:
            case ENOSYS:
            case EPERM:
                s_canTellAtOnce = false;
                break;
            default:
                return written;
        }
    }
    return WaitUntilWritable(descriptor) ? write(descriptor, text, size) : 0;
}

}  // namespace

void Print(const char* text, std::size_t size) {
    const VORBA2::CThreadMutexGuard guard(s_printLock);
    const int descriptor = fileno(stdout);
    s_descriptor = descriptor;
    while (size != 0) {
        const ssize_t written = WriteWhenPossible(descriptor, text, std::min(size, g_uiLineBytes));
        if (written > 0) {
            text += written;
            size -= static_cast<std::size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

void PrintInSignal(const char* line, std::size_t size) {
    const int descriptor = s_descriptor;
    if (IsWritable(descriptor, 0)) {
        // Not tried again: a second signal must get the process out of a write() that stalls.
        [[maybe_unused]] const ssize_t written = write(descriptor, line, size);
    }
}

void StopWaiting() {
    Patience endless = Patience::endless;
    s_patience.compare_exchange_strong(endless, Patience::onceMore);
}

}  // namespace elogoutput
