#include "DataType/ContractServ.h"

#include <algorithm>
#include <string_view>

#include "DataType/ZceConfigFile.h"
#include "DataType/ZceFpgaServ.h"
#include "DataType/ZceNumbers.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

constexpr std::string_view g_strPrefixSpd = "SPD-";
constexpr std::string_view g_strPrefixIps = "IPS-";

bool Contains(const std::vector<std::string>& list, const std::string& text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

std::string ClassOf(const std::string& name) {
    return ExtractClass(name.c_str(), static_cast<unsigned int>(name.size()));
}

}  // namespace

std::mutex CContractServ::order_mutex;

CContractServ::CContractServ(std::map<std::string, unsigned short>& mapInst, CZceConfigFile* cfg,
                             CTernBinFile* binFile, CZceFpgaServ* fpgaServ, unsigned int channel,
                             ZceSubsInfoArray_t& subsInfo)
    : m_uiChannel(channel),
      m_mapInst(mapInst),
      m_pFpgaServ(fpgaServ),
      m_pBinFile(binFile),
      m_pCfg(cfg),
      m_pSubsInfo(subsInfo) {}

CContractServ::~CContractServ() = default;

int CContractServ::FilterAndStoreToGlobMap() {
    const std::lock_guard<std::mutex> lock(order_mutex);
    m_pCfg->ParseSubsInst();
    DumpLackId();
    JudgeAndFilterSubsInst();
    return StoreAllSubsInstToFpga() ? 1 : 0;
}

void CContractServ::JudgeAndFilterSubsInst() {
    LOG_INFO("Begin match needed inst! AllInstNum:%u.", Count(m_mapInst));
    for (unsigned int channel = 0; channel < ZCE_CHANNEL_NUM; ++channel) {
        for (const auto& [name, index] : m_mapInst) {
            FilterOneInst(name, index, channel);
        }
        LOG_INFO("[channel:%d] Filter needed sgl count:%u, cmb count:%u.",
                 static_cast<int>(channel), Count(m_mapSglSubs[channel]),
                 Count(m_mapCmbSubs[channel]));
    }
}

// A combination is selected by its kind alone: ids, classes and "all" play no part.
void CContractServ::FilterOneInst(const std::string& name, std::uint16_t index,
                                  unsigned int channel) {
    const ZceSubsInfo_t& rules = m_pSubsInfo[channel];
    const bool isSpd = name.starts_with(g_strPrefixSpd);
    if (isSpd || name.starts_with(g_strPrefixIps)) {
        if ((isSpd ? rules.bSpdRecv : rules.bIpsRecv) != 0) {
            m_mapCmbSubs[channel][index] = name;
        }
        return;
    }
    if (IsOption(name) ? OptionIsMeetCondition(name, channel)
                       : FutureIsMeetCondition(name, channel)) {
        m_mapSglSubs[channel][index] = name;
    }
}

bool CContractServ::FutureIsMeetCondition(const std::string& name, unsigned int channel) {
    return m_pSubsInfo[channel].bSubAll != 0 || bOrderedClass(ClassOf(name), channel) ||
           bOrderedId(name, channel);
}

// Options are matched by class or by underlying contract, never by their own id. Deliberate.
// NOLINTNEXTLINE(performance-unnecessary-value-param): the operation takes its name by value
bool CContractServ::OptionIsMeetCondition(std::string name, unsigned int channel) {
    const ZceSubsInfo_t* rules = FindSubsInfo(m_pSubsInfo, channel);
    if (rules == nullptr || rules->bOptionsRecv == 0) {
        return false;
    }
    std::string underlying;
    OptionExtractSecondClass(name, underlying);
    return bOrderedClass(ClassOf(name), channel) || bOrderedId(underlying, channel) ||
           rules->bSubAll != 0;
}

bool CContractServ::bOrderedId(const std::string& id, unsigned int channel) {
    const ZceSubsInfo_t* rules = FindSubsInfo(m_pSubsInfo, channel);
    return rules != nullptr && Contains(rules->vecSubIds, id);
}

bool CContractServ::bOrderedClass(const std::string& cls, unsigned int channel) {
    const ZceSubsInfo_t* rules = FindSubsInfo(m_pSubsInfo, channel);
    return rules != nullptr && Contains(rules->vecSubClasses, cls);
}

bool CContractServ::StoreAllSubsInstToFpga() {
    for (unsigned int channel = 0; channel < ZCE_CHANNEL_NUM; ++channel) {
        m_pFpgaServ->StoreInstsToGlob(m_mapSglSubs[channel], m_mapCmbSubs[channel], channel);
    }
    return true;
}

}  // namespace Vela2_U50
