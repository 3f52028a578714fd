// The instrument cache file, read. It may be anything.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "VelaZceBinFile.h"
#include "workerBench.h"

namespace {
// What the next fopen of "bin" gives, if set.
std::FILE* g_nextBin = nullptr;
}  // namespace

extern "C" {
// The linker's names for the call as the code under test makes it, and for the real one.
std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode) {
    if (g_nextBin != nullptr && std::strcmp(path, "bin") == 0) {
        std::FILE* const given = g_nextBin;
        g_nextBin = nullptr;
        return given;
    }
    return __real_fopen(path, mode);
}
}

namespace {

using velatest::FakeClock;
using velatest::Lines_t;
using velatest::LogCapture;
using velatest::PutFile;
using velatest::TempDir;
using Insts_t = std::map<std::string, unsigned short>;

const std::string g_goodEnd = "contract's_corresponding_time=20261120085510\nbin_file_over_tag";

class BinFileRead : public testing::Test {
  protected:
    BinFileRead() { FakeClock::Set(20261120, 93000); }

    // Whether a file of this creation time is valid at this local time of 2026-11-20.
    bool IsValid(unsigned int now, const std::string& creTime) {
        FakeClock::Set(20261120, now);
        PutFile("bin", "contract's_corresponding_time=" + creTime + "\nbin_file_over_tag");
        return bin.Intrade_CheckAndGetAllInstFromBin() == 0;
    }
    int Load(const std::string& text) {
        PutFile("bin", text);
        return bin.Intrade_CheckAndGetAllInstFromBin();
    }

    TempDir dir{TempDir::Enter::yes};
    LogCapture log;
    Insts_t insts;
    CTernBinFile bin{insts, 0};
};

TEST_F(BinFileRead, AGoodFileIsLoadedWithALineForEachStep) {
    EXPECT_EQ(Load("7,SR209\n65535,SPD-SR209&SR301\n" + g_goodEnd), 0);
    EXPECT_EQ(insts, (Insts_t{{"SR209", 7}, {"SPD-SR209&SR301", 65535}}));
    const std::string spread =
        "INFO Loading from bin: Index:65535,Instructmentid:SPD-SR209&SR301, lineNumber:2.";
    const std::string skipped =
        "WARN Invalid format!we skip line 3: contract's_corresponding_time=20261120085510\n";
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO contract's_corresponding_time=20261120085510", "INFO Bin is validate",
                       "INFO Loading from bin: Index:7,Instructmentid:SR209, lineNumber:1.", spread,
                       skipped, "WARN Invalid format!we skip line 4: bin_file_over_tag",
                       "INFO Loading over!", "INFO [channel:0] Current bin total inst count:2."}));
}

TEST_F(BinFileRead, TheCountIsThatOfTheWholeMapAndTheChannelIsTheObjects) {
    insts["OLD"] = 1;
    CTernBinFile other(insts, 12);
    PutFile("bin", "7,SR209\n" + g_goodEnd);
    EXPECT_EQ(other.Intrade_CheckAndGetAllInstFromBin(), 0);
    EXPECT_TRUE(log.Has("INFO [channel:12] Current bin total inst count:2."));
}

TEST_F(BinFileRead, WhatWasWrittenInTheAuctionIsReadBack) {
    FakeClock::Set(20261120, 85512);
    CZceDmaChanImpl::g_uiContractSettleTm = 85510;
    Insts_t written;
    CTernBinFile writer(written, 0);
    writer.Normal_FileInit();
    writer.Normal_WriteInstToBin("SR209C5000", 4095);
    writer.Normal_WriteInstToBin("", 9);
    writer.WriteEndToBin();
    FakeClock::SetTime(90001);
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), 0);
    EXPECT_EQ(insts, (Insts_t{{"SR209C5000", 4095}, {"", 9}}));
}

TEST_F(BinFileRead, AMissingFileIsOneWarning) {
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"WARN Cannot open file:bin, errmsg:No such file or directory"});
}

