#include "DrvEnyx/drvEnyx.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <memory>

#include "drvRegFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using velatest::FakeEnyx;

class DrvRegInit : public DrvReg {};

TEST_F(DrvRegInit, NullParamIsRejected) {
    EXPECT_EQ(m_drv.Init(nullptr), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Init param error!"));
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
}

TEST_F(DrvRegInit, AsksForOneCoreOfTheIdOnTheBus) {
    FakeEnyx::SetBoards({2});
    FakeEnyx::SetCores(475, 1);
    DrvRegInitParms_t parms{2, 475};
    EXPECT_EQ(m_drv.Init(&parms), 0);
    const Lines calls = FakeEnyx::Calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls[1], "filter_set_index 2");
    EXPECT_EQ(calls.back(), "core_enumerate id=475 capacity=1");
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvRegInit, CallAfterASuccessfulOneReturns0AtOnce) {
    Start();
    DrvRegInitParms_t other{9, 1};
    EXPECT_EQ(m_drv.Init(&other), 0);
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvRegInit, NullParamIsRejectedAfterASuccessToo) {
    Start();
    EXPECT_EQ(m_drv.Init(nullptr), -1);
}

TEST_F(DrvRegInit, AbsentCoreIdFailsAndALaterInitTriesAgain) {
    DrvRegInitParms_t parms{0, 475};
    EXPECT_EQ(m_drv.Init(&parms), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR enumerate core error!, get core num 0, msg:No "
                                           "such device, busid:0, coreId:475."));
    FakeEnyx::SetCores(475, 1);
    m_log.Clear();
    EXPECT_EQ(m_drv.Init(&parms), 0);
    EXPECT_EQ(FakeEnyx::CountOf("core_reset"), 1);
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvRegInit, SeveralMatchingCoresAreAFailure) {
    FakeEnyx::Fail("core_enumerate", 1, EIO, 2);
    DrvRegInitParms_t parms{0, 474};
    EXPECT_EQ(m_drv.Init(&parms), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR enumerate core error!, get core num 2, "
                                           "msg:Input/output error, busid:0, coreId:474."));
    // The core that was found is not taken.
    unsigned int value = 0;
    FakeEnyx::ClearCalls();
    EXPECT_EQ(m_drv.ReadInt32(1, value), -1);
    EXPECT_EQ(m_drv.Init(&parms), 0);
}

TEST_F(DrvRegInit, FailedDiscoveryIsNamedWithTheReasonOfTheLibrary) {
    FakeEnyx::Fail("enumerate_cores", 1, EACCES);
    DrvRegInitParms_t parms{0, 474};
    EXPECT_EQ(m_drv.Init(&parms), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Could not find tree, errmsg:Permission denied.",
                                           "ERROR Get core error. busId:0, coreId:474",
                                           "ERROR enumerate core error!, get core num -1, "
                                           "msg:Permission denied, busid:0, coreId:474."));
}

TEST_F(DrvRegInit, BusIndexOf10IsRejected) {
    DrvRegInitParms_t parms{10, 474};
    EXPECT_EQ(m_drv.Init(&parms), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Bus index out of range. busId:10, valid:0 to 9.",
                                           "ERROR Get core error. busId:10, coreId:474",
                                           "ERROR enumerate core error!, get core num -1, "
                                           "msg:Invalid argument, busid:10, coreId:474."));
}

TEST_F(DrvRegInit, SeveralThreadsEnumerateOnce) {
    std::vector<std::future<int>> results;
    results.reserve(8);
    for (int i = 0; i < 8; ++i) {
        results.push_back(std::async(std::launch::async, [this] {
            DrvRegInitParms_t parms{0, 474};
            return m_drv.Init(&parms);
        }));
    }
    for (std::future<int>& result : results) {
        EXPECT_EQ(result.get(), 0);
    }
    EXPECT_EQ(FakeEnyx::CountOf("core_enumerate"), 1);
}

