// zce-capture verify: captures beside what their recorder wrote of them.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zstd.h>

#include <string>
#include <vector>

#include "boardMessage.h"
#include "capture/FileHash.h"
#include "capture/Sidecar.h"
#include "capturetool/Verify.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using testing::ElementsAre;
using ZceCapture::Sidecar;
using ZceCaptureTool::Verification;
using ZceCaptureTool::VerifyCaptures;

// Messages `first` to `last` of channel 3 without `left` ones in their middle, which were lost.
CaptureBytes Part(uint64_t first, uint64_t last, uint64_t lost = 0) {
    CaptureBytes capture;
    for (uint64_t number = first; number <= last; ++number) {
        if (number == first + 1 && lost != 0) {
            capture.Add(RECORDED_SECOND + number, 0, Prefix(2, 3, lost));
            number += lost;
        }
        BoardMessage message;
        message.seq = number;
        capture.Add(RECORDED_SECOND + number, 0, Packet(message, number));
    }
    return capture;
}

// What its recorder writes of such a part.
Sidecar Told(const std::string& bytes, uint64_t first, uint64_t last, uint64_t lost = 0) {
    Sidecar sidecar;
    sidecar.file = "day.pcap";
    sidecar.state = Sidecar::State::Complete;
    sidecar.ended = "application";
    sidecar.compression = "none";
    sidecar.bytes = sidecar.uncompressedBytes = bytes.size();
    ZceCapture::CFileHash hash;
    hash.Add(bytes.data(), bytes.size());
    sidecar.xxh128 = hash.Text();
    sidecar.messages = last - first + 1 - lost;
    sidecar.lost = lost;
    sidecar.firstTimeNs = static_cast<int64_t>((RECORDED_SECOND + first) * 1'000'000'000);
    sidecar.lastTimeNs = static_cast<int64_t>((RECORDED_SECOND + last) * 1'000'000'000);
    sidecar.streams = {{0, 3, 1, sidecar.messages, lost, first, last}};
    return sidecar;
}

void Put(const std::string& path, const std::string& bytes, const Sidecar& sidecar) {
    PutFile(path, bytes);
    std::string error;
    ASSERT_TRUE(WriteSidecar(path, sidecar, error)) << error;
}

// A part of a rotation, with the names of its neighbours.
void PutPart(const std::string& path, uint64_t first, uint64_t last, const std::string& previous,
             const std::string& next, uint64_t lost = 0) {
    const std::string bytes = Part(first, last, lost).Bytes();
    Sidecar sidecar = Told(bytes, first, last, lost);
    sidecar.ended = next.empty() ? "application" : "size";
    sidecar.previous = previous;
    sidecar.next = next;
    Put(path, bytes, sidecar);
}

class Verify : public testing::Test {
  protected:
    // The line about one file that is not well.
    static std::string Fault(const std::string& path) {
        const Verification result = VerifyCaptures({path});
        EXPECT_FALSE(result.well);
        EXPECT_EQ(result.lines.size(), 1U);
        return result.lines.empty() ? "" : result.lines[0];
    }
    TempDir m_dir{TempDir::Enter::yes};
    std::string m_bytes = Part(1, 20, 3).Bytes();
    Sidecar m_told = Told(m_bytes, 1, 20, 3);
};

TEST_F(Verify, Complete) {
    Put("day.pcap", m_bytes, m_told);
    Verification result = VerifyCaptures({"day.pcap"});
    EXPECT_TRUE(result.well);
    EXPECT_THAT(result.lines,
                ElementsAre("day.pcap: complete: 17 messages, 3 lost by the recorder, "
                            "3116 bytes as they were written"));
    m_told.state = Sidecar::State::Stopped;
    m_told.ended = "no space";
    Put("day.pcap", m_bytes, m_told);
    result = VerifyCaptures({"day.pcap"});
    EXPECT_TRUE(result.well);
    EXPECT_THAT(
        result.lines,
        ElementsAre("day.pcap: complete: 17 messages, 3 lost by the recorder, 3116 bytes as "
                    "they were written; the recording stopped: no space"));
}

TEST_F(Verify, Cut) {
    Put("day.pcap", m_bytes.substr(0, m_bytes.size() - 181), m_told);
    EXPECT_EQ(
        Fault("day.pcap"),
        "day.pcap: CUT: 2935 bytes; the recorder wrote 3116; 15 of 17 messages can be read, 2 "
        "are missing, up to packet 17: truncated dump file; tried to read 164 captured bytes, "
        "only got 163; copy it again; what can be read is sound");
    // Between two packets: libpcap knows nothing of it.
    Put("day.pcap", m_bytes.substr(0, m_bytes.size() - 180), m_told);
    EXPECT_EQ(
        Fault("day.pcap"),
        "day.pcap: CUT: 2936 bytes; the recorder wrote 3116; 16 of 17 messages can be read, 1 "
        "are missing; copy it again; what can be read is sound");
    Put("day.pcap", "", m_told);
    EXPECT_EQ(
        Fault("day.pcap"),
        "day.pcap: CUT: 0 bytes; the recorder wrote 3116; 0 of 17 messages can be read, 17 are "
        "missing: empty: there is nothing in it; copy it again; what can be read is sound");
}

TEST_F(Verify, CutWhileCompressed) {
    std::string packed(ZSTD_compressBound(m_bytes.size()), '\0');
    packed.resize(ZSTD_compress(packed.data(), packed.size(), m_bytes.data(), m_bytes.size(), 3));
    Sidecar told = Told(packed, 1, 20, 3);
    told.compression = "zstd";
    Put("day.pcap.zst", packed, told);
    EXPECT_TRUE(VerifyCaptures({"day.pcap.zst"}).well);
    Put("day.pcap.zst", packed.substr(0, packed.size() - 1), told);
    EXPECT_THAT(Fault("day.pcap.zst"),
                testing::MatchesRegex(
                    "day.pcap.zst: CUT: .* bytes; the recorder wrote .*; 0 of 17 messages can be "
                    "read, 17 are missing: not a capture: truncated dump file; .*"));
}

TEST_F(Verify, Changed) {
    std::string changed = m_bytes;
    changed[3000] ^= 1;
    Put("day.pcap", changed, m_told);
    EXPECT_THAT(
        Fault("day.pcap"),
        testing::MatchesRegex("day.pcap: CHANGED: its bytes were changed: XXH128 .*, expected "
                              ".*; 17 messages can be read; copy it again"));
    Put("day.pcap", m_bytes + "x", m_told);
    EXPECT_EQ(
        Fault("day.pcap"),
        "day.pcap: CHANGED: 3117 bytes; the recorder wrote 3116; 17 messages can be read, up to "
        "packet 19: truncated dump file; tried to read 16 header bytes, only got 1; copy it "
        "again");
    // The bytes are right, the counts are another file's.
    Sidecar other = m_told;
    other.messages = 18;
    Put("day.pcap", m_bytes, other);
    EXPECT_EQ(Fault("day.pcap"),
              "day.pcap: CHANGED: 17 messages can be read; its sidecar tells 18 "
              "messages and 3 lost: see that the sidecar is this file's");
    other = m_told;
    other.lastTimeNs += 1;
    Put("day.pcap", m_bytes, other);
    EXPECT_THAT(Fault("day.pcap"),
                testing::HasSubstr("its sidecar tells messages from "
                                   "1795135505000000000 to 1795135524000000001 ns"));
    other = m_told;
    other.streams[0].last = 21;
    Put("day.pcap", m_bytes, other);
    EXPECT_THAT(
        Fault("day.pcap"),
        testing::HasSubstr("its sidecar tells 17 messages, 1 to 21, for channel 3 opening 1"));
}

TEST_F(Verify, PacketsThatCannotBeMessages) {
    const std::string bytes =
        m_bytes +
        CaptureBytes().Add(RECORDED_SECOND, 0, Prefix(1, 3, 21, 0, 1, 9) + "x").Bytes().substr(24);
    Put("day.pcap", bytes, Told(bytes, 1, 20, 3));
    EXPECT_EQ(
        Fault("day.pcap"),
        "day.pcap: DAMAGED: 17 messages can be read, up to packet 19: version 9, expected 1; its "
        "recorder wrote it like this");
}

TEST_F(Verify, UnfinishedAndUnknown) {
    Sidecar writing = m_told;
    writing.state = Sidecar::State::Writing;
    writing.messages = writing.bytes = 0;
    writing.streams.clear();
    Put("day.pcap", m_bytes, writing);
    EXPECT_EQ(
        Fault("day.pcap"),
        "day.pcap: UNFINISHED: its recording was interrupted: the end is missing; 17 messages "
        "can be read; its recorder was killed; what can be read is sound");
    const int recorder = open("day.pcap", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(recorder, LOCK_EX), 0);
    EXPECT_EQ(Fault("day.pcap"),
              "day.pcap: UNFINISHED: it is being written; 17 messages can be read; "
              "verify it when the recorder has ended it");
    close(recorder);
    PutFile("day.pcap.json", "{}");
    EXPECT_THAT(Fault("day.pcap"),
                testing::StartsWith("day.pcap: NOT READABLE: its sidecar day.pcap.json: "));
    unlink("day.pcap.json");
    EXPECT_EQ(
        Fault("day.pcap"),
        "day.pcap: NOT VERIFIED: no sidecar day.pcap.json; 17 messages can be read; whether it "
        "is whole cannot be told: keep the .json file with it");
    EXPECT_EQ(Fault("none.pcap"), "none.pcap: NOT READABLE: No such file or directory");
}

TEST_F(Verify, ARotationIsContinuousInWhateverOrderItIsGiven) {
    ASSERT_EQ(mkdir("data", 0755), 0);
    PutPart("data/1.pcap", 1, 5, "", "2.pcap");
    PutPart("data/2.pcap", 6, 20, "1.pcap", "3.pcap", 2);
    PutPart("data/3.pcap", 21, 22, "2.pcap", "");
    for (const std::vector<std::string>& order :
         {std::vector<std::string>{"data/1.pcap", "data/2.pcap", "data/3.pcap"},
          {"data/3.pcap", "./data/1.pcap", "data/2.pcap"},
          {"data/2.pcap"}}) {
        const Verification result = VerifyCaptures(order);
        EXPECT_TRUE(result.well) << testing::PrintToString(result.lines);
        EXPECT_EQ(result.lines.size(), order.size());
    }
}

TEST_F(Verify, AFileOfARotationThatIsNotThere) {
    PutPart("1.pcap", 1, 5, "", "2.pcap");
    PutPart("3.pcap", 21, 22, "2.pcap", "");
    const Verification result = VerifyCaptures({"1.pcap", "3.pcap"});
    EXPECT_FALSE(result.well);
    ASSERT_EQ(result.lines.size(), 4U);
    EXPECT_EQ(result.lines[2],
              "1.pcap: MISSING FILE: the one behind it in its rotation, 2.pcap, is not "
              "there: look where the recordings are kept");
    EXPECT_EQ(result.lines[3],
              "3.pcap: MISSING FILE: the one before it in its rotation, 2.pcap, is not "
              "there: look where the recordings are kept");
}

TEST_F(Verify, NumbersThatAreNotContinuous) {
    PutPart("1.pcap", 1, 5, "", "2.pcap");
    PutPart("2.pcap", 9, 12, "1.pcap", "3.pcap");
    PutPart("3.pcap", 12, 13, "2.pcap", "");
    const Verification result = VerifyCaptures({"1.pcap", "2.pcap", "3.pcap"});
    EXPECT_FALSE(result.well);
    ASSERT_EQ(result.lines.size(), 5U);
    EXPECT_EQ(result.lines[3],
              "2.pcap: NOT CONTINUOUS: bus 0 channel 3 opening 1: 3 messages are "
              "missing between number 5 in 1.pcap and 9");
    EXPECT_EQ(result.lines[4],
              "3.pcap: NOT CONTINUOUS: bus 0 channel 3 opening 1 begins with number "
              "12, and 2.pcap ends with 12");
}

// Its recorder could not tell it what followed.
TEST_F(Verify, AFileThatWasMovedAwayBeforeTheNextOneBegan) {
    PutPart("1.pcap", 1, 5, "", "");
    PutPart("2.pcap", 7, 12, "1.pcap", "3.pcap");
    PutPart("3.pcap", 14, 15, "2.pcap", "");
    const Verification result = VerifyCaptures({"1.pcap", "2.pcap", "3.pcap"});
    EXPECT_FALSE(result.well);
    ASSERT_EQ(result.lines.size(), 5U);
    EXPECT_EQ(result.lines[3],
              "2.pcap: NOT CONTINUOUS: bus 0 channel 3 opening 1: 1 messages are "
              "missing between number 5 in 1.pcap and 7");
    EXPECT_EQ(result.lines[4],
              "3.pcap: NOT CONTINUOUS: bus 0 channel 3 opening 1: 1 messages are "
              "missing between number 12 in 2.pcap and 14");
}

// Lost ones are noted at the end of one file or at the beginning of the next; a file may have none
// of a stream's messages.
TEST_F(Verify, LostMessagesBetweenTheFiles) {
    const auto put = [](const std::string& path, uint64_t first, uint64_t last, uint64_t lost,
                        const std::string& previous, const std::string& next) {
        std::string bytes = CaptureBytes().Bytes();
        bytes += CaptureBytes().Add(RECORDED_SECOND, 0, Prefix(2, 3, lost)).Bytes().substr(24);
        Sidecar sidecar = Told("", 1, 0);
        if (last != 0) {
            bytes += Part(first, last).Bytes().substr(24);
            sidecar = Told(bytes, first, last);
        }
        const Sidecar of = Told(bytes, 1, 0);
        sidecar.bytes = of.bytes;
        sidecar.xxh128 = of.xxh128;
        sidecar.lost = lost;
        sidecar.streams = {{0, 3, 1, last == 0 ? 0 : last - first + 1, lost, first, last}};
        sidecar.previous = previous;
        sidecar.next = next;
        Put(path, bytes, sidecar);
    };
    PutPart("1.pcap", 1, 5, "", "2.pcap");
    put("2.pcap", 0, 0, 4, "1.pcap", "3.pcap");
    put("3.pcap", 13, 14, 3, "2.pcap", "");
    const Verification result = VerifyCaptures({"1.pcap", "2.pcap", "3.pcap"});
    EXPECT_TRUE(result.well) << testing::PrintToString(result.lines);
    put("3.pcap", 14, 15, 3, "2.pcap", "");
    EXPECT_THAT(VerifyCaptures({"1.pcap", "2.pcap", "3.pcap"}).lines.back(),
                testing::HasSubstr("1 messages are missing between number 5 in 1.pcap and 14"));
}

}  // namespace
}  // namespace velatest
