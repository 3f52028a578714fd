#pragma once

#include <atomic>
#include <string>

#include "DrvEnyx/IDrvDMA.h"

// The vendor's handles; only the drivers themselves see more of its interface.
struct enyx_hw_accelerator;
struct enyx_hw_a2c_stream;
struct enyx_hw_c2a_stream;

// One channel's pair of DMA streams over the vendor's library: accelerator to CPU ("a2c", the
// board's messages) and CPU to accelerator ("c2a", the host's requests). One thread drives an
// object.
class CDrvDMAEnyx : public IDrvDMA {
  public:
    CDrvDMAEnyx() = default;
    CDrvDMAEnyx(const CDrvDMAEnyx&) = delete;
    CDrvDMAEnyx& operator=(const CDrvDMAEnyx&) = delete;
    // Logs the counters and closes the streams if Init succeeded; in every case the discovery
    // forgets all boards, so that the next open finds (and resets) the board's core anew.
    ~CDrvDMAEnyx() override;

    // To be called once. A second call opens a second pair of streams over the same members.
    int Init(void* param) override;
    // Opens both streams called `name` on the board of the bus index; 0 or -1. A stream that was
    // open when a later step failed stays open until the process ends. Deliberate: a failed Init
    // ends the process.
    int InitDma(std::string& name);

    // Busy while it waits: it does not sleep.
    int Send(void* packet, unsigned int size) override;

    // Nothing but the vendor's poll. Final: the Poller does not come by here.
    int RecvOnce(void* handler, void* context) final;
    int RecvOnceCb() override;
    void RegisterHandler(void* handler, void* context) override;
    int PollData() override;
    DrvDmaPoll_t Poller() override;

    // The accelerator of the channel opened last, by any object; null after a release. A record
    // only: nothing depends on it.
    static std::atomic<enyx_hw_accelerator*> m_lpAcc;

  private:
    // Warns, once for each object: pollers loop. Nothing is polled, so no packet is lost. -1.
    [[gnu::cold, gnu::noinline]] int RejectNullHandler();

    bool OpenStreams(enyx_hw_accelerator* accelerator);
    void ReportCounters() const;

    unsigned short m_usBusId = 0;
    std::string m_strDmaName;
    unsigned int m_uiReserved0 = 0;  // of the open record; kept, not used
    unsigned int m_uiReserved1 = 0;
    unsigned int m_uiReserved2 = 0;
    bool m_bInited = false;  // both streams are open
    enyx_hw_c2a_stream* m_pC2aStream = nullptr;
    enyx_hw_a2c_stream* m_pA2cStream = nullptr;
    unsigned int m_uiA2cMtu = 0;  // bytes
    unsigned int m_uiC2aMtu = 0;
    void* m_pHandler = nullptr;
    void* m_pContext = nullptr;
    std::string m_strStreamName;  // as given to InitDma
    int m_iChannel = 0;
    bool m_bNullHandlerWarned = false;
};
