#include "SignalProcess.h"

#include <cerrno>
#include <cstring>

#include "log/elog.h"

std::atomic<unsigned char> CSignalProcess::m_isExit{0};

namespace {

// Installs `action` for `sig`. Returns 0, or -1 with an ERROR line that calls the signal `name`.
int Install(int sig, const char* name, const struct sigaction& action) {
    if (sigaction(sig, &action, nullptr) == 0) {
        return 0;
    }
    LOG_ERROR("Failed to install %s handle! msg:%s.", name, strerror(errno));
    return -1;
}

}  // namespace

int CSignalProcess::InitSignal() {
    struct sigaction leave {};
    leave.sa_sigaction = &CSignalProcess::SignalHandler;
    leave.sa_flags = SA_SIGINFO;
    sigemptyset(&leave.sa_mask);

    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ignore.sa_flags = SA_SIGINFO;
    sigemptyset(&ignore.sa_mask);

    const struct {
        int sig;
        const char* name;
        const struct sigaction& action;
    } steps[] = {
        {SIGINT, "SIGINT", leave}, {SIGTERM, "SIGTERM", leave}, {SIGPIPE, "SIGPIPE", ignore}};
    for (const auto& step : steps) {
        if (Install(step.sig, step.name, step.action) != 0) {
            return -1;
        }
    }
    return 0;
}

void CSignalProcess::SignalHandler(int sig, siginfo_t* /*info*/, void* /*ctx*/) {
    m_isExit = 1;
    const int interruptedErrno = errno;  // the interrupted code may be about to look at it
    LOG_WARN_IN_SIGNAL("Received signal ", sig, " !!");
    errno = interruptedErrno;
}
