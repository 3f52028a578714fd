// Instrument cache files written out to the byte: what is read of them with every line of the log,
// and what is written.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "VelaZceBinFile.h"
#include "workerBench.h"

namespace {

using velatest::FakeClock;
using velatest::FileText;
using velatest::Lines_t;
using velatest::LogCapture;
using velatest::PutFile;
using velatest::TempDir;
using Insts_t = std::map<std::string, unsigned short>;

// The end of a good file of this morning.
const std::string g_tail = "contract's_corresponding_time=20261116085630\nbin_file_over_tag";

std::string Rep(std::size_t count, char c) {
    return std::string(count, c);
}
// A zero byte for each "~".
std::string Z(std::string text) {
    std::replace(text.begin(), text.end(), '~', '\0');
    return text;
}
std::string Inst(unsigned int index, const std::string& name, unsigned int line) {
    return "INFO Loading from bin: Index:" + std::to_string(index) + ",Instructmentid:" + name +
           ", lineNumber:" + std::to_string(line) + ".";
}
std::string Skip(unsigned int line, const std::string& text) {
    return "WARN Invalid format!we skip line " + std::to_string(line) + ": " + text;
}

struct FileCase_t {
    const char* name;
    std::size_t size;  // of the text, to check it
    std::string text;  // what stands before the tail
    Insts_t insts;
    Lines_t lines;          // of the text
    unsigned int tailLine;  // the number of the tail's first line
};
void PrintTo(const FileCase_t& file, std::ostream* out) {
    *out << file.name;
}

const std::vector<FileCase_t> g_files = {
    {"NoDigitInTheIndex",
     14,
     "x9,BAD\n9,GOOD\n",
     {{"BAD", 0}, {"GOOD", 9}},
     {Inst(0, "BAD", 1), Inst(9, "GOOD", 2)},
     3},
    {"FormsOfTheIndex",
     58,
     " 12,A\n\t13,B\n+14,C\n-1,D\n15abc,E\n0x10,F\n017,G\n ,H\n-,I\n1 2,J\n",
     {{"A", 12},
      {"B", 13},
      {"C", 14},
      {"D", 65535},
      {"E", 15},
      {"F", 0},
      {"G", 17},
      {"H", 0},
      {"I", 0},
      {"J", 1}},
     {Inst(12, "A", 1), Inst(13, "B", 2), Inst(14, "C", 3), Inst(65535, "D", 4), Inst(15, "E", 5),
      Inst(0, "F", 6), Inst(17, "G", 7), Inst(0, "H", 8), Inst(0, "I", 9), Inst(1, "J", 10)},
     11},
    {"BoundsOf16Bits",
     69,
     "65535,A\n65536,B\n65537,C\n-65535,D\n4294967297,E\n" + Rep(20, '9') + ",F\n",
     {{"A", 65535}, {"B", 0}, {"C", 1}, {"D", 1}, {"E", 1}, {"F", 65535}},
     {Inst(65535, "A", 1), Inst(0, "B", 2), Inst(1, "C", 3), Inst(1, "D", 4), Inst(1, "E", 5),
      Inst(65535, "F", 6)},
     7},
    {"TwoReasonsAndTheirNeighbours",
     56,
     "5\n\n,\n,6\n7,\n8,AB,CD\n,9,EF\n10,,GH\n,,,11,,,IJ\n12,K L\n13, M\n",
     {{"", 7}, {" M", 13}, {"EF", 9}, {"GH", 10}, {"IJ", 11}, {"K L", 12}},
     {Skip(1, "5\n"), Skip(2, "\n"), Skip(3, ",\n"), Skip(4, ",6\n"), Inst(7, "", 5),
      Skip(6, "8,AB,CD\n"), Inst(9, "EF", 7), Inst(10, "GH", 8), Inst(11, "IJ", 9),
      Inst(12, "K L", 10), Inst(13, " M", 11)},
     12},
    {"CarriageReturnStays", 6, "5,AB\r\n", {{"AB\r", 5}}, {Inst(5, "AB\r", 1)}, 2},
    {"LineOf254",
     258,
     "7," + Rep(251, 'A') + "\n8,B\n",
     {{Rep(251, 'A'), 7}, {"B", 8}},
     {Inst(7, Rep(251, 'A'), 1), Inst(8, "B", 2)},
     3},
    {"LineOf255",
     259,
     "7," + Rep(252, 'A') + "\n8,B\n",
     {{Rep(252, 'A'), 7}, {"B", 8}},
     {Inst(7, Rep(252, 'A'), 1), Inst(8, "B", 2)},
     3},
    {"LineOf256",
     260,
     "7," + Rep(253, 'A') + "\n8,B\n",
     {{"B", 8}},
     {Skip(1, "7," + Rep(253, 'A')), Skip(2, "\n"), Inst(8, "B", 3)},
     4},
    {"LineOf300",
     304,
     "7," + Rep(297, 'A') + "\n8,B\n",
     {{"B", 8}},
     {Skip(1, "7," + Rep(253, 'A')), Skip(2, Rep(44, 'A') + "\n"), Inst(8, "B", 3)},
     4},
    {"LineOf510",
     514,
     "7," + Rep(507, 'A') + "\n8,B\n",
     {{"B", 8}},
     {Skip(1, "7," + Rep(253, 'A')), Skip(2, Rep(254, 'A') + "\n"), Inst(8, "B", 3)},
     4},
    {"LineOf511",
     515,
     "7," + Rep(508, 'A') + "\n8,B\n",
     {{"B", 8}},
     {Skip(1, "7," + Rep(253, 'A')), Skip(2, Rep(255, 'A')), Skip(3, "\n"), Inst(8, "B", 4)},
     5},
    {"SecondPieceIsAnInstrument",
     265,
     "7," + Rep(253, 'A') + "8,XYZ\n9,B\n",
     {{"B", 9}, {"XYZ", 8}},
     {Skip(1, "7," + Rep(253, 'A')), Inst(8, "XYZ", 2), Inst(9, "B", 3)},
     4},
    {"CommaEndsTheFirstPiece",
     258,
     Rep(254, '7') + ",AB\n",
     {},
     {Skip(1, Rep(254, '7') + ","), Skip(2, "AB\n")},
     3},
    {"CommaBeginsTheSecondPiece",
     259,
     Rep(255, '7') + ",AB\n",
     {},
     {Skip(1, Rep(255, '7')), Skip(2, ",AB\n")},
     3},
    {"PieceEndsBehindAComma",
     258,
     "1," + Rep(250, 'A') + ",2,BC\n",
     {},
     {Skip(1, "1," + Rep(250, 'A') + ",2,"), Skip(2, "BC\n")},
     3},
    {"ZeroBytes",
     20,
     Z("5,A~B\n6~,C\n~7,D\n8,E\n"),
     {{"E", 8}},
     {Skip(1, "5,A"), Skip(2, "6"), Skip(3, ""), Inst(8, "E", 4)},
     5},
    {"ZeroBytesInTheFirstPiece",
     261,
     Rep(255, '\0') + "8,XYZ\n",
     {{"XYZ", 8}},
     {Skip(1, ""), Inst(8, "XYZ", 2)},
     3},
    {"LaterLineOfAName",
     12,
     "1,A\n2,B\n3,A\n",
     {{"A", 3}, {"B", 2}},
     {Inst(1, "A", 1), Inst(2, "B", 2), Inst(3, "A", 3)},
     4},
    {"LineThatRanIntoTheNext",
     135,
     "7," + Rep(125, 'A') + "8,B\n9,C\n",
     {{"C", 9}},
     {Skip(1, "7," + Rep(125, 'A') + "8,B\n"), Inst(9, "C", 2)},
     3},
};

class BinSentence : public testing::Test {
  protected:
    BinSentence() {
        velatest::ForgetProcess();
        FakeClock::Set(20261116, 93000);
    }
    int Load(const std::string& text) {
        PutFile("bin", text);
        log.Clear();
        return bin.Intrade_CheckAndGetAllInstFromBin();
    }
    // The lines of a file that is loaded, around those of its own.
    static Lines_t Loaded(const Lines_t& own, std::size_t count) {
        Lines_t lines{"INFO contract's_corresponding_time=20261116085630", "INFO Bin is validate"};
        lines.insert(lines.end(), own.begin(), own.end());
        lines.emplace_back("INFO Loading over!");
        lines.push_back("INFO [channel:0] Current bin total inst count:" + std::to_string(count) +
                        ".");
        return lines;
    }

