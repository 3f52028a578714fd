// What a recording leaves on the disk: the files' names, where one ends and the next begins, and
// the sidecars.

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "recordingFiles.h"
#include "wholeFile.h"

namespace {

using namespace recordtest;
using boardtest::MS;
using testing::ElementsAre;

TEST_F(Rotation, TheSidecarTellsWhatTheFileHolds) {
    m_settings.bufferBytes = 27;  // one message
    CMessageQueue* three = Opened(2, 3);
    CMessageQueue* four = Opened(65535, 4);
    EXPECT_EQ(ZceCapture::CheckSidecar(Path("day.pcap")).verdict,
              SidecarCheck::Verdict::BeingWritten);
    Put(three, 5 * SECOND, "abc");
    Put(four, 6 * SECOND, "def");
    Put(four, 6 * SECOND, "lost");
    Recorder().Pass(true);
    Put(four, 7 * SECOND, "ghi");
    EndAll();
    // The hash is what xxh128sum says of this file.
    EXPECT_EQ(velatest::WholeFile(Path("day.pcap.json")),
              R"({
  "zce_capture": 1,
  "file": "day.pcap",
  "state": "complete",
  "ended": "application",
  "compression": "none",
  "bytes": 161,
  "uncompressed_bytes": 161,
  "xxh128": "207d759f78a732000020b27b96904323",
  "messages": 3,
  "lost": 1,
  "first_time_ns": 5000000000,
  "last_time_ns": 7000000000,
  "number": 1,
  "previous": "",
  "next": "",
  "streams": [
    {"bus": 2, "channel": 3, "opening": 1, "messages": 1, "lost": 0, "first": 1, "last": 1},
    {"bus": 65535, "channel": 4, "opening": 1, "messages": 2, "lost": 1, "first": 1, "last": 3}]
}
)");
    EXPECT_EQ(ZceCapture::CheckSidecar(Path("day.pcap")).verdict, SidecarCheck::Verdict::Good);
}

TEST_F(Rotation, AFileThatIsThereIsLeftAloneAndTheNameUsedIsTold) {
    std::ofstream(Path("day.pcap")) << "the morning's";
    std::ofstream(Path("day-2.pcap")) << "the noon's";
    testing::internal::CaptureStderr();
    Write(Opened(0, 0), 1);
    EndAll();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: day.pcap is there already: recording to day-3.pcap\n");
    EXPECT_EQ(velatest::WholeFile(Path("day.pcap")), "the morning's");
    EXPECT_EQ(velatest::WholeFile(Path("day-2.pcap")), "the noon's");
    EXPECT_THAT(Numbers("day-3.pcap"), ElementsAre(1));
    EXPECT_EQ(Recorder().Summary(), "day-3.pcap: 1 messages recorded, 0 lost");
}

TEST_F(Rotation, ToldToItReplacesOtherFilesButNoneOfItsOwn) {
    m_settings.overwrite = true;
    m_settings.maxBytes = 24 + 33;  // one message a file
    std::ofstream(Path("day.pcap")) << "the morning's, which was larger than what comes now......";
    std::ofstream(Path("day-2.pcap")) << "the noon's";
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, 1);
    Write(queue, 2);
    EndAll();
    EXPECT_THAT(Numbers("day.pcap"), ElementsAre(1));
    EXPECT_THAT(Numbers("day-2.pcap"), ElementsAre(2));
}

TEST_F(Rotation, ChannelsAndBusesHaveFilesOfTheirOwnIfTheNameSaysSo) {
    Named("%Y%m%d/%b-%c-%H%M%S-%n.pcap");
    Put(Opened(0, 3), g_nowNs, "a");
    Put(Opened(0, 3), g_nowNs, "b");  // another opening of the same
    g_nowNs += 61 * SECOND;
    Put(Opened(65535, 3), g_nowNs, "c");
    Put(Opened(0, 4), g_nowNs, "d");
    EndAll();
    EXPECT_THAT(Files(),
                ElementsAre("20261121/0-3-090000-0001.pcap", "20261121/0-3-090000-0001.pcap.json",
                            "20261121/0-4-090101-0001.pcap", "20261121/0-4-090101-0001.pcap.json",
                            "20261121/x-3-090101-0001.pcap", "20261121/x-3-090101-0001.pcap.json"));
    EXPECT_EQ(SidecarOf("20261121/0-3-090000-0001.pcap").messages, 2U);
    EXPECT_EQ(Recorder().Summary(),
              "%Y%m%d/%b-%c-%H%M%S-%n.pcap: 4 messages recorded, 0 lost, 3 files");
}

