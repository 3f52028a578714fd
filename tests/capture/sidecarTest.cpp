#include "capture/Sidecar.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

#include "capture/FileHash.h"
#include "capture/SidecarReader.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace {

using testing::HasSubstr;
using ZceCapture::CheckSidecar;
using ZceCapture::Sidecar;
using ZceCapture::SidecarCheck;
using Verdict = ZceCapture::SidecarCheck::Verdict;

// Of "abc", as xxh128sum prints it.
constexpr const char* ABC_HASH = "06b05ab6733a618578af5f94892f3950";

TEST(FileHash, IsWhatXxh128sumPrintsHoweverTheBytesCome) {
    ZceCapture::CFileHash hash;
    EXPECT_EQ(hash.Text(), "99aa06d3014798d86001c324468d497f");
    hash.Add("a", 1);
    hash.Add("bc", 2);
    EXPECT_EQ(hash.Text(), ABC_HASH);
    hash = ZceCapture::CFileHash();
    hash.Add("abc", 3);
    EXPECT_EQ(hash.Text(), ABC_HASH);
}

class SidecarFile : public testing::Test {
  protected:
    std::string Path() const { return m_directory / "day.pcap"; }
    void WriteCapture(const std::string& bytes) const {
        std::ofstream(Path(), std::ios::binary) << bytes;
    }
    void WriteText(const std::string& text) const {
        std::ofstream(Path() + ".json", std::ios::binary) << text;
    }
    void Write(const Sidecar& sidecar) const {
        std::string error;
        ASSERT_TRUE(WriteSidecar(Path(), sidecar, error)) << error;
    }
    // Of a file that holds "abc".
    static Sidecar Abc() {
        Sidecar sidecar;
        sidecar.file = "day.pcap";
        sidecar.state = Sidecar::State::Complete;
        sidecar.ended = "size";
        sidecar.compression = "none";
        sidecar.bytes = 3;
        sidecar.uncompressedBytes = 3;
        sidecar.xxh128 = ABC_HASH;
        sidecar.messages = 18446744073709551615U;
        sidecar.lost = 2;
        sidecar.firstTimeNs = 1795262695845098017;
        sidecar.lastTimeNs = 1795262695845098018;
        sidecar.number = 2;
        sidecar.previous = "day-1.pcap";
        sidecar.next = "../20261123/day.pcap";
        sidecar.streams = {{65535, 3, 1, 7, 2, 5, 13}, {0, 15, 65535, 0, 0, 0, 0}};
        return sidecar;
    }
    static constexpr const char* ABC_TEXT =
        R"({
  "zce_capture": 1,
  "file": "day.pcap",
  "state": "complete",
  "ended": "size",
  "compression": "none",
  "bytes": 3,
  "uncompressed_bytes": 3,
  "xxh128": "06b05ab6733a618578af5f94892f3950",
  "messages": 18446744073709551615,
  "lost": 2,
  "first_time_ns": 1795262695845098017,
  "last_time_ns": 1795262695845098018,
  "number": 2,
  "previous": "day-1.pcap",
  "next": "../20261123/day.pcap",
  "streams": [
    {"bus": 65535, "channel": 3, "opening": 1, "messages": 7, "lost": 2, "first": 5, "last": 13},
    {"bus": 0, "channel": 15, "opening": 65535, "messages": 0, "lost": 0, "first": 0, "last": 0}]
}
)";
    std::string ReadError(const std::string& text) const {
        WriteText(text);
        Sidecar sidecar;
        std::string error;
        EXPECT_FALSE(ReadSidecar(Path(), sidecar, error)) << text;
        return error;
    }
    // Without one piece of the good text, another in its place.
    std::string ErrorWith(const std::string& before, const std::string& after) const {
        std::string text = ABC_TEXT;
        text.replace(text.find(before), before.size(), after);
        return ReadError(text);
    }

    velatest::TempDir m_directory;
};

TEST_F(SidecarFile, IsWrittenByteByByteInPlaceOfTheOneBefore) {
    WriteText("what was there before and is longer than nothing");
    Write(Abc());
    EXPECT_EQ(velatest::WholeFile(Path() + ".json"), ABC_TEXT);
    EXPECT_FALSE(std::filesystem::exists(Path() + ".json.new"));
}

