#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "DrvEnyx/IDrvDMA.h"
#include "fakeDrv.h"
#include "mapPacket.h"

// The drivers of a program that has no other: the library's factory makes these. Nothing of the
// vendor's library is linked.
namespace velatest {

// A channel's streams: a queue of packets. Its packets lie in a buffer of its own, as a ring's do.
class QueueDma final : public IDrvDMA {
  public:
    // The name of every stream that was opened, and of every one that was closed, in order.
    static std::vector<std::string> s_opened;
    static std::vector<std::string> s_closed;
    static std::vector<DrvDmaInitParms_t> s_records;
    // What the next polls of whatever stream deliver.
    static std::deque<Bytes_t> s_packets;
    // If set, what the next polls deliver in turns instead, without end and without a copy; every
    // other poll finds nothing.
    static const std::vector<Bytes_t>* s_pRepeated;
    // What every opening answers.
    static int s_initResult;
    // Called in the middle of every opening.
    static std::function<void()> s_onInit;
    // The address of the packet that was handed over last.
    static const unsigned char* s_lastData;

    ~QueueDma() override;
    int Init(void* param) override;
    int Send(void* packet, unsigned int size) override;
    int RecvOnce(void* handler, void* context) override;
    int RecvOnceCb() override;
    void RegisterHandler(void* handler, void* context) override;
    int PollData() override;

  private:
    std::string m_strName;
    Bytes_t m_packet;
    unsigned long m_ulPolls = 0;
    void* m_pHandler = nullptr;
    void* m_pContext = nullptr;
};

// The register driver of the process, null while there is none; `make` makes it.
extern IDrv* g_pProcessReg;
extern std::function<IDrv*()> g_makeReg;

}  // namespace velatest
