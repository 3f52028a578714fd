#include "memory/AccessTime.h"

#include <cerrno>
#include <memory>

#include "boardFixture.h"
#include "memory/HostClock.h"

namespace {

using ZceBoard::AccessNs;
using ZceBoard::CBoardMemory;

class AccessTime : public boardtest::BoardFixture {
  protected:
    AccessTime() {
        int32_t pid = 0;
        EXPECT_EQ(m_board.Create(0, pid, std::nullopt, 2000), 0);
    }

    CBoardMemory m_board;
};

TEST_F(AccessTime, WhoeverUsesTheBoardFindsIt) {
    CBoardMemory user;
    ASSERT_EQ(user.Attach(0), 0);
    EXPECT_EQ(AccessNs(user.Shm()), 2000U);
}

TEST_F(AccessTime, ABoardWithoutOneHasNone) {
    const std::unique_ptr<CBoardMemory> other = MakeBoard(1);
    EXPECT_EQ(AccessNs(other->Shm()), 0U);
    EXPECT_EQ(other->MendHeader(), 0U);
}

TEST_F(AccessTime, TheBoardPutsItRight) {
    EXPECT_EQ(m_board.MendHeader(), 0U);
    m_board.Shm().header.accessNs = 0;
    EXPECT_EQ(m_board.MendHeader(), 1U);
    EXPECT_EQ(AccessNs(m_board.Shm()), 2000U);
}

TEST_F(AccessTime, NonsenseInTheMemoryMakesNoAccessLongerThanAMillisecond) {
    m_board.Shm().header.accessNs = 0xFFFFFFFF;
    EXPECT_EQ(AccessNs(m_board.Shm()), 1'000'000U);
}

// In each of a few lengths: what the processor's counter is taken for is right.
TEST_F(AccessTime, AnAccessTakesItAtLeastAndGivesItsResult) {
    for (const uint32_t ns : {1U, 3'000U, 300'000U, 1'000'000U}) {
        m_board.Shm().header.accessNs = ns;
        for (int k = 0; k < 20; ++k) {
            int accesses = 0;
            errno = EIO;
            const int64_t begin = ZceBoard::RealNs();
            EXPECT_EQ(ZceBoard::TakeTime(m_board.Shm(), [&] { return 40 + ++accesses; }), 41);
            // One in ten thousand: the two clocks need not agree to the last tick.
            EXPECT_GE(ZceBoard::RealNs() - begin, ns - ns / 10'000) << ns;
            EXPECT_EQ(errno, EIO);
        }
    }
}

// The shortest of some: others may have the processor for a while.
TEST_F(AccessTime, AnAccessTakesNotMuchMore) {
    constexpr int64_t wanted = 1'000'000;
    m_board.Shm().header.accessNs = wanted;
    int64_t shortest = 100 * wanted;
    for (int k = 0; k < 200 && shortest > wanted + wanted / 100; ++k) {
        const int64_t begin = ZceBoard::RealNs();
        ZceBoard::TakeTime(m_board.Shm(), [] { return 0; });
        shortest = std::min(shortest, ZceBoard::RealNs() - begin);
    }
    EXPECT_LE(shortest, wanted + wanted / 100);
}

}  // namespace
