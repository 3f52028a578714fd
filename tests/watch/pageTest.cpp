// The page: its bytes, who may read it, what a reader says of it, and which pages go.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill()
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "asUser.h"
#include "tempDir.h"
#include "watch/PageFile.h"
#include "watch/ProcessLife.h"
#include "watch/WatchReader.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using testing::ElementsAre;
using ZceWatch::CPageFile;
using ZceWatch::CStreamWatch;
using ZceWatch::Entry;
using ZceWatch::EntryState;
using ZceWatch::Life;
using ZceWatch::Page;
using ZceWatch::PageState;
using ZceWatch::Process;
using ZceWatch::TickClock;
using ZceWatch::TickSource;

constexpr int64_t nsPerSecond = 1'000'000'000;
constexpr TickClock nsClock{TickSource::Monotonic, nsPerSecond};
constexpr size_t headSize = 256;  // of the page, before its entries
constexpr size_t entrySize = 512;

int NoCounter(enyx_hw_a2c_stream* /*stream*/, uint32_t* value) {
    *value = 7;
    return 0;
}

ZceWatch::VendorCalls CallsOfNothing() {
    return {nullptr, NoCounter, NoCounter, NoCounter, NoCounter, nullptr};
}

uint64_t WordAt(const std::string& bytes, size_t at) {
    uint64_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof(word));
    return word;
}

