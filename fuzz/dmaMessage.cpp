// DMA messages of any type and length to the entrance of a master's worker. An input is a row of
// messages: a byte that chooses the time of day (its high bit set: as before), the length (16
// bits), the message.

#include "fakeClock.h"
#include "fuzzBoard.h"
#include "fuzzHost.h"
#include "fuzzInput.h"

namespace {

using namespace velafuzz;

constexpr unsigned char SAME_TIME = 0x80;
constexpr unsigned int LARGEST = 2048;
constexpr int MOST_MESSAGES = 8;

// What makes a message one of market data: 12 bytes at least, and a type from 17 to 20.
unsigned int SlotType(const std::string& message) {
    CFuzzInput head(reinterpret_cast<const uint8_t*>(message.data()), message.size());
    const auto type = head.Take<uint32_t>();
    return message.size() >= 12 && type >= 17 && type <= 20 ? type : 0;
}

void Receive(CLearningMaster& master, const std::string& message) {
    const CExactBlock block(message);
    const unsigned int type = SlotType(message);
    master.m_spi.m_calls = 0;
    const size_t before = Peer::Insts(master.m_chan).size();
    CZceDmaChanImpl::DmaEntrance(block.Data(), block.Size(), &master.m_chan);
    FUZZ_CHECK(master.m_spi.m_calls == (type == 0 ? 0U : 1U));
    FUZZ_CHECK(type == 0 || master.m_spi.m_type == type);
    FUZZ_CHECK(type == 0 || master.m_spi.m_body == block.Data() + 12);
    FUZZ_CHECK(type == 0 || Peer::GotData(master.m_chan) == 1);
    FUZZ_CHECK(type == 0 || Peer::Insts(master.m_chan).size() == before);
    master.m_chan.HandleUpSubsResult(block.Data(), block.Size(), &master.m_chan);
    FUZZ_CHECK(master.m_spi.m_calls == (type == 0 ? 0U : 2U));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareLibrary();
    CFuzzInput input(data, size);
    TimeOf(0);
    CLearningMaster master;
    for (int k = 0; k < MOST_MESSAGES && input.Left() != 0; ++k) {
        const auto time = input.Take<unsigned char>();
        if ((time & SAME_TIME) == 0) {
            TimeOf(time);
        }
        Receive(master, input.TakeText(input.Take<uint16_t>() % (LARGEST + 1)));
    }
    return 0;
}
