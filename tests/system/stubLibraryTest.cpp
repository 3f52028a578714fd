// The product on a library of the vendor's soname that has the calls it is known to need and no
// other: it loads, starts and receives. The processes are a user's, in real time.

#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGINT

#include <memory>
#include <string>
#include <vector>

#include "process.h"
#include "tempDir.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace velatest {

namespace {

class StubLibrary : public testing::Test {
  protected:
    // The smallest application, on this channel at this local time of day.
    Process& Start(const std::string& channel, unsigned int hhmmss,
                   const std::string& variable = "STUB=1") {
        WriteFile(m_directory.path() + "/config.ini",
                  "[config]\ndevice = xilinx0:" + channel +
                      "\n[channel0]\ninsts = SR\noptions = norecv\n"
                      "[channel3]\ninsts = SR, CF\noptions = norecv\n");
        m_application = std::make_unique<Process>(
            std::vector<std::string>{MINIMAL_PROGRAM, "config.ini"},
            Process::Options{m_directory.path(),
                             {std::string("LD_LIBRARY_PATH=") + STUB_LIBRARY_DIRECTORY,
                              "TZ=" + VirtualZone(hhmmss), variable},
                             m_directory.path() + "/output"});
        return *m_application;
    }
    // It has received one message of each type, and ends as it should.
    static void ExpectReceived(Process& application, const std::string& stubSays) {
        ASSERT_TRUE(application.WaitFor(stubSays)) << application.Output();
        application.Signal(SIGINT);
        EXPECT_EQ(application.WaitEnd(), 0) << application.Output();
        EXPECT_THAT(application.Output(), EndsWith("\n4 messages\n"));
        EXPECT_THAT(application.Output(), Not(HasSubstr("[ERROR")));
        // What the reset "returned" is no result.
        EXPECT_THAT(application.Output(), Not(HasSubstr("Could not")));
        EXPECT_THAT(application.Output(), HasSubstr(" has released."));
    }

  private:
    TempDir m_directory;
    std::unique_ptr<Process> m_application;
};

TEST_F(StubLibrary, AnotherChannelStartsAndReceives) {
    ExpectReceived(Start("3", 100000),
                   "stub: all sent on channel 3, maps 0, masks 0 0, decoder 0\n");
}

TEST_F(StubLibrary, AMasterBeforeTheSessionLearnsSubscribesAndReceives) {
    Process& master = Start("0", 83000);
    ExpectReceived(master, "stub: all sent on channel 0, maps 3, masks 9 8, decoder 3\n");
    EXPECT_THAT(master.Output(), HasSubstr("All channel subs over.\n"));
}

TEST_F(StubLibrary, AMasterInTheSessionRecoversSubscribesAndReceives) {
    Process& master = Start("0", 100000);
    ExpectReceived(master, "stub: all sent on channel 0, maps 0, masks 9 8, decoder 3\n");
    EXPECT_THAT(master.Output(), HasSubstr("Fetch all inst from fpga over! insts count:2.\n"));
}

// The way on which a register space is destroyed, if the library can do that.
TEST_F(StubLibrary, AFailedDiscoveryDoesWithoutTheCallThatIsNotThere) {
    Process& master = Start("0", 83000, "STUB_NO_TREE=1");
    EXPECT_EQ(master.WaitEnd(), 0) << master.Output();
    EXPECT_THAT(master.Output(), HasSubstr("Could not find tree, errmsg:Input/output error.\n"));
    EXPECT_THAT(master.Output(), HasSubstr("Get core error. busId:0, coreId:474\n"));
    EXPECT_THAT(master.Output(), EndsWith("Vela inner init fail.\n"));
}

// It cannot be told whether a real board runs.
TEST_F(StubLibrary, AReceiverDoesNotEndWithABoardThatCannotBeAsked) {
    TempDir directory;
    Process receiver({ZCE_RECV_PROGRAM, "config.ini", "--end-with-board"},
                     {directory.path(),
                      {std::string("LD_LIBRARY_PATH=") + STUB_LIBRARY_DIRECTORY},
                      directory.path() + "/output"});
    EXPECT_EQ(receiver.WaitEnd(), 2);
    EXPECT_EQ(receiver.Output(),
              "zce-recv: --end-with-board: needs the software board's libenyx-hw-c.so.5\n");
}

}  // namespace

}  // namespace velatest
