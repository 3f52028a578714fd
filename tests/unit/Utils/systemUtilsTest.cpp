#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>

#include "VelaZceUtils.h"
#include "logCapture.h"
#include "tempDir.h"

namespace {

cpu_set_t Affinity() {
    cpu_set_t set;
    CPU_ZERO(&set);
    EXPECT_EQ(pthread_getaffinity_np(pthread_self(), sizeof(set), &set), 0);
    return set;
}

unsigned int LastCpuOf(const cpu_set_t& set) {
    unsigned int last = 0;
    for (unsigned int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        last = CPU_ISSET(cpu, &set) ? cpu : last;
    }
    return last;
}

// What bind_to_cpu(cpu) prints; the affinity must stay as it is.
std::string Refusal(int cpu) {
    const cpu_set_t before = Affinity();
    std::string text;
    {
        const velatest::StdoutCapture out;
        bind_to_cpu(cpu);
        text = out.Text();
    }
    const cpu_set_t after = Affinity();
    EXPECT_TRUE(CPU_EQUAL(&before, &after));
    return text;
}

TEST(BindToCpu, PinsTheCallingThreadAloneToThatCpu) {
    const cpu_set_t before = Affinity();
    const unsigned int cpu = LastCpuOf(before);
    std::thread([cpu] {
        const velatest::StdoutCapture out;
        bind_to_cpu(static_cast<int>(cpu));
        const cpu_set_t bound = Affinity();
        EXPECT_EQ(CPU_COUNT(&bound), 1);
        EXPECT_TRUE(CPU_ISSET(cpu, &bound));
        EXPECT_EQ(out.Text(), "");
    }).join();
    const cpu_set_t after = Affinity();
    EXPECT_TRUE(CPU_EQUAL(&before, &after));
}

TEST(BindToCpu, Refuses1024AndMore) {
    EXPECT_EQ(Refusal(1024), "Invalid CPU 1024 > CPU_SETSIZE(1024), WE don't bind to anycore.");
    EXPECT_EQ(Refusal(std::numeric_limits<int>::max()),
              "Invalid CPU 2147483647 > CPU_SETSIZE(1024), WE don't bind to anycore.");
}

TEST(BindToCpu, SaysWhenThereIsNoSuchCpu) {
    EXPECT_EQ(Refusal(1023), "Failed to bind to CPU 1023");
}

TEST(BindToCpu, NegativeNumberFailsAndHarmsNothing) {
    EXPECT_EQ(Refusal(-1), "Failed to bind to CPU -1");
    EXPECT_EQ(Refusal(std::numeric_limits<int>::min()), "Failed to bind to CPU -2147483648");
}

TEST(FileSize, IsInBytesAndMinusOneWithoutAFile) {
    const velatest::TempDir dir;
    const std::string path = dir / "f";
    EXPECT_EQ(Uti_GetFileSize(path.c_str()), -1);
    std::ofstream(path.c_str()).flush();
    EXPECT_EQ(Uti_GetFileSize(path.c_str()), 0);
    std::ofstream(path.c_str()) << std::string(12345, 'x');
    EXPECT_EQ(Uti_GetFileSize(path.c_str()), 12345);
    EXPECT_EQ(Uti_GetFileSize(nullptr), -1);
}

TEST(SmallUtilities, HostIsNeverBigEndian) {
    EXPECT_FALSE(Uti_IsBigEndian());
}

TEST(SmallUtilities, MoveLeft64ShiftsNothing) {
    EXPECT_EQ(Uti_MoveLeft64(0xF00DU, 63), 0xF00DU);
    EXPECT_EQ(Uti_MoveLeft64(0xF00DU, 64), 0U);
    EXPECT_EQ(Uti_MoveLeft64(0xF00DU, 65), 0xF00DU);
    EXPECT_EQ(Uti_MoveLeft64(0xF00DU, 0), 0xF00DU);
    EXPECT_EQ(Uti_MoveLeft64(0xF00DU, -1), 0xF00DU);
}

TEST(SmallUtilities, ResetWishIsSetAtLoadAndReturned) {
    static_assert(sizeof(g_bFpgaNeedRst) == 1);
    static_assert(std::is_same_v<decltype(g_uiRstMaskBit), unsigned int>);
    EXPECT_EQ(g_bFpgaNeedRst, 1);
    EXPECT_EQ(g_uiRstMaskBit, 1U);
    EXPECT_TRUE(IsNeedFpgaRst());
    g_bFpgaNeedRst = false;
    EXPECT_FALSE(IsNeedFpgaRst());
    g_bFpgaNeedRst = true;
}

}  // namespace
