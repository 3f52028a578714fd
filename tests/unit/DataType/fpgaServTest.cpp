#include "DataType/ZceFpgaServ.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "DataType/ZceConfigFile.h"
#include "fakeClock.h"
#include "fpgaFixture.h"
#include "logCapture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using velatest::DrvAccess;
using velatest::FakeClock;
using velatest::FpgaRig;
using velatest::LogCapture;
using velatest::Logged;
using velatest::Plain;
using velatest::Read;

TEST(FpgaServ, UpdateTimeStampWritesTodaysDate) {
    FpgaRig rig;
    FakeClock::Set(20260907, 235959);
    const LogCapture log;
    rig.serv.UpdateTimeStamp();
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Plain(0x106, 20260907)));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO Update fpga addr 0x106 to 20260907 over"));
}

TEST(FpgaServ, DateChangesAtMidnight) {
    FpgaRig rig;
    FakeClock::Set(20261231, 235959);
    FakeClock::AdvanceSeconds(1);
    rig.serv.UpdateTimeStamp();
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Plain(0x106, 20270101)));
}

TEST(FpgaServ, WithoutLocalTimeTheDatesAreNotEqual) {
    FpgaRig rig;
    FakeClock::FailLocalTime(true);
    for (const unsigned int date : {0U, 20261120U}) {
        rig.drv.SetReg(0x106, date);
        unsigned int fpgaDate = 1;
        unsigned int sysDate = 1;
        EXPECT_FALSE(rig.serv.bDataEqual(fpgaDate, sysDate));
        EXPECT_EQ(fpgaDate, date);
        EXPECT_EQ(sysDate, 0U);
    }
    FakeClock::FailLocalTime(false);
}

TEST(FpgaServ, WithoutLocalTimeTheBoardKeepsItsDate) {
    FpgaRig rig;
    const LogCapture log;
    FakeClock::FailLocalTime(true);
    rig.serv.UpdateTimeStamp();
    FakeClock::FailLocalTime(false);
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre());
    EXPECT_THAT(log.Lines(),
                ElementsAre("ERROR Unable to determine the local time, fpga addr 0x106 is left as "
                            "it is."));
}

TEST(FpgaServ, DataEqualComparesTheBoardsDate) {
    FpgaRig rig;
    FakeClock::Set(20261120, 100000);
    unsigned int fpgaDate = 0;
    unsigned int sysDate = 0;
    for (const unsigned int date : {20261119U, 20261120U, 20261121U}) {
        rig.drv.SetReg(0x106, date);
        EXPECT_EQ(rig.serv.bDataEqual(fpgaDate, sysDate), date == 20261120);
        EXPECT_EQ(fpgaDate, date);
        EXPECT_EQ(sysDate, 20261120U);
    }
    EXPECT_EQ(rig.drv.Accesses().front(), Read(0x106, 20261119));
    EXPECT_EQ(rig.drv.Accesses().size(), 3U);
}

TEST(FpgaServ, DataEqualAfterFailedReadHasDateZero) {
    FpgaRig rig;
    FakeClock::Set(20261120, 100000);
    rig.drv.SetReg(0x106, 20261120);
    rig.drv.FailReads(0x106);
    unsigned int fpgaDate = 5;
    unsigned int sysDate = 5;
    EXPECT_FALSE(rig.serv.bDataEqual(fpgaDate, sysDate));
    EXPECT_EQ(fpgaDate, 0U);
    EXPECT_EQ(sysDate, 20261120U);
}

TEST(FpgaServ, TransmissionSwitch) {
    FpgaRig rig;
    const LogCapture log;
    rig.serv.FpgaStartTrans();
    rig.serv.FpgaCloseTrans();
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Logged(0x12, 1), Logged(0x12, 0)));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO Fpga start transmit inst map pkt.",
                                         "INFO Fpga stop transmit inst map pkt."));
}

TEST(FpgaServ, StartDecodeWritesTheFeedSwitchWord) {
    FpgaRig rig;
    for (unsigned int word = 0; word < 4; ++word) {
        rig.drv.ClearAccesses();
        Vela2_U50::CZceConfigFile::m_SwitchReg = word;
        const LogCapture log;
        rig.serv.StartDecode();
        EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Logged(0x11, word)));
        EXPECT_THAT(log.Lines(),
                    ElementsAre("INFO Now Fpga start trans subscribe result! write 0x11 value:0x" +
                                std::to_string(word) + "."));
    }
}

const std::vector<unsigned long> counters = {0x200b, 0x200c, 0x200d, 0x200e,
                                             0x210b, 0x210c, 0x210d, 0x210e};

// The accesses of a comparison: the switch, then `rounds` times the eight counters.
std::vector<DrvAccess> CounterReads(int rounds) {
    std::vector<DrvAccess> reads = {Read(0x11, 3)};
    for (int round = 0; round < rounds; ++round) {
        for (const unsigned long addr : counters) {
            reads.push_back(Read(addr, 1000 + static_cast<unsigned int>(addr)));
        }
    }
    return reads;
}

