#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "SignalProcess.h"
#include "fakeClock.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logFiles.h"
#include "tempDir.h"

namespace {

bool s_isCounting = false;
int s_allocations = 0;

void Count() {
    s_allocations += s_isCounting ? 1 : 0;
}

}  // namespace

// The program is linked with --wrap for each of these: whatever of the log service (or of this
// file) allocates comes by here.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
void* __wrap_realloc(void* memory, std::size_t size);
void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size);
void* __real__Znam(std::size_t size);
void* __wrap__Znam(std::size_t size);

void* __wrap_malloc(std::size_t size) {
    Count();
    return __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
    Count();
    return __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, std::size_t size) {
    Count();
    return __real_realloc(memory, size);
}
void* __wrap__Znwm(std::size_t size) {
    Count();
    return __real__Znwm(size);
}
void* __wrap__Znam(std::size_t size) {
    Count();
    return __real__Znam(size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

// Allocations while `work` runs.
template <typename Work>
int AllocationsOf(Work work) {
    s_allocations = 0;
    s_isCounting = true;
    work();
    s_isCounting = false;
    return s_allocations;
}

const std::string LONG_TEXT(3000, 'x');

void WriteInEveryWay() {
    LOG_ERROR("text %d %s", 7, "more");
    LOG_INFO("%s", LONG_TEXT.c_str());
    elog_write_line(ELOG_LVL_DEBUG, "fpga", "/a/x.cpp", "F", 12345, "d");
    elog_write_line(ELOG_LVL_ASSERT, "fpga", "/a/x.cpp", "F", 1, "a");
    elog_hex_dump("n", 16, "0123456789abcdef", 16);
    elog_write_raw("raw %d", 1);
    elog_write_raw_large("%s", LONG_TEXT.c_str());
}

TEST(ElogAllocation, WritingAllocatesNothing) {
    const velatest::TempDir dir;
    velatest::FakeClock::Set(20261115, 93005);
    CRwLogger logger;
    ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    EXPECT_EQ(AllocationsOf(WriteInEveryWay), 0);
}

TEST(ElogAllocation, ANewDayAllocatesNothingInAHandlerEither) {
    const velatest::TempDir dir;
    velatest::FakeClock::Set(20261115, 93005);
    CRwLogger logger;
    ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    velatest::FakeClock::Set(20261116, 93005);
    EXPECT_EQ(AllocationsOf([] { CSignalProcess::SignalHandler(SIGINT, nullptr, nullptr); }), 0);
    velatest::FakeClock::Set(20261117, 93005);
    EXPECT_EQ(AllocationsOf([] { LOG_INFO("a"); }), 0);  // NOLINT(bugprone-lambda-function-name)
    EXPECT_EQ(
        velatest::NamesIn(dir.path()),
        (std::vector<std::string>{"fpga_20261115.log", "fpga_20261116.log", "fpga_20261117.log"}));
}

TEST(ElogAllocation, TheCountDoesCount) {
    static std::unique_ptr<int> kept;  // so that no compiler leaves the allocation out
    EXPECT_EQ(AllocationsOf([] { kept = std::make_unique<int>(7); }), 1);
}

}  // namespace
