// Instrument-map packets written out to the byte, each with all that it leaves: the map, the count,
// the cache file and every line of the log. The last byte of a packet is the last of a page, and
// the page behind it cannot be read.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "VelaZceBinFile.h"
#include "mapPacket.h"
#include "slowBuild.h"
#include "workerBench.h"

namespace {

using velatest::Bytes_t;
using velatest::FakeClock;
using velatest::FileText;
using velatest::Lines_t;
using velatest::Peer;
using velatest::WorkerBench;
using Insts_t = std::map<std::string, unsigned short>;

// Type 2 and the board's own eight bytes.
const std::string g_head = "02000000 EEEEEEEEEEEEEEEE ";
// First records: length, four bytes of the board's, attribute, index, name.
const std::string g_ap701 = "000E D1D2D3D4 5A 0102 4150373031 ";  // 258, 14 bytes
// Later records: length, attribute, index, name.
const std::string g_cf705 = "000A A5 0003 4346373035 ";  // 3, 10 bytes
const std::string g_sr701 = "000A A5 1000 5352373031 ";  // 4096, 10 bytes

std::string Times(unsigned int count, const std::string& text) {
    std::string all;
    for (unsigned int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

Bytes_t FromHex(const std::string& hex) {
    Bytes_t bytes;
    std::string digits;
    for (const char c : hex) {
        if (c != ' ') {
            digits += c;
        }
        if (digits.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
            digits.clear();
        }
    }
    EXPECT_TRUE(digits.empty()) << hex;
    return bytes;
}

// A copy of bytes right in front of a page that cannot be read.
class AtPageEnd {
  public:
    explicit AtPageEnd(const Bytes_t& bytes) : m_bytes(bytes.size()) {
        m_page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        void* const mapped =
            mmap(nullptr, 2 * m_page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED || bytes.size() > m_page) {
            ADD_FAILURE() << "no two pages for " << bytes.size() << " bytes";
            std::abort();
        }
        m_begin = static_cast<std::uint8_t*>(mapped);
        EXPECT_EQ(mprotect(m_begin + m_page, m_page, PROT_NONE), 0);
        if (!bytes.empty()) {
            std::memcpy(m_begin + m_page - m_bytes, bytes.data(), m_bytes);
        }
    }
    ~AtPageEnd() { munmap(m_begin, 2 * m_page); }
    AtPageEnd(const AtPageEnd&) = delete;
    AtPageEnd& operator=(const AtPageEnd&) = delete;

    const std::uint8_t* Data() const { return m_begin + m_page - m_bytes; }
    unsigned int Size() const { return static_cast<unsigned int>(m_bytes); }

  private:
    std::size_t m_page = 0;
    std::size_t m_bytes;
    std::uint8_t* m_begin = nullptr;
};

std::string Bad(unsigned int record, unsigned int at, const std::string& fault,
                unsigned int length) {
    return "WARN Bad instrument map record " + std::to_string(record) + " at byte " +
           std::to_string(at) + ": " + fault + " (record length " + std::to_string(length) +
           "). It is dropped, and the rest of its packet.";
}
const std::string g_beyond = "beyond the end of the packet";
const std::string g_below = "length below its head's";
const std::string g_long = "name too long";

const std::string g_wroteAp701 = "INFO Write to bin :index:258,inst:AP701,";
const std::string g_wroteCf705 = "INFO Write to bin :index:3,inst:CF705,";
const std::string g_wroteSr701 = "INFO Write to bin :index:4096,inst:SR701,";

struct PacketCase_t {
    const char* name;
    unsigned int size;  // of the packet, to check the hexadecimal text
    std::string hex;
    Insts_t insts;
    unsigned long parsed;
    std::string file;
    Lines_t lines;
    // What the walk by itself returns; not looked at where it was led astray.
    std::optional<unsigned int> walk;
};
void PrintTo(const PacketCase_t& packet, std::ostream* out) {
    *out << packet.name;
}

const Insts_t g_one{{"AP701", 258}};
const Insts_t g_two{{"AP701", 258}, {"CF705", 3}};
const Insts_t g_three{{"AP701", 258}, {"CF705", 3}, {"SR701", 4096}};
const std::string g_oneFile = "258,AP701\n";
const std::string g_twoFile = "258,AP701\n3,CF705\n";
const Lines_t g_oneLines{g_wroteAp701};
const Lines_t g_twoLines{g_wroteAp701, g_wroteCf705};

const std::string g_n63(63, 'N');

// How far the announced area leads. The second record begins at byte 28 of the packet, the third
// at byte 38; a record is taken if it begins before the area's last byte.
const std::vector<PacketCase_t> g_areas = {
    {"AreaExact", 38, g_head + "0018" + g_ap701 + g_cf705, g_two, 2, g_twoFile, g_twoLines, 10},
    {"AreaOneByteShortOfTheSecondRecord", 38, g_head + "0017" + g_ap701 + g_cf705, g_two, 2,
     g_twoFile, g_twoLines, 10},
    {"AreaOfTwoBytesOfTheSecondRecord", 38, g_head + "0010" + g_ap701 + g_cf705, g_two, 2,
     g_twoFile, g_twoLines, 10},
    {"AreaOfOneByteOfTheSecondRecord", 38, g_head + "000F" + g_ap701 + g_cf705, g_one, 1, g_oneFile,
     g_oneLines, 14},
    {"AreaEndsWithTheFirstRecord", 38, g_head + "000E" + g_ap701 + g_cf705, g_one, 1, g_oneFile,
     g_oneLines, 14},
    {"AreaOfTwo", 38, g_head + "0002" + g_ap701 + g_cf705, g_one, 1, g_oneFile, g_oneLines, 14},
    {"AreaOfOne", 38, g_head + "0001" + g_ap701 + g_cf705, {}, 0, "", {}, 1},
    {"AreaOfZero", 38, g_head + "0000" + g_ap701 + g_cf705, {}, 0, "", {}, 0},
    {"RecordBeyondTheAreaEndsTheWalk", 48, g_head + "0010" + g_ap701 + g_cf705 + g_sr701, g_two, 2,
     g_twoFile, g_twoLines, 10},
    {"AreaOfTwoBytesOfTheThirdRecord",
     48,
     g_head + "001A" + g_ap701 + g_cf705 + g_sr701,
     g_three,
     3,
     "258,AP701\n3,CF705\n4096,SR701\n",
     {g_wroteAp701, g_wroteCf705, g_wroteSr701},
     10},
    {"AreaOfOneByteOfTheThirdRecord", 48, g_head + "0019" + g_ap701 + g_cf705 + g_sr701, g_two, 2,
     g_twoFile, g_twoLines, 10},
    {"NameBeyondTheArea",
     38,
     g_head + "0003 0018 D1D2D3D4 5A 004D 5350442D4150373031264150373032",
     {{"SPD-AP701&AP702", 77}},
     1,
     "77,SPD-AP701&AP702\n",
     {"INFO Write to bin :index:77,inst:SPD-AP701&AP702,"},
     24},
    {"SameNameBeyondTheArea",
     38,
     g_head + "0010" + g_ap701 + "000A A5 0303 4150373031",
     {{"AP701", 771}},
     2,
     g_oneFile,
     g_oneLines,
     10},
    {"AttributesOfZero", 38,
     g_head + "0018 000E D1D2D3D4 00 0102 4150373031 000A 00 0003 4346373035", g_two, 2, g_twoFile,
     g_twoLines, 10},
    {"AttributesOfFF", 38, g_head + "0018 000E D1D2D3D4 FF 0102 4150373031 000A FF 0003 4346373035",
     g_two, 2, g_twoFile, g_twoLines, 10},
};

// Where what was received ends too soon.
const std::vector<PacketCase_t> g_ends = {
    {"RecordOneByteBeyondThePacket",
     37,
     g_head + "0010" + g_ap701 + "000A A5 0003 43463730",
     g_one,
     1,
     g_oneFile,
     {g_wroteAp701, Bad(1, 28, g_beyond, 10)},
     {}},
    {"OneByteOfTheRecordIsThere",
     29,
     g_head + "0010" + g_ap701 + "00",
     g_one,
     1,
     g_oneFile,
     {g_wroteAp701, Bad(1, 28, g_beyond, 0)},
     {}},
    {"NothingOfTheRecordIsThere",
     28,
     g_head + "0010" + g_ap701,
     g_one,
     1,
     g_oneFile,
     {g_wroteAp701, Bad(1, 28, g_beyond, 0)},
     {}},
    {"Announced65535",
     38,
     g_head + "FFFF" + g_ap701 + g_cf705,
     g_two,
     2,
     g_twoFile,
     {g_wroteAp701, g_wroteCf705, Bad(2, 38, g_beyond, 0)},
     {}},
    {"AnnouncedOneByteMore", 38, g_head + "0019" + g_ap701 + g_cf705, g_two, 2, g_twoFile,
     g_twoLines, 10},
    {"AnnouncedTwoBytesMore",
     38,
     g_head + "001A" + g_ap701 + g_cf705,
     g_two,
     2,
     g_twoFile,
     {g_wroteAp701, g_wroteCf705, Bad(2, 38, g_beyond, 0)},
     {}},
    {"FourteenBytes", 14, g_head + "0018", {}, 0, "", {"WARN Unexpect dma size, size 14"}, {}},
    {"FifteenBytesAnnouncingOne", 15, g_head + "0001 00", {}, 0, "", {}, 1},
    {"FifteenBytesAnnouncingTwo", 15, g_head + "0002 00", {}, 0, "", {Bad(0, 14, g_beyond, 0)}, {}},
};

// Lengths of records and names.
const std::vector<PacketCase_t> g_lengths = {
    {"LaterRecordOfZero",
     38,
     g_head + "0018" + g_ap701 + "0000 A5 0003 4346373035",
     g_one,
     1,
     g_oneFile,
     {g_wroteAp701, Bad(1, 28, g_below, 0)},
     {}},
    {"LaterRecordOfFour",
     38,
     g_head + "0018" + g_ap701 + "0004 A5 0003 4346373035",
     g_one,
     1,
     g_oneFile,
     {g_wroteAp701, Bad(1, 28, g_below, 4)},
     {}},
    {"LaterRecordOfFive",
     33,
     g_head + "0013" + g_ap701 + "0005 A5 0009",
     {{"", 9}, {"AP701", 258}},
     2,
     "258,AP701\n9,\n",
     {g_wroteAp701, "INFO Write to bin :index:9,inst:,"},
     5},
    {"FirstRecordOfEight",
     38,
     g_head + "0018 0008 D1D2D3D4 5A 0102 4150373031" + g_cf705,
     {},
     0,
     "",
     {Bad(0, 14, g_below, 8)},
     {}},
    {"FirstRecordOfNine",
     23,
     g_head + "0009 0009 D1D2D3D4 5A FFFF",
     {{"", 65535}},
     1,
     "65535,\n",
     {"INFO Write to bin :index:65535,inst:,"},
     9},
    {"NameOf63",
     86,
     g_head + "0048 0048 D1D2D3D4 5A 0001" + Times(63, "4E"),
     {{g_n63, 1}},
     1,
     "1," + g_n63 + "\n",
     {"INFO Write to bin :index:1,inst:" + g_n63 + ","},
     72},
    {"NameOf64",
     97,
     g_head + "0053 0049 D1D2D3D4 5A 0001" + Times(64, "4E") + g_cf705,
     {},
     0,
     "",
     {Bad(0, 14, g_long, 73)},
     {}},
    {"FieldOf64EndingInZero",
     87,
     g_head + "0049 0049 D1D2D3D4 5A 0001" + Times(63, "4E") + "00",
     {},
     0,
     "",
     {Bad(0, 14, g_long, 73)},
     {}},
    {"FieldOf70WithAShortName",
     93,
     g_head + "004F 004F D1D2D3D4 5A 0006 4150373031" + Times(65, "00"),
     {},
     0,
     "",
     {Bad(0, 14, g_long, 79)},
     {}},
};

// A master that learns at 08:40, the auction going on, its cache file open and empty.
class MapSentence : public WorkerBench {
  protected:
    void SetUp() override {
        drv->SetReg(0x106, 20261116);
        FakeClock::Set(20261116, 84000);
        MakeMaster();
        drv->SetReg(0x104, 84000);
        drv->SetReg(0x105, 84000);
        Peer::BinFile(*chan)->Normal_FileInit();
        log.Clear();
    }
    void Receive(const Bytes_t& packet) {
        const AtPageEnd exact(packet);
        CZceDmaChanImpl::DmaEntrance(exact.Data(), exact.Size(), chan);
    }
    Insts_t& Insts() { return Peer::Insts(*chan); }
};

class MapSentences : public MapSentence, public testing::WithParamInterface<PacketCase_t> {};

TEST_P(MapSentences, PacketLeavesItsInstrumentsItsFileAndItsLines) {
    const Bytes_t packet = FromHex(GetParam().hex);
    ASSERT_EQ(packet.size(), GetParam().size);
    Receive(packet);
    EXPECT_EQ(Insts(), GetParam().insts);
    EXPECT_EQ(Peer::ParsedCnt(*chan), GetParam().parsed);
    EXPECT_EQ(FileText("bin"), GetParam().file);
    EXPECT_EQ(log.Lines(), GetParam().lines);
    if (GetParam().walk.has_value()) {
        const AtPageEnd exact(packet);
        EXPECT_EQ(chan->LoadtoMapFromMac(exact.Data(), exact.Size()), *GetParam().walk);
    }
}

const auto g_nameOfCase = [](const testing::TestParamInfo<PacketCase_t>& info) {
    return std::string(info.param.name);
};
INSTANTIATE_TEST_SUITE_P(Areas, MapSentences, testing::ValuesIn(g_areas), g_nameOfCase);
INSTANTIATE_TEST_SUITE_P(Ends, MapSentences, testing::ValuesIn(g_ends), g_nameOfCase);
INSTANTIATE_TEST_SUITE_P(Lengths, MapSentences, testing::ValuesIn(g_lengths), g_nameOfCase);

TEST_F(MapSentence, APacketCutAtAnyByteHasTheLineOfItsLengthAndNoOther) {
    const Bytes_t whole = FromHex(g_head + "0010" + g_ap701 + g_cf705);
    ASSERT_EQ(whole.size(), 38U);
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        SCOPED_TRACE(size);
        log.Clear();
        Insts().clear();
        Receive(Bytes_t(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        const Lines_t warnings = log.LinesOf("WARN");
        EXPECT_EQ(Insts(), size < 28 ? Insts_t{} : size < 38 ? g_one : g_two);
        if (size == 38) {
            EXPECT_EQ(warnings, Lines_t{});
            continue;
        }
        ASSERT_EQ(warnings.size(), 1U);
        if (size < 4) {
            EXPECT_EQ(warnings[0], "Dma message of " + std::to_string(size) +
                                       " bytes is too short for its kind. It is dropped.");
        } else if (size < 15) {
            EXPECT_EQ(warnings[0], "Unexpect dma size, size " + std::to_string(size));
        } else {
            const unsigned int at = size < 28 ? 14 : 28;
            const unsigned int length = size < at + 2 ? 0 : size < 28 ? 14 : 10;
            EXPECT_EQ("WARN " + warnings[0], Bad(size < 28 ? 0 : 1, at, g_beyond, length));
        }
    }
}

TEST_F(MapSentence, PacketsOfGarbageStayWithinThemselves) {
    std::mt19937 random(20261116);
    for (int run = 0; run < (velatest::slowBuild ? 200 : 1000); ++run) {
        Bytes_t packet(15 + random() % 2034);
        for (std::uint8_t& byte : packet) {
            // Small numbers in every other packet, so that some lengths are sound.
            byte = static_cast<std::uint8_t>(random() % (run % 2 == 0 ? 16U : 256U));
        }
        packet[0] = 2;
        packet[1] = packet[2] = packet[3] = 0;
        log.Clear();
        const unsigned long before = Peer::ParsedCnt(*chan);
        Receive(packet);
        ASSERT_LE(log.LinesOf("WARN").size(), 1U) << run;
        ASSERT_LE(Peer::ParsedCnt(*chan) - before, (packet.size() - 14) / 5 + 1) << run;
    }
    EXPECT_GT(Peer::ParsedCnt(*chan), 0UL);
}

}  // namespace
