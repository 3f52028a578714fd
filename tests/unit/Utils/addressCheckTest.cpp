#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "VelaZceUtils.h"
#include "logCapture.h"

namespace {

using Bytes = std::array<unsigned char, 6>;

constexpr char MAC_LENGTH_TEXT[] =
    "Error: The MAC address should contain 17 characters, including 6 hex digits and 5 \":\" \n";
constexpr char MAC_DIGIT_TEXT[] =
    "Error: The MAC address should contain 6 hex digits, separated by \":\".\n";
constexpr char MAC_SEPARATOR_TEXT[] =
    "Error: The MAC address should contain 5 \":\", separated by hex digits.\n";
constexpr char IP_LENGTH_TEXT[] =
    "Error: The IP address should contain 4 numbers separated by dots.\n";
constexpr char IP_CHARACTER_TEXT[] = "Error: The IP address should contain only digits and dots.\n";
constexpr char IP_NUMBER_TEXT[] =
    "Error: The IP address should contain 4 numbers between 0 and 255, separated by dots.\n";

struct Case {
    const char* address;
    const char* complaint;  // empty: valid
};

void Check(bool (*isValid)(const char*), const std::vector<Case>& cases) {
    for (const Case& at : cases) {
        bool valid = false;
        std::string text;
        {
            const velatest::StdoutCapture out;
            valid = isValid(at.address);
            text = out.Text();
        }
        const std::string expected = at.complaint;
        EXPECT_EQ(valid, expected.empty()) << at.address;
        EXPECT_EQ(text, expected) << at.address;
    }
}

TEST(IsValidMac, Accepts17CharactersOfDigitsAndColons) {
    Check(IsValidMac, {{"01:23:45:67:89:aB", ""}, {"CD:ef:00:FF:9a:A9", ""}});
}

TEST(IsValidMac, WrongLength) {
    Check(IsValidMac, {{"", MAC_LENGTH_TEXT},
                       {"01:23:45:67:89:a", MAC_LENGTH_TEXT},
                       {"01:23:45:67:89:abc", MAC_LENGTH_TEXT},
                       {nullptr, MAC_LENGTH_TEXT}});
}

TEST(IsValidMac, NoDigitAtAnyPlaceOfADigit) {
    const std::string good = "01:23:45:67:89:ab";
    for (const std::size_t at : {0U, 1U, 3U, 4U, 6U, 7U, 9U, 10U, 12U, 13U, 15U, 16U}) {
        for (const char wrong : {'g', 'G', '/', ':', '@', '`', ' '}) {
            std::string mac = good;
            mac[at] = wrong;
            Check(IsValidMac, {{mac.c_str(), MAC_DIGIT_TEXT}});
        }
    }
}

TEST(IsValidMac, NoColonAtAnyPlaceOfAColon) {
    for (const std::size_t at : {2U, 5U, 8U, 11U, 14U}) {
        std::string mac = "01:23:45:67:89:ab";
        mac[at] = '-';
        Check(IsValidMac, {{mac.c_str(), MAC_SEPARATOR_TEXT}});
        mac[at] = '0';
        Check(IsValidMac, {{mac.c_str(), MAC_SEPARATOR_TEXT}});
    }
}

TEST(IsValidMac, TheFirstFaultIsNamed) {
    Check(IsValidMac,
          {{"0g-23:45:67:89:ab", MAC_DIGIT_TEXT}, {"01-g3:45:67:89:ab", MAC_SEPARATOR_TEXT}});
}

TEST(IsValidIp, AcceptsFourNumbersUpTo255) {
    Check(
        IsValidIp,
        {{"0.0.0.0", ""}, {"255.255.255.255", ""}, {"192.168.1.10", ""}, {"001.002.003.004", ""}});
}

TEST(IsValidIp, LengthIs7To15) {
    Check(IsValidIp, {{"", IP_LENGTH_TEXT},
                      {"1.1.1.", IP_LENGTH_TEXT},
                      {"255.255.255.2555", IP_LENGTH_TEXT},
                      {nullptr, IP_LENGTH_TEXT}});
}

TEST(IsValidIp, OnlyDigitsAndDots) {
    Check(IsValidIp, {{"1.2.3.a", IP_CHARACTER_TEXT},
                      {" 1.2.3.4", IP_CHARACTER_TEXT},
                      {"-1.2.3.4", IP_CHARACTER_TEXT},
                      {"1.2.3.999x", IP_CHARACTER_TEXT},
                      {"1/2.3.4", IP_CHARACTER_TEXT},
                      {"1:2.3.4", IP_CHARACTER_TEXT}});
}

TEST(IsValidIp, NumbersAbove255AndAFifthNumberAreRejected) {
    Check(IsValidIp, {{"256.1.1.1", IP_NUMBER_TEXT},
                      {"1.1.1.256", IP_NUMBER_TEXT},
                      {"1.2.3.4.5", IP_NUMBER_TEXT},
                      {"1.2.3.4..5", IP_NUMBER_TEXT},
                      {"999999999999999", IP_NUMBER_TEXT},
                      {"4294967296.1.1", IP_NUMBER_TEXT}});
}

TEST(IsValidIp, FewerNumbersAndEmptyOnesPass) {
    Check(IsValidIp, {{"100.100", ""},
                      {"0000255", ""},
                      {"1..2..3", ""},
                      {"1..2.3.4", ""},
                      {".......", ""},
                      {"1.2.3.4.", ""},
                      {".1.2.3.4", ""}});
}

// Result and bytes of ipStr2val; bytes that it left alone are 0xEE.
void CheckParse(const char* text, int result, const Bytes& expected) {
    Bytes bytes;
    bytes.fill(0xEE);
    EXPECT_EQ(ipStr2val(text, bytes.data()), result) << text;
    EXPECT_EQ(bytes, expected) << text;
}

TEST(IpStr2Val, ReadsUpToFiveNumbers) {
    CheckParse("7", 0, {7, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    CheckParse("192.168.1.10", 0, {192, 168, 1, 10, 0xEE, 0xEE});
    CheckParse("1.2.3.4.5", 0, {1, 2, 3, 4, 5, 0xEE});
    CheckParse("1.2.3.4.5.6", -1, {1, 2, 3, 4, 5, 0xEE});
    CheckParse("1.2.3.4.5.", -1, {1, 2, 3, 4, 5, 0xEE});
}

TEST(IpStr2Val, TextMustEndBehindTheLastNumber) {
    CheckParse("", -1, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    CheckParse("a", -1, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    CheckParse("1.2.3.4 ", -1, {1, 2, 3, 4, 0xEE, 0xEE});
    CheckParse("1x2", -1, {1, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    CheckParse("1.2.", -1, {1, 2, 0xEE, 0xEE, 0xEE, 0xEE});
    CheckParse("1..2", -1, {1, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    CheckParse("1.x", -1, {1, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    CheckParse("-1", -1, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
}

TEST(IpStr2Val, KeepsTheLowByteOfANumber) {
    CheckParse("256.257.511", 0, {0, 1, 255, 0xEE, 0xEE, 0xEE});
}

TEST(IpStr2Val, LowByte34IsRejectedAtOnce) {
    CheckParse("34.1", -1, {34, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    CheckParse("1.2.34", -1, {1, 2, 34, 0xEE, 0xEE, 0xEE});
    CheckParse("1.290.3", -1, {1, 34, 0xEE, 0xEE, 0xEE, 0xEE});
    CheckParse("33.35", 0, {33, 35, 0xEE, 0xEE, 0xEE, 0xEE});
}

TEST(IpStr2Val, OnlyTheFirst20CharactersCount) {
    CheckParse("100.100.100.100.1234", 0, {100, 100, 100, 100, 210, 0xEE});
    CheckParse("100.100.100.100.12345", 0, {100, 100, 100, 100, 210, 0xEE});
    CheckParse("100.100.100.100.1234 trailing", 0, {100, 100, 100, 100, 210, 0xEE});
}

TEST(IpStr2Val, NullIsRefused) {
    CheckParse(nullptr, -1, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    EXPECT_EQ(ipStr2val("1.2.3.4", nullptr), -1);
}

TEST(ContainsDigit, FindsAnyDecimalDigit) {
    for (const char* text : {"0", "a9", "SR209", " 5 "}) {
        EXPECT_TRUE(contains_digit(text)) << text;
    }
    for (const char* text : {"", "SR", "/:", "aF"}) {
        EXPECT_FALSE(contains_digit(text)) << text;
    }
    EXPECT_FALSE(contains_digit(nullptr));
}

}  // namespace
