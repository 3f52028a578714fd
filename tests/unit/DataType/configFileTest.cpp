#include "DataType/ZceConfigFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "configFixture.h"
#include "log/elog.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Vela2_U50::CZceConfigFile;
using velatest::ConfigRig;
using velatest::LoadedConfig;
using velatest::LogCapture;
using velatest::StdoutCapture;
using velatest::TempDir;

constexpr unsigned int fail = 0xFFFFFFFF;

std::string Device(const std::string& value) {
    return "[config]\ndevice = " + value + "\n";
}

TEST(ConfigFileNew, HoldsNothingAndReadsNothing) {
    velatest::FakeDrv drv;
    CZceConfigFile cfg("/nowhere/at/all.ini", &drv, nullptr);
    EXPECT_FALSE(cfg.bIsMasterChannel());
    EXPECT_EQ(cfg.GetDmaChanName(), "");
    for (const Vela2_U50::ZceSubsInfo_t& rules : cfg.getArrayReference()) {
        EXPECT_EQ(rules.nReserved, 3U);
        EXPECT_THAT(rules.vecSubIds, IsEmpty());
        EXPECT_THAT(rules.vecSubClasses, IsEmpty());
        EXPECT_EQ(rules.bSubAll + rules.bOptionsRecv + rules.bIpsRecv + rules.bSpdRecv, 0);
        EXPECT_EQ(
            rules.strSubIds + rules.strSubClasses + rules.strOptions + rules.strIps + rules.strSpd,
            "");
    }
    EXPECT_THAT(drv.Accesses(), IsEmpty());
}

TEST(ConfigFileNew, StaticsStartEmpty) {
    EXPECT_EQ(CZceConfigFile::m_SwitchReg, 0U);
    EXPECT_EQ(CZceConfigFile::m_ini_path, "");
    for (const Vela2_U50::ZceSubsInfo_t& rules : Vela2_U50::m_stSubsInfo) {
        EXPECT_EQ(rules.nReserved, 3U);
        EXPECT_THAT(rules.vecSubIds, IsEmpty());
    }
}

TEST(ConfigFileNew, RulesAreAnArrayOf16ThatDecaysToItsFirst) {
    CZceConfigFile cfg("", nullptr, nullptr);
    Vela2_U50::ZceSubsInfo_t* first = cfg.getArrayReference();
    EXPECT_EQ(first, &cfg.getArrayReference()[0]);
    EXPECT_EQ(std::size(cfg.getArrayReference()), 16U);
}

