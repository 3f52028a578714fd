#include "fakeEnyx.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "DrvEnyx/enyxHw.h"

// That the scripted library notices misuse: without these, the tests that rely on it prove nothing.
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using velatest::FakeEnyx;

enyx_hw_core* Core() {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_accelerator_descriptor* board = nullptr;
    enyx_hw_enumerate_accelerators(filter, &board, 1);
    enyx_hw_mmio_descriptor* space = nullptr;
    enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator_get(board), filter, &space, 1);
    enyx_hw_core* core = nullptr;
    enyx_hw_core_enumerate(
        enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(enyx_hw_mmio_create(space))), 474, &core,
        1);
    return core;
}

TEST(FakeEnyx, NoticesASecondFreeAndAUseAfterIt) {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_destroy(filter);
    EXPECT_NONFATAL_FAILURE(enyx_hw_filter_destroy(filter), "was freed before");
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(enyx_hw_filter_set_index(filter, 0), -1), "was freed before");
}

TEST(FakeEnyx, NoticesAHandleThatIsNone) {
    int other = 0;
    EXPECT_NONFATAL_FAILURE(enyx_hw_filter_destroy(reinterpret_cast<enyx_hw_filter*>(&other)),
                            "not an object of this library");
}

TEST(FakeEnyx, NullIsRefusedQuietly) {
    errno = 0;
    EXPECT_EQ(enyx_hw_filter_set_index(nullptr, 0), -1);
    EXPECT_EQ(errno, EINVAL);
    enyx_hw_core_lock(nullptr);
    enyx_hw_core_unlock(nullptr);
    enyx_hw_mmio_destroy(nullptr);
}

TEST(FakeEnyx, NoticesAnAccessWithoutTheLock) {
    enyx_hw_core* core = Core();
    const enyx_hw_register_description description{68, 0, 32};
    std::uint64_t value = 0;
    EXPECT_NONFATAL_FAILURE(enyx_hw_read(core, &description, &value), "without the core's lock");
    EXPECT_NONFATAL_FAILURE(enyx_hw_write(core, &description, 1), "without the core's lock");
}

TEST(FakeEnyx, NoticesALockTakenTwiceAndAnUnlockTooMany) {
    enyx_hw_core* core = Core();
    enyx_hw_core_lock(core);
    EXPECT_NONFATAL_FAILURE(enyx_hw_core_lock(core), "holds the lock");
    enyx_hw_core_unlock(core);
    EXPECT_NONFATAL_FAILURE(enyx_hw_core_unlock(core), "does not hold the lock");
}

TEST(FakeEnyx, DestructionOfAnMmioTakesItsCoresAlong) {
    FakeEnyx::Reset();
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_accelerator_descriptor* board = nullptr;
    enyx_hw_enumerate_accelerators(filter, &board, 1);
    enyx_hw_mmio_descriptor* space = nullptr;
    enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator_get(board), filter, &space, 1);
    enyx_hw_mmio* mmio = enyx_hw_mmio_create(space);
    enyx_hw_core* root = enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(mmio));
    EXPECT_THAT(FakeEnyx::Live(), ElementsAre(Pair("accelerator_descriptor", 1), Pair("filter", 1),
                                              Pair("mmio", 1), Pair("mmio_descriptor", 1)));
    enyx_hw_mmio_destroy(mmio);
    EXPECT_NONFATAL_FAILURE(enyx_hw_core_reset(root), "was freed before");
    FakeEnyx::Reset();
    EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
}

TEST(FakeEnyx, AnOpenStreamIsBusyUnlessStreamsAreShared) {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_accelerator_descriptor* board = nullptr;
    enyx_hw_enumerate_accelerators(filter, &board, 1);
    enyx_hw_filter_set_name(filter, "CUSTOM_CHAN0_DATA");
    enyx_hw_a2c_stream_descriptor* stream = nullptr;
    enyx_hw_accelerator_enumerate_a2c_streams(enyx_hw_accelerator_get(board), filter, &stream, 1);
    EXPECT_NE(enyx_hw_a2c_stream_create(stream, 0), nullptr);
    EXPECT_EQ(enyx_hw_a2c_stream_create(stream, 0), nullptr);
    EXPECT_EQ(errno, EBUSY);
    FakeEnyx::ShareStreams();
    EXPECT_NE(enyx_hw_a2c_stream_create(stream, 0), nullptr);
    FakeEnyx::SetStreamBusy("CUSTOM_CHAN0_DATA", true);
    EXPECT_EQ(enyx_hw_a2c_stream_create(stream, 0), nullptr);
}

TEST(FakeEnyx, FailsTheNthCallOfANameOnce) {
    FakeEnyx::Fail("filter_create", 2, EIO);
    EXPECT_NE(enyx_hw_filter_create(), nullptr);
    EXPECT_EQ(enyx_hw_filter_create(), nullptr);
    EXPECT_EQ(errno, EIO);
    EXPECT_NE(enyx_hw_filter_create(), nullptr);
}

TEST(FakeEnyx, FailsEachCallInTurnUntilARunGetsThrough) {
    std::vector<std::string> failed;
    EXPECT_EQ(FakeEnyx::ForEachFailure(EIO,
                                       [&failed] {
                                           enyx_hw_filter* filter = enyx_hw_filter_create();
                                           enyx_hw_filter_set_index(filter, 0);
                                           enyx_hw_filter_set_name(filter, "x");
                                           failed.push_back(FakeEnyx::FailedCall());
                                       }),
              4);
    EXPECT_THAT(failed, ElementsAre("filter_create", "filter_set_index", "filter_set_name", ""));
}

TEST(FakeEnyx, RegistersAreBytes) {
    FakeEnyx::SetRegister(3, 0x04030201);
    EXPECT_THAT(FakeEnyx::Bytes(11, 6), ElementsAre(0, 1, 2, 3, 4, 0));
    EXPECT_EQ(FakeEnyx::Register(3), 0x04030201U);
}

}  // namespace
