#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "libraryFixture.h"
#include "memory/CoreLock.h"
#include "memory/HostClock.h"

namespace {

class Library : public boardtest::LibraryFixture {};

class LibraryCore : public boardtest::LibraryFixture {
  protected:
    LibraryCore() {
        m_mmio = Mmio(m_accelerator);
        m_root = enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(m_mmio));
        EXPECT_EQ(enyx_hw_core_enumerate(m_root, 474, &m_core, 1), 1);
    }
    ~LibraryCore() override { enyx_hw_mmio_destroy(m_mmio); }

    uint32_t Read(uint32_t index) {
        const enyx_hw_register_description description{uint64_t{4} * index, 0, 32};
        uint64_t value = ~uint64_t{0};
        EXPECT_EQ(enyx_hw_read(m_core, &description, &value), 0);
        return static_cast<uint32_t>(value);
    }
    void Write(uint32_t index, uint32_t value) {
        const enyx_hw_register_description description{uint64_t{4} * index, 0, 32};
        EXPECT_EQ(enyx_hw_write(m_core, &description, value), 0);
    }

    std::unique_ptr<ZceBoard::CBoardMemory> m_board = MakeBoard();
    enyx_hw_accelerator* m_accelerator = Accelerator();
    enyx_hw_mmio* m_mmio = nullptr;
    enyx_hw_core* m_root = nullptr;
    enyx_hw_core* m_core = nullptr;
};

TEST_F(Library, WithoutABoardThereIsNoAccelerator) {
    enyx_hw_filter* filter = Filter();
    enyx_hw_accelerator_descriptor* descriptor = nullptr;
    errno = 0;
    EXPECT_EQ(enyx_hw_enumerate_accelerators(filter, &descriptor, 1), 0);
    EXPECT_EQ(errno, ENODEV);
    for (const uint32_t bus : {0U, 3U, 9U, 10U, 65535U, 0xFFFFFFFFU}) {
        enyx_hw_filter_set_index(filter, bus);
        errno = 0;
        EXPECT_EQ(enyx_hw_enumerate_accelerators(filter, &descriptor, 1), 0) << bus;
        EXPECT_EQ(errno, ENODEV);
    }
    EXPECT_EQ(descriptor, nullptr);
    enyx_hw_filter_destroy(filter);
}

TEST_F(Library, ABoardOfAnotherVersionIsAnErrorNotAnAbsence) {
    auto board = MakeBoard(2);
    board->Shm().header.version = 99;
    enyx_hw_filter* filter = Filter();
    enyx_hw_filter_set_index(filter, 2);
    enyx_hw_accelerator_descriptor* descriptor = nullptr;
    EXPECT_EQ(enyx_hw_enumerate_accelerators(filter, &descriptor, 1), -1);
    EXPECT_EQ(errno, EPROTO);
    enyx_hw_filter_destroy(filter);
}

TEST_F(Library, EnumeratesTheBoardsThatLiveAndFillsNoMoreThanThereIsRoomFor) {
    auto two = MakeBoard(2);
    auto five = MakeBoard(5);
    enyx_hw_filter* filter = Filter();
    enyx_hw_accelerator_descriptor* descriptors[4] = {};
    EXPECT_EQ(enyx_hw_enumerate_accelerators(filter, descriptors, 4), 2);
    EXPECT_NE(descriptors[1], nullptr);
    EXPECT_EQ(descriptors[2], nullptr);
    enyx_hw_free_accelerator_descriptors(descriptors, 2);
    EXPECT_EQ(descriptors[0], nullptr);
    EXPECT_EQ(enyx_hw_enumerate_accelerators(filter, descriptors, 1), 2);
    EXPECT_EQ(descriptors[1], nullptr);
    enyx_hw_free_accelerator_descriptors(descriptors, 1);
    EXPECT_EQ(enyx_hw_enumerate_accelerators(filter, nullptr, 0), 2);
    enyx_hw_filter_destroy(filter);
}

TEST_F(Library, TheSameBoardIsOneAcceleratorAndItsSuccessorAnother) {
    auto board = MakeBoard();
    enyx_hw_accelerator* first = Accelerator();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(Accelerator(), first);
    board.reset();
    EXPECT_EQ(Accelerator(), nullptr);
    board = MakeBoard();
    enyx_hw_accelerator* second = Accelerator();
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, first);
}

