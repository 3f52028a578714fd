// channels: runs one receiving process for each DMA channel of a board, as the library wants it,
// and ends them in the right order.
//
//     channels CONFIG... -- PROGRAM [ARGUMENT...]
//
// starts "PROGRAM ARGUMENT... CONFIG" for each CONFIG, in this order: the first one is the master's
// (channel 0). A process that ends is told with its exit status and not started again. SIGINT or
// SIGTERM ends those that are left, one after the other and the master last; so does the end of the
// launcher itself, though in no order if it is killed. Exit status: 0 if all processes ended with
// 0, else 1; 2 for a usage error and what could not be started.

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

const int usageError = 2;
const int patienceSeconds = 10;  // of a process that was told to end

struct Receiver {
    std::string config;
    pid_t pid;
    bool bRunning;
};

// What the launcher waits for; blocked, so that none comes between a look and the wait.
sigset_t WaitedSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGCHLD);
    return set;
}

[[noreturn]] void Become(std::vector<std::string> command, pid_t launcher) {
    // A Ctrl-C at the terminal is for the launcher alone, which knows the order.
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != launcher) {
        _exit(1);  // it was gone before
    }
    const int signals[] = {SIGINT, SIGTERM, SIGPIPE};
    for (const int sig : signals) {
        std::signal(sig, SIG_DFL);
    }
    const sigset_t waited = WaitedSignals();
    sigprocmask(SIG_UNBLOCK, &waited, nullptr);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& word : command) {
        arguments.push_back(&word[0]);
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    std::fprintf(stderr, "channels: %s: %s\n", arguments[0], std::strerror(errno));
    _exit(usageError);
}

class CChannels {
  public:
    // Starts one more. False: the reason is told.
    bool Start(const std::vector<std::string>& program, const std::string& config) {
        std::vector<std::string> command(program);
        command.push_back(config);
        const pid_t launcher = getpid();
        const pid_t pid = fork();
        if (pid < 0) {
            std::fprintf(stderr, "channels: %s: %s\n", config.c_str(), std::strerror(errno));
            m_bGood = false;
            return false;
        }
        if (pid == 0) {
            Become(command, launcher);
        }
        m_receivers.push_back({config, pid, true});
        Tell(m_receivers.back(), "started");
        return true;
    }

    // Until all have ended by themselves, or a signal comes that is to end them.
    void Watch() {
        const sigset_t waited = WaitedSignals();
        while (Reap()) {
            if (sigwaitinfo(&waited, nullptr) != SIGCHLD && errno != EINTR) {
                return;
            }
        }
    }

    // The receivers read what the master has set up: the last one first, and the master last.
    void End() {
        for (std::size_t k = m_receivers.size(); k-- > 0;) {
            for (const int sig : {SIGINT, SIGKILL}) {
                if (m_receivers[k].bRunning) {
                    kill(m_receivers[k].pid, sig);
                    Await(m_receivers[k]);
                }
            }
        }
    }

    bool AllGood() const { return m_bGood; }

  private:
    // Tells of those that have ended. False: none is left.
    bool Reap() {
        bool bAny = false;
        for (Receiver& receiver : m_receivers) {
            int status = 0;
            if (receiver.bRunning && waitpid(receiver.pid, &status, WNOHANG) == receiver.pid) {
                receiver.bRunning = false;
                TellEnd(receiver, status);
            }
            bAny = bAny || receiver.bRunning;
        }
        return bAny;
    }

    // Until it has ended, or the patience is over.
    void Await(const Receiver& receiver) {
        sigset_t ends;
        sigemptyset(&ends);
        sigaddset(&ends, SIGCHLD);
        const std::time_t deadline = std::time(nullptr) + patienceSeconds;
        while (Reap() && receiver.bRunning && std::time(nullptr) < deadline) {
            const timespec second = {1, 0};
            sigtimedwait(&ends, nullptr, &second);
        }
    }

    void TellEnd(const Receiver& receiver, int status) {
        const bool bExited = WIFEXITED(status);
        const int number = bExited ? WEXITSTATUS(status) : WTERMSIG(status);
        m_bGood = m_bGood && bExited && number == 0;
        Tell(receiver, (bExited ? "exit status " : "ended by signal ") + std::to_string(number));
    }

    void Tell(const Receiver& receiver, const std::string& what) {
        std::printf("channels: %s: process %d: %s\n", receiver.config.c_str(),
                    static_cast<int>(receiver.pid), what.c_str());
        // A reader that is gone must not keep the receivers from being ended.
        m_bGood = std::fflush(stdout) == 0 && m_bGood;
    }

    std::vector<Receiver> m_receivers;
    bool m_bGood = true;
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> configs;
    std::vector<std::string> program;
    int k = 1;
    for (; k < argc && std::strcmp(argv[k], "--") != 0; ++k) {
        configs.push_back(argv[k]);
    }
    program.assign(argv + (k < argc ? k + 1 : argc), argv + argc);
    if (configs.empty() || program.empty()) {
        std::fprintf(stderr,
                     "channels: %s is missing; usage: channels CONFIG... -- PROGRAM "
                     "[ARGUMENT...]\n",
                     configs.empty() ? "CONFIG" : "-- PROGRAM");
        return usageError;
    }
    std::signal(SIGPIPE, SIG_IGN);
    const sigset_t waited = WaitedSignals();
    sigprocmask(SIG_BLOCK, &waited, nullptr);
    CChannels channels;
    bool bStarted = true;
    for (const std::string& config : configs) {
        bStarted = bStarted && channels.Start(program, config);
    }
    if (bStarted) {
        channels.Watch();
    }
    channels.End();
    if (!bStarted) {
        return usageError;
    }
    return channels.AllGood() ? 0 : 1;
}
