#include "DrvEnyx/drvCore.h"

#include <cerrno>
#include <chrono>
#include <future>
#include <map>
#include <thread>

#include "drvFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using velatest::FakeClock;
using velatest::FakeEnyx;

class GetAcc : public DrvTest {};
class GetCore : public DrvTest {
  protected:
    static int One(unsigned short bus = 0) {
        enyx_hw_core* core = nullptr;
        return DrvEnyxGetCore(bus, 474, &core, 1);
    }
};
class VarClear : public GetCore {};

TEST_F(GetAcc, FindsTheAcceleratorInTheOrderOfSteps) {
    EXPECT_NE(DrvEnyxCoreGetAcc(0), nullptr);
    EXPECT_THAT(FakeEnyx::Calls(),
                ElementsAre("filter_create", "filter_set_index 0", "enumerate_accelerators",
                            "filter_destroy", "accelerator_get", "free_accelerator_descriptors 1"));
    EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(GetAcc, SecondCallAnswersFromTheCache) {
    enyx_hw_accelerator* first = DrvEnyxCoreGetAcc(0);
    FakeEnyx::ClearCalls();
    EXPECT_EQ(DrvEnyxCoreGetAcc(0), first);
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
}

TEST_F(GetAcc, EachBusHasAnEntryOfItsOwnUpTo9) {
    FakeEnyx::SetBoards({0, 9});
    enyx_hw_accelerator* first = DrvEnyxCoreGetAcc(0);
    enyx_hw_accelerator* last = DrvEnyxCoreGetAcc(9);
    EXPECT_NE(last, nullptr);
    EXPECT_NE(first, last);
    EXPECT_EQ(DrvEnyxCoreGetAcc(0), first);
    EXPECT_EQ(DrvEnyxCoreGetAcc(9), last);
    EXPECT_EQ(FakeEnyx::CountOf("enumerate_accelerators"), 2);
    EXPECT_THAT(FakeEnyx::Calls(), ::testing::Contains("filter_set_index 9"));
}

TEST_F(GetAcc, BusIndexOf10AndMoreIsRejectedWithOneLine) {
    EXPECT_EQ(DrvEnyxCoreGetAcc(10), nullptr);
    EXPECT_EQ(DrvEnyxCoreGetAcc(65535), nullptr);
    EXPECT_THAT(m_log.Lines(),
                ElementsAre("ERROR Bus index out of range. busId:10, valid:0 to 9.",
                            "ERROR Bus index out of range. busId:65535, valid:0 to 9."));
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
}

TEST_F(GetAcc, NoBoardOnTheBusNamesTheCount) {
    EXPECT_EQ(DrvEnyxCoreGetAcc(3), nullptr);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Could not find accelerator. ernno:19, msg:No "
                                           "such device, get acc num:0."));
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("filter_create", "filter_set_index 3",
                                               "enumerate_accelerators", "filter_destroy"));
}

TEST_F(GetAcc, TwoAcceleratorsAreAFailureAndTheListIsFreedAfterTheFilter) {
    FakeEnyx::Fail("enumerate_accelerators", 1, EIO, 2);
    EXPECT_EQ(DrvEnyxCoreGetAcc(0), nullptr);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Could not find accelerator. ernno:5, "
                                           "msg:Input/output error, get acc num:2."));
    EXPECT_THAT(FakeEnyx::Calls(),
                ElementsAre("filter_create", "filter_set_index 0", "enumerate_accelerators",
                            "filter_destroy", "free_accelerator_descriptors 1"));
    EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
}

TEST_F(GetAcc, EveryFailureHasItsLineLeaksNothingKeepsErrnoAndIsRetried) {
    const std::map<std::string, Lines> expected = {
        {"", {}},
        {"filter_create", {"ERROR Could not create filter for DMA. errno:5"}},
        {"filter_set_index",
         {"ERROR Could not set filter id. errno:5, errMsg:Input/output error."}},
        {"enumerate_accelerators",
         {"ERROR Could not find accelerator. ernno:5, msg:Input/output error, get acc num:-1."}},
        {"accelerator_get", {"ERROR Could not get accelerator. errno:5"}},
    };
    const int runs = FakeEnyx::ForEachFailure(EIO, [&] {
        DrvEnyxVarClear();
        m_log.Clear();
        enyx_hw_accelerator* accelerator = DrvEnyxCoreGetAcc(0);
        const int reason = errno;
        FakeEnyx::ClearFailures();
        const std::string failed = FakeEnyx::FailedCall();
        EXPECT_EQ(accelerator == nullptr, !failed.empty());
        EXPECT_TRUE(failed.empty() || reason == EIO);
        EXPECT_EQ(m_log.Lines(), expected.at(failed));
        EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
        EXPECT_NE(std::async(std::launch::async, DrvEnyxCoreGetAcc, 0).get(), nullptr);
    });
    EXPECT_EQ(runs, 5);
}