void SetCounters(FpgaRig& rig) {
    rig.drv.SetReg(0x11, 3);
    for (const unsigned long addr : counters) {
        rig.drv.SetReg(addr, 1000 + static_cast<unsigned int>(addr));
    }
}

TEST(FpgaCounterEqual, NotDecodingIsFalseAtOnce) {
    FpgaRig rig;
    const LogCapture log;
    EXPECT_FALSE(rig.serv.FpgaCounterEqual());
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Read(0x11, 0)));
    EXPECT_THAT(FakeClock::Sleeps(), IsEmpty());
    EXPECT_THAT(log.Lines(), ElementsAre("INFO 0x11 register value:0x0"));
}

TEST(FpgaCounterEqual, FailedReadOfTheSwitchIsFalseAtOnce) {
    FpgaRig rig;
    SetCounters(rig);
    rig.drv.FailReads(0x11);
    EXPECT_FALSE(rig.serv.FpgaCounterEqual());
    EXPECT_EQ(rig.drv.Accesses().size(), 1U);
}

TEST(FpgaCounterEqual, StillCountersAreTrueAfterTwoSeconds) {
    FpgaRig rig;
    SetCounters(rig);
    const LogCapture log;
    EXPECT_TRUE(rig.serv.FpgaCounterEqual());
    EXPECT_EQ(rig.drv.Accesses(), CounterReads(3));
    EXPECT_THAT(FakeClock::Sleeps(), ElementsAre(1, 1));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO 0x11 register value:0x3",
                                         "INFO Fpga parse static count doesn't change!"));
}

// One counter, moved before its read number `round`, and back after it if it does not stay.
bool EqualWhenMoved(unsigned long addr, int round, bool stays) {
    FpgaRig rig;
    SetCounters(rig);
    const unsigned int still = rig.drv.Reg(addr);
    std::vector<unsigned int> values(3, still);
    for (auto at = static_cast<std::size_t>(round); at < values.size(); ++at) {
        values[at] = still + 1;
        if (!stays) {
            break;
        }
    }
    rig.drv.QueueReads(addr, values);
    FakeClock::ClearSleeps();
    const LogCapture log;
    const bool equal = rig.serv.FpgaCounterEqual();
    // Never stops early.
    EXPECT_EQ(rig.drv.Accesses().size(), 25U);
    EXPECT_THAT(FakeClock::Sleeps(), ElementsAre(1, 1));
    EXPECT_EQ(log.Lines().size(), equal ? 2U : 1U);
    return equal;
}

TEST(FpgaCounterEqual, AnyCounterThatMovesInEitherSecondIsFalse) {
    for (const unsigned long addr : counters) {
        EXPECT_FALSE(EqualWhenMoved(addr, 1, true)) << addr;
        EXPECT_FALSE(EqualWhenMoved(addr, 2, true)) << addr;
        EXPECT_FALSE(EqualWhenMoved(addr, 1, false)) << addr;
    }
}

TEST(FpgaCounterEqual, EachReadIsComparedWithTheFirst) {
    // Moves before the first read-again and stays: the two read-agains agree with each other.
    EXPECT_FALSE(EqualWhenMoved(0x200b, 1, true));
    // Different on the first read only.
    EXPECT_FALSE(EqualWhenMoved(0x200b, 0, false));
}

TEST(FpgaCounterEqual, FailedReadsCountAsZero) {
    FpgaRig rig;
    SetCounters(rig);
    for (const unsigned long addr : counters) {
        rig.drv.FailReads(addr);
    }
    EXPECT_TRUE(rig.serv.FpgaCounterEqual());
    rig.drv.FailReads(0x210e, 1);
    EXPECT_FALSE(rig.serv.FpgaCounterEqual());
}

// The whole sequence of clearing both tables, word by word.
std::vector<DrvAccess> ClearSequence() {
    std::vector<DrvAccess> all;
    for (const unsigned long base : {0x11000UL, 0x12000UL}) {
        for (unsigned int addr = 0; addr < 262081; ++addr) {
            all.push_back(Plain(base + 1, 0));
            all.push_back(Plain(base, addr));
        }
    }
    return all;
}

