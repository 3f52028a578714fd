#include "memory/BoardMemory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <memory>

#include "boardFixture.h"

namespace {

using ZceBoard::CBoardFile;
using ZceBoard::CBoardMemory;

class BoardMemory : public boardtest::BoardFixture {
  protected:
    bool NameExists(uint32_t bus = 0) const { return access(ShmPath(bus).c_str(), F_OK) == 0; }
};

TEST_F(BoardMemory, TheNameCarriesThePrefixAndTheBus) {
    EXPECT_EQ(ZceBoard::ShmName(3), "/" + m_prefix + "zce-board.3");
    unsetenv("ZCE_BOARD_SHM_PREFIX");
    EXPECT_EQ(ZceBoard::ShmName(0), "/zce-board.0");
    setenv("ZCE_BOARD_SHM_PREFIX", "a/b", 1);
    EXPECT_EQ(ZceBoard::ShmName(0), "");
    setenv("ZCE_BOARD_SHM_PREFIX", std::string(200, 'x').c_str(), 1);
    EXPECT_EQ(ZceBoard::ShmName(0), "");
    int32_t pid = 0;
    EXPECT_EQ(CBoardMemory().Create(0, pid), EINVAL);
    EXPECT_EQ(CBoardMemory::Probe(0), ENODEV);
}

TEST_F(BoardMemory, IsABoardFromItsMakingToItsEndAndLeavesNoName) {
    EXPECT_EQ(CBoardMemory::Probe(0), ENODEV);
    auto board = MakeBoard();
    EXPECT_EQ(CBoardMemory::Probe(0), 0);
    EXPECT_EQ(CBoardMemory::Probe(1), ENODEV);
    CBoardMemory user;
    ASSERT_EQ(user.Attach(0), 0);
    board->Shm().registers[0x106].store(5);
    EXPECT_EQ(user.Shm().registers[0x106].load(), 5U);
    EXPECT_EQ(user.Shm().header.boardPid.load(), getpid());
    board.reset();
    EXPECT_FALSE(NameExists());
    EXPECT_EQ(CBoardMemory::Probe(0), ENODEV);
    EXPECT_EQ(user.Shm().registers[0x106].load(), 5U) << "the mapping stays good";
}

TEST_F(BoardMemory, OnlyItsUserMayOpenIt) {
    auto board = MakeBoard();
    struct stat st {};
    ASSERT_EQ(stat(ShmPath().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600U);
}

TEST_F(BoardMemory, ASecondBoardOnTheBusIsRefusedAndToldWhoTheFirstIs) {
    auto board = MakeBoard();
    int32_t pid = 0;
    CBoardMemory second;
    EXPECT_EQ(second.Create(0, pid), EBUSY);
    EXPECT_EQ(pid, getpid());
    EXPECT_EQ(boardtest::InChild([] {
                  int32_t theirPid = 0;
                  return CBoardMemory().Create(0, theirPid) == EBUSY ? 0 : 1;
              }),
              0);
    EXPECT_EQ(CBoardMemory::Probe(0), 0) << "and the first is unharmed";
}

TEST_F(BoardMemory, TwoBusesAreTwoBoards) {
    auto zero = MakeBoard(0);
    auto one = MakeBoard(1);
    zero->Shm().registers[0x106].store(5);
    EXPECT_EQ(one->Shm().registers[0x106].load(), 0U);
}

TEST_F(BoardMemory, WhatACrashedBoardLeftIsNoBoardAndANewOneRemovesIt) {
    boardtest::HoldingChild crashing([] {
        auto* board = MakeBoard().release();
        board->Shm().registers[0x106].store(77);
        return true;
    });
    ASSERT_TRUE(crashing.Holds());
    EXPECT_EQ(CBoardMemory::Probe(0), 0);
    CBoardMemory user;
    ASSERT_EQ(user.Attach(0), 0);
    crashing.Kill();
    EXPECT_TRUE(NameExists());
    EXPECT_EQ(CBoardMemory::Probe(0), ENODEV);
    CBoardFile file;
    EXPECT_EQ(user.Reopen(file), ENODEV);
    auto fresh = MakeBoard();
    EXPECT_EQ(fresh->Shm().registers[0x106].load(), 0U);
    EXPECT_EQ(user.Shm().registers[0x106].load(), 77U) << "who used the dead one keeps its memory";
    EXPECT_EQ(user.Reopen(file), ENODEV) << "the new board is not the board this user knows";
}

TEST_F(BoardMemory, ForeignContentUnderTheNameIsNoBoard) {
    std::ofstream(ShmPath()) << "hello";
    EXPECT_EQ(CBoardMemory::Probe(0), ENODEV) << "nobody holds it";
    CBoardFile holder;
    ASSERT_EQ(holder.Open(ZceBoard::ShmName(0), O_RDWR, 0), 0);
    ASSERT_EQ(holder.Lock(ZceBoard::LOCK_BOARD), 0);
    EXPECT_EQ(CBoardMemory::Probe(0), EPROTO) << "held, but of another size";
    ASSERT_EQ(truncate(ShmPath().c_str(), sizeof(ZceBoard::BoardShm)), 0);
    EXPECT_EQ(CBoardMemory::Probe(0), EPROTO) << "the right size, but not the right magic number";
    ASSERT_EQ(truncate(ShmPath().c_str(), 0), 0);
    EXPECT_EQ(CBoardMemory::Probe(0), ENODEV) << "just being made";
    holder.Close();
    auto board = MakeBoard();
    EXPECT_EQ(CBoardMemory::Probe(0), 0);
}

TEST_F(BoardMemory, AnotherVersionIsNotTakenForOneOfOurs) {
    auto board = MakeBoard();
    ++board->Shm().header.version;
    EXPECT_EQ(CBoardMemory::Probe(0), EPROTO);
}

TEST_F(BoardMemory, AForkedChildIsNotTheBoardAndDoesNotKeepItAlive) {
    auto board = MakeBoard();
    boardtest::HoldingChild child([&board] {
        board.reset();  // must not remove the name
        return true;
    });
    ASSERT_TRUE(child.Holds());
    EXPECT_TRUE(NameExists());
    EXPECT_EQ(CBoardMemory::Probe(0), 0);
    board.reset();
    EXPECT_EQ(CBoardMemory::Probe(0), ENODEV) << "though the child lives on";
}

TEST_F(BoardMemory, ALockedByteIsLockedForEveryOtherDescriptionUntilItsHolderEnds) {
    auto board = MakeBoard();
    CBoardFile first;
    CBoardFile second;
    ASSERT_EQ(board->Reopen(first), 0);
    ASSERT_EQ(board->Reopen(second), 0);
    ASSERT_EQ(first.Lock(70), 0);
    EXPECT_EQ(second.Lock(70), EAGAIN);
    EXPECT_EQ(second.Lock(71), 0);
    EXPECT_TRUE(second.IsLocked(70));
    EXPECT_TRUE(board->File().IsLocked(70));
    first.Close();
    EXPECT_FALSE(second.IsLocked(70));
    EXPECT_EQ(second.Lock(70), 0);
}

}  // namespace
