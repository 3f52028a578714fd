#include "memory/CoreLock.h"

#include <memory>
#include <thread>

#include "boardFixture.h"

namespace {

using ZceBoard::CCoreLock;

class CoreLock : public boardtest::BoardFixture {
  protected:
    std::unique_ptr<ZceBoard::CBoardMemory> m_memory = MakeBoard();
    CCoreLock m_lock{*m_memory};

    // Another process's view of the same lock.
    bool OthersCanLock() {
        return boardtest::InChild([this] {
                   CCoreLock theirs(*m_memory);
                   const bool got = theirs.TryLock();
                   theirs.Unlock();
                   return got ? 1 : 0;
               }) == 1;
    }
};

TEST_F(CoreLock, ExcludesOtherProcessesUntilUnlockedAsOftenAsLocked) {
    m_lock.Lock();
    m_lock.Lock();
    EXPECT_FALSE(OthersCanLock());
    m_lock.Unlock();
    EXPECT_FALSE(OthersCanLock());
    m_lock.Unlock();
    EXPECT_TRUE(OthersCanLock());
}

TEST_F(CoreLock, ExcludesOtherThreadsOfTheProcess) {
    m_lock.Lock();
    bool got = true;
    std::thread([&] { got = m_lock.TryLock(); }).join();
    EXPECT_FALSE(got);
    m_lock.Unlock();
    std::thread([&] {
        got = m_lock.TryLock();
        m_lock.Unlock();
    }).join();
    EXPECT_TRUE(got);
}

TEST_F(CoreLock, AnUnlockByAThreadThatDoesNotHoldItDoesNothing) {
    m_lock.Unlock();
    m_lock.Lock();
    std::thread([&] { m_lock.Unlock(); }).join();
    EXPECT_FALSE(OthersCanLock());
    m_lock.Unlock();
}

TEST_F(CoreLock, IsFreedByTheDeathOfItsHolder) {
    boardtest::HoldingChild holder([this] {
        (new CCoreLock(*m_memory))->Lock();  // it ends with the process
        return true;
    });
    ASSERT_TRUE(holder.Holds());
    EXPECT_FALSE(m_lock.TryLock());
    holder.Kill();
    m_lock.Lock();
    EXPECT_FALSE(OthersCanLock());
    m_lock.Unlock();
    EXPECT_TRUE(OthersCanLock()) << "and it is whole again";
}

TEST_F(CoreLock, TryLockTakesItFromADeadHolderToo) {
    boardtest::HoldingChild holder([this] {
        (new CCoreLock(*m_memory))->Lock();  // it ends with the process
        return true;
    });
    ASSERT_TRUE(holder.Holds());
    holder.Kill();
    EXPECT_TRUE(m_lock.TryLock());
    m_lock.Unlock();
    EXPECT_TRUE(OthersCanLock());
}

TEST_F(CoreLock, IsFreedByTheEndOfAThreadThatHeldIt) {
    std::thread([&] { m_lock.Lock(); }).join();
    bool got = false;
    std::thread([&] {
        got = m_lock.TryLock();
        m_lock.Unlock();
    }).join();
    EXPECT_TRUE(got);
}

TEST_F(CoreLock, AForkedChildDoesNotHoldWhatItsParentHolds) {
    m_lock.Lock();
    EXPECT_EQ(boardtest::InChild([this] { return m_lock.TryLock() ? 1 : 0; }), 0);
    m_lock.Unlock();
}

}  // namespace