// Each of these packets has 16 + 16 + 100 bytes; three and the head of a file are 420.
TEST_F(Rotation, AFileEndsBeforeTheMessageThatIsTooMuchForItsSize) {
    m_settings.maxBytes = 420;
    CMessageQueue* queue = Opened(0, 0);
    for (int k = 1; k <= 7; ++k) {
        Write(queue, k * SECOND, 100);
    }
    EndAll();
    EXPECT_THAT(Files(), ElementsAre("day-2.pcap", "day-2.pcap.json", "day-3.pcap",
                                     "day-3.pcap.json", "day.pcap", "day.pcap.json"));
    EXPECT_THAT(Numbers("day.pcap"), ElementsAre(1, 2, 3));
    EXPECT_THAT(Numbers("day-2.pcap"), ElementsAre(4, 5, 6));
    EXPECT_THAT(Numbers("day-3.pcap"), ElementsAre(7));
    EXPECT_EQ(std::filesystem::file_size(Path("day.pcap")), 420U);
    const Sidecar first = SidecarOf("day.pcap");
    EXPECT_EQ(first.ended, "size");
    EXPECT_EQ(first.previous, "");
    EXPECT_EQ(first.next, "day-2.pcap");
    const Sidecar second = SidecarOf("day-2.pcap");
    EXPECT_EQ(second.number, 2U);
    EXPECT_EQ(second.previous, "day.pcap");
    EXPECT_EQ(second.next, "day-3.pcap");
    EXPECT_EQ(second.firstTimeNs, 4 * SECOND);
    EXPECT_EQ(second.streams.at(0).first, 4U);
    EXPECT_EQ(second.streams.at(0).last, 6U);
    const Sidecar third = SidecarOf("day-3.pcap");
    EXPECT_EQ(third.ended, "application");
    EXPECT_EQ(third.next, "");
}

TEST_F(Rotation, AFinishedFileThatIsMovedAwayLeavesNoSidecarBehind) {
    Named("day-%H%M.pcap");
    m_settings.maxMinutes = 60;
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, g_nowNs);
    g_nowNs += 3601 * SECOND;
    Recorder().Pass(false);  // its time is over
    std::filesystem::create_directory(Path("old"));
    for (const char* name : {"day-0900.pcap", "day-0900.pcap.json"}) {
        std::filesystem::rename(Path(name), Path("old/") + name);
    }
    Write(queue, g_nowNs);
    EndAll();
    EXPECT_THAT(Files(), ElementsAre("day-1000.pcap", "day-1000.pcap.json", "old/day-0900.pcap",
                                     "old/day-0900.pcap.json"));
    EXPECT_EQ(SidecarOf("old/day-0900.pcap").next, "");
    EXPECT_EQ(SidecarOf("day-1000.pcap").previous, "day-0900.pcap");
}

TEST_F(Rotation, AMessageThatIsLargerThanAFileMayBeStillHasOne) {
    m_settings.maxBytes = 10;
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, 1, 100);
    Write(queue, 2, 100);
    EndAll();
    EXPECT_THAT(Numbers("day.pcap"), ElementsAre(1));
    EXPECT_THAT(Numbers("day-2.pcap"), ElementsAre(2));
}

