// What becomes of a recording whose disk takes nothing more, and of one that has no disk.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "asUser.h"
#include "captureBytes.h"
#include "recordingFiles.h"

namespace {

using namespace recordtest;
using testing::ElementsAre;
using testing::IsEmpty;
using velatest::CaptureBytes;
using velatest::Prefix;
using Disk = Rotation;

// Bytes that cannot be compressed.
std::string Noise(size_t size) {
    static std::mt19937 random(1);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

TEST_F(Disk, WithTooLittleSpaceARecordingDoesNotBegin) {
    m_settings.freeBytes = 200 * DISK_MIB;
    EXPECT_EQ(OpenError(),
              "day.pcap: 100 MiB are free on its disk, 200 are kept free (ZCE_RECORD_FREE_MIB)");
    EXPECT_THAT(Files(), IsEmpty());
    // Of a small disk a tenth is enough, unless the number was asked for.
    m_settings.freeByDefault = true;
    g_space = {100 * DISK_MIB, 1000 * DISK_MIB};
    EXPECT_NE(Opened(0, 0), nullptr);
    g_space = {100 * DISK_MIB - 1, 1000 * DISK_MIB};
    Named("another.pcap");
    m_recorder.reset();
    EXPECT_EQ(OpenError(),
              "another.pcap: 99 MiB are free on its disk, 100 are kept free (ZCE_RECORD_FREE_MIB)");
}

TEST_F(Disk, WhereSpaceRunsOutTheRecordingEndsWithOneLineAndWholeFiles) {
    Named("%c.pcap");
    m_settings.freeBytes = 50 * DISK_MIB;
    CMessageQueue* one = Opened(0, 1);
    CMessageQueue* two = Opened(0, 2);
    Put(two, 1, "b");
    Write(one, 2);
    g_space.freeBytes = 50 * DISK_MIB;
    Write(one, 3);
    g_space.freeBytes = 50 * DISK_MIB - 1;
    testing::internal::CaptureStderr();
    Write(one, 4);
    Write(one, 5);  // the polling thread knows nothing of it
    EndAll();
    const std::string fault =
        "1.pcap: 49 MiB are free on its disk, 50 are kept free (ZCE_RECORD_FREE_MIB)";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: " + fault + ": the recording has ended\n");
    EXPECT_THAT(Numbers("1.pcap"), ElementsAre(1, 2, 3));
    EXPECT_THAT(Numbers("2.pcap"), ElementsAre(1));
    for (const char* name : {"1.pcap", "2.pcap"}) {
        EXPECT_EQ(SidecarOf(name).state, Sidecar::State::Stopped);
        EXPECT_EQ(SidecarOf(name).ended, fault);
    }
    EXPECT_EQ(Recorder().Summary(), "");
}

// A write that fails in its middle: the file is cut back to its last whole flush.
TEST_F(Disk, AFullDiskLeavesAWholeFileAndItsSidecar) {
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, 1, 1000);
    Write(queue, 2, 1000);
    const rlimit limit{24 + 2 * 1032 + 500, RLIM_INFINITY};
    std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    testing::internal::CaptureStderr();
    Write(queue, 3, 1000);
    EndAll();
    const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &none);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: day.pcap: cannot write: File too large: the recording has ended\n");
    EXPECT_THAT(Numbers("day.pcap"), ElementsAre(1, 2));
    const Sidecar sidecar = SidecarOf("day.pcap");
    EXPECT_EQ(sidecar.state, Sidecar::State::Stopped);
    EXPECT_EQ(sidecar.ended, "day.pcap: cannot write: File too large");
    EXPECT_EQ(sidecar.messages, 2U);
    EXPECT_EQ(sidecar.streams.at(0).last, 2U);
    EXPECT_EQ(sidecar.lastTimeNs, 2);
}

TEST_F(Disk, AFileThatIsFullBeforeItsFirstMessageStillNamesTheOneBefore) {
    m_settings.maxBytes = 24 + 33;  // one message a file
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, 1);
    const rlimit limit{2000, RLIM_INFINITY};  // enough for a sidecar
    std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    testing::internal::CaptureStderr();
    Write(queue, 2, 3000);
    const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &none);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: day-2.pcap: cannot write: File too large: the recording has ended\n");
    Sidecar second;
    std::string error;
    ZceCapture::ReadSidecar(Path("day-2.pcap"), second, error);
    EXPECT_EQ(error, "");
    EXPECT_EQ(second.previous, "day.pcap");
}

