// The log directory, which all users of a host share: what they have put there, and who may write.
// Each receiver sees a directory of the test's in the place of /tmp/fpgalog, in a mount namespace
// of its own. There is no board: a start opens the log file before it looks for one.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "market.h"

using testing::HasSubstr;
using testing::Not;

namespace velatest {

namespace {

constexpr unsigned int firstUser = 65533;
constexpr unsigned int secondUser = 65532;
constexpr unsigned int groupOfBoth = 65500;

const char* const started = "log is initialized successfully.\n";
const char* const notStarted =
    "Error! log init fail.\n###Init log service failed! ret: -1###\nLog init failed\n";

std::string DateInUtc(std::time_t at) {
    std::tm utc{};
    gmtime_r(&at, &utc);
    char text[16];
    std::strftime(text, sizeof(text), "%Y%m%d", &utc);
    return text;
}

class LogDirectory : public Market {
  protected:
    LogDirectory() {
        m_environment.emplace_back("TZ=UTC");
        std::filesystem::create_directory(m_directory);
    }
    void SetUp() override {
        if (Run({"true"}) != 0) {
            GTEST_SKIP() << "no private mount namespace can be made here: " << m_output;
        }
    }

    // Runs a program with the test's directory in the place of the log's; its exit status.
    int Run(const std::vector<std::string>& program, const std::string& mask = "022") {
        const std::string script = "umask 022 && mkdir -p /tmp/fpgalog && umask " + mask +
                                   " && mount --bind \"$0\" /tmp/fpgalog && exec \"$@\"";
        std::vector<std::string> arguments = {"unshare", "-m"};
        if (geteuid() != 0) {
            arguments.emplace_back("-r");
        }
        arguments.insert(arguments.end(), {"sh", "-c", script, m_directory});
        arguments.insert(arguments.end(), program.begin(), program.end());
        Process process(arguments, Where("receiver"));
        const int status = process.WaitEnd();
        m_output = process.Output();
        return status;
    }
    // Starts a receiver, as the user that the test runs as; it ends for want of a board at most.
    void Start() {
        WriteFile(Path("receiver/config.ini"), "[config]\ndevice = xilinx0:0\n");
        EXPECT_NE(Run({ZCE_RECV_PROGRAM, "config.ini"}), -1) << "it does not end: " << m_output;
    }
    void StartAs(unsigned int user, const std::string& mask, unsigned int group = 0) {
        const std::string id = std::to_string(user);
        WriteFile(Path("receiver/config.ini"), "[config]\ndevice = xilinx0:0\n");
        EXPECT_NE(Run({"setpriv", "--reuid=" + id, "--regid=" + id,
                       group == 0 ? "--clear-groups" : "--groups=" + std::to_string(group),
                       ZCE_RECV_PROGRAM, "config.ini"},
                      mask),
                  -1)
            << m_output;
    }
    // The log files of today and of tomorrow, which today may have become.
    std::vector<std::string> LogFiles() const {
        constexpr std::time_t oneDay = 86400;
        std::vector<std::string> paths;
        for (const std::time_t at : {m_now, m_now + oneDay}) {
            paths.push_back(m_directory + "/fpga_" + DateInUtc(at) + ".log");
        }
        return paths;
    }
    // What stands in the one log file that was written.
    std::string Log() const {
        std::string text;
        for (const std::string& path : LogFiles()) {
            text += std::filesystem::is_regular_file(path) ? ReadFile(path) : "";
        }
        return text;
    }
    struct stat Status() const {
        struct stat status {};
        for (const std::string& path : LogFiles()) {
            if (stat(path.c_str(), &status) == 0) {
                break;
            }
        }
        return status;
    }