    TempDir dir{TempDir::Enter::yes};
    LogCapture log;
    Insts_t insts;
    CTernBinFile bin{insts, 0};
};

class BinSentences : public BinSentence, public testing::WithParamInterface<FileCase_t> {};

TEST_P(BinSentences, FileGivesItsInstrumentsAndItsLines) {
    const FileCase_t& file = GetParam();
    ASSERT_EQ(file.text.size(), file.size);
    if (file.insts.count("B") != 0) {
        insts["B"] = 99;  // a name that the map has takes the file's index
    }
    EXPECT_EQ(Load(file.text + g_tail), 0);
    EXPECT_EQ(insts, file.insts);
    Lines_t own = file.lines;
    own.push_back(Skip(file.tailLine, "contract's_corresponding_time=20261116085630\n"));
    own.push_back(Skip(file.tailLine + 1, "bin_file_over_tag"));
    EXPECT_EQ(log.Lines(), Loaded(own, file.insts.size()));
}

const auto g_nameOfFile = [](const testing::TestParamInfo<FileCase_t>& info) {
    return std::string(info.param.name);
};
INSTANTIATE_TEST_SUITE_P(Files, BinSentences, testing::ValuesIn(g_files), g_nameOfFile);

TEST_F(BinSentence, ALineBehindTheTagIsLoadedIfItHasItsLineEnd) {
    const std::string time = "contract's_corresponding_time=20261116085630\n";
    const Lines_t skipped = {Skip(1, time), Skip(2, "bin_file_over_tag\n")};
    EXPECT_EQ(Load(g_tail + "\n5,AB"), 0);
    EXPECT_EQ(insts, Insts_t{});
    EXPECT_EQ(log.Lines(), Loaded({skipped[0], skipped[1], Skip(3, "5,AB")}, 0));
    EXPECT_EQ(Load(g_tail + "\n5,AB\n"), 0);
    EXPECT_EQ(insts, (Insts_t{{"AB", 5}}));
    EXPECT_EQ(log.Lines(), Loaded({skipped[0], skipped[1], Inst(5, "AB", 3)}, 1));
}

TEST_F(BinSentence, TheTimeIsReadUpToTheFirstOtherCharacter) {
    EXPECT_EQ(Load("5,AB\ncontract's_corresponding_time=20261116085630xyz\nbin_file_over_tag"), 0);
    EXPECT_EQ(insts, (Insts_t{{"AB", 5}}));
    EXPECT_EQ(log.Lines(), Loaded({Inst(5, "AB", 1),
                                   Skip(2, "contract's_corresponding_time=20261116085630xyz\n"),
                                   Skip(3, "bin_file_over_tag")},
                                  1));
}

TEST_F(BinSentence, ATimeWithoutDigitsIsZero) {
    EXPECT_EQ(Load("5,AB\ncontract's_corresponding_time=\nbin_file_over_tag"), -1);
    EXPECT_EQ(insts, Insts_t{});
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO contract's_corresponding_time=0",
                       "WARN BinCreTime is not in the current date's 8-9 AM range.current "
                       "time:20261116093000, bintime:0.",
                       "WARN Bin is not validate"}));
}

