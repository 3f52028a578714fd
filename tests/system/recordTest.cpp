#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGKILL
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "appMarket.h"
#include "capture/CaptureReader.h"
#include "capture/SidecarReader.h"

using testing::MatchesRegex;
using ZceCapture::CCaptureReader;
using ZceCapture::SidecarCheck;

namespace velatest {

namespace {

struct Capture {
    std::vector<Taken> messages;
    std::vector<ZceCapture::CaptureMessage> heads;  // without bytes
    uint64_t lost = 0;
    CCaptureReader::Next end = CCaptureReader::Next::Error;
    std::string error;
};

Capture ReadCapture(const std::string& path) {
    Capture capture;
    CCaptureReader reader;
    if (!reader.Open(path, capture.error)) {
        return capture;
    }
    ZceCapture::CaptureMessage message;
    while ((capture.end = reader.Read(message)) == CCaptureReader::Next::Message) {
        capture.messages.push_back({message.channel, {message.bytes.begin(), message.bytes.end()}});
        message.bytes = {};
        capture.heads.push_back(message);
    }
    capture.lost = reader.Lost();
    capture.error = reader.Error();
    return capture;
}

std::vector<std::string> RecorderLines(const std::string& output) {
    return LinesThatBegin(output, "zce-record: ");
}

class Recording : public AppMarket {
  protected:
    // From here on everything is started below the recorder.
    void Record(const std::string& file) {
        m_environment.push_back(std::string("LD_PRELOAD=") + ZCE_RECORD_LIBRARY);
        m_environment.push_back("ZCE_RECORD=" + file);
        m_environment.emplace_back("ZCE_RECORD_FREE_MIB=0");  // whatever this machine has
    }
    // Runs the application to its end; it is to get all its messages, recorded or not.
    std::string RunApp(const std::string& end, size_t count = 500) {
        auto app = App("app", "0,3", count, end);
        EXPECT_EQ(app->WaitEnd(), 0) << app->Output();
        EXPECT_EQ(Polled("app").size(), count);
        return app->Output();
    }
};

TEST_F(Recording, TheFileHoldsExactlyWhatTheReceiversGot) {
    StartClock(85504);
    StartSmallBoard();
    Record(Path("day-%p.pcap"));
    auto master = Receive(0);
    ASSERT_TRUE(master->WaitFor("Fpga start transmit inst map pkt.")) << master->Output();
    auto second = Receive(3, {"--own-loop"});
    ASSERT_TRUE(master->WaitFor("zce-recv type=")) << master->Output();
    ASSERT_TRUE(second->WaitFor("zce-recv type=")) << second->Output();
    StopBoard();
    const std::array<std::pair<Process*, unsigned int>, 2> receivers{
        {{master.get(), 0}, {second.get(), 3}}};
    for (const auto& [receiver, channel] : receivers) {
        const std::string line = Finish(*receiver, channel);
        ExpectSame(line, channel);
        const std::string file = Path("day-" + std::to_string(receiver->Pid()) + ".pcap");
        const Capture capture = ReadCapture(file);
        EXPECT_EQ(capture.end, CCaptureReader::Next::End) << capture.error;
        EXPECT_EQ(capture.lost, 0U);
        const SidecarCheck check = ZceCapture::CheckSidecar(file);
        EXPECT_EQ(check.verdict, SidecarCheck::Verdict::Good) << check.text;
        EXPECT_EQ(check.sidecar.messages, capture.messages.size());
        std::map<unsigned int, long> counts;
        for (const Taken& message : capture.messages) {
            EXPECT_EQ(message.channel, channel);
            ++counts[message.Type()];
        }
        for (const unsigned int type : {17U, 18U, 19U, 20U}) {
            EXPECT_EQ(counts[type], Field(line, "type" + std::to_string(type))) << line;
        }
        EXPECT_EQ(counts[2], Field(BoardLine(channel), "type2"));
        EXPECT_EQ(capture.messages.size(), static_cast<size_t>(Field(line, "total") + counts[2]));
        EXPECT_THAT(RecorderLines(receiver->Output()),
                    testing::ElementsAre("zce-record: " + file + ": " +
                                         std::to_string(capture.messages.size()) +
                                         " messages recorded, 0 lost"));
    }
}

TEST_F(Recording, EveryByteOfEveryStreamInTheOrderOfThePolls) {
    StartFastBoard();
    Record("day.pcap");
    const auto before = std::chrono::system_clock::now().time_since_epoch();
    const std::string output = RunApp("return", 3000);
    const auto after = std::chrono::system_clock::now().time_since_epoch();
    const Capture capture = ReadCapture(Path("app/day.pcap"));
    EXPECT_EQ(capture.end, CCaptureReader::Next::End) << capture.error;
    EXPECT_TRUE(capture.messages == Polled("app")) << capture.messages.size();
    std::map<unsigned int, uint64_t> numbers;
    std::map<unsigned int, int> types;
    int64_t last = std::chrono::nanoseconds(before).count();
    for (size_t k = 0; k < capture.heads.size(); ++k) {
        const ZceCapture::CaptureMessage& head = capture.heads[k];
        EXPECT_EQ(head.bus, 0);
        EXPECT_EQ(head.opening, 1);
        EXPECT_EQ(head.number, ++numbers[head.channel]);
        EXPECT_GE(head.timeNs, last);
        last = head.timeNs;
        ++types[capture.messages[k].Type()];
    }
    EXPECT_LE(last, std::chrono::nanoseconds(after).count());
    EXPECT_GT(numbers[0], 0U);
    EXPECT_GT(numbers[3], 0U);
    for (const unsigned int type : {2U, 17U, 18U, 19U, 20U}) {
        EXPECT_GT(types[type], 0) << type;
    }
    EXPECT_THAT(RecorderLines(output),
                testing::ElementsAre("zce-record: day.pcap: 3000 messages recorded, 0 lost"));
}

TEST_F(Recording, WhateverTheEndTheLastMessageIsInTheFile) {
    StartFastBoard();
    Record("day.pcap");
    m_environment.emplace_back("ZCE_RECORD_OVERWRITE=1");
    for (const char* end : {"exit", "static"}) {
        const std::string output = RunApp(end);
        EXPECT_TRUE(ReadCapture(Path("app/day.pcap")).messages == Polled("app")) << end;
        EXPECT_THAT(RecorderLines(output),
                    testing::ElementsAre("zce-record: day.pcap: 500 messages recorded, 0 lost"));
    }
}

TEST_F(Recording, EachOpeningOfAStreamHasItsNumber) {
    StartFastBoard();
    Record("day.pcap");
    auto app = App("app", "3", 200, "reopen");
    EXPECT_EQ(app->WaitEnd(), 0) << app->Output();
    const Capture capture = ReadCapture(Path("app/day.pcap"));
    EXPECT_TRUE(capture.messages == Polled("app"));
    ASSERT_EQ(capture.heads.size(), 400U);
    for (size_t k = 0; k < 400; ++k) {
        EXPECT_EQ(capture.heads[k].opening, k < 200 ? 1 : 2) << k;
        EXPECT_EQ(capture.heads[k].number, k % 200 + 1) << k;
    }
}

// The library that fakes the clock is gone before the recording is ended.
TEST_F(Recording, AProgramOnAFakedClockEndsItsRecording) {
    StartFastBoard();
    Record(Path("day/%c.pcap.zst"));
    m_environment.push_back(std::string("LD_PRELOAD=") + LIBFAKETIME + " " + ZCE_RECORD_LIBRARY);
    m_environment.emplace_back("FAKETIME=+3600");
    for (const char* end : {"return", "exit"}) {
        m_environment.emplace_back("ZCE_RECORD_OVERWRITE=1");
        auto app = App("app", "3", 300, end);
        EXPECT_EQ(app->WaitEnd(), 0) << app->Output();
        EXPECT_TRUE(ReadCapture(Path("day/3.pcap.zst")).messages == Polled("app")) << end;
        EXPECT_TRUE(std::filesystem::exists(Path("day/3.pcap.zst.json"))) << end;
    }
}

TEST_F(Recording, AProgramThatOpensNoStreamMakesNoFile) {
    Record("day.pcap");
    Process shell({"sh", "-c", "true && /bin/true"}, Where("app"));
    EXPECT_EQ(shell.WaitEnd(), 0);
    EXPECT_EQ(shell.Output(), "");
    EXPECT_FALSE(std::filesystem::exists(Path("app/day.pcap")));
}

TEST_F(Recording, WithoutAFileToRecordToOneLineSaysSoAndTheApplicationGoesOn) {
    StartFastBoard();
    const size_t environment = m_environment.size();
    const std::array<std::array<std::string, 2>, 4> files{
        {{"", "zce-record: ZCE_RECORD names no file: nothing is recorded"},
         {"/proc/no/day.pcap",
          "zce-record: /proc/no/day.pcap: the folder /proc/no cannot be made: No such file or "
          "directory: nothing is recorded"},
         {"/dev/full",
          "zce-record: /dev/full: cannot write: No space left on device: the recording has ended"},
         {".", "zce-record: .: Is a directory: nothing is recorded"}}};
    for (const auto& [file, line] : files) {
        m_environment.resize(environment);
        Record(file);
        EXPECT_THAT(RecorderLines(RunApp("return")), testing::ElementsAre(line));
    }
    m_environment.resize(m_environment.size() - 2);  // no ZCE_RECORD at all
    EXPECT_THAT(RecorderLines(RunApp("return")),
                testing::ElementsAre("zce-record: ZCE_RECORD names no file: nothing is recorded"));
}

TEST_F(Recording, AFileThatAnotherProcessRecordsToIsRefusedAndLeftAlone) {
    StartFastBoard();
    Record(Path("day.pcap"));
    m_environment.emplace_back("ZCE_RECORD_OVERWRITE=1");
    auto holder = App("holder", "5", 100, "more");
    ASSERT_TRUE(holder->WaitFor("polled 100")) << holder->Output();
    EXPECT_THAT(RecorderLines(RunApp("return")),
                testing::ElementsAre("zce-record: " + Path("day.pcap") +
                                     ": another process is recording to it: nothing is recorded"));
    holder->Signal(SIGUSR1);
    EXPECT_EQ(holder->WaitEnd(), 0) << holder->Output();
    EXPECT_TRUE(ReadCapture(Path("day.pcap")).messages == Polled("holder"));
    // The file is free again, and is replaced.
    RunApp("return");
    EXPECT_TRUE(ReadCapture(Path("day.pcap")).messages == Polled("app"));
}

TEST_F(Recording, WhatAKilledApplicationPolledIsInTheFile) {
    StartFastBoard();
    Record("day.pcap");
    auto app = App("app", "0,3", 1000, "wait");
    ASSERT_TRUE(app->WaitFor("waits")) << app->Output();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    app->Signal(SIGKILL);
    EXPECT_EQ(app->WaitEnd(), 128 + SIGKILL);
    const Capture capture = ReadCapture(Path("app/day.pcap"));
    EXPECT_EQ(capture.end, CCaptureReader::Next::End) << capture.error;
    EXPECT_TRUE(capture.messages == Polled("app")) << capture.messages.size();
    EXPECT_EQ(ZceCapture::CheckSidecar(Path("app/day.pcap")).verdict,
              SidecarCheck::Verdict::Interrupted);
}

TEST_F(Recording, AnApplicationKilledInTheMiddleLeavesAReadableFile) {
    StartFastBoard();
    Record("day.pcap");
    auto app = App("app", "0,3", 100'000'000, "return");
    ASSERT_TRUE(app->WaitFor("opened")) << app->Output();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    app->Signal(SIGKILL);
    EXPECT_EQ(app->WaitEnd(), 128 + SIGKILL);
    const Capture capture = ReadCapture(Path("app/day.pcap"));
    EXPECT_NE(capture.end, CCaptureReader::Next::Error) << capture.error;
    EXPECT_GT(capture.messages.size(), 100U);
    std::map<unsigned int, uint64_t> numbers;
    for (const ZceCapture::CaptureMessage& head : capture.heads) {
        EXPECT_EQ(head.number, ++numbers[head.channel]);
    }
}

TEST_F(Recording, AForkedChildNeitherWritesNorHangsAndTheParentGoesOn) {
    StartFastBoard();
    Record("day.pcap");
    auto app = App("app", "0,3", 300, "fork");
    EXPECT_EQ(app->WaitEnd(), 0) << app->Output();
    const Capture capture = ReadCapture(Path("app/day.pcap"));
    EXPECT_EQ(capture.end, CCaptureReader::Next::End) << capture.error;
    EXPECT_EQ(capture.messages.size(), 600U);
    EXPECT_TRUE(capture.messages == Polled("app"));
    EXPECT_THAT(RecorderLines(app->Output()),
                testing::ElementsAre("zce-record: day.pcap: 600 messages recorded, 0 lost"));
}

TEST_F(Recording, NoSignalReachesTheThreadThatWrites) {
    StartFastBoard();
    Record("day.pcap");
    auto app = App("app", "3", 10, "wait");
    ASSERT_TRUE(app->WaitFor("waits")) << app->Output();
    const std::string tasks = "/proc/" + std::to_string(app->Pid()) + "/task";
    std::vector<std::string> blocked;
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        const std::string status = ReadFile(task.path() / "status");
        if (status.find("Name:\tzce-record\n") != std::string::npos) {
            const size_t found = status.find("SigBlk:\t");
            blocked.push_back(status.substr(found + 8, 16));
        }
    }
    // All but SIGKILL, SIGSTOP and the C library's own two.
    EXPECT_THAT(blocked, testing::ElementsAre("fffffffe7ffbfeff"));
    app->Signal(SIGTERM);
    EXPECT_EQ(app->WaitEnd(), 128 + SIGTERM);
}

TEST_F(Recording, RegisterAccessesAreLinesOfText) {
    StartFastBoard();
    Record("day.pcap");
    m_environment.push_back("ZCE_RECORD_REGISTERS=1");
    const std::string output = RunApp("return");
    std::istringstream file(ReadFile(Path("app/day.pcap.registers")));
    std::vector<std::string> accesses;
    for (std::string line; std::getline(file, line);) {
        ASSERT_THAT(line, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} "
                                       "[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{9} (read|write) .*"));
        accesses.push_back(line.substr(30));
    }
    std::vector<std::string> expected{"read 0x106[16:16] 0x0",
                                      "write 0x4000000000 0x5 failed: Invalid argument (22)"};
    for (const char* table : {"0x1100", "0x1200"}) {
        for (const char* word : {"0x0", "0x40", "0x80", "0xc0"}) {
            expected.push_back(std::string("write ") + table + "1 0xffff");
            expected.push_back(std::string("write ") + table + "0 " + word);
        }
    }
    expected.emplace_back("write 0x12 0x1");
    expected.emplace_back("write 0x11 0x3");
    EXPECT_EQ(accesses, expected);
    EXPECT_THAT(RecorderLines(output),
                testing::ElementsAre(
                    "zce-record: day.pcap: 500 messages recorded, 0 lost",
                    "zce-record: day.pcap.registers: 20 register accesses recorded, 0 lost"));
}

