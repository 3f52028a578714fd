#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigpending()
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "capture/CaptureReader.h"
#include "capture/OutputFile.h"
#include "captureBytes.h"
#include "nanoseconds.h"
#include "preload/Handles.h"
#include "record/MessageRecorder.h"
#include "record/Recorder.h"
#include "record/Settings.h"
#include "tempDir.h"
#include "wholeFile.h"

extern "C" ZceCapturePrefix_t PrefixInC(const unsigned char* pPacket);

namespace {

using velatest::CaptureBytes;
using velatest::Prefix;
using ZcePreload::CHandles;
using ZceRecord::CMessageQueue;
using ZceRecord::CMessageRecorder;

using boardtest::SECOND;
constexpr size_t HEAD = 24;  // of a message in a queue

TEST(CaptureLayout, FieldsAreReadFromTheirBytesInCToo) {
    std::array<unsigned char, 16> bytes{};
    for (size_t k = 0; k < bytes.size(); ++k) {
        bytes[k] = static_cast<unsigned char>(k);
    }
    const ZceCapturePrefix_t prefix = PrefixInC(bytes.data());
    EXPECT_EQ(prefix.ucVersion, 0);
    EXPECT_EQ(prefix.ucKind, 1);
    EXPECT_EQ(prefix.usBus, 0x0302);
    EXPECT_EQ(prefix.usChannel, 0x0504);
    EXPECT_EQ(prefix.usOpening, 0x0706);
    EXPECT_EQ(prefix.ulNumber, 0x0f0e0d0c0b0a0908U);
}

class Recorder : public testing::Test {
  protected:
    void Open(size_t bufferBytes = 4096) {
        m_settings = SettingsOf("day.pcap", Path(), bufferBytes);
        m_recorder = std::make_unique<CMessageRecorder>(m_settings);
    }
    static ZceRecord::Settings SettingsOf(const std::string& name, const std::string& path,
                                          size_t bufferBytes) {
        ZceRecord::Settings settings;
        settings.name = name;
        settings.path = path;
        settings.bufferBytes = bufferBytes;
        return settings;
    }
    CMessageQueue* Opened(uint16_t bus, uint16_t channel) {
        std::string error;
        CMessageQueue* queue = m_recorder->Opened(bus, channel, error);
        EXPECT_EQ(error, "");
        return queue;
    }
    static void Put(CMessageQueue* queue, int64_t timeNs, const std::string& message) {
        queue->Put(timeNs, reinterpret_cast<const unsigned char*>(message.data()),
                   static_cast<uint32_t>(message.size()));
    }
    std::string Path() const { return m_directory / "day.pcap"; }

