#include "DataType/ZceFpgaServ.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "DataType/ZceChannel.h"
#include "DataType/ZceConfigFile.h"
#include "DataType/ZceNumbers.h"
#include "DataType/ZceOrdered.h"
#include "DataType/ZceStartRules.h"
#include "DrvEnyx/IDrv.h"
#include "Utils/calendar.h"
#include "Utils/clockSeam.h"
#include "VelaZceUtils.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

// A channel bit mask wraps its shift count at the width of a register, deliberately.
constexpr unsigned int g_uiMaskShiftNum = 32;

// Address of word 0 of entry 4095: clearing and unsubscribing end there, inclusive.
constexpr unsigned int g_uiLastEntryAddr = 0x3FFC0;
// The unsubscription of all entries is repeated, deliberately.
constexpr unsigned int g_uiUnsubsPasses = 6;

constexpr unsigned int g_uiTimeFail = 0xFFFFFFFF;

const ZceTableRegs_t& TableRegs(std::uint8_t type) {
    return type == ZCE_TYPE_SGL ? ZCE_REG_SGL_TABLE : ZCE_REG_CMB_TABLE;
}

std::uint16_t ChannelBit(unsigned int channel) {
    return static_cast<std::uint16_t>(1U << (channel % g_uiMaskShiftNum));
}

}  // namespace

std::mutex CZceFpgaServ::subscribe_mutex;
bool CZceFpgaServ::m_bReseted = false;

CZceFpgaServ::CZceFpgaServ(std::map<std::string, unsigned short>& mapInst, unsigned int channel)
    : m_uiChannel(channel), m_mapInst(mapInst) {}

CZceFpgaServ::~CZceFpgaServ() = default;

void CZceFpgaServ::Init(IDrv* drv) {
    m_pDrv = drv;
}

unsigned int CZceFpgaServ::ReadReg(unsigned long addr) const {
    unsigned int value = 0;
    m_pDrv->ReadInt32(addr, value);
    return value;
}

unsigned int CZceFpgaServ::ReadTableWord(const ZceTableRegs_t& regs, unsigned int addr) const {
    m_pDrv->WriteInt32_LogWithRead(regs.readAddr, addr);
    return ReadReg(regs.readData);
}

// The write address comes last: writing it is what stores the word.
void CZceFpgaServ::WriteTableWord(const ZceTableRegs_t& regs, unsigned int addr,
                                  unsigned int value) {
    m_pDrv->WriteInt32_LogWithRead(regs.writeData, value);
    m_pDrv->WriteInt32_LogWithRead(regs.writeAddr, addr);
}

void CZceFpgaServ::UpdateTimeStamp() {
    const std::optional<VORBA2::LocalMoment_t> now = VORBA2::LocalNow();
    if (!now) {
        // Any other date would have the next start reset the board.
        LOG_ERROR("Unable to determine the local time, fpga addr 0x106 is left as it is.");
        return;
    }
    m_pDrv->WriteInt32(ZCE_REG_TRADE_DATE, now->date);
    LOG_INFO("Update fpga addr 0x106 to %u over", now->date);
}

bool CZceFpgaServ::bDataEqual(unsigned int& fpgaDate, unsigned int& sysDate) {
    sysDate = VORBA2::LocalNow().value_or(VORBA2::LocalMoment_t{}).date;
    fpgaDate = ReadReg(ZCE_REG_TRADE_DATE);
    return sysDate != 0 && fpgaDate == sysDate;
}

// The larger of the board's two times.
bool CZceFpgaServ::ReadBoardTime(unsigned int& boardTime) const {
    unsigned int timeA = 0;
    unsigned int timeB = 0;
    if (m_pDrv->ReadInt32(ZCE_REG_TIME_A, timeA) != 0) {
        LOG_ERROR("[channel:%d] 1 Unable to read time stamp !", static_cast<int>(m_uiChannel));
        return false;
    }
    if (m_pDrv->ReadInt32(ZCE_REG_TIME_B, timeB) != 0) {
        // No channel here: what stands in its place means nothing. Deliberate.
        LOG_ERROR("[channel:%d] 2 Unable to read time stamp !", 0);
        return false;
    }
    boardTime = std::max(timeA, timeB);
    return true;
}

