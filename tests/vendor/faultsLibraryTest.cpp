// Faults as a program sees them through the C interface.

#include <gmock/gmock.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "device/Board.h"
#include "libraryFixture.h"
#include "memory/Faults.h"

using testing::ElementsAre;
using ZceBoard::Fault;

namespace {

constexpr uint32_t any = 0xFFFFFFFF;

constexpr uint64_t ByteOf(uint32_t index) {
    return uint64_t{4} * index;
}

class LibraryFaults : public boardtest::LibraryFixture {
  protected:
    LibraryFaults() {
        m_mmio = Mmio(m_accelerator);
        m_root = enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(m_mmio));
        EXPECT_EQ(enyx_hw_core_enumerate(m_root, 474, &m_core, 1), 1);
    }
    ~LibraryFaults() override { enyx_hw_mmio_destroy(m_mmio); }

    // What an access gives, 0 or an errno; a failed read leaves the value alone.
    int ReadOf(uint64_t byte, uint8_t bit, uint8_t width) {
        const enyx_hw_register_description description{byte, bit, width};
        constexpr uint64_t before = 0x5A5A5A5A5A5A5A5A;
        uint64_t value = before;
        const int result = enyx_hw_read(m_core, &description, &value);
        if (result == 0) {
            return 0;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(value, before);
        return errno;
    }
    int WriteOf(uint64_t byte, uint8_t width, uint64_t value) {
        const enyx_hw_register_description description{byte, 0, width};
        const int result = enyx_hw_write(m_core, &description, value);
        return result == 0 ? 0 : errno;
    }
    uint32_t Read(uint32_t index) {
        const enyx_hw_register_description description{ByteOf(index), 0, 32};
        uint64_t value = 0;
        EXPECT_EQ(enyx_hw_read(m_core, &description, &value), 0);
        return static_cast<uint32_t>(value);
    }
    void Write(uint32_t index, uint32_t value) { EXPECT_EQ(WriteOf(ByteOf(index), 32, value), 0); }
    void WriteTable(uint32_t window, uint32_t place, uint32_t value) {
        Write(window + 1, value);
        Write(window, place);
    }
    uint32_t ReadTable(uint32_t window, uint32_t place) {
        Write(window + 2, place);
        return Read(window + 3);
    }

    std::unique_ptr<ZceBoard::CBoardMemory> m_board = MakeBoard();
    ZceBoard::CFaults m_faults{m_board->Shm()};
    enyx_hw_accelerator* m_accelerator = Accelerator();
    enyx_hw_mmio* m_mmio = nullptr;
    enyx_hw_core* m_root = nullptr;
    enyx_hw_core* m_core = nullptr;
};

TEST_F(LibraryFaults, EachNthReadFailsUntilTheLimit) {
    m_faults.Set({Fault::ReadFails, 3, any, 0, 2});
    std::vector<int> results;
    for (int k = 0; k < 8; ++k) {
        results.push_back(ReadOf(ByteOf(0x106), 0, 32));
        EXPECT_EQ(WriteOf(ByteOf(0x106), 32, 20261120), 0);
    }
    EXPECT_THAT(results, ElementsAre(0, 0, EIO, 0, 0, EIO, 0, 0));
}

TEST_F(LibraryFaults, ReadsThatTouchTheGivenRegisterFailWhateverTheirWidth) {
    m_faults.Set({Fault::ReadFails, 1, 0x105});
    EXPECT_EQ(ReadOf(ByteOf(0x105), 0, 32), EIO);
    EXPECT_EQ(ReadOf(ByteOf(0x105), 31, 1), EIO);
    EXPECT_EQ(ReadOf(ByteOf(0x105) + 3, 0, 8), EIO);
    EXPECT_EQ(ReadOf(ByteOf(0x104), 0, 64), EIO);
    EXPECT_EQ(ReadOf(ByteOf(0x104), 0, 33), EIO);
    EXPECT_EQ(ReadOf(ByteOf(0x104) + 2, 0, 64), EIO) << "three registers";
    EXPECT_EQ(ReadOf(ByteOf(0x104), 0, 32), 0);
    EXPECT_EQ(ReadOf(ByteOf(0x106), 0, 64), 0);
    EXPECT_EQ(ReadOf(ByteOf(0x104) + 3, 0, 8), 0);
    EXPECT_EQ(m_faults.Words(Fault::ReadFails).strikes.load(), 6U);
    // An access that is none is no occasion.
    EXPECT_EQ(ReadOf(ByteOf(0x105), 0, 65), EINVAL);
    EXPECT_EQ(ReadOf(ByteOf(0x105), 0, 0), EINVAL);
    EXPECT_EQ(m_faults.Words(Fault::ReadFails).occasions.load(), 6U);
    m_faults.Clear(Fault::ReadFails);
    EXPECT_EQ(ReadOf(ByteOf(0x105), 0, 32), 0);
}

TEST_F(LibraryFaults, AWriteThatFailsChangesNothing) {
    Write(0x106, 7);
    m_faults.Set({Fault::WriteFails, 1, 0x106});
    EXPECT_EQ(WriteOf(ByteOf(0x106), 32, 8), EIO);
    EXPECT_EQ(WriteOf(ByteOf(0x105), 64, 8), EIO);
    EXPECT_EQ(WriteOf(ByteOf(0x107), 32, 9), 0);
    EXPECT_EQ(Read(0x106), 7U);
    EXPECT_EQ(Read(0x107), 9U);
    m_faults.Set({Fault::WriteFails, 2});
    EXPECT_EQ(WriteOf(ByteOf(0x106), 32, 1), 0);
    EXPECT_EQ(WriteOf(ByteOf(0x106), 32, 2), EIO);
    EXPECT_EQ(Read(0x106), 1U);
}

TEST_F(LibraryFaults, ATableWordThatIsLostStaysAsItWas) {
    WriteTable(0x11000, 5 * 64, 1);
    m_faults.Set({Fault::TableWriteLost, 1, 5});
    WriteTable(0x11000, 5 * 64, 2);
    WriteTable(0x11000, 5 * 64 + 63, 3);
    WriteTable(0x12000, 5 * 64, 4);
    WriteTable(0x11000, 6 * 64, 5);
    EXPECT_EQ(ReadTable(0x11000, 5 * 64), 1U);
    EXPECT_EQ(ReadTable(0x11000, 5 * 64 + 63), 0U);
    EXPECT_EQ(ReadTable(0x12000, 5 * 64), 0U) << "the entry of both tables";
    EXPECT_EQ(ReadTable(0x11000, 6 * 64), 5U);
    EXPECT_EQ(m_faults.Words(Fault::TableWriteLost).strikes.load(), 3U);
    m_faults.Set({Fault::TableWriteLost, 2, any, 0, 1});
    for (uint32_t k = 0; k < 4; ++k) {
        WriteTable(0x12000, 64 * k, 0xFF);
    }
    EXPECT_EQ(ReadTable(0x12000, 0), 0xFFU);
    EXPECT_EQ(ReadTable(0x12000, 64), 0U);
    EXPECT_EQ(ReadTable(0x12000, 128), 0xFFU);
    EXPECT_EQ(ReadTable(0x12000, 192), 0xFFU);
}

constexpr uint32_t nameSR30 = 0x53523330;  // "SR30"

TEST_F(LibraryFaults, AChangingNameNeverReadsTwiceTheSameNorAsItIsStored) {
    WriteTable(0x11000, 7 * 64 + 4, nameSR30);
    WriteTable(0x11000, 7 * 64 + 3, nameSR30);
    m_faults.Set({Fault::NameChanges});
    uint32_t last = nameSR30;
    for (int k = 0; k < 100; ++k) {
        const uint32_t now = ReadTable(0x11000, 7 * 64 + 4);
        EXPECT_NE(now, last) << k;
        EXPECT_NE(now, nameSR30) << k;
        EXPECT_EQ(now >> 8, nameSR30 >> 8) << "the last character alone";
        EXPECT_EQ(now >> 4 & 0xF, 3U) << "and still a printable one";
        EXPECT_EQ(ReadTable(0x11000, 7 * 64 + 3), nameSR30) << "the first word alone";
        EXPECT_EQ(ReadTable(0x11000, 6 * 64 + 4), 0U) << "no name, no change";
        last = now;
    }
    EXPECT_EQ(m_faults.Words(Fault::NameChanges).occasions.load(), 100U);
    m_faults.ClearAll();
    EXPECT_EQ(ReadTable(0x11000, 7 * 64 + 4), nameSR30) << "what is stored never changed";
}

TEST_F(LibraryFaults, ANameChangesAtEachNthReadOfItsEntryAndSettlesAfterTheLimit) {
    WriteTable(0x12000, 7 * 64 + 4, nameSR30);
    WriteTable(0x12000, 8 * 64 + 4, nameSR30);
    m_faults.Set({Fault::NameChanges, 2, 7, 0, 1});
    EXPECT_EQ(ReadTable(0x12000, 8 * 64 + 4), nameSR30);
    EXPECT_EQ(ReadTable(0x12000, 7 * 64 + 4), nameSR30);
    EXPECT_EQ(ReadTable(0x12000, 8 * 64 + 4), nameSR30);
    EXPECT_NE(ReadTable(0x12000, 7 * 64 + 4), nameSR30);
    EXPECT_EQ(ReadTable(0x12000, 7 * 64 + 4), nameSR30);
    EXPECT_EQ(ReadTable(0x12000, 7 * 64 + 4), nameSR30);
}

TEST_F(LibraryFaults, ARegisterCoreThatIsMissingIsNotFound) {
    enyx_hw_core* found = nullptr;
    m_faults.Set({Fault::CoreMissing, 1, any, 0, 2});
    errno = 0;
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 474, &found, 1), 0);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 1, &found, 1), 1) << "the root is there";
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 474, nullptr, 0), 0);
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 474, &found, 1), 1);
    EXPECT_EQ(found, m_core);
}

