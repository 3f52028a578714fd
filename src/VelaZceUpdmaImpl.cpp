#include "VelaZceUpdmaImpl.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "DataType/ContractServ.h"
#include "DataType/ZceChannel.h"
#include "DataType/ZceConfigFile.h"
#include "DataType/ZceFpgaServ.h"
#include "DataType/ZceRegMap.h"
#include "DataType/ZceStartRules.h"
#include "DrvEnyx/IDrv.h"
#include "DrvEnyx/drvFactory.h"
#include "Utils/calendar.h"
#include "VelaZceBinFile.h"
#include "VelaZceKeep.h"
#include "VelaZceMdApiImpl.h"
#include "VelaZceUtils.h"
#include "log/elog.h"

using Vela2_U50::CContractServ;
using Vela2_U50::CZceConfigFile;
using Vela2_U50::CZceFpgaServ;
using Vela2_U50::ZceDmaInitParms_t;

namespace {

// What the stream driver's open record carries in its middle reserved field.
constexpr unsigned int g_uiDmaReserved1 = 64;

}  // namespace

std::atomic<unsigned char> CZceDmaChanImpl::m_bSignalRegister{0};
unsigned char CZceDmaChanImpl::s_bAllSubsOver = 0;
unsigned char CZceDmaChanImpl::s_bCallTimeExpired = 0;
unsigned char CZceDmaChanImpl::s_bLoadMapEnabled = 1;
unsigned char CZceDmaChanImpl::s_bFirstTmRead = 0;
unsigned int CZceDmaChanImpl::s_uiFirstTm = 0;

CZceDmaChanImpl::CZceDmaChanImpl(IDrv* drv, CVelaZceMdApiImpl* api, CZceConfigFile* cfg)
    : m_pCfg(cfg), m_pDrv(drv), m_pApi(api), m_uiChannel(Vela2_U50::ZCE_CHANNEL_UNKNOWN) {}

CZceDmaChanImpl::~CZceDmaChanImpl() {
    delete m_pDma;
    m_pDma = nullptr;
    if (m_uiChannel == Vela2_U50::ZCE_MASTER_CHANNEL) {
        CVelaZceMdApiImpl::ReleaseDriver(m_pDrv);
        m_pDrv = nullptr;
    }
    m_mapInst.clear();
}

int CZceDmaChanImpl::Init(ZceDmaInitParms_t* /*params*/) {
    m_pCfg->BindCpu();
    if (!m_pCfg->bIsMasterChannel()) {
        return 0;
    }
    if (ChkBinFileAuthority() != 0) {
        return -1;
    }
    // Before the channel is known as the master's: who does not hold the driver must not release
    // it.
    CVelaZceMdApiImpl::HoldDriver(m_pDrv);
    m_uiChannel = m_pCfg->GetDmaChannel();

    // The three services outlive the worker, deliberately.
    m_pFpgaServ = ZceKept(std::make_unique<CZceFpgaServ>(m_mapInst, m_uiChannel));
    m_pFpgaServ->Init(m_pDrv);
    m_pBinFile = ZceKept(std::make_unique<CTernBinFile>(m_mapInst, m_uiChannel));
    m_pContractServ = ZceKept(std::make_unique<CContractServ>(
        m_mapInst, m_pCfg, m_pBinFile, m_pFpgaServ, m_uiChannel, m_pCfg->getArrayReference()));

    ChkAndRst();
    m_pCfg->ShowVersion();
    m_pCfg->PrintSwitchStatus();
    m_pCfg->CfgNetReg();
    m_pCfg->DumpDevInfo();
    m_pFpgaServ->UpdateTimeStamp();
    m_pFpgaServ->UnSubsAllInsts();
    return 0;
}

int CZceDmaChanImpl::ChkAndRst() {
    unsigned int uiFpgaDate = 0;
    unsigned int uiSysDate = 0;
    const bool bSameDay = m_pFpgaServ->bDataEqual(uiFpgaDate, uiSysDate);
    LOG_INFO("First time read fpga date:%u, system date:%u.", uiFpgaDate, uiSysDate);
    if (uiSysDate == 0) {
        // Not another date: inside trading time a reset would throw away the board's instruments.
        LOG_ERROR("Unable to determine the local time, the fpga is not reset.");
        return 0;
    }
    if (!bSameDay) {
        ResetAndClear();
        return 0;
    }
    const unsigned int uiTime = m_pFpgaServ->GetRealTime();
    // A date that changed between the two readings keeps the board as it is, deliberately.
    if (!m_pFpgaServ->bDataEqual(uiFpgaDate, uiSysDate)) {
        return 0;
    }
    if (Vela2_U50::ZceIsResetDue(uiTime, [this] { return m_pFpgaServ->FpgaCounterEqual(); })) {
        ResetAndClear();
    }
    return 0;
}

