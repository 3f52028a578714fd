#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "VelaZceUtils.h"
#include "logCapture.h"
#include "tempDir.h"

namespace {

std::vector<std::string> s_commands;     // started so far
std::vector<std::string> s_unstartable;  // parts of commands that cannot be started
passwd* s_user = nullptr;
bool s_replaceUser = false;

}  // namespace

// The program is linked with --wrap=popen and --wrap=getpwuid.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" std::FILE* __real_popen(const char* command, const char* mode);
extern "C" std::FILE* __wrap_popen(const char* command, const char* mode) {
    EXPECT_STREQ(mode, "r");
    s_commands.emplace_back(command);
    for (const std::string& part : s_unstartable) {
        if (s_commands.back().find(part) != std::string::npos) {
            return nullptr;
        }
    }
    return __real_popen(command, mode);
}
extern "C" passwd* __real_getpwuid(uid_t user);
extern "C" passwd* __wrap_getpwuid(uid_t user) {
    EXPECT_EQ(user, getuid());
    return s_replaceUser ? s_user : __real_getpwuid(user);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using testing::ElementsAre;

const std::string E_LINE = "01:00.0 Ethernet controller: Enyx SA Device\n";
const std::string XI_LINE = "02:00.0 Processing accelerators: Xilinx Corporation Device 5020\n";
const std::string OTHER_LINE = "00:00.0 Host bridge: Intel Corporation\n";
const std::string XI_MODULE = "xdma                   98304  0\n";
const std::string E_MODULE = "hfp                    65536  0\n";

std::string Times(unsigned int count, const std::string& line) {
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
        text += line;
    }
    return text;
}

// Stand-ins for the commands at the head of PATH: each prints what the test wants.
class EnvCheck : public testing::Test {
  protected:
    EnvCheck() {
        const char* path = std::getenv("PATH");
        m_path = path == nullptr ? "/usr/bin:/bin" : path;
        for (const char* name : {"lspci", "lsmod", "ps"}) {
            Says(name, "");
            std::ofstream(m_dir / name) << "#!/bin/sh\nexec cat \"" << (m_dir / name) << ".out\"\n";
            EXPECT_EQ(chmod((m_dir / name).c_str(), 0755), 0);
        }
        setenv("PATH", (m_dir.path() + ":" + m_path).c_str(), 1);
        s_commands.clear();
        g_curEnvBrdType = 6;
    }
    ~EnvCheck() override {
        setenv("PATH", m_path.c_str(), 1);
        s_unstartable.clear();
        s_replaceUser = false;
        g_curEnvBrdType = 6;
    }

    void Says(const std::string& command, const std::string& text) {
        std::ofstream(m_dir / (command + ".out")) << text;
    }
    void Boards(unsigned int e, unsigned int xi) {
        Says("lspci", OTHER_LINE + Times(e, E_LINE) + OTHER_LINE + Times(xi, XI_LINE));
        g_curEnvBrdType = 6;
    }
    // Result of CheckBeforeRun; what it printed is in m_out.
    int Run() {
        const velatest::StdoutCapture out;
        const int result = CheckBeforeRun();
        m_out = out.Text();
        return result;
    }

    velatest::TempDir m_dir;
    std::string m_path;
    std::string m_out;
};

TEST_F(EnvCheck, CommandsAndVersionAreGiven) {
    EXPECT_STREQ(g_szBrdChkCmd[0], "lspci | grep Enyx");
    EXPECT_STREQ(g_szBrdChkCmd[1], "lspci | grep Xilinx");
    EXPECT_STREQ(GetUpDmaLibVersion(), "3.10.0");
}

TEST(EnvCheckAtLoad, DetectionHasNotRun) {
    EXPECT_EQ(g_curEnvBrdType, 6U);
}

TEST_F(EnvCheck, BoardEnvironmentByCounts) {
    const struct {
        unsigned int e;
        unsigned int xi;
        unsigned int environment;
    } cases[] = {{0, 0, 0}, {1, 0, 1}, {0, 1, 2}, {2, 0, 3}, {3, 0, 3}, {0, 2, 4},
                 {0, 3, 4}, {1, 1, 5}, {1, 2, 5}, {2, 1, 5}, {2, 2, 5}, {5, 5, 5}};
    for (const auto& at : cases) {
        Boards(at.e, at.xi);
        EXPECT_EQ(CheckEnvBoard(), at.environment) << at.e << " " << at.xi;
        EXPECT_EQ(g_curEnvBrdType, at.environment) << at.e << " " << at.xi;
    }
}

