#include "startBoard.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "DrvEnyx/enyxHw.h"
#include "IVelaZceMdApi.h"
#include "benchMain.h"
#include "memory/RegisterFile.h"
#include "vendorCalls.h"

namespace velabench {

namespace {

constexpr const char* configName = "master.ini";
constexpr const char* streamName = "CUSTOM_CHAN0_DATA";
constexpr std::uint32_t busIndex = 0;
constexpr std::uint32_t registerBytes = 4;
constexpr std::uint8_t registerBits = 32;

// Of the whole program: what its end removes.
std::string g_directory;
std::string g_boardFile;
pid_t g_program = 0;

void RemoveAll() {
    unlink(g_boardFile.c_str());
    std::error_code ignored;
    std::filesystem::remove_all(g_directory, ignored);
}

// A signal that ends the program: the board's name has to stay while it runs, since each start
// looks for it. Nothing but calls that a handler may make.
void OnSignal(int signal) {
    if (getpid() == g_program) {
        unlink(g_boardFile.c_str());
        for (const char* const name : {configName, "bin"}) {
            unlink(name);
        }
        rmdir(g_directory.c_str());
    }
    std::signal(signal, SIG_DFL);
    raise(signal);
}

std::string NameOf(std::uint32_t table, unsigned int entry) {
    char name[32];  // 16 characters at most
    if (table == ZceBoard::TABLE_SINGLE) {
        constexpr const char* products[] = {"SR", "CF", "TA", "MA", "OI", "RM", "FG", "ZC"};
        std::snprintf(name, sizeof(name), "%s%03uC%05u", products[entry % 8], 207 + entry % 100,
                      entry);
    } else {
        std::snprintf(name, sizeof(name), "SPD-S%04u&C%04u", entry % 97, entry);
    }
    return name;
}

// Half of the names in each table; the odd one in the first.
unsigned int NamesOf(std::uint32_t table, unsigned int names) {
    return table == ZceBoard::TABLE_SINGLE ? names - names / 2 : names / 2;
}

void WriteConfig() {
    std::ofstream(configName) << "[config]\n"
                                 "device = xilinx0:0\n"
                                 "L5_DSTMAC = 01:00:5e:01:01:05\nL5_DSTIP = 239.1.1.5\n"
                                 "L5_DSTPORT = 30005\nL5_SRCMAC = 00:1b:21:aa:bb:05\n"
                                 "L5_SRCIP = 192.168.5.10\nL5_SRCPORT = 31005\n"
                                 "L1_DSTMAC = 01:00:5e:01:01:01\nL1_DSTIP = 239.1.1.1\n"
                                 "L1_DSTPORT = 30001\nL1_SRCMAC = 00:1b:21:aa:bb:01\n"
                                 "L1_SRCIP = 192.168.1.10\nL1_SRCPORT = 31001\n"
                                 "[channel0]\ninsts = all\noptions = recv\n";
}

}  // namespace

CStartBoard::CStartBoard() {
    std::string directory = std::filesystem::temp_directory_path() / "velabench.XXXXXX";
    if (mkdtemp(directory.data()) == nullptr || chdir(directory.c_str()) != 0) {
        Die("no directory for the cache file");
    }
    g_directory = directory;
    setenv("ZCE_BOARD_SHM_PREFIX", ("bench" + std::to_string(getpid()) + "-").c_str(), 1);
    setenv("TZ", "UTC0", 1);
    g_boardFile = "/dev/shm" + ZceBoard::ShmName(busIndex);
    g_program = getpid();
    AtEnd(RemoveAll);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        std::signal(signal, OnSignal);
    }
    WriteConfig();
    std::int32_t pid = 0;
    if (m_memory.Create(busIndex, pid) != 0) {
        Die("no shared memory for a board");
    }
}

