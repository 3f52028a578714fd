// libzce-watch.so in front of the software board's library, in whole processes.

#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGKILL
#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "appMarket.h"
#include "capture/CaptureReader.h"
#include "watch/WatchReader.h"

namespace velatest {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ZceWatch::EntryState;
using ZceWatch::Life;
using ZceWatch::Stream;

using Counts = std::map<unsigned int, std::array<ZceWatch::Counted, ZceWatch::TYPES>>;

class Watching : public AppMarket {
  protected:
    static constexpr const char* both[] = {ZCE_WATCH_LIBRARY ":" ZCE_RECORD_LIBRARY,
                                           ZCE_RECORD_LIBRARY ":" ZCE_WATCH_LIBRARY};

    // From here on everything is started below these libraries.
    void Watch(const std::string& directory, const std::string& libraries = ZCE_WATCH_LIBRARY) {
        m_environment.push_back("LD_PRELOAD=" + libraries);
        m_environment.push_back("ZCE_WATCH=" + directory);
    }
    std::string RunApp(const std::string& channels, const std::string& end, size_t count) {
        auto app = App("app", channels, count, end);
        EXPECT_EQ(app->WaitEnd(), 0) << app->Output();
        return app->Output();
    }
    // The one page there.
    ZceWatch::Process ThePage(const std::string& directory) const {
        ZceWatch::Directory pages;
        std::string error;
        EXPECT_TRUE(ZceWatch::ReadDirectory(Path(directory), pages, error)) << error;
        EXPECT_THAT(pages.refused, IsEmpty());
        EXPECT_EQ(pages.processes.size(), 1U);
        return pages.processes.empty() ? ZceWatch::Process() : pages.processes.front();
    }
    // What record-app wrote down, counted by channel and type.
    Counts Counted(const std::string& name) const {
        Counts counts;
        for (const Taken& message : Polled(name)) {
            const uint32_t type = message.Type();
            ZceWatch::Counted& counted = counts[message.channel][type == 2 ? 0 : type - 16];
            ++counted.messages;
            counted.bytes += message.bytes.size();
        }
        return counts;
    }
    static void ExpectCounted(const ZceWatch::Process& page, const Counts& polled) {
        EXPECT_GE(page.streams.size(), polled.size());
        for (const Stream& stream : page.streams) {
            const auto found = polled.find(static_cast<unsigned int>(stream.channel));
            const auto expected = found != polled.end() ? found->second : Counts::mapped_type{};
            for (size_t k = 0; k < ZceWatch::TYPES; ++k) {
                EXPECT_EQ(stream.types[k].messages, expected[k].messages) << k;
                EXPECT_EQ(stream.types[k].bytes, expected[k].bytes) << k;
            }
            EXPECT_EQ(stream.bus, 0U);
            // What a process leaves open lacks what belongs to the last polls.
            if (stream.state == EntryState::Closed) {
                EXPECT_GE(stream.polls, stream.Messages());
                EXPECT_GE(stream.lastMessageNs + 1'000'000'000,
                          stream.Messages() != 0 ? stream.openedNs : 0);
                EXPECT_EQ(stream.counters.state, ZceWatch::CountersState::Read);
            }
        }
    }
    static std::vector<std::string> WatchLines(const std::string& output) {
        return LinesThatBegin(output, "zce-watch: ");
    }
};

TEST_F(Watching, ThePageHasWhatTheReceiversGot) {
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    Watch(Path("run/zce"));
    auto master = Receive(0);
    ASSERT_TRUE(master->WaitFor("Fpga start transmit inst map pkt.")) << master->Output();
    m_environment.push_back(std::string("LD_PRELOAD=") + both[0]);
    m_environment.push_back("ZCE_RECORD=" + Path("day.pcap"));
    auto second = Receive(3, {"--own-loop"});
    ASSERT_TRUE(master->WaitFor("zce-recv type=")) << master->Output();
    ASSERT_TRUE(second->WaitFor("zce-recv type=")) << second->Output();
    StopBoard();
    std::map<uint64_t, std::string> lines;
    lines[static_cast<uint64_t>(master->Pid())] = Finish(*master, 0);
    lines[static_cast<uint64_t>(second->Pid())] = Finish(*second, 3);
    ZceWatch::Directory pages;
    std::string error;
    ASSERT_TRUE(ZceWatch::ReadDirectory(Path("run/zce"), pages, error)) << error;
    ASSERT_EQ(pages.processes.size(), 2U);
    for (const ZceWatch::Process& page : pages.processes) {
        const std::string& line = lines.at(page.pid);
        EXPECT_EQ(page.program, "zce-recv");
        EXPECT_EQ(page.life, Life::Ended);
        EXPECT_EQ(std::filesystem::path(page.path).filename(),
                  "zce-recv-" + std::to_string(page.pid) + ".watch");
        ASSERT_EQ(page.streams.size(), 1U);
        const Stream& stream = page.streams.front();
        EXPECT_EQ(stream.state, EntryState::Closed);
        for (size_t k = 1; k < ZceWatch::TYPES - 1; ++k) {
            EXPECT_EQ(static_cast<long>(stream.types[k].messages),
                      Field(line, std::string("type") + ZceWatch::TYPE_NAMES[k]))
                << line;
        }
        EXPECT_EQ(static_cast<long>(stream.types[0].messages),
                  Field(BoardLine(static_cast<unsigned int>(stream.channel)), "type2"));
        EXPECT_EQ(stream.counters.packets, stream.Messages());
        EXPECT_GT(stream.gaps.everNs, 0U);
    }
}

TEST_F(Watching, EachOpeningIsCountedOnAndTheChildOfAForkIsNot) {
    StartFastBoard();
    Watch("run");  // where the application is
    EXPECT_THAT(WatchLines(RunApp("0,3", "return", 500)), IsEmpty());
    ZceWatch::Process page = ThePage("app/run");
    EXPECT_EQ(page.life, Life::Ended);
    EXPECT_EQ(page.program, "record-app");
    ExpectCounted(page, Counted("app"));
    // The pages of the runs before go.
    RunApp("3", "reopen", 200);
    page = ThePage("app/run");
    ExpectCounted(page, Counted("app"));
    ASSERT_EQ(page.streams.size(), 1U);
    EXPECT_EQ(page.streams[0].opening, 2U);
    EXPECT_GE(page.streams[0].counters.packets, 200U);
    EXPECT_EQ(page.streams[0].state, EntryState::Closed);
    RunApp("0,3", "fork", 300);
    page = ThePage("app/run");
    EXPECT_EQ(page.life, Life::Ended);
    ExpectCounted(page, Counted("app"));
    for (const char* end : {"exit", "static"}) {
        RunApp("0,3", end, 300);
        page = ThePage("app/run");
        EXPECT_EQ(page.life, Life::Ended) << end;
        ExpectCounted(page, Counted("app"));
    }
}

TEST_F(Watching, BehindOrInFrontOfTheRecorderBothGetEverything) {
    StartFastBoard();
    m_environment.push_back("ZCE_RECORD=" + Path("day.pcap"));
    m_environment.push_back("ZCE_RECORD_OVERWRITE=1");
    for (const char* libraries : both) {
        Watch(Path("run"), libraries);
        RunApp("0,3", "return", 500);
        ExpectCounted(ThePage("run"), Counted("app"));
        ZceCapture::CCaptureReader reader;
        std::string error;
        ASSERT_TRUE(reader.Open(Path("day.pcap"), error)) << error;
        size_t recorded = 0;
        ZceCapture::CaptureMessage message;
        while (reader.Read(message) == ZceCapture::CCaptureReader::Next::Message) {
            ++recorded;
        }
        EXPECT_EQ(recorded, 500U) << libraries;
        std::filesystem::remove_all(Path("run"));
    }
}

TEST_F(Watching, OneThatWaitsIsSeenToWaitAndOneThatIsKilledToHaveDied) {
    StartFastBoard();
    Watch(Path("run"));
    auto app = App("app", "0,3", 500, "wait");
    ASSERT_TRUE(app->WaitFor("waits")) << app->Output();
    ZceWatch::Process page = ThePage("run");
    EXPECT_EQ(page.life, Life::Runs);
    EXPECT_EQ(page.pid, static_cast<uint64_t>(app->Pid()));
    ASSERT_EQ(page.streams.size(), 2U);
    const uint64_t before = page.streams[0].gaps.runningNs;
    EXPECT_GT(before, 0U);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    page = ThePage("run");
    EXPECT_GE(page.streams[0].gaps.runningNs, before + 50'000'000);
    EXPECT_GE(page.streams[0].gaps.everNs, page.streams[0].gaps.runningNs);
    EXPECT_EQ(page.streams[0].state, EntryState::Open);
    app->Signal(SIGKILL);
    EXPECT_EQ(app->WaitEnd(), 128 + SIGKILL);
    page = ThePage("run");
    EXPECT_EQ(page.life, Life::Died);
    EXPECT_EQ(page.streams[0].gaps.runningNs, 0U);
}

TEST_F(Watching, WithoutAPageOneLineSaysSoAndTheApplicationGoesOn) {
    StartFastBoard();
    WriteFile(Path("file"), "");
    const size_t environment = m_environment.size();
    const std::string file = std::filesystem::path(Path("file")).lexically_normal();
    const std::array<std::array<std::string, 2>, 3> directories{
        {{"", "zce-watch: ZCE_WATCH names no directory: nothing is counted"},
         {file, "zce-watch: " + file + ": Not a directory: nothing is counted"},
         {file + "/in/it/", "zce-watch: " + file + "/in/it: Not a directory: nothing is counted"}}};
    for (const auto& [directory, line] : directories) {
        m_environment.resize(environment);
        Watch(directory);
        EXPECT_THAT(WatchLines(RunApp("0,3", "return", 300)), ElementsAre(line));
    }
    m_environment.pop_back();  // no ZCE_WATCH at all
    EXPECT_THAT(WatchLines(RunApp("0,3", "return", 300)),
                ElementsAre("zce-watch: ZCE_WATCH names no directory: nothing is counted"));
}

TEST_F(Watching, APollMakesNoSystemCall) {
    StartFastBoard();
    Watch(Path("run"));
    // What the board's library does once in a second, and of a board that stands still, may be one:
    // then once more.
    int status = 128 + SIGSYS;
    for (int attempt = 0; attempt < 4 && status == 128 + SIGSYS; ++attempt) {
        auto app = App("app", "0,3", 1000, "strict");
        status = app->WaitEnd();
        const ZceWatch::Process page = ThePage("run");
        EXPECT_EQ(page.life, Life::Died);  // ended without the exit handlers
        ASSERT_EQ(page.streams.size(), 2U);
        if (status == 0) {
            EXPECT_GE(page.streams[0].Messages() + page.streams[1].Messages(), 2000U);
            EXPECT_GE(page.streams[0].polls, 1000U);
        }
        std::filesystem::remove_all(Path("run"));
    }
    EXPECT_EQ(status, 0);
}

}  // namespace

}  // namespace velatest
