#include "DataType/ContractServ.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <numeric>

#include "DataType/ZceConfigFile.h"
#include "DataType/ZceFpgaServ.h"
#include "DataType/ZceNumbers.h"
#include "DataType/ZceOrdered.h"
#include "DataType/ZceSubsMasks.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

// An instrument that some channel selects.
struct Wanted_t {
    std::uint16_t index = 0;
    std::uint16_t mask = 0;  // bit n: channel n selects it
    const std::string* name = nullptr;
};

// Sorted by index, and in name order within an index, as they come. Indexes are small: they are
// counted, not compared.
std::vector<Wanted_t> ByIndex(const std::vector<Wanted_t>& wanted) {
    std::vector<std::size_t> places(std::numeric_limits<std::uint16_t>::max() + std::size_t{2});
    for (const Wanted_t& inst : wanted) {
        ++places[inst.index + std::size_t{1}];
    }
    std::partial_sum(places.begin(), places.end(), places.begin());
    std::vector<Wanted_t> sorted(wanted.size());
    for (const Wanted_t& inst : wanted) {
        sorted[places[inst.index]++] = inst;
    }
    return sorted;
}

// `wanted` in ascending index order. Which of them the channel wants is found out before, since
// that cannot be foreseen from one to the next.
void Select(const std::vector<Wanted_t>& wanted, unsigned int channel,
            std::map<std::uint16_t, std::string>& selected) {
    std::vector<const Wanted_t*> chosen(wanted.size() + 1);
    std::size_t count = 0;
    for (const Wanted_t& inst : wanted) {
        chosen[count] = &inst;
        count += inst.mask >> channel & 1U;
    }
    auto entry = selected.end();
    for (std::size_t at = 0; at < count; ++at) {
        entry = PutFrom(selected, entry, chosen[at]->index, *chosen[at]->name);
    }
}

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

// Every name is looked at once, for all channels; the entries of each channel then come in
// ascending index order. Of two names with the same index the later one stays.
void CContractServ::JudgeAndFilterSubsInst() {
    LOG_INFO("Begin match needed inst! AllInstNum:%u.", Count(m_mapInst));
    const CZceSubsMasks masks(m_pSubsInfo);
    std::vector<Wanted_t> sgl;
    std::vector<Wanted_t> cmb;
    for (const auto& [name, index] : m_mapInst) {
        if (const std::uint16_t mask = masks.Of(name); mask != 0) {
            (KindOfInst(name) == InstKind_t::single ? sgl : cmb).push_back({index, mask, &name});
        }
    }
    sgl = ByIndex(sgl);
    cmb = ByIndex(cmb);
    for (unsigned int channel = 0; channel < ZCE_CHANNEL_NUM; ++channel) {
        Select(sgl, channel, m_mapSglSubs[channel]);
        Select(cmb, channel, m_mapCmbSubs[channel]);
        LOG_INFO("[channel:%d] Filter needed sgl count:%u, cmb count:%u.",
                 static_cast<int>(channel), Count(m_mapSglSubs[channel]),
                 Count(m_mapCmbSubs[channel]));
    }
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
    m_pFpgaServ->StoreChannelsToGlob(m_mapSglSubs, m_mapCmbSubs, 0);
    return true;
}

}  // namespace Vela2_U50