TEST_F(BinSentence, TheBoundsOfTheTimeToTheSecond) {
    const auto isTaken = [this](const std::string& time) {
        return Load("contract's_corresponding_time=" + time + "\nbin_file_over_tag") == 0;
    };
    EXPECT_FALSE(isTaken("20261116075999"));
    EXPECT_TRUE(isTaken("20261116080000"));
    EXPECT_TRUE(isTaken("20261116102999"));
    EXPECT_FALSE(isTaken("20261116103000"));
    EXPECT_FALSE(isTaken("20261115085630"));
    EXPECT_FALSE(isTaken("20261117085630"));
    FakeClock::SetTime(150000);
    EXPECT_TRUE(isTaken("20261116200000"));
    EXPECT_TRUE(isTaken("20261116219999"));
    EXPECT_FALSE(isTaken("20261116220000"));
    EXPECT_FALSE(isTaken("20261116199999"));
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO contract's_corresponding_time=20261116199999",
                       "WARN BinCreTime is not in the current date's 8-9 PM range. current "
                       "time:20261116150000, Bintime:20261116199999.",
                       "WARN Bin is not validate"}));
}

TEST_F(BinSentence, LineNumbersBeginAgainBehind65535) {
    std::string text;
    for (int i = 0; i < 65537; ++i) {
        text += "1,A\n";
    }
    EXPECT_EQ(Load(text + g_tail), 0);
    const Lines_t lines = log.Lines();
    ASSERT_EQ(lines.size(), 2U + 65537U + 2U + 2U);
    EXPECT_EQ(lines[2 + 65534], Inst(1, "A", 65535));
    EXPECT_EQ(lines[2 + 65535], Inst(1, "A", 0));
    EXPECT_EQ(lines[2 + 65536], Inst(1, "A", 1));
    EXPECT_EQ(lines[2 + 65537], Skip(2, "contract's_corresponding_time=20261116085630\n"));
}