TEST_F(EnvCheck, SecondCallRunsNoCommand) {
    Boards(1, 0);
    EXPECT_EQ(CheckEnvBoard(), 1U);
    EXPECT_THAT(s_commands, ElementsAre("lspci | grep Enyx", "lspci | grep Xilinx"));
    Says("lspci", XI_LINE);
    EXPECT_EQ(CheckEnvBoard(), 1U);
    EXPECT_EQ(s_commands.size(), 2U);
}

TEST_F(EnvCheck, CommandThatCannotBeStartedCountsNoBoard) {
    Boards(1, 1);
    s_unstartable = {"Enyx"};
    EXPECT_EQ(CheckEnvBoard(), 2U);
    Boards(1, 1);
    s_unstartable = {"Xilinx"};
    EXPECT_EQ(CheckEnvBoard(), 1U);
    Boards(1, 1);
    s_unstartable = {"lspci"};
    EXPECT_EQ(CheckEnvBoard(), 0U);
}

TEST_F(EnvCheck, CommandThatIsNotThereCountsNoBoard) {
    Boards(1, 1);
    setenv("PATH", "/nonexistent", 1);
    testing::internal::CaptureStderr();  // the shell's complaint
    EXPECT_EQ(CheckEnvBoard(), 0U);
    testing::internal::GetCapturedStderr();
}

TEST_F(EnvCheck, LineCountsOnceForEach255Characters) {
    Says("lspci", "Enyx" + std::string(250, 'x') + "\n");  // 255 bytes with its line end
    EXPECT_EQ(CheckEnvBoard(), 1U);
    Says("lspci", "Enyx" + std::string(251, 'x') + "\n");
    g_curEnvBrdType = 6;
    EXPECT_EQ(CheckEnvBoard(), 3U);
}

TEST_F(EnvCheck, XiDriverIsThereIfTheModuleListNamesIt) {
    EXPECT_FALSE(IsXiDriverInstalled());
    Says("lsmod", E_MODULE);
    EXPECT_FALSE(IsXiDriverInstalled());
    Says("lsmod", E_MODULE + XI_MODULE);
    EXPECT_TRUE(IsXiDriverInstalled());
    Says("lsmod", Times(2, XI_MODULE));
    EXPECT_TRUE(IsXiDriverInstalled());
    EXPECT_EQ(s_commands.back(), "lsmod | grep xdma");
    s_unstartable = {"lsmod"};
    EXPECT_FALSE(IsXiDriverInstalled());
}

TEST_F(EnvCheck, EDriverIsThereAsSoonAsThePipeOpens) {
    EXPECT_TRUE(IsEDriverInstalled());
    Says("lsmod", E_MODULE);
    EXPECT_TRUE(IsEDriverInstalled());
    EXPECT_EQ(s_commands.back(), "lsmod | grep hfp");
    s_unstartable = {"lsmod"};
    EXPECT_FALSE(IsEDriverInstalled());
}

