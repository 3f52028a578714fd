#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>

#include "VelaZceUtils.h"
#include "logCapture.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace {

constexpr char UNTOUCHED = '#';

// One call of FillDebugFileHex, and all that it left behind.
struct Filled {
    std::string buf;  // 16 bytes
    std::string file;
    std::string out;
};

Filled Fill(unsigned int bufLen, const unsigned char* data, unsigned int dataLen) {
    const velatest::TempDir dir;
    const std::string path = dir / "debug";
    const int fd = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
    EXPECT_NE(fd, -1);
    Filled result;
    result.buf.assign(16, UNTOUCHED);
    {
        const velatest::StdoutCapture out;
        FillDebugFileHex(result.buf.data(), bufLen, fd, data, dataLen);
        result.out = out.Text();
    }
    close(fd);
    result.file = velatest::WholeFile(path);
    return result;
}

// `text` and its zero, then bytes that were left alone.
std::string Buffer(const std::string& text) {
    std::string whole(16, UNTOUCHED);
    return whole.replace(0, text.size() + 1, std::string(text) + '\0');
}

constexpr unsigned char DATA[] = {0x00, 0x1F, 0xA5, 0xFF};

TEST(FillDebugFileHex, WritesTheCounterToTheFileAndThePairsToTheBuffer) {
    g_uiPktCnt = 42;
    const Filled filled = Fill(16, DATA, 4);
    EXPECT_EQ(filled.file, "42--");
    EXPECT_EQ(filled.buf, Buffer("001FA5FF\n"));
    EXPECT_EQ(filled.out, "");
    g_uiPktCnt = 0;
}

TEST(FillDebugFileHex, CounterStartsAtZero) {
    EXPECT_EQ(Fill(16, DATA, 1).file, "0--");
}

TEST(FillDebugFileHex, AllBytesFitExactly) {
    const Filled filled = Fill(10, DATA, 4);
    EXPECT_EQ(filled.buf, Buffer("001FA5FF\n"));
    EXPECT_EQ(filled.out, "");
}

TEST(FillDebugFileHex, OneByteTooFewInTheBuffer) {
    const Filled filled = Fill(9, DATA, 4);
    EXPECT_EQ(filled.buf, Buffer("001FA5\n"));
    EXPECT_EQ(filled.out, "Left 1 bytes not write into file. totalSizes:4, writed:3.\n");
}

TEST(FillDebugFileHex, EvenBufferOneByteShort) {
    const Filled filled = Fill(8, DATA, 4);
    EXPECT_EQ(filled.buf, Buffer("001FA5\n"));
    EXPECT_EQ(filled.out, "Left 1 bytes not write into file. totalSizes:4, writed:3.\n");
}

TEST(FillDebugFileHex, BufferOfTwoTakesTheLineEndAlone) {
    const Filled filled = Fill(2, DATA, 4);
    EXPECT_EQ(filled.buf, Buffer("\n"));
    EXPECT_EQ(filled.out, "Left 4 bytes not write into file. totalSizes:4, writed:0.\n");
    EXPECT_EQ(Fill(3, DATA, 4).buf, Buffer("\n"));
}

TEST(FillDebugFileHex, NoDataGivesTheLineEndAlone) {
    const Filled filled = Fill(16, DATA, 0);
    EXPECT_EQ(filled.buf, Buffer("\n"));
    EXPECT_EQ(filled.out, "");
    EXPECT_EQ(filled.file, "0--");
}

TEST(FillDebugFileHex, BuffersBelowTwoStayWithinThemselves) {
    EXPECT_EQ(Fill(1, DATA, 4).buf, Buffer(""));
    const Filled filled = Fill(0, DATA, 4);
    EXPECT_EQ(filled.buf, std::string(16, UNTOUCHED));
    EXPECT_EQ(filled.out, "Left 4 bytes not write into file. totalSizes:4, writed:0.\n");
}

TEST(FillDebugFileHex, NullDataAndNullBufferAreGuarded) {
    EXPECT_EQ(Fill(16, nullptr, 4).buf, Buffer("\n"));
    const velatest::StdoutCapture out;
    FillDebugFileHex(nullptr, 16, -1, DATA, 2);
    EXPECT_EQ(out.Text(), "Left 2 bytes not write into file. totalSizes:2, writed:0.\n");
}

class SeqNumbers : public testing::Test {
  protected:
    // What the check of `seq` under `key` prints.
    std::string Check(unsigned int seq, unsigned int key) {
        const velatest::StdoutCapture out;
        CheckSeqNumIncre(m_table.data(), seq, key);
        return out.Text();
    }
    std::array<unsigned int, 256> m_table{};
};

TEST_F(SeqNumbers, StepOfOneIsSilent) {
    EXPECT_EQ(Check(100, 3), "");  // the first of its key
    EXPECT_EQ(Check(101, 3), "");
    EXPECT_EQ(m_table[3], 101U);
}

TEST_F(SeqNumbers, AnyOtherStepIsReportedAndStored) {
    Check(100, 3);
    EXPECT_EQ(Check(102, 3), "ERROR! not equal!! old_seq 100, current seq 102. \n");
    EXPECT_EQ(Check(102, 3), "ERROR! not equal!! old_seq 102, current seq 102. \n");
    EXPECT_EQ(Check(50, 3), "ERROR! not equal!! old_seq 102, current seq 50. \n");
    EXPECT_EQ(Check(51, 3), "");
}

TEST_F(SeqNumbers, KeysAreApartByTheirLowByte) {
    Check(100, 0);
    EXPECT_EQ(Check(7, 255), "");
    EXPECT_EQ(Check(101, 256), "");
    EXPECT_EQ(Check(8, 0xFFFFFFFF), "");
    EXPECT_EQ(m_table[0], 101U);
    EXPECT_EQ(m_table[255], 8U);
}

TEST_F(SeqNumbers, NumbersWrapAround) {
    Check(0xFFFFFFFF, 1);
    EXPECT_EQ(Check(0, 1), "");
    EXPECT_EQ(Check(9, 1), "");  // 0 stands for "none yet"
}

TEST_F(SeqNumbers, NullTableIsGuarded) {
    const velatest::StdoutCapture out;
    CheckSeqNumIncre(nullptr, 1, 1);
    EXPECT_EQ(out.Text(), "");
}

}  // namespace
