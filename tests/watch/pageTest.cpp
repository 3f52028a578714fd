// The page: its bytes, who may read it, and which pages go.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): signal()
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "asUser.h"
#include "watchedPage.h"

namespace velatest {
namespace {

using testing::ElementsAre;
using ZceWatch::CPageFile;
using ZceWatch::CStreamWatch;
using ZceWatch::Life;
using ZceWatch::Process;

constexpr int64_t nsPerSecond = 1'000'000'000;
constexpr size_t headSize = 256;  // of the page, before its entries
constexpr size_t entrySize = 512;

uint64_t WordAt(const std::string& bytes, size_t at) {
    uint64_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof(word));
    return word;
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
    // Its new channels have counts of their own, whatever they are.
    InChild([&] {
        EXPECT_TRUE(page.BecomeChild());
        EXPECT_NE(page.StreamOf(0, 0), stream);
        EXPECT_NE(page.StreamOf(0, 3), stream);
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
