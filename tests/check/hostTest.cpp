// What zce-check host says of a machine: of trees that stand for /proc and /sys, of commands that
// stand for lspci, lsmod and ps, and of directories and modes.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "VelaZceUtils.h"
#include "asUser.h"
#include "check/HostChecks.h"
#include "check/HostFiles.h"
#include "programRun.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using ZceMachine::CpuCore;
using ZceMachine::HostPlaces;
using ZceMachine::Level;
using ZceMachine::Result;

// "error board: found -> advice".
std::string Line(const Result& result) {
    return std::string(Word(result.level)) + " " + result.check + ": " + result.found +
           (result.advice.empty() ? "" : " -> " + result.advice);
}

// A tree for /proc and /sys, and commands at the head of PATH.
class HostTest : public testing::Test {
  protected:
    HostTest() {
        places.proc = dir / "proc";
        places.sys = dir / "sys";
        for (const char* name : {"lspci", "lsmod", "ps"}) {
            Says(name, "");
        }
        m_path = std::getenv("PATH");
        setenv("PATH", (dir / "bin" + ":" + m_path).c_str(), 1);
        g_curEnvBrdType = 6;
    }
    ~HostTest() override { setenv("PATH", m_path.c_str(), 1); }

    void Put(const std::string& path, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(dir / path).parent_path());
        PutFile(dir / path, text);
    }
    void Says(const std::string& command, const std::string& text) {
        Put("bin/" + command + ".out", text);
        Put("bin/" + command, "#!/bin/sh\nexec cat \"$0.out\"\n");
        EXPECT_EQ(chmod((dir / ("bin/" + command)).c_str(), 0755), 0);
    }
    std::string Cpu(const std::string& file) { return "sys/devices/system/cpu/" + file; }

    TempDir dir;
    HostPlaces places;

  private:
    std::string m_path;
};

TEST_F(HostTest, BoardsAreThoseOfTheLibrarysCheck) {
    EXPECT_EQ(Line(ZceMachine::CheckBoards(false)),
              "error board: no board; the library says: Unable to recongnize fpga board! if there "
              "indeed exist fpga board, firmware maybe error. -> look at the card, its power and "
              "its firmware (lspci)");
    EXPECT_EQ(Line(ZceMachine::CheckBoards(true)),
              "ok board: not looked for: the software board needs no card");
    g_curEnvBrdType = 6;
    Says("lspci", "01:00.0 Ethernet controller: Enyx SA Device\n");
    EXPECT_EQ(Line(ZceMachine::CheckBoards(false)), "ok board: one Enyx board");
    g_curEnvBrdType = 6;
    Says("lspci", "02:00.0 Xilinx Corporation Device\n03:00.0 Xilinx Corporation Device\n");
    EXPECT_EQ(Line(ZceMachine::CheckBoards(false)),
              "error board: several Xilinx boards; the library says: There exist Xi board, but the "
              "Xi driver not installed, please install first. -> install and load the board's "
              "driver");
    Says("lsmod", "xdma 98304 0\n");
    EXPECT_EQ(Line(ZceMachine::CheckBoards(false)), "ok board: several Xilinx boards");
    g_curEnvBrdType = 6;
    Says("lsmod", "");
    Says("lspci", "01:00.0 Enyx SA\n02:00.0 Xilinx Corporation Device\n");
    EXPECT_EQ(Line(ZceMachine::CheckBoards(false)),
              "warning board: Enyx and Xilinx boards; the library says: Attention! the Xi driver "
              "not installed! -> install and load the drivers");
}

TEST_F(HostTest, WithoutTheCommandsNoBoardIsSeen) {
    setenv("PATH", (dir / "nothing").c_str(), 1);
    EXPECT_EQ(Line(ZceMachine::CheckBoards(false)),
              "error board: lspci or lsmod is not installed: boards are not seen -> apt install "
              "pciutils kmod");
    EXPECT_EQ(Line(ZceMachine::CheckServer()),
              "warning server: ps is not installed: processes are not seen -> apt install procps");
}

