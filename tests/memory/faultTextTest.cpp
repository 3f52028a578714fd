// Faults as people write them and read them.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "boardFixture.h"
#include "memory/FaultText.h"

using ZceBoard::CFaults;
using ZceBoard::Fault;
using ZceBoard::FaultSetting;
using ZceBoard::ParseFault;

namespace boardtest {

namespace {

constexpr uint32_t any = 0xFFFFFFFF;

struct Good {
    const char* text;
    FaultSetting setting;  // kind, every, target, value, limit
    const char* back;
};

TEST(FaultText, EachKindTakesItsKeysInAnyOrderAndIsGivenBackTheSame) {
    const Good rows[] = {
        {"link-down", {Fault::LinkDown, 1, any, 0, 0}, "link-down value=0"},
        {"link-down value=0xE", {Fault::LinkDown, 1, any, 14, 0}, "link-down value=14"},
        {"counters-stuck", {Fault::CountersStuck, 1, any, 0, 0}, "counters-stuck"},
        {"clock-stuck", {Fault::ClockStuck, 1, any, 0, 0}, "clock-stuck"},
        {"clock-stuck register=260",
         {Fault::ClockStuck, 1, 0x104, 0, 0},
         "clock-stuck register=0x104"},
        {"read-fails", {Fault::ReadFails, 1, any, 0, 0}, "read-fails"},
        {"read-fails register=0x11 every=3 limit=10",
         {Fault::ReadFails, 3, 0x11, 0, 10},
         "read-fails register=0x11 every=3 limit=10"},
        {" \twrite-fails  limit=4294967295 register=0X1ffff \n",
         {Fault::WriteFails, 1, 0x1FFFF, 0, 4294967295},
         "write-fails register=0x1ffff limit=4294967295"},
        {"table-write-lost entry=4095",
         {Fault::TableWriteLost, 1, 4095, 0, 0},
         "table-write-lost entry=4095"},
        {"name-changes limit=0 every=1", {Fault::NameChanges, 1, any, 0, 0}, "name-changes"},
        {"core-missing limit=1", {Fault::CoreMissing, 1, any, 0, 1}, "core-missing limit=1"},
        {"core-twice every=2", {Fault::CoreTwice, 2, any, 0, 0}, "core-twice every=2"},
        {"stream-refused channel=15",
         {Fault::StreamRefused, 1, 15, 0, 0},
         "stream-refused channel=15"},
        {"send-busy channel=0 limit=5",
         {Fault::SendBusy, 1, 0, 0, 5},
         "send-busy channel=0 limit=5"},
        {"fifo-errors", {Fault::FifoErrors, 1, any, 1, 0}, "fifo-errors value=1"},
        {"fifo-errors value=0xffffffff channel=2",
         {Fault::FifoErrors, 1, 2, 4294967295, 0},
         "fifo-errors channel=2 value=4294967295"},
        {"slow-reader", {Fault::SlowReader, 1, any, 4096, 0}, "slow-reader value=4096"},
        {"slow-reader channel=3 value=2097152",
         {Fault::SlowReader, 1, 3, 2097152, 0},
         "slow-reader channel=3 value=2097152"},
        {"garbage channel=1 every=10", {Fault::Garbage, 10, 1, 0, 0}, "garbage channel=1 every=10"},
        {"crash", {Fault::Crash, 1, any, 0, 0}, "crash"},
    };
    std::vector<bool> seen(ZceBoard::FAULT_KINDS);
    for (const Good& row : rows) {
        FaultSetting setting{Fault::Crash, 77, 77, 77, 77};
        std::string error = "untouched";
        ASSERT_TRUE(ParseFault(row.text, setting, error)) << row.text << ": " << error;
        EXPECT_EQ(setting.kind, row.setting.kind) << row.text;
        EXPECT_EQ(setting.every, row.setting.every) << row.text;
        EXPECT_EQ(setting.target, row.setting.target) << row.text;
        EXPECT_EQ(setting.value, row.setting.value) << row.text;
        EXPECT_EQ(setting.limit, row.setting.limit) << row.text;
        EXPECT_EQ(error, "untouched") << row.text;
        EXPECT_EQ(TextOf(setting), row.back) << row.text;
        seen[static_cast<size_t>(setting.kind)] = true;
    }
    EXPECT_EQ(seen, std::vector<bool>(ZceBoard::FAULT_KINDS, true)) << "a kind without a row";
}

TEST(FaultText, WhatIsWrongIsNamedWithWhatIsAllowed) {
    const std::string names =
        "link-down, counters-stuck, clock-stuck, read-fails, write-fails, table-write-lost, "
        "name-changes, core-missing, core-twice, stream-refused, send-busy, fifo-errors, "
        "slow-reader, garbage, crash";
    const std::string readKeys = "it takes register=0x0..0x1ffff, every=1.., limit=0..";
    const std::pair<std::string, std::string> rows[] = {
        {"", "no fault is named; there are " + names},
        {"  ", "no fault is named; there are " + names},
        {"read-fail", "no such fault: 'read-fail'; there are " + names},
        {"READ-FAILS", "no such fault: 'READ-FAILS'; there are " + names},
        {"every=3 read-fails", "no such fault: 'every=3'; there are " + names},
        {"read-fails entry=3", "read-fails: 'entry=3': " + readKeys},
        {"read-fails value=3", "read-fails: 'value=3': " + readKeys},
        {"read-fails strikes=3", "read-fails: 'strikes=3': " + readKeys},
        {"read-fails 0x11", "read-fails: '0x11': " + readKeys},
        {"read-fails =3", "read-fails: '=3': " + readKeys},
        {"read-fails Every=3", "read-fails: 'Every=3': " + readKeys},
        {"read-fails register=0x20000",
         "read-fails: 'register=0x20000': allowed is register=0x0..0x1ffff"},
        {"read-fails register=-1", "read-fails: 'register=-1': allowed is register=0x0..0x1ffff"},
        {"read-fails register=", "read-fails: 'register=': allowed is register=0x0..0x1ffff"},
        {"read-fails register=0x", "read-fails: 'register=0x': allowed is register=0x0..0x1ffff"},
        {"read-fails register=11h", "read-fails: 'register=11h': allowed is register=0x0..0x1ffff"},
        {"read-fails every", "read-fails: 'every': allowed is every=1.."},
        {"read-fails every=0", "read-fails: 'every=0': allowed is every=1.."},
        {"read-fails limit=4294967296", "read-fails: 'limit=4294967296': allowed is limit=0.."},
        {"read-fails every=2 every=2", "read-fails: 'every=2': a second every"},
        {"clock-stuck register=0x103",
         "clock-stuck: 'register=0x103': allowed is register=0x104..0x105"},
        {"clock-stuck register=0x106",
         "clock-stuck: 'register=0x106': allowed is register=0x104..0x105"},
        {"link-down every=2", "link-down: 'every=2': it takes value=0..15"},
        {"link-down value=16", "link-down: 'value=16': allowed is value=0..15"},
        {"table-write-lost entry=4096", "table-write-lost: 'entry=4096': allowed is entry=0..4095"},
        {"garbage channel=16", "garbage: 'channel=16': allowed is channel=0..15"},
        {"slow-reader value=4095", "slow-reader: 'value=4095': allowed is value=4096..2097152"},
        {"slow-reader value=2097153",
         "slow-reader: 'value=2097153': allowed is value=4096..2097152"},
        {"fifo-errors value=0", "fifo-errors: 'value=0': allowed is value=1.."},
        {"crash limit=1", "crash: 'limit=1': it takes nothing"},
        {"counters-stuck now", "counters-stuck: 'now': it takes nothing"},
    };
    for (const auto& [text, expected] : rows) {
        FaultSetting setting{Fault::Garbage, 5, 6, 7, 8};
        std::string error;
        EXPECT_FALSE(ParseFault(text, setting, error)) << text;
        EXPECT_EQ(error, expected) << text;
        EXPECT_EQ(setting.kind, Fault::Garbage) << text;
        EXPECT_EQ(setting.every, 5U) << text;
        EXPECT_EQ(setting.limit, 8U) << text;
    }
}

TEST(FaultText, AWordOfACommandLineMayHoldAnything) {
    FaultSetting setting{};
    std::string error;
    EXPECT_FALSE(ParseFault(std::vector<std::string>{"crash", ""}, setting, error));
    EXPECT_EQ(error, "crash: '': it takes nothing");
    EXPECT_FALSE(ParseFault(std::vector<std::string>{"read-fails every=2"}, setting, error));
    EXPECT_THAT(error, testing::StartsWith("no such fault: 'read-fails every=2'; there are "));
    EXPECT_TRUE(ParseFault({"garbage", "every=7", "channel=2"}, setting, error));
    EXPECT_EQ(TextOf(setting), "garbage channel=2 every=7");
}

TEST(FaultText, TheUsageTextHasEveryKindWithItsKeys) {
    const std::string help = ZceBoard::FaultHelp();
    EXPECT_THAT(help, testing::StartsWith("  link-down [value=0..15]\n"
                                          "      the link status 0x103 reads value\n"
                                          "  counters-stuck\n"));
    EXPECT_THAT(help, testing::HasSubstr("\n  garbage [channel=0..15] [every=1..] [limit=0..]\n"));
    EXPECT_THAT(help, testing::EndsWith("\n  crash\n      the board's process is killed\n"));
}

class FaultsOfABoard : public BoardFixture {
  protected:
    std::unique_ptr<ZceBoard::CBoardMemory> m_memory = MakeBoard();
    CFaults m_faults{m_memory->Shm()};
};

TEST_F(FaultsOfABoard, TheTextNamesThoseThatAreThereWithTheirStrikes) {
    EXPECT_EQ(m_faults.Text(), "");
    m_faults.Set({Fault::Crash});
    m_faults.Set({Fault::ReadFails, 3, 0x11, 0, 10});
    EXPECT_EQ(m_faults.Text(), "read-fails register=0x11 every=3 limit=10 strikes=0, crash");
    for (int k = 0; k < 7; ++k) {
        m_faults.Strikes(Fault::ReadFails, 0x11);
    }
    m_faults.Clear(Fault::Crash);
    EXPECT_EQ(m_faults.Text(), "read-fails register=0x11 every=3 limit=10 strikes=2");
    m_faults.ClearAll();
    EXPECT_EQ(m_faults.Text(), "");
}

TEST_F(FaultsOfABoard, AFaultStrikesAtEachNthOccasionOfItsTargetUntilItsLimit) {
    m_faults.Set({Fault::ReadFails, 3, 0x11, 0, 2});
    std::vector<uint32_t> strikes;
    for (int k = 0; k < 12; ++k) {
        EXPECT_EQ(m_faults.Strikes(Fault::ReadFails, 0x10), 0U) << "another target";
        EXPECT_EQ(m_faults.Strikes(Fault::WriteFails, 0x11), 0U) << "another kind";
        strikes.push_back(m_faults.Strikes(Fault::ReadFails, 0x11));
    }
    EXPECT_THAT(strikes, testing::ElementsAre(0, 0, 1, 0, 0, 2, 0, 0, 0, 0, 0, 0));
    EXPECT_FALSE(m_faults.Any()) << "the limit ends it";
    EXPECT_EQ(m_faults.Words(Fault::ReadFails).occasions.load(), 6U);
}

TEST_F(FaultsOfABoard, AnOccasionMayTouchSeveralTargets) {
    m_faults.Set({Fault::ReadFails, 1, 0x11, 0, 0});
    EXPECT_EQ(m_faults.Strikes(Fault::ReadFails, 0x10, 0x12), 1U);
    EXPECT_EQ(m_faults.Strikes(Fault::ReadFails, 0xF, 0x10), 0U);
    EXPECT_EQ(m_faults.Strikes(Fault::ReadFails, 0x12, 0x14), 0U);
    EXPECT_EQ(m_faults.Strikes(Fault::ReadFails, 0x11, 0x11), 2U);
}

TEST_F(FaultsOfABoard, AFaultThatIsSetAnewCountsFromZero) {
    m_faults.Set({Fault::Garbage, 2});
    EXPECT_EQ(m_faults.Strikes(Fault::Garbage), 0U);
    EXPECT_EQ(m_faults.Strikes(Fault::Garbage), 1U);
    EXPECT_EQ(m_faults.Strikes(Fault::Garbage), 0U);
    m_faults.Set({Fault::Garbage, 2});
    EXPECT_EQ(m_faults.Text(), "garbage every=2 strikes=0");
    EXPECT_EQ(m_faults.Strikes(Fault::Garbage), 0U);
    EXPECT_EQ(m_faults.Strikes(Fault::Garbage), 1U);
}

TEST_F(FaultsOfABoard, OneThatIsClearedLeavesTheOthers) {
    m_faults.Set({Fault::LinkDown});
    m_faults.Set({Fault::SlowReader, 1, 3, 8192});
    m_faults.Clear(Fault::LinkDown);
    EXPECT_TRUE(m_faults.Any());
    EXPECT_FALSE(m_faults.IsOn(Fault::LinkDown));
    EXPECT_TRUE(m_faults.IsOn(Fault::SlowReader));
    EXPECT_TRUE(m_faults.IsOn(Fault::SlowReader, 3));
    EXPECT_FALSE(m_faults.IsOn(Fault::SlowReader, 2));
    m_faults.Clear(Fault::LinkDown);
    EXPECT_TRUE(m_faults.IsOn(Fault::SlowReader)) << "cleared twice";
}

// The memory may hold anything: a value is what its kind allows all the same.
TEST_F(FaultsOfABoard, AValueIsKeptWithinItsBounds) {
    m_faults.Set({Fault::SlowReader, 0, any, 1, 0});
    EXPECT_EQ(m_faults.ValueOf(Fault::SlowReader), 4096U);
    EXPECT_EQ(m_faults.Text(), "slow-reader value=4096");
    m_faults.Set({Fault::SlowReader, 0, any, 4000000000, 0});
    EXPECT_EQ(m_faults.ValueOf(Fault::SlowReader), 2097152U);
    m_faults.Set({Fault::LinkDown, 0, any, 255, 0});
    EXPECT_EQ(m_faults.ValueOf(Fault::LinkDown), 15U);
    m_faults.Set({Fault::Garbage, 0});
    EXPECT_EQ(m_faults.Strikes(Fault::Garbage), 1U) << "each 0th occasion is each one";
}

}  // namespace

}  // namespace boardtest