TEST_F(LibraryFaults, ARegisterCoreThatIsThereTwiceFillsNoMoreThanThereIsRoomFor) {
    m_faults.Set({Fault::CoreTwice});
    enyx_hw_core* found[3] = {};
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 474, nullptr, 0), 2);
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 474, found, 1), 2);
    EXPECT_THAT(found, ElementsAre(m_core, nullptr, nullptr));
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 474, found, 3), 2);
    ASSERT_NE(found[1], nullptr);
    EXPECT_NE(found[1], m_core);
    EXPECT_EQ(found[2], nullptr);
    Write(0x106, 4711);
    m_core = found[1];
    EXPECT_EQ(Read(0x106), 4711U) << "the same registers";
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 1, found, 1), 1);
    EXPECT_EQ(enyx_hw_core_enumerate(m_root, 475, found, 1), 0);
}

TEST_F(LibraryFaults, ARefusedStreamIsNotHeld) {
    m_faults.Set({Fault::StreamRefused, 1, 3});
    EXPECT_EQ(OpenA2c(m_accelerator, "CUSTOM_CHAN3_DATA"), nullptr);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(OpenC2a(m_accelerator, "CUSTOM_CHAN3_DATA"), nullptr);
    EXPECT_EQ(errno, EIO);
    enyx_hw_a2c_stream* other = OpenA2c(m_accelerator, "CUSTOM_CHAN4_DATA");
    EXPECT_NE(other, nullptr);
    enyx_hw_a2c_stream_destroy(other);
    EXPECT_EQ(m_board->Shm().a2c[3].control.lastGeneration.load(), 0U);
    m_faults.ClearAll();
    enyx_hw_a2c_stream* stream = OpenA2c(m_accelerator, "CUSTOM_CHAN3_DATA");
    EXPECT_NE(stream, nullptr);
    enyx_hw_a2c_stream_destroy(stream);
}

