// The instrument cache file, written.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>

#include "VelaZceBinFile.h"
#include "workerBench.h"

namespace {

using velatest::FakeClock;
using velatest::FileText;
using velatest::Lines_t;
using velatest::LogCapture;
using velatest::PutFile;
using velatest::TempDir;

class BinFileWrite : public testing::Test {
  protected:
    BinFileWrite() { velatest::ForgetProcess(); }

    TempDir dir{TempDir::Enter::yes};
    LogCapture log;
    std::map<std::string, unsigned short> insts;
    CTernBinFile bin{insts, 0};
};

TEST_F(BinFileWrite, ConstructionOpensNothing) {
    EXPECT_EQ(FileText("bin"), "(none)");
}

TEST_F(BinFileWrite, InitTruncatesWhatWasThere) {
    PutFile("bin", "old");
    bin.Normal_FileInit();
    EXPECT_EQ(FileText("bin"), "");
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(BinFileWrite, InstrumentsStandInTheOrderOfWritingEachOnTheDiskAtOnce) {
    bin.Normal_FileInit();
    EXPECT_EQ(bin.Normal_WriteInstToBin("SR209", 7), 0);
    EXPECT_EQ(FileText("bin"), "7,SR209\n");
    EXPECT_EQ(bin.Normal_WriteInstToBin("AP301", 65535), 0);
    EXPECT_EQ(bin.Normal_WriteInstToBin("SPD-SR209&SR301", 0), 0);
    EXPECT_EQ(FileText("bin"), "7,SR209\n65535,AP301\n0,SPD-SR209&SR301\n");
    EXPECT_EQ(log.Lines(), (Lines_t{"INFO Write to bin :index:7,inst:SR209,",
                                    "INFO Write to bin :index:65535,inst:AP301,",
                                    "INFO Write to bin :index:0,inst:SPD-SR209&SR301,"}));
}

TEST_F(BinFileWrite, WithoutAnOpenFileAnInstrumentIsNeitherWrittenNorLogged) {
    EXPECT_EQ(bin.Normal_WriteInstToBin("SR209", 7), 0);
    EXPECT_EQ(FileText("bin"), "(none)");
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(BinFileWrite, ALineOf127BytesIsWritten) {
    bin.Normal_FileInit();
    const std::string name(124, 'A');  // "7," + 124 + "\n"
    EXPECT_EQ(bin.Normal_WriteInstToBin(name, 7), 0);
    EXPECT_EQ(FileText("bin"), "7," + name + "\n");
}

TEST_F(BinFileWrite, ALongerLineIsCutAt127BytesItsLineEndIncluded) {
    bin.Normal_FileInit();
    const std::string name(125, 'A');
    EXPECT_EQ(bin.Normal_WriteInstToBin(name, 7), 0);
    EXPECT_EQ(bin.Normal_WriteInstToBin("SR209", 8), 0);
    EXPECT_EQ(FileText("bin"), "7," + name + "8,SR209\n");
    EXPECT_EQ(log.Lines(), (Lines_t{"INFO Write to bin :index:7,inst:" + name + ",",
                                    "INFO Write to bin :index:8,inst:SR209,"}));
    EXPECT_EQ(bin.Normal_WriteInstToBin(std::string(300, 'B'), 65535), 0);
    EXPECT_EQ(FileText("bin"), "7," + name + "8,SR209\n65535," + std::string(121, 'B'));
}

TEST_F(BinFileWrite, EndIsTheWidenedAuctionTimeAndTheTagWithoutALineEnd) {
    FakeClock::Set(20261120, 85512);
    CZceDmaChanImpl::g_uiContractSettleTm = 85510;
    bin.Normal_FileInit();
    bin.Normal_WriteInstToBin("SR209", 7);
    log.Clear();
    EXPECT_EQ(bin.WriteEndToBin(), 0);
    EXPECT_EQ(FileText("bin"),
              "7,SR209\ncontract's_corresponding_time=20261120085510\nbin_file_over_tag");
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 20261120085510UL);
    EXPECT_EQ(log.Lines(), Lines_t{"INFO Write end tag to bin."});
}

TEST_F(BinFileWrite, TheDateOfTheEndIsOneBasedInMonthAndDay) {
    FakeClock::Set(20270101, 210000);
    CZceDmaChanImpl::g_uiContractSettleTm = 205510;
    bin.WriteEndToBin();
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 20270101205510UL);
    FakeClock::Set(20271231, 210000);
    CZceDmaChanImpl::g_uiContractSettleTm = 205510;
    bin.WriteEndToBin();
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 20271231205510UL);
}