TEST_F(Library, ABoardThatWentBetweenEnumerationAndOpeningIsNoDevice) {
    auto board = MakeBoard();
    enyx_hw_filter* filter = Filter();
    enyx_hw_accelerator_descriptor* descriptor = nullptr;
    ASSERT_EQ(enyx_hw_enumerate_accelerators(filter, &descriptor, 1), 1);
    board.reset();
    EXPECT_EQ(enyx_hw_accelerator_get(descriptor), nullptr);
    EXPECT_EQ(errno, ENODEV);
    enyx_hw_free_accelerator_descriptors(&descriptor, 1);
    enyx_hw_filter_destroy(filter);
}

TEST_F(Library, NullArgumentsFailAndDoNotCrash) {
    uint64_t value = 0;
    uint32_t word = 0;
    const enyx_hw_register_description description{64, 0, 32};
    enyx_hw_filter* filter = Filter();
    enyx_hw_accelerator_descriptor* descriptor = nullptr;
    const auto fails = [](int result) { return result < 0 && errno == EINVAL; };
    enyx_hw_filter_destroy(nullptr);
    EXPECT_TRUE(fails(enyx_hw_filter_set_index(nullptr, 0)));
    EXPECT_TRUE(fails(enyx_hw_filter_set_name(nullptr, "x")));
    EXPECT_TRUE(fails(enyx_hw_filter_set_name(filter, nullptr)));
    EXPECT_TRUE(fails(enyx_hw_enumerate_accelerators(nullptr, &descriptor, 1)));
    EXPECT_TRUE(fails(enyx_hw_enumerate_accelerators(filter, nullptr, 1)));
    EXPECT_EQ(enyx_hw_accelerator_get(nullptr), nullptr);
    EXPECT_TRUE(fails(enyx_hw_accelerator_enumerate_mmios(nullptr, filter, nullptr, 1)));
    EXPECT_EQ(enyx_hw_mmio_create(nullptr), nullptr);
    enyx_hw_mmio_destroy(nullptr);
    EXPECT_EQ(enyx_hw_enumerate_cores(nullptr), nullptr);
    EXPECT_EQ(enyx_hw_core_tree_get_root(nullptr), nullptr);
    EXPECT_TRUE(fails(enyx_hw_core_reset(nullptr)));
    EXPECT_TRUE(fails(enyx_hw_core_enumerate(nullptr, 474, nullptr, 1)));
    enyx_hw_core_lock(nullptr);
    enyx_hw_core_unlock(nullptr);
    EXPECT_TRUE(fails(enyx_hw_read(nullptr, &description, &value)));
    EXPECT_TRUE(fails(enyx_hw_write(nullptr, &description, 1)));
    EXPECT_TRUE(fails(enyx_hw_accelerator_enumerate_a2c_streams(nullptr, filter, nullptr, 1)));
    EXPECT_TRUE(fails(enyx_hw_accelerator_enumerate_c2a_streams(nullptr, filter, nullptr, 1)));
    EXPECT_EQ(enyx_hw_a2c_stream_create(nullptr, 0), nullptr);
    EXPECT_EQ(enyx_hw_c2a_stream_create(nullptr, 0), nullptr);
    enyx_hw_a2c_stream_destroy(nullptr);
    enyx_hw_c2a_stream_destroy(nullptr);
    EXPECT_TRUE(fails(enyx_hw_a2c_stream_get_mtu(nullptr, &word)));
    EXPECT_TRUE(fails(enyx_hw_c2a_stream_get_mtu(nullptr, &word)));
    EXPECT_TRUE(fails(enyx_hw_a2c_stream_poll_once(nullptr, nullptr, nullptr)));
    EXPECT_TRUE(fails(enyx_hw_c2a_stream_send(nullptr, &word, 4)));
    EXPECT_TRUE(fails(enyx_hw_a2c_stream_stats_get_backpressure(nullptr, &word)));
    EXPECT_TRUE(fails(enyx_hw_a2c_stream_stats_get_packet_count(nullptr, &word)));
    EXPECT_TRUE(fails(enyx_hw_a2c_stream_stats_get_fifo_errors(nullptr, &word)));
    EXPECT_TRUE(fails(enyx_hw_a2c_stream_stats_get_errors(nullptr, &word)));
    enyx_hw_free_accelerator_descriptors(nullptr, 1);
    enyx_hw_free_mmio_descriptors(nullptr, 1);
    enyx_hw_free_a2c_stream_descriptors(nullptr, 1);
    enyx_hw_free_c2a_stream_descriptors(nullptr, 1);
    enyx_hw_filter_destroy(filter);
}

