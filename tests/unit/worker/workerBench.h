#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DataType/ZceConfigFile.h"
#include "DrvEnyx/drvCore.h"
#include "IVelaZceMdApi.h"
#include "VelaZceMdApiImpl.h"
#include "VelaZceUpdmaImpl.h"
#include "fakeClock.h"
#include "fakeDrv.h"
#include "fakeEnyx.h"
#include "logCapture.h"
#include "tempDir.h"
#include "wholeFile.h"

// What is inside a worker.
struct ZceDmaChanTestPeer {
    static std::map<std::string, unsigned short>& Insts(CZceDmaChanImpl& chan) {
        return chan.m_mapInst;
    }
    static unsigned int& Channel(CZceDmaChanImpl& chan) { return chan.m_uiChannel; }
    static unsigned int& GotData(CZceDmaChanImpl& chan) { return chan.m_bGotData; }
    static unsigned long& ParsedCnt(CZceDmaChanImpl& chan) { return chan.m_ulParsedCnt; }
    static IDrvDMA*& Dma(CZceDmaChanImpl& chan) { return chan.m_pDma; }
    static Vela2_U50::CZceFpgaServ*& FpgaServ(CZceDmaChanImpl& chan) { return chan.m_pFpgaServ; }
    static Vela2_U50::CContractServ*& ContractServ(CZceDmaChanImpl& chan) {
        return chan.m_pContractServ;
    }
    static CTernBinFile*& BinFile(CZceDmaChanImpl& chan) { return chan.m_pBinFile; }
    static std::pair<DrvDmaHandler_t, void*> User(CZceDmaChanImpl& chan) {
        return {chan.m_pfnUserCb, chan.m_pUserData};
    }
    static std::vector<const void*> MembersInOrder(const CZceDmaChanImpl& chan) {
        return {&chan.m_bGotData,
                &chan.m_ulParsedCnt,
                reinterpret_cast<const void*>(&chan.m_pfnUserCb),
                reinterpret_cast<const void*>(&chan.m_pUserData),
                reinterpret_cast<const void*>(&chan.m_pDma),
                &chan.m_mapInst,
                reinterpret_cast<const void*>(&chan.m_pFpgaServ),
                reinterpret_cast<const void*>(&chan.m_pContractServ),
                reinterpret_cast<const void*>(&chan.m_pBinFile),
                reinterpret_cast<const void*>(&chan.m_pCfg),
                reinterpret_cast<const void*>(&chan.m_pDrv),
                reinterpret_cast<const void*>(&chan.m_pApi),
                &chan.m_uiChannel};
    }

    static std::atomic<unsigned char>& SignalRegister() {
        return CZceDmaChanImpl::m_bSignalRegister;
    }
    static unsigned char& AllSubsOver() { return CZceDmaChanImpl::s_bAllSubsOver; }
    static unsigned char& CallTimeExpired() { return CZceDmaChanImpl::s_bCallTimeExpired; }
    static unsigned char& LoadMapEnabled() { return CZceDmaChanImpl::s_bLoadMapEnabled; }
    static unsigned char& FirstTmRead() { return CZceDmaChanImpl::s_bFirstTmRead; }
    static unsigned int& FirstTm() { return CZceDmaChanImpl::s_uiFirstTm; }
};

namespace velatest {

using Peer = ZceDmaChanTestPeer;
using Lines_t = std::vector<std::string>;

// Remembers what was delivered: the slot and the first byte of the body, and the body's address.
class RecordingSpi : public IVelaZceMdSpi {
  public:
    struct Call {
        int slot;
        const unsigned char* body;
    };
    void OnDmaType17Msg(const unsigned char* body) override { calls.push_back({0, body}); }
    void OnDmaType18Msg(const unsigned char* body) override { calls.push_back({1, body}); }
    void OnDmaType19Msg(const unsigned char* body) override { calls.push_back({2, body}); }
    void OnDmaType20Msg(const unsigned char* body) override { calls.push_back({3, body}); }

    std::vector<Call> calls;
};

// The API object with its inside open.
class OpenApi : public CVelaZceMdApiImpl {
  public:
    explicit OpenApi(IDrv* drv) : CVelaZceMdApiImpl(drv) {}
    using CVelaZceMdApiImpl::InitCfgInfo;
    using CVelaZceMdApiImpl::LogInit;
    using CVelaZceMdApiImpl::m_ChanReady;
    using CVelaZceMdApiImpl::m_pCfg;
    using CVelaZceMdApiImpl::m_pChan;
    using CVelaZceMdApiImpl::m_pDrv;
    using CVelaZceMdApiImpl::m_pSpi;
};

// What a test of before may have left in this process.
inline void ForgetProcess() {
    Peer::SignalRegister() = 0;
    Peer::AllSubsOver() = 0;
    Peer::CallTimeExpired() = 0;
    Peer::LoadMapEnabled() = 1;
    Peer::FirstTmRead() = 0;
    Peer::FirstTm() = 0;
    CZceDmaChanImpl::g_uiContractSettleTm = 0;
    CSignalProcess::m_isExit = 0;
    for (const int sig : {SIGINT, SIGTERM, SIGPIPE}) {
        std::signal(sig, SIG_DFL);
    }
    DrvEnyxVarClear();
    FakeEnyx::Reset();
    FakeClock::Set(20261120, 83000);
    FakeClock::OnSleep(nullptr);
    FakeClock::ClearSleeps();
}

// A worker on a board in memory, in a directory of its own, the log read back. Local time is
// 2026-11-20 08:30:00 at the start; the board has today's date and all fibres.
class WorkerBench : public testing::Test {
  public:
    static constexpr const char* masterIni = "[config]\ndevice=xilinx0:0\n";
    static constexpr const char* channel3Ini = "[config]\ndevice=xilinx0:3\n";

    WorkerBench() {
        ForgetProcess();
        drv->SetReg(0x103, 0xF);
        drv->SetReg(0x106, 20261120);
        drv->OnDestroy([this] { ++drvDestroyed; });
        api.m_pSpi = &spi;
    }
    ~WorkerBench() override {
        DropWorker();
        if (drvDestroyed == 0) {
            delete drv;
        }
        delete cfg;
    }
    WorkerBench(const WorkerBench&) = delete;
    WorkerBench& operator=(const WorkerBench&) = delete;

    // Loads the configuration and makes the worker; the lines of that are forgotten.
    void MakeWorker(std::string_view ini) {
        PutFile("test.ini", ini);
        cfg = new Vela2_U50::CZceConfigFile("test.ini", drv, &api);
        ASSERT_EQ(cfg->Init(), 0);
        chan = new CZceDmaChanImpl(drv, &api, cfg);
        log.Clear();
    }
    // A master after Init, everything of the start-up forgotten.
    void MakeMaster(std::string_view ini = masterIni) {
        MakeWorker(ini);
        drv->Record(false);
        ASSERT_EQ(chan->Init(&parms), 0);
        drv->Record(true);
        drv->ClearAccesses();
        FakeClock::ClearSleeps();
        log.Clear();
    }
    void DropWorker() {
        delete chan;
        chan = nullptr;
    }

    TempDir dir{TempDir::Enter::yes};
    LogCapture log;
    FakeDrv* drv = new FakeDrv;
    int drvDestroyed = 0;
    RecordingSpi spi;
    OpenApi api{drv};
    Vela2_U50::CZceConfigFile* cfg = nullptr;
    CZceDmaChanImpl* chan = nullptr;
    Vela2_U50::ZceDmaInitParms_t parms{0, 474, "CUSTOM_CHAN0_DATA"};
};

}  // namespace velatest
