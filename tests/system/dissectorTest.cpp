#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "captureBytes.h"
#include "process.h"
#include "tempDir.h"

using testing::ElementsAre;

namespace velatest {

namespace {

// The head of a message on channel 3.
std::string Head(unsigned int type, size_t bodyLength, unsigned int channel = 3) {
    return Little(type, 4) + Little(channel, 2) + Little(bodyLength, 2) + Little(0, 4);
}

std::string Padded(const std::string& text, size_t size) {
    return text + std::string(size - text.size(), '\0');
}

std::string Price(double units) {
    return Little(static_cast<uint64_t>(static_cast<int64_t>(units * 10000)), 8);
}

std::string Quote(const std::string& name, unsigned int table, unsigned int levels,
                  unsigned int phase, double last) {
    return Little(77, 8) + Little(20261120, 4) + Little(85504, 4) + Little(32104000000009, 8) +
           Padded(name, 16) + Little(5, 2) + Little(table, 1) + Little(levels, 1) +
           Little(phase, 1) + std::string(3, '\0') + Price(last) + Price(5600) + Price(5620.25) +
           Price(5599.5) + Price(5601) + Little(1234, 8) + Little(99999, 8) + Little(12, 4) +
           Little(0, 4);
}

std::string Level(double bid, unsigned int bidVolume, double ask, unsigned int askVolume) {
    return Price(bid) + Price(ask) + Little(bidVolume, 4) + Little(askVolume, 4);
}

std::string Levels5() {
    return Level(-20, 257, -10.5, 67) + Level(-25, 1, -5, 2) + Level(-30, 3, 0, 4) +
           Level(-35, 5, 5, 6) + Level(0, 0, 10, 8);
}

// A record of an instrument map; the first one's head is 4 bytes longer.
std::string Record(bool first, const std::string& name, unsigned int attribute,
                   unsigned int index) {
    return Big((first ? 9 : 5) + name.size(), 2) + std::string(first ? 4 : 0, '\x11') +
           Little(attribute, 1) + Big(index, 2) + name;
}

std::string Map(const std::string& records) {
    return Head(2, 2 + records.size()) + Big(records.size(), 2) + records;
}

class Dissector : public testing::Test {
  protected:
    // Adds one message, polled on channel 3.
    void Add(const std::string& message) {
        m_capture.Add(1795262695, 845098017, Prefix(1, 3, ++m_number) + message);
    }
    // What tshark prints about the capture, a line for each packet.
    std::vector<std::string> Tshark(const std::string& arguments) {
        m_capture.Write(m_directory / "day.pcap");
        const std::string command =
            "HOME=" + m_directory.path() + " tshark -X lua_script:" ZCE_DISSECTOR " -r " +
            (m_directory / "day.pcap") + " " + arguments + " 2>" + (m_directory / "errors");
        std::FILE* output = popen(command.c_str(), "re");
        EXPECT_NE(output, nullptr);
        std::vector<std::string> lines;
        std::array<char, 4096> line{};
        while (output != nullptr && fgets(line.data(), line.size(), output) != nullptr) {
            lines.emplace_back(line.data());
            lines.back().pop_back();
        }
        EXPECT_EQ(pclose(output), 0) << ReadFile(m_directory / "errors");
        return lines;
    }
    std::vector<std::string> Info() { return Tshark("-T fields -e _ws.col.Info"); }

