// The board in memory keeps what the tests rely on.
#include "fakeDrv.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

namespace {

using testing::ElementsAre;
using velatest::DrvAccess;
using velatest::FakeDrv;
using Table = velatest::FakeDrv::Table;

TEST(FakeDrv, RegistersLieFourBytesApart) {
    FakeDrv drv;
    EXPECT_EQ(drv.WriteInt64(0x20, 0x0102030405060708), 0);
    unsigned int value = 0;
    EXPECT_EQ(drv.ReadInt32(0x20, value), 0);
    EXPECT_EQ(value, 0x05060708U);
    EXPECT_EQ(drv.ReadInt32(0x21, value), 0);
    EXPECT_EQ(value, 0x01020304U);
    EXPECT_EQ(drv.WriteInt8(0x21, 0xFF), 0);
    EXPECT_EQ(drv.Reg(0x21), 0x010203FFU);
    unsigned long both = 0;
    EXPECT_EQ(drv.ReadInt64(0x20, both), 0);
    EXPECT_EQ(both, 0x010203FF05060708U);
}

TEST(FakeDrv, BlocksOfBytesAndTheirReversal) {
    FakeDrv drv;
    std::array<unsigned char, 5> bytes = {1, 2, 3, 4, 5};
    EXPECT_EQ(drv.WriteLess128Bytes(0x30, bytes.data(), 5), 5);
    EXPECT_EQ(drv.Reg(0x30), 0x02030405U);
    EXPECT_EQ(drv.ReadBytes(0x30, bytes.data(), 5), 5);
    EXPECT_THAT(bytes, ElementsAre(5, 4, 3, 2, 1));
    EXPECT_EQ(drv.ReadLess128Bytes(0x30, bytes.data(), 5), 5);
    EXPECT_THAT(bytes, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(drv.ReadLess128Bytes(0x30, bytes.data(), 129), 0);
    EXPECT_EQ(drv.WriteLess128Bytes(0x30, nullptr, 1), 0);
}

TEST(FakeDrv, TableWordIsStoredWhenItsAddressIsWritten) {
    FakeDrv drv;
    unsigned int value = 1;
    for (const unsigned long base : {0x11000UL, 0x12000UL}) {
        drv.WriteInt32(base + 1, 0xABC);
        drv.WriteInt32(base + 2, 65);
        drv.ReadInt32(base + 3, value);
        EXPECT_EQ(value, 0U);
        drv.WriteInt32(base, 65);
        drv.ReadInt32(base + 3, value);
        EXPECT_EQ(value, 0xABCU);
    }
    EXPECT_EQ(drv.TableWord(Table::Sgl, 1, 1), 0xABCU);
    EXPECT_EQ(drv.TableWord(Table::Cmb, 1, 1), 0xABCU);
}

TEST(FakeDrv, ResetClearsTablesAndSwitchesOnly) {
    FakeDrv drv;
    drv.SetTableName(Table::Sgl, 3, "SR209");
    drv.SetReg(0x11, 3);
    drv.SetReg(0x12, 1);
    drv.SetReg(0x106, 20261120);
    drv.WriteInt32(0x10, 0);
    EXPECT_EQ(drv.TableWord(Table::Sgl, 3, 4), 0x53523230U);
    drv.WriteInt32(0x10, 1);
    EXPECT_EQ(drv.TableWord(Table::Sgl, 3, 4), 0U);
    EXPECT_EQ(drv.Reg(0x11) + drv.Reg(0x12), 0U);
    EXPECT_EQ(drv.Reg(0x106), 20261120U);
}

TEST(FakeDrv, ScriptsComeFirst) {
    FakeDrv drv;
    unsigned int value = 9;
    drv.SetReg(5, 50);
    drv.QueueReads(5, {1, 2});
    drv.FailReads(5, 1);
    EXPECT_EQ(drv.ReadInt32(5, value), -1);
    EXPECT_EQ(value, 9U);
    std::vector<unsigned int> values;
    for (int read = 0; read < 3; ++read) {
        EXPECT_EQ(drv.ReadInt32(5, value), 0);
        values.push_back(value);
    }
    EXPECT_THAT(values, ElementsAre(1, 2, 50));
    drv.FailWrites(5);
    EXPECT_EQ(drv.WriteInt32(5, 7), -1);
    EXPECT_EQ(drv.WriteInt32_LogWithRead(5, 7), 0);
    EXPECT_EQ(drv.Reg(5), 50U);
    drv.FailReads(5, 1);
    EXPECT_EQ(drv.WriteInt32_LogWithRead(5, 7), -1);
    drv.FailAccess(1);
    EXPECT_EQ(drv.ReadInt32(6, value), 0);
    EXPECT_EQ(drv.ReadInt32(6, value), -1);
    EXPECT_EQ(drv.ReadInt32(6, value), 0);
    EXPECT_EQ(drv.ReadInt32(0x10000000, value), -1);
}

TEST(FakeDrv, RecordsEveryAccessInOrder) {
    FakeDrv drv;
    unsigned int value = 0;
    std::vector<DrvAccess> seen;
    drv.OnAccess([&](const DrvAccess& access) {
        seen.push_back(access);
        if (access.addr == 2) {
            drv.SetReg(2, 22);
        }
    });
    drv.WriteInt32_Log(1, 10);
    drv.ReadInt32(2, value);
    EXPECT_THAT(drv.Accesses(),
                ElementsAre(DrvAccess{"WriteInt32_Log", 1, 10}, DrvAccess{"ReadInt32", 2, 22}));
    EXPECT_THAT(drv.Writes(), ElementsAre(DrvAccess{"WriteInt32_Log", 1, 10}));
    EXPECT_THAT(seen,
                ElementsAre(DrvAccess{"WriteInt32_Log", 1, 10}, DrvAccess{"ReadInt32", 2, 0}));
    drv.Record(false);
    drv.WriteInt32(1, 1);
    EXPECT_EQ(drv.Accesses().size(), 2U);
    EXPECT_EQ(drv.WriteCount(), 2U);
    EXPECT_EQ(drv.ReadCount(), 1U);
}

}  // namespace
