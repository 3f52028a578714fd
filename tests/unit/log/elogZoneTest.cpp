#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"

// Linked with the host's clock, where the local time is not UTC.
namespace {

// The "yyyymmdd-hh:mm:ss" of a line.
std::string TimeOf(const std::string& line) {
    return line.size() < 27 ? line : line.substr(10, 17);
}

TEST(ElogZone, LinesOfSignalHandlersBearTheLocalTime) {
    setenv("TZ", "VIRT-7:30", 1);
    const velatest::TempDir dir;
    CRwLogger logger;
    ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    const std::time_t before = std::time(nullptr);
    std::string lines;
    {
        const velatest::StdoutCapture out;
        LOG_WARN_IN_SIGNAL("s", 1, "");
        lines = out.Text();
    }
    const std::time_t after = std::time(nullptr);
    bool found = false;
    for (std::time_t at = before; at <= after; ++at) {
        const std::time_t shifted = at + 27000;  // 7 hours and a half
        std::tm utc{};
        ASSERT_NE(gmtime_r(&shifted, &utc), nullptr);
        char text[32];
        std::strftime(text, sizeof(text), "%Y%m%d-%H:%M:%S", &utc);
        found = found || TimeOf(lines) == text;
    }
    EXPECT_TRUE(found) << lines;
}

}  // namespace