TEST_F(LibraryFaults, ABusyBoardTakesNoPacket) {
    enyx_hw_c2a_stream* stream = OpenC2a(m_accelerator, "CUSTOM_CHAN2_DATA");
    ASSERT_NE(stream, nullptr);
    m_faults.Set({Fault::SendBusy, 1, 2, 0, 3});
    const char packet[] = "request";
    for (int k = 0; k < 3; ++k) {
        errno = 0;
        EXPECT_EQ(enyx_hw_c2a_stream_send(stream, packet, sizeof(packet)), 11);
        EXPECT_EQ(errno, EAGAIN);
    }
    EXPECT_EQ(enyx_hw_c2a_stream_send(stream, packet, sizeof(packet)), 0);
    ZceBoard::CBoard board(*m_board);
    board.DrainRequests();
    EXPECT_EQ(board.Requests(), 1U);
    EXPECT_EQ(m_board->Shm().c2a[2].control.backPressure.load(), 3U);
    m_faults.Set({Fault::SendBusy, 1, 3});
    EXPECT_EQ(enyx_hw_c2a_stream_send(stream, packet, sizeof(packet)), 0) << "another channel";
    enyx_hw_c2a_stream_destroy(stream);
}

TEST_F(LibraryFaults, FifoErrorsAreReadOnTopOfTheRealOnes) {
    ZceBoard::CBoard board(*m_board);
    enyx_hw_a2c_stream* stream = OpenA2c(m_accelerator, "CUSTOM_CHAN2_DATA");
    ASSERT_NE(stream, nullptr);
    board.NoticeOpenings();
    m_board->Shm().a2c[2].control.fifoErrors = 5;
    const auto fifo = [stream] {
        uint32_t value = 0;
        EXPECT_EQ(enyx_hw_a2c_stream_stats_get_fifo_errors(stream, &value), 0);
        return value;
    };
    EXPECT_EQ(fifo(), 5U);
    m_faults.Set({Fault::FifoErrors, 1, 2, 1000});
    EXPECT_EQ(fifo(), 1005U);
    uint32_t value = 7;
    EXPECT_EQ(enyx_hw_a2c_stream_stats_get_backpressure(stream, &value), 0);
    EXPECT_EQ(value, 0U) << "that counter alone";
    EXPECT_EQ(enyx_hw_a2c_stream_stats_get_fifo_errors(nullptr, &value), -1);
    EXPECT_EQ(enyx_hw_a2c_stream_stats_get_fifo_errors(stream, nullptr), -1);
    m_faults.Set({Fault::FifoErrors, 1, 3, 1000});
    EXPECT_EQ(fifo(), 5U);
    enyx_hw_a2c_stream_destroy(stream);
}

}  // namespace
