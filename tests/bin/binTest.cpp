// zce-bin: what stands in a cache file, and whether a start would believe it. Each answer is
// compared with that of the library itself, which reads the same bytes at the same moment.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "VelaZceBinFile.h"
#include "bin/BinLook.h"
#include "fakeClock.h"
#include "log/elog.h"
#include "programRun.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using ZceBin::BinLook;
using ZceBin::Verdict;

const std::string tag = "bin_file_over_tag";

std::string Time(const std::string& digits) {
    return "contract's_corresponding_time=" + digits + "\n";
}

// A complete file of two instruments.
std::string Good(const std::string& time) {
    return "7,TA209\n12,SPD-SR209&SR301\n" + Time(time) + tag;
}

struct Case {
    const char* what;
    std::string bytes;
    unsigned int time;  // of 2026-11-20
    Verdict verdict;
    const char* reason;
};

const char* const daySession =
    "its time is not of this session: a start at 2026-11-20 09:30:00 believes 08:00:00 to 10:29:59 "
    "of the day";
const char* const nightSession =
    "its time is not of this session: a start at 2026-11-20 21:30:00 believes 20:00:00 to 21:59:59 "
    "of the day";
const char* const noTag = "it is not complete: no line begins with bin_file_over_tag";
const char* const noTime = "it has no time: no line begins with contract's_corresponding_time=";

const std::vector<Case>& Cases() {
    static const std::vector<Case> cases = {
        {"good by day", Good("20261120085511"), 93000, Verdict::Believed, ""},
        {"good by night", Good("20261120205511"), 213000, Verdict::Believed, ""},
        {"first of the day", Good("20261120080000"), 93000, Verdict::Believed, ""},
        {"before the day", Good("20261120075959"), 93000, Verdict::OtherSession, daySession},
        {"last of the day", Good("20261120102959"), 93000, Verdict::Believed, ""},
        {"last number of the day", Good("20261120102999"), 93000, Verdict::Believed, ""},
        {"behind the day", Good("20261120103000"), 93000, Verdict::OtherSession, daySession},
        {"first of the night", Good("20261120200000"), 213000, Verdict::Believed, ""},
        {"before the night", Good("20261120195959"), 213000, Verdict::OtherSession, nightSession},
        {"last of the night", Good("20261120215959"), 213000, Verdict::Believed, ""},
        {"behind the night", Good("20261120220000"), 213000, Verdict::OtherSession, nightSession},
        {"the other session", Good("20261120085511"), 213000, Verdict::OtherSession, nightSession},
        {"yesterday", Good("20261119085511"), 93000, Verdict::OtherSession, daySession},
        {"a time of no date", Good("85511"), 93000, Verdict::OtherSession, daySession},
        {"no digits", Good("soon"), 93000, Verdict::OtherSession, daySession},
        {"no tag", "7,TA209\n" + Time("20261120085511"), 93000, Verdict::Incomplete, noTag},
        {"a torn tag", "7,TA209\n" + Time("20261120085511") + "bin_file_over", 93000,
         Verdict::Incomplete, noTag},
        {"a tag that does not begin its line", "7,TA209\n" + Time("20261120085511") + " " + tag,
         93000, Verdict::Incomplete, noTag},
        {"empty", "", 93000, Verdict::Incomplete, noTag},
        {"no time", "7,TA209\n" + tag, 93000, Verdict::NoTime, noTime},
        {"a time that does not begin its line", "7,TA209\nx" + Time("20261120085511") + tag, 93000,
         Verdict::NoTime, noTime},
        {"no instruments", Time("20261120085511") + tag, 93000, Verdict::Believed, ""},
        {"the first time counts", Time("20261120085511") + Time("20261119085511") + tag, 93000,
         Verdict::Believed, ""},
        {"odd lines",
         "x\n7,TA209\n,,\n8\n9,CF209,more\n9,AP210\n7,AP210\nabc,SR301\n65543,RM209\n" +
             std::string(300, '9') + ",LONG\n" + Time("20261120085511") + tag,
         93000, Verdict::Believed, ""},
    };
    return cases;
}

// What the library makes of the file at that moment: 0 or -1, and the instruments.
int AskLibrary(const Case& one, std::map<std::string, unsigned short>& insts) {
    PutFile("bin", one.bytes);
    FakeClock::Set(20261120, one.time);
    return CTernBinFile(insts, 0).Intrade_CheckAndGetAllInstFromBin();
}

