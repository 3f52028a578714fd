#include "process/Signals.h"

#include <cstddef>
#include <map>

namespace ZceBoard::Signals {

namespace {

volatile std::sig_atomic_t g_stop = 0;
std::array<volatile std::sig_atomic_t, OF_THE_COMMAND.size()> g_sent{};
std::map<int, struct sigaction> g_before;

void OnSignal(int signal, siginfo_t* info, void* /*context*/) {
    g_stop = 1;
    if (info->si_code == SI_KERNEL) {  // a key at the terminal, or its end: its whole group has it
        return;
    }
    for (std::size_t k = 0; k < OF_THE_COMMAND.size(); ++k) {
        if (OF_THE_COMMAND[k] == signal) {
            g_sent[k] = 1;
        }
    }
}

void Set(int signal, const struct sigaction& action) {
    struct sigaction before {};
    if (sigaction(signal, &action, &before) == 0) {
        g_before.emplace(signal, before);
    }
}

}  // namespace

void IgnoreBrokenPipes() {
    struct sigaction action {};
    action.sa_handler = SIG_IGN;  // NOLINT(cppcoreguidelines-pro-type-cstyle-cast)
    Set(SIGPIPE, action);
}

void Install(bool bCommand) {
    struct sigaction action {};
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = OnSignal;
    for (const int signal : OF_THE_COMMAND) {
        if (signal != SIGQUIT || bCommand) {
            Set(signal, action);
        }
    }
    action = {};
    action.sa_handler = SIG_DFL;  // else nobody could tell how a child has ended
    Set(SIGCHLD, action);
}

const volatile std::sig_atomic_t& Stop() {
    return g_stop;
}

int TakeSent() {
    for (std::size_t k = 0; k < OF_THE_COMMAND.size(); ++k) {
        if (g_sent[k] != 0) {
            g_sent[k] = 0;
            return OF_THE_COMMAND[k];
        }
    }
    return 0;
}

CBlocked::CBlocked() {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : OF_THE_COMMAND) {
        sigaddset(&blocked, signal);
    }
    pthread_sigmask(SIG_BLOCK, &blocked, &m_before);
}

void CBlocked::Release() const {
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

void Restore() {
    for (const auto& [signal, before] : g_before) {
        sigaction(signal, &before, nullptr);
    }
}

}  // namespace ZceBoard::Signals
