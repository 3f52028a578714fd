#include "VelaZceMdApiImpl.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "DataType/ZceChannel.h"
#include "DataType/ZceConfigFile.h"
#include "DrvEnyx/IDrv.h"
#include "DrvEnyx/drvFactory.h"
#include "VelaZceKeep.h"
#include "VelaZceUpdmaImpl.h"
#include "log/CRwLogger.h"
#include "log/elog.h"

namespace {

constexpr unsigned short g_usCoreId = 474;
constexpr const char* g_szLogDir = "/tmp/fpgalog/";
constexpr const char* g_szLogName = "fpga";

// The log service of the process, made by the first start and never freed.
CRwLogger* g_pLogger = nullptr;
std::mutex g_logInitMutex;

// Guards the process's register driver, the API objects alive with the driver that each of them
// has, and who uses a driver. Held for moments only: never while a driver or a worker is at work.
std::mutex g_drvMutex;
std::vector<CVelaZceMdApiImpl*>& LiveApis() {
    static auto* const pApis = new std::vector<CVelaZceMdApiImpl*>;
    return *pApis;
}
// One entry for each master's worker that uses the driver and for each start that is going on.
std::vector<const IDrv*>& DrvUses() {
    static auto* const pUses = new std::vector<const IDrv*>;
    return *pUses;
}

// Under g_drvMutex.
void TakeUseBack(const IDrv* drv) {
    auto& uses = DrvUses();
    const auto use = std::find(uses.begin(), uses.end(), drv);
    if (use != uses.end()) {
        uses.erase(use);
    }
}

// Holds g_drvMutex where nothing may throw: on the way out of an object. A lock that fails is said,
// and what was to be done under it is done without.
class CReleaseGuard {
  public:
    CReleaseGuard() {
        try {
            g_drvMutex.lock();
            m_bHeld = true;
        } catch (const std::exception& error) {
            LOG_ERROR("Unable to lock the register driver's users, errmsg:%s. Released without.",
                      error.what());
        }
    }
    ~CReleaseGuard() {
        if (m_bHeld) {
            g_drvMutex.unlock();
        }
    }
    CReleaseGuard(const CReleaseGuard&) = delete;
    CReleaseGuard& operator=(const CReleaseGuard&) = delete;

  private:
    bool m_bHeld = false;
};

// Whether a step of the start got through. What the standard library throws at it (no memory, a
// lock that fails) is a failure like its own: no exception leaves the API.
template <typename Step>
bool Succeeds(Step step) {
    try {
        return step();
    } catch (const std::exception& error) {
        LOG_ERROR("The start cannot go on, errmsg:%s.", error.what());
        return false;
    }
}

// A start that cannot go on ends the process, deliberately with status 0.
[[noreturn]] void EndProcess() {
    std::exit(0);
}

}  // namespace

unsigned char CVelaZceMdApiImpl::m_ChanReady = 0;

// Here, so that the table of the exported class lives in the library.
IVelaZceMdApi::~IVelaZceMdApi() = default;

IVelaZceMdApi* IVelaZceMdApi::CreateVelaZceMdApi() {
    try {
        // Among the living before it takes the driver: a release at this moment must not miss it.
        auto pApi = std::make_unique<CVelaZceMdApiImpl>(nullptr);
        {
            const std::lock_guard<std::mutex> lock(g_drvMutex);
            pApi->m_pDrv = DrvEnyxProcessReg();
        }
        return pApi.release();
    } catch (const std::exception& error) {
        LOG_ERROR("Unable to create the API object, errmsg:%s.", error.what());
        return nullptr;
    }
}

void IVelaZceMdApi::DestroyVelaZceMdApi(IVelaZceMdApi& api) {
    delete dynamic_cast<CVelaZceMdApiImpl*>(&api);
}

CVelaZceMdApiImpl::CVelaZceMdApiImpl(IDrv* drv) : m_pDrv(drv) {
    const std::lock_guard<std::mutex> lock(g_drvMutex);
    LiveApis().push_back(this);
}

CVelaZceMdApiImpl::~CVelaZceMdApiImpl() {
    DropWorker();
    const CReleaseGuard lock;
    std::erase(LiveApis(), this);
}

const IDrv* CVelaZceMdApiImpl::BeginStart() {
    const std::lock_guard<std::mutex> lock(g_drvMutex);
    if (m_pDrv == nullptr) {
        m_pDrv = DrvEnyxProcessReg();
    }
    DrvUses().push_back(m_pDrv);
    return m_pDrv;
}

void CVelaZceMdApiImpl::EndStart(const IDrv* drv) {
    const CReleaseGuard lock;
    TakeUseBack(drv);
}

void CVelaZceMdApiImpl::HoldDriver(const IDrv* drv) {
    const std::lock_guard<std::mutex> lock(g_drvMutex);
    DrvUses().push_back(drv);
}