// A pipe as the recorder's file: nothing can be written while the test does not read.
class Pipe {
  public:
    explicit Pipe(const std::string& path) {
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        m_fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }
    ~Pipe() { close(m_fd); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    // Reads what there is; true at the end of the file.
    bool Read() {
        std::array<char, 65536> bytes{};
        for (;;) {
            const ssize_t size = read(m_fd, bytes.data(), bytes.size());
            if (size <= 0) {
                return size == 0;
            }
            m_all.append(bytes.data(), static_cast<size_t>(size));
        }
    }
    const std::string& All() const { return m_all; }

  private:
    int m_fd = -1;
    std::string m_all;
};

TEST_F(Recording, WhatCannotBeWrittenInTimeIsCountedAndToldInItsPlace) {
    StartFastBoard("200000");
    Record(Path("pipe"));
    m_environment.push_back("ZCE_RECORD_BUFFER=1");
    Pipe pipe(Path("pipe"));
    constexpr uint64_t count = 20000;  // more than the buffer, what waits for the file and the pipe
    auto app = App("app", "3", count, "more");
    ASSERT_TRUE(app->WaitFor("polled 20000")) << app->Output();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    Capture first;
    while (first.messages.size() + first.lost < count &&
           std::chrono::steady_clock::now() < deadline) {
        EXPECT_FALSE(pipe.Read());
        WriteFile(Path("first.pcap"), pipe.All());
        first = ReadCapture(Path("first.pcap"));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_GT(first.lost, 0U);
    EXPECT_EQ(first.messages.size() + first.lost, count);
    app->Signal(SIGUSR1);
    while (!pipe.Read() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(app->WaitEnd(), 0) << app->Output();
    WriteFile(Path("day.pcap"), pipe.All());
    const Capture capture = ReadCapture(Path("day.pcap"));
    EXPECT_EQ(capture.end, CCaptureReader::Next::End) << capture.error;
    EXPECT_EQ(capture.messages.size() + capture.lost, 2 * count);
    const std::vector<Taken> polled = Polled("app");
    ASSERT_EQ(polled.size(), 2 * count);
    uint64_t number = 0;
    for (size_t k = 0; k < capture.heads.size(); ++k) {
        number += capture.heads[k].lostBefore + 1;
        ASSERT_EQ(capture.heads[k].number, number);
        ASSERT_TRUE(capture.messages[k] == polled[number - 1]) << number;
    }
    // A gap ends where the application waited. It is the first one, unless the thread that writes
    // was itself kept waiting for a processor.
    const uint64_t behindTheGap = first.messages.size();
    ASSERT_GT(capture.heads.size(), behindTheGap);
    EXPECT_GT(capture.heads[behindTheGap].lostBefore, 0U);
    EXPECT_LE(capture.heads[behindTheGap].lostBefore, first.lost);
    EXPECT_EQ(capture.heads[behindTheGap].number, count + 1);
    EXPECT_THAT(RecorderLines(app->Output()),
                testing::ElementsAre(
                    "zce-record: " + Path("pipe") + ": " + std::to_string(capture.messages.size()) +
                    " messages recorded, " + std::to_string(capture.lost) + " lost"));
}

// More than a pipe holds and what one write takes: the thread that writes stands still.
TEST_F(Recording, AFileThatTakesNothingHoldsTheEndUpForSecondsOnly) {
    StartFastBoard();
    Record(Path("pipe"));
    const Pipe pipe(Path("pipe"));
    const std::string output = RunApp("return", 3000);
    EXPECT_THAT(RecorderLines(output),
                testing::ElementsAre(
                    MatchesRegex("zce-record: .*/pipe: nothing can be written any more: up to "
                                 "[1-3][0-9]{3} of 3000 messages are not in the file")));
}

TEST_F(Recording, ASignalEndsAnApplicationThatWaitsForItsFile) {
    StartFastBoard();
    Record(Path("pipe"));
    const Pipe pipe(Path("pipe"));
    auto app = App("app", "0,3", 3000, "return");
    ASSERT_TRUE(app->WaitFor("polled 3000")) << app->Output();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    app->Signal(SIGTERM);
    EXPECT_EQ(app->WaitEnd(std::chrono::seconds(10)), 128 + SIGTERM);
    EXPECT_THAT(RecorderLines(app->Output()), testing::IsEmpty());
}

}  // namespace

}  // namespace velatest