TEST_F(BinFileRead, WithoutTheEndTagEveryLineIsInVain) {
    EXPECT_EQ(Load("7,SR209\ncontract's_corresponding_time=20261120085510\n"), -1);
    EXPECT_TRUE(insts.empty());
    EXPECT_EQ(log.Lines(),
              (Lines_t{"WARN  contract's_corresponding_time= not found in the file. bin file  is "
                       "not complete.",
                       "WARN Bin file is not complete."}));
}

TEST_F(BinFileRead, TheEndTagCountsAtTheBeginningOfALineOnly) {
    EXPECT_EQ(Load("contract's_corresponding_time=20261120085510\n bin_file_over_tag\n"), -1);
    EXPECT_EQ(Load("contract's_corresponding_time=20261120085510\n" + std::string(255, 'x') +
                   "bin_file_over_tag\n"),
              -1);
    EXPECT_EQ(Load("bin_file_over_tag and more\ncontract's_corresponding_time=20261120085510\n"),
              0);
}

TEST_F(BinFileRead, WithoutATimeTheFileIsRejected) {
    EXPECT_EQ(Load("7,SR209\nbin_file_over_tag"), -1);
    EXPECT_TRUE(insts.empty());
    EXPECT_EQ(log.Lines(),
              (Lines_t{"WARN Error: 'contract's_corresponding_time=' not found in the file.\n",
                       "WARN Bin time check fail."}));
}

TEST_F(BinFileRead, TheFirstTimeOfTheFileCounts) {
    EXPECT_EQ(Load("contract's_corresponding_time=20261120080000\n"
                   "contract's_corresponding_time=20200101000000\nbin_file_over_tag"),
              0);
    EXPECT_TRUE(log.Has("INFO contract's_corresponding_time=20261120080000"));
}

TEST_F(BinFileRead, BeforeThreeInTheAfternoonTheMorningWindowIs080000To102959) {
    EXPECT_FALSE(IsValid(143000, "20261120075959"));
    EXPECT_TRUE(IsValid(143000, "20261120080000"));
    EXPECT_TRUE(IsValid(143000, "20261120102959"));
    EXPECT_FALSE(IsValid(143000, "20261120103000"));
    EXPECT_FALSE(IsValid(143000, "20261120205510"));
}

TEST_F(BinFileRead, FromThreeInTheAfternoonTheEveningWindowIs200000To215959) {
    EXPECT_FALSE(IsValid(223000, "20261120195959"));
    EXPECT_TRUE(IsValid(223000, "20261120200000"));
    EXPECT_TRUE(IsValid(223000, "20261120215959"));
    EXPECT_FALSE(IsValid(223000, "20261120220000"));
    EXPECT_FALSE(IsValid(223000, "20261120085510"));
}

TEST_F(BinFileRead, TheWindowChangesWithTheHour15) {
    EXPECT_TRUE(IsValid(145959, "20261120085510"));
    EXPECT_FALSE(IsValid(145959, "20261120205510"));
    EXPECT_FALSE(IsValid(150000, "20261120085510"));
    EXPECT_TRUE(IsValid(150000, "20261120205510"));
}

TEST_F(BinFileRead, AnotherDaysFileIsRejected) {
    EXPECT_FALSE(IsValid(93000, "20261119085510"));
    EXPECT_FALSE(IsValid(93000, "20261119205510"));  // of the evening before
    EXPECT_FALSE(IsValid(93000, "20261121085510"));
    EXPECT_FALSE(IsValid(93000, "20251120085510"));
    EXPECT_FALSE(IsValid(93000, "not a number"));
    EXPECT_FALSE(IsValid(93000, "99999999999999999999999999"));
}

TEST_F(BinFileRead, WithoutALocalTimeNoFileIsOfToday) {
    FakeClock::FailLocalTime(true);
    EXPECT_FALSE(IsValid(93000, "20261120085510"));
    EXPECT_FALSE(IsValid(93000, "19000100085510"));
    EXPECT_FALSE(IsValid(93000, "85510"));
    FakeClock::FailLocalTime(false);
}

