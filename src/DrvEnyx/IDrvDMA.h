#pragma once

#include <string>

// What IDrvDMA::Init takes.
struct DrvDmaInitParms_t {
    unsigned int busId;    // board index; the driver uses the low 16 bits
    std::string chanName;  // stream name; holds "CHAN" followed by the decimal channel number
    unsigned int uiReserved0;
    unsigned int uiReserved1;  // the worker puts 64 here; the driver keeps the three unused
    unsigned int uiReserved2;
};

// The handler of one received packet: its first byte, its size in bytes, the caller's context.
// The packet is the driver's and is valid only during the call.
using DrvDmaHandler_t = void (*)(const unsigned char*, unsigned int, void*);

// A poll without a hop through a driver's table: poll(polled, handler, context), the handler not
// null, returns what RecvOnce would. Good as long as the driver and its streams are.
struct DrvDmaPoll_t {
    int (*poll)(void* polled, DrvDmaHandler_t handler, void* context);
    void* polled;
};

// Packets between the board and the host over one channel's pair of streams. One object for each
// channel, used by one thread. Statuses are 0 for success and -1 for failure.
class IDrvDMA {
  public:
    // Closes the streams and logs the channel's counters.
    virtual ~IDrvDMA() = default;

    // param: a DrvDmaInitParms_t. Opens the streams.
    virtual int Init(void* param) = 0;
    // Sends one packet of `size` bytes; waits while the board is busy, for about three seconds.
    virtual int Send(void* packet, unsigned int size) = 0;
    // Polls once and hands at most one packet to `handler` (a DrvDmaHandler_t) with `context`.
    // Returns what the vendor's poll returned: 1 for a delivered packet.
    virtual int RecvOnce(void* handler, void* context) = 0;
    // Polls once with the registered handler; 0 for exactly one packet, else -1 (nothing there
    // too).
    virtual int RecvOnceCb() = 0;
    virtual void RegisterHandler(void* handler, void* context) = 0;
    // RecvOnceCb, through the interface.
    virtual int PollData() = 0;

    // What RecvOnce comes to, for a loop that does nothing but poll. To be asked for anew after
    // each Init. By itself a driver is polled through its RecvOnce.
    virtual DrvDmaPoll_t Poller() {
        return {[](void* polled, DrvDmaHandler_t handler, void* context) {
                    return static_cast<IDrvDMA*>(polled)->RecvOnce(reinterpret_cast<void*>(handler),
                                                                   context);
                },
                this};
    }
};
