#include "benchProcess.h"

#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

namespace velabench {

namespace {

constexpr std::int64_t patienceNs = 30'000'000'000;
constexpr int skipped = 77;

// Which core of the machine a processor is a part of; its own number if the kernel does not say.
std::string CoreOf(int cpu) {
    const std::string folder = "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/topology/";
    std::string siblings;
    std::getline(std::ifstream(folder + "thread_siblings_list"), siblings);
    return siblings.empty() ? std::to_string(cpu) : siblings;
}

}  // namespace

void GoAhead() {
    const sched_param lowestRealTime{1};
    if (!IsSmokeRun()) {
        sched_setscheduler(0, SCHED_FIFO, &lowestRealTime);
    }
}

Cpus PickCpus() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0) {
        Die("sched_getaffinity failed");
    }
    std::vector<int> cpus;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(static_cast<unsigned int>(cpu), &allowed)) {
            cpus.push_back(cpu);
        }
    }
    if (cpus.size() < 2) {
        std::fputs("benchmark: this takes two processors\n", stderr);
        std::exit(skipped);
    }
    Cpus picked{cpus[0], cpus[1]};
    const std::string first = CoreOf(picked.board);
    for (const int cpu : cpus) {
        if (CoreOf(cpu) != first) {
            picked.application = cpu;
            break;
        }
    }
    std::printf("board's side on CPU %d, application's on CPU %d%s\n", picked.board,
                picked.application,
                CoreOf(picked.application) == first ? " (two threads of one core)" : "");
    return picked;
}

void Pin(int cpu) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned int>(cpu), &one);
    if (sched_setaffinity(0, sizeof(one), &one) != 0) {
        Die("cannot run on CPU " + std::to_string(cpu));
    }
}

std::int64_t CStretch::CpuNs() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

void CPatience::Check() {
    const std::int64_t now = NowNs();
    if (m_polls == checkEvery) {
        m_since = now;  // the first look at the clock since the last success
    } else if (now - m_since > patienceNs) {
        Die("nothing has come from the other side for 30 s");
    }
}

CChild::~CChild() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

void CChild::Join() {
    int status = 0;
    pid_t ended = 0;
    do {
        ended = waitpid(m_pid, &status, 0);
    } while (ended < 0 && errno == EINTR);
    m_pid = -1;
    if (ended < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        Die("the other process failed");
    }
}

pid_t CChild::Fork() {
    std::fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) {
        Die("fork failed");
    }
    if (child == 0 && (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent)) {
        End(false);
    }
    return child;
}

void CChild::End(bool bGood) {
    std::fflush(nullptr);
    _exit(bGood ? 0 : 1);
}

}  // namespace velabench