void CStartBoard::Prepare(bool bReset, unsigned int names) {
    ZceBoard::CRegisterFile registers(m_memory.Shm());
    registers.Reset();
    for (std::uint32_t table = 0; table < ZceBoard::TABLE_COUNT; ++table) {
        for (unsigned int entry = 0; entry < NamesOf(table, names); ++entry) {
            registers.StoreName(table, entry, NameOf(table, entry));
        }
    }
    registers.Poke(ZceBoard::REG_DATE, bReset ? dayBefore : startDate);
    registers.Poke(ZceBoard::REG_TIME_A, startTime);
    registers.Poke(ZceBoard::REG_TIME_B, startTime);
}

void CStartBoard::SetAccessNs(std::uint32_t ns) {
    m_memory.Shm().header.accessNs = ns;
}

std::uint64_t CStartBoard::State() const {
    std::uint64_t state = 0;
    const auto add = [&state](const auto& words) {
        for (const std::atomic<std::uint32_t>& word : words) {
            state = (state ^ word.load(std::memory_order_relaxed)) * 0x9E3779B97F4A7C15;
            state ^= state >> 29;
        }
    };
    add(m_memory.Shm().registers);
    for (const ZceBoard::TableWords& table : m_memory.Shm().tables) {
        add(table);
    }
    return state;
}

Names PreparedNames(unsigned int names) {
    Names prepared;
    for (std::uint32_t table = 0; table < ZceBoard::TABLE_COUNT; ++table) {
        for (unsigned int entry = 0; entry < NamesOf(table, names); ++entry) {
            prepared[NameOf(table, entry)] = static_cast<unsigned short>(entry);
        }
    }
    return prepared;
}

namespace {

std::vector<CallGroup> GroupsOf(const std::vector<std::uint64_t>& calls) {
    std::vector<CallGroup> groups;
    for (std::size_t k = 0; k < calls.size(); ++k) {
        if (CallOf(calls[k]) != VendorCall::Lock) {
            continue;
        }
        const auto at = [&](std::size_t place) { return place < calls.size() ? calls[place] : 0; };
        const std::uint64_t first = at(k + 1);
        const VendorCall second = CallOf(at(k + 2));
        const bool bWrite = CallOf(first) == VendorCall::Write;
        if (second == VendorCall::Unlock && (bWrite || CallOf(first) == VendorCall::Read)) {
            groups.push_back(first);
            k += 2;
        } else if (bWrite && second == VendorCall::Read && IndexOf(at(k + 2)) == IndexOf(first) &&
                   CallOf(at(k + 3)) == VendorCall::Unlock) {
            groups.push_back(PackCall(VendorCall::Lock, IndexOf(first), ValueOf(first)));
            k += 3;
        } else {
            Die("an access that a plain loop does not know, at call " + std::to_string(k));
        }
    }
    return groups;
}

// The run of pairs that begins at a place: at least two of them, or the one group alone.
CallRun RunAt(const std::vector<CallGroup>& groups, std::size_t at) {
    const auto isNext = [&](std::size_t place, std::uint64_t step) {
        return place < groups.size() && groups[place] == groups[place - 2] + step &&
               (groups[place] ^ groups[place - 2]) >> 32 == 0;
    };
    CallRun run{{groups[at], 0}, {}, 1, 1};
    if (at + 3 >= groups.size()) {
        return run;
    }
    const std::array<std::uint64_t, 2> step = {groups[at + 2] - groups[at],
                                               groups[at + 3] - groups[at + 1]};
    std::uint32_t pairs = 1;
    while (isNext(at + std::size_t{2} * pairs, step[0]) &&
           isNext(at + std::size_t{2} * pairs + 1, step[1])) {
        ++pairs;
    }
    if (pairs > 1) {
        run = {{groups[at], groups[at + 1]}, step, 2, pairs};
    }
    return run;
}

}  // namespace

CallRuns RunsOf(const std::vector<std::uint64_t>& calls) {
    const std::vector<CallGroup> groups = GroupsOf(calls);
    CallRuns runs;
    for (std::size_t at = 0; at < groups.size();) {
        runs.push_back(RunAt(groups, at));
        at += std::size_t{runs.back().length} * runs.back().count;
    }
    return runs;
}

