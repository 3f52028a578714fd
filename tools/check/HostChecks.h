#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "check/Machine.h"

// Whether this machine is fit for a receiving process: each check looks at one thing. Where the
// kernel tells of itself and where the library writes is given, so that other trees can be looked
// at. None of them writes anything; CheckBoards and CheckServer run the commands of the library's
// own environment checks (lspci, lsmod, ps, grep, by PATH).
namespace ZceMachine {

struct HostPlaces {
    std::string proc = "/proc";
    std::string sys = "/sys";
    std::string log = "/tmp/fpgalog";
    std::string work = ".";
};

// What config:cpucore says; nothing: no configuration was given. -1: no CPU is asked for.
using CpuCore = std::optional<int>;

// The boards and drivers as the library's CheckBeforeRun sees them. bLab: the software board is
// used, no card is needed.
Result CheckBoards(bool bLab);
// The drivers' modules in the kernel's own list: the library's look at that of E boards is lenient.
Result CheckModules(const HostPlaces& places, bool bLab);
// The server program QyDeliverDmaServer, as the library's IsProdProgRunning sees it.
Result CheckServer();
// Other processes that have the library loaded.
Result CheckReceivers(const HostPlaces& places);
// The log's directory and its file of the day `date` (yyyymmdd).
Result CheckLogDirectory(const HostPlaces& places, unsigned int date);
// The working directory and the cache file in it.
Result CheckWorkDirectory(const HostPlaces& places);
// The zone of the host's clock at the moment `now`, beside the exchange's.
Result CheckZone(std::time_t now);
// Whether the kernel holds the clock for set right.
Result CheckClockIsSet(bool bSynchronised);
// The frequency governor of the core, or of all CPUs where none is asked for.
Result CheckGovernor(const HostPlaces& places, const CpuCore& core);
// Whether the core is there, and kept free of other work.
Result CheckIsolation(const HostPlaces& places, const CpuCore& core);
Result CheckHugePages(const HostPlaces& places);

// All of them, in this order.
std::vector<Result> CheckHost(const HostPlaces& places, const CpuCore& core, bool bLab);

// The CPUs of a list as the kernel writes it: "0-3,8".
std::vector<unsigned int> CpuList(const std::string& text);

}  // namespace ZceMachine