TEST_F(BinFileRead, AStaleMorningFileIsNamedWithBothTimes) {
    EXPECT_FALSE(IsValid(93001, "20261119205510"));
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO contract's_corresponding_time=20261119205510",
                       "WARN BinCreTime is not in the current date's 8-9 AM range.current "
                       "time:20261120093001, bintime:20261119205510.",
                       "WARN Bin is not validate"}));
}

TEST_F(BinFileRead, AStaleEveningFileIsNamedWithBothTimes) {
    EXPECT_FALSE(IsValid(213007, "20261120085510"));
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO contract's_corresponding_time=20261120085510",
                       "WARN BinCreTime is not in the current date's 8-9 PM range. current "
                       "time:20261120213007, Bintime:20261120085510.",
                       "WARN Bin is not validate"}));
}

TEST_F(BinFileRead, OfTwoLinesOfOneNameTheLaterIndexWins) {
    insts["SR209"] = 1;
    EXPECT_EQ(Load("7,SR209\n8,SR209\n" + g_goodEnd), 0);
    EXPECT_EQ(insts, (Insts_t{{"SR209", 8}}));
}

TEST_F(BinFileRead, ALineWithoutItsEndIsSkipped) {
    EXPECT_EQ(Load("bin_file_over_tag\ncontract's_corresponding_time=20261120085510\n7,SR209"), 0);
    EXPECT_TRUE(insts.empty());
    EXPECT_TRUE(log.Has("WARN Invalid format!we skip line 3: 7,SR209"));
}

TEST_F(BinFileRead, LinesThatAreNoInstrumentsAreSkippedAndLoggedWhole) {
    EXPECT_EQ(Load("\n,\n7\n7,\n7,SR209,\n7,SR209,x\n8,AP301\n" + g_goodEnd), 0);
    // "7," has the line end as its name token.
    EXPECT_EQ(insts, (Insts_t{{"", 7}, {"AP301", 8}}));
    const Lines_t warnings = log.LinesOf("WARN");
    ASSERT_EQ(warnings.size(), 7U);
    EXPECT_EQ(warnings[0], "Invalid format!we skip line 1: \n");
    EXPECT_EQ(warnings[1], "Invalid format!we skip line 2: ,\n");
    EXPECT_EQ(warnings[2], "Invalid format!we skip line 3: 7\n");
    EXPECT_EQ(warnings[3], "Invalid format!we skip line 5: 7,SR209,\n");
    EXPECT_EQ(warnings[4], "Invalid format!we skip line 6: 7,SR209,x\n");
}

TEST_F(BinFileRead, SeveralCommasAreOneAndLeadingOnesNone) {
    EXPECT_EQ(Load(",7,SR209\n8,,,AP301\n" + g_goodEnd), 0);
    EXPECT_EQ(insts, (Insts_t{{"SR209", 7}, {"AP301", 8}}));
}

TEST_F(BinFileRead, AnIndexIsTakenModulo65536) {
    EXPECT_EQ(Load("65543,SR209\n" + g_goodEnd), 0);
    EXPECT_EQ(insts, (Insts_t{{"SR209", 7}}));
    EXPECT_TRUE(log.Has("INFO Loading from bin: Index:7,Instructmentid:SR209, lineNumber:1."));
}

TEST_F(BinFileRead, TheLineNumberIsTakenModulo65536) {
    std::string text;
    for (int i = 0; i < 65536; ++i) {
        text += "1,A\n";
    }
    EXPECT_EQ(Load(text + "7,SR209\n" + g_goodEnd), 0);
    EXPECT_TRUE(log.Has("INFO Loading from bin: Index:1,Instructmentid:A, lineNumber:0."));
    EXPECT_TRUE(log.Has("INFO Loading from bin: Index:7,Instructmentid:SR209, lineNumber:1."));
    EXPECT_TRUE(log.Has("WARN Invalid format!we skip line 3: bin_file_over_tag"));
}