unsigned int CZceFpgaServ::GetRealTime() {
    const std::optional<VORBA2::LocalMoment_t> moment = VORBA2::LocalNow();
    if (!moment) {
        LOG_ERROR("Unable to determine the local time.");
        return g_uiTimeFail;
    }
    const unsigned int now = moment->time;
    unsigned int boardTime = 0;
    unsigned int fpgaDate = 0;
    unsigned int sysDate = 0;
    if (ZceIsInTradeTime() && bDataEqual(fpgaDate, sysDate)) {
        if (!ReadBoardTime(boardTime)) {
            return g_uiTimeFail;
        }
        LOG_INFO("[channel:%d] Current fpga time:%u. system time:%u.",
                 static_cast<int>(m_uiChannel), boardTime, now);
    }
    const unsigned int result = ZceTimeToRelyOn(boardTime, now);
    LOG_INFO("System time:%u.", result);
    return result;
}

CZceFpgaServ::Counters_t CZceFpgaServ::ReadCounters() const {
    Counters_t counters{};
    for (std::size_t at = 0; at < counters.size(); ++at) {
        counters[at] = ReadReg(ZCE_REG_PARSE_COUNTERS[at]);
    }
    return counters;
}

bool CZceFpgaServ::FpgaCounterEqual() {
    const unsigned int decode = ReadReg(ZCE_REG_DECODE);
    LOG_INFO("0x11 register value:0x%x", decode);
    if (decode == 0) {
        return false;
    }
    const Counters_t first = ReadCounters();
    bool equal = true;
    for (unsigned int check = 0; check < ZCE_COUNTER_CHECKS; ++check) {
        VORBA2::Clock::SleepSeconds(ZCE_COUNTER_CHECK_SECONDS);
        // Read whatever the reading before has shown.
        const Counters_t again = ReadCounters();
        equal = equal && again == first;
    }
    if (equal) {
        LOG_INFO("Fpga parse static count doesn't change!");
    }
    return equal;
}

void CZceFpgaServ::FpgaStartTrans() {
    m_pDrv->WriteInt32_Log(ZCE_REG_MAP_TRANS, ZCE_MAP_TRANS_ON);
    LOG_INFO("Fpga start transmit inst map pkt.");
}

void CZceFpgaServ::FpgaCloseTrans() {
    m_pDrv->WriteInt32_Log(ZCE_REG_MAP_TRANS, ZCE_MAP_TRANS_OFF);
    LOG_INFO("Fpga stop transmit inst map pkt.");
}

void CZceFpgaServ::StartDecode() {
    const unsigned int feeds = CZceConfigFile::m_SwitchReg;
    m_pDrv->WriteInt32_Log(ZCE_REG_DECODE, feeds);
    LOG_INFO("Now Fpga start trans subscribe result! write 0x11 value:0x%x.", feeds);
}

void CZceFpgaServ::ResetFpga() {
    if (m_uiChannel != ZCE_MASTER_CHANNEL) {
        return;
    }
    m_pDrv->WriteInt32_Log(ZCE_REG_RESET, ZCE_RESET_ASSERT);
    VORBA2::Clock::SleepSeconds(ZCE_RESET_SECONDS);
    m_pDrv->WriteInt32_Log(ZCE_REG_RESET, ZCE_RESET_RELEASE);
    ClearAllInstTable();
    m_bReseted = true;
    LOG_INFO("Reset and Clear fpga table over.");
}

void CZceFpgaServ::ClearTable(const ZceTableRegs_t& regs, unsigned int addrStep) {
    for (unsigned int addr = 0; addr <= g_uiLastEntryAddr; addr += addrStep) {
        m_pDrv->WriteInt32(regs.writeData, 0);
        m_pDrv->WriteInt32(regs.writeAddr, addr);
    }
}

void CZceFpgaServ::ClearAllInstTable() {
    const std::lock_guard<std::mutex> lock(subscribe_mutex);
    ClearTable(ZCE_REG_SGL_TABLE, 1);
    ClearTable(ZCE_REG_CMB_TABLE, 1);
    LOG_INFO("[channel:%d] Clear all inst table over", static_cast<int>(m_uiChannel));
}

