#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "device/FeedAddress.h"
#include "device/Feeds.h"
#include "traffic/FeedFile.h"

namespace {

using ZceBoard::AddressKind;
using ZceBoard::AddressWords;
using ZceBoard::CFeeds;

TEST(FeedAddress, IsReadIntoTheRegistersWords) {
    struct Case {
        AddressKind kind;
        const char* text;
        AddressWords words;
    };
    for (const Case& good :
         {Case{AddressKind::Mac, "00:1b:21:aa:bb:cc", {0x001b, 0x21aabbcc}},
          Case{AddressKind::Mac, "FF:fe:0:1:a:0B", {0xfffe, 0x00010a0b}},
          Case{AddressKind::Ip, "192.168.1.10", {0xc0a8010a, 0}},
          Case{AddressKind::Ip, "0.0.0.0", {0, 0}},
          Case{AddressKind::Ip, "255.255.255.255", {0xffffffff, 0}},
          Case{AddressKind::Ip, "010.001.00.9", {0x0a010009, 0}},
          Case{AddressKind::Port, "1", {1, 0}}, Case{AddressKind::Port, "65535", {65535, 0}}}) {
        AddressWords words{7, 7};
        EXPECT_TRUE(ZceBoard::ParseAddress(good.kind, good.text, words)) << good.text;
        EXPECT_EQ(words, good.words) << good.text;
    }
}

TEST(FeedAddress, AnythingElseIsRefused) {
    struct Case {
        AddressKind kind;
        std::vector<const char*> texts;
    };
    for (const Case& bad :
         {Case{AddressKind::Mac,
               {"", "00:1b:21:aa:bb", "00:1b:21:aa:bb:", "00:1b:21:aa:bb:cc:dd",
                "00:1b:21:aa:bb:cg", "000:1b:21:aa:bb:cc", ":1b:21:aa:bb:cc", "00-1b-21-aa-bb-cc",
                "00:1b:21:aa:bb: cc", "0x:1b:21:aa:bb:cc", "-1:1b:21:aa:bb:cc", "239.1.1.5"}},
          Case{AddressKind::Ip,
               {"", "1.2.3", "1.2.3.", "1.2.3.4.5", "1.2.3.256", "1.2.3.-4", "1..2.3", ".1.2.3",
                "1.2.3.4 ", "1.2.3.0004", "1.2.3.a", "localhost"}},
          Case{AddressKind::Port,
               {"", "0", "65536", "99999", "100000", "-1", "+1", "030005", "0x7535", "30005 ",
                "3e4", "http"}}}) {
        for (const char* text : bad.texts) {
            AddressWords words{7, 8};
            EXPECT_FALSE(ZceBoard::ParseAddress(bad.kind, text, words)) << text;
            EXPECT_EQ(words, (AddressWords{7, 8})) << text;
        }
    }
}

TEST(FeedAddress, IsPrintedAsItIsWrittenAndHidesNothing) {
    EXPECT_EQ(FormatAddress(AddressKind::Mac, {0x001b, 0x21aabb0c}), "00:1b:21:aa:bb:0c");
    EXPECT_EQ(FormatAddress(AddressKind::Mac, {0x1001b, 0}), "100:1b:00:00:00:00");
    EXPECT_EQ(FormatAddress(AddressKind::Ip, {0xc0a8010a, 0}), "192.168.1.10");
    EXPECT_EQ(FormatAddress(AddressKind::Port, {4294967295U, 0}), "4294967295");
}

// A file of a test's own.
class FeedFile : public testing::Test {
  protected:
    FeedFile() {
        m_path = testing::TempDir() + "/zcefeeds.XXXXXX";
        close(mkstemp(m_path.data()));
    }
    ~FeedFile() override { unlink(m_path.c_str()); }

    // Why a file with this content is refused, without its path and a colon in front; "" if it is
    // not.
    std::string Refusal(const std::string& content) {
        std::ofstream(m_path, std::ios::trunc) << content;
        CFeeds feeds;
        std::string error;
        if (ReadFeedFile(m_path, feeds, error)) {
            EXPECT_EQ(error, "");
            return "";
        }
        EXPECT_EQ(error.substr(0, m_path.size() + 1), m_path + ":");
        return error.substr(m_path.size() + 1);
    }
    // A good file with `was` replaced by `is`.
    std::string RefusalWith(const std::string& was, const std::string& is) {
        std::string content = GOOD;
        content.replace(content.find(was), was.size(), is);
        return Refusal(content);
    }

