#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill()

#include "market.h"

using testing::HasSubstr;
using testing::Not;

namespace velatest {

namespace {

class Receiving : public Market {
  protected:
    Receiving() { LetReceiversRest(); }
};

TEST_F(Receiving, EveryProcessGetsExactlyWhatTheBoardSentToItsChannel) {
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    auto master = Receive(0);
    ASSERT_TRUE(master->WaitFor("Fpga start transmit inst map pkt.")) << master->Output();
    auto second = Receive(3, {"--own-loop"});
    ASSERT_TRUE(master->WaitFor("All channel subs over.")) << master->Output();
    ASSERT_TRUE(master->WaitFor("zce-recv type=")) << master->Output();
    ASSERT_TRUE(second->WaitFor("zce-recv type=")) << second->Output();
    StopBoard();
    ExpectSame(Finish(*master, 0), 0);
    ExpectSame(Finish(*second, 3), 3);
    EXPECT_THAT(master->Output(), HasSubstr("Received signal 2 !!"));
    EXPECT_THAT(master->Output(), HasSubstr("dma channel CUSTOM_CHAN0_DATA has released."));
    EXPECT_THAT(second->Output(), HasSubstr("dma channel CUSTOM_CHAN3_DATA has released."));
    EXPECT_THAT(ReadFile(Path("receiver0/bin")), HasSubstr("bin_file_over_tag"));
}

TEST_F(Receiving, AChannelHeldByAnotherProcessCannotBeOpened) {
    StartClock(100000);
    StartSmallBoard();
    auto holder = Receive(3);
    ASSERT_TRUE(holder->WaitFor("Init dma channel :CUSTOM_CHAN3_DATA success."));
    auto late = Receive(3);
    EXPECT_EQ(late->WaitEnd(), 0);
    const std::string output = late->Output();
    EXPECT_THAT(output, HasSubstr("[fpga]Could not create a2c stream.dmaName:CUSTOM_CHAN3_DATA,  "
                                  "err:Device or resource busy\n"));
    EXPECT_THAT(output, HasSubstr("[fpga]Note !! A software program can only have one instance "
                                  "running at a time!\n"));
    EXPECT_THAT(output, HasSubstr("[fpga]Init DMA error!\n"));
    EXPECT_THAT(output, HasSubstr("[fpga]Dma init busid:0, chanName:CUSTOM_CHAN3_DATA fail!\n"));
    EXPECT_THAT(output,
                HasSubstr("[fpga][channel:255] Init dma fail! dma name CUSTOM_CHAN3_DATA.\n"));
    EXPECT_THAT(output, HasSubstr("[fpga]Create Tern service failed!\n"));
    EXPECT_THAT(output, Not(HasSubstr("zce-recv channel=")));
    EXPECT_TRUE(holder->Running());
}

TEST_F(Receiving, ANewProcessTakesOverTheChannelOfAKilledOne) {
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    auto master = Receive(0);
    ASSERT_TRUE(master->WaitFor("Fpga start transmit inst map pkt.")) << master->Output();
    auto first = Receive(3);
    ASSERT_TRUE(first->WaitFor("zce-recv type=")) << first->Output();
    first->Signal(SIGKILL);
    EXPECT_EQ(first->WaitEnd(), 128 + SIGKILL);
    auto next = Receive(3);
    ASSERT_TRUE(next->WaitFor("zce-recv type=")) << next->Output();
    EXPECT_TRUE(master->Running());
    StopBoard();
    const std::string line = Finish(*next, 3);
    EXPECT_GT(Field(line, "total"), 0) << line;
    EXPECT_EQ(Field(line, "gaps"), 0) << line;
    ExpectSame(Finish(*master, 0), 0);
}

TEST_F(Receiving, WithoutABoardThereIsNoCard) {
    StartClock(100000);
    auto master = Receive(0);
    EXPECT_EQ(master->WaitEnd(), 0);
    const std::string output = master->Output();
    EXPECT_THAT(output, HasSubstr("Could not find accelerator. ernno:19, msg:No such device, get "
                                  "acc num:0.\n"));
    EXPECT_THAT(output, HasSubstr("Get core error. busId:0, coreId:474\n"));
    EXPECT_THAT(output, HasSubstr("Init New drive failed! ret:-1\n"));
    EXPECT_THAT(output, HasSubstr("Vela inner init fail.\n"));
}

TEST_F(Receiving, AConfigurationThatIsNotThereEndsTheStart) {
    Process receiver({ZCE_RECV_PROGRAM, Path("no.ini")}, {"", {}, Path("output")});
    EXPECT_EQ(receiver.WaitEnd(), 0);
    EXPECT_THAT(receiver.Output(), HasSubstr("Failed to load file " + Path("no.ini") + "\n"));
    EXPECT_THAT(receiver.Output(), HasSubstr("Config file init fail.\n"));
    EXPECT_THAT(receiver.Output(), HasSubstr("Vela inner init fail.\n"));
}

TEST_F(Receiving, SecondsEndTheReceiverInBothWaysOfReceiving) {
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    auto master = Receive(0, {"--seconds", "9"});
    auto second = Receive(3, {"--seconds", "7", "--own-loop"});
    EXPECT_EQ(second->WaitEnd(), 0) << second->Output();
    EXPECT_EQ(master->WaitEnd(), 0) << master->Output();
    EXPECT_GT(Field(master->LastLine("zce-recv channel=0 "), "total"), 0) << master->Output();
    EXPECT_NE(second->LastLine("zce-recv channel=3 total="), "");
}

TEST_F(Receiving, AReceiverThatNeverGotAMessageStillEndsCleanly) {
    StartClock(40000);
    StartSmallBoard();
    auto other = Receive(5);
    ASSERT_TRUE(other->WaitFor("Init dma channel :CUSTOM_CHAN5_DATA success."));
    EXPECT_EQ(Finish(*other, 5),
              "zce-recv channel=5 total=0 type17=0 type18=0 type19=0 type20=0 gaps=0");
}

// A line of /proc/<pid>/status, in KiB.
long StatusKiB(const Process& process, const std::string& name) {
    const std::string status = ReadFile("/proc/" + std::to_string(process.Pid()) + "/status");
    const std::size_t at = status.find("\n" + name + ":");
    return at == std::string::npos
               ? -1
               : std::strtol(status.c_str() + at + name.size() + 2, nullptr, 10);
}

// The board with all 16 rings full: TheFullListStaysUnder64MiBResident of its own tests.
TEST_F(Receiving, WithTheFullListTheReceiverStaysUnder32MiBAndItsBoardUnder64) {
    StartClock(85452);
    StartBoard({"--products", "all", "--rate", "20000"});
    const std::vector<unsigned int> channels{0, 3, 5};
    m_rules.clear();
    for (const unsigned int channel : channels) {
        m_rules += "[channel" + std::to_string(channel) +
                   "]\ninsts = all\noptions = recv\nspd = recv\nips = recv\n";
    }
    std::vector<std::unique_ptr<Process>> receivers;
    receivers.reserve(channels.size());
    for (const unsigned int channel : channels) {
        receivers.push_back(Receive(channel));
    }
    for (const auto& receiver : receivers) {
        ASSERT_TRUE(receiver->WaitFor("zce-recv type=")) << receiver->Output();
    }
    usleep(1'500'000);  // let every page of the rings be used
    const long receiverKiB = StatusKiB(*receivers[0], "VmHWM");
    EXPECT_GT(receiverKiB, 1024);
    EXPECT_LT(receiverKiB, 32 * 1024);
    RecordProperty("receiver_peak_resident_kiB", static_cast<int>(receiverKiB));
    const long boardKiB = StatusKiB(*m_board, "VmRSS");
    EXPECT_GT(boardKiB, (2 + 3 * 2) * 1024) << "the tables and three rings";
    EXPECT_LT(boardKiB, 64 * 1024);
    RecordProperty("board_resident_kiB", static_cast<int>(boardKiB));
    StopBoard();
    ExpectSame(Finish(*receivers[0], 0), 0);
    for (std::size_t k = 0; k < channels.size(); ++k) {
        const std::string sent = BoardLine(channels[k]);
        EXPECT_GT(Field(sent, "total") * 148, 2 << 20) << "the ring went round once: " << sent;
    }
}

}  // namespace

}  // namespace velatest