void CZceFpgaServ::UnSubsAllInsts() {
    for (unsigned int pass = 0; pass < g_uiUnsubsPasses; ++pass) {
        ClearTable(ZCE_REG_SGL_TABLE, ZCE_ENTRY_WORDS);
        ClearTable(ZCE_REG_CMB_TABLE, ZCE_ENTRY_WORDS);
    }
    LOG_INFO("Unsubscribe all insts now");
}

void CZceFpgaServ::StoreInstToGlob(std::uint8_t type, std::uint16_t index, std::string name,
                                   unsigned int channel) {
    const std::lock_guard<std::mutex> lock(subscribe_mutex);
    const bool sgl = type == ZCE_TYPE_SGL;
    std::uint16_t& mask = (sgl ? m_mapSglChanBit : m_mapCmbChanBit)[index];
    mask = static_cast<std::uint16_t>(mask | ChannelBit(channel));
    (sgl ? m_mapSglInsts : m_mapCmbInsts)[index] = std::move(name);
}

// What the channels from `first` on select of one table, put together by index before it is
// recorded: one instrument after the other, the lock taken for each. Of several names of an index
// that of the last channel stays.
void CZceFpgaServ::StoreTable(std::span<const InstNames_t> selections, unsigned int first,
                              InstNames_t& names, std::map<std::uint16_t, std::uint16_t>& masks) {
    struct Selected_t {
        const std::string* name = nullptr;
        std::uint16_t mask = 0;
    };
    std::vector<Selected_t> selected;
    for (const InstNames_t& insts : selections) {
        const std::size_t size = insts.empty() ? 0 : insts.rbegin()->first + std::size_t{1};
        selected.resize(std::max(selected.size(), size));
        const std::uint16_t bit = ChannelBit(first++);
        for (const auto& [index, text] : insts) {
            Selected_t& inst = selected[index];
            inst = {&text, static_cast<std::uint16_t>(inst.mask | bit)};
        }
    }
    auto name = names.end();
    auto mask = masks.end();
    for (std::size_t at = 0; at < selected.size(); ++at) {
        const Selected_t& inst = selected[at];
        if (inst.name != nullptr) {
            const auto index = static_cast<std::uint16_t>(at);
            const std::lock_guard<std::mutex> lock(subscribe_mutex);
            mask = EntryFrom(masks, mask, index, std::uint16_t{0}).at;
            mask->second = static_cast<std::uint16_t>(mask->second | inst.mask);
            name = PutFrom(names, name, index, *inst.name);
        }
    }
}

void CZceFpgaServ::StoreChannelsToGlob(std::span<const InstNames_t> sglInsts,
                                       std::span<const InstNames_t> cmbInsts, unsigned int first) {
    for (std::size_t at = 0; at < sglInsts.size(); ++at) {
        const int shown = static_cast<int>(first + at);
        LOG_INFO("[channel:%d] Record func:Meeting conditions count is:OneLeg:%u, Combine:%u.",
                 shown, Count(sglInsts[at]), Count(cmbInsts[at]));
        if (sglInsts[at].empty() && cmbInsts[at].empty()) {
            LOG_INFO("[channel:%d] Matched subs inst count is 0. you doesn't subscribe inst.",
                     shown);
        }
    }
    StoreTable(sglInsts, first, m_mapSglInsts, m_mapSglChanBit);
    StoreTable(cmbInsts, first, m_mapCmbInsts, m_mapCmbChanBit);
}

void CZceFpgaServ::StoreInstsToGlob(const InstNames_t& sglInsts, const InstNames_t& cmbInsts,
                                    unsigned int channel) {
    StoreChannelsToGlob(std::span(&sglInsts, 1), std::span(&cmbInsts, 1), channel);
}

