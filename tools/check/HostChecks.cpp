#include "check/HostChecks.h"

#include <fmt/format.h>
#include <sys/timex.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>

#include "DataType/ZceConfigFile.h"
#include "Utils/calendar.h"
#include "Utils/envCheck.h"
#include "VelaZceUtils.h"
#include "check/HostFiles.h"

namespace ZceMachine {

namespace {

namespace fs = std::filesystem;

constexpr unsigned int CPU_LIMIT = 1024;     // of the set that the library binds with
constexpr long EXCHANGE_OFFSET = 8L * 3600;  // Asia/Shanghai, the whole year
constexpr const char* LIBRARY_NAME = "libVelaZceMdApi.so";

// The environments of the library, in the order of their numbers.
constexpr const char* ENVIRONMENTS[] = {"no board",
                                        "one Enyx board",
                                        "one Xilinx board",
                                        "several Enyx boards",
                                        "several Xilinx boards",
                                        "Enyx and Xilinx boards"};

bool HasCommand(const std::string& name) {
    const char* const path = std::getenv("PATH");
    std::string rest = path == nullptr ? "/usr/bin:/bin" : path;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        std::error_code error;
        if (fs::exists(rest.substr(0, end) + "/" + name, error)) {
            return true;
        }
        rest.erase(0, end + 1);
    }
    return false;
}

bool IsNumber(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(),
                                        [](char digit) { return digit >= '0' && digit <= '9'; });
}