TEST_F(SidecarFile, EveryFieldComesBack) {
    WriteText(ABC_TEXT);
    Sidecar sidecar;
    std::string error;
    ASSERT_TRUE(ReadSidecar(Path(), sidecar, error)) << error;
    EXPECT_EQ(sidecar.file, "day.pcap");
    EXPECT_EQ(sidecar.state, Sidecar::State::Complete);
    EXPECT_EQ(sidecar.ended, "size");
    EXPECT_EQ(sidecar.compression, "none");
    EXPECT_EQ(sidecar.bytes, 3U);
    EXPECT_EQ(sidecar.uncompressedBytes, 3U);
    EXPECT_EQ(sidecar.xxh128, ABC_HASH);
    EXPECT_EQ(sidecar.messages, 18446744073709551615U);
    EXPECT_EQ(sidecar.lost, 2U);
    EXPECT_EQ(sidecar.firstTimeNs, 1795262695845098017);
    EXPECT_EQ(sidecar.lastTimeNs, 1795262695845098018);
    EXPECT_EQ(sidecar.number, 2U);
    EXPECT_EQ(sidecar.previous, "day-1.pcap");
    EXPECT_EQ(sidecar.next, "../20261123/day.pcap");
    ASSERT_EQ(sidecar.streams.size(), 2U);
    EXPECT_EQ(sidecar.streams[0].bus, 65535);
    EXPECT_EQ(sidecar.streams[0].channel, 3);
    EXPECT_EQ(sidecar.streams[0].opening, 1);
    EXPECT_EQ(sidecar.streams[0].messages, 7U);
    EXPECT_EQ(sidecar.streams[0].lost, 2U);
    EXPECT_EQ(sidecar.streams[0].first, 5U);
    EXPECT_EQ(sidecar.streams[0].last, 13U);
    EXPECT_EQ(sidecar.streams[1].opening, 65535);
}

TEST_F(SidecarFile, AnyBytesInANameAreValidJson) {
    Sidecar sidecar;
    // Text is kept; what is none, in any of the ways that there are, becomes question marks.
    sidecar.file = "\xe6\x97\xa5\xc3\xa9\xf0\x9f\x98\x80 \"a\\b\n\x01\x7f";
    sidecar.ended =
        "\x80 \xc0\xaf \xe6\x97 \xed\xa0\x80 \xe0\x80\x80 \xf0\x80\x80\x80 \xf4\x90\x80\x80 \xff";
    Write(sidecar);
    Sidecar read;
    std::string error;
    ASSERT_TRUE(ReadSidecar(Path(), read, error)) << error;
    EXPECT_EQ(read.file, sidecar.file);
    EXPECT_EQ(read.ended, "? ?? ?? ??? ??? ???? ???? ?");
    EXPECT_EQ(read.state, Sidecar::State::Writing);
}

