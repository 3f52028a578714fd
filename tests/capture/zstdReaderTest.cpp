#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "capture/CaptureReader.h"
#include "captureBytes.h"
#include "tempDir.h"
#include "zstdBytes.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;
using velatest::CaptureBytes;
using velatest::Prefix;
using velatest::ZstdFrame;
using ZceCapture::CCaptureReader;
using Next = ZceCapture::CCaptureReader::Next;

class ZstdReader : public testing::Test {
  protected:
    std::string Path() const { return m_directory / "day.pcap"; }
    std::string Write(const std::string& bytes) const {
        std::ofstream(Path(), std::ios::binary) << bytes;
        return Path();
    }
    // All messages of a file of these bytes; m_end is what comes behind them.
    std::vector<std::string> Read(const std::string& bytes) {
        std::string error;
        EXPECT_TRUE(m_reader.Open(Write(bytes), error)) << error;
        std::vector<std::string> messages;
        ZceCapture::CaptureMessage message;
        while ((m_end = m_reader.Read(message)) == Next::Message) {
            messages.emplace_back(message.bytes.begin(), message.bytes.end());
        }
        EXPECT_EQ(m_reader.Read(message), m_end);
        return messages;
    }
    static std::string Three() {
        return CaptureBytes()
            .Add(1, 0, Prefix(1, 0, 1) + "abc")
            .Add(1, 1, Prefix(2, 0, 4))
            .Add(1, 2, Prefix(1, 0, 6) + "defghi")
            .Bytes();
    }

    velatest::TempDir m_directory;
    CCaptureReader m_reader;
    Next m_end = Next::Message;
};

TEST_F(ZstdReader, ACompressedCaptureIsKnownByItsBytesWhateverItsName) {
    EXPECT_THAT(Read(ZstdFrame(Three())), ElementsAre("abc", "defghi"));
    EXPECT_EQ(m_end, Next::End);
    EXPECT_EQ(m_reader.Lost(), 4U);
    EXPECT_TRUE(m_reader.IsZstd());
    EXPECT_EQ(m_reader.Error(), "");
    EXPECT_THAT(Read(Three()), ElementsAre("abc", "defghi"));
    EXPECT_FALSE(m_reader.IsZstd());
}

TEST_F(ZstdReader, SeveralFramesAreOneFile) {
    const std::string bytes = Three();
    EXPECT_THAT(Read(ZstdFrame(bytes.substr(0, 50)) + ZstdFrame(bytes.substr(50))),
                ElementsAre("abc", "defghi"));
    EXPECT_EQ(m_end, Next::End);
}

TEST_F(ZstdReader, LargerThanAnyBufferComesWhole) {
    CaptureBytes bytes;
    for (uint64_t k = 1; k <= 3000; ++k) {
        bytes.Add(k, 0, Prefix(1, 0, k) + std::string(k % 2000 + 1, static_cast<char>(k * 7)));
    }
    const std::vector<std::string> messages = Read(ZstdFrame(bytes.Bytes()));
    ASSERT_EQ(messages.size(), 3000U);
    for (uint64_t k = 1; k <= 3000; ++k) {
        ASSERT_EQ(messages[k - 1], std::string(k % 2000 + 1, static_cast<char>(k * 7)));
    }
    EXPECT_EQ(m_end, Next::End);
}

// A writer that was killed: whatever it had flushed is read, and then it is told.
TEST_F(ZstdReader, AFileCutAtAnyByteGivesWhatItsBlocksHoldAndIsCut) {
    const std::string whole = ZstdFrame(Three(), 59);  // a block ends behind the first packet
    size_t least = 0;
    for (size_t size = 4; size < whole.size(); ++size) {
        std::string error;
        if (!m_reader.Open(Write(whole.substr(0, size)), error)) {
            EXPECT_THAT(error, StartsWith(Path() + ": not a capture: "));
            EXPECT_EQ(least, 0U) << size;
            continue;
        }
        const std::vector<std::string> messages = Read(whole.substr(0, size));
        EXPECT_EQ(m_end, Next::Cut) << size;
        EXPECT_THAT(m_reader.Error(), StartsWith(Path() + ": packet "));
        EXPECT_GE(messages.size(), least) << size;
        least = messages.size();
    }
    EXPECT_EQ(least, 2U);  // all but the end of the frame
    EXPECT_EQ(m_reader.Error(), Path() + ": packet 4: truncated zstd frame");
}

TEST_F(ZstdReader, AByteThatWasChangedIsAnErrorAndNoCut) {
    CaptureBytes capture;
    for (uint64_t k = 1; k <= 1000; ++k) {
        capture.Add(k, 0, Prefix(1, 0, k) + std::string(1000, 'm'));
    }
    std::string bytes = ZstdFrame(capture.Bytes());
    bytes.back() = static_cast<char>(bytes.back() ^ 1);  // of the checksum
    EXPECT_GT(Read(bytes).size(), 500U);                 // what was decompressed before
    EXPECT_EQ(m_end, Next::Error);
    EXPECT_THAT(m_reader.Error(),
                testing::MatchesRegex(".*/day.pcap: packet [0-9]*: zstd: Restored data doesn't "
                                      "match checksum"));
}

TEST_F(ZstdReader, WhatIsCompressedButNoCaptureIsNamed) {
    std::string error;
    EXPECT_FALSE(m_reader.Open(Write(ZstdFrame("Not a capture at all, but a text.")), error));
    EXPECT_EQ(error, Path() + ": not a capture: unknown file format");
    EXPECT_FALSE(
        m_reader.Open(Write(ZstdFrame(CaptureBytes(CaptureBytes::NANO, 1).Bytes())), error));
    EXPECT_EQ(error, Path() + ": link type EN10MB (1), expected USER0 (147)");
    EXPECT_FALSE(m_reader.Open(Write("\x28\xB5\x2F\xFD\x08........"), error));
    EXPECT_THAT(error, StartsWith(Path() + ": not a capture: zstd: "));
}

TEST_F(ZstdReader, APipeIsReadToo) {
    ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
    for (const std::string& bytes : {Three(), ZstdFrame(Three())}) {
        std::thread writer([this, &bytes] {
            std::ofstream pipe(Path(), std::ios::binary);
            for (const char byte : bytes) {
                pipe << byte << std::flush;
            }
        });
        CCaptureReader reader;  // the last one's end is closed: nobody writes to it any more
        std::string error;
        ASSERT_TRUE(reader.Open(Path(), error)) << error;
        ZceCapture::CaptureMessage message;
        EXPECT_EQ(reader.Read(message), Next::Message);
        EXPECT_EQ(reader.Read(message), Next::Message);
        EXPECT_EQ(message.bytes.size(), 6U);
        EXPECT_EQ(reader.Read(message), Next::End);
        writer.join();
    }
}

}  // namespace