TEST_F(HostTest, ModulesAreThoseOfTheKernelsList) {
    Put("proc/modules", "snd 1 0 - Live 0x0\nmy_hfp_user 1 0\n");
    EXPECT_EQ(Line(ZceMachine::CheckModules(places, false)),
              "ok driver: hfp (Enyx boards) loaded, xdma (Xilinx boards) not loaded");
    Put("proc/modules", "snd 1 1 xdma, Live 0x0\n");  // named as a user of another
    const std::string missing =
        "driver: hfp (Enyx boards) not loaded, xdma (Xilinx boards) not loaded";
    EXPECT_EQ(Line(ZceMachine::CheckModules(places, false)),
              "warning " + missing + " -> load the module of the board's driver (modprobe)");
    EXPECT_EQ(Line(ZceMachine::CheckModules(places, true)), "ok " + missing);
    Put("proc/modules", "xdma 98304 0 - Live 0x0\n");
    EXPECT_EQ(Line(ZceMachine::CheckModules(places, false)),
              "ok driver: hfp (Enyx boards) not loaded, xdma (Xilinx boards) loaded");
}

TEST_F(HostTest, OtherProgramsOfTheKind) {
    EXPECT_EQ(Line(ZceMachine::CheckServer()), "ok server: QyDeliverDmaServer does not run");
    Says("ps", "root 17 1 0 09:00 ? 00:00:01 /opt/QyDeliverDmaServer\n");
    EXPECT_EQ(Line(ZceMachine::CheckServer()),
              "warning server: QyDeliverDmaServer runs: it may hold the board -> end it before the "
              "start, or see that it uses another board");

    Put("proc/17/maps", "7f00-7f01 r-xp 0 0:0 1 /lib/libc.so.6\n");
    Put("proc/18/maps", "");  // a kernel thread
    Put("proc/18/cmdline", "");
    Put("proc/self/maps", "7f00-7f01 r-xp 0 0:0 1 /lib/libVelaZceMdApi.so.3\n");
    EXPECT_EQ(Line(ZceMachine::CheckReceivers(places)),
              "ok receivers: no process has the library loaded");
    Put("proc/203/maps", "7f00-7f01 r-xp 0 0:0 1 /lib/libVelaZceMdApi.so.3.10.0\n");
    Put("proc/203/comm", "zce-recv\n");
    Put("proc/90/maps", "7f00-7f01 r-xp 0 0:0 1 /opt/libVelaZceMdApi.so.3\n");
    Put("proc/90/comm", "feed\n");
    Put("proc/4/maps", "");
    Put("proc/4/cmdline", "hidden");
    EXPECT_EQ(Line(ZceMachine::CheckReceivers(places)),
              "warning receivers: processes with the library: 90 (feed), 203 (zce-recv); could not "
              "be looked at: 1 -> a channel can be held by one process, and only one may be the "
              "master");
}

// What follows the owner and the mode.
std::string Behind(const std::string& text, const std::string& word) {
    const std::size_t at = text.find(word);
    return at == std::string::npos ? "(no " + word + " in " + text + ")" : text.substr(at);
}

