// What a reader says of the pages: of their processes, of what is no page, of gaps.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "asUser.h"
#include "watchedPage.h"

namespace velatest {
namespace {

using ZceWatch::CPageFile;
using ZceWatch::Entry;
using ZceWatch::EntryState;
using ZceWatch::Life;
using ZceWatch::Page;
using ZceWatch::Process;

constexpr int64_t nsOfASecond = 1'000'000'000;

using PageReader = WatchedPage;

TEST_F(PageReader, AReaderTellsWhoRunsWhoEndedAndWhoDied) {
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

TEST_F(PageReader, OneThatHasEndedAndIsNotYetWaitedForHasDied) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
    EXPECT_FALSE(ZceWatch::IsThere(static_cast<uint64_t>(child), 0));
    waitpid(child, nullptr, 0);
}

TEST_F(PageReader, AnotherLayoutIsRefusedAndSaysWhatToDo) {
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

TEST_F(PageReader, WhatIsNoPageIsRefused) {
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

TEST_F(PageReader, ADamagedOneIsRefused) {
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

TEST_F(PageReader, TheGapOfAProcessThatDoesNotPollIsTheRunningOne) {
    auto image = Image();
    image->entriesUsed = 1;
    Entry& entry = image->entries[0];
    entry.state = 1;
    entry.gapSecondNs = 3 * nsOfASecond;
    entry.gapMinuteNs = 100 * nsOfASecond;
    entry.gapEverNs = 500 * nsOfASecond;
    const auto gaps = [&](int64_t agoNs) {
        entry.lastPollTicks = static_cast<uint64_t>(ZceWatch::ClockNs(CLOCK_MONOTONIC) - agoNs);
        return Read(Put("a.watch", *image)).streams.at(0).gaps;
    };
    constexpr uint64_t tolerance = 900'000'000;
    ZceWatch::Gaps seen = gaps(100'000);
    EXPECT_GE(seen.runningNs, 100'000U);
    EXPECT_LT(seen.runningNs, tolerance);
    EXPECT_EQ(seen.secondNs, 3U * nsOfASecond);
    EXPECT_EQ(seen.minuteNs, 100U * nsOfASecond);
    seen = gaps(2 * nsOfASecond);  // the last second has nothing of before
    EXPECT_GE(seen.runningNs, 2U * nsOfASecond);
    EXPECT_EQ(seen.secondNs, seen.runningNs);
    EXPECT_EQ(seen.minuteNs, 100U * nsOfASecond);
    seen = gaps(61 * nsOfASecond);
    EXPECT_EQ(seen.minuteNs, seen.runningNs);
    EXPECT_EQ(seen.everNs, 500U * nsOfASecond);
    seen = gaps(600 * nsOfASecond);
    EXPECT_EQ(seen.everNs, seen.runningNs);
    entry.state = 2;  // closed: nobody is to poll
    seen = gaps(600 * nsOfASecond);
    EXPECT_EQ(seen.runningNs, 0U);
    EXPECT_EQ(seen.everNs, 500U * nsOfASecond);
    entry.state = 1;
    entry.lastPollTicks = 0;  // not polled yet
    EXPECT_EQ(Read(Put("a.watch", *image)).streams.at(0).gaps.runningNs, 0U);
    image->state = 2;  // ended
    EXPECT_EQ(gaps(600 * nsOfASecond).runningNs, 0U);
}

TEST_F(PageReader, ADirectoryIsReadInOrderWithWhatIsRefused) {
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

}  // namespace
}  // namespace velatest
