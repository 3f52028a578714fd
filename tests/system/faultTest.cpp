// The faults of the board as the library and an application meet them: a start in a session, a
// start in the auction, streams.

#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGINT, SIGSTOP

#include <algorithm>
#include <chrono>
#include <regex>
#include <string>
#include <vector>

#include "faultDay.h"

using testing::HasSubstr;
using testing::Not;

namespace velatest {

namespace {

constexpr const char* boardReset = "Reset and Clear fpga table over.\n";
constexpr const char* fromTables = "New round, fetch from fpga, inst count:54.\n";
constexpr double fastClock = 400;  // a round of the broadcast in trading time takes 150 ms

class Faults : public FaultDay {
  protected:
    // A recovery under the fault, which is gone when this returns; the log is what the row says.
    void RecoverWith(const std::string& fault) {
        BeginSession();
        Set(fault);
        m_output = Recover();
        ExpectRow(m_output);
        ClearFaults();
    }
    // A start that fails; nothing of the board is held afterwards.
    void FailToStart(unsigned int channel) {
        auto receiver = Start("failing", channel);
        EXPECT_EQ(receiver->WaitEnd(), 0);
        m_output = receiver->Output();
        EXPECT_THAT(m_output, Not(HasSubstr("zce-recv channel=")));
        ExpectRow(m_output);
        ClearFaults();
        auto next = Start("next", channel);
        EXPECT_TRUE(next->WaitFor("_DATA success.")) << next->Output();
        End(*next);
    }
    // A start in the auction, and what it prints to the subscription's end.
    void LearnWith(const std::string& fault) {
        m_clock.Set(today, 85000);
        Set(fault);
        m_output = Recover();
        LearnThrough(*m_master, "master", today, false);
        m_output = m_master->Output();
        ExpectRow(m_output);
        ClearFaults();
    }
    void ExpectAllDelivered() { ExpectDelivered(*m_master, "master", m_listed); }
    // The master has all; it was not reset.
    void ExpectKept() {
        EXPECT_THAT(m_output, Not(HasSubstr(boardReset)));
        EXPECT_THAT(m_output, HasSubstr(fromTables));
        ExpectAllDelivered();
    }
    // It was reset, and waited for the list.
    void ExpectResetAndHeardAgain() {
        EXPECT_EQ(CountIn(m_output, boardReset), 1U);
        EXPECT_EQ(CountIn(m_output, "Left "), 24U);
        EXPECT_THAT(m_output, HasSubstr(fromTables));
        ExpectAllDelivered();
    }
    std::vector<Listed> Without(const std::vector<Listed>& some) const {
        std::vector<Listed> rest;
        std::copy_if(m_listed.begin(), m_listed.end(), std::back_inserter(rest),
                     [&some](const Listed& one) {
                         return std::none_of(some.begin(), some.end(), [&one](const Listed& it) {
                             return it.table == one.table && it.index == one.index;
                         });
                     });
        return rest;
    }