TEST_F(HostTest, LogDirectory) {
    const std::string log = dir / "log";
    const auto look = [&log] { return ZceMachine::LogDirectoryResult(log, 20261123, "0"); };
    EXPECT_EQ(Line(look()), "ok log: " + log + " is not there; the start makes it");
    std::filesystem::create_directory(log);
    chmod(log.c_str(), 0750);
    EXPECT_EQ(look().level, Level::Ok);
    EXPECT_EQ(Behind(look().found, " 0"), " 0750");
    PutFile(log + "/fpga_20261123.log", "");
    EXPECT_EQ(look().level, Level::Ok);
    // Somebody else's.
    chmod(dir.path().c_str(), 0755);
    chmod(log.c_str(), 0755);
    EXPECT_EQ(RunAsUser([&] {
                  return geteuid() == 65534 && look().level == Level::Error &&
                                 Behind(look().found, ": ") == ": this user may not write there" &&
                                 ZceMachine::LogDirectoryResult(log + "/x", 1, "0").found ==
                                     log + "/x is not there, and cannot be made"
                             ? 0
                             : 1;
              }),
              geteuid() == 0 ? 0 : 1);
    chmod(log.c_str(), 01777);
    EXPECT_EQ(RunAsUser([&] {
                  return Behind(look().found, ": ") == ": this user may not write to it" ? 0 : 1;
              }),
              geteuid() == 0 ? 0 : 1);
    std::filesystem::remove(log + "/fpga_20261123.log");
    ASSERT_EQ(mkfifo((log + "/fpga_20261123.log").c_str(), 0600), 0);
    EXPECT_EQ(Line(look()), "error log: " + log +
                                "/fpga_20261123.log: no regular file; a start ends there -> "
                                "remove it");
    PutFile(dir / "file", "");
    EXPECT_EQ(Behind(ZceMachine::LogDirectoryResult(dir / "file", 1, "0").found, ": "),
              ": no directory");
}

// Root too is refused the file of another in a directory that all may write to.
TEST_F(HostTest, ProtectedLogFile) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const std::string log = dir / "log";
    std::filesystem::create_directory(log);
    chmod(log.c_str(), 01777);
    PutFile(log + "/fpga_20261123.log", "");
    ASSERT_EQ(chown((log + "/fpga_20261123.log").c_str(), 65534, 65534), 0);
    EXPECT_EQ(ZceMachine::LogDirectoryResult(log, 20261123, "0").level, Level::Ok);
    EXPECT_EQ(ZceMachine::LogDirectoryResult(log, 20261123, "2").level, Level::Error);
    chmod(log.c_str(), 0777);
    EXPECT_EQ(ZceMachine::LogDirectoryResult(log, 20261123, "2").level, Level::Ok);
    Put("proc/sys/fs/protected_regular", "2\n");
    chmod(log.c_str(), 01777);
    places.log = log;
    EXPECT_EQ(ZceMachine::CheckLogDirectory(places, 20261123).level, Level::Error);
}

TEST_F(HostTest, WorkDirectory) {
    const std::string work = dir / "work";
    places.work = work;
    EXPECT_EQ(Line(ZceMachine::CheckWorkDirectory(places)),
              "error work: " + work + ": No such file or directory -> choose another");
    std::filesystem::create_directory(work);
    chmod(work.c_str(), 0755);
    EXPECT_EQ(ZceMachine::CheckWorkDirectory(places).level, Level::Ok);
    chmod(dir.path().c_str(), 0755);
    EXPECT_EQ(RunAsUser([&] {
                  const Result result = ZceMachine::CheckWorkDirectory(places);
                  return result.level == Level::Error &&
                                 Behind(result.found, ": ") ==
                                     ": the master cannot write its cache file there outside "
                                     "trading time"
                             ? 0
                             : 1;
              }),
              geteuid() == 0 ? 0 : 1);
    chmod(work.c_str(), 0777);
    EXPECT_EQ(Behind(Line(ZceMachine::CheckWorkDirectory(places)), ": anybody"),
              ": anybody may put another cache file there -> take a directory of the master's own");
    PutFile(work + "/bin", "");
    chmod((work + "/bin").c_str(), 0600);
    EXPECT_EQ(RunAsUser([&] {
                  return Behind(ZceMachine::CheckWorkDirectory(places).found, ": ") ==
                                 ": this user may not read and write it"
                             ? 0
                             : 1;
              }),
              geteuid() == 0 ? 0 : 1);
    std::filesystem::remove(work + "/bin");
    ASSERT_EQ(mkfifo((work + "/bin").c_str(), 0600), 0);
    EXPECT_EQ(
        Line(ZceMachine::CheckWorkDirectory(places)),
        "warning work: " + work + "/bin: no regular file; no cache file is kept -> remove it");
}

