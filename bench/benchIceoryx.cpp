#include "benchIceoryx.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iceoryx_hoofs/log/logmanager.hpp>
#include <iceoryx_posh/runtime/posh_runtime.hpp>
#include <string>
#include <thread>
#include <utility>

namespace velabench {

namespace {

constexpr auto rest = std::chrono::milliseconds(1);
constexpr std::int64_t patienceNs = 60'000'000'000;

// In the daemon's process: it ends with this program, and runs like any other.
[[noreturn]] void BecomeDaemon(int output, pid_t parent) {
    const sched_param ordinary{0};
    sched_setscheduler(0, SCHED_OTHER, &ordinary);
    dup2(output, STDOUT_FILENO);
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDERR_FILENO);
    if (prctl(PR_SET_PDEATHSIG, SIGTERM) == 0 && getppid() == parent) {
        execl(VELAZCE_IOX_ROUDI, "iox-roudi", "--monitoring-mode", "off", "--log-level", "off",
              "--kill-delay", "0", static_cast<char*>(nullptr));
    }
    _exit(1);
}

}  // namespace

CIceoryxDaemon::CIceoryxDaemon() {
    const std::int64_t begin = NowNs();
    while (!Start()) {
        if (NowNs() - begin > patienceNs) {
            Die("iox-roudi does not start: does another one run on this machine?");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
}

// True when it says that it is ready; false if it has ended.
bool CIceoryxDaemon::Start() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        Die("no pipe");
    }
    const pid_t parent = getpid();
    m_pid = fork();
    if (m_pid < 0) {
        Die("fork failed");
    }
    if (m_pid == 0) {
        BecomeDaemon(ends[1], parent);
    }
    close(ends[1]);
    std::string said;
    char buffer[256];
    ssize_t got = 0;
    while ((got = read(ends[0], buffer, sizeof(buffer))) > 0) {
        said.append(buffer, static_cast<std::size_t>(got));
        if (said.find("RouDi is ready for clients") != std::string::npos) {
            m_output = ends[0];  // it is to find a reader for what else it says
            return true;
        }
    }
    close(ends[0]);
    waitpid(m_pid, nullptr, 0);
    m_pid = -1;
    return false;
}

CIceoryxDaemon::~CIceoryxDaemon() {
    kill(m_pid, SIGTERM);
    waitpid(m_pid, nullptr, 0);
    close(m_output);
}

CIceoryxPair::CIceoryxPair(Work board, Work application) {
    Orders& orders = *m_orders;
    m_board.emplace(
        [&orders, work = std::move(board)] { return Serve(orders, orders.sides[0], true, work); });
    m_application.emplace([&orders, work = std::move(application)] {
        return Serve(orders, orders.sides[1], false, work);
    });
    WaitFor([](const Side& side) { return side.ready.load(); });
}

CIceoryxPair::~CIceoryxPair() {
    m_orders->end = true;
    m_board->Join();
    m_application->Join();
}

void CIceoryxPair::Do(int job) {
    m_orders->job = job;
    const int order = m_orders->given.fetch_add(1) + 1;
    WaitFor([order](const Side& side) { return side.done.load() == order; });
}

void CIceoryxPair::WaitFor(const std::function<bool(const Side&)>& good) const {
    const std::int64_t begin = NowNs();
    for (const Side& side : m_orders->sides) {
        while (!good(side)) {
            if (side.failed || NowNs() - begin > patienceNs) {
                Die("iceoryx: a side has failed");
            }
            std::this_thread::sleep_for(rest);
        }
    }
}

// Of a child: comes back only if something failed.
bool CIceoryxPair::Serve(Orders& orders, Side& side, bool bBoard, const Work& work) {
    iox::log::LogManager::GetLogManager().SetDefaultLogLevel(
        iox::log::LogLevel::kOff, iox::log::LogLevelOutput::kHideLogLevel);
    const std::string name =
        std::string(bBoard ? "board-" : "application-") + std::to_string(getpid());
    iox::runtime::PoshRuntime::initRuntime(
        iox::RuntimeName_t(iox::cxx::TruncateToCapacity, name.c_str()));
    IceoryxEnds ends(bBoard);
    while (!ends.l1End.IsConnected() || !ends.l5End.IsConnected()) {
        std::this_thread::sleep_for(rest);
    }
    side.ready = true;
    while (!orders.end) {
        const int given = orders.given;
        if (given == side.done) {
            std::this_thread::sleep_for(rest);
            continue;
        }
        if (!work(ends, orders.job)) {
            side.failed = true;
            return false;
        }
        side.done = given;
    }
    // An exit, so that iceoryx takes leave of its daemon, which would fail over a process that is
    // only gone and leave its memory behind.
    std::exit(0);
}

}  // namespace velabench
