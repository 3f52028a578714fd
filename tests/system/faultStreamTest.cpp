// The faults of the board that come up a stream: what an application gets, and what it can count.

#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGKILL, SIGSTOP

#include <chrono>
#include <string>
#include <thread>

#include "faultDay.h"

using testing::HasSubstr;

namespace velatest {

namespace {

constexpr unsigned int garbageMessages = 1000;

class StreamFaults : public FaultDay {
  protected:
    // A master in a session and a receiver on channel 3, both with messages.
    void StartBoth() {
        BeginSession();
        Recover();
        m_second = Start("second", 3);
        ASSERT_TRUE(m_master->WaitFor("zce-recv type=")) << m_master->Output();
        ASSERT_TRUE(m_second->WaitFor("zce-recv type=")) << m_second->Output();
    }
    const ZceBoard::ChannelStats& Stats(unsigned int channel) const {
        return m_memory.Shm().stats.channels[channel];
    }
    long Sent(unsigned int channel) const {
        const auto& sent = Stats(channel).sent;
        return static_cast<long>(sent[1] + sent[2] + sent[3] + sent[4]);
    }
    // Nothing more is sent, and what was sent has been received.
    void StopTraffic() {
        m_access->Write(0x11, 0);
        ASSERT_TRUE(m_clock.AwaitBoard(50));
    }
    template <class Condition>
    void Await(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::unique_ptr<Process> m_second;
};

// The receiver is held up for a moment, and the ring has no room for as long as that.
TEST_F(StreamFaults, AReaderIsTooSlow) {
    StartBoth();
    Set("slow-reader channel=3 value=4096");
    m_second->Signal(SIGSTOP);
    Await([this] { return Stats(3).dropped > 100; });
    m_second->Signal(SIGCONT);
    ClearFaults();
    ASSERT_TRUE(m_clock.AwaitBoard(50));
    StopTraffic();
    const std::string output = End(*m_second);
    ExpectRow(output);
    const std::string line = m_second->LastLine("zce-recv channel=3 ");
    const long dropped = static_cast<long>(Stats(3).dropped);
    EXPECT_EQ(Field(line, "gaps"), dropped) << line;
    EXPECT_EQ(Field(line, "total"), Sent(3)) << line;
    EXPECT_THAT(output, HasSubstr("DMA count info: backpress:" + std::to_string(dropped) + ","));
    EXPECT_EQ(Stats(0).dropped, 0U) << "the other channel's reader is not slow";
}

TEST_F(StreamFaults, GarbageForAReceiver) {
    StartBoth();
    Set("garbage channel=3 limit=" + std::to_string(garbageMessages));
    Await([this] { return !m_faults->Any(); });
    ASSERT_TRUE(m_clock.AwaitBoard(50));
    StopTraffic();
    const std::string output = End(*m_second);
    ExpectRow(output);
    EXPECT_EQ(Stats(3).other, garbageMessages);
    const std::string line = m_second->LastLine("zce-recv channel=3 ");
    const long bad = Field(line, "bad");
    EXPECT_GT(bad, 100) << line;
    // Behind one that is too short may stand the body of an old message, whose number is a gap.
    const long old = Field(line, "total") - Sent(3);
    EXPECT_GE(old, 0) << line;
    EXPECT_EQ(Field(line, "gaps") != 0, old != 0) << line;
    // Each of them is one line of the log, or a body for the application.
    EXPECT_EQ(bad + old + CountIn(output, "Unsupported dma type 0x") +
                  CountIn(output, "Dma message of ") + CountIn(output, "Instrument map packet on "),
              garbageMessages);
}

// Whatever it learns besides, the list of the exchange is learnt and subscribed.
TEST_F(StreamFaults, GarbageForALearningMaster) {
    m_clock.Set(today, 85000);
    Recover();
    Set("garbage channel=0 limit=" + std::to_string(garbageMessages));
    Await([this] { return !m_faults->Any(); });
    LearnThrough(*m_master, "master", today, false);
    ASSERT_FALSE(HasFatalFailure());
    ExpectRow(m_master->Output());
    EXPECT_EQ(Delivered(*m_master, "master"), Wanted(0, m_listed));
    EXPECT_GT(Field(m_master->LastLine("zce-recv channel=0 "), "bad"), 100);
}

// Those that use a board go on with the last state of it; they do not join another one.
TEST_F(StreamFaults, TheBoardIsKilled) {
    StartBoth();
    m_faults->Set({ZceBoard::Fault::Crash});
    EXPECT_EQ(m_board->WaitEnd(), 128 + SIGKILL);
    const long sent = Sent(3);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(m_master->Running());
    EXPECT_TRUE(m_second->Running());
    StartAnotherBoard();
    auto third = Start("third", 3);
    EXPECT_TRUE(third->WaitFor("Init dma channel :CUSTOM_CHAN3_DATA success."))
        << "the stream of the new board is free: " << third->Output();
    const std::string output = End(*m_second);
    ExpectRow(output);
    const std::string line = m_second->LastLine("zce-recv channel=3 ");
    EXPECT_GE(Field(line, "total"), sent) << line;
    EXPECT_EQ(Field(line, "gaps"), 0) << line;
    EXPECT_THAT(End(*m_master), HasSubstr("dma channel CUSTOM_CHAN0_DATA has released."));
    End(*third);
}

TEST_F(StreamFaults, AStartAfterTheBoardIsKilled) {
    m_faults->Set({ZceBoard::Fault::Crash});
    EXPECT_EQ(m_board->WaitEnd(), 128 + SIGKILL);
    auto receiver = Start("early", 3);
    EXPECT_EQ(receiver->WaitEnd(), 0);
    ExpectRow(receiver->Output());
    StartAnotherBoard();
    auto late = Start("late", 3);
    EXPECT_TRUE(late->WaitFor("Init dma channel :CUSTOM_CHAN3_DATA success.")) << late->Output();
    End(*late);
}

}  // namespace

}  // namespace velatest
