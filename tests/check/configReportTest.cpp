// What zce-check prints: the text of a whole file, and the JSON object.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "check/Library.h"
#include "check/Nearest.h"
#include "check/Report.h"
#include "configRun.h"
#include "log/elog.h"

namespace velatest {

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* INSTRUMENTS = "SR209\nSR209C5000\nCF209\nSPD-SR209&SR301\n";

json JsonOf(const ConfigRun& run) {
    return json::parse(ZceCheck::JsonReport(run.Result()));
}

TEST(CheckReport, AFileWithAList) {
    EXPECT_EQ(
        ConfigRun("[config]\ndevice = xilinx1:0\n[channel0]\ninsts = SR\noptions = recv\n"
                  "[channel12]\ninsts = all\noptions = norecv\nspd = recv\n",
                  INSTRUMENTS)
            .Text(),
        "board 1, DMA channel 0, no CPU binding\n\n"
        "channel  futures  options  combinations  rules\n"
        "      0        1        1             0  SR, with options\n"
        "     12        2        0             1  every future, no options; calendar spreads\n"
        "of the instruments of list; the other channels receive nothing\n\n"
        "L1 on, no addresses: switch 0x310 stays as it is\n"
        "L5 on, no addresses: switch 0x300 stays as it is\n\n"
        "zce-check: fine\n");
}

TEST(CheckReport, AFileWithoutAList) {
    const std::string text =
        ConfigRun(
            "[config]\ndevice = xilinx0:0\n[channel1]\ninsts = A,B,C,D,E,F,G1,H,I,J\n"
            "options = norecv\nips = recv\n")
            .Text();
    EXPECT_THAT(text, HasSubstr("channel  rules\n"
                                "      1  A, B, C, D, E, F, H, I, 2 more, no options; "
                                "inter-product spreads\n"
                                "the other channels receive nothing\n"));
}

TEST(CheckReport, AProcessOfAnotherChannelReadsItsDeviceAlone) {
    EXPECT_EQ(ConfigRun("[config]\ndevice = xilinx0:3\n").Text(),
              "board 0, DMA channel 3, no CPU binding\n"
              "this process reads its device and its cpucore alone: rules, feeds and addresses are "
              "those of the process on channel 0\n\n"
              "zce-check: fine\n");
}

TEST(CheckReport, ErrorsAndWarningsAreCounted) {
    const std::string text = ConfigRun("[config]\nx = 1\ny = 2\n").Text();
    EXPECT_EQ(text.substr(text.rfind("zce-check: ")), "zce-check: 1 error, 2 warnings\n");
    EXPECT_EQ(ConfigRun("[config]\ndevice = xilinx0:0\nxx = 1\n").Result().Status(), 1);
}

TEST(CheckReport, JsonHoldsTheFindings) {
    const json report = JsonOf(ConfigRun(
        "[config]\ndevice = xilinx0:0\n[channel1]\ninsts = SR\noptions = RECV\n", INSTRUMENTS));
    EXPECT_EQ(report["file"], "c.ini");
    EXPECT_EQ(report["status"], 2);
    EXPECT_EQ(report["errors"], 1);
    EXPECT_EQ(report["warnings"], 0);
    EXPECT_EQ(report["instruments"], "list");
    EXPECT_EQ(report["findings"],
              json::parse(R"([{"code": "not-recv", "severity": "error", "line": 5,
                   "section": "channel1", "key": "options", "value": "RECV",
                   "message": "it counts as norecv: only the exact word recv asks for them",
                   "hint": "write recv"}])"));
}

TEST(CheckReport, JsonHoldsAll16ChannelsAndBothFeeds) {
    const json report = JsonOf(ConfigRun(
        "[config]\ndevice = xilinx0:0\nczce_level1 = disabled\nL5_DSTPORT = 0x7535\n[channel1]\n"
        "insts = SR, CF209\noptions = recv\n",
        INSTRUMENTS));
    EXPECT_EQ(report["process"], json::parse(R"({"bus": 0, "channel": 0, "cpu": null})"));
    ASSERT_EQ(report["channels"].size(), 16U);
    EXPECT_EQ(report["channels"][1],
              json::parse(R"({"channel": 1, "section": true, "rules": {"ids": ["CF209"],
                   "classes": ["SR"], "all": false, "options": true, "ips": false, "spd": false},
                   "futures": 2, "options": 1, "combinations": 0})"));
    EXPECT_EQ(report["channels"][15],
              json::parse(R"({"channel": 15, "section": false, "rules": {"ids": [], "classes": [],
                   "all": false, "options": false, "ips": false, "spd": false},
                   "futures": 0, "options": 0, "combinations": 0})"));
    EXPECT_EQ(report["feeds"],
              json::parse(R"([{"feed": "L1", "on": false, "addresses": 0, "opens": false,
                    "destination": {"mac": null, "ip": null, "port": null},
                    "source": {"mac": null, "ip": null, "port": null}},
                   {"feed": "L5", "on": true, "addresses": 1, "opens": false,
                    "destination": {"mac": null, "ip": null, "port": 30005},
                    "source": {"mac": null, "ip": null, "port": null}}])"));
    EXPECT_EQ(report["registers"], json::parse(R"({"0x304": "0x00007535"})"));
}