TEST(BinLook, EveryAnswerIsTheLibrarys) {
    const TempDir dir(TempDir::Enter::yes);
    for (const Case& one : Cases()) {
        SCOPED_TRACE(one.what);
        const VORBA2::LocalMoment_t at{20261120, one.time};
        const BinLook look = ZceBin::LookAtBin(one.bytes, at);
        EXPECT_EQ(look.verdict, one.verdict);
        EXPECT_EQ(ZceBin::ReasonOf(look, at), one.reason);
        std::map<std::string, unsigned short> insts;
        EXPECT_EQ(AskLibrary(one, insts), one.verdict == Verdict::Believed ? 0 : -1);
        if (one.verdict == Verdict::Believed) {
            EXPECT_EQ(look.insts, insts);
        }
    }
}

// The library's own cut of the same file, at every length: torn in the middle of anything.
TEST(BinLook, TornFilesToo) {
    const TempDir dir(TempDir::Enter::yes);
    const std::string whole = Good("20261120085511");
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const Case torn{"torn", whole.substr(0, size), 93000, Verdict::Believed, ""};
        std::map<std::string, unsigned short> insts;
        const BinLook look = ZceBin::LookAtBin(torn.bytes, {20261120, 93000});
        EXPECT_EQ(look.verdict == Verdict::Believed, AskLibrary(torn, insts) == 0) << size;
        EXPECT_EQ(look.verdict, size == whole.size() ? Verdict::Believed : Verdict::Incomplete);
    }
}

TEST(BinLook, OutsideTradingTimeItIsNotRead) {
    for (const unsigned int time : {0U, 85511U, 90000U, 150000U, 205511U, 210000U, 233000U}) {
        const VORBA2::LocalMoment_t at{20261120, time};
        EXPECT_EQ(ZceBin::LookAtBin(Good("20261120085511"), at).verdict, Verdict::NotRead) << time;
    }
    const VORBA2::LocalMoment_t at{20261120, 85511};
    EXPECT_EQ(ZceBin::ReasonOf(ZceBin::LookAtBin(Good("20261120085511"), at), at),
              "2026-11-20 08:55:11 is outside trading time: a start does not read it, it empties "
              "it");
    for (const unsigned int time : {90001U, 145959U}) {
        EXPECT_EQ(ZceBin::LookAtBin(Good("20261120085511"), {20261120, time}).verdict,
                  Verdict::Believed);
    }
}

TEST(BinLook, LinesThatAreNoInstrumentAreNamed) {
    const BinLook look = ZceBin::LookAtBin(
        "x\n7,TA209\n\n8,NAME" + std::string(251, 'N') + "\n" + Time("20261120085511") + "9,CUT",
        {20261120, 93000});
    ASSERT_EQ(look.skipped.size(), 5U);
    EXPECT_EQ(look.skipped[0].number, 1U);
    EXPECT_EQ(look.skipped[0].text, "x");
    EXPECT_EQ(look.skipped[1].number, 3U);
    EXPECT_EQ(look.skipped[1].text, "");
    EXPECT_EQ(look.skipped[2].number, 4U);  // the first 255 characters of the long line
    EXPECT_EQ(look.skipped[2].text, "8,NAME" + std::string(249, 'N'));
    EXPECT_EQ(look.skipped[3].text, "NN");
    EXPECT_EQ(look.skipped[4].number, 7U);
    EXPECT_EQ(look.skipped[4].text, "9,CUT");
}

// What the program prints, and its status.
class BinProgram : public testing::Test {
  protected:
    // `command` in the directory of the test, its errors with the rest.
    ProgramRun Run(const std::string& command) {
        return ProgramRun("cd " + dir.path() + " && " + command + " 2>&1");
    }
    ProgramRun Look(const std::string& arguments) { return Run(ZCE_BIN_PROGRAM " " + arguments); }

    TempDir dir;
};

