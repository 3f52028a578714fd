#include <gmock/gmock.h>

#include "market.h"

using testing::HasSubstr;
using testing::Not;

namespace velatest {

namespace {

constexpr const char* l5Addresses =
    "L5_DSTMAC = 01:00:5e:01:01:05\nL5_DSTIP = 239.1.1.5\nL5_DSTPORT = 30005\n"
    "L5_SRCMAC = 00:1b:21:aa:bb:05\nL5_SRCIP = 192.168.5.10\nL5_SRCPORT = 31005\n";
constexpr const char* l1Addresses =
    "L1_DSTMAC = 01:00:5e:01:01:01\nL1_DSTIP = 239.1.1.1\nL1_DSTPORT = 30001\n"
    "L1_SRCMAC = 00:1b:21:aa:bb:01\nL1_SRCIP = 192.168.1.10\nL1_SRCPORT = 31001\n";

// A market whose board receives the feeds under these addresses, and a master that programs what a
// test says.
class Feeds : public Market {
  protected:
    Feeds() { LetReceiversRest(); }
    // A whole run, from the end of the call auction into market data until the board has said
    // `status`; the master's last line.
    std::string Run(const std::string& addresses, const std::string& status) {
        StartClock(shortlyBeforeExpiry);
        WriteFile(Path("feeds.ini"), std::string("[config]\n") + l5Addresses + l1Addresses);
        StartSmallBoard({"--feeds", Path("feeds.ini")});
        m_rules = addresses + "[channel0]\ninsts = all\noptions = recv\nspd = recv\nips = recv\n";
        EXPECT_TRUE(m_board->WaitFor(" L5=closed L1=closed\n")) << m_board->Output();
        m_master = Receive(0);
        EXPECT_TRUE(m_master->WaitFor("All channel subs over.")) << m_master->Output();
        EXPECT_TRUE(m_board->WaitFor("switch=0x3")) << m_board->Output();
        EXPECT_TRUE(m_board->WaitFor(status)) << m_board->Output();
        usleep(500'000);  // a thousand ticks
        StopBoard();
        std::string line = Finish(*m_master, 0);
        for (const char* type : {"type17", "type18", "type19", "type20"}) {
            EXPECT_EQ(Field(line, type), Field(BoardLine(0), type)) << type;
        }
        EXPECT_EQ(Field(line, "gaps"), 0) << line;
        return line;
    }

    std::unique_ptr<Process> m_master;
};

TEST_F(Feeds, WithTheRightAddressesAllFourTypesArrive) {
    const std::string line = Run(std::string(l5Addresses) + l1Addresses, " L5=ok L1=ok\n");
    for (const char* type : {"type17", "type18", "type19", "type20"}) {
        EXPECT_GT(Field(line, type), 0) << type << ": " << line;
    }
    EXPECT_THAT(m_master->Output(), HasSubstr("0x300 write 1, L5 net version switch open!"));
    EXPECT_THAT(m_master->Output(), HasSubstr("0x310 write 1, L1 net version switch open!"));
    EXPECT_THAT(m_board->Output(), Not(HasSubstr("wrong:")));
}

TEST_F(Feeds, AWrongAddressSilencesItsFeedAloneAndTheBoardNamesIt) {
    std::string wrong = l1Addresses;
    wrong.replace(wrong.find("239.1.1.1"), 9, "239.1.1.7");
    const std::string line =
        Run(l5Addresses + wrong, " L5=ok L1=wrong:DSTIP 239.1.1.7, expected 239.1.1.1\n");
    EXPECT_EQ(Field(line, "type17"), 0) << line;
    EXPECT_EQ(Field(line, "type18"), 0) << line;
    EXPECT_GT(Field(line, "type19"), 0) << line;
    EXPECT_GT(Field(line, "type20"), 0) << line;
}

TEST_F(Feeds, AMissingItemLeavesItsFeedClosedAndTheBoardNamesIt) {
    std::string lacking = l5Addresses;
    lacking.erase(lacking.find("L5_SRCPORT"));
    const std::string line =
        Run(lacking + l1Addresses, " L5=closed:SRCPORT 0, expected 31005 L1=ok\n");
    EXPECT_GT(Field(line, "type17"), 0) << line;
    EXPECT_GT(Field(line, "type18"), 0) << line;
    EXPECT_EQ(Field(line, "type19"), 0) << line;
    EXPECT_EQ(Field(line, "type20"), 0) << line;
    EXPECT_THAT(m_master->Output(), HasSubstr("Netfunction: L5 config item count is 5."));
}

TEST_F(Feeds, AMasterThatProgramsNothingLearnsTheInstrumentsAndReceivesNoMarketData) {
    const std::string line = Run("", "switch=0x3");
    EXPECT_EQ(Field(line, "total"), 0) << line;
    EXPECT_THAT(m_board->Output(), Not(HasSubstr("=ok")));
    EXPECT_THAT(m_board->LastLine("status "), HasSubstr(" learnt=9+3 subscribed=9+3 switch=0x3"));
    EXPECT_THAT(m_board->LastLine("status "), HasSubstr(" L5=closed L1=closed"));
}

}  // namespace

}  // namespace velatest
