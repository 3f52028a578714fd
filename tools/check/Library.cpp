#include "check/Library.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <string_view>
#include <utility>

#include "DataType/ContractServ.h"
#include "DataType/ZceConfigFile.h"
#include "DataType/ZceFpgaServ.h"
#include "DataType/ZceIniGuard.h"
#include "check/NoBoard.h"
#include "log/elog.h"

namespace ZceCheck {

namespace {

// What goes to a descriptor from the construction to Take, or to the destruction. Where it cannot
// be kept it goes where it would have gone.
class CKeptOutput {
  public:
    explicit CKeptOutput(std::FILE* stream) : m_stream(stream), m_fd(fileno(stream)) {
        std::fflush(m_stream);
        m_kept = memfd_create("zce-check", MFD_CLOEXEC);
        m_before = m_kept == -1 ? -1 : fcntl(m_fd, F_DUPFD_CLOEXEC, 0);
        if (m_before != -1) {
            dup2(m_kept, m_fd);
        }
    }
    ~CKeptOutput() {
        GiveBack();
        if (m_kept != -1) {
            close(m_kept);
        }
    }
    CKeptOutput(const CKeptOutput&) = delete;
    CKeptOutput& operator=(const CKeptOutput&) = delete;

    std::string Take() {
        GiveBack();
        std::string text;
        char piece[4096];
        for (ssize_t got = 0;
             (got = pread(m_kept, piece, sizeof(piece), static_cast<off_t>(text.size()))) > 0;) {
            text.append(piece, static_cast<std::size_t>(got));
        }
        return text;
    }

  private:
    void GiveBack() {
        std::fflush(m_stream);
        if (m_before != -1) {
            dup2(m_before, m_fd);
            close(m_before);
            m_before = -1;
        }
    }

    std::FILE* m_stream;
    int m_fd;
    int m_kept = -1;
    int m_before = -1;
};

// Keeps the registers that are written.
class CKeepingBoard final : public CNoBoard {
  public:
    int WriteInt32(unsigned long addr, unsigned int value) override {
        registers[addr] = value;
        return 0;
    }
    std::map<unsigned long, unsigned int> registers;
};

class CContracts final : public Vela2_U50::CContractServ {
  public:
    using CContractServ::CContractServ;
    Selection Of(unsigned channel) {
        Selection selection;
        for (const auto& [index, name] : m_mapSglSubs[channel]) {
            selection.single.push_back(name);
        }
        for (const auto& [index, name] : m_mapCmbSubs[channel]) {
            selection.combined.push_back(name);
        }
        Id_chkPresent(channel);
        selection.lacking = m_vecLackIds;
        return selection;
    }
};

// The line numbers in "iniparser: syntax error in PATH (N):" and "iniparser: input line too long in
// PATH (N)".
std::vector<RefusedLine> RefusedLines(std::string_view text) {
    constexpr std::string_view SYNTAX = "iniparser: syntax error in ";
    constexpr std::string_view TOO_LONG = "iniparser: input line too long in ";
    std::vector<RefusedLine> refused;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : text.size());
        const bool bTooLong = line.starts_with(TOO_LONG);
        const auto bracket = line.rfind('(');
        if ((bTooLong || line.starts_with(SYNTAX)) && bracket != std::string_view::npos) {
            unsigned number = 0;
            std::from_chars(line.data() + bracket + 1, line.data() + line.size(), number);
            refused.push_back({number, bTooLong});
        }
    }
    return refused;
}

