#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

// The library ends a process that it cannot start with exit(0), deliberately. In the middle of a
// test that would look like success: here it becomes a failure. A child that a test forks to see
// just that exit is left alone.
namespace {

constexpr int FAILED = 70;

pid_t s_testProcess = 0;

void FailIfInATest() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    if (test == nullptr || getpid() != s_testProcess) {
        return;
    }
    std::fprintf(stderr, "The process ended in the middle of %s.%s\n", test->test_suite_name(),
                 test->name());
    std::fflush(nullptr);
    std::_Exit(FAILED);
}

// Asked for first, so that it is still there when the process ends.
[[maybe_unused]] const bool s_isWatched = [] {
    testing::UnitTest::GetInstance();
    s_testProcess = getpid();
    return std::atexit(FailIfInATest) == 0;
}();

}  // namespace
