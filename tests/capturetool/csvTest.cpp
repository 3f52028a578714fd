// The rows of zce-capture export --csv: what is in each column, and that no byte of a message is
// left out.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "boardMessage.h"
#include "capturetool/CsvRow.h"

namespace velatest {
namespace {

using ZceCapture::CaptureMessage;
using ZceCaptureTool::CCsvRows;

constexpr int64_t TIME_NS = 1795135504123456789;  // 2026-11-20 08:45:04.123456789 at +08:00

class CsvRow : public testing::Test {
  protected:
    CsvRow() {
        setenv("TZ", "UTC-8", 1);
        tzset();
    }
    // The row without its line end.
    static std::string Row(const std::string& bytes, bool raw = false,
                           CaptureMessage message = {}) {
        std::vector<char> space(CCsvRows::LONGEST_ROW);
        message.bytes = {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
        if (message.packet == 0) {
            message.timeNs = TIME_NS;
            message.channel = 3;
            message.opening = 1;
            message.number = 9;
            message.packet = 17;
        }
        CCsvRows rows(raw);
        const std::string row(space.data(), rows.Write(message, space));
        EXPECT_EQ(row.find('\n'), row.size() - 1) << row;
        return row.substr(0, row.size() - 1);
    }
};

const std::string meta = "17,1795135504123456789,2026-11-20T08:45:04.123456789+08:00,0,3,1,9,0,";

std::string Hex(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
        text += "0123456789abcdef"[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

TEST_F(CsvRow, TheHeaderNamesEveryColumn) {
    EXPECT_EQ(CCsvRows::Header(),
              "packet,time_ns,time,bus,channel,opening,number,lost_before,type,size,seq,date,"
              "time_of_day,time_of_day_ns,name,index,table,levels,phase,last,open,high,low,"
              "pre_settle,volume,open_interest,last_volume,bid1,bid_volume1,ask1,ask_volume1,bid2,"
              "bid_volume2,ask2,ask_volume2,bid3,bid_volume3,ask3,ask_volume3,bid4,bid_volume4,"
              "ask4,ask_volume4,bid5,bid_volume5,ask5,ask_volume5,raw\n");
}

TEST_F(CsvRow, Level1) {
    EXPECT_EQ(
        Row(BoardMessage().Bytes()),
        meta +
            "17,148,1,20261120,085504,32104000000009,SR301,5,0,1,2,"
            "5612.5,5600,5620.25,5599.5,5601,1234,99999,12,5612,11,5613,258,,,,,,,,,,,,,,,,,");
}

TEST_F(CsvRow, Level5OfACombination) {
    BoardMessage message;
    message.type = 20;
    message.name = "SPD SR301&SR305X";  // no NUL
    message.last = -1;
    message.open = -10001;
    message.high = 0;
    message.low = -200000;
    message.preSettle = 9999;
    message.levels = {{-200000, -105000, 257, 67},
                      {-250000, -50000, 1, 2},
                      {-300000, 0, 3, 4},
                      {-350000, 50000, 5, 6},
                      {0, 100000, 0, 8}};
    EXPECT_EQ(Row(message.Bytes()),
              meta +
                  "20,244,1,20261120,085504,32104000000009,SPD SR301&SR305X,5,1,5,2,"
                  "-0.0001,-1.0001,0,-20,0.9999,1234,99999,12,-20,257,-10.5,67,-25,1,-5,2,-30,3,"
                  "0,4,-35,5,5,6,0,0,10,8,");
}

TEST_F(CsvRow, NamesWithWhatATableTakesForItsOwn) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"A,B", "\"A,B\""},
        {"A\"B\"", "\"A\"\"B\"\"\""},
        {"A\nB", "\"A\nB\""},
        {"A\rB", "\"A\rB\""},
        {"", ""},
        {" A ", " A "},
        {"\"", "\"\"\"\""},
        {"A'B;C", "A'B;C"},
        {std::string(16, '"'), "\"" + std::string(32, '"') + "\""}};
    for (const auto& [name, field] : cases) {
        BoardMessage message;
        message.name = name;
        const std::string bytes = message.Bytes();
        CaptureMessage place;
        place.packet = 1;
        place.channel = 3;
        std::vector<char> space(CCsvRows::LONGEST_ROW);
        place.bytes = {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
        const std::string row(space.data(), CCsvRows(false).Write(place, space));
        EXPECT_NE(row.find(",32104000000009," + field + ",5,0,1,2,"), std::string::npos) << row;
    }
}

TEST_F(CsvRow, RawHasEveryByteAndNoField) {
    const std::string bytes = BoardMessage().Bytes();
    EXPECT_EQ(Row(bytes, true), meta + "17,148," + std::string(37, ',') + Hex(bytes));
}

// A message that differs from the software board's in a single byte that has no column of its own,
// or whose type has another size, is another board's: its bytes are given.
TEST_F(CsvRow, BodiesOfAnotherBoardAreRaw) {
    const std::string good = BoardMessage().Bytes();
    const std::string zero(1, '\0');
    std::vector<std::string> others = {good + zero,
                                       good.substr(0, good.size() - 1),
                                       "\x11",
                                       OtherMessage(2, std::string(30, '\x7f')),
                                       OtherMessage(17, ""),
                                       OtherMessage(4000000000, "x")};
    // In the head: channel, length, zeroes; in the body: behind the name's end, table, levels,
    // zeroes.
    for (const unsigned int at : {4U, 5U, 6U, 7U, 8U, 11U, 12U + 30, 12U + 39, 12U + 42, 12U + 43,
                                  12U + 45, 12U + 47, 12U + 108, 12U + 111}) {
        std::string other = good;
        other[at] = static_cast<char>(other[at] ^ 4);
        others.push_back(other);
    }
    for (const std::string& other : others) {
        const std::string row = Row(other);
        const std::string end =
            "," + std::to_string(other.size()) + std::string(38, ',') + Hex(other);
        EXPECT_EQ(row.find(end), row.size() - end.size()) << row;
    }
    for (const unsigned int at : {12U + 40, 12U + 41, 12U + 44, 12U + 24, 12U + 28}) {
        std::string same = good;
        same[at] = static_cast<char>(same[at] ^ 4);
        EXPECT_EQ(Row(same).back(), ',') << at;
        EXPECT_NE(Row(same), Row(good)) << at;
    }
}

TEST_F(CsvRow, TheLargestNumbersAndTheLongestMessageHaveRoom) {
    CaptureMessage message;
    message.timeNs = std::numeric_limits<int64_t>::min();
    message.bus = 65535;
    message.channel = 15;
    message.opening = 65535;
    message.number = message.packet = message.lostBefore = std::numeric_limits<uint64_t>::max();
    BoardMessage body;
    body.type = 19;
    body.channel = 15;
    body.name = std::string(16, '"');
    const int64_t lowest = std::numeric_limits<int64_t>::min();
    body.last = body.open = body.high = body.low = body.preSettle = lowest;
    body.seq = body.volume = body.openInterest = std::numeric_limits<uint64_t>::max();
    body.lastVolume = std::numeric_limits<uint32_t>::max();
    body.levels = {5, {lowest, std::numeric_limits<int64_t>::max(), 4294967295, 4294967295}};
    const std::string price = "-922337203685477.5808";
    const std::string level = "," + price + ",4294967295,922337203685477.5807,4294967295";
    const std::string most = "18446744073709551615";
    EXPECT_EQ(Row(body.Bytes(), false, message),
              most + ",-9223372036854775808,1677-09-21T08:12:43.145224192+08:00,,15,65535," + most +
                  "," + most + ",19,244," + most + ",20261120,085504,32104000000009,\"" +
                  std::string(32, '"') + "\",5,0,5,2," + price + "," + price + "," + price + "," +
                  price + "," + price + "," + most + "," + most + ",4294967295" + level + level +
                  level + level + level + ",");
    const std::string longest(2048, '\xff');
    const std::string row = Row(longest, false, message);
    EXPECT_EQ(row.substr(row.size() - 4097), "," + Hex(longest));
    EXPECT_LT(row.size(), CCsvRows::LONGEST_ROW);
}

// A price as a decimal, by another way: as text that a point is put into.
std::string Decimal(int64_t price) {
    std::string digits = std::to_string(price < 0 ? -price : price);
    digits.insert(0, digits.size() < 5 ? 5 - digits.size() : 0, '0');
    std::string text = digits.substr(0, digits.size() - 4);
    std::string fraction = digits.substr(digits.size() - 4);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    text += fraction.empty() ? "" : "." + fraction;
    return (price < 0 ? "-" : "") + text;
}

TEST_F(CsvRow, NumbersOfEverySize) {
    std::mt19937_64 random(20261120);
    const auto any = [&random](unsigned int bits) {
        return random() >> (64 - 1 - random() % bits);
    };
    for (int k = 0; k < 3000; ++k) {
        BoardMessage message;
        message.volume = any(64);
        message.openInterest = any(64);
        message.lastVolume = static_cast<uint32_t>(any(32));
        message.last = static_cast<int64_t>(any(62)) * (random() % 2 == 0 ? 1 : -1);
        message.open = static_cast<int64_t>(any(30)) * (random() % 2 == 0 ? 1 : -1);
        message.high = static_cast<int64_t>(any(14));
        message.low = static_cast<int64_t>(any(20)) * 100;
        const std::string row = Row(message.Bytes());
        const std::string fields = "," + Decimal(message.last) + "," + Decimal(message.open) + "," +
                                   Decimal(message.high) + "," + Decimal(message.low) + ",5601," +
                                   std::to_string(message.volume) + "," +
                                   std::to_string(message.openInterest) + "," +
                                   std::to_string(message.lastVolume) + ",";
        EXPECT_NE(row.find(fields), std::string::npos) << row << "\n" << fields;
    }
}

TEST_F(CsvRow, ATimeOfDayHasSixDigits) {
    const std::vector<std::pair<uint32_t, std::string>> cases = {{0, "000000"},
                                                                 {5, "000005"},
                                                                 {90001, "090001"},
                                                                 {210000, "210000"},
                                                                 {4294967295, "4294967295"}};
    for (const auto& [time, text] : cases) {
        std::string bytes = BoardMessage().Bytes();
        bytes.replace(12 + 12, 4, Little(time, 4));
        EXPECT_NE(Row(bytes).find(",20261120," + text + ",32104000000009,"), std::string::npos);
    }
}

TEST_F(CsvRow, TimesOverASecondAndAChangeOfZone) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    const std::vector<std::pair<int64_t, std::string>> cases = {
        {1792889999999999999, "2026-10-25T02:59:59.999999999+02:00"},
        {1792890000000000000, "2026-10-25T02:00:00.000000000+01:00"},
        {1792889999000000001, "2026-10-25T02:59:59.000000001+02:00"},
        {-1, "1970-01-01T00:59:59.999999999+01:00"},
        {0, "1970-01-01T01:00:00.000000000+01:00"}};
    ZceCaptureTool::CTimeWriter times;
    for (const auto& [timeNs, text] : cases) {
        EXPECT_EQ(times.Iso(timeNs), text);
        EXPECT_EQ(times.Plain(timeNs), text.substr(0, 10) + " " + text.substr(11, 18));
    }
    EXPECT_EQ(times.Date(1792889999000000001), 20261025U);
}

}  // namespace
}  // namespace velatest