// The reset clears the tables too; that they are cleared once more is deliberate.
void CZceDmaChanImpl::ResetAndClear() {
    m_pFpgaServ->ResetFpga();
    m_pFpgaServ->ClearAllInstTable();
}

int CZceDmaChanImpl::ChkBinFileAuthority() {
    if (ZceIsInTradeTime() || access(".", R_OK | W_OK) == 0) {
        return 0;
    }
    struct stat dirStat {};
    if (stat(".", &dirStat) != 0) {
        LOG_INFO("Failed to get directory permissions, msg:%s", std::strerror(errno));
        return -1;
    }
    errno = 0;  // an owner without an entry is no error of the call: it leaves errno alone
    const passwd* const pOwner = getpwuid(dirStat.st_uid);
    if (pOwner == nullptr) {
        LOG_INFO("Failed to get user info, msg:%s", std::strerror(errno));
        return -1;
    }
    LOG_INFO("Error! Current user does not have read/write access to the current directory.");
    LOG_INFO("Please run this program as user %s or root!", pOwner->pw_name);
    return -1;
}

int CZceDmaChanImpl::Work(ZceDmaInitParms_t* params) {
    if (m_pCfg->bIsMasterChannel()) {
        const std::optional<bool> bInTradeTime = VORBA2::IsInTradeTimeNow();
        if (!bInTradeTime) {
            // Neither of the two: inside trading time a new cache file would take the place of the
            // one that is needed, and nothing would ever be subscribed.
            LOG_ERROR("Unable to determine the local time, the instrument list cannot be had.");
            return -1;
        }
        if (*bInTradeTime) {
            m_pFpgaServ->FpgaCloseTrans();
            m_pContractServ->RecoverAllInst();
            SubscribeAll();
        } else {
            m_pBinFile->Normal_FileInit();
            m_pFpgaServ->FpgaStartTrans();
        }
    }
    if (InitDma(params) != 0) {
        LOG_ERROR("[channel:%d] Init dma fail! dma name %s.", static_cast<int>(m_uiChannel),
                  params == nullptr ? "" : params->chanName.c_str());
        return -1;
    }
    return 0;
}

// The instrument list is complete: selection, channel masks on the board, decoder on.
void CZceDmaChanImpl::SubscribeAll() {
    m_pContractServ->FilterAndStoreToGlobMap();
    m_pFpgaServ->SubsFromGlobInsts();
    m_pFpgaServ->StartDecode();
}

int CZceDmaChanImpl::InitDma(ZceDmaInitParms_t* params) {
    if (params == nullptr) {
        LOG_ERROR("Init dma null fail");
        return -1;
    }
    DrvDmaInitParms_t record{params->busId, params->chanName, 0, g_uiDmaReserved1, 0};
    m_pDma = DrvEnyxMakeDma();
    if (m_pDma->Init(&record) != 0) {
        LOG_ERROR("Dma init busid:%d, chanName:%s fail!", static_cast<int>(params->busId),
                  params->chanName.c_str());
        return -1;
    }
    m_stPoll = m_pDma->Poller();
    return 0;
}

int CZceDmaChanImpl::KeepRecv(DrvDmaHandler_t cb, bool* pbRun, void* user) {
    if (cb == nullptr || pbRun == nullptr) {
        std::puts("Invalid parameter. ");
        return -1;
    }
    if (m_pDma == nullptr) {
        LOG_WARN("KeepRecv before the DMA stream is open: there is nothing to receive from.");
        return -1;
    }
    m_pfnUserCb = cb;
    m_pUserData = user;
    m_pDma->RegisterHandler(reinterpret_cast<void*>(&CZceDmaChanImpl::DmaEntrance), this);
    while (*pbRun) {
        m_pDma->RecvOnceCb();
    }
    return 0;
}

bool CZceDmaChanImpl::IsCallTimeExpired() {
    unsigned int uiTimeA = 0;
    unsigned int uiTimeB = 0;
    m_pDrv->ReadInt32(Vela2_U50::ZCE_REG_TIME_A, uiTimeA);
    m_pDrv->ReadInt32(Vela2_U50::ZCE_REG_TIME_B, uiTimeB);
    if (s_bFirstTmRead == 0) {
        s_uiFirstTm = uiTimeA;
        s_bFirstTmRead = 1;
        return false;
    }
    // A first clock that has not moved since then is not fed: the second one counts.
    const unsigned int uiTime = uiTimeA == s_uiFirstTm ? uiTimeB : uiTimeA;
    const unsigned int uiNow = VORBA2::LocalNow().value_or(VORBA2::LocalMoment_t{}).time;
    if (!Vela2_U50::ZceIsAuctionOver(uiTime, uiNow)) {
        return false;
    }
    g_uiContractSettleTm = uiTime;
    return true;
}