void CVelaZceMdApiImpl::ReleaseDriver(IDrv* drv) {
    {
        const CReleaseGuard lock;
        TakeUseBack(drv);
        const auto& uses = DrvUses();
        if (std::find(uses.begin(), uses.end(), drv) != uses.end()) {
            return;
        }
        for (CVelaZceMdApiImpl* pApi : LiveApis()) {
            if (pApi->m_pDrv == drv) {
                pApi->m_pDrv = nullptr;
            }
        }
        DrvEnyxForgetReg(drv);
    }
    // Nobody else can reach it any more.
    delete drv;
}

void CVelaZceMdApiImpl::DropWorker() {
    delete m_pChan;
    m_pChan = nullptr;
}

int CVelaZceMdApiImpl::VelaRecvStart(IVelaZceMdSpi& spi, const char* cfgPath) {
    if (VelaStart(spi, cfgPath) != 0) {
        LOG_ERROR("Vela init fail.");
        return -1;
    }
    while (VelaRecv() != -1) {}
    return 0;
}

int CVelaZceMdApiImpl::VelaStart(IVelaZceMdSpi& spi, const char* cfgPath) {
    if (cfgPath == nullptr) {
        std::puts("Error! lpConfig null pointer!");
        EndProcess();
    }
    if (LogInit(cfgPath) != 0) {
        std::puts("Log init failed");
        return -1;
    }
    m_pSpi = &spi;
    // A second start: the stream of the first must be free before it can be opened again.
    DropWorker();
    const IDrv* pStartDrv = nullptr;
    if (!Succeeds([&] {
            pStartDrv = BeginStart();
            return InitCfgInfo(cfgPath) == 0;
        })) {
        LOG_ERROR("Vela inner init fail.");
        EndProcess();
    }
    CZceDmaChanImpl* pChan = nullptr;
    if (!Succeeds([&] {
            Vela2_U50::ZceDmaInitParms_t parms{m_pCfg->GetBusId(), g_usCoreId,
                                               m_pCfg->GetDmaChanName()};
            pChan = new CZceDmaChanImpl(m_pDrv, this, m_pCfg);
            return pChan->Init(&parms) == 0 && pChan->Work(&parms) == 0;
        })) {
        LOG_ERROR("Create Tern service failed!");
        EndStart(pStartDrv);  // a master's worker takes the driver along
        delete pChan;
        EndProcess();
    }
    m_pChan = pChan;
    EndStart(pStartDrv);
    return 0;
}

[[gnu::aligned(64)]] int CVelaZceMdApiImpl::VelaRecv() {
    if (IsExit()) [[unlikely]] {
        return -1;
    }
    if (m_pChan == nullptr) [[unlikely]] {
        return RecvNotStarted();
    }
    return static_cast<int>(m_pChan->PollOnce());
}

int CVelaZceMdApiImpl::RecvNotStarted() {
    LOG_WARN("VelaRecv before a successful VelaStart: there is no channel to poll.");
    return -1;
}

int CVelaZceMdApiImpl::InitCfgInfo(const char* cfgPath) {
    std::unique_ptr<Vela2_U50::CZceConfigFile> pCfg(
        new (std::nothrow) Vela2_U50::CZceConfigFile(std::string(cfgPath), m_pDrv, this));
    if (pCfg == nullptr) {
        LOG_INFO("Config file init fail");
        return -1;
    }
    m_pCfg = ZceKept(std::move(pCfg));
    if (m_pCfg->Init() != 0) {
        LOG_ERROR("Config file init fail.");
        return -1;
    }
    if (m_pCfg->GetDmaChannel() != Vela2_U50::ZCE_MASTER_CHANNEL) {
        return 0;
    }
    DrvRegInitParms_t parms{static_cast<unsigned short>(m_pCfg->GetBusId()), g_usCoreId};
    const int iRet = m_pDrv->Init(&parms);
    if (iRet != 0) {
        LOG_ERROR("Init New drive failed! ret:%d", iRet);
        return -1;
    }
    return 0;
}

int CVelaZceMdApiImpl::LogInit(const char* /*cfgPath*/) {
    int iRet = -1;
    try {
        const std::lock_guard<std::mutex> lock(g_logInitMutex);
        if (g_pLogger != nullptr) {
            return 0;
        }
        // Recorded before it is started: a log service that failed is not tried a second time.
        g_pLogger = new CRwLogger;
        iRet = g_pLogger->Init(0, g_szLogDir, g_szLogName);
    } catch (const std::exception&) {
        iRet = -1;  // no log service, and none recorded
    }
    if (iRet != 0) {
        std::printf("###Init log service failed! ret: %d###\n", iRet);
        return -1;
    }
    return 0;
}