TEST_F(GetCore, FindsTheCoreInTheOrderOfSteps) {
    FakeEnyx::SetCores(475, 1);
    enyx_hw_core* core = nullptr;
    EXPECT_EQ(DrvEnyxGetCore(0, 475, &core, 1), 1);
    EXPECT_NE(core, nullptr);
    EXPECT_THAT(
        FakeEnyx::Calls(),
        ElementsAre("filter_create", "filter_set_index 0", "enumerate_accelerators",
                    "filter_destroy", "accelerator_get", "free_accelerator_descriptors 1",
                    "filter_create", "filter_set_index 0", "accelerator_enumerate_mmios",
                    "filter_destroy", "mmio_create", "free_mmio_descriptors 1", "enumerate_cores",
                    "core_tree_get_root", "core_reset", "core_enumerate id=475 capacity=1"));
    EXPECT_THAT(FakeEnyx::Live(), ElementsAre(Pair("mmio", 1)));
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(GetCore, AlwaysTakesTheFirstMmioWhateverTheBus) {
    FakeEnyx::SetBoards({4});
    EXPECT_EQ(One(4), 1);
    const Lines calls = FakeEnyx::Calls();
    ASSERT_GT(calls.size(), 7U);
    EXPECT_EQ(calls[1], "filter_set_index 4");
    EXPECT_EQ(calls[7], "filter_set_index 0");
}

TEST_F(GetCore, WaitsOneSecondAfterTheResetAndBeforeTheEnumeration) {
    Lines atSleep;
    FakeClock::OnSleep([&atSleep](unsigned int) { atSleep = FakeEnyx::Calls(); });
    EXPECT_EQ(One(), 1);
    EXPECT_THAT(FakeClock::Sleeps(), ElementsAre(1U));
    ASSERT_FALSE(atSleep.empty());
    EXPECT_EQ(atSleep.back(), "core_reset");
}

TEST_F(GetCore, HoldsTheLockDuringTheWait) {
    std::promise<void> passed;
    std::future<void> other;
    FakeClock::OnSleep([&](unsigned int) {
        other = std::async(std::launch::async, [&passed] {
            DrvEnyxCoreGetAcc(0);
            passed.set_value();
        });
        EXPECT_EQ(passed.get_future().wait_for(std::chrono::milliseconds(50)),
                  std::future_status::timeout);
    });
    EXPECT_EQ(One(), 1);
    other.get();
}

TEST_F(GetCore, EnumeratesTheCoresOutsideTheLock) {
    ASSERT_NE(DrvEnyxCoreGetAcc(0), nullptr);
    int passed = 0;
    std::future<void> other;
    FakeEnyx::OnCall("core_enumerate", [&] {
        // Answered from the cache, so that it waits for nothing but the lock.
        other = std::async(std::launch::async, [] { DrvEnyxCoreGetAcc(0); });
        passed += other.wait_for(std::chrono::seconds(60)) == std::future_status::ready ? 1 : 0;
    });
    EXPECT_EQ(One(), 1);  // discovers
    EXPECT_EQ(One(), 1);  // finds the root known
    EXPECT_EQ(passed, 2);
}

TEST_F(GetCore, TwoCallsResetTheCoreOnce) {
    EXPECT_EQ(One(), 1);
    FakeEnyx::ClearCalls();
    EXPECT_EQ(One(), 1);
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_enumerate id=474 capacity=1"));
    EXPECT_THAT(FakeClock::Sleeps(), ElementsAre(1U));
}

TEST_F(GetCore, ThreadsAtTheSameMomentResetTheCoreOnce) {
    std::vector<std::future<int>> results;
    results.reserve(8);
    for (int i = 0; i < 8; ++i) {
        results.push_back(std::async(std::launch::async, [] { return One(); }));
    }
    for (std::future<int>& result : results) {
        EXPECT_EQ(result.get(), 1);
    }
    EXPECT_EQ(FakeEnyx::CountOf("core_reset"), 1);
    EXPECT_EQ(FakeEnyx::CountOf("mmio_create"), 1);
    EXPECT_EQ(FakeEnyx::CountOf("core_enumerate"), 8);
    EXPECT_THAT(FakeClock::Sleeps(), ElementsAre(1U));
}

TEST_F(GetCore, EachBusIsDiscoveredOnce) {
    FakeEnyx::SetBoards({0, 9});
    EXPECT_EQ(One(0), 1);
    EXPECT_EQ(One(9), 1);
    EXPECT_EQ(One(0), 1);
    EXPECT_EQ(One(9), 1);
    EXPECT_EQ(FakeEnyx::CountOf("core_reset"), 2);
}

TEST_F(GetCore, AbsentCoreIdReturns0WithoutALine) {
    enyx_hw_core* core = nullptr;
    EXPECT_EQ(DrvEnyxGetCore(0, 473, &core, 1), 0);
    EXPECT_EQ(core, nullptr);
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(GetCore, FillsUpToTheCapacityAndReturnsTheCountOfTheLibrary) {
    FakeEnyx::SetCores(474, 3);
    enyx_hw_core* cores[3] = {};
    EXPECT_EQ(DrvEnyxGetCore(0, 474, cores, 2), 3);
    EXPECT_NE(cores[0], nullptr);
    EXPECT_NE(cores[1], nullptr);
    EXPECT_EQ(cores[2], nullptr);
}

TEST_F(GetCore, FailedEnumerationOfCoresHasItsLineAlone) {
    FakeEnyx::Fail("core_enumerate", 1, EIO);
    EXPECT_EQ(One(), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Could not enumerate cores, busId:0, coreId:474. "
                                           "errmsg:Input/output error."));
    FakeEnyx::ClearCalls();
    EXPECT_EQ(One(), 1);
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_enumerate id=474 capacity=1"));
}

TEST_F(GetCore, OtherNegativeCountIsReturnedAsItIs) {
    FakeEnyx::Fail("core_enumerate", 1, EIO, -2);
    EXPECT_EQ(One(), -2);
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(GetCore, NoBoardHasTheLineOfTheAcceleratorThenItsOwn) {
    EXPECT_EQ(One(7), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Could not find accelerator. ernno:19, msg:No "
                                           "such device, get acc num:0.",
                                           "ERROR Get core error. busId:7, coreId:474"));
}

TEST_F(GetCore, BusIndexOf10AndMoreIsRejected) {
    EXPECT_EQ(One(10), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Bus index out of range. busId:10, valid:0 to 9.",
                                           "ERROR Get core error. busId:10, coreId:474"));
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
}

