// Instrument-map packets that are not sound: what is good before the fault stays, one warning.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "mapPacket.h"
#include "workerBench.h"

namespace {

using velatest::Bytes_t;
using velatest::FakeClock;
using velatest::Lines_t;
using velatest::MapPacket;
using velatest::Peer;
using velatest::WorkerBench;
using Insts_t = std::map<std::string, unsigned short>;

class MapGuards : public WorkerBench {
  protected:
    MapGuards() {
        MakeMaster();
        FakeClock::SetTime(84000);
    }

    void Receive(const Bytes_t& packet) {
        // On the heap, at its exact size: a sanitizer sees a read past its end.
        const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[packet.size()]);
        std::copy(packet.begin(), packet.end(), exact.get());
        CZceDmaChanImpl::DmaEntrance(exact.get(), static_cast<unsigned int>(packet.size()), chan);
    }
    Insts_t& Insts() { return Peer::Insts(*chan); }
    static std::string Warning(unsigned int record, std::size_t at, const std::string& fault,
                               unsigned int length) {
        return "WARN Bad instrument map record " + std::to_string(record) + " at byte " +
               std::to_string(at) + ": " + fault + " (record length " + std::to_string(length) +
               "). It is dropped, and the rest of its packet.";
    }

    const Insts_t justTheFirst{{"SR209", 7}};
};

TEST_F(MapGuards, ALengthOfZeroInTheFirstRecordEndsThePacket) {
    Receive(MapPacket().AddOfLength(0, "SR209", 7).Add("AP301", 8).Packet());
    EXPECT_TRUE(Insts().empty());
    EXPECT_EQ(log.Lines(), Lines_t{Warning(0, 14, "length below its head's", 0)});
}

TEST_F(MapGuards, ALengthOfZeroInALaterRecordKeepsThoseBeforeIt) {
    Receive(MapPacket().Add("SR209", 7).AddOfLength(0, "AP301", 8).Add("CF301", 9).Packet());
    EXPECT_EQ(Insts(), justTheFirst);
    EXPECT_EQ(log.Lines(), Lines_t{Warning(1, 28, "length below its head's", 0)});
}

TEST_F(MapGuards, AFirstRecordBelowNineBytesIsDropped) {
    for (unsigned int length = 1; length < 9; ++length) {
        log.Clear();
        Receive(MapPacket().AddOfLength(length, "SR209", 7).Packet());
        EXPECT_TRUE(Insts().empty());
        EXPECT_EQ(log.Lines(), Lines_t{Warning(0, 14, "length below its head's", length)});
    }
}