TEST_F(BinProgram, ShowsAFile) {
    PutFile(dir / "bin",
            "12,SPD-SR209&SR301\n7,TA209\nodd\x1b[2J\n" + Time("20261120085511") + tag);
    const ProgramRun good = Look("bin --at 2026-11-20T09:30");
    EXPECT_EQ(good.text,
              "file:        bin\n"
              "time:        2026-11-20 08:55:11\n"
              "complete:    yes\n"
              "instruments: 2\n"
              "believed:    yes\n"
              "skipped:     line 3: odd\\x1b[2J\n"
              "12,SPD-SR209&SR301\n"
              "7,TA209\n");
    EXPECT_EQ(good.status, 0);
    const ProgramRun late = Look("- --at 2026-11-21T09:30 < bin");
    EXPECT_EQ(late.text,
              "file:        standard input\n"
              "time:        2026-11-20 08:55:11\n"
              "complete:    yes\n"
              "instruments: 2\n"
              "believed:    no, its time is not of this session: a start at 2026-11-21 09:30:00 "
              "believes 08:00:00 to 10:29:59 of the day\n"
              "skipped:     line 3: odd\\x1b[2J\n"
              "12,SPD-SR209&SR301\n"
              "7,TA209\n");
    EXPECT_EQ(late.status, 1);
    // A pipe is standard input like any other.
    EXPECT_EQ(Run("cat bin | " ZCE_BIN_PROGRAM " - --at 2026-11-20T09:30").status, 0);
}

TEST_F(BinProgram, AnswersAsJson) {
    PutFile(dir / "bin", "7,TA\"209\nodd\n");
    const ProgramRun run = Look("bin --at '2026-11-20 21:30:00' --json");
    EXPECT_EQ(run.text, R"({
  "file": "bin",
  "at": "2026-11-20 21:30:00",
  "time": null,
  "complete": false,
  "believed": false,
  "reason": "it is not complete: no line begins with bin_file_over_tag",
  "instruments": [
    {
      "index": 7,
      "name": "TA\"209"
    }
  ],
  "skipped": [
    {
      "line": 2,
      "text": "odd"
    }
  ]
}
)");
    EXPECT_EQ(run.status, 1);
    PutFile(dir / "bin", "7,\xff\n" + Time("20261120085511") + tag);  // no UTF-8
    const ProgramRun odd = Look("bin --at 2026-11-20T09:30 --json");
    EXPECT_EQ(odd.status, 0);
    EXPECT_NE(odd.text.find("\"time\": \"2026-11-20 08:55:11\""), std::string::npos);
}

TEST_F(BinProgram, TellsWhatCannotBeRead) {
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(mkdir((dir / "folder").c_str(), 0700), 0);
    PutFile(dir / "binary", std::string_view("7,TA209\n\0\n", 10));
    std::ofstream(dir / "huge").close();
    ASSERT_EQ(truncate((dir / "huge").c_str(), (16 << 20) + 1), 0);
    struct {
        const char* arguments;
        const char* text;
    } const cases[] = {
        {"none", "zce-bin: none: No such file or directory\n"},
        {"fifo", "zce-bin: fifo: is no regular file\n"},
        {"/dev/zero", "zce-bin: /dev/zero: is no regular file\n"},
        {"folder", "zce-bin: folder: Is a directory\n"},
        {"- < folder", "zce-bin: standard input: Is a directory\n"},
        {"binary", "zce-bin: binary: is no text: byte 8 is zero\n"},
        {"huge", "zce-bin: huge: has more than 16 MiB: no cache file has\n"},
        {"- < /dev/zero", "zce-bin: standard input: has more than 16 MiB: no cache file has\n"},
        {"binary --at noon",
         "zce-bin: --at: noon is no time: HH:MM, HH:MM:SS or YYYY-MM-DDTHH:MM:SS\n"},
        {"", "zce-bin: FILE is required\n"},
        {"--jsn", "zce-bin: The following argument was not expected: --jsn\n"},
    };
    for (const auto& one : cases) {
        const ProgramRun run = Look(one.arguments);
        EXPECT_EQ(run.text, one.text);
        EXPECT_EQ(run.status, 2) << one.arguments;
    }
    const ProgramRun full = Run(ZCE_BIN_PROGRAM " binary --help > /dev/full");
    EXPECT_EQ(full.status, 2);
    PutFile(dir / "bin", "12,SR209\n");
    for (const char* option : {"", " --json"}) {
        const ProgramRun cut =
            Run(std::string("(" ZCE_BIN_PROGRAM " bin") + option + " > /dev/full)");
        EXPECT_EQ(cut.text, "zce-bin: standard output: No space left on device\n");
        EXPECT_EQ(cut.status, 2);
    }
}

// The lines of the library's reader are not
// said.
TEST_F(BinProgram, LogsNothing) {
    PutFile(dir / "bin", "odd\n");
    EXPECT_EQ(Look("bin --at 2026-11-20T09:30").text.find("[INFO"), std::string::npos);
    EXPECT_EQ(Run("ls").text, "bin\n");
    ZceBin::LookAtBin("odd\n", {20261120, 93000});
    EXPECT_FALSE(elog_get_enabled());
}

}  // namespace
}  // namespace velatest