    velatest::TempDir m_directory;
    ZceRecord::Settings m_settings;
    std::unique_ptr<CMessageRecorder> m_recorder;
};

TEST_F(Recorder, WritesPrefixAndMessageOfEachOpeningByteByByte) {
    Open();
    CMessageQueue* first = Opened(2, 3);
    CMessageQueue* other = Opened(65535, 15);
    Put(first, 5 * SECOND + 7, "abc");
    Put(other, 5 * SECOND + 8, "x");
    Put(first, 6 * SECOND, "defg");
    first->Close();
    CMessageQueue* again = Opened(2, 3);
    Put(again, 7 * SECOND, "h");
    m_recorder->Pass(true);
    EXPECT_EQ(velatest::WholeFile(Path()), CaptureBytes()
                                               .Add(5, 7, Prefix(1, 3, 1, 2, 1) + "abc")
                                               .Add(5, 8, Prefix(1, 15, 1, 65535, 1) + "x")
                                               .Add(6, 0, Prefix(1, 3, 2, 2, 1) + "defg")
                                               .Add(7, 0, Prefix(1, 3, 1, 2, 2) + "h")
                                               .Bytes());
    EXPECT_EQ(m_recorder->Summary(), "day.pcap: 4 messages recorded, 0 lost");
}

TEST_F(Recorder, WhatIsNotWrittenIsCountedOverAllOpenings) {
    Open();
    CMessageQueue* first = Opened(0, 3);
    CMessageQueue* other = Opened(0, 4);
    Put(first, 1, "a");
    Put(first, 2, "b");
    Put(other, 3, "c");
    first->Close();
    m_recorder->Pass(true);
    EXPECT_EQ(m_recorder->Missing(), "");
    Put(other, 4, "d");
    Put(Opened(0, 3), 5, "e");
    EXPECT_EQ(
        m_recorder->Missing(),
        "day.pcap: nothing can be written any more: up to 2 of 5 messages are not in the file");
}

TEST_F(Recorder, SeveralStreamsAreInTheOrderOfTimeEvenIfOneIsLate) {
    Open();
    CMessageQueue* one = Opened(0, 1);
    CMessageQueue* two = Opened(0, 2);
    Put(one, 10, "10");
    Put(one, 30, "30");
    m_recorder->Pass(false);  // nothing was there at a pass before
    EXPECT_EQ(velatest::WholeFile(Path()), CaptureBytes().Bytes());
    Put(two, 20, "20");  // polled before the pass, by a thread that was held up
    Put(two, 40, "40");
    m_recorder->Pass(false);
    m_recorder->Pass(false);
    m_recorder->Pass(false);
    CaptureBytes expected;
    expected.Add(0, 10, Prefix(1, 1, 1) + "10").Add(0, 20, Prefix(1, 2, 1) + "20");
    expected.Add(0, 30, Prefix(1, 1, 2) + "30").Add(0, 40, Prefix(1, 2, 2) + "40");
    EXPECT_EQ(velatest::WholeFile(Path()), expected.Bytes());
}

TEST_F(Recorder, AClockThatWasSetBackKeepsNothingBack) {
    Open();
    CMessageQueue* queue = Opened(0, 1);
    Put(queue, 3600 * SECOND, "a");
    Put(queue, 1, "b");
    m_recorder->Pass(false);
    m_recorder->Pass(false);
    m_recorder->Pass(false);
    EXPECT_EQ(velatest::WholeFile(Path()), CaptureBytes()
                                               .Add(3600, 0, Prefix(1, 1, 1) + "a")
                                               .Add(0, 1, Prefix(1, 1, 2) + "b")
                                               .Bytes());
}

TEST_F(Recorder, WhatHasNoRoomIsCountedAndToldInItsPlace) {
    Open(2 * (HEAD + 4));
    CMessageQueue* queue = Opened(0, 5);
    Put(queue, 1, "aaaa");
    Put(queue, 2, "bbbb");
    Put(queue, 3, "cccc");  // full
    Put(queue, 4, "");
    m_recorder->Pass(true);
    Put(queue, 5, "eeee");
    Put(queue, 6, "ffff");
    m_recorder->Pass(true);
    CaptureBytes expected;
    expected.Add(0, 1, Prefix(1, 5, 1) + "aaaa").Add(0, 2, Prefix(1, 5, 2) + "bbbb");
    expected.Add(0, 4, Prefix(2, 5, 2));
    expected.Add(0, 5, Prefix(1, 5, 5) + "eeee").Add(0, 6, Prefix(1, 5, 6) + "ffff");
    EXPECT_EQ(velatest::WholeFile(Path()), expected.Bytes());
    EXPECT_EQ(m_recorder->Summary(), "day.pcap: 4 messages recorded, 2 lost");
}

TEST_F(Recorder, AQueueThatIsFilledToItsLastByteGoesOnAtItsBeginning) {
    Open(2 * (HEAD + 33));
    CMessageQueue* queue = Opened(0, 5);
    CaptureBytes expected;
    for (uint64_t number = 1; number <= 6; number += 2) {
        for (uint64_t k = number; k <= number + 1; ++k) {
            const std::string message = std::string(32, static_cast<char>('a' + k)) + "z";
            Put(queue, static_cast<int64_t>(k), message);
            expected.Add(0, static_cast<uint32_t>(k), Prefix(1, 5, k) + message);
        }
        m_recorder->Pass(true);
    }
    EXPECT_EQ(velatest::WholeFile(Path()), expected.Bytes());
    EXPECT_EQ(m_recorder->Summary(), "day.pcap: 6 messages recorded, 0 lost");
}

TEST_F(Recorder, AMessageLargerThanTheQueueIsLostAndTheNextOneIsNot) {
    Open(2 * (HEAD + 4));
    CMessageQueue* queue = Opened(0, 5);
    Put(queue, 1, std::string(100, 'x'));
    Put(queue, 2, "bbbb");
    m_recorder->Pass(true);
    EXPECT_EQ(
        velatest::WholeFile(Path()),
        CaptureBytes().Add(0, 2, Prefix(2, 5, 1)).Add(0, 2, Prefix(1, 5, 2) + "bbbb").Bytes());
}

TEST_F(Recorder, AMessageLargerThanAPacketOfTheFileIsLost) {
    Open(size_t{1} << 20);
    CMessageQueue* queue = Opened(0, 5);
    Put(queue, 1, std::string(262144 - 16, 'x'));
    Put(queue, 2, std::string(262144 - 15, 'y'));
    m_recorder->Pass(true);
    EXPECT_EQ(velatest::WholeFile(Path()),
              CaptureBytes()
                  .Add(0, 1, Prefix(1, 5, 1) + std::string(262144 - 16, 'x'))
                  .Add(0, 2, Prefix(2, 5, 1))
                  .Bytes());
}

TEST_F(Recorder, AnotherThreadsMessagesComeWholeInOrderOrAreCounted) {
    Open(20000);
    constexpr uint64_t each = 20000;
    std::array<CMessageQueue*, 2> queues{Opened(0, 0), Opened(0, 1)};
    std::atomic<int64_t> clock{1};
    std::atomic<size_t> running{queues.size()};
    std::vector<std::thread> pollers;
    pollers.reserve(queues.size());
    for (CMessageQueue* queue : queues) {
        pollers.emplace_back([&clock, &running, queue] {
            for (uint64_t k = 1; k <= each; ++k) {
                Put(queue, clock.fetch_add(1), std::string(k % 300 + 1, static_cast<char>(k)));
            }
            queue->Close();
            --running;
        });
    }
    while (running != 0) {
        m_recorder->Pass(false);
    }
    for (std::thread& poller : pollers) {
        poller.join();
    }
    m_recorder->Pass(true);
    std::string error;
    ZceCapture::CCaptureReader reader;
    ZceCapture::CaptureMessage message;
    ASSERT_TRUE(reader.Open(Path(), error)) << error;
    std::array<uint64_t, 2> last{};
    uint64_t read = 0;
    while (reader.Read(message) == ZceCapture::CCaptureReader::Next::Message) {
        ++read;
        ASSERT_GT(message.number, last.at(message.channel));
        last.at(message.channel) = message.number;
        ASSERT_EQ(std::string(message.bytes.begin(), message.bytes.end()),
                  std::string(message.number % 300 + 1, static_cast<char>(message.number)));
    }
    EXPECT_EQ(reader.Error(), "");
    EXPECT_EQ(read + reader.Lost(), 2 * each);
    EXPECT_GT(read, 0U);
}

// Writes into a pipe without a reader are nothing to the program.

TEST_F(Recorder, AReaderThatGoesBeforeTheEndDoesNotEndTheApplication) {
    ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
    const int reader = open(Path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const auto recorder =
        std::make_unique<ZceRecord::CRecorder>(SettingsOf("day.pcap", Path(), 4096));
    CMessageQueue* queue = recorder->StreamOpened(0, 1);
    std::array<char, 24> header{};  // of the file
    size_t size = 0;
    for (int k = 0; k < 5000 && size < header.size(); ++k) {
        const ssize_t got = read(reader, header.data() + size, header.size() - size);
        size += got > 0 ? static_cast<size_t>(got) : 0;
        usleep(1000);
    }
    EXPECT_EQ(size, header.size());
    close(reader);
    testing::internal::CaptureStderr();
    Put(queue, 1, "a");
    recorder->Finish();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: day.pcap: cannot write: Broken pipe: the recording has ended\n");
}

TEST(RecorderLine, WhereNobodyReadsItIsLostAndTakesNoOtherSignalAlong) {
    const auto say = [](bool pendingBefore) {
        std::array<int, 2> ends{};
        sigset_t pipeSignal;
        sigset_t pending;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        if (pendingBefore) {
            pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
            raise(SIGPIPE);
        }
        if (pipe(ends.data()) != 0 || close(ends[0]) != 0 || dup2(ends[1], STDERR_FILENO) < 0) {
            _exit(1);
        }
        ZceRecord::Say("nobody reads this");
        sigpending(&pending);
        _exit(sigismember(&pending, SIGPIPE) == 1 ? 7 : 5);
    };
    EXPECT_EXIT(say(false), testing::ExitedWithCode(5), "");
    EXPECT_EXIT(say(true), testing::ExitedWithCode(7), "");
}

TEST_F(Recorder, AFileThatIsRecordedToIsNotReplacedWhateverTheSettings) {
    Open();
    Put(Opened(0, 0), 1, "a");
    m_recorder->Pass(true);
    const std::string before = velatest::WholeFile(Path());
    ZceRecord::Settings settings = m_settings;
    settings.overwrite = true;
    CMessageRecorder second(settings);
    std::string error;
    EXPECT_EQ(second.Opened(0, 0, error), nullptr);
    EXPECT_EQ(error, "day.pcap: another process is recording to it");
    EXPECT_EQ(velatest::WholeFile(Path()), before);
}

TEST_F(Recorder, AFullDiskEndsTheRecordingWithOneLine) {
    m_settings = SettingsOf("/dev/full", "/dev/full", 4096);
    m_recorder = std::make_unique<CMessageRecorder>(m_settings);
    CMessageQueue* queue = Opened(0, 0);
    Put(queue, 1, "a");
    testing::internal::CaptureStderr();
    m_recorder->Pass(true);
    Put(queue, 2, "b");
    m_recorder->Pass(true);
    m_recorder->End();
    std::string error = "none";
    EXPECT_EQ(m_recorder->Opened(0, 1, error), nullptr);
    EXPECT_EQ(error, "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: /dev/full: cannot write: No space left on device: the recording has "
              "ended\n");
    EXPECT_EQ(m_recorder->Summary(), "");
}

TEST(OutputFile, IsReplacedAndAPipeThatNobodyReadsIsNotWaitedFor) {
    const velatest::TempDir directory;
    const std::string path = directory / "file";
    std::ofstream(path) << "from yesterday";
    ZceCapture::COutputFile file;
    std::string error;
    ASSERT_TRUE(file.Open(path, error)) << error;
    ASSERT_TRUE(file.Write("now", 3, error)) << error;
    file.Close();
    EXPECT_EQ(velatest::WholeFile(path), "now");
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(file.Open(directory / "pipe", error));
    EXPECT_EQ(error, "No such device or address");
    EXPECT_FALSE(file.Open(directory / "no/file", error));
    EXPECT_EQ(error, "No such file or directory");
}

// Addresses to stand for handles.
const std::array<char, 8> g_places{};
const void* At(size_t k) {
    return &g_places.at(k);
}

TEST(RecordedHandles, LeadFromFilterAndDescriptorToBusAndChannel) {
    CHandles handles;
    handles.FilterIndex(At(0), 7);
    handles.AcceleratorFound(At(1), At(0));
    handles.AcceleratorOpened(At(2), At(1));
    handles.AcceleratorDescriptorGone(At(1));
    handles.FilterGone(At(0));
    handles.FilterName(At(0), "CUSTOM_CHAN12_DATA");
    handles.StreamFound(At(3), At(2), At(0));
    ASSERT_TRUE(handles.StreamOf(At(3)));
    EXPECT_EQ(handles.StreamOf(At(3))->bus, 7);
    EXPECT_EQ(handles.StreamOf(At(3))->channel, 12);
    handles.StreamDescriptorGone(At(3));
    EXPECT_FALSE(handles.StreamOf(At(3)));
}

TEST(RecordedHandles, AnAcceleratorFoundWithoutAnIndexHasAnUnknownBus) {
    CHandles handles;
    handles.AcceleratorFound(At(1), At(0));
    handles.AcceleratorOpened(At(2), At(1));
    handles.FilterName(At(4), "CUSTOM_CHAN0_DATA");
    handles.StreamFound(At(3), At(2), At(4));
    ASSERT_TRUE(handles.StreamOf(At(3)));
    EXPECT_EQ(handles.StreamOf(At(3))->bus, 65535);
    EXPECT_EQ(handles.StreamOf(At(3))->channel, 0);
}

TEST(RecordedHandles, OtherNamesAreNoChannelsAndADescriptorsOldMeaningIsForgotten) {
    CHandles handles;
    handles.FilterName(At(0), "CUSTOM_CHAN3_DATA");
    handles.StreamFound(At(3), At(2), At(0));
    EXPECT_TRUE(handles.StreamOf(At(3)));
    for (const char* name : {"", "CUSTOM_CHAN_DATA", "CUSTOM_CHANx_DATA", "CUSTOM_CHAN3_DAT",
                             "XCUSTOM_CHAN3_DATA", "CUSTOM_CHAN12345_DATA", "CUSTOM_CHAN-1_DATA"}) {
        handles.FilterName(At(0), name);
        handles.StreamFound(At(3), At(2), At(0));
        EXPECT_FALSE(handles.StreamOf(At(3))) << name;
    }
}

}  // namespace
