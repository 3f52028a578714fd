#include <array>
#include <cstddef>

#include "DataType/ZceConfigFile.h"
#include "DataType/ZceNumbers.h"
#include "DrvEnyx/IDrv.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

struct NetFeed_t {
    const char* name;
    unsigned long switchReg;
    const char* openText;
};
constexpr std::array<NetFeed_t, 2> netFeeds = {{
    {"L5", ZCE_REG_L5_NET_SWITCH, "0x300 write 1, L5 net version switch open!"},
    {"L1", ZCE_REG_L1_NET_SWITCH, "0x310 write 1, L1 net version switch open!"},
}};

// One end of a feed: its keys and its registers.
struct NetGroup_t {
    std::size_t feed;  // index in netFeeds
    const char* macKey;
    const char* ipKey;
    const char* portKey;
    ZceNetAddrRegs_t regs;
};
constexpr std::array<NetGroup_t, 4> netGroups = {{
    {0, "config:L5_DSTMAC", "config:L5_DSTIP", "config:L5_DSTPORT", ZCE_REG_L5_DST},
    {0, "config:L5_SRCMAC", "config:L5_SRCIP", "config:L5_SRCPORT", ZCE_REG_L5_SRC},
    {1, "config:L1_DSTMAC", "config:L1_DSTIP", "config:L1_DSTPORT", ZCE_REG_L1_DST},
    {1, "config:L1_SRCMAC", "config:L1_SRCIP", "config:L1_SRCPORT", ZCE_REG_L1_SRC},
}};

constexpr std::size_t macBytes = 6;
constexpr std::size_t macUpperBytes = 2;
constexpr std::size_t ipBytes = 4;

// Each number cut to its low 8 bits; what could not be read is 0. A malformed address is written
// and counted like any other. Deliberate.
template <std::size_t Count>
std::array<unsigned char, Count> ParseBytes(const char* text, int base, char separator) {
    std::array<long, Count> numbers{};
    ScanNumbers(text, base, separator, numbers.data(), numbers.size());
    std::array<unsigned char, Count> bytes{};
    for (std::size_t at = 0; at < Count; ++at) {
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

// An address key that may be absent; what is there is logged.
const char* Announced(const char* key, const char* value) {
    if (value != nullptr) {
        LOG_INFO("%s=%s", key, value);
    }
    return value;
}

}  // namespace

void CZceConfigFile::CfgNetReg() {
    std::array<unsigned int, netFeeds.size()> items{};
    for (const NetGroup_t& group : netGroups) {
        if (const char* mac = Announced(group.macKey, GetString(group.macKey)); mac != nullptr) {
            const auto bytes = ParseBytes<macBytes>(mac, 16, ':');
            m_pDrv->WriteInt32(group.regs.macUpper, Pack(bytes.data(), macUpperBytes));
            m_pDrv->WriteInt32(group.regs.macLower,
                               Pack(bytes.data() + macUpperBytes, macBytes - macUpperBytes));
            ++items[group.feed];
        }
        if (const char* ip = Announced(group.ipKey, GetString(group.ipKey)); ip != nullptr) {
            m_pDrv->WriteInt32(group.regs.ip,
                               Pack(ParseBytes<ipBytes>(ip, 10, '.').data(), ipBytes));
            ++items[group.feed];
        }
        if (const auto port = static_cast<unsigned int>(GetInt(group.portKey, 0)); port != 0) {
            LOG_INFO("%s=%u", group.portKey, port);
            m_pDrv->WriteInt32(group.regs.port, port);
            ++items[group.feed];
        }
    }
    for (std::size_t at = 0; at < netFeeds.size(); ++at) {
        if (items[at] == ZCE_NET_ITEM_NUM) {
            m_pDrv->WriteInt32(netFeeds[at].switchReg, ZCE_NET_SWITCH_OPEN);
            LOG_INFO("%s", netFeeds[at].openText);
        }
    }
    for (std::size_t at = 0; at < netFeeds.size(); ++at) {
        if (items[at] > 0 && items[at] < ZCE_NET_ITEM_NUM) {
            LOG_INFO("Netfunction: %s config item count is %u. Maybe lack item! please check! ",
                     netFeeds[at].name, items[at]);
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
