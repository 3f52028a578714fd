// What zce-check finds in the feeds' switches and addresses, and what it says the board gets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "configRun.h"

namespace velatest {

namespace {

using testing::HasSubstr;

constexpr const char* L1 =
    "L1_DSTMAC = 01:00:5e:01:01:01\nL1_DSTIP = 239.1.1.1\nL1_DSTPORT = 30001\n"
    "L1_SRCMAC = 00:1b:21:aa:bb:01\nL1_SRCIP = 192.168.1.10\nL1_SRCPORT = 31001\n";
// All but the destination's MAC and IP address and the source's port, on lines 9 to 11.
constexpr const char* L5_REST =
    "L5_DSTPORT = 30005\nL5_SRCMAC = 00:1b:21:aa:bb:05\nL5_SRCIP = 192.168.5.10\n";

std::string FeedsIn(const std::string& text) {
    return text.substr(text.find("\nL1 ") + 1);
}

TEST(CheckFeeds, NotDisabled) {
    EXPECT_EQ(FindingsBelowDevice("czce_level1 = Disabled\n"),
              "c.ini:3: error: [config] czce_level1 = Disabled: L1 stays on: only the exact word "
              "disabled switches it off (not-disabled)\n"
              "    -> write disabled\n");
    EXPECT_THAT(FindingsBelowDevice("czce_level2 = off\n"), HasSubstr("L5 stays on"));
}

TEST(CheckFeeds, OddFeedSwitch) {
    EXPECT_EQ(FindingsBelowDevice("czce_level2 = yes\n"),
              "c.ini:3: warning: [config] czce_level2 = yes: L5 stays on: only the exact word "
              "disabled switches it off (odd-feed-switch)\n"
              "    -> write enabled or disabled\n");
}

TEST(CheckFeeds, FeedsOff) {
    EXPECT_EQ(FindingsBelowDevice("czce_level1 = disabled\nczce_level2 = disabled\n"),
              "c.ini:4: warning: [config] czce_level2 = disabled: both feeds are off: nobody "
              "receives any data (feeds-off)\n"
              "    -> take disabled away from one of them\n");
}

TEST(CheckFeeds, BadMac) {
    EXPECT_EQ(FindingsBelowDevice(std::string(L1) + L5_REST +
                                  "L5_DSTMAC = 01:00:5e:01:01\nL5_DSTIP = 239.1.1.5\n"
                                  "L5_SRCPORT = 31005\n"),
              "c.ini:12: error: [config] L5_DSTMAC = 01:00:5e:01:01: it is no MAC address: the "
              "board gets 01:00:5e:01:01:00, and counts it as one of the six (bad-mac)\n"
              "    -> write six hexadecimal bytes, as 01:00:5e:01:01:05\n");
}

TEST(CheckFeeds, BadIp) {
    EXPECT_EQ(FindingsBelowDevice(std::string(L1) + L5_REST +
                                  "L5_DSTMAC = 1:0:5E:1:1:5\nL5_DSTIP = 239.1.1.256\n"
                                  "L5_SRCPORT = 31005\n"),
              "c.ini:13: error: [config] L5_DSTIP = 239.1.1.256: it is no IPv4 address: the board "
              "gets 239.1.1.0, and counts it as one of the six (bad-ip)\n"
              "    -> write four numbers from 0 to 255, as 239.1.1.5\n");
    EXPECT_THAT(FindingsBelowDevice("L5_DSTIP =\n"),
                HasSubstr("L5_DSTIP: it is no IPv4 address: the board gets 0.0.0.0"));
}

TEST(CheckFeeds, BadPort) {
    const std::string begin =
        std::string(L1) + L5_REST + "L5_DSTMAC = 01:00:5e:01:01:05\nL5_DSTIP = 239.001.001.005\n";
    EXPECT_EQ(FindingsBelowDevice(begin + "L5_SRCPORT = 70000\n"),
              "c.ini:14: error: [config] L5_SRCPORT = 70000: there is no port 70000: the board "
              "gets 0x11170 (bad-port)\n"
              "    -> write a port from 1 to 65535\n");
    EXPECT_EQ(
        FindingsBelowDevice(begin + "L5_SRCPORT = 0\n"),
        "c.ini:9: error: [config] L5_DSTPORT: L5 has 5 of its 6 addresses: the board's switch "
        "0x300 stays closed (feed-incomplete)\n"
        "    -> add L5_SRCPORT\n"
        "c.ini:14: error: [config] L5_SRCPORT = 0: a port of 0 counts as absent (bad-port)\n"
        "    -> write the port of the exchange's notice\n");
}

TEST(CheckFeeds, FeedIncomplete) {
    EXPECT_EQ(FindingsBelowDevice("czce_level1 = disabled\nL5_DSTIP = 239.1.1.5\n"
                                  "L5_DSTMAC = 01:00:5e:01:01:05\n"),
              "c.ini:4: error: [config] L5_DSTIP: L5 has 2 of its 6 addresses: the board's switch "
              "0x300 stays closed (feed-incomplete)\n"
              "    -> add L5_DSTPORT, L5_SRCMAC, L5_SRCIP and L5_SRCPORT\n");
}

TEST(CheckFeeds, FeedWithoutAddresses) {
    EXPECT_EQ(FindingsBelowDevice(L1),
              "c.ini:1: warning: [config] L5 is on and has no address, unlike L1: the board's "
              "switch 0x300 stays as it is (feed-without-addresses)\n"
              "    -> add its six addresses, or write czce_level2 = disabled\n");
    EXPECT_EQ(FindingsBelowDevice(std::string(L1) + "czce_level2 = disabled\n"), "");
}

TEST(CheckFeeds, TheReportSaysWhatTheBoardGets) {
    EXPECT_EQ(FeedsIn(ConfigRun("[config]\ndevice = xilinx0:0\nczce_level2 = disabled\n" +
                                std::string(L1))
                          .Text()),
              "L1 on, 6 of 6 addresses: switch 0x310 opens\n"
              "   to   01:00:5e:01:01:01 239.1.1.1:30001\n"
              "   from 00:1b:21:aa:bb:01 192.168.1.10:31001\n"
              "L5 off, no addresses: switch 0x300 stays as it is\n"
              "\n"
              "zce-check: fine\n");
}

TEST(CheckFeeds, AMalformedAddressIsShownAsTheRegistersHaveIt) {
    const ConfigRun run(
        "[config]\ndevice = xilinx0:0\nczce_level1 = disabled\nL5_SRCMAC = 1:x\nL5_SRCIP = 9.8\n"
        "L5_SRCPORT = -1\n");
    EXPECT_THAT(run.Text(), HasSubstr("L5 on, 3 of 6 addresses: switch 0x300 stays closed\n"
                                      "   to   - -:-\n"
                                      "   from 01:00:00:00:00:00 9.8.0.0:4294967295\n"));
    const std::map<unsigned long, unsigned int> written = {
        {0x305, 0x0100}, {0x306, 0}, {0x307, 0x09080000}, {0x308, 0xFFFFFFFF}};
    EXPECT_EQ(run.Result().library.registers, written);
}

}  // namespace

}  // namespace velatest