TEST_F(DrvRegInit, SecondThreadWaitsForTheFirstAndFindsItDone) {
    DrvRegInitParms_t parms{0, 474};
    std::future<int> second;
    velatest::FakeClock::OnSleep([&](unsigned int) {
        second = std::async(std::launch::async, [&] { return m_drv.Init(&parms); });
        EXPECT_EQ(second.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    });
    EXPECT_EQ(m_drv.Init(&parms), 0);
    EXPECT_EQ(second.get(), 0);
    EXPECT_EQ(FakeEnyx::CountOf("core_enumerate"), 1);
}

TEST_F(DrvRegInit, EveryFailureIsAFailureOfInitAndTheNextInitSucceeds) {
    FakeEnyx::ForEachFailure(EIO, [this] {
        DrvEnyxVarClear();
        m_log.Clear();
        CDrvEnyxReg drv;
        DrvRegInitParms_t parms{0, 474};
        const int result = drv.Init(&parms);
        FakeEnyx::ClearFailures();
        const std::string failed = FakeEnyx::FailedCall();
        if (failed.empty() || failed == "core_reset") {
            EXPECT_EQ(result, 0);
            return;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(m_log.Lines().back(),
                  "ERROR enumerate core error!, get core num -1, "
                  "msg:Input/output error, busid:0, coreId:474.");
        EXPECT_EQ(drv.Init(&parms), 0);
    });
}

// Each line changes errno on its way; the last one wants that of the vendor's call all the same.
TEST_F(DrvRegInit, ReasonIsKeptThoughNoLineCanBePrinted) {
    const int output = dup(STDOUT_FILENO);
    const int readOnly = open("/dev/null", O_RDONLY);
    ASSERT_EQ(dup2(readOnly, STDOUT_FILENO), STDOUT_FILENO);
    FakeEnyx::ForEachFailure(EACCES, [this] {
        DrvEnyxVarClear();
        m_log.Clear();
        CDrvEnyxReg drv;
        DrvRegInitParms_t parms{0, 474};
        if (drv.Init(&parms) != 0) {
            EXPECT_EQ(m_log.Lines().back(),
                      "ERROR enumerate core error!, get core num -1, msg:Permission denied, "
                      "busid:0, coreId:474.");
        }
    });
    dup2(output, STDOUT_FILENO);
    close(output);
    close(readOnly);
}

TEST_F(DrvReg, DestructionLeavesTheCoreAlone) {
    auto drv = std::make_unique<CDrvEnyxReg>();
    DrvRegInitParms_t parms{0, 474};
    ASSERT_EQ(drv->Init(&parms), 0);
    FakeEnyx::ClearCalls();
    drv.reset();
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
    EXPECT_THAT(FakeEnyx::Live(), ElementsAre(::testing::Pair("mmio", 1)));
}

TEST_F(DrvReg, CoreStaysGoodAfterTheCachesAreCleared) {
    Start();
    DrvEnyxVarClear();
    EXPECT_EQ(m_drv.WriteInt32(0x11, 3), 0);
    EXPECT_EQ(FakeEnyx::Register(0x11), 3U);
}

TEST_F(DrvReg, ProcessHasNoDriverAtFirst) {
    EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
}

// ---- single registers ----

struct Operation {
    const char* name;
    std::function<int(CDrvEnyxReg&)> run;
    std::string access;  // as the vendor's library sees it
    std::string failure;
};

// Index 0x11 (17): byte offset 68.
const Operation operations[] = {
    {"ReadInt8",
     [](CDrvEnyxReg& drv) {
         unsigned char value = 0;
         return drv.ReadInt8(0x11, value);
     },
     "read off=68 width=8", "ERROR read int8 failed, addr:17"},
    {"ReadInt16",
     [](CDrvEnyxReg& drv) {
         unsigned short value = 0;
         return drv.ReadInt16(0x11, value);
     },
     "read off=68 width=16", "ERROR read int16 failed, addr:17"},
    {"ReadInt32",
     [](CDrvEnyxReg& drv) {
         unsigned int value = 0;
         return drv.ReadInt32(0x11, value);
     },
     "read off=68 width=32", "ERROR read int32 failed, addr[0x11], errmsg:Input/output error."},
    {"ReadInt64",
     [](CDrvEnyxReg& drv) {
         unsigned long value = 0;
         return drv.ReadInt64(0x11, value);
     },
     "read off=68 width=64", "ERROR read int64 failed, addr[0x11] "},
    {"WriteInt8", [](CDrvEnyxReg& drv) { return drv.WriteInt8(0x11, 0xA5); },
     "write off=68 width=8 value=0xa5", "ERROR write int8 failed, addr:17"},
    {"WriteInt16", [](CDrvEnyxReg& drv) { return drv.WriteInt16(0x11, 0xA5B6); },
     "write off=68 width=16 value=0xa5b6", "ERROR write int16 failed, addr:17"},
    {"WriteInt32", [](CDrvEnyxReg& drv) { return drv.WriteInt32(0x11, 0xA5B6C7D8); },
     "write off=68 width=32 value=0xa5b6c7d8",
     "ERROR Write int32 failed, addr[0x11] value[0xa5b6c7d8], errmsg:Input/output error."},
    {"WriteInt32_Log", [](CDrvEnyxReg& drv) { return drv.WriteInt32_Log(0x11, 0xA5B6C7D8); },
     "write off=68 width=32 value=0xa5b6c7d8",
     "ERROR Write int32 failed, addr[0x11] value[0xa5b6c7d8], errmsg:Input/output error."},
    {"WriteInt64", [](CDrvEnyxReg& drv) { return drv.WriteInt64(0x11, 0xA5B6C7D8E9FA0B1C); },
     "write off=68 width=64 value=0xa5b6c7d8e9fa0b1c", "ERROR write int64 failed, addr:17"},
};

TEST_F(DrvReg, EachOperationIsOneAccessUnderTheLock) {
    Start();
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        FakeEnyx::ClearCalls();
        EXPECT_EQ(operation.run(m_drv), 0);
        EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", operation.access, "core_unlock"));
    }
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvReg, EachFailedOperationHasItsLineAndReleasesTheLock) {
    Start();
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        FakeEnyx::ClearCalls();
        m_log.Clear();
        FakeEnyx::FailNth(1, EIO);
        EXPECT_EQ(operation.run(m_drv), -1);
        EXPECT_THAT(m_log.Lines(), ElementsAre(operation.failure));
        EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", operation.access, "core_unlock"));
    }
}

