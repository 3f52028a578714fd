// Instrument-map packets to a learning master: a row of lengths (16 bits) and record areas; the
// head of the packet, and the length of the area in it (16 bits, big-endian), are part of them.
// What was learnt is compared with the cache file, and the cache file is read back.

#include <algorithm>
#include <map>
#include <string>

#include "fakeClock.h"
#include "fuzzBoard.h"
#include "fuzzHost.h"
#include "fuzzInput.h"

namespace {

using namespace velafuzz;

constexpr size_t AREA = 14;  // where the records begin
constexpr int MOST_PACKETS = 8;
constexpr size_t LEAST_PACKET = 15;
constexpr size_t LEAST_RECORD = 5;  // the first one's head is longer
constexpr size_t NAME_SIZE = 63;
constexpr size_t LONGEST_LINE = 127;
constexpr unsigned char LEARNING = 0;  // 08:30:00

using Insts_t = std::map<std::string, unsigned short>;

void LearnPacket(CLearningMaster& master, const std::string& body) {
    std::string packet("\2\0\0\0\0\0\0\0\0\0\0\0", 12);
    packet += body;
    const CExactBlock block(packet);
    const size_t before = Peer::Insts(master.m_chan).size();
    CZceDmaChanImpl::DmaEntrance(block.Data(), block.Size(), &master.m_chan);
    const size_t learnt = Peer::Insts(master.m_chan).size() - before;
    FUZZ_CHECK(packet.size() >= LEAST_PACKET || learnt == 0);
    FUZZ_CHECK(learnt <= (packet.size() - std::min(packet.size(), AREA)) / LEAST_RECORD + 1);
}

void CheckNames(const Insts_t& insts) {
    for (const auto& [name, index] : insts) {
        FUZZ_CHECK(name.size() <= NAME_SIZE);
        FUZZ_CHECK(name.find('\0') == std::string::npos);
    }
}

void CheckLines(const std::string& file) {
    for (size_t begin = 0; begin < file.size();) {
        const size_t end = std::min(file.find('\n', begin), file.size());
        FUZZ_CHECK(end - begin <= LONGEST_LINE);
        begin = end + 1;
    }
}

// Whether the format of the cache file can hold it.
bool IsWritable(const std::string& name) {
    return name.find_first_of(",\n") == std::string::npos;
}

// What the file says of a name is the index it was first learnt with.
void CheckFile(CLearningMaster& master) {
    const Insts_t& insts = Peer::Insts(master.m_chan);
    master.m_binFile.WriteEndToBin();
    CheckLines(ReadFile("bin"));
    if (!std::all_of(insts.begin(), insts.end(),
                     [](const auto& inst) { return IsWritable(inst.first); })) {
        return;
    }
    Insts_t loaded;
    CTernBinFile reader(loaded, 0);
    CZceSettleTime::g_uiContractSettleTm = 85510;
    FUZZ_CHECK(reader.Intrade_CheckAndGetAllInstFromBin() == 0);
    FUZZ_CHECK(loaded.size() == insts.size());
    FUZZ_CHECK(std::equal(loaded.begin(), loaded.end(), insts.begin(),
                          [](const auto& a, const auto& b) { return a.first == b.first; }));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareLibrary();
    CFuzzInput input(data, size);
    TimeOf(LEARNING);
    CLearningMaster master;
    CZceSettleTime::g_uiContractSettleTm = 85510;
    for (int k = 0; k < MOST_PACKETS && input.Left() != 0; ++k) {
        LearnPacket(master, input.TakeText(input.Take<uint16_t>()));
    }
    CheckNames(Peer::Insts(master.m_chan));
    CheckFile(master);
    return 0;
}