TEST_F(Rotation, AtTheEndOfItsTimeAFileEndsAndTheMessageOfThatMomentIsTheNextOnes) {
    Named("%Y%m%d/day-%H%M%S.pcap");
    m_settings.maxMinutes = 60;
    const int64_t ten = MIDNIGHT + int64_t{10} * 3600 * SECOND;
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, g_nowNs);
    Write(queue, ten - 1);
    Write(queue, ten);
    Write(queue, ten + 1);
    Write(queue, MIDNIGHT + int64_t{24} * 3600 * SECOND);  // and the next day
    EndAll();
    EXPECT_THAT(Numbers("20261121/day-090000.pcap"), ElementsAre(1, 2));
    EXPECT_THAT(Numbers("20261121/day-100000.pcap"), ElementsAre(3, 4));
    EXPECT_THAT(Numbers("20261122/day-000000.pcap"), ElementsAre(5));
    EXPECT_EQ(SidecarOf("20261121/day-090000.pcap").ended, "time");
    EXPECT_EQ(SidecarOf("20261121/day-100000.pcap").next, "../20261122/day-000000.pcap");
    EXPECT_EQ(SidecarOf("20261122/day-000000.pcap").previous, "../20261121/day-100000.pcap");
}

TEST_F(Rotation, AFileWhoseTimeIsOverEndsWithoutAMessageAndTheNextBeginsWithOne) {
    Named("day-%H%M%S.pcap");
    m_settings.maxMinutes = 60;
    CMessageQueue* queue = Opened(0, 0);
    g_nowNs += 7200 * SECOND;
    Recorder().Pass(false);  // nothing is in it: it may wait
    EXPECT_THAT(Files(), ElementsAre("day-090000.pcap", "day-090000.pcap.json"));
    g_nowNs -= 7200 * SECOND;
    Write(queue, g_nowNs);
    g_nowNs = MIDNIGHT + int64_t{10} * 3600 * SECOND + 100 * MS - 1;
    Recorder().Pass(false);
    EXPECT_EQ(ZceCapture::CheckSidecar(Path("day-090000.pcap")).verdict,
              SidecarCheck::Verdict::BeingWritten);
    g_nowNs += 1;
    Recorder().Pass(false);
    EXPECT_EQ(SidecarOf("day-090000.pcap").ended, "time");
    EXPECT_EQ(SidecarOf("day-090000.pcap").next, "");
    g_nowNs += 1800 * SECOND;
    Recorder().Pass(false);
    EXPECT_EQ(Files().size(), 2U);
    Write(queue, g_nowNs);
    EndAll();
    EXPECT_THAT(Numbers("day-103000.pcap"), ElementsAre(2));
    EXPECT_EQ(SidecarOf("day-090000.pcap").next, "day-103000.pcap");
}

TEST_F(Rotation, LostMessagesAreToldInTheFileInWhichTheyWouldBe) {
    m_settings.bufferBytes = 24 + 100;  // one message
    m_settings.maxBytes = 420;
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, 1, 100);
    Write(queue, 2, 100);
    Put(queue, 3, std::string(100, 'm'));
    Put(queue, 4, std::string(100, 'm'));  // lost: told where the third message ends the first file
    Recorder().Pass(true);
    Write(queue, 5, 100);
    EndAll();
    EXPECT_THAT(Numbers("day.pcap"), ElementsAre(1, 2, 3));
    EXPECT_THAT(Numbers("day-2.pcap"), ElementsAre(-1, 5));
    EXPECT_EQ(SidecarOf("day.pcap").lost, 0U);
    const Sidecar second = SidecarOf("day-2.pcap");
    EXPECT_EQ(second.lost, 1U);
    EXPECT_EQ(second.streams.at(0).lost, 1U);
    EXPECT_EQ(second.streams.at(0).first, 5U);
}