TEST_F(LibraryCore, TheRegisterCoreIsBelowARootWithAnotherId) {
    EXPECT_NE(m_core, m_root);
    enyx_hw_core* found = nullptr;
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 475, &found, 1), 0);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 474, nullptr, 0), 1);
    EXPECT_EQ(enyx_hw_core_enumerate(m_core, 474, &found, 1), 1) << "at or below";
    EXPECT_EQ(found, m_core);
    enyx_hw_core* root = nullptr;
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 1, &root, 1), 1);
    EXPECT_EQ(root, m_root);
    const enyx_hw_register_description description{64, 0, 32};
    uint64_t value = 5;
    EXPECT_EQ(enyx_hw_read(m_root, &description, &value), -1);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(value, 5U);
}

TEST_F(LibraryCore, OnlyMmio0IsThere) {
    enyx_hw_filter* filter = Filter();
    enyx_hw_filter_set_index(filter, 1);
    enyx_hw_mmio_descriptor* descriptor = nullptr;
    EXPECT_EQ(enyx_hw_accelerator_enumerate_mmios(m_accelerator, filter, &descriptor, 1), 0);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(descriptor, nullptr);
    enyx_hw_filter_destroy(filter);
}

TEST_F(LibraryCore, ReadsAndWritesTheBoardsRegisters) {
    Write(0x106, 20261120);
    EXPECT_EQ(m_board->Shm().registers[0x106].load(), 20261120U);
    EXPECT_EQ(Read(0x106), 20261120U);
    EXPECT_EQ(Read(0x103), 0xFU);
    const enyx_hw_register_description wide{uint64_t{4} * 0x301, 0, 64};
    EXPECT_EQ(enyx_hw_write(m_core, &wide, 0x1122334455667788), 0);
    EXPECT_EQ(Read(0x301), 0x55667788U);
    EXPECT_EQ(Read(0x302), 0x11223344U);
    const enyx_hw_register_description tail{uint64_t{4} * 0x301, 8, 24};
    EXPECT_EQ(enyx_hw_write(m_core, &tail, 0xFFABCDEF), 0);
    EXPECT_EQ(Read(0x301), 0xABCDEF88U);
}

