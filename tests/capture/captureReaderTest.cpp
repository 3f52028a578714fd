#include "capture/CaptureReader.h"

#include <gmock/gmock.h>

#include <array>
#include <fstream>
#include <string>
#include <vector>

#include "captureBytes.h"
#include "tempDir.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using velatest::CaptureBytes;
using velatest::Little;
using velatest::Prefix;
using ZceCapture::CaptureMessage;
using ZceCapture::CCaptureReader;
using Next = ZceCapture::CCaptureReader::Next;

class CaptureReader : public testing::Test {
  protected:
    std::string Path() const { return m_directory / "day.pcap"; }
    std::string Write(const std::string& bytes) const {
        std::ofstream(Path(), std::ios::binary) << bytes;
        return Path();
    }
    // Opens a file of these bytes, which is to succeed.
    void Open(const std::string& bytes) {
        std::string error;
        ASSERT_TRUE(m_reader.Open(Write(bytes), error)) << error;
    }
    std::string OpenError(const std::string& path) {
        std::string error;
        EXPECT_FALSE(m_reader.Open(path, error));
        return error;
    }
    static std::string BytesOf(const CaptureMessage& message) {
        return {message.bytes.begin(), message.bytes.end()};
    }

    velatest::TempDir m_directory;
    CCaptureReader m_reader;
    CaptureMessage m_message;
};

TEST_F(CaptureReader, GivesMessageByMessageWithTimeStreamAndBytes) {
    Open(CaptureBytes()
             .Add(1795262695, 845098017, Prefix(1, 3, 1, 2, 1) + "abcdefghijkl")
             .Add(1795262695, 845098018, Prefix(1, 15, 70000000000, 65535, 4) + "x")
             .Bytes());
    ASSERT_EQ(m_reader.Read(m_message), Next::Message);
    EXPECT_EQ(m_message.timeNs, 1795262695845098017);
    EXPECT_EQ(m_message.bus, 2);
    EXPECT_EQ(m_message.channel, 3);
    EXPECT_EQ(m_message.opening, 1);
    EXPECT_EQ(m_message.number, 1U);
    EXPECT_EQ(m_message.packet, 1U);
    EXPECT_EQ(m_message.lostBefore, 0U);
    EXPECT_EQ(BytesOf(m_message), "abcdefghijkl");
    ASSERT_EQ(m_reader.Read(m_message), Next::Message);
    EXPECT_EQ(m_message.timeNs, 1795262695845098018);
    EXPECT_EQ(m_message.bus, 65535);
    EXPECT_EQ(m_message.channel, 15);
    EXPECT_EQ(m_message.opening, 4);
    EXPECT_EQ(m_message.number, 70000000000U);
    EXPECT_EQ(m_message.packet, 2U);
    EXPECT_EQ(BytesOf(m_message), "x");
    EXPECT_EQ(m_reader.Read(m_message), Next::End);
    EXPECT_EQ(m_reader.Read(m_message), Next::End);
    EXPECT_EQ(m_reader.Packets(), 2U);
}

TEST_F(CaptureReader, CountsTheLostMessagesOfNotesAndPassesThemOver) {
    Open(CaptureBytes()
             .Add(1, 0, Prefix(2, 0, 5))
             .Add(1, 1, Prefix(2, 3, 7))
             .Add(1, 2, Prefix(1, 0, 6) + "m")
             .Add(1, 3, Prefix(1, 0, 7) + "n")
             .Add(1, 4, Prefix(2, 0, 1000000000000))
             .Bytes());
    ASSERT_EQ(m_reader.Read(m_message), Next::Message);
    EXPECT_EQ(m_message.packet, 3U);
    EXPECT_EQ(m_message.lostBefore, 12U);
    EXPECT_EQ(m_reader.Lost(), 12U);
    ASSERT_EQ(m_reader.Read(m_message), Next::Message);
    EXPECT_EQ(m_message.lostBefore, 0U);
    EXPECT_EQ(m_reader.Read(m_message), Next::End);
    EXPECT_EQ(m_reader.Lost(), 1000000000012U);
    EXPECT_EQ(m_reader.Packets(), 5U);
}