TEST(ClearAllInstTable, ClearsEveryWordOfBothTablesInOrder) {
    FpgaRig rig(4);
    rig.drv.SetTableWord(velatest::FakeDrv::Table::Sgl, 4095, 0, 1);
    rig.drv.SetTableWord(velatest::FakeDrv::Table::Sgl, 4095, 1, 1);
    rig.drv.SetTableWord(velatest::FakeDrv::Table::Cmb, 4094, 63, 1);
    const LogCapture log;
    rig.serv.ClearAllInstTable();
    EXPECT_TRUE(rig.drv.Accesses() == ClearSequence());
    EXPECT_EQ(rig.drv.Accesses().size(), 1048324U);
    EXPECT_EQ(rig.drv.Accesses().back(), Plain(0x12000, 0x3FFC0));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO [channel:4] Clear all inst table over"));
    EXPECT_EQ(rig.drv.TableWord(velatest::FakeDrv::Table::Sgl, 4095, 0), 0U);
    EXPECT_EQ(rig.drv.TableWord(velatest::FakeDrv::Table::Sgl, 4095, 1), 1U);
    EXPECT_EQ(rig.drv.TableWord(velatest::FakeDrv::Table::Cmb, 4094, 63), 0U);
}

TEST(UnSubsAllInsts, GoesSixTimesOverTheMasksOfBothTables) {
    FpgaRig rig;
    rig.drv.SetTableWord(velatest::FakeDrv::Table::Cmb, 7, 1, 0x53523230);
    const LogCapture log;
    rig.serv.UnSubsAllInsts();
    std::vector<DrvAccess> expected;
    for (int pass = 0; pass < 6; ++pass) {
        for (const unsigned long base : {0x11000UL, 0x12000UL}) {
            for (unsigned int index = 0; index < 4096; ++index) {
                expected.push_back(Plain(base + 1, 0));
                expected.push_back(Plain(base, index * 64));
            }
        }
    }
    EXPECT_TRUE(rig.drv.Accesses() == expected);
    EXPECT_EQ(rig.drv.Accesses().size(), 2U * 49152U);
    EXPECT_EQ(rig.drv.TableWord(velatest::FakeDrv::Table::Cmb, 7, 1), 0x53523230U);
    EXPECT_THAT(log.Lines(), ElementsAre("INFO Unsubscribe all insts now"));
}

TEST(UnSubsAllInsts, TakesNoLock) {
    FpgaRig rig;
    const std::lock_guard<std::mutex> lock(Vela2_U50::CZceFpgaServ::subscribe_mutex);
    rig.serv.UnSubsAllInsts();
    EXPECT_EQ(rig.drv.WriteCount(), 98304U);
}

TEST(ClearAllInstTable, HoldsTheLock) {
    FpgaRig rig;
    rig.drv.Record(false);
    bool held = false;
    rig.drv.OnAccess([&held, first = true](const DrvAccess&) mutable {
        if (first) {
            first = false;
            // From another thread: the owner must not try its own lock.
            std::thread([&held] {
                const std::unique_lock<std::mutex> lock(Vela2_U50::CZceFpgaServ::subscribe_mutex,
                                                        std::try_to_lock);
                held = !lock.owns_lock();
            }).join();
        }
    });
    rig.serv.ClearAllInstTable();
    EXPECT_TRUE(held);
}

TEST(ResetFpga, ResetsClearsAndRemembers) {
    FpgaRig rig;
    EXPECT_FALSE(rig.serv.bIsReseted());
    std::vector<std::size_t> accessesAtSleep;
    FakeClock::OnSleep([&](unsigned int) { accessesAtSleep.push_back(rig.drv.Accesses().size()); });
    const LogCapture log;
    rig.serv.ResetFpga();
    std::vector<DrvAccess> expected = {Logged(0x10, 1), Logged(0x10, 0)};
    const std::vector<DrvAccess> clear = ClearSequence();
    expected.insert(expected.end(), clear.begin(), clear.end());
    EXPECT_TRUE(rig.drv.Accesses() == expected);
    EXPECT_THAT(FakeClock::Sleeps(), ElementsAre(1));
    EXPECT_THAT(accessesAtSleep, ElementsAre(1));
    EXPECT_TRUE(rig.serv.bIsReseted());
    EXPECT_THAT(log.Lines(), ElementsAre("INFO [channel:0] Clear all inst table over",
                                         "INFO Reset and Clear fpga table over."));
    // Of the process, not of the object.
    EXPECT_TRUE(velatest::OpenFpgaServ(rig.insts, 5).bIsReseted());
}

TEST(ResetFpga, DoesNothingOnOtherChannels) {
    for (unsigned int channel = 1; channel < 16; ++channel) {
        FpgaRig rig(channel);
        const LogCapture log;
        rig.serv.ResetFpga();
        EXPECT_THAT(rig.drv.Accesses(), IsEmpty());
        EXPECT_THAT(FakeClock::Sleeps(), IsEmpty());
        EXPECT_FALSE(rig.serv.bIsReseted());
        EXPECT_THAT(log.Lines(), IsEmpty());
    }
}

TEST(FpgaServ, DebugLogAllInstDoesNothing) {
    FpgaRig rig;
    const LogCapture log;
    rig.serv.DebugLogAllInst();
    EXPECT_THAT(rig.drv.Accesses(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
