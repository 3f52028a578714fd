// Rules of a start that hold for the whole library.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string>

#include "apiBench.h"
#include "wrappedCalls.h"

namespace {

using velatest::ApiBench;
using velatest::FakeClock;
using velatest::FakeEnyx;
using velatest::FileText;
using velatest::OpenApi;
using velatest::PutFile;
using velatest::RecordingSpi;
using velatest::WrappedCalls;

class ApiRules : public ApiBench {
  protected:
    static std::ptrdiff_t Threads() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    }
};

TEST_F(ApiRules, TheLibraryStartsNoThread) {
    const std::ptrdiff_t before = Threads();
    class LookingSpi : public RecordingSpi {
      public:
        void OnDmaType17Msg(const unsigned char* body) override {
            RecordingSpi::OnDmaType17Msg(body);
            caller = gettid();
        }
        pid_t caller = 0;
    } looking;
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(looking, "master.ini"), 0);
    EXPECT_EQ(Threads(), before);
    FakeEnyx::QueuePacket("CUSTOM_CHAN0_DATA", Message(17));
    EXPECT_EQ(api.VelaRecv(), 1);
    EXPECT_EQ(Threads(), before);
    EXPECT_EQ(looking.caller, gettid());
}

TEST_F(ApiRules, TheCpuIsBoundBeforeTheWorkingDirectoryIsLookedAt) {
    WrappedCalls::accessErrno = EACCES;
    WrappedCalls::ownerName = "trader";
    velatest::FakeDrv drv;
    Vela2_U50::CZceConfigFile cfg("master.ini", &drv, nullptr);
    ASSERT_EQ(cfg.Init(), 0);
    CZceDmaChanImpl chan(&drv, nullptr, &cfg);
    Vela2_U50::ZceDmaInitParms_t parms{0, 474, "CUSTOM_CHAN0_DATA"};
    EXPECT_EQ(chan.Init(&parms), -1);
    WrappedCalls::accessErrno = 0;
    WrappedCalls::ownerName = nullptr;
    EXPECT_TRUE(HasInOrder({"INFO [channel:0] Doesn't need to bind cpu.",
                            "INFO Please run this program as user trader or root!"}));
}

// The road of the instrument list, from the vendor's poll to the board's table and the cache file.
TEST_F(ApiRules, WhatIsLearntIsSubscribedAndMarketDataFollows) {
    PutFile("master.ini", "[config]\ndevice=xilinx0:0\n[channel0]\ninsts=SR209\noptions=no\n");
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(spi, "master.ini"), 0);
    const std::vector<std::uint8_t> packet = {2, 0,  0, 0, 0, 0, 0, 0, 0, 0,   0,   0,   0,   14,
                                              0, 14, 0, 0, 0, 0, 1, 0, 7, 'S', 'R', '2', '0', '9'};
    const auto receiveAt = [&](unsigned int time) {
        FakeClock::SetTime(time);
        FakeEnyx::SetRegister(0x104, time);
        FakeEnyx::QueuePacket("CUSTOM_CHAN0_DATA", packet);
        EXPECT_EQ(api.VelaRecv(), 0);
    };
    receiveAt(85000);
    receiveAt(85510);
    EXPECT_EQ(FileText("bin"),
              "7,SR209\ncontract's_corresponding_time=20261120085510\nbin_file_over_tag");
    EXPECT_EQ(FakeEnyx::Register(0x11), 0U);
    receiveAt(85511);
    EXPECT_TRUE(log.Has("INFO All channel subs over."));
    EXPECT_EQ(FakeEnyx::Register(0x11), 3U);
    EXPECT_EQ(FakeEnyx::Register(0x12), 0U);
    FakeEnyx::QueuePacket("CUSTOM_CHAN0_DATA", Message(17));
    EXPECT_EQ(api.VelaRecv(), 1);
    EXPECT_EQ(spi.calls.size(), 1U);
}

}  // namespace