TEST_F(HostTest, ZoneAndClock) {
    const char* const before = std::getenv("TZ");
    const std::string kept = before == nullptr ? "" : before;
    setenv("TZ", "CST-8", 1);
    EXPECT_EQ(Line(ZceMachine::CheckZone(1795397400)),
              "ok zone: 09:30:00 CST (UTC+08:00), as the exchange");
    setenv("TZ", "XYZ5:30", 1);
    EXPECT_EQ(
        Line(ZceMachine::CheckZone(1795397400)),
        "error zone: 20:00:00 XYZ (UTC-05:30); the exchange's is UTC+08:00, and every "
        "decision is by the local time -> start with TZ=Asia/Shanghai, or set the host's zone "
        "to it (timedatectl)");
    before == nullptr ? unsetenv("TZ") : setenv("TZ", kept.c_str(), 1);
    EXPECT_EQ(Line(ZceMachine::CheckClockIsSet(true)), "ok clock: kept right (the kernel says)");
    EXPECT_EQ(ZceMachine::CheckClockIsSet(false).level, Level::Warning);
}

TEST_F(HostTest, Governor) {
    EXPECT_EQ(Line(ZceMachine::CheckGovernor(places, CpuCore())),
              "ok governor: the frequency is not the kernel's to choose");
    Put(Cpu("online"), "0-1,3\n");
    Put(Cpu("cpu0/cpufreq/scaling_governor"), "performance\n");
    Put(Cpu("cpu1/cpufreq/scaling_governor"), "powersave\n");
    Put(Cpu("cpu2/cpufreq/scaling_governor"), "ondemand\n");  // not online
    Put(Cpu("cpu3/cpufreq/scaling_governor"), "schedutil\n");
    EXPECT_EQ(Line(ZceMachine::CheckGovernor(places, CpuCore())),
              "warning governor: CPU 1 powersave, CPU 3 schedutil -> cpupower frequency-set -g "
              "performance");
    EXPECT_EQ(Line(ZceMachine::CheckGovernor(places, CpuCore(0))),
              "ok governor: performance (1 CPUs)");
    EXPECT_EQ(Line(ZceMachine::CheckGovernor(places, CpuCore(-1))),
              "warning governor: CPU 1 powersave, CPU 3 schedutil -> cpupower frequency-set -g "
              "performance");
}

TEST_F(HostTest, CpuOfTheConfiguration) {
    Put(Cpu("online"), "0-7\n");
    Put(Cpu("isolated"), "\n");
    EXPECT_EQ(Line(ZceMachine::CheckIsolation(places, CpuCore())),
              "ok cpucore: isolated CPUs: none (no configuration was given)");
    EXPECT_EQ(
        Line(ZceMachine::CheckIsolation(places, CpuCore(3))),
        "warning cpucore: 3: not isolated, others run on it too (isolated CPUs: none) -> boot "
        "with isolcpus=3 nohz_full=3");
    Put(Cpu("isolated"), "2-3,6\n");
    EXPECT_EQ(
        Line(ZceMachine::CheckIsolation(places, CpuCore(-1))),
        "warning cpucore: not set: the receiving thread moves from CPU to CPU; isolated CPUs: "
        "2-3,6 -> set config:cpucore to an isolated CPU");
    EXPECT_EQ(Line(ZceMachine::CheckIsolation(places, CpuCore(3))),
              "warning cpucore: 3: isolated, but the timer's ticks go on -> boot with nohz_full=3");
    Put(Cpu("nohz_full"), "3\n");
    EXPECT_EQ(Line(ZceMachine::CheckIsolation(places, CpuCore(3))),
              "ok cpucore: 3: isolated, without ticks");
    EXPECT_EQ(
        Line(ZceMachine::CheckIsolation(places, CpuCore(4))),
        "warning cpucore: 4: not isolated, others run on it too (isolated CPUs: 2-3,6) -> boot "
        "with isolcpus=4 nohz_full=4");
    for (const int cpu : {8, 2000, -7}) {
        EXPECT_EQ(Line(ZceMachine::CheckIsolation(places, CpuCore(cpu))),
                  "error cpucore: " + std::to_string(cpu) +
                      ": there is no such CPU (online: 0-7); the thread is not bound -> set "
                      "config:cpucore to a CPU that is online");
    }
    EXPECT_EQ(ZceMachine::CpuList("0-2,5,1022-2000"),
              (std::vector<unsigned int>{0, 1, 2, 5, 1022, 1023}));
    EXPECT_EQ(ZceMachine::CpuList(""), std::vector<unsigned int>());
    EXPECT_EQ(ZceMachine::CpuList("none"), std::vector<unsigned int>());
}