    static constexpr const char* GOOD =
        "[config]\ndevice = xilinx0:0\n"
        "L5_DSTMAC = 01:00:5e:01:01:05 ; multicast\nL5_DSTIP = 239.1.1.5\nL5_DSTPORT = 30005\n"
        "L5_SRCMAC = 00:1b:21:aa:bb:05\nL5_SRCIP = 192.168.5.10\nL5_SRCPORT = 31005\n"
        "l1_dstmac = 01:00:5E:01:01:01\nL1_DSTIP=239.1.1.1\nL1_DSTPORT = 30001\n"
        "L1_SRCMAC = 00:1b:21:aa:bb:01\nL1_SRCIP = 192.168.1.10\nL1_SRCPORT = 31001\n"
        "[channel0]\ninsts = all\n";
    std::string m_path;
};

TEST_F(FeedFile, AHostsWholeFileIsTakenAndSoIsOneOfASingleFeed) {
    EXPECT_EQ(Refusal(GOOD), "");
    const std::string good = GOOD;
    EXPECT_EQ(Refusal("[config]\n" + good.substr(good.find("l1_dstmac"))), "");
}

TEST_F(FeedFile, ABadAddressIsNamedWithSectionKeyAndValue) {
    const std::string mac = ": a MAC address is six hexadecimal bytes, like 01:00:5e:01:01:05";
    const std::string ip = ": an IP address is four numbers from 0 to 255, like 239.1.1.5";
    const std::string port = ": a port is a decimal number from 1 to 65535, without leading 0";
    EXPECT_EQ(RefusalWith("00:1b:21:aa:bb:05", "00:1b:21:aa:bb"),
              "6: [config] l5_srcmac = 00:1b:21:aa:bb" + mac);
    EXPECT_EQ(RefusalWith("01:00:5E:01:01:01", "gateway"), "9: [config] l1_dstmac = gateway" + mac);
    EXPECT_EQ(RefusalWith("239.1.1.5", "239.1.1.500"), "4: [config] l5_dstip = 239.1.1.500" + ip);
    EXPECT_EQ(RefusalWith("192.168.1.10", ""), "13: [config] l1_srcip = " + ip);
    EXPECT_EQ(RefusalWith("30001", "0"), "11: [config] l1_dstport = 0" + port);
    EXPECT_EQ(RefusalWith("31005", "0x791d"), "8: [config] l5_srcport = 0x791d" + port);
}

TEST_F(FeedFile, AFeedHasAllOfItsSixAddressesOrNone) {
    const std::string why = " is missing: a feed has all of its six addresses or none";
    EXPECT_EQ(RefusalWith("L5_DSTMAC = 01:00:5e:01:01:05 ; multicast\n", ""),
              "1: [config] L5_DSTMAC" + why);
    EXPECT_EQ(RefusalWith("L1_SRCPORT = 31001\n", ""), "1: [config] L1_SRCPORT" + why);
    EXPECT_EQ(Refusal("[config]\nL1_SRCPORT = 31001\n"), "1: [config] L1_DSTMAC" + why);
}

TEST_F(FeedFile, AMisspelledKeyOfAFeedIsNamed) {
    EXPECT_EQ(RefusalWith("L5_DSTMAC", "L5_DESTMAC"),
              "3: [config] l5_destmac: there is no such address of a feed");
    EXPECT_EQ(Refusal("[config]\nl1_port = 5\n"),
              "2: [config] l1_port: there is no such address of a feed");
}

TEST_F(FeedFile, WithoutAnyFeedItIsRefused) {
    EXPECT_EQ(Refusal(""), " there is no section [config]");
    EXPECT_EQ(RefusalWith("[config]", "[feeds]"), " there is no section [config]");
    EXPECT_EQ(Refusal("[config]\ndevice = xilinx0:0\n"), "1: [config] names no feed");
    EXPECT_EQ(Refusal("[config]\n"), "1: [config] names no feed");
}

TEST_F(FeedFile, WhatIsNoIniFileIsRefused) {
    EXPECT_EQ(Refusal("[config]\nthis is no line of it\n"),
              "2: syntax error: this is no line of it");
    EXPECT_EQ(RefusalWith("239.1.1.5", std::string(5000, '1')).substr(0, 23),
              "4: the line is too long");
}

TEST_F(FeedFile, AFileThatCannotBeReadIsNamedWithTheReason) {
    CFeeds feeds;
    std::string error;
    EXPECT_FALSE(ReadFeedFile(m_path + ".absent", feeds, error));
    EXPECT_EQ(error, m_path + ".absent: No such file or directory");
    EXPECT_FALSE(ReadFeedFile("", feeds, error));
    EXPECT_EQ(error, ": No such file or directory");
    EXPECT_FALSE(ReadFeedFile("/", feeds, error));
    EXPECT_EQ(error, "/: Is a directory");
}

TEST_F(FeedFile, TheExampleIsThatOfTheMastersExample) {
    const auto read = [](const std::string& name) {
        std::ifstream file(std::string(ZCE_EXAMPLES) + "/config/" + name);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            if (line.rfind("L5_", 0) == 0 || line.rfind("L1_", 0) == 0) {
                lines.push_back(line);
            }
        }
        return lines;
    };
    EXPECT_EQ(read("feeds.ini").size(), 12U);
    EXPECT_EQ(read("feeds.ini"), read("master.ini"));
    CFeeds feeds;
    std::string error;
    EXPECT_TRUE(ReadFeedFile(std::string(ZCE_EXAMPLES) + "/config/feeds.ini", feeds, error))
        << error;
}

}  // namespace