class WatchedPage : public testing::Test {
  protected:
    std::string Name(pid_t pid = getpid()) const {
        return m_directory / (ZceWatch::ProgramName() + "-" + std::to_string(pid) + ".watch");
    }
    void Open(CPageFile& page) const {
        std::string error;
        ASSERT_TRUE(page.Open(m_directory.path(), nsClock, error)) << error;
    }
    // A page of this process as a file says it.
    static std::unique_ptr<Page> Image() {
        auto page = std::make_unique<Page>();
        page->magic = {'Z', 'C', 'E', 'W', 'A', 'T', 'C', 'H'};
        page->version = 1;
        page->size = sizeof(Page);
        page->entrySize = entrySize;
        page->entryCapacity = 64;
        page->pid = static_cast<uint64_t>(getpid());
        page->processStart = ZceWatch::ProcessStart(page->pid).value_or(0);
        page->beginNs = 5;
        page->tickSource = 2;
        page->ticksPerSecond = nsPerSecond;
        std::strcpy(page->program.data(), "app");  // NOLINT(clang-analyzer-security*): fits
        page->state = 1;
        return page;
    }
    std::string Put(const std::string& name, const Page& page, size_t size = sizeof(Page)) const {
        PutFile(m_directory / name,
                {reinterpret_cast<const char*>(&page), std::min(size, sizeof(Page))});
        return m_directory / name;
    }
    static std::string Refusal(const std::string& path) {
        Process process;
        std::string error;
        EXPECT_FALSE(ZceWatch::ReadPage(path, process, error));
        return error;
    }
    static Process Read(const std::string& path) {
        Process process;
        std::string error;
        EXPECT_TRUE(ZceWatch::ReadPage(path, process, error)) << error;
        return process;
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& file : std::filesystem::directory_iterator(m_directory.path())) {
            names.push_back(file.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    TempDir m_directory;
};

// Makes a page in a child that ends so. Returns the child's pid.
template <class Body>
pid_t InChild(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return child;
}

TEST_F(WatchedPage, EveryWordStandsAtItsPlace) {
    CPageFile page;
    Open(page);
    CStreamWatch* first = page.StreamOf(0, 3);
    CStreamWatch* second = page.StreamOf(2, 15);
    ASSERT_TRUE(first != nullptr && second != nullptr);
    first->Opened(CallsOfNothing());
    second->Opened(CallsOfNothing());
    std::array<unsigned char, 100> message{20};
    second->CountMessage(message.data(), 100);
    for (const uint64_t now : {1000U, 4000U, 9'000'000U}) {
        ASSERT_TRUE(second->CountPoll(nullptr, nullptr));
        second->TickAt(now);
    }
    second->TakeCare(nullptr);

    const std::string bytes = WholeFile(Name());
    ASSERT_EQ(bytes.size(), 256U + 64 * 512);
    EXPECT_EQ(bytes.substr(0, 8), "ZCEWATCH");
    EXPECT_EQ(WordAt(bytes, 8), 1U);  // version
    EXPECT_EQ(WordAt(bytes, 16), 256U + 64 * 512);
    EXPECT_EQ(WordAt(bytes, 24), 512U);
    EXPECT_EQ(WordAt(bytes, 32), 64U);
    EXPECT_EQ(WordAt(bytes, 40), static_cast<uint64_t>(getpid()));
    EXPECT_EQ(WordAt(bytes, 48), ZceWatch::ProcessStart(static_cast<uint64_t>(getpid())));
    EXPECT_NEAR(static_cast<double>(WordAt(bytes, 56)),
                static_cast<double>(ZceWatch::ClockNs(CLOCK_REALTIME)), 60e9);
    EXPECT_EQ(WordAt(bytes, 64), 2U);  // CLOCK_MONOTONIC
    EXPECT_EQ(WordAt(bytes, 72), 1'000'000'000U);
    EXPECT_EQ(std::string(bytes.c_str() + 80), ZceWatch::ProgramName());
    EXPECT_EQ(WordAt(bytes, 144), 1U);  // running
    EXPECT_EQ(WordAt(bytes, 152), 0U);  // its end
    EXPECT_EQ(WordAt(bytes, 160), 2U);  // entries
    EXPECT_EQ(WordAt(bytes, 168), 0U);  // not counted

    EXPECT_EQ(WordAt(bytes, headSize), 0U);
    EXPECT_EQ(WordAt(bytes, headSize + 8), 3U);
    const size_t at = headSize + entrySize;
    EXPECT_EQ(WordAt(bytes, at), 2U);
    EXPECT_EQ(WordAt(bytes, at + 8), 15U);
    EXPECT_EQ(WordAt(bytes, at + 16), 1U);  // opening
    EXPECT_EQ(WordAt(bytes, at + 24), 1U);  // open
    EXPECT_GE(WordAt(bytes, at + 32), WordAt(bytes, 56));
    EXPECT_EQ(WordAt(bytes, at + 40), 0U);  // closed
    EXPECT_EQ(WordAt(bytes, at + 48), 0U);  // board
    EXPECT_EQ(WordAt(bytes, at + 64), 3U);  // polls
    EXPECT_EQ(WordAt(bytes, at + 72), 9'000'000U);
    EXPECT_EQ(WordAt(bytes, at + 80), 8'996'000U);
    EXPECT_EQ(WordAt(bytes, at + 88), 8'996'000U);
    EXPECT_EQ(WordAt(bytes, at + 96), 8'996'000U);
    EXPECT_GE(WordAt(bytes, at + 104) + nsPerSecond, WordAt(bytes, 56));  // the last message
    EXPECT_EQ(WordAt(bytes, at + 192), 1U);                               // type 20
    EXPECT_EQ(WordAt(bytes, at + 200), 100U);
    EXPECT_EQ(WordAt(bytes, at + 128), 0U);  // type 2
    for (size_t k = 0; k < 4; ++k) {
        EXPECT_EQ(WordAt(bytes, at + 224 + k * 8), 7U);  // the vendor's counters
    }
    EXPECT_EQ(WordAt(bytes, at + 256), 1U);  // they were read
    EXPECT_GE(WordAt(bytes, at + 264) + nsPerSecond, WordAt(bytes, 56));
    EXPECT_EQ(WordAt(bytes, at + 320 + 8), 1U);  // 3000 ns
    EXPECT_EQ(WordAt(bytes, at + 424), 1U);      // 8996000 ns
}

TEST_F(WatchedPage, IsReadableByAllWhateverTheUmaskAndMadeWithItsDirectories) {
    const mode_t before = umask(077);
    CPageFile page;
    std::string error;
    EXPECT_TRUE(page.Open(m_directory / "run/zce", nsClock, error)) << error;
    umask(before);
    struct stat status {};
    for (const std::string part : {"run", "run/zce"}) {
        ASSERT_EQ(stat((m_directory / part).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0755U) << part;
    }
    const std::string path = m_directory / "run/zce/" + ZceWatch::ProgramName() + "-" +
                             std::to_string(getpid()) + ".watch";
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
    EXPECT_EQ(Read(path).life, Life::Runs);
}

TEST_F(WatchedPage, WhatCannotBeMadeIsToldAndLeavesNothing) {
    PutFile(m_directory / "file", "");
    chmod(m_directory.path().c_str(), 0755);
    EXPECT_EQ(RunAsUser([this] {
                  CPageFile page;
                  std::string error;
                  EXPECT_FALSE(page.Open(m_directory.path(), nsClock, error));
                  EXPECT_EQ(error, Name() + ": Permission denied");
                  EXPECT_FALSE(page.Open(m_directory / "new/er", nsClock, error));
                  EXPECT_EQ(error, m_directory / "new/er: Permission denied");
                  return HasFailure() ? 1 : 0;
              }),
              0);
    CPageFile page;
    std::string error;
    EXPECT_FALSE(page.Open(m_directory / "file", nsClock, error));
    EXPECT_EQ(error, m_directory / "file: Not a directory");
    EXPECT_EQ(RunAsUser([] {
                  // No disk is full here: a limit says so at the same place.
                  // The kernel's signal for it would end the process.
                  signal(SIGXFSZ, SIG_DFL);
                  const rlimit limit{30'000, 30'000};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  CPageFile small;
                  std::string why;
                  EXPECT_FALSE(small.Open("/tmp", nsClock, why));
                  EXPECT_EQ(why, "/tmp/" + ZceWatch::ProgramName() + "-" +
                                     std::to_string(getpid()) + ".watch: File too large");
                  EXPECT_NE(access((why.substr(0, why.find(": ")) + ".new").c_str(), F_OK), 0);
                  return HasFailure() ? 1 : 0;
              }),
              0);
    EXPECT_THAT(Names(), ElementsAre("file"));
    // Nothing is counted, and nothing falls over.
    page.Finish();
    EXPECT_TRUE(page.BecomeChild());
}

TEST_F(WatchedPage, AReaderTellsWhoRunsWhoEndedAndWhoDied) {
    const pid_t ended = InChild([this] {
        CPageFile page;
        Open(page);
        page.StreamOf(0, 1)->Opened(CallsOfNothing());
        page.Finish();
    });
    // Not of the same program: the page above would go.
    const pid_t died = InChild([this] {
        program_invocation_short_name = const_cast<char*>("other/ program");  // NOLINT
        CPageFile page;
        Open(page);
    });
    const Process first = Read(Name(ended));
    EXPECT_EQ(first.life, Life::Ended);
    EXPECT_GE(first.endNs, first.beginNs);
    EXPECT_EQ(first.program, ZceWatch::ProgramName());
    ASSERT_EQ(first.streams.size(), 1U);
    EXPECT_EQ(first.streams[0].state, EntryState::Open);
    const std::string path = m_directory / "other__program-" + std::to_string(died) + ".watch";
    EXPECT_EQ(Read(path).life, Life::Died);
    EXPECT_EQ(Read(path).endNs, 0);

    // A number that is used once more is another process's.
    auto image = Image();
    EXPECT_EQ(Read(Put("a.watch", *image)).life, Life::Runs);
    ++image->processStart;
    EXPECT_EQ(Read(Put("a.watch", *image)).life, Life::Died);
    image->pid = 1;
    image->processStart = 0;  // not known
    EXPECT_EQ(Read(Put("a.watch", *image)).life, Life::Runs);
    image->pid = uint64_t{1} << 40;
    EXPECT_EQ(Read(Put("a.watch", *image)).life, Life::Died);
}

TEST_F(WatchedPage, OneThatHasEndedAndIsNotYetWaitedForHasDied) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
    EXPECT_FALSE(ZceWatch::IsThere(static_cast<uint64_t>(child), 0));
    waitpid(child, nullptr, 0);
}

TEST_F(WatchedPage, AnotherLayoutIsRefusedAndSaysWhatToDo) {
    auto image = Image();
    image->version = 0;
    EXPECT_EQ(Refusal(Put("a.watch", *image)),
              m_directory /
                  "a.watch: this page has layout 0, this program reads 1: use the "
                  "zce-watch and zce-top of the older release that the application's "
                  "libzce-watch.so is of, or start the application with this release's");
    // A page of another layout may have another size.
    image->version = 2;
    EXPECT_EQ(Refusal(Put("a.watch", *image, 16)),
              m_directory /
                  "a.watch: this page has layout 2, this program reads 1: use the "
                  "zce-watch and zce-top of the newer release that the application's "
                  "libzce-watch.so is of, or start the application with this release's");
}

TEST_F(WatchedPage, WhatIsNoPageIsRefused) {
    const auto image = Image();
    const std::string noPage =
        ": this is no page of libzce-watch.so: remove it, or name another "
        "directory";
    PutFile(m_directory / "a.watch", "");
    EXPECT_EQ(Refusal(m_directory / "a.watch"), m_directory / "a.watch" + noPage);
    PutFile(m_directory / "a.watch", std::string(40'000, 'x'));
    EXPECT_EQ(Refusal(m_directory / "a.watch"), m_directory / "a.watch" + noPage);
    EXPECT_EQ(Refusal(Put("a.watch", *image, 15)), m_directory / "a.watch" + noPage);
    ASSERT_EQ(mkfifo((m_directory / "pipe.watch").c_str(), 0600), 0);
    EXPECT_EQ(Refusal(m_directory / "pipe.watch"),
              m_directory / "pipe.watch: this is no file: remove it, or name another directory");
    EXPECT_EQ(Refusal(m_directory / "none.watch"),
              m_directory / "none.watch: No such file or directory");
    chmod(m_directory.path().c_str(), 0755);
    chmod(Put("b.watch", *image).c_str(), 0);
    EXPECT_EQ(RunAsUser([this] {
                  const std::string wrong = m_directory / "b.watch: Permission denied";
                  return Refusal(m_directory / "b.watch") == wrong ? 0 : 1;
              }),
              0);
}

TEST_F(WatchedPage, ADamagedOneIsRefused) {
    const std::string damaged =
        m_directory / "a.watch: this page is damaged: remove it, and start the application anew";
    const auto image = Image();
    EXPECT_EQ(Refusal(Put("a.watch", *image, sizeof(Page) - 1)), damaged);
    EXPECT_EQ(Refusal(Put("a.watch", *image, 16)), damaged);
    for (uint64_t Page::*const word :
         {&Page::size, &Page::entrySize, &Page::entryCapacity, &Page::ticksPerSecond}) {
        const auto wrong = Image();
        (*wrong).*word = 0;
        EXPECT_EQ(Refusal(Put("a.watch", *wrong)), damaged);
    }
    image->entriesUsed = 65;
    EXPECT_EQ(Refusal(Put("a.watch", *image)), damaged);
    // States that nobody knows are none; a name without an end is as long as it can be.
    image->entriesUsed = 64;
    image->program.fill('n');
    image->entries[0].state = 3;
    image->entries[0].boardState = 4;
    image->entries[0].countersState = 3;
    const Process process = Read(Put("a.watch", *image));
    EXPECT_EQ(process.program, std::string(64, 'n'));
    EXPECT_EQ(process.streams.size(), 64U);
    EXPECT_EQ(process.streams[0].state, EntryState::None);
    EXPECT_EQ(process.streams[0].board, ZceWatch::BoardState::Unknown);
    EXPECT_EQ(process.streams[0].counters.state, ZceWatch::CountersState::NotRead);
}

TEST_F(WatchedPage, TheGapOfAProcessThatDoesNotPollIsTheRunningOne) {
    auto image = Image();
    image->entriesUsed = 1;
    Entry& entry = image->entries[0];
    entry.state = 1;
    entry.gapSecondNs = 3 * nsPerSecond;
    entry.gapMinuteNs = 100 * nsPerSecond;
    entry.gapEverNs = 500 * nsPerSecond;
    const auto gaps = [&](int64_t agoNs) {
        entry.lastPollTicks = static_cast<uint64_t>(ZceWatch::ClockNs(CLOCK_MONOTONIC) - agoNs);
        return Read(Put("a.watch", *image)).streams.at(0).gaps;
    };
    constexpr uint64_t tolerance = 900'000'000;
    ZceWatch::Gaps seen = gaps(100'000);
    EXPECT_GE(seen.runningNs, 100'000U);
    EXPECT_LT(seen.runningNs, tolerance);
    EXPECT_EQ(seen.secondNs, 3U * nsPerSecond);
    EXPECT_EQ(seen.minuteNs, 100U * nsPerSecond);
    seen = gaps(2 * nsPerSecond);  // the last second has nothing of before
    EXPECT_GE(seen.runningNs, 2U * nsPerSecond);
    EXPECT_EQ(seen.secondNs, seen.runningNs);
    EXPECT_EQ(seen.minuteNs, 100U * nsPerSecond);
    seen = gaps(61 * nsPerSecond);
    EXPECT_EQ(seen.minuteNs, seen.runningNs);
    EXPECT_EQ(seen.everNs, 500U * nsPerSecond);
    seen = gaps(600 * nsPerSecond);
    EXPECT_EQ(seen.everNs, seen.runningNs);
    entry.state = 2;  // closed: nobody is to poll
    seen = gaps(600 * nsPerSecond);
    EXPECT_EQ(seen.runningNs, 0U);
    EXPECT_EQ(seen.everNs, 500U * nsPerSecond);
    entry.state = 1;
    entry.lastPollTicks = 0;  // not polled yet
    EXPECT_EQ(Read(Put("a.watch", *image)).streams.at(0).gaps.runningNs, 0U);
    image->state = 2;  // ended
    EXPECT_EQ(gaps(600 * nsPerSecond).runningNs, 0U);
}

TEST_F(WatchedPage, ADirectoryIsReadInOrderWithWhatIsRefused) {
    const auto image = Image();
    std::strcpy(image->program.data(), "b");  // NOLINT(clang-analyzer-security*): fits
    Put("1.watch", *image);
    std::strcpy(image->program.data(), "a");  // NOLINT(clang-analyzer-security*): fits
    image->pid = 20;
    Put("2.watch", *image);
    image->pid = 3;
    Put("3.watch", *image);
    Put("4.watch.new", *image);
    PutFile(m_directory / "z.watch", "");
    PutFile(m_directory / "y.watch", "");
    ZceWatch::Directory pages;
    std::string error;
    ASSERT_TRUE(ZceWatch::ReadDirectory(m_directory.path(), pages, error)) << error;
    ASSERT_EQ(pages.processes.size(), 3U);
    EXPECT_EQ(pages.processes[0].path, m_directory / "3.watch");
    EXPECT_EQ(pages.processes[1].path, m_directory / "2.watch");
    EXPECT_EQ(pages.processes[2].path, m_directory / "1.watch");
    ASSERT_EQ(pages.refused.size(), 2U);
    EXPECT_EQ(pages.refused[0].rfind(m_directory / "y.watch: this is no page", 0), 0U);
    EXPECT_FALSE(ZceWatch::ReadDirectory(m_directory / "none", pages, error));
    EXPECT_EQ(error, m_directory /
                         "none: No such file or directory: name the directory that the "
                         "applications have in ZCE_WATCH");
}

TEST_F(WatchedPage, AClosedChannelsEntryIsThatOfItsNextOpening) {
    CPageFile page;
    Open(page);
    CStreamWatch* first = page.StreamOf(0, 3);
    first->Opened(CallsOfNothing());
    CStreamWatch* same = page.StreamOf(0, 3);  // of another board whose number is the same
    EXPECT_NE(same, first);
    same->Opened(CallsOfNothing());
    first->Closed(nullptr);
    EXPECT_EQ(page.StreamOf(0, 3), first);
    EXPECT_EQ(page.StreamOf(1, 3) == first, false);
    EXPECT_EQ(Read(Name()).streams.size(), 3U);
}

TEST_F(WatchedPage, AFullPageCountsWhatItHasNoRoomFor) {
    CPageFile page;
    Open(page);
    for (uint16_t k = 0; k < 64; ++k) {
        CStreamWatch* stream = page.StreamOf(k, 1);
        ASSERT_NE(stream, nullptr);
        stream->Opened(CallsOfNothing());
    }
    EXPECT_EQ(page.StreamOf(64, 1), nullptr);
    EXPECT_EQ(page.StreamOf(65, 1), nullptr);
    const Process process = Read(Name());
    EXPECT_EQ(process.streams.size(), 64U);
    EXPECT_EQ(process.notCounted, 2U);
}

TEST_F(WatchedPage, TheChildOfAForkChangesNothingInIt) {
    CPageFile page;
    Open(page);
    CStreamWatch* stream = page.StreamOf(0, 3);
    stream->Opened(CallsOfNothing());
    const std::string before = WholeFile(Name());
    InChild([&] {
        EXPECT_TRUE(page.BecomeChild());
        const std::array<unsigned char, 8> message{17};
        stream->CountMessage(message.data(), 8);
        stream->CountPoll(nullptr, nullptr);
        stream->TickAt(1000);
        stream->Closed(nullptr);
        page.StreamOf(0, 9);
        page.Finish();
    });
    EXPECT_TRUE(WholeFile(Name()) == before);
}

TEST_F(WatchedPage, OldPagesOfTheProgramGoButForTheNewestOfTheDead) {
    auto image = Image();
    const std::string name = ZceWatch::ProgramName();
    std::strcpy(image->program.data(), name.c_str());  // NOLINT(clang-analyzer-security*): fits
    Put("alive.watch", *image);
    const uint64_t start = image->processStart;
    image->processStart = start + 1;
    for (int k = 10; k < 28; ++k) {
        image->beginNs = k;
        Put("dead" + std::to_string(k) + ".watch", *image);
    }
    image->state = 2;
    image->beginNs = 1000;
    Put("ended.watch", *image);
    std::strcpy(image->program.data(), "another");  // NOLINT(clang-analyzer-security*): fits
    Put("others.watch", *image);
    PutFile(m_directory / "no.watch", "");
    ZceWatch::RemoveOldPages(m_directory.path());
    std::vector<std::string> expected{"alive.watch"};
    for (int k = 12; k < 28; ++k) {
        expected.push_back("dead" + std::to_string(k) + ".watch");
    }
    expected.insert(expected.end(), {"no.watch", "others.watch"});
    EXPECT_EQ(Names(), expected);
}

}  // namespace
}  // namespace velatest