TEST_F(BinFileWrite, EndWithoutAnOpenFileOnlySetsTheTime) {
    CZceDmaChanImpl::g_uiContractSettleTm = 85510;
    EXPECT_EQ(bin.WriteEndToBin(), 0);
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 20261120085510UL);
    EXPECT_EQ(FileText("bin"), "(none)");
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(BinFileWrite, ATimeThatWasWidenedIsNotWidenedTwice) {
    CZceDmaChanImpl::g_uiContractSettleTm = 85510;
    bin.WriteEndToBin();
    bin.WriteEndToBin();
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 20261120085510UL);
}

TEST_F(BinFileWrite, AFileThatCannotBeOpenedIsOneWarningAndNothingIsWritten) {
    std::filesystem::create_directory("bin");
    bin.Normal_FileInit();
    EXPECT_EQ(bin.Normal_WriteInstToBin("SR209", 7), 0);
    EXPECT_EQ(bin.WriteEndToBin(), 0);
    EXPECT_EQ(log.Lines(), Lines_t{"WARN Fail! Unable to open file bin,msg:Is a directory"});
}

// With a reader or without: nobody waits.
TEST_F(BinFileWrite, AFifoInItsPlaceIsNotOpened) {
    ASSERT_EQ(mkfifo("bin", 0600), 0);
    bin.Normal_FileInit();
    const int reader = open("bin", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(reader, -1);
    bin.Normal_FileInit();
    EXPECT_EQ(bin.Normal_WriteInstToBin("SR209", 7), 0);
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 0);  // no writer
    close(reader);
    EXPECT_EQ(log.Lines(),
              (Lines_t{"WARN Fail! Unable to open file bin,msg:No such device or address",
                       "WARN Fail! Unable to open file bin,msg:No such device or address"}));
}

TEST_F(BinFileWrite, ALinkInItsPlaceIsFollowed) {
    ASSERT_EQ(symlink("elsewhere", "bin"), 0);
    bin.Normal_FileInit();
    EXPECT_EQ(bin.Normal_WriteInstToBin("SR209", 7), 0);
    EXPECT_EQ(FileText("elsewhere"), "7,SR209\n");
}

TEST_F(BinFileWrite, AFullDiskIsOneWarningForAllTheRecordsAfterIt) {
    ASSERT_EQ(symlink("/dev/full", "bin"), 0);
    bin.Normal_FileInit();
    EXPECT_EQ(bin.Normal_WriteInstToBin("SR209", 7), -1);
    for (unsigned short i = 0; i < 1000; ++i) {
        EXPECT_EQ(bin.Normal_WriteInstToBin("SR" + std::to_string(i), i), 0);
    }
    EXPECT_EQ(bin.WriteEndToBin(), 0);
    EXPECT_EQ(log.Lines(), (Lines_t{"INFO Write to bin :index:7,inst:SR209,",
                                    "WARN Fail! Unable to write file bin,msg:No space left on "
                                    "device. No more is written to it."}));
}

TEST_F(BinFileWrite, AFullDiskAtTheEndTagIsReported) {
    ASSERT_EQ(symlink("/dev/full", "bin"), 0);
    bin.Normal_FileInit();
    EXPECT_EQ(bin.WriteEndToBin(), -1);
    EXPECT_EQ(log.Lines(), (Lines_t{"INFO Write end tag to bin.",
                                    "WARN Fail! Unable to write file bin,msg:No space left on "
                                    "device. No more is written to it."}));
}