// The file in the auction of 08:40, the names with their indexes and the line of each.
class BinSentenceWrite : public BinSentence {
  protected:
    BinSentenceWrite() { FakeClock::Set(20261116, 84000); }
    static std::string Wrote(unsigned int index, const std::string& name) {
        return "INFO Write to bin :index:" + std::to_string(index) + ",inst:" + name + ",";
    }
};

TEST_F(BinSentenceWrite, ALineOf126Or127BytesIsWhole) {
    bin.Normal_FileInit();
    EXPECT_EQ(bin.Normal_WriteInstToBin(Rep(123, 'A'), 7), 0);
    EXPECT_EQ(FileText("bin"), "7," + Rep(123, 'A') + "\n");
    EXPECT_EQ(bin.Normal_WriteInstToBin(Rep(124, 'B'), 8), 0);
    EXPECT_EQ(FileText("bin"), "7," + Rep(123, 'A') + "\n8," + Rep(124, 'B') + "\n");
    EXPECT_EQ(log.Lines(), (Lines_t{Wrote(7, Rep(123, 'A')), Wrote(8, Rep(124, 'B'))}));
}

TEST_F(BinSentenceWrite, ALineOf128BytesLosesItsLineEndAndRunsIntoTheNext) {
    bin.Normal_FileInit();
    EXPECT_EQ(bin.Normal_WriteInstToBin(Rep(125, 'A'), 7), 0);
    EXPECT_EQ(FileText("bin"), "7," + Rep(125, 'A'));
    EXPECT_EQ(bin.Normal_WriteInstToBin("B", 8), 0);
    EXPECT_EQ(FileText("bin"), "7," + Rep(125, 'A') + "8,B\n");
    EXPECT_EQ(log.Lines(), (Lines_t{Wrote(7, Rep(125, 'A')), Wrote(8, "B")}));
}

TEST_F(BinSentenceWrite, ALongerLineLosesTheEndOfItsNameTooAndItsLogLineNamesItWhole) {
    bin.Normal_FileInit();
    EXPECT_EQ(bin.Normal_WriteInstToBin(Rep(197, 'A'), 7), 0);
    EXPECT_EQ(FileText("bin"), "7," + Rep(125, 'A'));
    EXPECT_EQ(bin.Normal_WriteInstToBin("B", 8), 0);
    EXPECT_EQ(FileText("bin"), "7," + Rep(125, 'A') + "8,B\n");
    EXPECT_EQ(log.Lines(), (Lines_t{Wrote(7, Rep(197, 'A')), Wrote(8, "B")}));
}

