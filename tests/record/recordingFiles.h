#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "capture/CaptureReader.h"
#include "capture/SidecarReader.h"
#include "nanoseconds.h"
#include "record/MessageRecorder.h"
#include "tempDir.h"

// A recording in a directory of its own, on a clock and a disk that the test sets.
namespace recordtest {

using boardtest::SECOND;
using ZceCapture::CCaptureReader;
using ZceCapture::Sidecar;
using ZceCapture::SidecarCheck;
using ZceRecord::CMessageQueue;
using ZceRecord::CMessageRecorder;

constexpr uint64_t DISK_MIB = uint64_t{1} << 20;
constexpr int64_t MIDNIGHT = 1795190400 * SECOND;  // of 2026-11-21, eight hours east

inline int64_t g_nowNs = 0;
inline ZceRecord::Space g_space;
inline const ZceRecord::Surroundings FAKED{
    [] { return g_nowNs; },
    [](const std::string& /*file*/, ZceRecord::Space& space) {
        space = g_space;
        return true;
    },
};

class Rotation : public testing::Test {
  protected:
    Rotation() {
        setenv("TZ", "UTC-8", 1);  // NOLINT(concurrency-mt-unsafe): eight hours east
        tzset();
        g_nowNs = MIDNIGHT + int64_t{9} * 3600 * SECOND;
        g_space = {100 * DISK_MIB, 1000 * DISK_MIB};
        Named("day.pcap");
        m_settings.bufferBytes = 1 << 20;
    }
    void Named(const std::string& name) {
        m_settings.name = name;
        m_settings.path = m_directory / name;
    }
    std::string Path(const std::string& name) const { return m_directory / name; }
    CMessageRecorder& Recorder() {
        if (m_recorder == nullptr) {
            m_recorder = std::make_unique<CMessageRecorder>(m_settings, FAKED);
        }
        return *m_recorder;
    }
    CMessageQueue* Opened(uint16_t bus, uint16_t channel) {
        std::string error;
        CMessageQueue* queue = Recorder().Opened(bus, channel, error);
        EXPECT_EQ(error, "");
        return queue;
    }
    std::string OpenError() {
        std::string error;
        EXPECT_EQ(Recorder().Opened(0, 0, error), nullptr);
        return error;
    }
    static void Put(CMessageQueue* queue, int64_t timeNs, const std::string& message) {
        queue->Put(timeNs, reinterpret_cast<const unsigned char*>(message.data()),
                   static_cast<uint32_t>(message.size()));
    }
    // One message of `bytes` bytes each time, written at once.
    void Write(CMessageQueue* queue, int64_t timeNs, size_t bytes = 1) {
        Put(queue, timeNs, std::string(bytes, 'm'));
        Recorder().Pass(true);
    }
    void EndAll() {
        Recorder().Pass(true);
        Recorder().End();
    }
    // All that is in the folder and below.
    std::vector<std::string> Files() const {
        std::vector<std::string> files;
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(m_directory.path())) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path().string().substr(m_directory.path().size() + 1));
            }
        }
        std::sort(files.begin(), files.end());
        return files;
    }
    Sidecar SidecarOf(const std::string& name) const {
        const SidecarCheck check = ZceCapture::CheckSidecar(Path(name));
        EXPECT_EQ(check.verdict, SidecarCheck::Verdict::Good) << check.text;
        return check.sidecar;
    }
    // The numbers of the messages of a file, and of each note the lost ones below 0.
    std::vector<int64_t> Numbers(const std::string& name,
                                 CCaptureReader::Next end = CCaptureReader::Next::End) const {
        std::vector<int64_t> numbers;
        CCaptureReader reader;
        std::string error;
        EXPECT_TRUE(reader.Open(Path(name), error)) << error;
        ZceCapture::CaptureMessage message;
        CCaptureReader::Next next = reader.Read(message);
        for (; next == CCaptureReader::Next::Message; next = reader.Read(message)) {
            if (message.lostBefore != 0) {
                numbers.push_back(-static_cast<int64_t>(message.lostBefore));
            }
            numbers.push_back(static_cast<int64_t>(message.number));
        }
        EXPECT_EQ(next, end) << reader.Error();
        return numbers;
    }

    velatest::TempDir m_directory;
    ZceRecord::Settings m_settings;
    std::unique_ptr<CMessageRecorder> m_recorder;
};

}  // namespace recordtest