TEST_F(CaptureReader, ReadsMicrosecondsTheOtherByteOrderAndPcapng) {
    Open(CaptureBytes(CaptureBytes::MICRO).Add(7, 123456, Prefix(1, 0, 1) + "m").Bytes());
    ASSERT_EQ(m_reader.Read(m_message), Next::Message);
    EXPECT_EQ(m_message.timeNs, 7123456000);
    EXPECT_EQ(BytesOf(m_message), "m");

    using velatest::Big;
    const std::string packet = Prefix(1, 4, 9) + "swap";
    Open(Big(0xa1b23c4d, 4) + Big(2, 2) + Big(4, 2) + Big(0, 8) + Big(262144, 4) + Big(147, 4) +
         Big(7, 4) + Big(5, 4) + Big(packet.size(), 4) + Big(packet.size(), 4) + packet);
    ASSERT_EQ(m_reader.Read(m_message), Next::Message);
    EXPECT_EQ(m_message.timeNs, 7000000005);
    EXPECT_EQ(m_message.channel, 4);
    EXPECT_EQ(BytesOf(m_message), "swap");

    // Section, interface with a resolution of 10^-9 s, one packet of 16 + 4 bytes.
    const uint64_t time = 7000000011;
    Open(Little(0x0a0d0d0a, 4) + Little(28, 4) + Little(0x1a2b3c4d, 4) + Little(1, 2) +
         Little(0, 2) + Little(~0ULL, 8) + Little(28, 4) +  //
         Little(1, 4) + Little(32, 4) + Little(147, 2) + Little(0, 2) + Little(262144, 4) +
         Little(9, 2) + Little(1, 2) + Little(9, 4) + Little(0, 4) + Little(32, 4) +  //
         Little(6, 4) + Little(52, 4) + Little(0, 4) + Little(time >> 32, 4) + Little(time, 4) +
         Little(20, 4) + Little(20, 4) + packet + Little(52, 4));
    ASSERT_EQ(m_reader.Read(m_message), Next::Message) << m_reader.Error();
    EXPECT_EQ(m_message.timeNs, 7000000011);
    EXPECT_EQ(BytesOf(m_message), "swap");
    EXPECT_EQ(m_reader.Read(m_message), Next::End);
}

TEST_F(CaptureReader, AFileThatIsNoCaptureIsNamedWithTheReason) {
    EXPECT_EQ(OpenError(m_directory / "none.pcap"),
              m_directory / "none.pcap" + ": No such file or directory");
    EXPECT_EQ(OpenError(m_directory.path()),
              m_directory.path() + ": not a capture: error reading dump file: Is a directory");
    EXPECT_EQ(OpenError(Write("")), Path() +
                                        ": not a capture: truncated dump file; tried to read 4 "
                                        "file header bytes, only got 0");
    EXPECT_EQ(OpenError(Write("Not a capture at all, but a text.")),
              Path() + ": not a capture: unknown file format");
    EXPECT_EQ(m_reader.Read(m_message), Next::End);
}

TEST_F(CaptureReader, AForeignLinkTypeIsNamedWithTheExpectedOne) {
    EXPECT_EQ(OpenError(Write(CaptureBytes(CaptureBytes::NANO, 1).Bytes())),
              Path() + ": link type EN10MB (1), expected USER0 (147)");
    EXPECT_EQ(OpenError(Write(CaptureBytes(CaptureBytes::NANO, 148).Bytes())),
              Path() + ": link type USER1 (148), expected USER0 (147)");
}

struct BadPacket {
    std::string packet;
    size_t missing;
    const char* reason;
};

TEST_F(CaptureReader, ABadPacketIsNamedWithItsNumberAndReason) {
    const std::vector<BadPacket> bad{
        {Prefix(1, 0, 2, 0, 1, 2) + "m", 0, "version 2, expected 1"},
        {Prefix(1, 0, 2, 0, 1, 0) + "m", 0, "version 0, expected 1"},
        {Prefix(0, 0, 2) + "m", 0, "kind 0, expected 1 (message) or 2 (lost)"},
        {Prefix(3, 0, 2) + "m", 0, "kind 3, expected 1 (message) or 2 (lost)"},
        {Prefix(1, 16, 2) + "m", 0, "channel 16, expected 0 to 15"},
        {Prefix(2, 65535, 2), 0, "channel 65535, expected 0 to 15"},
        {Prefix(1, 0, 2), 0, "message of 0 bytes, expected 1 to 2048"},
        {Prefix(1, 0, 2) + std::string(2049, 'm'), 0, "message of 2049 bytes, expected 1 to 2048"},
        {Prefix(2, 0, 2) + "m", 0, "1 bytes behind a note of lost messages"},
        {Prefix(1, 0, 2).substr(0, 15), 0, "15 bytes are too few for the prefix of 16"},
        {"", 0, "0 bytes are too few for the prefix of 16"},
        {Prefix(1, 0, 2) + "mess", 3, "only 20 of its 23 bytes were captured"},
    };
    for (const BadPacket& one : bad) {
        Open(CaptureBytes()
                 .Add(1, 0, Prefix(1, 0, 1) + std::string(2048, 'm'))
                 .Add(1, 1, Prefix(2, 15, 1))
                 .Add(1, 2, one.packet, one.missing)
                 .Add(1, 3, Prefix(1, 0, 3) + "m")
                 .Bytes());
        ASSERT_EQ(m_reader.Read(m_message), Next::Message) << m_reader.Error();
        EXPECT_EQ(m_message.bytes.size(), 2048U);
        EXPECT_EQ(m_reader.Read(m_message), Next::Error);
        EXPECT_EQ(m_reader.Error(), Path() + ": packet 3: " + one.reason);
        EXPECT_EQ(m_reader.Read(m_message), Next::Error) << one.reason;
    }
}