    std::string m_output;
};

// ---- Link, clock and counters -------------------------------------------------------------------

TEST_F(Faults, LinkDown) {
    RecoverWith("link-down");
    ExpectKept();
}

TEST_F(Faults, OneFibreDown) {
    RecoverWith("link-down value=7");
    EXPECT_THAT(m_output, Not(HasSubstr("The fiber 0 is not connected")));
    ExpectKept();
}

TEST_F(Faults, CountersStandStill) {
    RecoverWith("counters-stuck");
    ExpectResetAndHeardAgain();
}

TEST_F(Faults, OneClockStandsStill) {
    LearnWith("clock-stuck register=0x104");
    ExpectAllDelivered();
}

TEST_F(Faults, BothClocksStandStill) {
    m_clock.Set(today, 85000);
    Set("clock-stuck");
    Recover();
    m_clock.Run(40);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (InCache(Path("master/bin")).size() < m_listed.size()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        ASSERT_TRUE(m_clock.AwaitBoard(2));
    }
    m_clock.Set(today, 85511);
    m_clock.Run(40);
    ASSERT_TRUE(m_clock.AwaitBoard(300));
    EXPECT_THAT(m_master->Output(), Not(HasSubstr("has expired")));
    m_clock.Set(today, 90001);
    m_clock.Run(fastClock);
    ASSERT_TRUE(m_master->WaitFor("Fpga stop transmit inst map pkt.")) << m_master->Output();
    m_clock.Run(0);
    ExpectRow(m_master->Output());
    EXPECT_THAT(m_master->Output(), Not(HasSubstr("All channel subs over.")));
    ExpectNothing(*m_master);
}

// ---- Registers ----------------------------------------------------------------------------------

TEST_F(Faults, EachNthReadFails) {
    RecoverWith("read-fails every=500");
    EXPECT_GT(CountIn(m_output, "read int32 failed"), 500U);
    ExpectKept();
}

TEST_F(Faults, TheClockCannotBeRead) {
    RecoverWith("read-fails register=0x104");
    ExpectKept();
}

TEST_F(Faults, TheClockCannotBeReadInTheAuction) {
    LearnWith("read-fails register=0x104");
    ExpectAllDelivered();
}

TEST_F(Faults, TheDateCannotBeRead) {
    RecoverWith("read-fails register=0x106");
    EXPECT_THAT(m_output, HasSubstr("First time read fpga date:0, system date:20261118.\n"));
    ExpectResetAndHeardAgain();
}

TEST_F(Faults, EachNthWriteFails) {
    RecoverWith("write-fails every=1000");
    EXPECT_GT(CountIn(m_output, "Write int32 failed"), 100U);
    ExpectKept();
}

// The board was reset, so its switch word is 0 and stays so.
TEST_F(Faults, TheSwitchCannotBeWritten) {
    m_clock.Set(today, 94000);
    Set("write-fails register=0x11");
    ExpectRow(Recover());
    ExpectMasks(m_listed);
    ASSERT_TRUE(m_clock.AwaitBoard(100));
    EXPECT_EQ(m_access->Read(0x11), 0U);
    EXPECT_THAT(End(*m_master), HasSubstr("zce-recv channel=0 total=0 "));
}

// ---- Tables -------------------------------------------------------------------------------------

// Each mask is cleared six times, so that this one loss in five leaves none behind; it is set once.
TEST_F(Faults, EachNthTableWriteIsLost) {
    RecoverWith("table-write-lost every=5");
    static const std::regex lost("subscribed fail! Type ([01]), index:([0-9]+), ");
    std::vector<Listed> missing;
    for (std::sregex_iterator at(m_output.begin(), m_output.end(), lost), end; at != end; ++at) {
        missing.push_back({static_cast<unsigned int>(std::stoul((*at)[1])),
                           static_cast<unsigned int>(std::stoul((*at)[2])), ""});
    }
    EXPECT_EQ(missing.size(), 8U);
    const std::vector<Listed> rest = Without(missing);
    EXPECT_EQ(rest.size(), m_listed.size() - missing.size());
    ExpectDelivered(*m_master, "master", rest);
}

// What is unsubscribed is not read back: this mask goes on as another master left it.
TEST_F(Faults, AnOldMaskStays) {
    const Listed& kept = Find("AP303");
    RecoverWith("table-write-lost entry=" + std::to_string(kept.index));
    EXPECT_EQ(m_access->TableWord(0, kept.index, 0), 0xFFFFU);
    EXPECT_TRUE(Delivered(*m_master, "master").contains("AP303")) << "though no rule asks for it";
}

TEST_F(Faults, ANameChangesOnceWhileItIsRead) {
    const Listed& changing = Find("CF301P5100");
    RecoverWith("name-changes limit=1 entry=" + std::to_string(changing.index));
    ExpectKept();
}

TEST_F(Faults, ANameChangesForEver) {
    const Listed& changing = Find("TA301");
    RecoverWith("name-changes entry=" + std::to_string(changing.index));
    EXPECT_EQ(m_faults->Words(ZceBoard::Fault::NameChanges).strikes.load(), 8U);
    ExpectDelivered(*m_master, "master", Without({changing}));
}

// ---- Core and streams ---------------------------------------------------------------------------

TEST_F(Faults, NoRegisterCore) {
    Set("core-missing");
    FailToStart(0);
}

TEST_F(Faults, TwoRegisterCores) {
    Set("core-twice");
    FailToStart(0);
}

TEST_F(Faults, TheStreamIsRefused) {
    BeginSession();
    Set("stream-refused channel=0");
    FailToStart(0);
}

// Streams are opened in pairs, the one to the board second.
TEST_F(Faults, TheStreamToTheBoardIsRefused) {
    Set("stream-refused channel=3 every=2");
    FailToStart(3);
}

TEST_F(Faults, FifoErrorsAreCounted) {
    BeginSession();
    Recover();
    Set("fifo-errors channel=0 value=7");
    ASSERT_TRUE(m_master->WaitFor("zce-recv type=")) << m_master->Output();
    ExpectRow(End(*m_master));
}

}  // namespace

}  // namespace velatest
