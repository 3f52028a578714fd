// ChkBinFileAuthority: whether the working directory takes the cache file.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "workerBench.h"
#include "wrappedCalls.h"

namespace {

using velatest::FakeClock;
using velatest::Lines_t;
using velatest::Peer;
using velatest::WorkerBench;
using velatest::WrappedCalls;

class ChkBinFileAuthority : public WorkerBench {
  protected:
    ChkBinFileAuthority() {
        MakeWorker(masterIni);
        FakeClock::SetTime(83000);
        WrappedCalls::accessMode = -1;
    }
    ~ChkBinFileAuthority() override { Allow(); }

    static void Allow() {
        WrappedCalls::accessErrno = 0;
        WrappedCalls::statErrno = 0;
        WrappedCalls::noOwner = false;
        WrappedCalls::ownerName = nullptr;
    }
};

TEST_F(ChkBinFileAuthority, AReadableAndWritableDirectoryWillDo) {
    EXPECT_EQ(chan->ChkBinFileAuthority(), 0);
    EXPECT_EQ(WrappedCalls::accessMode, R_OK | W_OK);
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(ChkBinFileAuthority, InTradingTimeNothingIsAsked) {
    WrappedCalls::accessErrno = EACCES;
    FakeClock::SetTime(90001);
    EXPECT_EQ(chan->ChkBinFileAuthority(), 0);
    EXPECT_EQ(WrappedCalls::accessMode, -1);
    EXPECT_EQ(log.Lines(), Lines_t{});
    FakeClock::SetTime(90000);
    EXPECT_EQ(chan->ChkBinFileAuthority(), -1);
}

TEST_F(ChkBinFileAuthority, TheOwnerIsNamed) {
    WrappedCalls::accessErrno = EACCES;
    WrappedCalls::ownerName = "trader";
    EXPECT_EQ(chan->ChkBinFileAuthority(), -1);
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO Error! Current user does not have read/write access to the current "
                       "directory.",
                       "INFO Please run this program as user trader or root!"}));
}

TEST_F(ChkBinFileAuthority, ADirectoryThatCannotBeExaminedIsReported) {
    WrappedCalls::accessErrno = EACCES;
    WrappedCalls::statErrno = ENOENT;
    EXPECT_EQ(chan->ChkBinFileAuthority(), -1);
    EXPECT_EQ(log.Lines(),
              Lines_t{"INFO Failed to get directory permissions, msg:No such file or directory"});
}

TEST_F(ChkBinFileAuthority, AnOwnerThatCannotBeLookedUpIsReported) {
    WrappedCalls::accessErrno = EACCES;
    WrappedCalls::noOwner = true;
    WrappedCalls::ownerErrno = EIO;
    EXPECT_EQ(chan->ChkBinFileAuthority(), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"INFO Failed to get user info, msg:Input/output error"});
}

// The failure of the access before it is not the reason.
TEST_F(ChkBinFileAuthority, AnOwnerWithoutAnEntryIsReportedWithoutAnError) {
    WrappedCalls::accessErrno = EACCES;
    WrappedCalls::noOwner = true;
    WrappedCalls::ownerErrno = 0;
    EXPECT_EQ(chan->ChkBinFileAuthority(), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"INFO Failed to get user info, msg:Success"});
}

TEST_F(ChkBinFileAuthority, InitStopsBeforeTheBoardIsTouched) {
    WrappedCalls::accessErrno = EACCES;
    WrappedCalls::ownerName = "trader";
    EXPECT_EQ(chan->Init(&parms), -1);
    EXPECT_TRUE(drv->Accesses().empty());
    EXPECT_EQ(Peer::Channel(*chan), 255U);
    EXPECT_EQ(Peer::FpgaServ(*chan), nullptr);
}

// With the real permissions, of a user who is not root.
TEST_F(ChkBinFileAuthority, ADirectoryOfRealPermissionsIsRefused) {
    ASSERT_EQ(chmod(".", 0500), 0);
    EXPECT_EXIT(
        {
            // access() asks for the real user.
            if (geteuid() == 0 && setresuid(65534, 65534, 0) != 0) {
                _exit(9);
            }
            _exit(chan->ChkBinFileAuthority() == -1 ? 3 : 4);
        },
        testing::ExitedWithCode(3), "");
    chmod(".", 0700);
}

}  // namespace