    const std::time_t m_now = std::time(nullptr);
    const std::string m_directory = Path("log");
    std::string m_output;
};

TEST_F(LogDirectory, TheReceiverRefusesAPlantedLinkAndTheFileBehindItIsUnchanged) {
    Start();
    EXPECT_THAT(Log(), HasSubstr(started));  // without a link it is this directory

    const std::string victim = Path("victim");
    WriteFile(victim, "theirs\n");
    for (const std::string& path : LogFiles()) {
        std::filesystem::remove(path);
        ASSERT_EQ(symlink(victim.c_str(), path.c_str()), 0);
    }
    Start();
    EXPECT_THAT(m_output, HasSubstr("Error! Create file /tmp/fpgalog//fpga_"));
    EXPECT_THAT(m_output, HasSubstr(".log fail, errmsg:Too many levels of symbolic links. \n" +
                                    std::string(notStarted)));
    EXPECT_EQ(ReadFile(victim), "theirs\n");
}

TEST_F(LogDirectory, AFifoDoesNotHangTheStart) {
    for (const std::string& path : LogFiles()) {
        ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    }
    Start();
    EXPECT_THAT(m_output, HasSubstr(".log fail, errmsg:No such device or address. \n" +
                                    std::string(notStarted)));
}

// With several users, as docs/operations.md tells it.
class SharedLogDirectory : public LogDirectory {
  protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can start receivers of several users";
        }
        LogDirectory::SetUp();
        if (!IsSkipped() && Run({"setpriv", "--reuid=65533", "--regid=65533", "--clear-groups",
                                 "test", "-x", ZCE_RECV_PROGRAM}) != 0) {
            GTEST_SKIP() << "other users cannot reach " ZCE_RECV_PROGRAM;
        }
    }
};

TEST_F(SharedLogDirectory, InAStickyOneTheDaysFileIsTheFirstUsersAlone) {
    ASSERT_EQ(chmod(m_directory.c_str(), 01777), 0);
    StartAs(firstUser, "022");
    const std::string first = Log();
    EXPECT_THAT(first, HasSubstr(started));
    EXPECT_EQ(Status().st_mode & 07777U, 0644U);
    EXPECT_EQ(Status().st_uid, firstUser);

    StartAs(secondUser, "022");
    EXPECT_THAT(m_output,
                HasSubstr(".log fail, errmsg:Permission denied. \n" + std::string(notStarted)));
    EXPECT_EQ(Log(), first);
}

TEST_F(SharedLogDirectory, InOneOfACommonGroupTheyShareTheDaysFile) {
    ASSERT_EQ(chown(m_directory.c_str(), 0, groupOfBoth), 0);
    ASSERT_EQ(chmod(m_directory.c_str(), 02775), 0);
    StartAs(firstUser, "002", groupOfBoth);
    const std::string first = Log();
    EXPECT_THAT(first, HasSubstr(started));
    EXPECT_EQ(Status().st_mode & 07777U, 0664U);
    EXPECT_EQ(Status().st_uid, firstUser);
    EXPECT_EQ(Status().st_gid, groupOfBoth);

    StartAs(secondUser, "002", groupOfBoth);
    EXPECT_THAT(m_output, Not(HasSubstr(notStarted)));
    EXPECT_EQ(Log().substr(0, first.size()), first);
    EXPECT_THAT(Log().substr(first.size()), HasSubstr(started));

    const std::string both = Log();
    StartAs(firstUser, "002");  // no member of the group
    EXPECT_THAT(m_output,
                HasSubstr("Error! file or dir: [/tmp/fpgalog/] already exist and havn't write "
                          "authority. use root try again ?\n"
                          "###Init log service failed! ret: -1###\nLog init failed\n"));
    EXPECT_EQ(Log(), both);
}

// What the library itself makes is for the first user alone.
TEST_F(SharedLogDirectory, TheOneThatTheFirstUserMadeIsClosedToOthers) {
    ASSERT_EQ(chown(m_directory.c_str(), firstUser, firstUser), 0);
    ASSERT_EQ(chmod(m_directory.c_str(), 0755), 0);
    StartAs(firstUser, "022");
    EXPECT_THAT(Log(), HasSubstr(started));
    StartAs(secondUser, "022");
    EXPECT_THAT(m_output, HasSubstr("Error! file or dir: [/tmp/fpgalog/] already exist and havn't "
                                    "write authority. use root try again ?\n"));
}

}  // namespace

}  // namespace velatest