    TempDir m_directory;
    CaptureBytes m_capture;
    uint64_t m_number = 0;
};

TEST_F(Dissector, TheInfoColumnTellsEachMessageAtAGlance) {
    Add(Map(Record(true, "SR301", 0, 0) + Record(false, "SPD-SR301&SR305", 2, 4095)));
    Add(Head(17, 136) + Quote("SR301", 0, 1, 2, 5612.5) + Level(5612, 3, 5613, 7));
    Add(Head(18, 136) + Quote("SPD-SR301&SR3059", 1, 1, 2, -15) + Level(-20, 257, -10.5, 67));
    Add(Head(19, 232) + Quote("CF301", 0, 5, 2, 13250) + Levels5());
    Add(Head(20, 232) + Quote("IPS-CF301&SR301", 1, 5, 2, 0.0001) + Levels5());
    Add(Head(99, 3) + "abc");
    m_capture.Add(1795262695, 845098018, Prefix(2, 15, 12, 65535, 4));
    EXPECT_THAT(
        Tshark("-T fields -e _ws.col.Source -e _ws.col.Destination -e _ws.col.Protocol "
               "-e _ws.col.Info -E separator='|'"),
        ElementsAre(
            "board 0|channel 3|ZCE|#1 instrument map, 2 instruments: SR301 to SPD-SR301&SR305",
            "board 0|channel 3|ZCE|#2 L1 single-leg SR301 last 5612.5 bid 5612 x 3 ask 5613 x 7 "
            "volume 1234",
            "board 0|channel 3|ZCE|#3 L1 combination SPD-SR301&SR3059 last -15 bid -20 x 257 ask "
            "-10.5 x 67 volume 1234",
            "board 0|channel 3|ZCE|#4 L5 single-leg CF301 last 13250 bid -20 x 257 ask -10.5 x 67 "
            "volume 1234",
            "board 0|channel 3|ZCE|#5 L5 combination IPS-CF301&SR301 last 0.0001 bid -20 x 257 ask "
            "-10.5 x 67 volume 1234",
            "board 0|channel 3|ZCE|#6 type 99, body of 3 bytes [no such type]",
            "board ?|channel 15|ZCE|12 messages lost"));
}

TEST_F(Dissector, EveryFieldOfAMarketDataMessageIsThereInUnitsAndNames) {
    m_capture.Add(1795262695, 845098017,
                  Prefix(1, 3, 70000000000, 2, 4) + Head(20, 232) +
                      Quote("IPS-CF301&SR301", 1, 5, 3, -5612.5) + Levels5());
    EXPECT_THAT(
        Tshark("-T fields -E separator='|' -E aggregator=' ' -e frame.time_epoch -e zce.version "
               "-e zce.kind -e zce.bus -e zce.channel -e zce.opening -e zce.number -e zce.type "
               "-e zce.head.channel -e zce.head.length -e zce.seq -e zce.date -e zce.time "
               "-e zce.time_ns -e zce.name -e zce.index -e zce.levels -e zce.last -e zce.open "
               "-e zce.high -e zce.low -e zce.presettle -e zce.volume -e zce.openinterest "
               "-e zce.lastvolume -e zce.bid -e zce.ask -e zce.bidvolume -e zce.askvolume"),
        ElementsAre("1795262695.845098017|1|1|2|3|4|70000000000|20|3|232|77|2026-11-20|08:55:04|"
                    "08:55:04.000000009|IPS-CF301&SR301|5|5|-5612.5|5600|5620.25|5599.5|5601|1234|"
                    "99999|12|-20 -25 -30 -35 0|-10.5 -5 0 5 10|257 1 3 5 0|67 2 4 6 8"));
    const std::vector<std::string> tree = Tshark("-V");
    for (const char* line :
         {"        Kind: message (1)", "        Type: L5 combination (20)",
          "        Table: combination (1)", "        Phase: break (3)",
          "        Last price: -5612.5", "        Level 5: bid 0 x 0 ask 10 x 8"}) {
        EXPECT_THAT(tree, testing::Contains(line));
    }
    EXPECT_THAT(Tshark("-Y 'zce.malformed or zce.odd'"), ElementsAre());
}

TEST_F(Dissector, PhasesAndTablesAreNamed) {
    const std::array<const char*, 4> phases{"closed (0)", "auction (1)", "trading (2)",
                                            "break (3)"};
    for (unsigned int phase = 0; phase < 4; ++phase) {
        Add(Head(17, 136) + Quote("SR301", 0, 1, phase, 1) + Level(1, 1, 1, 1));
    }
    const std::vector<std::string> tree = Tshark("-V");
    for (const char* phase : phases) {
        EXPECT_THAT(tree, testing::Contains(std::string("        Phase: ") + phase));
    }
    EXPECT_THAT(tree, testing::Contains("        Table: single-leg (0)"));
}

TEST_F(Dissector, EveryRecordOfAMapPacketIsThere) {
    Add(Map(Record(true, "SR301", 0, 1) + Record(false, "SR301C5000", 1, 513) +
            Record(false, "SPD-SR301&SR305", 2, 0)));
    Add(Map(Record(true, "A", 7, 4095)));
    Add(Map("") + "x");  // 15 bytes with no records
    EXPECT_THAT(Tshark("-T fields -E separator='|' -E aggregator=' ' -e zce.map.length "
                       "-e zce.map.record.length -e zce.map.record.unread -e zce.map.attribute "
                       "-e zce.map.index -e zce.map.name"),
                ElementsAre("49|14 15 20|11111111|0 1 2|1 513 0|SR301 SR301C5000 SPD-SR301&SR305",
                            "10|10|11111111|7|4095|A", "0|||||"));
    EXPECT_THAT(Tshark("-V"), testing::Contains("        Record 1: SR301C5000, index 513"));
}

TEST_F(Dissector, WhatDoesNotFitIsToldInPlainWords) {
    const std::string good = Quote("SR301", 0, 1, 2, 1) + Level(1, 1, 1, 1);
    m_capture.Add(1, 0, Prefix(1, 3, 1).substr(0, 15));
    m_capture.Add(1, 0, Prefix(1, 3, 1, 0, 1, 2) + "x");
    m_capture.Add(1, 0, Prefix(7, 3, 1) + "x");
    m_capture.Add(1, 0, Prefix(1, 16, 1) + Head(99, 0, 16));
    m_capture.Add(1, 0, Prefix(1, 3, 1));
    m_capture.Add(1, 0, Prefix(2, 3, 1) + "x");
    m_capture.Add(1, 0, Prefix(1, 3, 1) + "elevenbytes");
    for (const std::string& message :
         {Head(17, 135) + good.substr(1), Head(17, 136, 4) + good, Head(17, 1) + good,
          Head(17, 137) + good + "x", Head(18, 136) + good,
          Head(17, 136) + Quote("SR301", 0, 5, 9, 1) + Level(1, 1, 1, 1)}) {
        m_capture.Add(1, 0, Prefix(1, 3, 1) + message);
    }
    EXPECT_THAT(
        Info(),
        ElementsAre(" [prefix cut after 15 bytes]", " [version 2]", " [kind 7]",
                    " [channel 16]#1 type 99, body of 0 bytes [no such type]",
                    "#1 [message of 0 bytes]", "1 messages lost [1 bytes behind the note]",
                    "#1 message [message of 11 bytes, too short for its head]",
                    "#1 L1 single-leg [body of 135 bytes, expected 136]",
                    "#1 L1 single-leg [sent to channel 4, polled on 3] SR301 last 1 bid 1 x 1 ask "
                    "1 x 1 volume 1234",
                    "#1 L1 single-leg [body of 1 bytes announced, 136 there] SR301 last 1 bid 1 x "
                    "1 ask 1 x 1 volume 1234",
                    "#1 L1 single-leg SR301 last 1 bid 1 x 1 ask 1 x 1 volume 1234 [1 bytes behind "
                    "the body]",
                    "#1 L1 combination SR301 last 1 bid 1 x 1 ask 1 x 1 volume 1234 [table 0 in a "
                    "message of the other]",
                    "#1 L1 single-leg SR301 last 1 bid 1 x 1 ask 1 x 1 volume 1234 [5 price levels "
                    "announced, 1 there] [phase 9]"));
    EXPECT_EQ(Tshark("-Y zce.malformed").size(), 8U);
    EXPECT_EQ(Tshark("-Y zce.odd").size(), 6U);
    EXPECT_EQ(Tshark("-Y zce.lost.note").size(), 1U);
}

TEST_F(Dissector, BadRecordsOfAMapPacketAreToldInPlainWords) {
    const std::string first = Record(true, "SR301", 0, 1);
    Add(Head(2, 2) + Big(0, 2));
    Add(Map(Big(8, 2) + "123456"));
    Add(Map(first + Big(0, 2) + "123"));
    Add(Map(first + Record(false, "SR305", 0, 2).substr(0, 7)));
    Add(Map(first + Record(false, std::string(64, 'N'), 0, 2)));
    Add(Map(first + Record(false, "SR305", 0, 4096)));
    Add(Head(2, 16) + Big(20, 2) + first);
    Add(Map(first) + "xy");
    Add(Map(first + "x"));
    EXPECT_THAT(
        Info(),
        ElementsAre(
            "#1 instrument map [instrument map of 14 bytes]",
            "#2 instrument map [record 0 has a length of 8, shorter than its head], 0 instruments",
            "#3 instrument map [record 1 has a length of 0, shorter than its head], 1 instruments: "
            "SR301",
            "#4 instrument map [record 1 of 10 bytes ends behind the records, which have 7 more], "
            "1 "
            "instruments: SR301",
            "#5 instrument map [record 1 has a name of 64 bytes], 2 instruments: SR301 to " +
                std::string(64, 'N'),
            "#6 instrument map [record 1 has the index 4096, beyond the table], 2 instruments: "
            "SR301 to SR305",
            "#7 instrument map [record 1 is cut in its length], 1 instruments: SR301 [20 bytes of "
            "records announced, 14 there]",
            "#8 instrument map [body of 16 bytes announced, 18 there], 1 instruments: SR301 [2 "
            "bytes behind the records]",
            "#9 instrument map, 1 instruments: SR301"));
}

TEST_F(Dissector, AnotherBoardsHeadsAndBodiesAreLeftUnread) {
    Add(Little(17, 4) + "8 bytes!" + "a body of its own");
    Add(Little(2, 4) + "8 bytes!" + Big(14, 2) + Record(true, "SR301", 0, 1));
    EXPECT_THAT(Tshark("-o zce.software_board:false -T fields -e _ws.col.Info -e zce.data "
                       "-e zce.head.rest -E separator='|'"),
                ElementsAre("#1 L1 single-leg, body of 17 bytes|"
                            "6120626f6479206f6620697473206f776e|3820627974657321",
                            "#2 instrument map, 1 instruments: SR301||3820627974657321"));
    EXPECT_THAT(Tshark("-o zce.software_board:false -Y 'zce.malformed or zce.odd'"), ElementsAre());
}

// Every packet cut at every byte, and many with bytes changed at random.
TEST_F(Dissector, NothingMakesItFail) {
    const std::vector<std::string> packets{
        Prefix(1, 3, 1) + Map(Record(true, "SR301", 0, 1) + Record(false, "SR305", 0, 2)),
        Prefix(1, 3, 1) + Head(17, 136) + Quote("SR301", 0, 1, 2, 1) + Level(1, 1, 1, 1),
        Prefix(1, 3, 1) + Head(20, 232) + Quote("SR301", 1, 5, 2, 1) + Levels5(), Prefix(2, 3, 1)};
    std::mt19937 random(20261120);
    for (const std::string& packet : packets) {
        for (size_t size = 0; size < packet.size(); ++size) {
            m_capture.Add(1, 0, packet.substr(0, size));
        }
        for (int k = 0; k < 1000; ++k) {
            std::string changed = packet;
            for (unsigned int change = 0; change <= random() % 8; ++change) {
                changed[2 + random() % (changed.size() - 2)] = static_cast<char>(random());
            }
            m_capture.Add(1, 0, changed);
        }
    }
    const std::vector<std::string> lines = Tshark("-T fields -e _ws.lua.error -e zce.version");
    ASSERT_EQ(lines.size(), 4494U);
    for (const std::string& line : lines) {
        ASSERT_TRUE(line == "\t1" || line == "\t") << line;
    }
}

}  // namespace

}  // namespace velatest
