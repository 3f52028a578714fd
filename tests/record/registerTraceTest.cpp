#include "record/RegisterTrace.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "nanoseconds.h"
#include "record/Settings.h"
#include "record/Surroundings.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace {

using ZceRecord::CRegisterTrace;
using ZceRecord::RegisterAccess;

using boardtest::SECOND;

class RegisterTrace : public testing::Test {
  protected:
    RegisterTrace() {
        setenv("TZ", "UTC-8", 1);  // NOLINT(concurrency-mt-unsafe): eight hours east
        tzset();
        EXPECT_TRUE(Open(m_trace, "day.pcap"));
    }
    bool Open(CRegisterTrace& trace, const std::string& name) {
        m_settings.name = name;
        m_settings.path = m_directory / name;
        ZceRecord::CFileMaker maker(m_settings, ZceRecord::TheSystem());
        return trace.Open(maker, 0);
    }
    std::string Path() const { return m_directory / "day.pcap.registers"; }
    std::string Text() const { return TextOf("day.pcap.registers"); }
    std::string TextOf(const std::string& name) const {
        return velatest::WholeFile(m_directory / name);
    }
    static RegisterAccess Access(int64_t timeNs, bool write, uint64_t index, uint64_t value) {
        RegisterAccess access;
        access.timeNs = timeNs;
        access.byteOffset = index * 4;
        access.width = 32;
        access.described = true;
        access.write = write;
        access.value = value;
        return access;
    }

    velatest::TempDir m_directory;
    ZceRecord::Settings m_settings;
    CRegisterTrace m_trace;
};

TEST_F(RegisterTrace, ALineTellsTimeRegisterAndValue) {
    const int64_t time = 1795222504 * SECOND;  // 2026-11-21 00:55:04 UTC
    m_trace.Add(Access(time + 9, false, 0x104, 85504));
    m_trace.Add(Access(time + 123456789, true, 0x11001, 0));
    m_trace.Add(Access(time + SECOND, true, 0x11000, 0xFFFFFFFF));
    m_trace.Pass(true);
    EXPECT_EQ(Text(),
              "2026-11-21 08:55:04.000000009 read 0x104 0x14e00\n"
              "2026-11-21 08:55:04.123456789 write 0x11001 0x0\n"
              "2026-11-21 08:55:05.000000000 write 0x11000 0xffffffff\n");
    EXPECT_EQ(m_trace.Summary(), "day.pcap.registers: 3 register accesses recorded, 0 lost");
}

TEST_F(RegisterTrace, WhatIsNotWrittenIsCounted) {
    m_trace.Add(Access(SECOND, false, 1, 1));
    m_trace.Add(Access(SECOND, false, 2, 2));
    m_trace.Pass(true);
    EXPECT_EQ(m_trace.Missing(), "");
    m_trace.Add(Access(SECOND, false, 3, 3));
    EXPECT_EQ(m_trace.Missing(),
              "day.pcap.registers: nothing can be written any more: up to 1 of 3 register accesses "
              "are not in the file");
}

TEST_F(RegisterTrace, BitsThatAreNotAWholeRegisterAreShown) {
    RegisterAccess access = Access(SECOND, true, 0x302, 0x1a2b);
    access.width = 16;
    m_trace.Add(access);
    access.byteOffset += 2;
    m_trace.Add(access);
    access.bitOffset = 3;
    access.width = 5;
    m_trace.Add(access);
    access = Access(SECOND, false, 0x302, 0xFFFFFFFFFFFFFFFF);
    access.width = 64;
    m_trace.Add(access);
    m_trace.Pass(true);
    EXPECT_EQ(Text(),
              "1970-01-01 08:00:01.000000000 write 0x302[0:16] 0x1a2b\n"
              "1970-01-01 08:00:01.000000000 write 0x302[16:16] 0x1a2b\n"
              "1970-01-01 08:00:01.000000000 write 0x302[19:5] 0x1a2b\n"
              "1970-01-01 08:00:01.000000000 read 0x302[0:64] 0xffffffffffffffff\n");
}

TEST_F(RegisterTrace, AFailureIsToldWithItsReason) {
    RegisterAccess access = Access(0, false, 0x90000, 5);
    access.failed = true;
    access.error = EINVAL;
    m_trace.Add(access);
    access.write = true;
    access.error = ENXIO;
    m_trace.Add(access);
    access.error = 4711;
    access.described = false;
    m_trace.Add(access);
    m_trace.Pass(true);
    EXPECT_EQ(Text(),
              "1970-01-01 08:00:00.000000000 read 0x90000 failed: Invalid argument (22)\n"
              "1970-01-01 08:00:00.000000000 write 0x90000 0x5 failed: No such device or address "
              "(6)\n"
              "1970-01-01 08:00:00.000000000 write (no register) 0x5 failed: unknown error "
              "(4711)\n");
}

TEST_F(RegisterTrace, IsInTheFileAsSoonAsNothingMoreComes) {
    m_trace.Add(Access(0, true, 0x10, 1));
    m_trace.Pass(false);
    m_trace.Pass(false);
    EXPECT_EQ(Text(), "1970-01-01 08:00:00.000000000 write 0x10 0x1\n");
}

TEST_F(RegisterTrace, ItsFileIsNamedLikeTheCaptureAndReplacesNone) {
    CRegisterTrace second;
    testing::internal::CaptureStderr();
    ASSERT_TRUE(Open(second, "day.pcap.zst"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: day.pcap.registers is there already: recording to "
              "day-2.pcap.registers\n");
    second.Add(Access(0, true, 0x10, 7));
    second.Pass(true);
    EXPECT_EQ(TextOf("day-2.pcap.registers"), "1970-01-01 08:00:00.000000000 write 0x10 0x7\n");
    CRegisterTrace all;
    ASSERT_TRUE(Open(all, "%Y/%b-%c-%H.pcap"));
    EXPECT_TRUE(std::filesystem::exists(m_directory / "1970/all-all-08.pcap.registers"));
    CRegisterTrace none;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Open(none, "day.pcap.registers/no.pcap"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: day.pcap.registers/no.pcap.registers: Not a directory: no register "
              "accesses are recorded\n");
}

TEST_F(RegisterTrace, MoreThanItCanHoldIsCountedAndTold) {
    CRegisterTrace small(2);
    ASSERT_TRUE(Open(small, "small"));
    for (uint64_t k = 0; k < 5; ++k) {
        small.Add(Access(0, true, 0x10, k));
    }
    small.Pass(false);
    small.Add(Access(0, true, 0x10, 5));
    small.Pass(true);
    EXPECT_EQ(TextOf("small.registers"),
              "1970-01-01 08:00:00.000000000 write 0x10 0x0\n"
              "1970-01-01 08:00:00.000000000 write 0x10 0x1\n"
              "# 3 accesses lost\n"
              "1970-01-01 08:00:00.000000000 write 0x10 0x5\n");
    EXPECT_EQ(small.Summary(), "small.registers: 3 register accesses recorded, 3 lost");
}

}  // namespace