TEST_F(CaptureReader, APacketLargerThanAnyCapturesIsAnErrorAndNoCut) {
    std::string bytes = CaptureBytes().Add(1, 0, Prefix(1, 0, 1) + "m").Bytes();
    bytes += Little(1, 4) + Little(0, 4) + Little(0x7fffffff, 4) + Little(0x7fffffff, 4) + "more";
    Open(bytes);
    ASSERT_EQ(m_reader.Read(m_message), Next::Message);
    EXPECT_EQ(m_reader.Read(m_message), Next::Error);
    EXPECT_THAT(m_reader.Error(), StartsWith(Path() + ": packet 2: "));
    EXPECT_THAT(m_reader.Error(), HasSubstr("2147483647"));
}

TEST_F(CaptureReader, AFileCutAtAnyByteGivesTheWholePacketsBeforeTheCut) {
    const std::string whole = CaptureBytes()
                                  .Add(1, 0, Prefix(1, 0, 1) + "abc")
                                  .Add(1, 1, Prefix(2, 0, 4))
                                  .Add(1, 2, Prefix(1, 0, 6) + "defghi")
                                  .Bytes();
    // Where the header and each packet end.
    const std::array<size_t, 4> ends{24, 59, 91, 129};
    ASSERT_EQ(whole.size(), ends.back());
    for (size_t size = 0; size < ends[0]; ++size) {
        EXPECT_THAT(OpenError(Write(whole.substr(0, size))),
                    StartsWith(Path() + ": not a capture: "))
            << size;
    }
    for (size_t size = ends[0]; size <= ends.back(); ++size) {
        Open(whole.substr(0, size));
        std::vector<std::string> messages;
        Next next = Next::Message;
        while ((next = m_reader.Read(m_message)) == Next::Message) {
            messages.push_back(BytesOf(m_message));
        }
        std::vector<std::string> expected;
        if (size >= ends[1]) {
            expected.emplace_back("abc");
        }
        if (size == ends[3]) {
            expected.emplace_back("defghi");
        }
        EXPECT_EQ(messages, expected) << size;
        EXPECT_EQ(m_reader.Lost(), size >= ends[2] ? 4U : 0U) << size;
        const bool whereAPacketEnds =
            size == ends[0] || size == ends[1] || size == ends[2] || size == ends[3];
        EXPECT_EQ(next, whereAPacketEnds ? Next::End : Next::Cut) << size;
        EXPECT_EQ(m_reader.Read(m_message), next) << size;
        if (!whereAPacketEnds) {
            const std::string number = size < ends[1] ? "1" : size < ends[2] ? "2" : "3";
            EXPECT_THAT(m_reader.Error(),
                        StartsWith(Path() + ": packet " + number + ": truncated"));
        }
    }
}

TEST_F(CaptureReader, AnotherFileBeginsAnew) {
    Open(CaptureBytes().Add(1, 0, Prefix(2, 0, 9)).Add(1, 0, "bad").Bytes());
    EXPECT_EQ(m_reader.Read(m_message), Next::Error);
    Open(CaptureBytes().Add(1, 0, Prefix(1, 0, 1) + "m").Bytes());
    EXPECT_EQ(m_reader.Error(), "");
    EXPECT_EQ(m_reader.Lost(), 0U);
    EXPECT_EQ(m_reader.Read(m_message), Next::Message);
    EXPECT_EQ(m_message.packet, 1U);
}

}  // namespace