void CZceFpgaServ::SubsFromGlobInsts() {
    LOG_WARN("Subscribe:Meeting conditions count is:OneLeg:%u, Combine:%u. Now write to fpga!",
             Count(m_mapSglChanBit), Count(m_mapCmbChanBit));
    if (m_mapSglChanBit.empty() && m_mapCmbChanBit.empty()) {
        LOG_INFO(
            "Warning !! The number of contracts that comply with the subscription rules is 0. You "
            "subscribe no contract !!");
    }
    for (const auto& [index, mask] : m_mapSglChanBit) {
        SubsOneInst(ZCE_TYPE_SGL, index, mask);
    }
    for (const auto& [index, mask] : m_mapCmbChanBit) {
        SubsOneInst(ZCE_TYPE_CMB, index, mask);
    }
    LOG_INFO("Subscribes:Write to fpga Over!");
    ReadBackAllInst();
}

void CZceFpgaServ::SubsOneInst(std::uint8_t type, std::uint16_t index, std::uint16_t chanbit) {
    WriteTableWord(TableRegs(type), index * ZCE_ENTRY_WORDS, chanbit);
    const std::string& name = (type == ZCE_TYPE_SGL ? m_mapSglInsts : m_mapCmbInsts)[index];
    LOG_INFO("Subscribes:Write to fpga:chanbit:0x%x, index:%u, instId:%s", chanbit, index,
             name.c_str());
}

bool CZceFpgaServ::IsSubscribeOk(std::uint8_t type, std::uint16_t index, std::uint16_t shouldbe) {
    const std::lock_guard<std::mutex> lock(subscribe_mutex);
    const unsigned int value = ReadTableWord(TableRegs(type), index * ZCE_ENTRY_WORDS);
    const bool common = (value & shouldbe) != 0;
    if (!common) {
        LOG_WARN(
            "Attention! Maybe subscribed fail! Type %u, index:%u, shouldbe:0x%x, fpgavalue:0x%x,",
            type, index, shouldbe, value);
    }
    return common;
}

void CZceFpgaServ::ReadBackAllInst() {
    LOG_INFO("Already write into fpga, now read back!");
    for (const auto& [index, mask] : m_mapSglChanBit) {
        IsSubscribeOk(ZCE_TYPE_SGL, index, mask);
    }
    for (const auto& [index, mask] : m_mapCmbChanBit) {
        IsSubscribeOk(ZCE_TYPE_CMB, index, mask);
    }
}

void CZceFpgaServ::conToAscii(const char* name, unsigned int* words) {
    const std::size_t length = std::strlen(name);
    if (length > ZCE_NAME_BYTES) {
        LOG_WARN("The instrument name %s is longer than %u characters and is cut.", name,
                 ZCE_NAME_BYTES);
    }
    std::array<unsigned char, ZCE_NAME_BYTES> bytes{};
    std::copy_n(name, std::min<std::size_t>(length, bytes.size()), bytes.begin());
    for (unsigned int word = 0; word < ZCE_NAME_WORDS; ++word) {
        words[word] = 0;
        for (std::size_t at = word * sizeof(*words); at < (word + 1) * sizeof(*words); ++at) {
            words[word] = words[word] << 8U | bytes[at];
        }
    }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the operation takes its name by value
void CZceFpgaServ::SubsOneInstWithName(std::uint8_t type, std::string name, std::uint16_t index) {
    const std::lock_guard<std::mutex> lock(subscribe_mutex);
    const ZceTableRegs_t& regs = TableRegs(type);
    const unsigned int entry = index * ZCE_ENTRY_WORDS;
    // The present mask comes from the single-leg table for both types. Deliberate.
    const unsigned int mask =
        ReadTableWord(ZCE_REG_SGL_TABLE, entry) | 1U << (m_uiChannel % g_uiMaskShiftNum);
    WriteTableWord(regs, entry, mask);
    std::array<unsigned int, ZCE_NAME_WORDS> words{};
    conToAscii(name.c_str(), words.data());
    // The first characters go to word 1, unlike in the names that the board writes itself, and the
    // fourth word of the packing is not written. Deliberate.
    for (unsigned int word = 0; word + 1 < ZCE_NAME_WORDS; ++word) {
        WriteTableWord(regs, entry + ZCE_ENTRY_NAME_WORD + word, words[word]);
    }
}

void CZceFpgaServ::DebugLogAllInst() {}

}  // namespace Vela2_U50