TEST(ConfigFileInit, EmptyPathFails) {
    const LogCapture log;
    CZceConfigFile cfg("", nullptr, nullptr);
    EXPECT_EQ(cfg.Init(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("ERROR Null config name"));
}

TEST(ConfigFileInit, MissingFileFails) {
    const LogCapture log;
    const TempDir dir;
    CZceConfigFile cfg(dir / "missing.ini", nullptr, nullptr);
    EXPECT_EQ(cfg.Init(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("ERROR Failed to load file " + (dir / "missing.ini")));
}

TEST(ConfigFileInit, UnreadableFileFails) {
    ConfigRig rig(Device("xilinx0:3"));
    ASSERT_EQ(chmod(rig.file.path().c_str(), 0), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && seteuid(65534) != 0) {
            _exit(2);
        }
        _exit(rig.cfg.Init() == -1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(ConfigFileInit, MalformedFileFails) {
    const LogCapture log;
    ConfigRig rig("[config]\ndevice = xilinx0:3\nthis line is none\n");
    EXPECT_EQ(rig.cfg.Init(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("ERROR Failed to load file " + rig.file.path()));
}

TEST(ConfigFileInit, LineBeyondTheParsersLimitFails) {
    const LogCapture log;
    ConfigRig rig("[config]\ndevice = " + std::string(3000, 'x') + "\n");
    EXPECT_EQ(rig.cfg.Init(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("ERROR Failed to load file " + rig.file.path()));
}

TEST(ConfigFileInit, ADirectoryCannotBeRead) {
    const TempDir dir;
    const LogCapture log;
    CZceConfigFile cfg(dir.path(), nullptr, nullptr);
    EXPECT_EQ(cfg.Init(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("ERROR Failed to load file " + dir.path()));
}

TEST(ConfigFileInit, AnEmptyFileLacksTheDevice) {
    const LogCapture log;
    CZceConfigFile cfg("/dev/null", nullptr, nullptr);
    EXPECT_EQ(cfg.Init(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("ERROR Get dma chan fail!"));
}

TEST(ConfigFileInit, BadDeviceFailsWithLineOnStdoutAndInLog) {
    const LogCapture log;
    ConfigRig rig(Device("Enyx0:3"));
    const StdoutCapture out;
    EXPECT_EQ(rig.cfg.Init(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("ERROR Get dma chan fail!"));
    EXPECT_THAT(out.Text(), testing::HasSubstr("Error! Invalid parameter! Input: Enyx0:3 \n"));
}

TEST(ConfigFileInit, GoodFileSettlesTheChannel) {
    const LogCapture log;
    ConfigRig rig(Device("xilinx2:7"));
    EXPECT_EQ(rig.cfg.Init(), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("INFO Successful load confie file " + rig.file.path()));
    EXPECT_EQ(rig.cfg.GetDmaChannel(), 7U);
    EXPECT_EQ(rig.cfg.GetDmaChanName(), "CUSTOM_CHAN7_DATA");
    EXPECT_THAT(rig.drv.Accesses(), IsEmpty());
}

TEST(ConfigFileInit, SecondCallLoadsAgain) {
    ConfigRig rig(Device("xilinx2:7"));
    EXPECT_EQ(rig.cfg.Init(), 0);
    EXPECT_EQ(rig.cfg.Init(), 0);
    EXPECT_EQ(rig.cfg.GetBusId(), 2U);
}

TEST(ConfigFileInit, SectionAndKeyMatchInAnyCase) {
    ConfigRig rig("[CONFIG]\nDEVICE = xilinx1:2\n");
    EXPECT_EQ(rig.cfg.Init(), 0);
    EXPECT_EQ(rig.cfg.GetDmaChannel(), 2U);
}

struct DeviceCase {
    const char* value;
    unsigned int channel;  // what GetDmaChannel returns
};

const std::vector<DeviceCase> deviceCases = {{"xilinx0:0", 0},
                                             {"xilinx4:15", 15},
                                             {"xilinx5:0", fail},
                                             {"xilinx0:16", fail},
                                             {"XILINX0:3", 3},
                                             {"XiLiNx1:4", 4},
                                             {"xilinx 0: 3", 3},
                                             {"xilinx+1:+3", 3},
                                             {"xilinx01:003", 3},
                                             {"xilinx1:3 and more", 3},
                                             {"xilinx1:3:5", 3},
                                             {"xilinx-1:3", fail},
                                             {"xilinx1:-3", fail},
                                             {"xilinx1 :3", fail},
                                             {"xilinx", fail},
                                             {"xilinx:3", fail},
                                             {"xilinx1:", fail},
                                             {"ilinx1:3", fail},
                                             {"0:3", fail},
                                             {"", fail},
                                             {"xilinx0x1:3", fail},
                                             {"xilinx99999999999999999999:0", fail},
                                             {"xilinx4294967296:0", fail},
                                             {"xilinx0:4294967297", fail},
                                             {"xilinx0:-18446744073709551616", fail}};

TEST(ConfigFileDevice, GivesChannelOrIsRejected) {
    elog_set_enabled(false);  // standard output is for the one line alone
    for (const DeviceCase& one : deviceCases) {
        SCOPED_TRACE(one.value);
        ConfigRig rig(Device(one.value));
        const StdoutCapture out;
        EXPECT_EQ(rig.cfg.Init(), one.channel == fail ? -1 : 0);
        const std::string report =
            "Error! Invalid parameter! Input: " + std::string(one.value) + " \n";
        EXPECT_EQ(out.Text(), one.channel == fail ? report : "");
        if (one.channel != fail) {
            EXPECT_EQ(rig.cfg.GetDmaChannel(), one.channel);
        }
    }
}

TEST(ConfigFileDeviceLength, AnyLengthIsTaken) {
    ConfigRig rig(Device("xilinx" + std::string(900, '0') + "1:3"));
    EXPECT_EQ(rig.cfg.Init(), 0);
    EXPECT_EQ(rig.cfg.GetDmaChannel(), 3U);
    EXPECT_EQ(rig.cfg.GetBusId(), 1U);
}

TEST(ConfigFileDeviceMissing, IsPrintedAsNull) {
    elog_set_enabled(false);  // standard output is for the one line alone
    ConfigRig rig("[config]\ncpucore = 1\n");
    {
        const StdoutCapture out;
        EXPECT_EQ(rig.cfg.Init(), -1);
        EXPECT_EQ(out.Text(), "Error! Invalid parameter! Input: (null) \n");
    }
    const LogCapture log;
    EXPECT_EQ(rig.cfg.GetBusId(), 0U);
    EXPECT_THAT(log.Lines(),
                ElementsAre("ERROR [channel:255] Failed to parse the input string:(null)"));
}

TEST(ConfigFileDeviceMissing, SectionOfTheKeysNameCountsAsMissing) {
    ConfigRig rig("[config:device]\nx = 1\n");
    EXPECT_EQ(rig.cfg.Init(), -1);
    EXPECT_EQ(rig.cfg.GetBusId(), 0U);
}

TEST(ConfigFileDeviceRejected, ValueIsPrintedAsRead) {
    elog_set_enabled(false);  // standard output is for the one line alone
    ConfigRig rig(Device("XILINX9:1"));
    const StdoutCapture out;
    EXPECT_EQ(rig.cfg.Init(), -1);
    EXPECT_EQ(out.Text(), "Error! Invalid parameter! Input: XILINX9:1 \n");
}

TEST(ConfigFileDeviceRejected, StoredChannelIsReturnedByLaterCalls) {
    ConfigRig rig(Device("xilinx1:20"));
    EXPECT_EQ(rig.cfg.Init(), -1);
    const StdoutCapture out;
    EXPECT_EQ(rig.cfg.GetDmaChannel(), 20U);
    EXPECT_EQ(out.Text(), "");
    EXPECT_EQ(rig.cfg.GetDmaChanName(), "");
}

TEST(ConfigFileDeviceRejected, WithoutChannelNumberIsParsedAgain) {
    ConfigRig rig(Device("xilinx3:none"));
    EXPECT_EQ(rig.cfg.Init(), -1);
    const StdoutCapture out;
    EXPECT_EQ(rig.cfg.GetDmaChannel(), fail);
    EXPECT_EQ(out.Text(), "Error! Invalid parameter! Input: xilinx3:none \n");
    // The bus number was stored on the way.
    EXPECT_EQ(rig.cfg.GetBusId(), 3U);
}

TEST(ConfigFileChannel, ValueIsCachedAndNotPrintedAgain) {
    ConfigRig rig(Device("xilinx0:9"));
    ASSERT_EQ(rig.cfg.Init(), 0);
    ASSERT_EQ(unlink(rig.file.path().c_str()), 0);
    EXPECT_EQ(rig.cfg.GetDmaChannel(), 9U);
    EXPECT_EQ(rig.cfg.GetDmaChannel(), 9U);
}

TEST(ConfigFileChannel, OnlyChannel0IsTheMaster) {
    for (unsigned int channel = 0; channel < 16; ++channel) {
        ConfigRig rig(Device("xilinx0:" + std::to_string(channel)));
        ASSERT_EQ(rig.cfg.Init(), 0);
        EXPECT_EQ(rig.cfg.bIsMasterChannel(), channel == 0);
        EXPECT_EQ(rig.cfg.GetDmaChanName(), "CUSTOM_CHAN" + std::to_string(channel) + "_DATA");
    }
}

TEST(ConfigFileBusId, ParsesAgainAndLogs) {
    ConfigRig rig(Device("xilinx4:15"));
    ASSERT_EQ(rig.cfg.Init(), 0);
    const LogCapture log;
    EXPECT_EQ(rig.cfg.GetBusId(), 4U);
    EXPECT_THAT(log.Lines(), ElementsAre("INFO [channel:15] Busid:4, ChannelId:15."));
}

TEST(ConfigFileBusId, UpperCaseIsNotParsedAndTheStoredBusReturned) {
    ConfigRig rig(Device("XILINX2:3"));
    ASSERT_EQ(rig.cfg.Init(), 0);
    const LogCapture log;
    EXPECT_EQ(rig.cfg.GetBusId(), 2U);
    EXPECT_THAT(log.Lines(),
                ElementsAre("ERROR [channel:3] Failed to parse the input string:XILINX2:3"));
}

TEST(ConfigFileBusId, BeforeInitThereIsNone) {
    CZceConfigFile cfg("/nowhere", nullptr, nullptr);
    const LogCapture log;
    EXPECT_EQ(cfg.GetBusId(), 0U);
    EXPECT_THAT(log.Lines(),
                ElementsAre("ERROR [channel:255] Failed to parse the input string:(null)"));
}

int FirstAllowedCpu() {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    sched_getaffinity(0, sizeof(cpus), &cpus);
    int cpu = 0;
    while (!CPU_ISSET(static_cast<unsigned int>(cpu), &cpus)) {
        ++cpu;
    }
    return cpu;
}

TEST(ConfigFileBindCpu, AbsentOrMinusOneBindsNothing) {
    for (const char* more : {"", "cpucore = -1\n"}) {
        LoadedConfig rig(more);
        cpu_set_t before;
        sched_getaffinity(0, sizeof(before), &before);
        const LogCapture log;
        rig.cfg.BindCpu();
        EXPECT_THAT(log.Lines(), ElementsAre("INFO [channel:0] Doesn't need to bind cpu."));
        cpu_set_t after;
        sched_getaffinity(0, sizeof(after), &after);
        EXPECT_TRUE(CPU_EQUAL(&before, &after));
    }
}

TEST(ConfigFileBindCpu, BindsTheCallingThread) {
    const int cpu = FirstAllowedCpu();
    LoadedConfig rig("cpucore = " + std::to_string(cpu) + "\n");
    cpu_set_t before;
    sched_getaffinity(0, sizeof(before), &before);
    const LogCapture log;
    cpu_set_t bound;
    std::thread([&rig, &bound] {
        rig.cfg.BindCpu();
        sched_getaffinity(0, sizeof(bound), &bound);
    }).join();
    EXPECT_THAT(log.Lines(), ElementsAre("INFO [channel:0] Set CPU[" + std::to_string(cpu) +
                                         "] affinity success."));
    EXPECT_EQ(CPU_COUNT(&bound), 1);
    EXPECT_TRUE(CPU_ISSET(static_cast<unsigned int>(cpu), &bound));
    // This thread goes where it went before.
    cpu_set_t after;
    sched_getaffinity(0, sizeof(after), &after);
    EXPECT_TRUE(CPU_EQUAL(&before, &after));
}

TEST(ConfigFileBindCpu, NumbersThatCannotBeSetFailAndAreLogged) {
    const std::map<std::string, std::string> shown = {
        {"1024", "1024"}, {"2048", "2048"}, {"-2", "-2"}, {"0x400", "1024"}, {"02000", "1024"}};
    for (const auto& [value, number] : shown) {
        LoadedConfig rig("cpucore = " + value + "\n");
        cpu_set_t before;
        sched_getaffinity(0, sizeof(before), &before);
        const LogCapture log;
        rig.cfg.BindCpu();
        EXPECT_THAT(log.Lines(),
                    ElementsAre("INFO [channel:0] Set CPU[" + number + "] affinity failed."));
        cpu_set_t after;
        sched_getaffinity(0, sizeof(after), &after);
        EXPECT_TRUE(CPU_EQUAL(&before, &after));
    }
}

TEST(ConfigFileBindCpu, SectionOfTheKeysNameCountsAsAbsent) {
    LoadedConfig rig("[config:cpucore]\nx = 1\n");
    const LogCapture log;
    rig.cfg.BindCpu();
    EXPECT_THAT(log.Lines(), ElementsAre("INFO [channel:0] Doesn't need to bind cpu."));
}

TEST(ConfigFileVersion, IsLogged) {
    CZceConfigFile cfg("", nullptr, nullptr);
    const LogCapture log;
    cfg.ShowVersion();
    EXPECT_THAT(log.Lines(), ElementsAre("INFO Current soft version 3.10.0."));
}

struct FeedCase {
    const char* more;
    unsigned int word;
    std::vector<std::string> lines;
};

const char* const bothOn = "INFO L1 and L5 switch on.";
const std::vector<FeedCase> feedCases = {
    {"", 3, {bothOn}},
    {"czce_level1 = disabled\n",
     1,
     {"INFO config:czce_level1=disabled.", "INFO L1 switch off and L5 switch on."}},
    {"czce_level2 = disabled\n",
     2,
     {"INFO config:czce_level2=disabled.", "INFO L1 switch on and L5 switch off."}},
    {"czce_level2 = disabled\nczce_level1 = disabled\n",
     0,
     {"INFO config:czce_level1=disabled.", "INFO config:czce_level2=disabled.",
      "WARN L1 and L5 switch off! Software won't get data!"}},
    {"czce_level1 = Disabled\n", 3, {"INFO config:czce_level1=Disabled.", bothOn}},
    {"czce_level2 = disabledd\n", 3, {"INFO config:czce_level2=disabledd.", bothOn}},
    {"czce_level1 = enabled\nczce_level2 =\n",
     3,
     {"INFO config:czce_level1=enabled.", "INFO config:czce_level2=.", bothOn}}};

TEST(ConfigFileFeeds, SwitchWordAndItsReport) {
    for (const FeedCase& one : feedCases) {
        SCOPED_TRACE(one.more);
        LoadedConfig rig(one.more);
        CZceConfigFile::m_SwitchReg = 77;
        const LogCapture log;
        rig.cfg.DumpDevInfo();
        EXPECT_EQ(CZceConfigFile::m_SwitchReg, one.word);
        EXPECT_EQ(log.Lines(), one.lines);
        EXPECT_THAT(rig.drv.Accesses(), IsEmpty());
    }
}

TEST(ConfigFileFeeds, WordOutlivesTheObject) {
    {
        LoadedConfig rig("czce_level2 = disabled\n");
        rig.cfg.DumpDevInfo();
    }
    EXPECT_EQ(CZceConfigFile::m_SwitchReg, 2U);
}

}  // namespace