TEST_F(HostTest, HugePages) {
    EXPECT_EQ(Line(ZceMachine::CheckHugePages(places)),
              "ok huge pages: none reserved; the library needs none, a vendor's driver may");
    Put("proc/meminfo",
        "HugePages_Total:     512\nHugePages_Free:      100\n"
        "Hugepagesize:       2048 kB\n");
    EXPECT_EQ(Line(ZceMachine::CheckHugePages(places)),
              "ok huge pages: 100 of 512 free, 2048 kB each");
    Put("proc/meminfo",
        "HugePages_Total:     512\nHugePages_Free:        0\n"
        "Hugepagesize:       2048 kB\n");
    EXPECT_EQ(Line(ZceMachine::CheckHugePages(places)),
              "warning huge pages: 0 of 512 free, 2048 kB each -> raise vm.nr_hugepages if the "
              "vendor's driver takes them");
}

TEST_F(HostTest, WhatAProcessIsCalledSaysNothingToTheTerminal) {
    const std::string text =
        ZceMachine::AsText({{Level::Warning, "receivers", "7 (\x1b[2J)", "see \xff"}});
    EXPECT_EQ(text, "warning  receivers: 7 (\\x1b[2J)\n         -> see \\xff\n");
}

TEST_F(HostTest, TheReportAndItsStatus) {
    const Result fine{Level::Ok, "zone", "as the exchange", ""};
    const Result doubtful{Level::Warning, "clock", "not \"set\"", "set it"};
    const Result wrong{Level::Error, "log", "no directory", "remove it"};
    EXPECT_EQ(ZceMachine::ExitStatus({fine}), 0);
    EXPECT_EQ(ZceMachine::ExitStatus({doubtful, fine}), 1);
    EXPECT_EQ(ZceMachine::ExitStatus({fine, wrong, doubtful}), 2);
    EXPECT_EQ(ZceMachine::AsText({fine, doubtful, wrong}),
              "ok       zone: as the exchange\n"
              "warning  clock: not \"set\"\n"
              "         -> set it\n"
              "error    log: no directory\n"
              "         -> remove it\n");
    EXPECT_EQ(ZceMachine::AsJson({doubtful}), R"({
  "status": 1,
  "results": [
    {
      "check": "clock",
      "level": "warning",
      "found": "not \"set\"",
      "advice": "set it"
    }
  ]
}
)");
}

// The program itself: what it looks at on this machine is not known, but each check has its line,
// and a configuration's CPU comes from the library's own reading.
TEST_F(HostTest, TheProgramHasALineForEachCheck) {
    Put("c.ini", "[config]\ncpucore = 1500\n");
    const std::string command = "TZ=CST-8 " ZCE_CHECK_PROGRAM " host --lab --dir ";
    const ProgramRun run(command + dir.path() + " --config " + (dir / "c.ini"));
    EXPECT_EQ(run.status, 2);
    std::size_t at = 0;
    for (const char* const check :
         {"ok       board: ", "driver: ", "server: ", "receivers: ", "log: ", "work: ",
          "ok       zone: ", "clock: ", "governor: ",
          "error    cpucore: 1500: there is no such CPU", "huge pages: "}) {
        at = run.text.find(check, at);
        EXPECT_NE(at, std::string::npos) << check << " in\n" << run.text;
    }
    const ProgramRun json(command + dir.path() + " --json");
    EXPECT_TRUE(json.text.starts_with("{\n  \"status\": ")) << json.text;
    EXPECT_EQ(ProgramRun(command + dir.path() + " --config " + (dir / "none.ini") + " 2>&1").status,
              2);
}

}  // namespace
}  // namespace velatest