// A hole in the middle must never look like a whole file.
TEST_F(BinFileWrite, AfterAFailedWriteAFileGetsNoEndTagThoughThereIsRoomAgain) {
    bin.Normal_FileInit();
    std::filesystem::rename("bin", "kept");
    ASSERT_EQ(symlink("/dev/full", "bin"), 0);
    bin.Normal_FileInit();
    bin.Normal_WriteInstToBin("SR209", 7);
    std::filesystem::remove("bin");
    bin.Normal_WriteInstToBin("SR210", 8);
    bin.WriteEndToBin();
    EXPECT_EQ(FileText("bin"), "(none)");
    bin.Normal_FileInit();
    EXPECT_EQ(bin.Normal_WriteInstToBin("SR210", 8), 0);
    EXPECT_EQ(FileText("bin"), "8,SR210\n");
}

TEST_F(BinFileWrite, RewriteHoldsTimeInstrumentsByNameSecondTimeAndTag) {
    FakeClock::Set(20261120, 93015);
    CZceDmaChanImpl::g_uiContractSettleTm = 85511;
    insts = {{"SR209", 7}, {"AP301", 300}, {"CF301", 0}};
    EXPECT_EQ(bin.Intrade_WrInstFromFpga(), 0);
    EXPECT_EQ(FileText("bin"),
              "contract's_corresponding_time=20261120093015\n"
              "300,AP301\n0,CF301\n7,SR209\n"
              "contract's_corresponding_time=20261120085511\n"
              "bin_file_over_tag");
    EXPECT_EQ(log.Lines(), Lines_t{"INFO Write end tag to bin."});
}

TEST_F(BinFileWrite, RewriteThatCannotOpenIsOneWarning) {
    std::filesystem::create_directory("bin");
    CZceDmaChanImpl::g_uiContractSettleTm = 85511;
    EXPECT_EQ(bin.Intrade_WrInstFromFpga(), -1);
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 85511UL);
    EXPECT_EQ(log.Lines(), Lines_t{"WARN Fail! Unable to open file bin,msg:Is a directory"});
}

TEST_F(BinFileWrite, RewriteOntoAFullDiskIsOneWarning) {
    ASSERT_EQ(symlink("/dev/full", "bin"), 0);
    for (unsigned short i = 0; i < 5000; ++i) {
        insts["SR" + std::to_string(i)] = i;
    }
    EXPECT_EQ(bin.Intrade_WrInstFromFpga(), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"WARN Fail! Unable to write file bin,msg:No space left on "
                                   "device. No more is written to it."});
}

TEST_F(BinFileWrite, RewriteCutsALineAt127Bytes) {
    const std::string name(126, 'A');
    insts = {{name, 1}, {"SR209", 7}};
    EXPECT_EQ(bin.Intrade_WrInstFromFpga(), 0);
    EXPECT_NE(FileText("bin").find("\n1," + name.substr(1) + "7,SR209\ncontract's"),
              std::string::npos);
    EXPECT_EQ(log.Lines(), Lines_t{"INFO Write end tag to bin."});
}

TEST(BinFileLife, DestructionClosesTheFile) {
    const TempDir dir(TempDir::Enter::yes);
    const auto countOpen = [] {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto& fd :
             std::filesystem::directory_iterator("/proc/self/fd")) {
            ++count;
        }
        return count;
    };
    const std::size_t before = countOpen();
    std::map<std::string, unsigned short> insts;
    {
        CTernBinFile bin(insts, 0);
        bin.Normal_FileInit();
        bin.Normal_FileInit();  // a second beginning does not keep the first file open
        EXPECT_EQ(countOpen(), before + 1);
    }
    EXPECT_EQ(countOpen(), before);
}

}  // namespace