bool StartByLibrary() {
    class Spi final : public IVelaZceMdSpi {
      public:
        void OnDmaType17Msg(const unsigned char* /*body*/) override {}
        void OnDmaType18Msg(const unsigned char* /*body*/) override {}
        void OnDmaType19Msg(const unsigned char* /*body*/) override {}
        void OnDmaType20Msg(const unsigned char* /*body*/) override {}
    };
    static Spi spi;
    return IVelaZceMdApi::CreateVelaZceMdApi()->VelaStart(spi, configName) == 0;
}

namespace {

enyx_hw_accelerator* FindAccelerator() {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_set_index(filter, busIndex);
    enyx_hw_accelerator_descriptor* descriptor = nullptr;
    const int found = enyx_hw_enumerate_accelerators(filter, &descriptor, 1);
    enyx_hw_filter_destroy(filter);
    enyx_hw_accelerator* accelerator = found == 1 ? enyx_hw_accelerator_get(descriptor) : nullptr;
    enyx_hw_free_accelerator_descriptors(&descriptor, 1);
    return accelerator;
}

enyx_hw_core* FindCore(enyx_hw_accelerator* accelerator) {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_set_index(filter, 0);
    enyx_hw_mmio_descriptor* descriptor = nullptr;
    const int found = enyx_hw_accelerator_enumerate_mmios(accelerator, filter, &descriptor, 1);
    enyx_hw_filter_destroy(filter);
    enyx_hw_mmio* mmio = found == 1 ? enyx_hw_mmio_create(descriptor) : nullptr;
    enyx_hw_free_mmio_descriptors(&descriptor, 1);
    enyx_hw_core* root = enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(mmio));
    enyx_hw_core_reset(root);
    enyx_hw_core* core = nullptr;
    return enyx_hw_core_enumerate(root, coreId, &core, 1) == 1 ? core : nullptr;
}

bool OpenStreams(enyx_hw_accelerator* accelerator) {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_set_name(filter, streamName);
    enyx_hw_a2c_stream_descriptor* a2cFound = nullptr;
    enyx_hw_accelerator_enumerate_a2c_streams(accelerator, filter, &a2cFound, 1);
    enyx_hw_a2c_stream* a2c = enyx_hw_a2c_stream_create(a2cFound, 0);
    enyx_hw_free_a2c_stream_descriptors(&a2cFound, 1);
    enyx_hw_c2a_stream_descriptor* c2aFound = nullptr;
    enyx_hw_accelerator_enumerate_c2a_streams(accelerator, filter, &c2aFound, 1);
    enyx_hw_c2a_stream* c2a = enyx_hw_c2a_stream_create(c2aFound, 0);
    enyx_hw_free_c2a_stream_descriptors(&c2aFound, 1);
    enyx_hw_filter_destroy(filter);
    std::uint32_t mtu = 0;
    return enyx_hw_a2c_stream_get_mtu(a2c, &mtu) == 0 && enyx_hw_c2a_stream_get_mtu(c2a, &mtu) == 0;
}

// 0 or less.
int Access(enyx_hw_core* core, CallGroup group) {
    const VendorCall call = CallOf(group);
    const enyx_hw_register_description place{IndexOf(group) * registerBytes, 0, registerBits};
    int failed = 0;
    enyx_hw_core_lock(core);
    if (call != VendorCall::Read) {
        failed |= enyx_hw_write(core, &place, ValueOf(group));
    }
    if (call != VendorCall::Write) {
        std::uint64_t value = 0;
        failed |= enyx_hw_read(core, &place, &value);
    }
    enyx_hw_core_unlock(core);
    return failed;
}

}  // namespace

bool StartByCalls(const CallRuns& runs) {
    enyx_hw_accelerator* accelerator = FindAccelerator();
    enyx_hw_core* core = FindCore(accelerator);
    int failed = 0;
    for (const CallRun& run : runs) {
        std::array<CallGroup, 2> groups = run.first;
        for (std::uint32_t n = 0; n < run.count; ++n) {
            for (std::uint32_t k = 0; k < run.length; ++k) {
                failed |= Access(core, groups[k]);
                groups[k] += run.step[k];
            }
        }
    }
    return failed == 0 && OpenStreams(accelerator);
}

}  // namespace velabench
