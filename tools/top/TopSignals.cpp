#include <poll.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigaction()

#include <ctime>

#include "memory/HostClock.h"
#include "top/TopOutput.h"

namespace ZceBoard {

namespace {

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int /*signal*/) {
    g_stop = 1;
}

sigset_t EndSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&set, sig);
    }
    return set;
}

}  // namespace

// They are let in only while something waits, so that none slips by between a look at the flag and
// the wait.
void CatchEndSignals() {
    const sigset_t ends = EndSignals();
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(sig, &action, nullptr);
    }
    sigprocmask(SIG_BLOCK, &ends, nullptr);
}

WaitEnd WaitForInput(int fd, int64_t ns) {
    sigset_t open;
    sigprocmask(SIG_BLOCK, nullptr, &open);
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) {
        sigdelset(&open, sig);
    }
    pollfd input{fd, POLLIN, 0};
    const timespec limit{ns / NS_PER_SECOND, ns % NS_PER_SECOND};
    const int ready = ppoll(&input, 1, &limit, &open);
    if (g_stop != 0) {
        return WaitEnd::Stop;
    }
    if (ready <= 0) {
        return ready == 0 ? WaitEnd::TimeUp : WaitEnd::Interrupted;
    }
    // A terminal that is gone has nothing more to say.
    return (input.revents & POLLIN) != 0 ? WaitEnd::Readable : WaitEnd::Stop;
}

}  // namespace ZceBoard
