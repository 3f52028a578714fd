#include <array>
#include <cstddef>

#include "DataType/ZceConfigFile.h"
#include "DataType/ZceNumbers.h"
#include "DataType/ZceRegMap.h"
#include "DrvEnyx/IDrv.h"
#include "log/elog.h"

namespace Vela2_U50 {

// One end of a feed: its keys and its registers.
struct ZceNetGroup_t {
    std::size_t feed;  // index in g_arrFeeds
    const char* macKey;
    const char* ipKey;
    const char* portKey;
    ZceNetAddrRegs_t regs;
};

namespace {

// Items of a feed: MAC, IP and port of destination and source.
constexpr unsigned int g_uiItemNum = 6;

struct NetFeed_t {
    const char* name;
    unsigned long switchReg;
    const char* openText;
};
constexpr std::array<NetFeed_t, 2> g_arrFeeds = {{
    {"L5", ZCE_REG_L5_NET_SWITCH, "0x300 write 1, L5 net version switch open!"},
    {"L1", ZCE_REG_L1_NET_SWITCH, "0x310 write 1, L1 net version switch open!"},
}};

constexpr std::array<ZceNetGroup_t, 4> g_arrGroups = {{
    {0, "config:L5_DSTMAC", "config:L5_DSTIP", "config:L5_DSTPORT", ZCE_REG_L5_DST},
    {0, "config:L5_SRCMAC", "config:L5_SRCIP", "config:L5_SRCPORT", ZCE_REG_L5_SRC},
    {1, "config:L1_DSTMAC", "config:L1_DSTIP", "config:L1_DSTPORT", ZCE_REG_L1_DST},
    {1, "config:L1_SRCMAC", "config:L1_SRCIP", "config:L1_SRCPORT", ZCE_REG_L1_SRC},
}};

constexpr std::size_t g_uiMacBytes = 6;
constexpr std::size_t g_uiMacUpperBytes = 2;
constexpr std::size_t g_uiIpBytes = 4;

// Each number cut to its low 8 bits; what could not be read is 0. A malformed address is written
// and counted like any other. Deliberate.
template <std::size_t uiCount>
std::array<unsigned char, uiCount> ParseBytes(const char* text, int base, char separator) {
    std::array<long, uiCount> numbers{};
    ScanNumbers(text, base, separator, numbers.data(), numbers.size());
    std::array<unsigned char, uiCount> bytes{};
    for (std::size_t at = 0; at < uiCount; ++at) {
        bytes[at] = static_cast<unsigned char>(numbers[at]);
    }
    return bytes;
}

// The bytes as one number, the first in the most significant place.
unsigned int Pack(const unsigned char* bytes, std::size_t count) {
    unsigned int value = 0;
    for (std::size_t at = 0; at < count; ++at) {
        value = value << 8U | bytes[at];
    }
    return value;
}

}  // namespace

// One end of a feed; returns how many of its three items are there.
unsigned int CZceConfigFile::CfgNetGroup(const ZceNetGroup_t& group) {
    unsigned int items = 0;
    if (const char* mac = GetString(group.macKey); mac != nullptr) {
        LOG_INFO("%s=%s", group.macKey, mac);
        const auto bytes = ParseBytes<g_uiMacBytes>(mac, 16, ':');
        m_pDrv->WriteInt32(group.regs.macUpper, Pack(bytes.data(), g_uiMacUpperBytes));
        m_pDrv->WriteInt32(group.regs.macLower, Pack(bytes.data() + g_uiMacUpperBytes,
                                                     g_uiMacBytes - g_uiMacUpperBytes));
        ++items;
    }
    if (const char* ip = GetString(group.ipKey); ip != nullptr) {
        LOG_INFO("%s=%s", group.ipKey, ip);
        m_pDrv->WriteInt32(group.regs.ip,
                           Pack(ParseBytes<g_uiIpBytes>(ip, 10, '.').data(), g_uiIpBytes));
        ++items;
    }
    if (const auto port = static_cast<unsigned int>(GetInt(group.portKey, 0)); port != 0) {
        LOG_INFO("%s=%u", group.portKey, port);
        m_pDrv->WriteInt32(group.regs.port, port);
        ++items;
    }
    return items;
}

void CZceConfigFile::CfgNetReg() {
    std::array<unsigned int, g_arrFeeds.size()> items{};
    for (const ZceNetGroup_t& group : g_arrGroups) {
        items[group.feed] += CfgNetGroup(group);
    }
    for (std::size_t at = 0; at < g_arrFeeds.size(); ++at) {
        if (items[at] == g_uiItemNum) {
            m_pDrv->WriteInt32(g_arrFeeds[at].switchReg, ZCE_NET_SWITCH_OPEN);
            LOG_INFO("%s", g_arrFeeds[at].openText);
        }
    }
    for (std::size_t at = 0; at < g_arrFeeds.size(); ++at) {
        if (items[at] > 0 && items[at] < g_uiItemNum) {
            LOG_INFO("Netfunction: %s config item count is %u. Maybe lack item! please check! ",
                     g_arrFeeds[at].name, items[at]);
        }
    }
}

void CZceConfigFile::PrintSwitchStatus() {
    unsigned int status = 0;
    m_pDrv->ReadInt32(ZCE_REG_LINK_STATUS, status);
    LOG_INFO("Fiber linkstatus 0x103:0x%x.", status);
    if ((status & ZCE_LINK_FIBRE_0) == 0) {
        LOG_ERROR(
            "The fiber 0 is not connected, status is incorrect! Please modify or contact technical "
            "support!");
    }
    if (status != ZCE_LINK_ALL) {
        LOG_WARN("Warning! The fiber optic cable is not fully connected.");
    }
}

}  // namespace Vela2_U50