TEST_F(MapGuards, ALaterRecordBelowFiveBytesIsDropped) {
    for (unsigned int length = 1; length < 5; ++length) {
        log.Clear();
        Insts().clear();
        Receive(MapPacket().Add("SR209", 7).AddOfLength(length, "AP301", 8).Packet());
        EXPECT_EQ(Insts(), justTheFirst);
        EXPECT_EQ(log.Lines(), Lines_t{Warning(1, 28, "length below its head's", length)});
    }
    log.Clear();
    Receive(MapPacket().Add("SR209", 7).Add("", 8).Packet());
    EXPECT_EQ(Insts().size(), 2U);
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(MapGuards, ARecordBeyondThePacketIsDropped) {
    Receive(MapPacket().Add("SR209", 7).AddOfLength(11, "AP301", 8).Packet());
    EXPECT_EQ(Insts(), justTheFirst);
    EXPECT_EQ(log.Lines(), Lines_t{Warning(1, 28, "beyond the end of the packet", 11)});
}

// The second record begins at byte 14 of the area and has 10 bytes: it counts as soon as it begins
// before the last announced byte, wherever it ends in the packet.
TEST_F(MapGuards, ARecordThatBeginsBeforeTheAnnouncedEndIsTakenThoughItReachesBeyondIt) {
    const MapPacket packet = MapPacket().Add("SR209", 7).Add("AP301", 8).Add("CF301", 9);
    for (const unsigned int area : {16U, 17U, 23U, 24U, 25U}) {
        Insts().clear();
        Receive(packet.PacketOfLength(area));
        EXPECT_EQ(Insts(), (Insts_t{{"SR209", 7}, {"AP301", 8}})) << area;
    }
    for (const unsigned int area : {2U, 13U, 14U, 15U}) {
        Insts().clear();
        Receive(packet.PacketOfLength(area));
        EXPECT_EQ(Insts(), justTheFirst) << area;
    }
    Insts().clear();
    Receive(packet.PacketOfLength(26));
    EXPECT_EQ(Insts(), (Insts_t{{"SR209", 7}, {"AP301", 8}, {"CF301", 9}}));
    for (const unsigned int area : {0U, 1U}) {
        Insts().clear();
        Receive(packet.PacketOfLength(area));
        EXPECT_TRUE(Insts().empty()) << area;
    }
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(MapGuards, ARecordThatReachesBeyondAreaAndPacketIsDropped) {
    const Bytes_t whole = MapPacket().Add("SR209", 7).Add("AP301", 8).PacketOfLength(16);
    Receive(Bytes_t(whole.begin(), whole.end() - 1));
    EXPECT_EQ(Insts(), justTheFirst);
    EXPECT_EQ(log.Lines(), Lines_t{Warning(1, 28, "beyond the end of the packet", 10)});
}

TEST_F(MapGuards, APacketCutAtAnyByteKeepsItsWholeRecordsWithOneWarning) {
    const Bytes_t whole = MapPacket().Add("SR209", 7).Add("AP301", 8).Add("CF301", 9).Packet();
    ASSERT_EQ(whole.size(), 48U);
    for (std::size_t size = 15; size < whole.size(); ++size) {
        log.Clear();
        Insts().clear();
        Receive(Bytes_t(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_EQ(Insts().size(), size < 28 ? 0U : size < 38 ? 1U : 2U) << size;
        EXPECT_EQ(log.LinesOf("WARN").size(), 1U) << size;
    }
    log.Clear();
    Receive(whole);
    EXPECT_EQ(Insts().size(), 3U);
    EXPECT_EQ(log.LinesOf("WARN").size(), 0U);
}

TEST_F(MapGuards, AnAreaLongerThanThePacketIsOneWarning) {
    const MapPacket packet = MapPacket().Add("SR209", 7);
    Receive(packet.PacketOfLength(65535));
    EXPECT_EQ(Insts(), justTheFirst);
    EXPECT_EQ(log.Lines(), Lines_t{Warning(1, 28, "beyond the end of the packet", 0)});
    log.Clear();
    // One byte more: no record begins there.
    Receive(packet.PacketOfLength(static_cast<unsigned int>(packet.AreaSize()) + 1));
    EXPECT_EQ(log.Lines(), Lines_t{});
    // Two bytes more, and one of them is there: not a record's length.
    Receive(MapPacket(packet).AddRaw({0}).PacketOfLength(16));
    EXPECT_EQ(Insts(), justTheFirst);
    EXPECT_EQ(log.Lines(), Lines_t{Warning(1, 28, "beyond the end of the packet", 0)});
}

TEST_F(MapGuards, BytesBehindTheAreaAreNotRead) {
    const MapPacket packet = MapPacket().Add("SR209", 7);
    const auto areaSize = static_cast<unsigned int>(packet.AreaSize());
    Receive(MapPacket(packet).AddRaw({0, 0, 0, 0, 0}).PacketOfLength(areaSize));
    EXPECT_EQ(Insts(), justTheFirst);
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(MapGuards, ASingleByteAtTheEndOfTheAreaBeginsNoRecord) {
    Receive(MapPacket().Add("SR209", 7).AddRaw({0xFF}).Packet());
    EXPECT_EQ(Insts(), justTheFirst);
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(MapGuards, ANameOf64BytesAndMoreIsDropped) {
    Receive(MapPacket().Add("SR209", 7).Add(std::string(64, 'A'), 8).Add("CF301", 9).Packet());
    EXPECT_EQ(Insts(), justTheFirst);
    EXPECT_EQ(log.Lines(), Lines_t{Warning(1, 28, "name too long", 69)});
    log.Clear();
    Insts().clear();
    Receive(MapPacket().Add(std::string(64, 'A'), 8).Packet());
    EXPECT_EQ(log.Lines(), Lines_t{Warning(0, 14, "name too long", 73)});
    log.Clear();
    Receive(MapPacket().Add(std::string(60000, 'A'), 8).Packet());
    EXPECT_EQ(log.Lines(), Lines_t{Warning(0, 14, "name too long", 60009)});
    EXPECT_TRUE(Insts().empty());
}

TEST_F(MapGuards, GarbageOfAnyLengthIsOneWarningAtMost) {
    std::uint32_t seed = 1;
    for (int run = 0; run < 300; ++run) {
        Bytes_t packet = {2, 0, 0, 0};
        seed = seed * 1664525U + 1013904223U;
        const std::size_t size = 15 + (seed >> 16) % 200;
        while (packet.size() < size) {
            seed = seed * 1664525U + 1013904223U;
            // Small numbers too, so that some lengths are sound.
            packet.push_back(static_cast<std::uint8_t>((seed >> 24) % (run % 2 == 0 ? 16U : 256U)));
        }
        log.Clear();
        Receive(packet);
        ASSERT_LE(log.LinesOf("WARN").size(), 1U) << run;
    }
}

}  // namespace