TEST_F(BinFileRead, ALineOf255CharactersIsRead) {
    const std::string name(252, 'A');
    EXPECT_EQ(Load("7," + name + "\n" + g_goodEnd), 0);
    EXPECT_EQ(insts, (Insts_t{{name, 7}}));
}

// What does not fit into 255 characters is the next line, as far as the loading can tell.
TEST_F(BinFileRead, ALongerLineComesInPiecesEachCountedAndJudgedLikeALine) {
    const std::string head = "7," + std::string(253, 'A');
    EXPECT_EQ(Load(head + "\n" + head + "9,CF301\n" + head + std::string(255, 'B') + ",5\n" +
                   "8,AP301\n" + g_goodEnd),
              0);
    EXPECT_EQ(insts, (Insts_t{{"AP301", 8}, {"CF301", 9}}));
    EXPECT_EQ(
        log.LinesOf("WARN"),
        (Lines_t{"Invalid format!we skip line 1: " + head, "Invalid format!we skip line 2: \n",
                 "Invalid format!we skip line 3: " + head, "Invalid format!we skip line 5: " + head,
                 "Invalid format!we skip line 6: " + std::string(255, 'B'),
                 "Invalid format!we skip line 7: ,5\n",
                 "Invalid format!we skip line 9: " + g_goodEnd.substr(0, 45),
                 "Invalid format!we skip line 10: bin_file_over_tag"}));
    EXPECT_TRUE(log.Has("INFO Loading from bin: Index:9,Instructmentid:CF301, lineNumber:4."));
    EXPECT_TRUE(log.Has("INFO Loading from bin: Index:8,Instructmentid:AP301, lineNumber:8."));
}

// The index is what strtoul makes of it; only the line end and the two tokens are asked for.
TEST_F(BinFileRead, AnyTextBeforeTheCommaIsAnIndex) {
    EXPECT_EQ(Load("x9,BAD\n 12,AP301\n+13,CF301\n14x,SR209\n65536,TA301\n65543,TA302\n-1,TA303\n"
                   "0x10,TA304\n99999999999999999999,TA305\n010,TA306\n3,\n" +
                   g_goodEnd),
              0);
    EXPECT_EQ(insts, (Insts_t{{"BAD", 0},
                              {"AP301", 12},
                              {"CF301", 13},
                              {"SR209", 14},
                              {"TA301", 0},
                              {"TA302", 7},
                              {"TA303", 65535},
                              {"TA304", 0},
                              {"TA305", 65535},
                              {"TA306", 10},
                              {"", 3}}));
    EXPECT_TRUE(log.Has("INFO Loading from bin: Index:0,Instructmentid:BAD, lineNumber:1."));
    EXPECT_EQ(log.LinesOf("WARN").size(), 2U);  // the time and the tag
}

TEST_F(BinFileRead, ALineWithAZeroByteIsRejected) {
    EXPECT_EQ(Load(std::string("7,SR\0CF\n", 8) + std::string("\0", 1) + "\n8,AP301\n" + g_goodEnd),
              0);
    EXPECT_EQ(insts, (Insts_t{{"AP301", 8}}));
}

TEST_F(BinFileRead, GarbageIsNotComplete) {
    std::string garbage;
    for (unsigned int i = 0; i < 100000; ++i) {
        garbage.push_back(static_cast<char>((i * 2654435761U) >> 13));
    }
    EXPECT_EQ(Load(garbage), -1);
    EXPECT_EQ(Load(garbage + "\n" + g_goodEnd), 0);
    EXPECT_EQ(Load(""), -1);
}

// A file torn at any byte: what counts as whole has its end tag, so all its lines.
TEST_F(BinFileRead, AFileCutAtAnyByteIsRejectedOrWhole) {
    const std::string whole = "7,SR209\n8,AP301\n" + g_goodEnd;
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        insts.clear();
        EXPECT_EQ(Load(whole.substr(0, cut)), -1) << cut;
        EXPECT_TRUE(insts.empty()) << cut;
        insts.clear();
        // The front lost instead.
        if (Load(whole.substr(cut)) == 0) {
            for (const auto& [name, index] : insts) {
                EXPECT_TRUE(name == "SR209" || name == "AP301") << name;
            }
        }
    }
}