TEST_F(DrvReg, EachOperationBeforeInitFailsWithItsLine) {
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        m_log.Clear();
        EXPECT_EQ(operation.run(m_drv), -1);
        EXPECT_EQ(m_log.Lines().size(), 1U);
    }
    Bytes block(8);
    EXPECT_EQ(m_drv.ReadBytes(1, block.data(), 8), -1);
    EXPECT_EQ(m_drv.WriteBytes(1, block.data(), 8), -1);
}

TEST_F(DrvReg, OnlyANegativeResultIsAFailure) {
    Start();
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        FakeEnyx::FailNth(1, EIO, 1);
        EXPECT_EQ(operation.run(m_drv), 0);
    }
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvReg, ReadsTheLowBytesFromTheOffsetOn) {
    Start();
    FakeEnyx::SetBytes(68, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x77});
    unsigned char byte = 0;
    unsigned short half = 0;
    unsigned int word = 0;
    unsigned long both = 0;
    EXPECT_EQ(m_drv.ReadInt8(0x11, byte), 0);
    EXPECT_EQ(m_drv.ReadInt16(0x11, half), 0);
    EXPECT_EQ(m_drv.ReadInt32(0x11, word), 0);
    EXPECT_EQ(m_drv.ReadInt64(0x11, both), 0);
    EXPECT_EQ(byte, 0x88);
    EXPECT_EQ(half, 0x9988);
    EXPECT_EQ(word, 0xBBAA9988);
    EXPECT_EQ(both, 0xFFEEDDCCBBAA9988);
}

