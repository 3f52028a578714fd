#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "record/Settings.h"
#include "tempDir.h"

namespace {

constexpr uint64_t MIB = uint64_t{1} << 20;

class RecordSettings : public testing::Test {
  protected:
    RecordSettings() {
        for (const char* name :
             {"ZCE_RECORD", "ZCE_RECORD_BUFFER", "ZCE_RECORD_REGISTERS", "ZCE_RECORD_OVERWRITE",
              "ZCE_RECORD_MAX_MIB", "ZCE_RECORD_MAX_MINUTES", "ZCE_RECORD_FREE_MIB",
              "ZCE_RECORD_ZSTD"}) {
            unsetenv(name);  // NOLINT(concurrency-mt-unsafe)
        }
    }
    static ZceRecord::Settings With(const char* name, const char* value) {
        setenv(name, value, 1);  // NOLINT(concurrency-mt-unsafe)
        return ZceRecord::ReadSettings();
    }
};

TEST_F(RecordSettings, AreReadFromTheEnvironment) {
    ZceRecord::Settings settings = With("ZCE_RECORD", "/data/%Y%m%d/%c-%p.pcap");
    EXPECT_EQ(settings.name, "/data/%Y%m%d/%c-%p.pcap");
    EXPECT_EQ(settings.path, "/data/%Y%m%d/%c-%p.pcap");
    EXPECT_EQ(settings.bufferBytes, 8 * MIB);
    EXPECT_FALSE(settings.registers);
    EXPECT_FALSE(settings.overwrite);
    EXPECT_EQ(settings.maxBytes, 0U);
    EXPECT_EQ(settings.maxMinutes, 0U);
    EXPECT_EQ(settings.freeBytes, 1024 * MIB);
    EXPECT_TRUE(settings.freeByDefault);
    EXPECT_EQ(settings.zstdLevel, 0);
    EXPECT_EQ(settings.fault, "");
    EXPECT_EQ(With("ZCE_RECORD_BUFFER", "1").bufferBytes, MIB);
    EXPECT_EQ(With("ZCE_RECORD_BUFFER", "1024").bufferBytes, 1024 * MIB);
    EXPECT_TRUE(With("ZCE_RECORD_REGISTERS", "1").registers);
    EXPECT_FALSE(With("ZCE_RECORD_REGISTERS", "0").registers);
    EXPECT_TRUE(With("ZCE_RECORD_OVERWRITE", "1").overwrite);
    EXPECT_EQ(With("ZCE_RECORD_MAX_MIB", "3").maxBytes, 3 * MIB);
    EXPECT_EQ(With("ZCE_RECORD_MAX_MINUTES", "1440").maxMinutes, 1440U);
    settings = With("ZCE_RECORD_FREE_MIB", "5");
    EXPECT_EQ(settings.freeBytes, 5 * MIB);
    EXPECT_FALSE(settings.freeByDefault);
    EXPECT_EQ(With("ZCE_RECORD_FREE_MIB", "0").freeBytes, 0U);
    EXPECT_EQ(ZceRecord::ReadSettings().fault, "");
}

TEST_F(RecordSettings, ARelativeNameCountsFromTheFolderWhateverItIsCalled) {
    const velatest::TempDir directory(velatest::TempDir::Enter::yes);
    std::filesystem::create_directory("50%Y");
    std::filesystem::current_path("50%Y");
    const ZceRecord::Settings settings = With("ZCE_RECORD", "%c.pcap");
    EXPECT_EQ(settings.name, "%c.pcap");
    EXPECT_EQ(settings.path,
              std::filesystem::current_path().parent_path().string() + "/50%%Y/%c.pcap");
    std::filesystem::current_path("..");
}

TEST_F(RecordSettings, ANameThatEndsInZstOrALevelCompresses) {
    ZceRecord::Settings settings = With("ZCE_RECORD", "/day.pcap.zst");
    EXPECT_EQ(settings.name, "/day.pcap.zst");
    EXPECT_EQ(settings.zstdLevel, 3);
    settings = With("ZCE_RECORD_ZSTD", "19");
    EXPECT_EQ(settings.name, "/day.pcap.zst");
    EXPECT_EQ(settings.zstdLevel, 19);
    settings = With("ZCE_RECORD", "/day.pcap");
    EXPECT_EQ(settings.name, "/day.pcap.zst");
    EXPECT_EQ(settings.path, "/day.pcap.zst");
    EXPECT_EQ(settings.zstdLevel, 19);
}

TEST_F(RecordSettings, BadOnesAreNamed) {
    const std::string end = ": nothing is recorded";
    EXPECT_EQ(ZceRecord::ReadSettings().fault, "ZCE_RECORD names no file" + end);
    EXPECT_EQ(With("ZCE_RECORD", "").fault, "ZCE_RECORD names no file" + end);
    EXPECT_EQ(With("ZCE_RECORD", "/day-%q.pcap").fault,
              "ZCE_RECORD: '/day-%q.pcap': %q is no pattern; there are %Y %m %d %H %M %S %b %c %n "
              "%p and %%" +
                  end);
    With("ZCE_RECORD", "day.pcap");
    for (const char* bad : {"0", "1025", "x", "1M", "-1", " 1", "99999999999999999999"}) {
        EXPECT_EQ(With("ZCE_RECORD_BUFFER", bad).fault,
                  std::string("ZCE_RECORD_BUFFER: '") + bad +
                      "' is not a number of MiB from 1 to 1024: nothing is recorded");
    }
    With("ZCE_RECORD_BUFFER", "8");
    EXPECT_EQ(With("ZCE_RECORD_REGISTERS", "yes").fault,
              "ZCE_RECORD_REGISTERS: 'yes' is neither 0 nor 1" + end);
    With("ZCE_RECORD_REGISTERS", "0");
    EXPECT_EQ(With("ZCE_RECORD_OVERWRITE", "2").fault,
              "ZCE_RECORD_OVERWRITE: '2' is neither 0 nor 1" + end);
    With("ZCE_RECORD_OVERWRITE", "");
    EXPECT_EQ(With("ZCE_RECORD_MAX_MIB", "0").fault,
              "ZCE_RECORD_MAX_MIB: '0' is not a number of MiB from 1 to 1073741824" + end);
    With("ZCE_RECORD_MAX_MIB", "1073741824");
    EXPECT_EQ(With("ZCE_RECORD_MAX_MINUTES", "1441").fault,
              "ZCE_RECORD_MAX_MINUTES: '1441' is not a number of minutes from 1 to 1440" + end);
    With("ZCE_RECORD_MAX_MINUTES", "1");
    EXPECT_EQ(With("ZCE_RECORD_FREE_MIB", "1G").fault,
              "ZCE_RECORD_FREE_MIB: '1G' is not a number of MiB from 0 to 1073741824" + end);
    With("ZCE_RECORD_FREE_MIB", "0");
    EXPECT_EQ(With("ZCE_RECORD_ZSTD", "20").fault,
              "ZCE_RECORD_ZSTD: '20' is not a level from 1 to 19" + end);
}

}  // namespace