TEST_F(BinFileRead, ADirectoryInItsPlaceIsNotComplete) {
    std::filesystem::create_directory("bin");
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), -1);
    EXPECT_TRUE(log.Has("WARN Bin file is not complete."));
}

TEST_F(BinFileRead, AFifoInItsPlaceIsNotOpened) {
    ASSERT_EQ(mkfifo("bin", 0600), 0);
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"WARN Cannot open file:bin, errmsg:No such device or address"});
}

// Its bytes would never end.
TEST_F(BinFileRead, ADeviceInItsPlaceIsNotRead) {
    ASSERT_EQ(symlink("/dev/zero", "bin"), 0);
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"WARN Cannot open file:bin, errmsg:No such device or address"});
}

TEST_F(BinFileRead, ALinkInItsPlaceIsFollowed) {
    PutFile("elsewhere", "7,SR209\n" + g_goodEnd);
    ASSERT_EQ(symlink("elsewhere", "bin"), 0);
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), 0);
    EXPECT_EQ(insts, (Insts_t{{"SR209", 7}}));
}

TEST_F(BinFileRead, TheStepsWithoutAnOpenFileFail) {
    EXPECT_FALSE(bin.Intrade_IsBinComplete());
    EXPECT_EQ(bin.Intrade_ExtractBinCreTime(), -1);
    EXPECT_EQ(bin.Intrade_ChkBinTimeValidate(), -1);
    EXPECT_EQ(bin.Intrade_GetAllInstFromBin(), -1);
}

TEST_F(BinFileRead, AfterLoadingNoFileIsOpen) {
    EXPECT_EQ(Load("7,SR209\n" + g_goodEnd), 0);
    log.Clear();
    EXPECT_EQ(bin.Normal_WriteInstToBin("AP301", 8), 0);
    EXPECT_EQ(bin.WriteEndToBin(), 0);
    EXPECT_EQ(velatest::FileText("bin"), "7,SR209\n" + g_goodEnd);
    EXPECT_EQ(log.Lines(), Lines_t{});
    EXPECT_EQ(bin.Intrade_GetAllInstFromBin(), -1);
}

TEST_F(BinFileRead, ARejectedFileIsClosedToo) {
    EXPECT_EQ(Load("7,SR209\n"), -1);
    EXPECT_EQ(bin.Intrade_GetAllInstFromBin(), -1);
}

// A good file whose disk fails while it is loaded: the third reading from the start.
struct FailingFile {
    std::string text;
    std::size_t at = 0;
    int rewinds = 0;
};
ssize_t ReadFailing(void* cookie, char* buffer, std::size_t size) {
    auto& file = *static_cast<FailingFile*>(cookie);
    if (file.rewinds >= 3) {
        errno = EIO;
        return -1;
    }
    const std::size_t count = file.text.copy(buffer, size, file.at);
    file.at += count;
    return static_cast<ssize_t>(count);
}
int SeekFailing(void* cookie, off64_t* offset, int whence) {
    auto& file = *static_cast<FailingFile*>(cookie);
    if (whence == SEEK_SET) {
        file.at = static_cast<std::size_t>(*offset);
        ++file.rewinds;
    }
    *offset = static_cast<off64_t>(file.at);
    return 0;
}

TEST_F(BinFileRead, AFileThatFailsWhileItIsLoadedIsReported) {
    FailingFile file{"7,SR209\n" + g_goodEnd};
    const cookie_io_functions_t functions{ReadFailing, nullptr, SeekFailing, nullptr};
    std::FILE* const fp = fopencookie(&file, "r", functions);
    std::setvbuf(fp, nullptr, _IONBF, 0);
    g_nextBin = fp;
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), -1);
    EXPECT_EQ(log.Lines(), (Lines_t{"INFO contract's_corresponding_time=20261120085510",
                                    "INFO Bin is validate", "WARN Fail! load to map fail"}));
}

}  // namespace
