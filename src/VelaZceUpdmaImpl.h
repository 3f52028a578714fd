#pragma once

#include <atomic>
#include <map>
#include <string>

#include "DrvEnyx/IDrvDMA.h"
#include "VelaZceBinFile.h"

class CVelaZceMdApiImpl;
class IDrv;
struct ZceDmaChanTestPeer;

namespace Vela2_U50 {

class CContractServ;
class CZceConfigFile;
class CZceFpgaServ;

// What a channel worker needs to open its stream.
struct ZceDmaInitParms_t {
    unsigned int busId;    // PCI bus id of the board, from the configuration
    unsigned int coreId;   // the board's core, always 474
    std::string chanName;  // name of the DMA stream
};

}  // namespace Vela2_U50

// The worker behind one started API object: brings the board up, opens the DMA stream and turns
// each message into a callback of the application or an entry of the instrument map. The master
// (channel 0) alone does the instrument work; the others only open their stream.
//
// Init, Work and the polls run on one thread at a time (normally the same one); nothing here locks.
// What the static members hold is the process's, not the object's.
class CZceDmaChanImpl final : public CZceSettleTime {
  public:
    // None of the three is owned, but the worker of channel 0 releases `drv` when it is destroyed.
    CZceDmaChanImpl(IDrv* drv, CVelaZceMdApiImpl* api, Vela2_U50::CZceConfigFile* cfg);
    // Closes the stream; on channel 0 releases the register driver too.
    virtual ~CZceDmaChanImpl();

    CZceDmaChanImpl(const CZceDmaChanImpl&) = delete;
    CZceDmaChanImpl& operator=(const CZceDmaChanImpl&) = delete;

    // Start-up in two steps, in this order. 0 or -1, the reason logged. Init brings the board into
    // a known state; Work sets the instruments going (in trading time it may wait 20 minutes) and
    // opens the stream.
    int Init(Vela2_U50::ZceDmaInitParms_t* params);
    int Work(Vela2_U50::ZceDmaInitParms_t* params);

    // One receive step, after Work: hands what is waiting to DmaEntrance.
    // Returns 1 if a callback was made since the last call, else 0.
    unsigned int PollOnce() {
        m_stPoll.poll(m_stPoll.polled, &CZceDmaChanImpl::DmaEntrance, this);
        const unsigned int bGotData = m_bGotData;
        m_bGotData = 0;
        return bGotData;
    }

    // Receives until *pbRun is false. `cb` and `user` are kept for reference; messages go to
    // DmaEntrance all the same. Returns 0, or -1 for a null cb or pbRun or before Work.
    int KeepRecv(DrvDmaHandler_t cb, bool* pbRun, void* user);

    // Opens the DMA stream. 0 or -1.
    int InitDma(Vela2_U50::ZceDmaInitParms_t* params);
    // Resets the board and clears its tables if its date, its clock and its counters say that it
    // cannot go on with what it holds. Always 0.
    int ChkAndRst();
    // Whether the working directory takes the cache file; asked outside trading time only. 0 or -1.
    int ChkBinFileAuthority();
    // Whether the call auction before the session is over. The first call of the process is never
    // true: it only remembers the board's clock.
    bool IsCallTimeExpired();

    // The handler of every received message; ctx is the worker.
    static void DmaEntrance(const unsigned char* msg, unsigned int len, void* ctx);
    void HandleContMapPkt(const unsigned char* msg, unsigned int len, void* ctx);
    void HandleUpSubsResult(const unsigned char* msg, unsigned int len, void* ctx);

    // Enters the records of one instrument-map packet of `len` bytes (15 at least). Returns the
    // length of the last record, or that of the record area if there was none. A record that would
    // lead beyond the received bytes or the name buffer, or not onwards, ends the walk with one
    // WARN line; those before it count.
    unsigned int LoadtoMapFromMac(const unsigned char* msg, unsigned int len);
    // Enters one record, which the walk has found sound; recLen becomes its length, head included.
    void LoadtoMapFromEachMsg(const void* rec, unsigned int recNo, unsigned int& recLen);
    void LoadtomapFrmParsedMsg(const std::string& name, unsigned char attr, unsigned short index,
                               unsigned int recNo);

  private:
    friend struct ZceDmaChanTestPeer;

    void ResetAndClear();
    void SubscribeAll();
    void Deliver(unsigned int type, const unsigned char* msg);
    [[gnu::cold, gnu::noinline]] static void HandleOtherMsg(const unsigned char* msg,
                                                            unsigned int len, void* ctx);
    [[gnu::cold, gnu::noinline]] void DeliverWithSignals(unsigned int type,
                                                         const unsigned char* msg);

    unsigned int m_bGotData = 0;                      // a callback was made since the last poll
    unsigned int m_uiDirectTypes = 0;                 // how many types from 17 on DmaEntrance hands
                                                      // out: 4 once the signal handlers are there
    unsigned long m_ulParsedCnt = 0;                  // instrument records of all map packets
    DrvDmaHandler_t m_pfnUserCb = nullptr;            // KeepRecv's, kept only
    void* m_pUserData = nullptr;                      // KeepRecv's, kept only
    IDrvDMA* m_pDma = nullptr;                        // owned
    std::map<std::string, unsigned short> m_mapInst;  // instrument name to the board's index
    Vela2_U50::CZceFpgaServ* m_pFpgaServ = nullptr;   // these three: the master's alone; they are
    Vela2_U50::CContractServ* m_pContractServ = nullptr;  // left to the process when the worker
    CTernBinFile* m_pBinFile = nullptr;                   // goes
    Vela2_U50::CZceConfigFile* m_pCfg;                    // not owned
    IDrv* m_pDrv;                                         // not owned
    CVelaZceMdApiImpl* m_pApi;                            // the owner
    unsigned int m_uiChannel;                             // 255 until the master's Init has read it
    DrvDmaPoll_t m_stPoll{};                              // m_pDma's, once the stream is open

    // The signal handlers are installed. Two channels' first messages may come at the same moment.
    static std::atomic<unsigned char> m_bSignalRegister;
    static_assert(sizeof(std::atomic<unsigned char>) == 1);
    static unsigned char s_bAllSubsOver;      // subscribed: map packets are of no more use
    static unsigned char s_bCallTimeExpired;  // the call auction was found over
    static unsigned char s_bLoadMapEnabled;   // map packets are learnt
    static unsigned char s_bFirstTmRead;      // s_uiFirstTm holds the board's first time
    static unsigned int s_uiFirstTm;          // hhmmss
};
