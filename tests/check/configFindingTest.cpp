// What zce-check finds in the lines of a file, in its sections and keys, in device and cpucore.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <string>

#include "configRun.h"

namespace velatest {

namespace {

using testing::HasSubstr;
using testing::Not;

std::string Summary(const std::string& ini) {
    const std::string text = ConfigRun(ini).Text();
    return text.substr(text.rfind("zce-check: "));
}

TEST(CheckConfig, NothingIsFoundInAGoodFile) {
    const ConfigRun run("[config]\ndevice = xilinx0:0\n[channel0]\ninsts = SR\noptions = recv\n");
    EXPECT_EQ(run.Findings(), "");
    EXPECT_EQ(run.Result().Status(), 0);
    EXPECT_EQ(Summary("[config]\ndevice = xilinx0:0\n"), "zce-check: fine\n");
}

TEST(CheckConfig, BadLine) {
    const ConfigRun run("[config]\ndevice = xilinx0:0\nczce_level1\n");
    EXPECT_EQ(run.Text(),
              "c.ini:3: error: the line is no section, no comment and has no \"=\": the whole file "
              "is refused, and the start fails (bad-line)\n"
              "    -> correct the line, or begin it with ; to make it a comment\n\n"
              "the file is refused as a whole: nothing more can be said of it\n\n"
              "zce-check: 1 error\n");
    EXPECT_EQ(run.Result().Status(), 2);
}

TEST(CheckConfig, EveryBadLineIsNamed) {
    const std::string text = ConfigRun("a\n[config]\nb\ndevice = xilinx0:0\nc\n").Text();
    EXPECT_THAT(text, HasSubstr("c.ini:1: error: "));
    EXPECT_THAT(text, HasSubstr("c.ini:3: error: "));
    EXPECT_THAT(text, HasSubstr("c.ini:5: error: "));
    EXPECT_THAT(text, HasSubstr("zce-check: 3 errors\n"));
}

TEST(CheckConfig, LineTooLong) {
    EXPECT_EQ(
        ConfigRun("[config]\ndevice = xilinx0:0\n; " + std::string(1021, 'x') + "\n").Findings(),
        "c.ini:3: error: the line has more than 1022 characters (or a zero byte in it): the "
        "whole file is refused, and the start fails (line-too-long)\n"
        "    -> name classes or all instead of single instruments; cut comments\n");
    EXPECT_EQ(FindingsBelowDevice("; " + std::string(1020, 'x') + "\n"), "");
}

TEST(CheckConfig, UnfinishedLine) {
    EXPECT_EQ(FindingsBelowDevice("[channel0]\nspd = recv\\\n"),
              "c.ini:3: warning: [channel0] the section selects nothing: the channel gets no data "
              "(channel-selects-nothing)\n"
              "    -> add insts with options, ips or spd, or take the section away\n"
              "c.ini:4: error: the last line ends in a backslash: it waits for another one and is "
              "not read (unfinished-line)\n"
              "    -> take the backslash away\n");
}

TEST(CheckConfig, CommentContinues) {
    EXPECT_EQ(ConfigRun("[config]\n; see C:\\\ncpucore = 0\ndevice = xilinx0:0\n").Findings(),
              "c.ini:2: warning: the comment ends in a backslash: the line below belongs to it and "
              "is not read (comment-continues)\n"
              "    -> take the backslash away\n");
}

TEST(CheckConfig, AValueOverTwoLinesIsNoFinding) {
    EXPECT_EQ(FindingsBelowDevice("[channel0]\ninsts = SR, \\\n    CF\noptions = recv\n"), "");
}

TEST(CheckConfig, SectionNotBegun) {
    EXPECT_EQ(ConfigRun("[config]\ndevice = xilinx0:0\n[channel1] ; a=b\nspd = recv\n").Findings(),
              "c.ini:3: error: \"[channel1] ; a=b\" begins no section, because of what stands "
              "behind the bracket: the lines below belong to the section above "
              "(section-not-begun)\n"
              "    -> put the comment on a line of its own\n"
              "c.ini:4: error: [config] spd = recv: nothing reads spd in [config] "
              "(misplaced-key)\n"
              "    -> it belongs in a section [channel0] to [channel15]\n");
}

TEST(CheckConfig, ByteOrderMark) {
    EXPECT_THAT(ConfigRun("\xef\xbb\xbf[config]\ndevice = xilinx0:0\n").Findings(),
                HasSubstr("c.ini:1: warning: the file begins with a UTF-8 byte order mark, which "
                          "the reader takes for a part of the first line (byte-order-mark)\n"
                          "    -> save the file without it (\"UTF-8 without BOM\")\n"));
    EXPECT_THAT(ConfigRun("\xef\xbb\xbf[config]\ndevice = xilinx0:0\n").Findings(),
                HasSubstr("c.ini:1: error: "));
}

TEST(CheckConfig, ZeroByte) {
    using std::string_literals::operator""s;
    EXPECT_EQ(ConfigRun("\0\1\2\n[config]\ndevice = xilinx0:0\n"s).Findings(),
              "c.ini:1: warning: there is a zero byte in the line: the reader does not see what "
              "stands behind it (zero-byte)\n"
              "    -> write the line anew\n");
}

TEST(CheckConfig, ValueCut) {
    EXPECT_EQ(FindingsBelowDevice("[channel0]\noptions = recv\ninsts = SR;CF\n"),
              "c.ini:5: warning: [channel0] insts: the value ends at the \";\", which begins a "
              "comment: read as \"SR\", dropped: \";CF\" (value-cut)\n"
              "    -> put commas between the items; put a blank before a comment\n");
    EXPECT_THAT(FindingsBelowDevice("[channel0]\noptions = recv\ninsts = SR ; CF, TA\n"),
                HasSubstr("dropped: \"; CF, TA\" (value-cut)\n"));
    EXPECT_EQ(FindingsBelowDevice("[channel0]\noptions = recv\ninsts = SR ; sugar, ours\n"), "");
    EXPECT_EQ(ConfigRun("[config]\ndevice = xilinx0:0#left\n").Findings(),
              "c.ini:2: warning: [config] device = xilinx0:0: the value ends at the \"#\", which "
              "begins a comment: read as \"xilinx0:0\", dropped: \"#left\" (value-cut)\n"
              "    -> put a blank before the comment\n");
    EXPECT_EQ(ConfigRun("[config]\ndevice = \"xilinx0:0\" left slot\n").Findings(),
              "c.ini:2: warning: [config] device = xilinx0:0: what stands behind the closing quote "
              "is dropped: \"left slot\" (value-cut)\n"
              "    -> write all of the value between the quotes\n");
    EXPECT_EQ(ConfigRun("[config]\ndevice = \"xilinx0:0\" ; left slot\n").Findings(), "");
}

TEST(CheckConfig, QuoteNotClosed) {
    EXPECT_EQ(FindingsBelowDevice("[channel0]\noptions = recv\ninsts = \"SR\n"),
              "c.ini:5: warning: [channel0] insts: the quote is not closed: the value is \"SR\", "
              "comments included (quote-not-closed)\n"
              "    -> close the quote, or leave it out\n");
}

TEST(CheckConfig, DuplicateKey) {
    EXPECT_EQ(FindingsBelowDevice("Device = xilinx1:0\n"),
              "c.ini:3: warning: [config] Device = xilinx1:0: the key is there 2 times, the first "
              "time on line 2: only this last one counts (duplicate-key)\n"
              "    -> keep one of them\n");
}

TEST(CheckConfig, DuplicateSection) {
    EXPECT_EQ(FindingsBelowDevice("[channel1]\nips = recv\n[Channel1]\nspd = recv\n"),
              "c.ini:5: warning: [channel1] the section began on line 3 already: the keys of both "
              "add up (duplicate-section)\n"
              "    -> join the two, or give this one the name that was meant\n");
}

TEST(CheckConfig, UnknownSection) {
    EXPECT_EQ(FindingsBelowDevice("[logging]\nlevel = 1\n"),
              "c.ini:3: warning: [logging] nothing reads a section [logging] (unknown-section)\n"
              "    -> the sections are [config] and [channel0] to [channel15]\n");
}

TEST(CheckConfig, MisspeltSection) {
    EXPECT_EQ(FindingsBelowDevice("[chanel3]\nspd = recv\n"),
              "c.ini:3: error: [chanel3] nothing reads a section [chanel3] (misspelt-section)\n"
              "    -> did you mean [channel3]?\n");
    EXPECT_THAT(FindingsBelowDevice("[channel 3]\nspd = recv\n"),
                HasSubstr("-> did you mean [channel3]?\n"));
    EXPECT_THAT(FindingsBelowDevice("[channel03]\nspd = recv\n"),
                HasSubstr("-> did you mean [channel3]?\n"));
    EXPECT_THAT(FindingsBelowDevice("[channel16]\nspd = recv\n"),
                HasSubstr("-> the channels are [channel0] to [channel15]\n"));
    EXPECT_THAT(FindingsBelowDevice("[channel]\nspd = recv\n"),
                HasSubstr("-> the channels are [channel0] to [channel15]\n"));
}

TEST(CheckConfig, UnknownKey) {
    EXPECT_EQ(FindingsBelowDevice("operator = night shift\n"),
              "c.ini:3: warning: [config] operator = night shift: nothing reads operator in "
              "[config] (unknown-key)\n"
              "    -> take it away, or see docs/configuration.md for the keys there are\n");
}

TEST(CheckConfig, MisspeltKey) {
    EXPECT_EQ(FindingsBelowDevice("cpucroe = 1\n"),
              "c.ini:3: error: [config] cpucroe = 1: nothing reads cpucroe in [config] "
              "(misspelt-key)\n"
              "    -> did you mean cpucore?\n");
    EXPECT_EQ(FindingsBelowDevice("[channel2]\ninst = SR\nspd = recv\n"),
              "c.ini:4: error: [channel2] inst = SR: nothing reads inst in [channel2] "
              "(misspelt-key)\n"
              "    -> did you mean insts?\n");
}

TEST(CheckConfig, AKeyThatIsThereTwiceIsToldOnce) {
    EXPECT_EQ(FindingsBelowDevice("cpucroe = 1\ncpucroe = 2\n"),
              "c.ini:4: warning: [config] cpucroe = 2: the key is there 2 times, the first time on "
              "line 3: only this last one counts (duplicate-key)\n"
              "    -> keep one of them\n"
              "c.ini:4: error: [config] cpucroe = 2: nothing reads cpucroe in [config] "
              "(misspelt-key)\n"
              "    -> did you mean cpucore?\n");
}

TEST(CheckConfig, MisplacedKey) {
    EXPECT_EQ(ConfigRun("cpucore = 0\n[config]\ndevice = xilinx0:0\n[channel0]\nspd = recv\n"
                        "l1_dstport = 30001\n")
                  .Findings(),
              "c.ini:1: error: cpucore = 0: nothing reads cpucore before the first section "
              "(misplaced-key)\n"
              "    -> it belongs in [config]\n"
              "c.ini:6: error: [channel0] l1_dstport = 30001: nothing reads l1_dstport in "
              "[channel0] (misplaced-key)\n"
              "    -> it belongs in [config]\n");
}

TEST(CheckConfig, DeviceMissing) {
    EXPECT_EQ(ConfigRun("; nothing\n[config]\n").Findings(),
              "c.ini:2: error: [config] device: there is none: the start fails, and the process "
              "ends (device-missing)\n"
              "    -> write xilinx, the board (0 to 4), a colon and the DMA channel (0 to 15), as "
              "xilinx0:3\n");
    EXPECT_THAT(ConfigRun("").Findings(),
                HasSubstr("c.ini: error: [config] device: there is none"));
}

TEST(CheckConfig, BadDevice) {
    EXPECT_EQ(ConfigRun("[config]\ndevice = xilinx5:0\n").Findings(),
              "c.ini:2: error: [config] device = xilinx5:0: it names no board and channel: the "
              "start fails, and the process ends (bad-device)\n"
              "    -> write xilinx, the board (0 to 4), a colon and the DMA channel (0 to 15), as "
              "xilinx0:3\n");
    for (const char* const device : {"xilinx0:16", "xilinx0", "intel0:0", "xilinx0:255", "\"\""}) {
        EXPECT_THAT(ConfigRun("[config]\ndevice = " + std::string(device) + "\n").Findings(),
                    HasSubstr("(bad-device)"))
            << device;
    }
}

TEST(CheckConfig, DeviceCapitals) {
    EXPECT_EQ(ConfigRun("[config]\ndevice = Xilinx0:0\n").Findings(),
              "c.ini:2: warning: [config] device = Xilinx0:0: the start logs an ERROR line about "
              "capital letters, and goes on (device-capitals)\n"
              "    -> write xilinx in small letters\n");
}

TEST(CheckConfig, DeviceTextBehind) {
    EXPECT_EQ(ConfigRun("[config]\ndevice = xilinx0:0 (left slot)\n").Findings(),
              "c.ini:2: warning: [config] device = xilinx0:0 (left slot): what stands behind the "
              "channel is ignored: \" (left slot)\" (device-text-behind)\n"
              "    -> put a ; before a comment\n");
}

TEST(CheckConfig, CpuAbsent) {
    const std::string here = std::to_string(sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_EQ(FindingsBelowDevice("cpucore = 1024\n"),
              "c.ini:3: error: [config] cpucore = 1024: CPU 1024 is not there, or not for this "
              "process (this machine has " +
                  here +
                  ", counted from 0): the thread stays unbound (cpu-absent)\n"
                  "    -> name a CPU of the machine that will run it, or -1 for none\n");
}

TEST(CheckConfig, ACpuOfThisMachineIsNoFindingAndTheThreadIsNotBoundAfterwards) {
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof(before), &before), 0);
    int cpu = CPU_SETSIZE - 1;
    while (!CPU_ISSET(cpu, &before)) {
        --cpu;
    }
    EXPECT_EQ(FindingsBelowDevice("cpucore = " + std::to_string(cpu) + "\n"), "");
    cpu_set_t after;
    ASSERT_EQ(sched_getaffinity(0, sizeof(after), &after), 0);
    EXPECT_TRUE(CPU_EQUAL(&before, &after));
}

TEST(CheckConfig, BadNumber) {
    EXPECT_THAT(FindingsBelowDevice("cpucore = zero\n"),
                HasSubstr("c.ini:3: error: [config] cpucore = zero: \"zero\" is no number: it is "
                          "read as 0 (bad-number)\n"
                          "    -> write the digits alone\n"));
    EXPECT_THAT(FindingsBelowDevice("cpucore =\n"),
                HasSubstr("c.ini:3: error: [config] cpucore: \"\" is no number: it is read as 0 "
                          "(bad-number)\n"));
    EXPECT_THAT(FindingsBelowDevice("cpucore = 0x400\n"), Not(HasSubstr("bad-number")));
}

TEST(CheckConfig, ANumberThatTheReaderCutsIsABadNumber) {
    EXPECT_EQ(FindingsBelowDevice("cpucore = 4294967296\n"),
              "c.ini:3: error: [config] cpucore = 4294967296: 4294967296 is too large a number: it "
              "is read as 0 (bad-number)\n    -> write a smaller one\n");
    EXPECT_THAT(FindingsBelowDevice("cpucore = 4294967295\n"), HasSubstr("it is read as -1 (bad-"));
    EXPECT_EQ(FindingsBelowDevice("cpucore = -1\n"), "");
    EXPECT_THAT(FindingsBelowDevice("L1_DSTPORT = 4294968296\n"),
                HasSubstr("it is read as 1000 (bad-number)"));
    EXPECT_THAT(FindingsBelowDevice("L1_DSTPORT = 99999999999999999999\n"),
                HasSubstr("it is read as -1 (bad-number)"));
    EXPECT_THAT(FindingsBelowDevice("L1_DSTPORT = -1\n"), Not(HasSubstr("bad-number")));
}

TEST(CheckConfig, OctalNumber) {
    EXPECT_EQ(FindingsBelowDevice("l1_dstport = 010\nl1_dstmac = 0:0:0:0:0:0\nl1_dstip = 1.1.1.1\n"
                                  "l1_srcport = 1\nl1_srcmac = 0:0:0:0:0:0\nl1_srcip = 1.1.1.1\n"
                                  "czce_level2 = disabled\n"),
              "c.ini:3: warning: [config] l1_dstport = 010: a number that begins with 0 is octal: "
              "010 is read as 8 (octal-number)\n"
              "    -> leave the leading zeros out\n");
}

}  // namespace

}  // namespace velatest
