#include "capturetool/CsvRow.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>

#include "ZceBoardMsg.h"
#include "capture/ZceCapture.h"
#include "capturetool/BoardBody.h"

namespace ZceCaptureTool {

namespace {

using ZceCapture::CaptureMessage;
using ZceCapture::CCaptureReader;

constexpr std::string_view HEADER =
    "packet,time_ns,time,bus,channel,opening,number,lost_before,type,size,"
    "seq,date,time_of_day,time_of_day_ns,name,index,table,levels,phase,"
    "last,open,high,low,pre_settle,volume,open_interest,last_volume,"
    "bid1,bid_volume1,ask1,ask_volume1,bid2,bid_volume2,ask2,ask_volume2,"
    "bid3,bid_volume3,ask3,ask_volume3,bid4,bid_volume4,ask4,ask_volume4,"
    "bid5,bid_volume5,ask5,ask_volume5,raw\n";

constexpr std::size_t LEVELS = 5;
constexpr std::size_t COLUMNS_OF_LEVEL = 4;
constexpr std::size_t COLUMNS_OF_BODY = 17 + LEVELS * COLUMNS_OF_LEVEL;  // seq to ask_volume5
constexpr std::size_t LONGEST_NUMBER = 24;  // of 64 bits, as a price too, with its comma
static_assert(std::count(HEADER.begin(), HEADER.end(), ',') == 10 + COLUMNS_OF_BODY);

// Every column's width at its most: a row always has room, and none of its parts need ask for it.
static_assert(10 * LONGEST_NUMBER + CTimeWriter::SIZE + COLUMNS_OF_BODY * LONGEST_NUMBER +
                  std::size_t{2} * ZCE_BOARD_NAME_SIZE + 2 + 2 * CCaptureReader::LARGEST_MESSAGE +
                  1 <=
              CCsvRows::LONGEST_ROW);

char* PutText(char* at, std::string_view text) {
    std::memcpy(at, text.data(), text.size());
    return at + text.size();
}

// The numbers below 10000 as text of four digits, the first in the lowest byte.
constexpr std::array<uint32_t, 10'000> MakeFourDigits() {
    std::array<uint32_t, 10'000> texts{};
    for (uint32_t number = 0; number < texts.size(); ++number) {
        texts[number] = 0x30303030U + number / 1000 + (number / 100 % 10 << 8U) +
                        (number / 10 % 10 << 16U) + (number % 10 << 24U);
    }
    return texts;
}
constexpr std::array<uint32_t, 10'000> FOUR_DIGITS = MakeFourDigits();
static_assert(std::endian::native == std::endian::little);

// Writes four bytes and takes `size` of them.
char* PutFour(char* at, uint32_t text, std::size_t size) {
    std::memcpy(at, &text, sizeof(text));
    return at + size;
}

// A number below 10000.
char* PutSmall(char* at, uint64_t number) {
    const int zeroes = (number < 1000 ? 1 : 0) + (number < 100 ? 1 : 0) + (number < 10 ? 1 : 0);
    return PutFour(at, FOUR_DIGITS[number] >> (8 * zeroes), static_cast<std::size_t>(4 - zeroes));
}

// Most of a table's time goes into its numbers, and most of these are below 10^8.
char* PutDigits(char* at, uint64_t number) {
    constexpr uint64_t group = FOUR_DIGITS.size();
    if (number < group) {
        return PutSmall(at, number);
    }
    if (number < group * group) {
        return PutFour(PutSmall(at, number / group), FOUR_DIGITS[number % group], 4);
    }
    return std::to_chars(at, at + LONGEST_NUMBER, number).ptr;
}

char* PutNumber(char* at, uint64_t number) {
    at = PutDigits(at, number);
    *at++ = ',';
    return at;
}

char* PutTime(char* at, int64_t timeNs) {
    at = std::to_chars(at, at + LONGEST_NUMBER, timeNs).ptr;
    *at++ = ',';
    return at;
}

// In quoted units, exactly, without zeroes at the end of the fraction.
char* PutPrice(char* at, int64_t price) {
    auto magnitude = static_cast<uint64_t>(price);
    if (price < 0) {
        *at++ = '-';
        magnitude = 0 - magnitude;
    }
    static_assert(ZCE_BOARD_PRICE_SCALE == FOUR_DIGITS.size());
    at = PutDigits(at, magnitude / ZCE_BOARD_PRICE_SCALE);
    const uint64_t fraction = magnitude % ZCE_BOARD_PRICE_SCALE;
    if (fraction != 0) {
        *at++ = '.';
        // The zeroes at the end are the highest bytes that differ from '0' in nothing.
        const uint32_t text = FOUR_DIGITS[fraction];
        const int zeroes = std::countl_zero(text ^ 0x30303030U) / 8;
        at = PutFour(at, text, static_cast<std::size_t>(4 - zeroes));
    }
    *at++ = ',';
    return at;
}

// hhmmss with its six digits.
char* PutTimeOfDay(char* at, uint32_t time) {
    for (uint32_t unit = 100'000; unit > 1 && time < unit; unit /= 10) {
        *at++ = '0';
    }
    return PutNumber(at, time);
}

// A name of NUL-padded bytes, in quotes if it has what a table would take for its own.
char* PutName(char* at, std::string_view name) {
    name = name.substr(0, name.find('\0'));
    if (name.find_first_of(",\"\r\n") == std::string_view::npos) {
        at = PutText(at, name);
    } else {
        *at++ = '"';
        for (const char letter : name) {
            if (letter == '"') {
                *at++ = '"';
            }
            *at++ = letter;
        }
        *at++ = '"';
    }
    *at++ = ',';
    return at;
}

char* PutEmpty(char* at, std::size_t columns) {
    std::memset(at, ',', columns);
    return at + columns;
}

char* PutHex(char* at, std::span<const unsigned char> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    for (const unsigned char byte : bytes) {
        *at++ = digits[byte >> 4U];
        *at++ = digits[byte & 15U];
    }
    return at;
}

char* PutQuote(char* at, const ZceBoardQuote_t& quote) {
    at = PutNumber(at, quote.ulSeq);
    at = PutNumber(at, quote.uiDate);
    at = PutTimeOfDay(at, quote.uiTime);
    at = PutNumber(at, quote.ulTimeNs);
    at = PutName(at, {quote.szName, sizeof(quote.szName)});
    at = PutNumber(at, quote.usIndex);
    at = PutNumber(at, quote.ucTable);
    at = PutNumber(at, quote.ucLevels);
    at = PutNumber(at, quote.ucPhase);
    at = PutPrice(at, quote.lLastPrice);
    at = PutPrice(at, quote.lOpenPrice);
    at = PutPrice(at, quote.lHighPrice);
    at = PutPrice(at, quote.lLowPrice);
    at = PutPrice(at, quote.lPreSettlePrice);
    at = PutNumber(at, quote.ulVolume);
    at = PutNumber(at, quote.ulOpenInterest);
    return PutNumber(at, quote.uiLastVolume);
}

// A body of the software board's, at `body`, with as many levels as its quote says.
char* PutBody(char* at, const unsigned char* body) {
    ZceBoardQuote_t quote;
    ZceBoardReadQuote(body, &quote);
    at = PutQuote(at, quote);
    const unsigned char* from = body + sizeof(quote);
    for (unsigned int k = 0; k < quote.ucLevels; ++k, from += sizeof(ZceBoardLevel_t)) {
        ZceBoardLevel_t level;
        std::memcpy(&level, from, sizeof(level));
        at = PutPrice(at, level.lBidPrice);
        at = PutNumber(at, level.uiBidVolume);
        at = PutPrice(at, level.lAskPrice);
        at = PutNumber(at, level.uiAskVolume);
    }
    return PutEmpty(at, (LEVELS - quote.ucLevels) * COLUMNS_OF_LEVEL);
}

}  // namespace

std::string_view CCsvRows::Header() {
    return HEADER;
}

std::size_t CCsvRows::Write(const CaptureMessage& message, std::span<char> space) {
    char* at = space.data();
    at = PutNumber(at, message.packet);
    at = PutTime(at, message.timeNs);
    at = PutText(at, m_times.Iso(message.timeNs));
    *at++ = ',';
    at = message.bus == ZCE_CAPTURE_BUS_UNKNOWN ? PutEmpty(at, 1) : PutNumber(at, message.bus);
    at = PutNumber(at, message.channel);
    at = PutNumber(at, message.opening);
    at = PutNumber(at, message.number);
    at = PutNumber(at, message.lostBefore);
    at = PutNumber(at, TypeOf(message.bytes));
    at = PutNumber(at, message.bytes.size());
    if (!m_bRaw && IsBoardMessage(message.bytes, message.channel)) {
        at = PutBody(at, message.bytes.data() + ZCE_BOARD_HEAD_SIZE);
    } else {
        at = PutHex(PutEmpty(at, COLUMNS_OF_BODY), message.bytes);
    }
    *at++ = '\n';
    return static_cast<std::size_t>(at - space.data());
}

}  // namespace ZceCaptureTool