TEST_F(GetCore, TwoMmiosAreAFailureAndTheListIsFreed) {
    FakeEnyx::Fail("accelerator_enumerate_mmios", 1, EIO, 2);
    EXPECT_EQ(One(), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Could not find mmio, errmsg:Input/output error.",
                                           "ERROR Get core error. busId:0, coreId:474"));
    EXPECT_EQ(FakeEnyx::CountOf("free_mmio_descriptors"), 1);
    EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
}

// It may have none at all.
TEST_F(GetCore, TheResultOfTheResetIsNotLookedAt) {
    for (const int result : {-1, 0, 1, 12345}) {
        SCOPED_TRACE(result);
        FakeEnyx::Reset();
        DrvEnyxVarClear();
        FakeClock::ClearSleeps();
        FakeEnyx::Fail("core_reset", 1, EIO, result);
        EXPECT_EQ(One(), 1);
        EXPECT_EQ(FakeEnyx::CountOf("core_reset"), 1);
        EXPECT_THAT(m_log.Lines(), IsEmpty());
        EXPECT_THAT(FakeClock::Sleeps(), ElementsAre(1U));
    }
}

TEST_F(GetCore, EveryFailureHasItsLinesLeaksNothingKeepsErrnoAndIsRetried) {
    const std::string last = "ERROR Get core error. busId:0, coreId:474";
    const std::string io = "Input/output error.";
    // In the order of the calls: those for the accelerator, then those of the core.
    const std::vector<Lines> expected = {
        {"ERROR Could not create filter for DMA. errno:5", last},
        {"ERROR Could not set filter id. errno:5, errMsg:" + io, last},
        {"ERROR Could not find accelerator. ernno:5, msg:Input/output error, get acc num:-1.",
         last},
        {"ERROR Could not get accelerator. errno:5", last},
        {"ERROR Could not create mmio filter, errmsg:" + io, last},
        {"ERROR Could not set mmio filter index, errmsg:" + io, last},
        {"ERROR Could not find mmio, errmsg:" + io, last},
        {"ERROR Could not create mmio, errmsg:" + io, last},
        {"ERROR Could not find tree, errmsg:" + io, last},
        {"ERROR Could not find root, errmsg:" + io, last},
        {},  // the reset
        {"ERROR Could not enumerate cores, busId:0, coreId:474. errmsg:" + io},
        {},
    };
    std::size_t run = 0;
    const int runs = FakeEnyx::ForEachFailure(EIO, [&] {
        DrvEnyxVarClear();
        m_log.Clear();
        const int result = One();
        const int reason = errno;
        FakeEnyx::ClearFailures();
        const std::string failed = FakeEnyx::FailedCall();
        const bool fatal = !failed.empty() && failed != "core_reset";
        EXPECT_EQ(result, fatal ? -1 : 1);
        EXPECT_TRUE(!fatal || reason == EIO);
        ASSERT_LT(run, expected.size());
        EXPECT_EQ(m_log.Lines(), expected[run]);
        ++run;
        const bool open = !fatal || failed == "core_enumerate";
        const std::map<std::string, int> live = FakeEnyx::Live();
        if (open) {
            EXPECT_THAT(live, ElementsAre(Pair("mmio", 1)));
        } else {
            EXPECT_THAT(live, IsEmpty());
        }
        // The lock is free, and the next call begins where the failed one could not go on.
        EXPECT_EQ(std::async(std::launch::async, [] { return One(); }).get(), 1);
        EXPECT_EQ(FakeEnyx::CountOf("core_reset"), 1);
        EXPECT_THAT(FakeEnyx::Live(), ElementsAre(Pair("mmio", 1)));
    });
    EXPECT_EQ(runs, 13);
}

