// Instructions, for callgrind to count: polls through VelaRecv beside the vendor's poll on the same
// kind of ring with the callback called straight from its handler; idle, and delivering a message
// of each type; and the least that such a poll has to do, written by hand (leastPath.h). Each
// stretch of polls is one dump of callgrind with the stretch's name; without valgrind around it the
// program only checks that every message arrives.
//
// scripts/instructions.sh runs it and makes the table.

#include <valgrind/callgrind.h>

#include <cstring>
#include <string>

#include "benchBoard.h"
#include "benchMain.h"
#include "benchProcess.h"
#include "leastPath.h"
#include "memory/Ring.h"

namespace velabench {

namespace {

constexpr std::uint32_t messageSize = ZCE_BOARD_HEAD_SIZE + sizeof(ZceBoardL1_t);
constexpr int polls = 1000;  // of a stretch; that many messages fit into the ring

CSink g_sink;
// What an application without the library would write for one type: straight to the callback.
// `slot` is a constant: the call goes straight through that slot of the table.
template <std::uint32_t type>
void OnOneType(const unsigned char* data, unsigned int /*size*/, void* context) {
    constexpr void (IVelaZceMdSpi::*slots[])(const unsigned char*) = {
        &IVelaZceMdSpi::OnDmaType17Msg, &IVelaZceMdSpi::OnDmaType18Msg,
        &IVelaZceMdSpi::OnDmaType19Msg, &IVelaZceMdSpi::OnDmaType20Msg};
    (static_cast<IVelaZceMdSpi*>(context)->*slots[type - 17])(data + ZCE_BOARD_HEAD_SIZE);
}

ZceBoard::CRingProducer Producer(const CBenchBoard& board, unsigned int channel) {
    const ZceBoard::RingView ring = ZceBoard::ViewOf(board.Shm().a2c[channel]);
    ZceBoard::CRingProducer producer(ring);
    producer.Begin(ring.control->generation.load());
    return producer;
}

void Fill(ZceBoard::CRingProducer& ring, std::uint32_t type) {
    static std::uint64_t ulSeq = 0;
    for (int i = 0; i < polls; ++i) {
        unsigned char* message = ring.PrepareWrite(messageSize);
        if (message == nullptr) {
            Die("the ring is full");
        }
        std::memset(message, 0, messageSize);
        std::memcpy(message, &type, sizeof(type));
        ++ulSeq;
        std::memcpy(message + ZCE_BOARD_HEAD_SIZE, &ulSeq, sizeof(ulSeq));
        ring.CommitWrite(messageSize);
    }
}

// The loop is the same for both, so that it cancels out: the poll is called through a pointer.
[[gnu::noinline]] int CountPolls(int (*poll)(void*), void* what, const char* name) {
    int delivered = 0;
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    for (int i = 0; i < polls; ++i) {
        delivered += poll(what);
    }
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name);
    return delivered;
}

int PollLibrary(void* what) {
    return static_cast<IVelaZceMdApi*>(what)->VelaRecv();
}

int PollLeast(void* what) {
    return static_cast<IPolled*>(what)->Recv();
}

template <std::uint32_t type>
int PollVendor(void* what) {
    IVelaZceMdSpi* direct = &g_sink;
    return enyx_hw_a2c_stream_poll_once(static_cast<enyx_hw_a2c_stream*>(what), OnOneType<type>,
                                        direct);
}

void Expect(int delivered, int expected) {
    if (delivered != expected) {
        Die("messages are missing");
    }
}

template <std::uint32_t type>
void CountMessages(const CBenchBoard& board, ZceBoard::CRingProducer& libraryRing,
                   ZceBoard::CRingProducer& vendorRing, IPolled& least) {
    const std::string name = std::to_string(type);
    Fill(vendorRing, type);
    Expect(CountPolls(PollVendor<type>, board.VendorStream(), ("vendor-" + name).c_str()), polls);
    Fill(vendorRing, type);
    Expect(CountPolls(PollLeast, &least, ("least-" + name).c_str()), polls);
    Fill(libraryRing, type);
    Expect(CountPolls(PollLibrary, board.Api(), ("library-" + name).c_str()), polls);
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    ReadOptions(argc, argv);
    CBenchBoard board(g_sink);
    ZceBoard::CRingProducer libraryRing = Producer(board, libraryChannel);
    ZceBoard::CRingProducer vendorRing = Producer(board, vendorChannel);
    CLeastPath least(board.VendorStream(), g_sink);
    // The first message installs the signal handlers, and the linker binds nothing late.
    CountMessages<17>(board, libraryRing, vendorRing, least);
    CountMessages<17>(board, libraryRing, vendorRing, least);
    CountMessages<18>(board, libraryRing, vendorRing, least);
    CountMessages<19>(board, libraryRing, vendorRing, least);
    CountMessages<20>(board, libraryRing, vendorRing, least);
    // The ring stays away once after a burst: not a part of an idle poll.
    Expect(PollVendor<17>(board.VendorStream()), 0);
    Expect(PollLibrary(board.Api()), 0);
    Expect(CountPolls(PollVendor<17>, board.VendorStream(), "vendor-idle"), 0);
    Expect(CountPolls(PollLibrary, board.Api(), "library-idle"), 0);
    Expect(CountPolls(PollLeast, &least, "least-idle"), 0);
    Finish();
    return 0;
}
