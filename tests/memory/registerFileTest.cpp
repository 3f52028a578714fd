#include "memory/RegisterFile.h"

#include <memory>

#include "boardFixture.h"

namespace {

using ZceBoard::CRegisterFile;
using ZceBoard::RegisterField;

class RegisterFile : public boardtest::BoardFixture {
  protected:
    uint64_t Read(uint64_t byteOffset, uint32_t bit, uint32_t width) {
        uint64_t value = 0xdeadbeefdeadbeef;
        EXPECT_TRUE(m_file.Read({byteOffset, bit, width}, value));
        return value;
    }
    bool Write(uint64_t byteOffset, uint32_t bit, uint32_t width, uint64_t value) {
        return m_file.Write({byteOffset, bit, width}, value);
    }
    void StoreTable(uint32_t window, uint32_t address, uint32_t value) {
        m_file.WriteWord(window + 1, value);
        m_file.WriteWord(window, address);
    }
    uint32_t LoadTable(uint32_t window, uint32_t address) {
        m_file.WriteWord(window + 2, address);
        return m_file.ReadWord(window + 3);
    }

    std::unique_ptr<ZceBoard::CBoardMemory> m_memory = MakeBoard();
    ZceBoard::BoardShm& m_shm = m_memory->Shm();
    CRegisterFile m_file{m_shm};
};

TEST_F(RegisterFile, BeginsAsZeroWithAllFibresConnected) {
    EXPECT_EQ(m_file.ReadWord(0x103), 0xFU);
    for (const uint32_t index : {0x10U, 0x11U, 0x12U, 0x104U, 0x105U, 0x106U, 0x200bU, 0x301U}) {
        EXPECT_EQ(m_file.ReadWord(index), 0U) << std::hex << index;
    }
}

TEST_F(RegisterFile, A64BitAccessAtIndexNCoversRegistersNAndNPlus1) {
    ASSERT_TRUE(Write(uint64_t{4} * 0x400, 0, 64, 0x1122334455667788));
    EXPECT_EQ(m_file.ReadWord(0x400), 0x55667788U);
    EXPECT_EQ(m_file.ReadWord(0x401), 0x11223344U);
    EXPECT_EQ(Read(uint64_t{4} * 0x400, 0, 64), 0x1122334455667788U);
    EXPECT_EQ(m_file.ReadWord(0x3ff), 0U);
    EXPECT_EQ(m_file.ReadWord(0x402), 0U);
}

TEST_F(RegisterFile, ANarrowWriteLeavesTheOtherBitsOfTheRegister) {
    ASSERT_TRUE(Write(uint64_t{4} * 0x400, 0, 64, ~uint64_t{0}));
    ASSERT_TRUE(Write(uint64_t{4} * 0x400, 0, 8, 0x100));
    EXPECT_EQ(m_file.ReadWord(0x400), 0xFFFFFF00U);
    ASSERT_TRUE(Write(uint64_t{4} * 0x400, 0, 24, 0x123456));
    EXPECT_EQ(m_file.ReadWord(0x400), 0xFF123456U);
    ASSERT_TRUE(Write(uint64_t{4} * 0x400, 0, 40, 0xAA00000001));
    EXPECT_EQ(m_file.ReadWord(0x400), 0x00000001U);
    EXPECT_EQ(m_file.ReadWord(0x401), 0xFFFFFFAAU);
}

TEST_F(RegisterFile, EveryWidthAtEveryBitGivesBackWhatWasWritten) {
    for (uint32_t width = 1; width <= 64; ++width) {
        const uint64_t mask = width == 64 ? ~uint64_t{0} : (uint64_t{1} << width) - 1;
        for (uint32_t bit = 0; bit < 40; bit += 3) {
            for (uint32_t k = 0; k < 5; ++k) {
                m_file.WriteWord(0x400 + k, 0);
            }
            ASSERT_TRUE(Write(uint64_t{4} * 0x400 + 1, bit, width, 0xF123456789ABCDEF));
            ASSERT_EQ(Read(uint64_t{4} * 0x400 + 1, bit, width), 0xF123456789ABCDEF & mask)
                << width << " bits at " << bit;
            // Nothing beside the field changed.
            uint64_t ones = 0;
            for (uint32_t k = 0; k < 5; ++k) {
                ones += static_cast<uint64_t>(__builtin_popcount(m_file.ReadWord(0x400 + k)));
            }
            ASSERT_EQ(ones, static_cast<uint64_t>(__builtin_popcountll(0xF123456789ABCDEF & mask)));
        }
    }
}

TEST_F(RegisterFile, AFieldOutsideTheSpaceOrWithoutWidthFailsAndLeavesTheValue) {
    constexpr uint64_t SPACE = uint64_t{4} * 0x20000;
    uint64_t value = 77;
    EXPECT_TRUE(m_file.Read({SPACE - 8, 0, 64}, value));
    value = 77;
    for (const RegisterField& field :
         {RegisterField{SPACE - 7, 0, 64}, RegisterField{SPACE, 0, 8},
          RegisterField{SPACE - 8, 1, 64}, RegisterField{~uint64_t{0}, 0, 32},
          RegisterField{~uint64_t{0} / 8, 0, 32}, RegisterField{64, 0, 0},
          RegisterField{64, 0, 65}}) {
        EXPECT_FALSE(m_file.Read(field, value));
        EXPECT_FALSE(m_file.Write(field, 1));
    }
    EXPECT_EQ(value, 77U);
}

TEST_F(RegisterFile, WritingTheAddressRegisterStoresTheDataLastWritten) {
    m_file.WriteWord(0x11001, 5);
    EXPECT_EQ(LoadTable(0x11000, 0), 0U);
    m_file.WriteWord(0x11000, 64);
    EXPECT_EQ(LoadTable(0x11000, 64), 5U);
    m_file.WriteWord(0x11000, 128);
    EXPECT_EQ(LoadTable(0x11000, 128), 5U);
    EXPECT_EQ(LoadTable(0x12000, 64), 0U) << "the tables are two";
    StoreTable(0x12000, 64, 9);
    EXPECT_EQ(LoadTable(0x12000, 64), 9U);
    EXPECT_EQ(LoadTable(0x11000, 64), 5U);
}

TEST_F(RegisterFile, TheTablesReachFromTheFirstToTheLastWordAndNoFurther) {
    StoreTable(0x11000, 4096 * 64 - 1, 11);
    EXPECT_EQ(LoadTable(0x11000, 4096 * 64 - 1), 11U);
    StoreTable(0x11000, 4096 * 64, 12);
    EXPECT_EQ(LoadTable(0x11000, 4096 * 64), 0U);
    StoreTable(0x11000, 0xFFFFFFFF, 13);
    EXPECT_EQ(LoadTable(0x11000, 0xFFFFFFFF), 0U);
    EXPECT_EQ(LoadTable(0x12000, 0), 0U) << "nothing ran over into the other table";
    EXPECT_EQ(m_shm.header.ignoredTableWrites.load(), 2U);
}

TEST_F(RegisterFile, WhatTheBoardKeepsCannotBeWrittenByAHost) {
    for (const uint32_t index : {0x103U, 0x104U, 0x105U, 0x200bU, 0x200cU, 0x200dU, 0x200eU,
                                 0x210bU, 0x210eU, 0x11003U, 0x12003U}) {
        const uint32_t before = m_file.ReadWord(index);
        m_file.WriteWord(index, 0x5a5a);
        EXPECT_EQ(m_file.ReadWord(index), before) << std::hex << index;
    }
    m_file.WriteWord(0x106, 20261120);
    EXPECT_EQ(m_file.ReadWord(0x106), 20261120U);
}

TEST_F(RegisterFile, AResetClearsTablesSwitchesCountersNetworkAndDateAndKeepsTheClock) {
    for (const uint32_t index : {0x11U, 0x12U, 0x106U, 0x300U, 0x301U, 0x308U, 0x310U, 0x318U,
                                 0x200bU, 0x200eU, 0x210bU, 0x210eU, 0x104U, 0x105U}) {
        m_file.Poke(index, 1);
    }
    StoreTable(0x11000, 0, 1);
    StoreTable(0x11000, 4096 * 64 - 1, 1);
    StoreTable(0x12000, 5, 1);
    m_file.WriteWord(0x10, 1);
    for (const uint32_t index : {0x11U, 0x12U, 0x106U, 0x300U, 0x301U, 0x308U, 0x310U, 0x318U,
                                 0x200bU, 0x200eU, 0x210bU, 0x210eU}) {
        EXPECT_EQ(m_file.ReadWord(index), 0U) << std::hex << index;
    }
    EXPECT_EQ(m_file.ReadWord(0x104), 1U);
    EXPECT_EQ(m_file.ReadWord(0x105), 1U);
    EXPECT_EQ(m_file.ReadWord(0x103), 0xFU);
    EXPECT_EQ(LoadTable(0x11000, 0), 0U);
    EXPECT_EQ(LoadTable(0x11000, 4096 * 64 - 1), 0U);
    EXPECT_EQ(LoadTable(0x12000, 5), 0U);
    EXPECT_EQ(m_shm.header.boardResets.load(), 1U);
    m_file.WriteWord(0x10, 0);
    EXPECT_EQ(m_shm.header.boardResets.load(), 1U) << "writing 0 releases, it does not reset";
}

TEST_F(RegisterFile, AResetLeavesStreamsAlone) {
    m_shm.a2c[3].control.generation.store(7);
    m_shm.a2c[3].control.head.store(320);
    m_file.WriteWord(0x10, 1);
    EXPECT_EQ(m_shm.a2c[3].control.generation.load(), 7U);
    EXPECT_EQ(m_shm.a2c[3].control.head.load(), 320U);
}

TEST_F(RegisterFile, ANameLiesInWords4To1MostSignificantByteFirstAndTheMaskStays) {
    StoreTable(0x11000, 7 * 64, 0x8001);
    m_file.StoreName(0, 7, "SR209C5000");
    EXPECT_EQ(LoadTable(0x11000, 7 * 64 + 4), 0x53523230U);  // SR20
    EXPECT_EQ(LoadTable(0x11000, 7 * 64 + 3), 0x39433530U);  // 9C50
    EXPECT_EQ(LoadTable(0x11000, 7 * 64 + 2), 0x30300000U);  // 00
    EXPECT_EQ(LoadTable(0x11000, 7 * 64 + 1), 0U);
    EXPECT_EQ(LoadTable(0x11000, 7 * 64), 0x8001U);
    EXPECT_EQ(m_file.LoadName(0, 7), "SR209C5000");
    m_file.StoreName(0, 7, "ABCDEFGHIJKLMNOP");
    EXPECT_EQ(m_file.LoadName(0, 7), "ABCDEFGHIJKLMNOP");
    EXPECT_EQ(LoadTable(0x11000, 7 * 64 + 1), 0x4D4E4F50U);
    EXPECT_EQ(LoadTable(0x11000, 7 * 64 + 5), 0U);
}

}  // namespace