// The names in a directory that are numbers, in their order.
std::vector<unsigned int> NumberedEntries(const std::string& directory) {
    std::vector<unsigned int> numbers;
    std::error_code error;
    for (fs::directory_iterator at(directory, error), end; !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename().string();
        if (IsNumber(name) && name.size() < 10) {
            numbers.push_back(static_cast<unsigned int>(std::stoul(name)));
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

bool HasModule(const std::string& modules, const std::string& part) {
    std::size_t at = 0;
    while (at < modules.size()) {
        const std::size_t end = std::min(modules.find('\n', at), modules.size());
        const std::string line = modules.substr(at, end - at);
        if (line.substr(0, line.find(' ')).find(part) != std::string::npos) {
            return true;
        }
        at = end + 1;
    }
    return false;
}

bool Holds(const std::vector<unsigned int>& list, unsigned int number) {
    return std::find(list.begin(), list.end(), number) != list.end();
}

// The number behind "name:" in /proc/meminfo; 0 if there is none.
unsigned long MemoryFigure(const std::string& text, const std::string& name) {
    const std::size_t at = text.find(name + ":");
    return at == std::string::npos ? 0
                                   : std::strtoul(text.c_str() + at + name.size() + 1, nullptr, 10);
}

std::string OffsetText(long seconds) {
    const long minutes = std::labs(seconds) / 60;
    return fmt::format("UTC{}{:02}:{:02}", seconds < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

}  // namespace

std::vector<unsigned int> CpuList(const std::string& text) {
    std::vector<unsigned int> cpus;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at < end) {
        unsigned int first = 0;
        auto [behind, error] = std::from_chars(at, end, first);
        if (error != std::errc()) {
            break;
        }
        unsigned int last = first;
        if (behind < end && *behind == '-') {
            behind = std::from_chars(behind + 1, end, last).ptr;
        }
        for (unsigned int cpu = first; cpu <= last && cpu < CPU_LIMIT; ++cpu) {
            cpus.push_back(cpu);
        }
        at = behind + 1;
    }
    return cpus;
}

Result CheckBoards(bool bLab) {
    if (bLab) {
        return {Level::Ok, "board", "not looked for: the software board needs no card", ""};
    }
    // The library's checks take a command that is missing for a machine without boards.
    if (!HasCommand("lspci") || !HasCommand("lsmod")) {
        return {Level::Error, "board", "lspci or lsmod is not installed: boards are not seen",
                "apt install pciutils kmod"};
    }
    const unsigned int environment = CheckEnvBoard();
    const std::string found = environment < std::size(ENVIRONMENTS)
                                  ? ENVIRONMENTS[environment]
                                  : fmt::format("board environment {}", environment);
    const VORBA2::EnvVerdict_t verdict = VORBA2::JudgeEnvironment();
    std::string text = verdict.text;
    text.erase(text.find_last_not_of(" \n") + 1);
    if (verdict.result != 0) {
        return {Level::Error, "board", found + "; the library says: " + text,
                environment == 0 ? "look at the card, its power and its firmware (lspci)"
                                 : "install and load the board's driver"};
    }
    return text.empty() ? Result{Level::Ok, "board", found, ""}
                        : Result{Level::Warning, "board", found + "; the library says: " + text,
                                 "install and load the drivers"};
}

Result CheckModules(const HostPlaces& places, bool bLab) {
    const std::string modules = FileText(places.proc + "/modules");
    const bool bE = HasModule(modules, "hfp");
    const bool bXi = HasModule(modules, "xdma");
    const std::string found =
        fmt::format("hfp (Enyx boards) {}, xdma (Xilinx boards) {}", bE ? "loaded" : "not loaded",
                    bXi ? "loaded" : "not loaded");
    if (bE || bXi || bLab) {
        return {Level::Ok, "driver", found, ""};
    }
    return {Level::Warning, "driver", found, "load the module of the board's driver (modprobe)"};
}

Result CheckServer() {
    if (!HasCommand("ps")) {
        return {Level::Warning, "server", "ps is not installed: processes are not seen",
                "apt install procps"};
    }
    if (!IsProdProgRunning()) {
        return {Level::Ok, "server", "QyDeliverDmaServer does not run", ""};
    }
    return {Level::Warning, "server", "QyDeliverDmaServer runs: it may hold the board",
            "end it before the start, or see that it uses another board"};
}

Result CheckReceivers(const HostPlaces& places) {
    std::string list;
    unsigned int hidden = 0;
    for (const unsigned int process : NumberedEntries(places.proc)) {
        const std::string directory = fmt::format("{}/{}", places.proc, process);
        std::error_code error;
        const std::string maps = FileText(directory + "/maps", std::size_t{16} << 20U);
        if (maps.empty()) {
            // A kernel thread has none either, and no command line.
            hidden += FileText(directory + "/cmdline").empty() ? 0 : 1;
        } else if (maps.find(LIBRARY_NAME) != std::string::npos) {
            list += fmt::format("{}{} ({})", list.empty() ? "" : ", ", process,
                                FileLine(directory + "/comm"));
        }
    }
    const std::string unseen =
        hidden == 0 ? "" : fmt::format("; could not be looked at: {}", hidden);
    if (list.empty()) {
        return {Level::Ok, "receivers", "no process has the library loaded" + unseen, ""};
    }
    return {Level::Warning, "receivers", "processes with the library: " + list + unseen,
            "a channel can be held by one process, and only one may be the master"};
}

Result CheckLogDirectory(const HostPlaces& places, unsigned int date) {
    return LogDirectoryResult(places.log, date,
                              FileLine(places.proc + "/sys/fs/protected_regular"));
}

Result CheckWorkDirectory(const HostPlaces& places) {
    return WorkDirectoryResult(places.work);
}

Result CheckZone(std::time_t now) {
    tzset();
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) {
        return {Level::Error, "zone", "the local time cannot be determined",
                "set TZ=Asia/Shanghai"};
    }
    const std::string found = fmt::format("{:02}:{:02}:{:02} {} ({})", local.tm_hour, local.tm_min,
                                          local.tm_sec, local.tm_zone, OffsetText(local.tm_gmtoff));
    if (local.tm_gmtoff == EXCHANGE_OFFSET) {
        return {Level::Ok, "zone", found + ", as the exchange", ""};
    }
    return {Level::Error, "zone",
            found + "; the exchange's is UTC+08:00, and every decision is by the local time",
            "start with TZ=Asia/Shanghai, or set the host's zone to it (timedatectl)"};
}

Result CheckClockIsSet(bool bSynchronised) {
    return bSynchronised
               ? Result{Level::Ok, "clock", "kept right (the kernel says)", ""}
               : Result{Level::Warning, "clock",
                        "not synchronised, or not by a program that says so",
                        "run chrony, ptp4l with phc2sys, or systemd-timesyncd: a start needs the "
                        "right second"};
}

Result CheckGovernor(const HostPlaces& places, const CpuCore& core) {
    const std::string cpus = places.sys + "/devices/system/cpu";
    std::vector<unsigned int> looked = CpuList(FileLine(cpus + "/online"));
    if (core && *core >= 0) {
        looked = {static_cast<unsigned int>(*core)};
    }
    std::string others;
    unsigned int known = 0;
    for (const unsigned int cpu : looked) {
        const std::string governor =
            FileLine(fmt::format("{}/cpu{}/cpufreq/scaling_governor", cpus, cpu));
        known += governor.empty() ? 0 : 1;
        if (!governor.empty() && governor != "performance") {
            others += fmt::format("{}CPU {} {}", others.empty() ? "" : ", ", cpu, governor);
        }
    }
    if (known == 0) {
        return {Level::Ok, "governor", "the frequency is not the kernel's to choose", ""};
    }
    if (others.empty()) {
        return {Level::Ok, "governor", fmt::format("performance ({} CPUs)", known), ""};
    }
    return {Level::Warning, "governor", others, "cpupower frequency-set -g performance"};
}

Result CheckIsolation(const HostPlaces& places, const CpuCore& core) {
    const std::string cpus = places.sys + "/devices/system/cpu";
    const std::string isolated = FileLine(cpus + "/isolated");
    const std::string list = isolated.empty() ? "none" : isolated;
    if (!core) {
        return {Level::Ok, "cpucore", "isolated CPUs: " + list + " (no configuration was given)",
                ""};
    }
    if (*core == Vela2_U50::ZCE_NO_CPU_CORE) {
        return {Level::Warning, "cpucore",
                "not set: the receiving thread moves from CPU to CPU; isolated CPUs: " + list,
                "set config:cpucore to an isolated CPU"};
    }
    const auto cpu = static_cast<unsigned int>(*core);
    const std::string online = FileLine(cpus + "/online");
    if (*core < 0 || !Holds(CpuList(online), cpu)) {
        return {Level::Error, "cpucore",
                fmt::format("{}: there is no such CPU (online: {}); the thread is not bound", *core,
                            online.empty() ? "unknown" : online),
                "set config:cpucore to a CPU that is online"};
    }
    if (!Holds(CpuList(isolated), cpu)) {
        return {
            Level::Warning, "cpucore",
            fmt::format("{}: not isolated, others run on it too (isolated CPUs: {})", cpu, list),
            fmt::format("boot with isolcpus={0} nohz_full={0}", cpu)};
    }
    const bool bTicks = !Holds(CpuList(FileLine(cpus + "/nohz_full")), cpu);
    return bTicks
               ? Result{Level::Warning, "cpucore",
                        fmt::format("{}: isolated, but the timer's ticks go on", cpu),
                        fmt::format("boot with nohz_full={}", cpu)}
               : Result{Level::Ok, "cpucore", fmt::format("{}: isolated, without ticks", cpu), ""};
}

Result CheckHugePages(const HostPlaces& places) {
    const std::string memory = FileText(places.proc + "/meminfo");
    const unsigned long total = MemoryFigure(memory, "HugePages_Total");
    const unsigned long available = MemoryFigure(memory, "HugePages_Free");
    if (total == 0) {
        return {Level::Ok, "huge pages",
                "none reserved; the library needs none, a vendor's driver may", ""};
    }
    const std::string found = fmt::format("{} of {} free, {} kB each", available, total,
                                          MemoryFigure(memory, "Hugepagesize"));
    return available != 0 ? Result{Level::Ok, "huge pages", found, ""}
                          : Result{Level::Warning, "huge pages", found,
                                   "raise vm.nr_hugepages if the vendor's driver takes them"};
}

std::vector<Result> CheckHost(const HostPlaces& places, const CpuCore& core, bool bLab) {
    timex clock{};
    const bool bSynchronised = adjtimex(&clock) != TIME_ERROR;
    const unsigned int today = VORBA2::LocalNow().value_or(VORBA2::LocalMoment_t{}).date;
    return {CheckBoards(bLab),
            CheckModules(places, bLab),
            CheckServer(),
            CheckReceivers(places),
            CheckLogDirectory(places, today),
            CheckWorkDirectory(places),
            CheckZone(std::time(nullptr)),
            CheckClockIsSet(bSynchronised),
            CheckGovernor(places, core),
            CheckIsolation(places, core),
            CheckHugePages(places)};
}

}  // namespace ZceMachine
