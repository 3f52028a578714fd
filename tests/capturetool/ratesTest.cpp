// Peaks and bursts.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "capturetool/Rates.h"

namespace velatest {
namespace {

using ZceCaptureTool::CBursts;
using ZceCaptureTool::CPeakWindow;

constexpr int64_t MS = 1'000'000;

TEST(PeakWindow, CountsWhatIsInAStretchOfTimeWhereverItBegins) {
    CPeakWindow window(MS);
    // Two in a row, then three in 0.6 ms over the border of two milliseconds.
    for (const int64_t at : {int64_t{0}, MS / 2, 10 * MS + 700'000, 11 * MS, 11 * MS + 300'000}) {
        window.Add(at);
    }
    EXPECT_EQ(window.Peak(), 3U);
    EXPECT_EQ(window.PeakNs(), 11 * MS + 300'000);
    EXPECT_EQ(window.LengthNs(), 1'000'000U);
    window.Add(11 * MS + 700'000);  // a whole length behind the first of the three
    EXPECT_EQ(window.Peak(), 3U);
    window.Add(11 * MS + 701'000);
    EXPECT_EQ(window.Peak(), 4U);
}

TEST(PeakWindow, ClocksThatAreSetBack) {
    CPeakWindow window(MS);
    window.Add(100 * MS);
    window.Add(100 * MS - 10'000);  // another thread's, a little earlier
    EXPECT_EQ(window.Peak(), 2U);
    window.Add(50 * MS);
    window.Add(50 * MS);
    window.Add(50 * MS);
    EXPECT_EQ(window.Peak(), 3U);
    EXPECT_EQ(window.PeakNs(), 50 * MS);
    window.Add(std::numeric_limits<int64_t>::min());
    window.Add(std::numeric_limits<int64_t>::max());
    window.Add(-1);
    window.Add(0);
    window.Add(1);
    EXPECT_EQ(window.Peak(), 3U);
    window.Add(-2);
    EXPECT_EQ(window.Peak(), 4U);
}

// Against a count of every stretch that ends in a message.
TEST(PeakWindow, IsTheCountOfEveryStretch) {
    std::mt19937_64 random(3);
    for (int round = 0; round < 20; ++round) {
        std::vector<int64_t> steps;  // thousandths of the window
        int64_t step = -5000;
        CPeakWindow window(MS);
        uint64_t most = 0;
        int64_t mostAt = 0;
        for (int k = 0; k < 500; ++k) {
            step += static_cast<int64_t>(random() % (random() % 10 == 0 ? 3000 : 50));
            steps.push_back(step);
            window.Add(step * (MS / 1000) + static_cast<int64_t>(random() % 1000));
            const auto inside = static_cast<uint64_t>(std::count_if(
                steps.begin(), steps.end(), [step](int64_t one) { return one > step - 1000; }));
            if (inside > most) {
                most = inside;
                mostAt = step;
            }
        }
        EXPECT_EQ(window.Peak(), most);
        EXPECT_EQ((window.PeakNs() + 100 * MS) / (MS / 1000) - 100'000, mostAt);
    }
}

TEST(Bursts, AreRunsOfMessagesCloseToEachOther) {
    CBursts bursts(1000);
    int64_t now = 5000;
    const auto run = [&bursts, &now](int messages, int64_t apartNs) {
        now += 1'000'000;
        for (int k = 0; k < messages; ++k) {
            bursts.Add(now);
            now += k + 1 < messages ? apartNs : 0;
        }
    };
    run(1, 0);
    run(2, 999);
    run(3, 1000);  // none: not less than 1000
    run(12, 1);
    run(120, 0);
    run(120, 5);
    bursts.Finish();
    EXPECT_EQ(bursts.Count(0), 4U);
    EXPECT_EQ(bursts.Count(1), 3U);
    EXPECT_EQ(bursts.Count(2), 2U);
    EXPECT_EQ(bursts.Count(3), 0U);
    EXPECT_EQ(bursts.Largest().messages, 120U);
    EXPECT_EQ(bursts.Largest().firstNs, 5000 + 5 * 1'000'000 + 999 + 2000 + 11);
    EXPECT_EQ(bursts.Largest().lastNs, bursts.Largest().firstNs);
}

TEST(Bursts, MessagesALittleOutOfOrderAreStillOne) {
    CBursts bursts(1000);
    for (const int64_t at : {10'000, 10'900, 10'500, 11'800, 9'000}) {
        bursts.Add(at);
    }
    bursts.Finish();
    EXPECT_EQ(bursts.Largest().messages, 4U);
    EXPECT_EQ(bursts.Largest().firstNs, 10'000);
    EXPECT_EQ(bursts.Largest().lastNs, 11'800);
    EXPECT_EQ(bursts.Count(0), 1U);
    CBursts none(1000);
    none.Finish();
    EXPECT_EQ(none.Largest().messages, 0U);
    EXPECT_EQ(none.Count(0), 0U);
}

}  // namespace
}  // namespace velatest
