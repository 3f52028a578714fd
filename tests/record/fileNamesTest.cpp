#include "record/FileNames.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "nanoseconds.h"
#include "tempDir.h"

namespace {

using boardtest::SECOND;
using ZceRecord::EndOfStretch;
using ZceRecord::Expand;
using ZceRecord::HasPattern;
using ZceRecord::NameParts;
using ZceRecord::Numbered;
using ZceRecord::PatternFault;

void SetZone(const char* zone) {
    setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe)
    tzset();
}

constexpr int64_t MORNING = 1795222504;  // 2026-11-21 00:55:04 UTC

TEST(FileNames, EachPatternStandsForItsPartInLocalTime) {
    NameParts parts;
    parts.timeNs = MORNING * SECOND + 999'999'999;
    parts.bus = "2";
    parts.channel = "11";
    parts.number = 7;
    parts.processId = "4711";
    SetZone("UTC-8");  // eight hours east
    EXPECT_EQ(Expand("/data/%Y%m%d/%c-%H%M%S.pcap", parts), "/data/20261121/11-085504.pcap");
    EXPECT_EQ(Expand("%b_%n_%p_%%c%", parts), "2_0007_4711_%c%");
    parts.number = 123456;
    EXPECT_EQ(Expand("%n", parts), "123456");
    SetZone("UTC+3");
    EXPECT_EQ(Expand("%Y-%m-%d %H:%M:%S", parts), "2026-11-20 21:55:04");
}

TEST(FileNames, WhatIsNoPatternIsNamed) {
    EXPECT_EQ(PatternFault("/data/%Y%m%d%H%M%S%b%c%n%p%%.pcap"), "");
    EXPECT_EQ(PatternFault(""), "");
    EXPECT_EQ(PatternFault("day-%j.pcap"), "%j is no pattern");
    EXPECT_EQ(PatternFault("%%%x"), "%x is no pattern");
    EXPECT_EQ(PatternFault("day%"), "% is no pattern");
    EXPECT_EQ(PatternFault(std::string("%\0", 2)), std::string("%\0", 2) + " is no pattern");
    EXPECT_TRUE(HasPattern("a%%%c", 'c'));
    EXPECT_FALSE(HasPattern("a%%c%p", 'c'));
}

TEST(FileNames, ANumberStandsBeforeTheEndings) {
    EXPECT_EQ(Numbered("day.pcap", 1), "day.pcap");
    const std::array<std::array<const char*, 2>, 9> names{{
        {"day.pcap", "day-2.pcap"},
        {"/a.b/day", "/a.b/day-2"},
        {"/a.b/day.pcap.zst", "/a.b/day-2.pcap.zst"},
        {"day.pcap.registers", "day-2.pcap.registers"},
        {"day.registers", "day-2.registers"},
        {".pcap", ".pcap-2"},
        {"/x/.zst", "/x/.zst-2"},
        {"a.zst", "a-2.zst"},
        {"d.1.pcap", "d.1-2.pcap"},
    }};
    for (const auto& [name, second] : names) {
        EXPECT_EQ(Numbered(name, 2), second);
    }
    EXPECT_EQ(Numbered("day.pcap", 130), "day-130.pcap");
}

TEST(FileNames, FoldersAreMadeForAllToReadAndTheOneThatCannotBeIsNamed) {
    const velatest::TempDir directory;
    std::string error;
    umask(0);
    EXPECT_TRUE(ZceRecord::MakeFoldersOf(directory / "a/b/day.pcap", error)) << error;
    struct stat status {};
    ASSERT_EQ(stat((directory / "a/b").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFDIR | 0755U);
    EXPECT_FALSE(std::filesystem::exists(directory / "a/b/day.pcap"));
    EXPECT_FALSE(ZceRecord::MakeFoldersOf("/proc/zce/day.pcap", error));
    EXPECT_EQ(error, "the folder /proc/zce cannot be made: No such file or directory");
}

// Times of 2026-11-21 in a zone of eight hours east and in one of three and a half hours west.
TEST(FileNames, AStretchOfTimeIsCountedFromLocalMidnight) {
    SetZone("UTC-8");
    const int64_t midnight = 1795190400;
    EXPECT_EQ(EndOfStretch(midnight * SECOND, 60), (midnight + 3600) * SECOND);
    EXPECT_EQ(EndOfStretch(midnight * SECOND - 1, 60), midnight * SECOND);
    EXPECT_EQ(EndOfStretch((midnight + 3599) * SECOND + 999'999'999, 60),
              (midnight + 3600) * SECOND);
    EXPECT_EQ(EndOfStretch((midnight + 3600) * SECOND, 60), (midnight + 7200) * SECOND);
    EXPECT_EQ(EndOfStretch((midnight + 86399) * SECOND, 1440), (midnight + 86400) * SECOND);
    // The last stretch of a day is shorter.
    EXPECT_EQ(EndOfStretch((midnight + 84000) * SECOND, 700),
              (midnight + 84000) * SECOND + 2400 * SECOND);
    SetZone("UTC+3:30");
    EXPECT_EQ(EndOfStretch(midnight * SECOND, 60), (midnight + 1800) * SECOND);
}

}  // namespace