// The same of a compressed one: it is cut back to a whole block, and its frame ends there.
TEST_F(Disk, AFullDiskLeavesAWholeCompressedFileAndItsSidecar) {
    Named("day.pcap.zst");
    m_settings.zstdLevel = 3;
    CMessageQueue* queue = Opened(0, 0);
    Put(queue, 1, Noise(1000));
    Recorder().Pass(true);
    Put(queue, 2, Noise(1000));
    Recorder().Pass(true);
    const rlimit limit{std::filesystem::file_size(Path("day.pcap.zst")) + 500, RLIM_INFINITY};
    std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    testing::internal::CaptureStderr();
    Put(queue, 3, Noise(1000));
    EndAll();
    const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &none);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: day.pcap.zst: cannot write: File too large: the recording has ended\n");
    EXPECT_THAT(Numbers("day.pcap.zst"), ElementsAre(1, 2));
    const Sidecar sidecar = SidecarOf("day.pcap.zst");
    EXPECT_EQ(sidecar.state, Sidecar::State::Stopped);
    EXPECT_EQ(sidecar.messages, 2U);
    EXPECT_EQ(sidecar.uncompressedBytes, 24U + 2 * 1032);
}

TEST_F(Disk, AFolderThatIsRemovedIsMadeAgainForTheNextMessage) {
    Named("data/%H/day.pcap");
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, g_nowNs);
    std::filesystem::remove_all(Path("data"));
    testing::internal::CaptureStderr();
    Write(queue, g_nowNs);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: data/09/day.pcap: it was removed: the next message begins another "
              "file\n");
    Write(queue, g_nowNs + SECOND);
    EndAll();
    EXPECT_THAT(Numbers("data/09/day.pcap"), ElementsAre(3));
    EXPECT_EQ(SidecarOf("data/09/day.pcap").previous, "");
}

TEST_F(Disk, AFolderThatMayNotBeWrittenToIsToldAtTheBeginning) {
    ASSERT_EQ(chmod(m_directory.path().c_str(), 0555), 0);
    EXPECT_EQ(velatest::RunAsUser([this] {
                  std::string error;
                  const bool refused = Recorder().Opened(0, 0, error) == nullptr;
                  return refused && error == "day.pcap: Permission denied" ? 0 : 1;
              }),
              0);
    Named("new/day.pcap");
    EXPECT_EQ(velatest::RunAsUser([this] {
                  std::string error;
                  const bool refused = Recorder().Opened(0, 0, error) == nullptr;
                  return refused && error == "new/day.pcap: the folder " + Path("new") +
                                                 " cannot be made: Permission denied"
                             ? 0
                             : 1;
              }),
              0);
}

TEST_F(Disk, WhereTheNextFileCannotBeMadeTheRecordingEndsWithOneLine) {
    Named("%H/day.pcap");
    m_settings.maxMinutes = 60;
    std::ofstream(Path("10")) << "in the way of the folder";
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, g_nowNs);
    testing::internal::CaptureStderr();
    Write(queue, g_nowNs + 3600 * SECOND);
    Write(queue, g_nowNs + 3601 * SECOND);
    EndAll();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zce-record: 10/day.pcap: Not a directory: the recording has ended\n");
    EXPECT_THAT(Numbers("09/day.pcap"), ElementsAre(1));
    EXPECT_EQ(SidecarOf("09/day.pcap").state, Sidecar::State::Complete);
}

TEST_F(Disk, APipeHasNoSidecarAndOneFile) {
    ASSERT_EQ(mkfifo(Path("day.pcap").c_str(), 0600), 0);
    const int reader = open(Path("day.pcap").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    m_settings.maxBytes = 10;
    m_settings.freeBytes = 200 * DISK_MIB;  // more than there is
    CMessageQueue* queue = Opened(0, 0);
    Write(queue, 1 * SECOND);
    Write(queue, 2 * SECOND);
    EndAll();
    std::string bytes(1000, '\0');
    const ssize_t size = read(reader, bytes.data(), bytes.size());
    close(reader);
    bytes.resize(size > 0 ? static_cast<size_t>(size) : 0);
    EXPECT_EQ(
        bytes,
        CaptureBytes().Add(1, 0, Prefix(1, 0, 1) + "m").Add(2, 0, Prefix(1, 0, 2) + "m").Bytes());
    EXPECT_THAT(Files(), IsEmpty());
}

}  // namespace
