#include "fuzzBoard.h"

#include <sched.h>

#include <iterator>
#include <utility>

#include "DrvEnyx/IDrvDMA.h"
#include "DrvEnyx/drvFactory.h"
#include "SignalProcess.h"
#include "VelaZceKeep.h"
#include "fakeClock.h"
#include "fuzzHost.h"
#include "log/elog.h"

using Vela2_U50::CZceConfigFile;

void ZceDmaChanTestPeer::FreeServices(CZceDmaChanImpl& chan) {
    delete chan.m_pContractServ;
    delete chan.m_pBinFile;
    delete chan.m_pFpgaServ;
    SetServices(chan, nullptr, nullptr, nullptr);
}

void ZceDmaChanTestPeer::MakeProcessNew() {
    CZceDmaChanImpl::m_bSignalRegister = 1;
    CZceDmaChanImpl::s_bAllSubsOver = 0;
    CZceDmaChanImpl::s_bCallTimeExpired = 0;
    CZceDmaChanImpl::s_bLoadMapEnabled = 1;
    CZceDmaChanImpl::s_bFirstTmRead = 0;
    CZceDmaChanImpl::s_uiFirstTm = 0;
    CZceDmaChanImpl::g_uiContractSettleTm = 0;
    CSignalProcess::m_isExit = 0;
}

namespace velafuzz {

namespace {

constexpr unsigned int g_arrTimes[] = {83000,  85509,  85510,  92959, 93000, 90000,
                                       90001,  140000, 150000, 0,     70000, 205000,
                                       205511, 210000, 213000, 235959};

// The board's clock is the host's.
unsigned int s_now = 0;

// The rules that the learning worker selects by.
constexpr const char* g_szRules =
    "[config]\ndevice=xilinx0:0\n"
    "[channel0]\ninsts=SR,CF301\noptions=recv\nips=recv\nspd=recv\n"
    "[channel15]\ninsts=all\noptions=norecv\nips=norecv\nspd=recv\n";

// Loaded once; what an input made of it is forgotten.
CZceConfigFile& FreshRules() {
    static CZceConfigFile* const config = [] {
        WriteFile("rules.ini", g_szRules);
        auto* const loaded = new CZceConfigFile("rules.ini", nullptr, nullptr);
        FUZZ_CHECK(loaded->Init() == 0);
        return loaded;
    }();
    for (Vela2_U50::ZceSubsInfo_t& rules : config->getArrayReference()) {
        rules = {};
    }
    return *config;
}

}  // namespace

unsigned int TimeOf(unsigned char choice) {
    s_now = g_arrTimes[choice % std::size(g_arrTimes)];
    velatest::FakeClock::Set(DATE, s_now);
    return s_now;
}

void CFuzzBoard::Clear() {
    m_registers = {{0x103, 0xF}, {0x106, DATE}};
    m_masks = {};
}

unsigned int CFuzzBoard::Read(unsigned long addr) {
    const std::size_t table = addr >= 0x12000 ? 1 : 0;
    switch (addr) {
        case 0x104:
        case 0x105:
            return s_now;
        case 0x11003:
        case 0x12003:
            return m_readAddr[table] % 64 == 0 && m_readAddr[table] / 64 < 4096
                       ? m_masks[table][m_readAddr[table] / 64]
                       : 0;
        default:
            return m_registers[addr];
    }
}

void CFuzzBoard::Write(unsigned long addr, unsigned int value) {
    const std::size_t table = addr >= 0x12000 ? 1 : 0;
    switch (addr) {
        case 0x11000:
        case 0x12000:
            if (value % 64 == 0 && value / 64 < 4096) {
                m_masks[table][value / 64] = m_data[table];
            }
            break;
        case 0x11001:
        case 0x12001:
            m_data[table] = value;
            break;
        case 0x11002:
        case 0x12002:
            m_readAddr[table] = value;
            break;
        default:
            m_registers[addr] = value;
    }
}

int CFuzzDrv::ReadInt32(unsigned long addr, unsigned int& value) {
    value = m_board.Read(addr);
    return 0;
}

int CFuzzDrv::WriteInt32(unsigned long addr, unsigned int value) {
    m_board.Write(addr, value);
    return 0;
}

int CFuzzDrv::WriteInt32_Log(unsigned long addr, unsigned int value) {
    m_board.Write(addr, value);
    return 0;
}

int CFuzzDrv::WriteInt32_LogWithRead(unsigned long addr, unsigned int value) {
    m_board.Write(addr, value);
    return 0;
}

CLearningMaster::CLearningMaster()
    : m_config(FreshRules()),
      m_chan(&m_drv, &m_api, &m_config),
      m_fpgaServ(Peer::Insts(m_chan), 0),
      m_binFile(Peer::Insts(m_chan), 0),
      m_contractServ(Peer::Insts(m_chan), &m_config, &m_binFile, &m_fpgaServ, 0,
                     m_config.getArrayReference()) {
    Peer::MakeProcessNew();
    m_board.Clear();
    m_fpgaServ.Init(&m_drv);
    Peer::SetServices(m_chan, &m_fpgaServ, &m_contractServ, &m_binFile);
    m_binFile.Normal_FileInit();
}

void PrepareLibrary() {
    static bool bPrepared = false;
    if (std::exchange(bPrepared, true)) {
        return;
    }
    SilenceOutput();
    EnterOwnDirectory();
    elog_set_filter_level(ELOG_LVL_VERBOSE);
    for (unsigned char level = 0; level < ELOG_LVL_TOTAL; ++level) {
        elog_set_level_format(level, ELOG_FMT_LVL | ELOG_FMT_TAG | ELOG_FMT_TIME);
    }
    elog_start();
}

namespace {

// A stream that is open and silent.
class CSilentDma final : public IDrvDMA {
  public:
    int Init(void* /*param*/) override { return 0; }
    int Send(void* /*packet*/, unsigned int /*size*/) override { return -1; }
    int RecvOnce(void* /*handler*/, void* /*context*/) override { return 0; }
    int RecvOnceCb() override { return -1; }
    void RegisterHandler(void* /*handler*/, void* /*context*/) override {}
    int PollData() override { return -1; }
};

}  // namespace

}  // namespace velafuzz

// The library's drivers are these: nothing of the vendor's is linked.
IDrvDMA* DrvEnyxMakeDma() {
    return new velafuzz::CSilentDma;
}
IDrv* DrvEnyxProcessReg() {
    return nullptr;
}
void DrvEnyxForgetReg(const IDrv* /*drv*/) {}

// The targets free what a worker leaves to the process: there is a new one for each input.
void ZceKeepForProcess(const void* /*object*/) {}

// An input must not move the fuzzer to another CPU.
extern "C" int __wrap_sched_setaffinity(pid_t pid, size_t size, const cpu_set_t* cpus);
extern "C" int __wrap_sched_setaffinity(pid_t /*pid*/, size_t /*size*/, const cpu_set_t* cpus) {
    return CPU_COUNT(cpus) == 0 ? -1 : 0;
}