TEST_F(SidecarFile, WhatIsNoSidecarIsToldWithTheReason) {
    const std::string name = Path() + ".json: ";
    Sidecar sidecar;
    std::string error;
    EXPECT_FALSE(ReadSidecar(Path(), sidecar, error));
    EXPECT_EQ(error, name + "No such file or directory");
    EXPECT_THAT(ReadError(""), HasSubstr("not the JSON of a sidecar: "));
    EXPECT_THAT(ReadError("[]"), HasSubstr("not the JSON of a sidecar: "));
    EXPECT_EQ(ErrorWith("\"zce_capture\": 1", "\"zce_capture\": 2"),
              name + "version 2, expected 1");
    EXPECT_EQ(ErrorWith("\"complete\"", "\"done\""),
              name + "state \"done\", expected writing, complete or stopped");
    EXPECT_THAT(ErrorWith("\"bytes\": 3,", ""), HasSubstr("key 'bytes' not found"));
    const std::array<std::array<const char*, 3>, 7> wrong{{
        {"\"bytes\": 3", "\"bytes\": -3", "bytes"},
        {"\"bytes\": 3", "\"bytes\": 3.5", "bytes"},
        {"\"lost\": 2", "\"lost\": \"2\"", "lost"},
        {"\"bus\": 65535", "\"bus\": 65536", "bus"},
        {"\"channel\": 3", "\"channel\": -1", "channel"},
        {"1795262695845098017", "9223372036854775808", "first_time_ns"},
        {"18446744073709551615", "18446744073709551616", "messages"},
    }};
    for (const auto& [before, after, field] : wrong) {
        EXPECT_EQ(ErrorWith(before, after), name + "not the JSON of a sidecar: \"" + field +
                                                "\" is not a number of its range");
    }
    EXPECT_THAT(ReadError(std::string(100'000, '[')), HasSubstr("not the JSON of a sidecar: "));
    std::filesystem::resize_file(Path() + ".json", 16777217);
    EXPECT_FALSE(ReadSidecar(Path(), sidecar, error));
    EXPECT_EQ(error, name + "16777217 bytes are too many for a sidecar");
}

TEST_F(SidecarFile, ATimeBeforeTheEpochIsOne) {
    Sidecar sidecar = Abc();
    sidecar.firstTimeNs = -5;
    Write(sidecar);
    std::string error;
    ASSERT_TRUE(ReadSidecar(Path(), sidecar, error)) << error;
    EXPECT_EQ(sidecar.firstTimeNs, -5);
}

TEST_F(SidecarFile, AFileAsItWasWrittenIsGood) {
    WriteCapture("abc");
    Write(Abc());
    SidecarCheck check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Good);
    EXPECT_EQ(check.text, Path() + ": 3 bytes as they were written");
    EXPECT_EQ(check.sidecar.ended, "size");
    Sidecar sidecar = Abc();
    sidecar.state = Sidecar::State::Stopped;
    sidecar.ended = "less than 1024 MiB free";
    Write(sidecar);
    check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Good);
    EXPECT_EQ(check.text, Path() +
                              ": 3 bytes as they were written; the recording stopped: less than "
                              "1024 MiB free");
}

TEST_F(SidecarFile, WhateverHappenedToTheFileIsTold) {
    Write(Abc());
    SidecarCheck check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Unreadable);
    EXPECT_EQ(check.text, Path() + ": No such file or directory");
    WriteCapture("ab");
    check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Cut);
    EXPECT_EQ(check.text, Path() + ": 2 bytes; the recorder wrote 3");
    WriteCapture("abcd");
    check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Changed);
    EXPECT_EQ(check.text, Path() + ": 4 bytes; the recorder wrote 3");
    WriteCapture("abC");
    check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Changed);
    EXPECT_EQ(check.text,
              Path() +
                  ": its bytes were changed: XXH128 72ea3e34feda4bd2d6b06da568d5de20, expected "
                  "06b05ab6733a618578af5f94892f3950");
    std::filesystem::remove(Path());
    std::filesystem::create_directory(Path());
    check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Unreadable);
    EXPECT_EQ(check.text, Path() + ": not a regular file");
}

TEST_F(SidecarFile, AFileWithoutOneAndOneWithABadOneAreTold) {
    WriteCapture("abc");
    SidecarCheck check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Absent);
    EXPECT_EQ(check.text, Path() + ": no sidecar " + Path() + ".json");
    WriteText("{");
    check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Unreadable);
    EXPECT_THAT(check.text,
                HasSubstr(": its sidecar " + Path() + ".json: not the JSON of a sidecar: "));
}

TEST_F(SidecarFile, ARecordingThatHasNotEndedIsBeingWrittenOrWasInterrupted) {
    WriteCapture("abc");
    Write(Sidecar());
    const int fd = open(Path().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    SidecarCheck check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::BeingWritten);
    EXPECT_EQ(check.text, Path() + ": it is being written");
    close(fd);
    check = CheckSidecar(Path());
    EXPECT_EQ(check.verdict, Verdict::Interrupted);
    EXPECT_EQ(check.text, Path() + ": its recording was interrupted: the end is missing");
}

TEST_F(SidecarFile, WhereNoneCanBeWrittenTheReasonIsTold) {
    std::string error;
    EXPECT_FALSE(WriteSidecar(m_directory / "no/day.pcap", Abc(), error));
    EXPECT_EQ(error, "No such file or directory");
    std::filesystem::create_directories(Path() + ".json/taken");
    EXPECT_FALSE(WriteSidecar(Path(), Abc(), error));
    EXPECT_EQ(error, "Is a directory");
    EXPECT_FALSE(std::filesystem::exists(Path() + ".json.new"));
}

}  // namespace