TEST_F(LibraryCore, AnAccessOutsideTheSpaceFails) {
    const enyx_hw_register_description beyond{uint64_t{4} * 0x20000, 0, 32};
    uint64_t value = 5;
    EXPECT_LT(enyx_hw_read(m_core, &beyond, &value), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(value, 5U);
    EXPECT_LT(enyx_hw_write(m_core, &beyond, 1), 0);
}

TEST_F(LibraryCore, TwoProcessesSeeOneBoard) {
    Write(0x11001, 0x33);
    Write(0x11000, 64);
    EXPECT_EQ(boardtest::InChild([this] {
                  Write(0x11002, 64);
                  return static_cast<int>(Read(0x11003));
              }),
              0x33);
}

TEST_F(LibraryCore, TheCoreResetLeavesRegistersTablesAndStreamsAlone) {
    Write(0x11, 3);
    Write(0x106, 20261120);
    Write(0x11001, 7);
    Write(0x11000, 128);
    enyx_hw_a2c_stream* stream = OpenA2c(m_accelerator, "CUSTOM_CHAN2_DATA");
    EXPECT_EQ(enyx_hw_core_reset(m_root), 0);
    EXPECT_EQ(enyx_hw_core_reset(m_core), 0);
    EXPECT_EQ(Read(0x11), 3U);
    EXPECT_EQ(Read(0x106), 20261120U);
    Write(0x11002, 128);
    EXPECT_EQ(Read(0x11003), 7U);
    EXPECT_NE(m_board->Shm().a2c[2].control.generation.load(), 0U);
    EXPECT_EQ(m_board->Shm().header.coreResets.load(), 2U);
    EXPECT_EQ(m_board->Shm().header.boardResets.load(), 0U);
    enyx_hw_a2c_stream_destroy(stream);
}

TEST_F(LibraryCore, AccessesInsideTheLockDoNotLockAgain) {
    enyx_hw_core_lock(m_core);
    enyx_hw_core_lock(m_root);  // the same lock, for the same thread
    Write(0x106, 5);
    EXPECT_EQ(Read(0x106), 5U);
    EXPECT_EQ(boardtest::InChild([this] {
                  ZceBoard::CCoreLock theirs(*m_board);
                  return theirs.TryLock() ? 1 : 0;
              }),
              0)
        << "still held after the accesses";
    enyx_hw_core_unlock(m_root);
    enyx_hw_core_unlock(m_core);
    ZceBoard::CCoreLock other(*m_board);
    EXPECT_TRUE(other.TryLock());
    other.Unlock();
}

TEST_F(LibraryCore, AnAccessByAnotherThreadWaitsForTheLock) {
    enyx_hw_core_lock(m_core);
    std::atomic<bool> written{false};
    std::thread other([&] {
        Write(0x106, 9);
        written = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(written);
    enyx_hw_core_unlock(m_core);
    other.join();
    EXPECT_EQ(Read(0x106), 9U);
}

TEST_F(LibraryCore, TheLockOfAKilledProcessIsFree) {
    boardtest::HoldingChild holder([this] {
        enyx_hw_core_lock(m_core);
        return true;
    });
    ASSERT_TRUE(holder.Holds());
    holder.Kill();
    Write(0x106, 4);
    EXPECT_EQ(Read(0x106), 4U);
}

TEST_F(LibraryCore, AnAccessTakesAsLongAsTheBoardsAccessesTake) {
    constexpr int64_t ns = 300'000;
    constexpr int64_t nearly = ns - ns / 10'000;  // two clocks
    m_board->Shm().header.accessNs = ns;
    const enyx_hw_register_description beyond{uint64_t{4} * 0x20000, 0, 32};
    for (int k = 0; k < 10; ++k) {
        int64_t begin = ZceBoard::RealNs();
        Write(0x106, 20261120);
        EXPECT_GE(ZceBoard::RealNs() - begin, nearly);
        begin = ZceBoard::RealNs();
        EXPECT_EQ(Read(0x106), 20261120U);
        EXPECT_GE(ZceBoard::RealNs() - begin, nearly);
        EXPECT_LT(enyx_hw_write(m_core, &beyond, 1), 0);
        EXPECT_EQ(errno, EINVAL) << "the reason of the access";
    }
    m_board->Shm().header.accessNs = 0;
    int64_t shortest = ns;
    for (int k = 0; k < 100; ++k) {
        const int64_t begin = ZceBoard::RealNs();
        Read(0x106);
        shortest = std::min(shortest, ZceBoard::RealNs() - begin);
    }
    EXPECT_LT(shortest, nearly) << "no longer than it takes";
}

TEST_F(LibraryCore, AccessesThatTakeTimeTakeTurns) {
    constexpr int64_t accesses = 20;
    constexpr int64_t ns = 500'000;
    m_board->Shm().header.accessNs = ns;
    Read(0x106);
    const int64_t begin = ZceBoard::RealNs();
    std::thread other([this] {
        for (int k = 0; k < accesses; ++k) {
            Write(0x12, 0);
        }
    });
    for (int k = 0; k < accesses; ++k) {
        Read(0x106);
    }
    other.join();
    EXPECT_GE(ZceBoard::RealNs() - begin, 2 * accesses * ns - accesses * ns / 1'000);
}

TEST_F(LibraryCore, RegistersGoOnInTheOrphanedMemoryOfADeadBoard) {
    Write(0x106, 4);
    m_board.reset();
    EXPECT_EQ(Read(0x106), 4U);
    Write(0x106, 5);
    EXPECT_EQ(Read(0x106), 5U);
    EXPECT_EQ(enyx_hw_core_reset(m_root), 0);
}

}  // namespace
