#include "DataType/ContractServ.h"
#include "DataType/ZceFpgaServ.h"
#include "DataType/ZceNumbers.h"
#include "DataType/ZceStartRules.h"
#include "Utils/calendar.h"
#include "Utils/clockSeam.h"
#include "VelaZceBinFile.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

constexpr unsigned int g_uiWaitStepSeconds = 10;
constexpr unsigned int g_uiSecondsPerMinute = 60;

}  // namespace

int CContractServ::RecoverAllInst() {
    LOG_INFO("Now begin recover all inst");
    if (RecoverInstsFromBin() == 0) {
        // The wait stands although the board's tables are not read here. Deliberate.
        if (m_pFpgaServ->bIsReseted()) {
            LOG_INFO("We wait for fpga gather enough inst, please wait 120 second...");
            VORBA2::Clock::SleepSeconds(ZCE_BIN_RESET_WAIT_SECONDS);
        }
        LOG_INFO("Bin inst count:%u", Count(m_mapInst));
    } else {
        WaitForFpga(GetExpireTime());
        RecoverInstsFromFpga();
    }
    LOG_INFO("Fetch all inst from fpga over! insts count:%u.", Count(m_mapInst));
    return 0;
}

int CContractServ::RecoverInstsFromBin() {
    if (m_pBinFile->Intrade_CheckAndGetAllInstFromBin() != 0) {
        return -1;
    }
    LOG_INFO("Get inst from bin success");
    return 0;
}

bool CContractServ::RecoverInstsFromFpga() {
    m_pFpgaServ->FetchAllInst();
    return true;
}

// Gives a board that has just been reset the time to gather the broadcast; more of it in the
// morning break.
unsigned int CContractServ::GetExpireTime() {
    const unsigned int now = VORBA2::LocalNow().value_or(VORBA2::LocalMoment_t{}).time;
    const unsigned int boardTime = m_pFpgaServ->GetRealTime();
    const unsigned int minutes = ZceExpireMinutes(now, boardTime, m_pFpgaServ->bIsReseted());
    LOG_INFO("Expire time %u minute.", minutes);
    return minutes;
}

void CContractServ::WaitForFpga(unsigned int minutes) {
    for (unsigned int left = minutes * g_uiSecondsPerMinute; left != 0;
         left -= g_uiWaitStepSeconds) {
        LOG_INFO("Left %u seconds", left);
        VORBA2::Clock::SleepSeconds(g_uiWaitStepSeconds);
    }
}

bool CContractServ::Id_chkPresent(unsigned int channel) {
    m_vecLackIds.clear();
    const ZceSubsInfo_t* rules = FindSubsInfo(m_pSubsInfo, channel);
    if (rules == nullptr) {
        return true;
    }
    for (const std::string& id : rules->vecSubIds) {
        if (m_mapInst.count(id) == 0) {
            m_vecLackIds.push_back(id);
        }
    }
    return m_vecLackIds.empty();
}

bool CContractServ::DumpLackId() {
    if (m_mapInst.empty()) {
        LOG_WARN("All instrument count is zero.");
        return false;
    }
    for (unsigned int channel = 0; channel < ZCE_CHANNEL_NUM; ++channel) {
        if (Id_chkPresent(channel)) {
            continue;
        }
        std::string joined;
        for (const std::string& id : m_vecLackIds) {
            joined += (joined.empty() ? "" : ",") + id;
        }
        LOG_WARN(
            "[channel:%d] Warning!! Hasn't receive these insts:%s! The program continues to run",
            static_cast<int>(channel), joined.c_str());
    }
    return true;
}

}  // namespace Vela2_U50
