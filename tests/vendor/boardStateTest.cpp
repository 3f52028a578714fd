// Whether the board runs, as an application asks without polling anything.

#include <dlfcn.h>
#include <sys/wait.h>

#include <cstdio>
#include <thread>

#include "ZceBoardState.h"
#include "memory/ShmLayout.h"
#include "tests/vendor/libraryFixture.h"

namespace {

using boardtest::HoldingChild;
using boardtest::InChild;

class BoardState : public boardtest::LibraryFixture {
  protected:
    // A board in a process of its own, which can be killed.
    static std::unique_ptr<HoldingChild> BoardProcess(uint32_t bus = 0) {
        auto board = std::make_unique<HoldingChild>([bus] {
            ZceBoard::CBoardMemory* const memory = MakeBoard(bus).release();
            return memory->IsOpen();
        });
        EXPECT_TRUE(board->Holds());
        return board;
    }
};

TEST_F(BoardState, IsThatItRunsAlsoBeforeOneIsOpened) {
    EXPECT_EQ(zce_board_state(), 0);
    const auto memory = MakeBoard();
    EXPECT_EQ(zce_board_state(), 0);
    ASSERT_NE(Accelerator(), nullptr);
    EXPECT_EQ(zce_board_state(), 0);
    EXPECT_EQ(ZCE_BOARD_RUNS, 0);
    EXPECT_EQ(ZCE_BOARD_GONE, 1);
    EXPECT_EQ(ZCE_BOARD_NEW, 2);
}

TEST_F(BoardState, IsThatItHasGoneWhenItEndsInOrder) {
    auto memory = MakeBoard();
    ASSERT_NE(Accelerator(), nullptr);
    memory.reset();
    errno = 77;
    EXPECT_EQ(zce_board_state(), 1);
    EXPECT_EQ(errno, 77);
    EXPECT_EQ(zce_board_state(), 1);
}

TEST_F(BoardState, TellsAKilledBoardAndANewOneOnItsBus) {
    const auto first = BoardProcess();
    ASSERT_NE(Accelerator(), nullptr);
    EXPECT_EQ(zce_board_state(), 0);
    first->Kill();  // its memory keeps its name
    EXPECT_EQ(zce_board_state(), 1);
    const auto other = MakeBoard(1);
    EXPECT_EQ(zce_board_state(), 1) << "a board on another bus is none";
    const auto second = BoardProcess();
    EXPECT_EQ(zce_board_state(), 2);
    // From another thread as well, and of a process that opens the new one.
    int state = -1;
    std::thread([&state] { state = zce_board_state(); }).join();
    EXPECT_EQ(state, 2);
    ASSERT_NE(Accelerator(), nullptr);
    EXPECT_EQ(zce_board_state(), 0);
    second->Kill();
    EXPECT_EQ(zce_board_state(), 1);
}

TEST_F(BoardState, IsTheWorstOfSeveralBoards) {
    const auto first = BoardProcess();
    auto second = MakeBoard(3);
    ASSERT_NE(Accelerator(0), nullptr);
    ASSERT_NE(Accelerator(3), nullptr);
    EXPECT_EQ(zce_board_state(), 0);
    first->Kill();
    EXPECT_EQ(zce_board_state(), 1);
    const auto third = BoardProcess();
    second.reset();
    EXPECT_EQ(zce_board_state(), 2);
}

TEST_F(BoardState, IsTheBoardsAndNotItsNames) {
    auto memory = MakeBoard();
    ASSERT_NE(Accelerator(), nullptr);
    ASSERT_EQ(unlink(ShmPath().c_str()), 0);
    EXPECT_EQ(zce_board_state(), 0) << "it goes on for those that have its memory";
    // A forked child has not the file.
    EXPECT_EQ(InChild([] { return zce_board_state(); }), 1);
    const auto replaced = MakeBoard();
    EXPECT_EQ(zce_board_state(), 0);
    memory.reset();
    EXPECT_EQ(zce_board_state(), 2);
}

TEST_F(BoardState, IsKnownToAForkedChild) {
    const auto board = BoardProcess();
    ASSERT_NE(Accelerator(), nullptr);
    EXPECT_EQ(InChild([] { return zce_board_state(); }), 0);
    board->Kill();
    EXPECT_EQ(InChild([] { return zce_board_state(); }), 1);
    const auto next = BoardProcess();
    EXPECT_EQ(InChild([] { return zce_board_state(); }), 2);
}

TEST_F(BoardState, IsFoundByItsNameInALibraryOfTheVendorsName) {
    void* const library = dlopen(ENYX_HW_FILE, RTLD_NOW);
    ASSERT_NE(library, nullptr);
    const auto state = reinterpret_cast<ZceBoardState_f>(dlsym(library, ZCE_BOARD_STATE_NAME));
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state(), 0);
    dlclose(library);
}

}  // namespace
