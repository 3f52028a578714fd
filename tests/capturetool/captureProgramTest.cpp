// The command line of zce-capture.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "boardMessage.h"
#include "programRun.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

ProgramRun Tool(const std::string& arguments) {
    return ProgramRun("TZ=UTC-8 " ZCE_CAPTURE_PROGRAM " " + arguments + " 2>&1");
}

TEST(CaptureProgram, DoesWhatItsCommandsSay) {
    const TempDir dir(TempDir::Enter::yes);
    CaptureBytes().Add(1795135504, 5, Packet(BoardMessage(), 1)).Write("day.pcap");
    const ProgramRun info = Tool("info --burst-gap 7 day.pcap");
    EXPECT_EQ(info.status, 0);
    EXPECT_THAT(info.text, StartsWith("day.pcap\n  file      204 bytes, 1 packets"));
    EXPECT_THAT(info.text, HasSubstr("messages less than 7 us behind"));
    EXPECT_THAT(Tool("info --json day.pcap").text, StartsWith("{\n  \"files\": ["));
    const ProgramRun table = Tool(
        "export --csv --channel 0,3 --type 17 --from 08:45:04.000000005 "
        "--to 08:45:04.000000006 day.pcap");
    EXPECT_EQ(table.status, 0);
    EXPECT_THAT(table.text,
                HasSubstr(",raw\n1,1795135504000000005,2026-11-20T08:45:04.000000005+08:00,0,"
                          "3,1,1,0,17,148,1,20261120,085504,"));
    EXPECT_EQ(Tool("export --csv --raw day.pcap --output day.csv").text, "");
    EXPECT_THAT(WholeFile("day.csv"), HasSubstr(",17,148,,,,"));
    const ProgramRun full = Tool("export --csv day.pcap >/dev/full");
    EXPECT_EQ(full.status, 2);
    const ProgramRun verify = Tool("verify day.pcap");
    EXPECT_EQ(verify.status, 1);
    EXPECT_EQ(
        verify.text,
        "day.pcap: NOT VERIFIED: no sidecar day.pcap.json; 1 messages can be read; whether it "
        "is whole cannot be told: keep the .json file with it\n");
}

TEST(CaptureProgram, WhatIsWrongOnTheCommandLine) {
    const struct {
        const char* arguments;
        const char* text;
    } cases[] = {
        {"", "zce-capture: A subcommand is required\n"},
        {"look day.pcap",
         "zce-capture: The following arguments were not expected: look day.pcap\n"},
        {"info", "zce-capture: FILE is required\n"},
        {"export day.pcap", "zce-capture: --csv is required\n"},
        {"export --csv day.pcap --channel 16",
         "zce-capture: --channel: Value 16 not in range 0 to 15\n"},
        {"export --csv day.pcap --from noon",
         "zce-capture: noon is no time: HH:MM, HH:MM:SS or YYYY-MM-DDTHH:MM:SS\n"},
        {"info --burst-gap 0 day.pcap",
         "zce-capture: --burst-gap: Value 0 not in range 1 to 1000000\n"},
    };
    for (const auto& one : cases) {
        const ProgramRun run = Tool(one.arguments);
        EXPECT_EQ(run.status, 2) << one.arguments;
        EXPECT_EQ(run.text, one.text) << one.arguments;
    }
    EXPECT_THAT(Tool("--version").text, StartsWith("zce-capture "));
    EXPECT_THAT(Tool("--help").text, HasSubstr("export"));
}

}  // namespace
}  // namespace velatest