TEST_F(DrvReg, FailedReadLeavesTheValueUnchanged) {
    Start();
    FakeEnyx::FailAlways("read", EIO);
    unsigned char byte = 0x12;
    unsigned short half = 0x1234;
    unsigned int word = 0x12345678;
    unsigned long both = 0x123456789ABCDEF0;
    EXPECT_EQ(m_drv.ReadInt8(1, byte), -1);
    EXPECT_EQ(m_drv.ReadInt16(1, half), -1);
    EXPECT_EQ(m_drv.ReadInt32(1, word), -1);
    EXPECT_EQ(m_drv.ReadInt64(1, both), -1);
    EXPECT_EQ(byte, 0x12);
    EXPECT_EQ(half, 0x1234);
    EXPECT_EQ(word, 0x12345678U);
    EXPECT_EQ(both, 0x123456789ABCDEF0U);
}

TEST_F(DrvReg, WritesTouchTheirOwnBytesAlone) {
    Start();
    FakeEnyx::SetBytes(64, Bytes(24, 0xEE));
    EXPECT_EQ(m_drv.WriteInt8(0x11, 0x01), 0);
    EXPECT_THAT(FakeEnyx::Bytes(67, 3), ElementsAre(0xEE, 0x01, 0xEE));
    EXPECT_EQ(m_drv.WriteInt16(0x11, 0x0203), 0);
    EXPECT_THAT(FakeEnyx::Bytes(67, 4), ElementsAre(0xEE, 0x03, 0x02, 0xEE));
    EXPECT_EQ(m_drv.WriteInt32(0x11, 0x04050607), 0);
    EXPECT_THAT(FakeEnyx::Bytes(67, 6), ElementsAre(0xEE, 0x07, 0x06, 0x05, 0x04, 0xEE));
}

TEST_F(DrvReg, SixtyFourBitsAtIndexNAreBytes4NTo4NPlus7) {
    Start();
    FakeEnyx::SetBytes(64, Bytes(24, 0xEE));
    EXPECT_EQ(m_drv.WriteInt64(0x11, 0x1122334455667788), 0);
    EXPECT_THAT(FakeEnyx::Bytes(67, 10),
                ElementsAre(0xEE, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 0xEE));
    unsigned int low = 0;
    unsigned int high = 0;
    EXPECT_EQ(m_drv.ReadInt32(0x11, low), 0);
    EXPECT_EQ(m_drv.ReadInt32(0x12, high), 0);
    EXPECT_EQ(low, 0x55667788U);
    EXPECT_EQ(high, 0x11223344U);
}

class DrvRegWithRead : public DrvReg {
  protected:
    int Run() { return m_drv.WriteInt32_LogWithRead(0x11, 0xAB); }
    const std::string m_writeFailed =
        "ERROR Write int32 failed, addr[0x11] value[0xab], errmsg:Input/output error.";
    const std::string m_readFailed =
        "ERROR ReadReg int32 failed, addr[0x11], errmsg:Input/output error.";
};

TEST_F(DrvRegWithRead, WritesThenReadsUnderOneLock) {
    Start();
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", "write off=68 width=32 value=0xab",
                                               "read off=68 width=32", "core_unlock"));
    EXPECT_EQ(FakeEnyx::Register(0x11), 0xABU);
}

TEST_F(DrvRegWithRead, FailedWriteAloneGives0) {
    Start();
    FakeEnyx::Fail("write", 1, EIO);
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(m_log.Lines(), ElementsAre(m_writeFailed));
    EXPECT_EQ(FakeEnyx::CountOf("read"), 1);
}

TEST_F(DrvRegWithRead, FailedReadBackGivesMinus1) {
    Start();
    FakeEnyx::Fail("read", 1, EIO);
    EXPECT_EQ(Run(), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre(m_readFailed));
    EXPECT_EQ(FakeEnyx::Calls().back(), "core_unlock");
}

TEST_F(DrvRegWithRead, BothFailuresAreLogged) {
    Start();
    FakeEnyx::Fail("write", 1, EIO);
    FakeEnyx::Fail("read", 1, EIO);
    EXPECT_EQ(Run(), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre(m_writeFailed, m_readFailed));
}

}  // namespace