// Two threads' messages, compressed or not, over many files: all of them once, in order.
TEST_F(Rotation, AFloodLosesNothingFromFileToFile) {
    constexpr uint64_t each = 20000;
    for (const char* name : {"flood-%n.pcap", "flood-%n.pcap.zst"}) {
        Named(name);
        m_settings.zstdLevel = ZceRecord::EndsWithZst(name) ? 1 : 0;
        m_settings.maxBytes = 100'000;
        m_settings.bufferBytes = 16 * DISK_MIB;
        m_recorder.reset();
        std::vector<std::thread> pollers;
        for (const uint16_t channel : {uint16_t{0}, uint16_t{1}}) {
            CMessageQueue* queue = Opened(0, channel);
            pollers.emplace_back([queue] {
                for (uint64_t k = 1; k <= each; ++k) {
                    std::string message(k % 300 + 1, '\0');
                    for (size_t at = 0; at < message.size(); ++at) {
                        message[at] = static_cast<char>((at * at + k * 31) * 2654435761U >> 13);
                    }
                    Put(queue, static_cast<int64_t>(k), message);
                }
                queue->Close();
            });
        }
        for (int pass = 0; pass < 50; ++pass) {
            Recorder().Pass(false);
        }
        for (std::thread& poller : pollers) {
            poller.join();
        }
        EndAll();
        uint64_t last[2] = {};
        std::string previous;
        uint64_t number = 0;
        for (const std::string& file : Files()) {
            if (file.find(".json") != std::string::npos ||
                ZceRecord::EndsWithZst(file) != ZceRecord::EndsWithZst(name)) {
                continue;
            }
            const Sidecar sidecar = SidecarOf(file);
            EXPECT_EQ(sidecar.number, ++number);
            EXPECT_EQ(sidecar.previous, previous);
            EXPECT_EQ(sidecar.lost, 0U);
            EXPECT_LE(sidecar.bytes, 100'000U + (m_settings.zstdLevel != 0 ? 600'000 : 0));
            previous = file;
            CCaptureReader reader;
            std::string error;
            ASSERT_TRUE(reader.Open(Path(file), error)) << error;
            ZceCapture::CaptureMessage message;
            while (reader.Read(message) == CCaptureReader::Next::Message) {
                ASSERT_EQ(message.number, ++last[message.channel]);
            }
            ASSERT_EQ(reader.Error(), "");
        }
        EXPECT_EQ(last[0], each);
        EXPECT_EQ(last[1], each);
        EXPECT_GT(number, 3U);
    }
}

TEST_F(Rotation, ACompressedFileHasASidecarOfItsBytesOnTheDisk) {
    Named("day.pcap.zst");
    m_settings.zstdLevel = 3;
    CMessageQueue* queue = Opened(0, 0);
    Put(queue, 5 * SECOND, std::string(2000, 'a'));
    EndAll();
    const Sidecar sidecar = SidecarOf("day.pcap.zst");
    EXPECT_EQ(sidecar.compression, "zstd");
    EXPECT_EQ(sidecar.uncompressedBytes, 24U + 16 + 16 + 2000);
    EXPECT_LT(sidecar.bytes, 200U);
    EXPECT_EQ(sidecar.bytes, std::filesystem::file_size(Path("day.pcap.zst")));
    EXPECT_THAT(Numbers("day.pcap.zst"), ElementsAre(1));
}

// A process that is killed leaves what was flushed: about a second is missing at most.
TEST_F(Rotation, AKilledProcessLeavesACompressedFileThatIsReadToItsLastSecond) {
    Named("day.pcap.zst");
    m_settings.zstdLevel = 3;
    const pid_t child = fork();
    if (child == 0) {
        CMessageQueue* queue = Opened(0, 0);
        for (int k = 1; k <= 500; ++k) {
            Put(queue, k, "message " + std::to_string(k));
            Recorder().Pass(false);  // the last ones are behind the last flush, at pass 400
        }
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    const std::vector<int64_t> numbers = Numbers("day.pcap.zst", CCaptureReader::Next::Cut);
    ASSERT_GE(numbers.size(), 398U);
    EXPECT_LT(numbers.size(), 500U);
    EXPECT_EQ(numbers.back(), static_cast<int64_t>(numbers.size()));
    EXPECT_EQ(ZceCapture::CheckSidecar(Path("day.pcap.zst")).verdict,
              SidecarCheck::Verdict::Interrupted);
}

}  // namespace
