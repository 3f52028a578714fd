// Register accesses of eight threads at once: each operation is whole, a block too.

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "drvRegFixture.h"

namespace {

using velatest::FakeEnyx;

constexpr unsigned int threadNum = 8;
constexpr unsigned int rounds = 150;
constexpr unsigned long blockAddr = 0x500;
constexpr unsigned long ownAddr = 0x600;
constexpr unsigned long blockBytes = 44;  // five words and a tail

class DrvRegThreads : public DrvReg {
  protected:
    // One thread's life: a block that all of them write and read, and a register of its own.
    void Live(unsigned char letter) {
        std::array<unsigned char, blockBytes> block{};
        for (unsigned int round = 0; round < rounds; ++round) {
            block.fill(letter);
            whole = whole && m_drv.WriteBytes(blockAddr, block.data(), blockBytes) == blockBytes;
            whole = whole && m_drv.ReadBytes(blockAddr, block.data(), blockBytes) == blockBytes;
            whole = whole && std::all_of(block.begin(), block.end(),
                                         [&block](unsigned char byte) { return byte == block[0]; });
            unsigned int value = 0;
            whole = whole && m_drv.WriteInt32_LogWithRead(ownAddr + letter, round) == 0;
            whole = whole && m_drv.ReadInt32(ownAddr + letter, value) == 0;
            whole = whole && value == round;
        }
    }

    std::atomic<bool> whole{true};
};

TEST_F(DrvRegThreads, NoBlockIsTornAndNoValueIsAnothers) {
    Start();
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < threadNum; ++thread) {
        threads.emplace_back([this, thread] { Live(static_cast<unsigned char>(1 + thread)); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(whole);
    EXPECT_EQ(FakeEnyx::CountOf("core_lock"), FakeEnyx::CountOf("core_unlock"));
    EXPECT_EQ(FakeEnyx::CountOf("core_lock"), static_cast<int>(threadNum * rounds * 4));
}

}  // namespace