TEST_F(GetCore, MmioOfAFailedDiscoveryIsDestroyedOnceOnly) {
    FakeEnyx::Fail("enumerate_cores", 1, EIO);
    EXPECT_EQ(One(), -1);
    FakeEnyx::Fail("filter_set_index", 1, EIO);
    EXPECT_EQ(One(), -1);
    EXPECT_EQ(FakeEnyx::CountOf("mmio_destroy"), 1);
    EXPECT_EQ(One(), 1);
}

TEST_F(GetCore, LogsTheFailureThenDestroysTheMmioThenLogsTheFinalLine) {
    const std::string failure = "ERROR Could not find root, errmsg:Input/output error.";
    Lines atDestruction;
    FakeEnyx::OnCall("mmio_destroy", [&] { atDestruction = m_log.Lines(); });
    FakeEnyx::Fail("core_tree_get_root", 1, EIO);
    EXPECT_EQ(One(), -1);
    EXPECT_THAT(atDestruction, ElementsAre(failure));
    EXPECT_THAT(m_log.Lines(), ElementsAre(failure, "ERROR Get core error. busId:0, coreId:474"));
    EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
}

TEST_F(VarClear, NextCallOpensANewMmioAndResetsAgain) {
    EXPECT_EQ(One(), 1);
    DrvEnyxVarClear();
    EXPECT_EQ(One(), 1);
    EXPECT_EQ(FakeEnyx::CountOf("core_reset"), 2);
    EXPECT_EQ(FakeEnyx::CountOf("mmio_create"), 2);
    EXPECT_THAT(FakeClock::Sleeps(), ElementsAre(1U, 1U));
}

TEST_F(VarClear, ForgetsEveryBus) {
    FakeEnyx::SetBoards({0, 9});
    EXPECT_NE(DrvEnyxCoreGetAcc(0), nullptr);
    EXPECT_NE(DrvEnyxCoreGetAcc(9), nullptr);
    DrvEnyxVarClear();
    EXPECT_NE(DrvEnyxCoreGetAcc(0), nullptr);
    EXPECT_NE(DrvEnyxCoreGetAcc(9), nullptr);
    EXPECT_EQ(FakeEnyx::CountOf("accelerator_get"), 4);
}

TEST_F(VarClear, DestroysNothing) {
    EXPECT_EQ(One(), 1);
    FakeEnyx::ClearCalls();
    DrvEnyxVarClear();
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
    EXPECT_THAT(FakeEnyx::Live(), ElementsAre(Pair("mmio", 1)));
}

TEST_F(VarClear, TakesNoLock) {
    // Another thread clears while this one holds the lock in its wait.
    FakeClock::OnSleep([](unsigned int) { std::thread(DrvEnyxVarClear).join(); });
    EXPECT_EQ(One(), 1);
}

}  // namespace