TEST(CheckReport, JsonWithoutAListHasNoCounts) {
    const json report = JsonOf(ConfigRun("[config]\ndevice = xilinx0:0\n[channel0]\nspd = recv\n"));
    EXPECT_EQ(report["instruments"], nullptr);
    EXPECT_EQ(report["channels"][0]["futures"], nullptr);
    EXPECT_EQ(report["channels"][0]["rules"]["spd"], true);
}

TEST(CheckReport, JsonOfARefusedFileHasItsFindingsAlone) {
    const json report = JsonOf(ConfigRun("\xff\n"));
    EXPECT_EQ(report["process"], nullptr);
    EXPECT_THAT(report["channels"], IsEmpty());
    EXPECT_THAT(report["feeds"], IsEmpty());
    EXPECT_EQ(report["findings"][0]["code"], "bad-line");
}

TEST(CheckReport, WhatIsNotUtf8DoesNotSpoilTheJson) {
    const json report = JsonOf(ConfigRun("[config]\ndevice = xilinx0:0\nx\xff = \xfe\n"));
    EXPECT_EQ(report["findings"][0]["value"], "\xef\xbf\xbd");
}

TEST(CheckReport, NothingInAFileMovesTheCursor) {
    const std::string text =
        ConfigRun(
            "[config]\ndevice = xilinx0:0 \x1b[2J\nl1_dstport = 99999\x1b[2J\nd\x1b"
            "evice = 1\n"
            "[chan\x1bnel1]\n[channel2]\ninsts = sr\x1b[2J209, SR\x1b"
            "209C5000, SPD-\xc2\x9b"
            "1,"
            "SR\xff\uff0cCF\noptions = \x1b[2J\n")
            .Text();
    EXPECT_THAT(text, HasSubstr("sr\\x1b[2J209"));
    EXPECT_THAT(text, HasSubstr("\"SPD-\\xc2\\x9b1\" is one item"));
    EXPECT_THAT(text, HasSubstr("there is no port 99999\\x1b[2J"));
    EXPECT_THAT(text, HasSubstr("SR\\xff\uff0cCF"));
    EXPECT_EQ(text.find('\x1b'), std::string::npos) << text;
    EXPECT_EQ(text.find("\xc2\x9b"), std::string::npos) << text;
}

TEST(CheckReport, ALongTextIsNotCutInsideALetter) {
    std::string shown = "a";
    std::string text = "a";
    for (int letter = 0; letter < 39; ++letter) {
        shown += "\uff0c";
    }
    for (int letter = 0; letter < 50; ++letter) {
        text += "\uff0c";
    }
    EXPECT_EQ(ZceCheck::Shown(text), shown + "...");
    EXPECT_EQ(ZceCheck::Shown("\t\xe0\x82\x9b\xf0\x82\x82\x9b\x7f\xe4\xb8"),
              "\\t\\xe0\\x82\\x9b\\xf0\\x82\\x82\\x9b\\x7f\\xe4\\xb8");
    EXPECT_EQ(ZceCheck::Shown("\u4e2d\U0001f600\u00e9"), "\u4e2d\U0001f600\u00e9");
}

TEST(CheckReport, TheLibraryLogsToNobodyUnlessAsked) {
    const TempDir dir(TempDir::Enter::yes);
    std::FILE* const file = std::fopen("c.ini", "w");
    ASSERT_NE(file, nullptr);
    std::fputs("[config]\ndevice = intel0:0\n[channel0]\nspd = recv\n", file);
    std::fclose(file);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const ZceCheck::Understood silent = ZceCheck::AskLibrary("c.ini", nullptr, false);
    const ZceCheck::Understood told = ZceCheck::AskLibrary("c.ini", nullptr, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(silent.log, Not(HasSubstr("spd=recv")));
    EXPECT_THAT(told.log, HasSubstr("Error! Invalid parameter! Input: intel0:0 \n"));
    EXPECT_THAT(told.log, HasSubstr("Get dma chan fail!\n"));
    EXPECT_THAT(told.log, HasSubstr("[channel:0] spd=recv\n"));
    EXPECT_FALSE(elog_get_enabled());
    // No log file was opened: the service takes its first one here.
    EXPECT_EQ(elog_log_file_init("log", "fpga"), 0);
    EXPECT_FALSE(std::filesystem::is_empty("log"));
    elog_log_file_close();
}

TEST(CheckReport, NearNamesComeNearestFirst) {
    using ZceCheck::Nearest;
    EXPECT_THAT(Nearest("cpucroe", {"cpucore", "device"}), ElementsAre("cpucore"));
    EXPECT_THAT(Nearest("SR303", {"SR209", "SR301", "SR305", "SR307", "CF303"}),
                ElementsAre("SR301", "SR305", "SR307"));
    EXPECT_THAT(Nearest("sr", {"CF", "SR", "TA"}), ElementsAre("SR"));
    EXPECT_THAT(Nearest("xyz", {"device", "cpucore"}), IsEmpty());
    EXPECT_EQ(ZceCheck::Distance("insts", "Inst"), 1U);
    EXPECT_EQ(ZceCheck::Distance("ab", "ba"), 1U);
    EXPECT_EQ(ZceCheck::Distance("", "abc"), 3U);
}

}  // namespace

}  // namespace velatest
