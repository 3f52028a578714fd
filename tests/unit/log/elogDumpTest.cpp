#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

#include "fakeClock.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"
#include "logFiles.h"

namespace {

using velatest::FakeClock;

class ElogDump : public testing::Test {
  protected:
    ElogDump() {
        FakeClock::Set(20261115, 93005);
        EXPECT_EQ(m_logger.Init(0, m_dir.path().c_str(), "fpga"), 0);
        m_start = File().size();
    }
    std::string File() const { return velatest::WholeFile(m_dir / "fpga_20261115.log"); }
    std::string Written() const { return File().substr(m_start); }

    velatest::TempDir m_dir;
    CRwLogger m_logger;
    std::size_t m_start = 0;
};

TEST_F(ElogDump, TwentyBytesOfWidth16AreTwoRows) {
    const velatest::StdoutCapture out;
    const char data[] = "ABCDEFGHIJKLMNOPQRS";  // 20 bytes with its zero
    elog_hex_dump("msg", 16, data, 20);
    EXPECT_EQ(Written(),
              "[DEBUG  ]HEX msg: 0000-0010: 41 42 43 44 45 46 47 48  49 4A 4B 4C 4D 4E 4F 50    "
              "ABCDEFGHIJKLMNOP\n"
              "[DEBUG  ]HEX msg: 0010-0020: 51 52 53 00                                         "
              "QRS.\n");
    EXPECT_EQ(out.Text(), Written());
}

TEST_F(ElogDump, OnlyCharacters32To126AreShown) {
    const unsigned char data[] = {31, 32, 126, 127, 255};
    elog_hex_dump("n", 5, data, 5);
    EXPECT_EQ(Written(), "[DEBUG  ]HEX n: 0000-0005: 1F 20 7E 7F FF   . ~..\n");
}

TEST_F(ElogDump, ExtraSpaceFollowsEveryEighthPosition) {
    elog_hex_dump("n", 7, "aaaaaaa", 7);
    elog_hex_dump("n", 8, "aaaaaaaa", 8);
    elog_hex_dump("n", 9, "aaaaaaaaa", 9);
    EXPECT_EQ(Written(),
              "[DEBUG  ]HEX n: 0000-0007: 61 61 61 61 61 61 61   aaaaaaa\n"
              "[DEBUG  ]HEX n: 0000-0008: 61 61 61 61 61 61 61 61    aaaaaaaa\n"
              "[DEBUG  ]HEX n: 0000-0009: 61 61 61 61 61 61 61 61  61   aaaaaaaaa\n");
}

TEST_F(ElogDump, WidthOneAndWidth255) {
    elog_hex_dump("n", 1, "ab", 2);
    EXPECT_EQ(Written(),
              "[DEBUG  ]HEX n: 0000-0001: 61   a\n"
              "[DEBUG  ]HEX n: 0001-0002: 62   b\n");
    m_start = File().size();
    elog_hex_dump("n", 255, "a", 1);
    EXPECT_EQ(Written(),
              "[DEBUG  ]HEX n: 0000-00FF: 61 " + std::string(254 * 3 + 31 + 2, ' ') + "a\n");
}

TEST_F(ElogDump, LargestSizeEndsBeyondFourDigits) {
    const std::vector<unsigned char> data(65535, 'z');
    elog_hex_dump("n", 16, data.data(), 65535);
    EXPECT_EQ(velatest::LastLine(Written()),
              "[DEBUG  ]HEX n: FFF0-10000: 7A 7A 7A 7A 7A 7A 7A 7A  7A 7A 7A 7A 7A 7A 7A     "
              "  zzzzzzzzzzzzzzz\n");
}

TEST_F(ElogDump, LongRowsAreCutAt2048Bytes) {
    const std::string name(1900, 'n');
    const std::string text(200, 'a');
    elog_hex_dump(name.c_str(), 200, text.data(), 200);
    const std::string row = Written();
    EXPECT_EQ(row.size(), 2048U);
    EXPECT_EQ(row.substr(0, 1920), "[DEBUG  ]HEX " + name + ": 0000-");
    EXPECT_EQ(row.substr(2038), "61 61 61 \n");
}

TEST_F(ElogDump, NameBeyondTheBufferIsCut) {
    const std::string name(5000, 'n');
    elog_hex_dump(name.c_str(), 16, "a", 1);
    EXPECT_EQ(Written(), "[DEBUG  ]HEX " + std::string(2047 - 13, 'n') + "\n");
}

TEST_F(ElogDump, NeedsFilterLevel5AndASize) {
    elog_set_filter_level(4);
    elog_hex_dump("n", 16, "a", 1);
    elog_set_filter_level(5);
    elog_hex_dump("n", 16, "a", 0);
    EXPECT_EQ(Written(), "");
    elog_hex_dump("n", 1, "a", 1);
    EXPECT_EQ(Written(), "[DEBUG  ]HEX n: 0000-0001: 61   a\n");
}

TEST_F(ElogDump, WidthZeroIsRejectedWithOneLine) {
    elog_hex_dump("n", 0, "a", 1);
    EXPECT_EQ(Written(),
              "[WARN   ][20261115-09:30:05][log]Hex dump of n left out: no width or no data.\n");
}

TEST_F(ElogDump, NullBufferIsRejectedWithOneLine) {
    elog_hex_dump(nullptr, 16, nullptr, 1);
    EXPECT_EQ(Written(),
              "[WARN   ][20261115-09:30:05][log]Hex dump of  left out: no width or no data.\n");
}

TEST_F(ElogDump, RawTextHasNeitherHeaderNorNewline) {
    const velatest::StdoutCapture out;
    elog_write_raw("a%d", 1);
    elog_write_raw_large("b%d", 2);
    EXPECT_EQ(Written(), "a1b2");
    EXPECT_EQ(out.Text(), "a1b2");
}

TEST_F(ElogDump, RawTextIgnoresTheFilterLevel) {
    elog_set_filter_level(0);
    elog_write_raw("a");
    EXPECT_EQ(Written(), "a");
}

TEST_F(ElogDump, RawTextIsCutToItsBuffer) {
    elog_write_raw("%s", std::string(2047, 'a').c_str());
    EXPECT_EQ(Written(), std::string(2047, 'a'));
    m_start = File().size();
    elog_write_raw("%s", std::string(2048, 'a').c_str());
    EXPECT_EQ(Written(), std::string(2047, 'a'));
}

TEST_F(ElogDump, LargeRawTextIsCutToItsBuffer) {
    const velatest::StdoutCapture out;
    const std::string most(2'047'999, 'a');
    elog_write_raw_large("%s", most.c_str());
    EXPECT_TRUE(Written() == most);
    m_start = File().size();
    elog_write_raw_large("%s", std::string(2'048'000, 'a').c_str());
    EXPECT_TRUE(Written() == most);
}

TEST_F(ElogDump, RawTextThatCannotBeFormattedIsLeftOut) {
    elog_write_raw("%lc", static_cast<wint_t>(0x7fffffff));
    EXPECT_EQ(Written(), "");
}

}  // namespace
