// API objects that two threads make, start and destroy at the same time. What matters here beside
// the results is what ThreadSanitizer says.

#include <gtest/gtest.h>

#include <thread>

#include "apiBench.h"

namespace {

using velatest::ApiBench;
using velatest::FakeEnyx;
using velatest::RecordingSpi;

class ApiThreads : public ApiBench {
  public:
    static constexpr int rounds = 12;

    ApiThreads() { FakeEnyx::SetRegister(0x106, 20261120); }

    // Makes an object, starts it and destroys it, again and again.
    static void Live(const char* cfgPath) {
        RecordingSpi spi;
        for (int i = 0; i < rounds; ++i) {
            IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
            EXPECT_EQ(api->VelaStart(spi, cfgPath), 0);
            EXPECT_EQ(api->VelaRecv(), 0);
            IVelaZceMdApi::DestroyVelaZceMdApi(*api);
        }
    }
    static void LiveBoth(const char* onePath, const char* otherPath) {
        std::thread other(&Live, otherPath);
        Live(onePath);
        other.join();
    }
    // Every stream was closed again, and every filter and list given back.
    static void ExpectNothingLeftOpen() {
        auto live = FakeEnyx::Live();
        live.erase("mmio");  // they stay for the process
        EXPECT_TRUE(live.empty());
    }
};

TEST_F(ApiThreads, AMasterAndAnotherChannelComeAndGo) {
    LiveBoth("master.ini", "chan3.ini");
    ExpectNothingLeftOpen();
}

TEST_F(ApiThreads, TwoMastersComeAndGoAndTheLastTakesTheDriverAlong) {
    LiveBoth("master.ini", "master.ini");
    ExpectNothingLeftOpen();
    EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
}

TEST_F(ApiThreads, TwoOtherChannelsComeAndGoAndTheDriverStays) {
    LiveBoth("chan3.ini", "chan4.ini");
    ExpectNothingLeftOpen();
    EXPECT_NE(CDrvEnyxReg::instance, nullptr);
}

// Objects that are only made and dropped, beside a master's whole life.
TEST_F(ApiThreads, ObjectsThatAreNeverStartedComeAndGoBesideAMaster) {
    std::thread other([] {
        for (int i = 0; i < rounds * 100; ++i) {
            IVelaZceMdApi::DestroyVelaZceMdApi(*IVelaZceMdApi::CreateVelaZceMdApi());
        }
    });
    Live("master.ini");
    other.join();
    ExpectNothingLeftOpen();
}

}  // namespace
