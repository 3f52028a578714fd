#include "configStart.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "DataType/ZceConfigFile.h"
#include "asUser.h"
#include "fakeDrv.h"
#include "logCapture.h"
#include "tempDir.h"

namespace velatest {

namespace {

using Vela2_U50::CZceConfigFile;

// A feed switch word that no start sets: it stays where the start does not get that far.
constexpr unsigned int untouched = 77;

// What the process writes to standard error while the object lives.
class StderrCapture {
  public:
    StderrCapture() : m_before(dup(STDERR_FILENO)) {
        const int file = open((m_dir / "stderr").c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
        dup2(file, STDERR_FILENO);
        close(file);
    }
    ~StderrCapture() {
        dup2(m_before, STDERR_FILENO);
        close(m_before);
    }
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    std::vector<std::string> Lines() const {
        std::fflush(stderr);
        std::ifstream file(m_dir / "stderr", std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back("STDERR " + line);
        }
        return lines;
    }

  private:
    TempDir m_dir;
    int m_before;
};

bool IsLogLine(const std::string& line) {
    static constexpr std::array<const char*, 3> labels = {"[ERROR  ]", "[WARN   ]", "[INFO   ]"};
    return std::any_of(labels.begin(), labels.end(),
                       [&line](const char* label) { return line.starts_with(label); });
}

// Standard output in its order, with the log's lines as the log file has them.
void AddStdout(const std::string& text, const std::vector<std::string>& logged,
               std::vector<std::string>& lines) {
    std::istringstream out(text);
    std::size_t next = 0;
    for (std::string line; std::getline(out, line);) {
        if (IsLogLine(line)) {
            lines.push_back(next < logged.size() ? logged[next] : "not in the log: " + line);
            ++next;
        } else {
            lines.push_back("STDOUT " + line);
        }
    }
    for (; next < logged.size(); ++next) {
        lines.push_back("not on standard output: " + logged[next]);
    }
}

std::string Joined(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items) {
        text += (text.empty() ? "" : ",") + item;
    }
    return text;
}

std::map<unsigned int, RulesSeen> RulesOf(CZceConfigFile& cfg) {
    std::map<unsigned int, RulesSeen> seen;
    unsigned int channel = 0;
    for (const Vela2_U50::ZceSubsInfo_t& rules : cfg.getArrayReference()) {
        EXPECT_EQ(rules.strSubIds, Joined(rules.vecSubIds));
        EXPECT_EQ(rules.strSubClasses, Joined(rules.vecSubClasses));
        const bool any = !rules.vecSubIds.empty() || !rules.vecSubClasses.empty() ||
                         rules.bSubAll + rules.bOptionsRecv + rules.bIpsRecv + rules.bSpdRecv != 0;
        if (any) {
            seen[channel] = {rules.vecSubIds,         rules.vecSubClasses, rules.bSubAll != 0,
                             rules.bOptionsRecv != 0, rules.bIpsRecv != 0, rules.bSpdRecv != 0};
        }
        ++channel;
    }
    return seen;
}

int OnlyCpu(const cpu_set_t& before) {
    cpu_set_t after;
    CPU_ZERO(&after);
    sched_getaffinity(0, sizeof(after), &after);
    if (CPU_EQUAL(&before, &after)) {
        return -1;
    }
    int cpu = 0;
    while (!CPU_ISSET(static_cast<unsigned int>(cpu), &after)) {
        ++cpu;
    }
    return cpu;
}

void SetUpMaster(CZceConfigFile& cfg, StartEffect& effect) {
    cfg.ShowVersion();
    cfg.PrintSwitchStatus();
    cfg.CfgNetReg();
    cfg.DumpDevInfo();
    effect.rulesCut = cfg.ParseSubsInst() != 0;
    effect.rules = RulesOf(cfg);
}

StartEffect Start(const std::string& path) {
    StartEffect effect;
    FakeDrv drv;
    drv.SetReg(0x103, 0xF);
    CZceConfigFile::m_SwitchReg = untouched;
    CZceConfigFile cfg(path, &drv, nullptr);
    effect.fails = cfg.Init() != 0;
    if (effect.fails) {
        EXPECT_TRUE(drv.Accesses().empty());
        EXPECT_TRUE(RulesOf(cfg).empty());
        EXPECT_EQ(CZceConfigFile::m_SwitchReg, untouched);
        return effect;
    }
    effect.channel = cfg.GetDmaChannel();
    EXPECT_EQ(cfg.GetDmaChanName(), "CUSTOM_CHAN" + std::to_string(effect.channel) + "_DATA");
    if (effect.channel == 0) {
        cfg.GetBusId();  // for the register driver
    }
    effect.board = cfg.GetBusId();
    cpu_set_t before;
    CPU_ZERO(&before);
    sched_getaffinity(0, sizeof(before), &before);
    cfg.BindCpu();
    effect.cpu = OnlyCpu(before);
    if (cfg.bIsMasterChannel()) {
        SetUpMaster(cfg, effect);
        effect.feeds = CZceConfigFile::m_SwitchReg;
    } else {
        EXPECT_EQ(CZceConfigFile::m_SwitchReg, untouched);
    }
    for (const DrvAccess& write : drv.Writes()) {
        EXPECT_EQ(write.op, "WriteInt32");
        effect.writes.emplace_back(write.addr, write.value);
    }
    return effect;
}

StartEffect StartAsUser(const std::string& path) {
    StartEffect effect;
    const int status = RunAsUser([&path] { return Start(path).fails ? 1 : 0; });
    EXPECT_NE(status, COULD_NOT_RUN);
    effect.fails = status == 1;
    return effect;
}

void Append(const char* name, const std::vector<std::string>& items, std::ostringstream& text) {
    if (!items.empty()) {
        text << "; " << name;
        for (const std::string& item : items) {
            text << " `" << item << "`";
        }
    }
}

}  // namespace

std::string Describe(const StartEffect& effect) {
    if (effect.fails) {
        return "start fails";
    }
    std::ostringstream text;
    text << "board " << effect.board << ", channel " << effect.channel << "; cpu " << effect.cpu
         << "; feeds " << effect.feeds << "; writes" << std::hex;
    for (const auto& [addr, value] : effect.writes) {
        text << " 0x" << addr << "=0x" << value;
    }
    text << std::dec;
    for (const auto& [channel, rules] : effect.rules) {
        text << "; rules of " << channel;
        Append("ids", rules.ids, text);
        Append("classes", rules.classes, text);
        text << (rules.all ? "; all" : "") << (rules.options ? "; options" : "")
             << (rules.ips ? "; ips" : "") << (rules.spd ? "; spd" : "");
    }
    text << (effect.rulesCut ? "; later channels not read" : "");
    return text.str();
}

StartSeen RunStart(const std::string& path, As who) {
    StartSeen seen;
    const LogCapture log;
    StdoutCapture out;
    const StderrCapture err;
    if (who == As::user) {
        seen.effect = StartAsUser(path);
    } else {
        // In a thread of its own, whose CPU goes with it.
        std::thread([&] { seen.effect = Start(path); }).join();
    }
    out.Stop();
    seen.lines = err.Lines();
    AddStdout(out.Text(), log.Lines(), seen.lines);
    return seen;
}

Binding TryBinding(int cpu) {
    Binding binding = Binding::refused;
    std::thread([&binding, cpu] {
        cpu_set_t before;
        CPU_ZERO(&before);
        sched_getaffinity(0, sizeof(before), &before);
        cpu_set_t cpus;
        CPU_ZERO(&cpus);
        CPU_SET(static_cast<unsigned int>(cpu), &cpus);
        if (sched_setaffinity(0, sizeof(cpus), &cpus) == 0) {
            binding = CPU_EQUAL(&before, &cpus) ? Binding::same : Binding::done;
        }
    }).join();
    return binding;
}

}  // namespace velatest