TEST_F(EnvCheck, NoCommandIsLeftBehind) {
    Boards(1, 1);
    CheckEnvBoard();
    IsXiDriverInstalled();
    IsEDriverInstalled();
    IsProdProgRunning();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // not even one that has ended
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(EnvCheck, NoBoardMustNotRun) {
    Boards(0, 0);
    EXPECT_EQ(Run(), -1);
    EXPECT_EQ(m_out,
              "Unable to recongnize fpga board! if there indeed exist fpga board, firmware maybe "
              "error.\n");
}

TEST_F(EnvCheck, EBoardsNeedTheEDriver) {
    for (const unsigned int count : {1U, 2U}) {
        s_unstartable.clear();
        Boards(count, 0);
        EXPECT_EQ(Run(), 0);
        EXPECT_EQ(m_out, "");
        s_unstartable = {"hfp"};
        EXPECT_EQ(Run(), -1);
        EXPECT_EQ(m_out,
                  "There exist E board, but the E driver not installed, please install first.\n");
    }
}

TEST_F(EnvCheck, XiBoardsNeedTheXiDriver) {
    for (const unsigned int count : {1U, 2U}) {
        Boards(0, count);
        Says("lsmod", "");
        EXPECT_EQ(Run(), -1);
        EXPECT_EQ(m_out,
                  "There exist Xi board, but the Xi driver not installed, please install first.\n");
        Says("lsmod", XI_MODULE);
        EXPECT_EQ(Run(), 0);
        EXPECT_EQ(m_out, "");
    }
}

TEST_F(EnvCheck, BothKindsOnlyWarnOfMissingDrivers) {
    Boards(1, 1);
    Says("lsmod", XI_MODULE);
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(m_out, " \n");

    Says("lsmod", "");
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(m_out, "Attention! the Xi driver not installed! \n");

    s_unstartable = {"lsmod"};
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(m_out,
              "Attention! the E driver not installed!Attention! the Xi driver not installed! \n");

    Says("lsmod", XI_MODULE);
    s_unstartable = {"hfp"};
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(m_out, "Attention! the E driver not installed! \n");
}

TEST_F(EnvCheck, AnyOtherEnvironmentMayRun) {
    for (const auto& [value, text] : std::vector<std::pair<unsigned int, std::string>>{
             {7, "Unsupport board type.7\n"}, {0xFFFFFFFF, "Unsupport board type.-1\n"}}) {
        g_curEnvBrdType = value;
        EXPECT_EQ(Run(), 0);
        EXPECT_EQ(m_out, text);
    }
    EXPECT_TRUE(s_commands.empty());
}

const std::string SERVER_LINE = "root 100 1 0 08:00 ? 00:00:01 /opt/QyDeliverDmaServer -d\n";

// IsProdProgRunning with 0, 1, 2 and 3 servers in the process list.
std::vector<bool> ByCount(const std::function<void(const std::string&)>& say) {
    std::vector<bool> answers;
    for (const unsigned int count : {0U, 1U, 2U, 3U}) {
        say("UID PID CMD\nroot 1 0 init\n" + Times(count, SERVER_LINE) +
            "root 9 1 0 08:00 ? 00:00:00 grep -w QyDeliverDmaServer\n"
            "root 9 1 0 08:00 ? 00:00:00 QyDeliverDmaServer2 other\n");
        answers.push_back(IsProdProgRunning());
    }
    return answers;
}

TEST_F(EnvCheck, ServerRunsIfExactlyOneLineNamesIt) {
    EXPECT_EQ(ByCount([this](const std::string& text) { Says("ps", text); }),
              (std::vector<bool>{false, true, false, false}));
    EXPECT_EQ(s_commands.back(), "ps -ef | grep -w QyDeliverDmaServer | grep -v grep");
}

TEST_F(EnvCheck, ServerItselfNeedsExactlyTwoLines) {
    char* const before = program_invocation_short_name;
    for (const std::string name : {"QyDeliverDmaServer", "QyDeliverDmaServer_v2"}) {
        std::string own = name;
        program_invocation_short_name = own.data();
        EXPECT_EQ(ByCount([this](const std::string& text) { Says("ps", text); }),
                  (std::vector<bool>{false, false, true, false}))
            << name;
        program_invocation_short_name = before;
    }
}

TEST_F(EnvCheck, NameThatOnlyResemblesTheServersIsNotTheServer) {
    char* const before = program_invocation_short_name;
    for (const std::string name :
         {"QyDeliverDmaServe", "xQyDeliverDmaServer", "qyDeliverDmaServer"}) {
        std::string own = name;
        program_invocation_short_name = own.data();
        EXPECT_EQ(ByCount([this](const std::string& text) { Says("ps", text); }),
                  (std::vector<bool>{false, true, false, false}))
            << name;
        program_invocation_short_name = before;
    }
}

TEST_F(EnvCheck, ProcessLineCountsOnceForEach2047Characters) {
    const std::string server = "QyDeliverDmaServer ";
    Says("ps", server + std::string(2046 - server.size(), 'x') + "\n");
    EXPECT_TRUE(IsProdProgRunning());
    Says("ps", server + std::string(2047 - server.size(), 'x') + "\n");
    EXPECT_FALSE(IsProdProgRunning());
}

TEST_F(EnvCheck, UnknownProcessListMeansNotRunning) {
    Says("ps", SERVER_LINE);
    s_unstartable = {"ps -ef"};
    EXPECT_FALSE(IsProdProgRunning());
}

TEST_F(EnvCheck, UserIsTheRealOneOfThePasswordDatabase) {
    const passwd* entry = getpwuid(getuid());
    const std::string expected = entry == nullptr ? "" : entry->pw_name;
    const char* name = GetCurUserName();
    EXPECT_EQ(name == nullptr ? "" : name, expected);
    EXPECT_EQ(IsCurUserRoot(), expected == "root");
}

TEST_F(EnvCheck, RootIsKnownByItsExactName) {
    const struct {
        const char* name;
        bool root;
    } cases[] = {{"root", true}, {"root2", false}, {"roo", false}, {"Root", false}, {"", false}};
    passwd entry{};
    s_replaceUser = true;
    s_user = &entry;
    for (const auto& at : cases) {
        std::string name = at.name;
        entry.pw_name = name.data();
        EXPECT_EQ(IsCurUserRoot(), at.root) << at.name;
        EXPECT_STREQ(GetCurUserName(), at.name);
    }
    s_user = nullptr;
}

TEST_F(EnvCheck, UserWithoutAnEntryHasNoNameAndIsNotRoot) {
    s_replaceUser = true;
    s_user = nullptr;
    EXPECT_EQ(GetCurUserName(), nullptr);
    EXPECT_FALSE(IsCurUserRoot());
}

}  // namespace
