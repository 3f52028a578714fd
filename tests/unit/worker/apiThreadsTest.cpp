// API objects that two threads make, start and destroy at the same time. What matters here beside
// the results is what ThreadSanitizer says.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "apiBench.h"

namespace {

using velatest::ApiBench;
using velatest::FakeEnyx;
using velatest::RecordingSpi;

class ApiThreads : public ApiBench {
  public:
    // A master's start writes all of the board's tables, another channel's none.
    static constexpr int masterRounds = 3;
    static constexpr int otherRounds = 60;

    ApiThreads() { FakeEnyx::SetRegister(0x106, 20261120); }

    // Makes an object, starts it and destroys it, again and again.
    static void Live(const char* cfgPath, int rounds) {
        RecordingSpi spi;
        for (int i = 0; i < rounds; ++i) {
            IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
            EXPECT_EQ(api->VelaStart(spi, cfgPath), 0);
            EXPECT_EQ(api->VelaRecv(), 0);
            IVelaZceMdApi::DestroyVelaZceMdApi(*api);
        }
    }
    // Every stream was closed again, and every filter and list given back.
    static void ExpectNothingLeftOpen() {
        auto live = FakeEnyx::Live();
        live.erase("mmio");  // they stay for the process
        EXPECT_TRUE(live.empty());
    }
};

TEST_F(ApiThreads, AMasterAndAnotherChannelComeAndGo) {
    std::atomic<bool> over{false};
    std::thread other([&over] {
        while (!over) {
            Live("chan3.ini", 1);
        }
    });
    Live("master.ini", masterRounds);
    over = true;
    other.join();
    ExpectNothingLeftOpen();
}

// Both receive from the board's channel 0. On a board that gives a stream to one alone, the start
// of whoever comes second ends the process.
TEST_F(ApiThreads, TwoMastersComeAndGoAndTheLastTakesTheDriverAlong) {
    FakeEnyx::ShareStreams();
    std::thread other(&Live, "master.ini", masterRounds);
    Live("master.ini", masterRounds);
    other.join();
    ExpectNothingLeftOpen();
    EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
}

TEST_F(ApiThreads, TwoOtherChannelsComeAndGoAndTheDriverStays) {
    std::thread other(&Live, "chan3.ini", otherRounds);
    Live("chan4.ini", otherRounds);
    other.join();
    ExpectNothingLeftOpen();
    EXPECT_NE(CDrvEnyxReg::instance, nullptr);
}

// Objects that are only made and dropped, beside a master's whole life.
TEST_F(ApiThreads, ObjectsThatAreNeverStartedComeAndGoBesideAMaster) {
    std::atomic<bool> over{false};
    std::thread other([&over] {
        while (!over) {
            IVelaZceMdApi::DestroyVelaZceMdApi(*IVelaZceMdApi::CreateVelaZceMdApi());
        }
    });
    Live("master.ini", masterRounds);
    over = true;
    other.join();
    ExpectNothingLeftOpen();
}

// Two channels receive at the same time. The first message of each wants the signal handlers.
TEST_F(ApiThreads, TwoChannelsReceiveTheirOwnMessagesAtTheSameTime) {
    constexpr int messages = 200;
    for (const char* stream : {"CUSTOM_CHAN3_DATA", "CUSTOM_CHAN4_DATA"}) {
        for (int message = 0; message < messages; ++message) {
            FakeEnyx::QueuePacket(stream, Message(17));
        }
    }
    std::atomic<int> ready{0};
    const auto receive = [&ready](const char* cfgPath) {
        RecordingSpi taken;
        IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
        EXPECT_EQ(api->VelaStart(taken, cfgPath), 0);
        ++ready;
        while (ready != 2) {
            std::this_thread::yield();
        }
        for (int message = 0; message < messages; ++message) {
            EXPECT_EQ(api->VelaRecv(), 1);
        }
        EXPECT_EQ(api->VelaRecv(), 0);
        EXPECT_EQ(taken.calls.size(), static_cast<std::size_t>(messages));
        IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    };
    std::thread other(receive, "chan3.ini");
    receive("chan4.ini");
    other.join();
    ExpectNothingLeftOpen();
}

}  // namespace