TEST_F(BinSentenceWrite, TheIndexCountsIntoThe127Bytes) {
    const std::vector<std::pair<std::size_t, std::string>> cases = {
        {120, "65535," + Rep(120, 'A') + "\n"},
        {121, "65535," + Rep(121, 'A')},
        {300, "65535," + Rep(121, 'A')}};
    for (const auto& [length, text] : cases) {
        log.Clear();
        bin.Normal_FileInit();
        EXPECT_EQ(bin.Normal_WriteInstToBin(Rep(length, 'A'), 65535), 0);
        EXPECT_EQ(FileText("bin"), text) << length;
        EXPECT_EQ(FileText("bin").size(), 127U) << length;
        EXPECT_EQ(log.Lines(), Lines_t{Wrote(65535, Rep(length, 'A'))});
    }
}

TEST_F(BinSentenceWrite, ACutLastLineCostsTheFileItsTime) {
    CZceDmaChanImpl::g_uiContractSettleTm = 85630;
    bin.Normal_FileInit();
    bin.Normal_WriteInstToBin(Rep(125, 'A'), 7);
    log.Clear();
    EXPECT_EQ(bin.WriteEndToBin(), 0);
    EXPECT_EQ(FileText("bin"), "7," + Rep(125, 'A') + g_tail);
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 20261116085630UL);
    EXPECT_EQ(log.Lines(), Lines_t{"INFO Write end tag to bin."});
    log.Clear();
    FakeClock::SetTime(93000);
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), -1);
    EXPECT_EQ(insts, Insts_t{});
    EXPECT_EQ(log.Lines(),
              (Lines_t{"WARN Error: 'contract's_corresponding_time=' not found in the file.\n",
                       "WARN Bin time check fail."}));
}

TEST_F(BinSentenceWrite, ALineOf127BytesIsReadBack) {
    CZceDmaChanImpl::g_uiContractSettleTm = 85630;
    bin.Normal_FileInit();
    bin.Normal_WriteInstToBin(Rep(124, 'A'), 7);
    bin.WriteEndToBin();
    EXPECT_EQ(FileText("bin"), "7," + Rep(124, 'A') + "\n" + g_tail);
    FakeClock::SetTime(93000);
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), 0);
    EXPECT_EQ(insts, (Insts_t{{Rep(124, 'A'), 7}}));
}

TEST_F(BinSentenceWrite, TheListAnewSaysTheEndTagOnlyAndIsReadWithItsFirstTime) {
    FakeClock::SetTime(93005);
    const Insts_t written{{Rep(124, 'A'), 1}, {Rep(125, 'B'), 2}, {"C", 3}};
    insts = written;
    EXPECT_EQ(bin.Intrade_WrInstFromFpga(), 0);
    EXPECT_EQ(insts, written);
    EXPECT_EQ(log.Lines(), Lines_t{"INFO Write end tag to bin."});
    EXPECT_EQ(FileText("bin"), "contract's_corresponding_time=20261116093005\n1," + Rep(124, 'A') +
                                   "\n2," + Rep(125, 'B') +
                                   "3,C\ncontract's_corresponding_time=20261116000000\n"
                                   "bin_file_over_tag");
    log.Clear();
    FakeClock::SetTime(93100);
    Insts_t read;
    CTernBinFile reader(read, 0);
    EXPECT_EQ(reader.Intrade_CheckAndGetAllInstFromBin(), 0);
    EXPECT_EQ(read, (Insts_t{{Rep(124, 'A'), 1}}));
    EXPECT_TRUE(log.Has("INFO contract's_corresponding_time=20261116093005"));
}

TEST_F(BinSentenceWrite, WithoutAFileALineThatWouldBeCutIsNothing) {
    EXPECT_EQ(bin.Normal_WriteInstToBin(Rep(125, 'A'), 7), 0);
    EXPECT_EQ(FileText("bin"), "(none)");
    EXPECT_EQ(log.Lines(), Lines_t{});
}

}  // namespace