// False if the reader refuses the file.
bool TakeValues(const std::string& path, Understood& result) {
    dictionary* const loaded = Vela2_U50::ZceIniLoad(path.c_str());
    if (loaded == nullptr) {
        return false;
    }
    const std::unique_ptr<dictionary, decltype(&iniparser_freedict)> owner(loaded,
                                                                           iniparser_freedict);
    for (int at = 0; at < loaded->size; ++at) {
        if (loaded->key[at] != nullptr) {
            const char* const value = loaded->val[at];
            result.values[loaded->key[at]] =
                value == nullptr ? std::nullopt : std::optional<std::string>(value);
        }
    }
    if (result.Value("config", "cpucore") != nullptr) {
        const int cpu = iniparser_getint(loaded, "config:cpucore", -1);
        result.cpu = cpu == -1 ? std::nullopt : std::optional<int>(cpu);
    }
    return true;
}

// Whether the library binds its thread to the CPU; the thread is then let go again.
bool TryBinding(Vela2_U50::CZceConfigFile& config, int cpu) {
    cpu_set_t before;
    if (sched_getaffinity(0, sizeof(before), &before) != 0) {
        return true;  // more CPUs than a set has: the machine is not asked
    }
    config.BindCpu();
    cpu_set_t now;
    const bool bBound = sched_getaffinity(0, sizeof(now), &now) == 0 && CPU_COUNT(&now) == 1 &&
                        cpu >= 0 && cpu < CPU_SETSIZE && CPU_ISSET(cpu, &now);
    sched_setaffinity(0, sizeof(before), &before);
    return bBound;
}

void AskRules(const std::string& path, const InstrumentNames* names, CNoBoard& board, bool bLog,
              Understood& result) {
    elog_set_enabled(false);  // the loading was logged already
    Vela2_U50::CZceConfigFile config(path, &board, nullptr);
    config.Init();
    elog_set_enabled(bLog);
    std::map<std::string, unsigned short> insts;
    if (names != nullptr) {
        insts = names->byName;
    }
    Vela2_U50::CZceFpgaServ tables(insts, 0);
    tables.Init(&board);
    CContracts contracts(insts, &config, nullptr, &tables, 0, config.getArrayReference());
    if (names != nullptr) {
        contracts.FilterAndStoreToGlobMap();
    } else {
        config.ParseSubsInst();
    }
    for (unsigned channel = 0; channel < CHANNELS; ++channel) {
        result.rules[channel] = config.getArrayReference()[channel];
        if (names != nullptr) {
            result.selected[channel] = contracts.Of(channel);
        }
    }
}

void Ask(const std::string& path, const InstrumentNames* names, bool bLog, Understood& result) {
    CKeepingBoard board;
    Vela2_U50::CZceConfigFile config(path, &board, nullptr);
    result.bStarts = config.Init() == 0;
    if (!result.bLoaded) {
        return;
    }
    if (result.bStarts) {
        result.channel = config.GetDmaChannel();
        result.bus = config.GetBusId();
    }
    if (result.cpu) {
        result.bBound = TryBinding(config, *result.cpu);
    }
    config.DumpDevInfo();
    result.feeds = Vela2_U50::CZceConfigFile::m_SwitchReg;
    config.CfgNetReg();
    result.registers = board.registers;
    // What it gives is taken of another object below: a second parsing adds to the first.
    elog_set_enabled(false);
    result.bAllRulesRead = config.ParseSubsInst() == 0;
    CNoBoard none;
    AskRules(path, names, none, bLog, result);
}

}  // namespace

const std::string* Understood::Value(const std::string& section, const std::string& key) const {
    const auto found = values.find(section + ":" + key);
    return found == values.end() || !found->second ? nullptr : &*found->second;
}

Understood AskLibrary(const std::string& path, const InstrumentNames* names, bool bLog) {
    Understood result;
    CKeptOutput output(stdout);
    CKeptOutput errors(stderr);
    result.bLoaded = TakeValues(path, result);
    result.refused = RefusedLines(errors.Take());
    CKeptOutput again(stderr);
    if (bLog) {
        elog_set_filter_level(ELOG_LVL_VERBOSE);
        elog_start();
    }
    Ask(path, names, bLog, result);
    elog_set_enabled(false);
    result.log = output.Take();
    return result;
}

}  // namespace ZceCheck
