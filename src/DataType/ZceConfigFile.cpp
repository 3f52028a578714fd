#include "DataType/ZceConfigFile.h"

#include <sched.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "DataType/ZceIniGuard.h"
#include "DataType/ZceNumbers.h"
#include "DataType/ZceRegMap.h"
#include "VelaZceUtils.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

constexpr unsigned int g_uiChannelFail = 0xFFFFFFFF;
constexpr unsigned int g_uiBusNum = 5;  // boards of a machine

constexpr const char* g_szKeyDevice = "config:device";
constexpr const char* g_szKeyCpuCore = "config:cpucore";
constexpr const char* g_szKeyLevel1 = "config:czce_level1";
constexpr const char* g_szKeyLevel2 = "config:czce_level2";
constexpr std::string_view g_strDevicePrefix = "xilinx";

// What is said of a feed switch word, which is the index.
struct FeedReport_t {
    std::uint8_t level;
    const char* text;
};
constexpr std::array<FeedReport_t, 4> g_arrFeedReports = {{
    {ELOG_LVL_WARN, "L1 and L5 switch off! Software won't get data!"},
    {ELOG_LVL_INFO, "L1 switch off and L5 switch on."},
    {ELOG_LVL_INFO, "L1 switch on and L5 switch off."},
    {ELOG_LVL_INFO, "L1 and L5 switch on."},
}};

// What a text that is not there is printed as.
const char* Shown(const char* text) {
    return text == nullptr ? "(null)" : text;
}

// The two numbers of "xilinx<bus>:<channel>". A number that is there is stored even if the other
// is not. A number beyond an int ends at the int's limit, which no board and no channel has.
bool ParseDevice(const std::string& device, unsigned int& bus, unsigned int& channel) {
    if (!device.starts_with(g_strDevicePrefix)) {
        return false;
    }
    std::array<long, 2> numbers{};
    const std::size_t read = ScanNumbers(device.c_str() + g_strDevicePrefix.size(), 10, ':',
                                         numbers.data(), numbers.size());
    const std::array<unsigned int*, 2> targets = {&bus, &channel};
    for (std::size_t number = 0; number < read; ++number) {
        *targets[number] = static_cast<unsigned int>(
            static_cast<int>(std::clamp<long>(numbers[number], INT_MIN, INT_MAX)));
    }
    return read == numbers.size();
}

int IntOf(const dictionary* loaded, const char* key, int absent) {
    // A section of the key's name is an entry without a value, which iniparser_getint would follow.
    return iniparser_getstring(loaded, key, nullptr) == nullptr
               ? absent
               : iniparser_getint(loaded, key, absent);
}

// A feed's switch: only this exact text turns the feed off.
bool IsDisabled(const char* value) {
    return value != nullptr && std::strcmp(value, "disabled") == 0;
}

void LogSwitch(const char* key, const char* value) {
    if (value != nullptr) {
        LOG_INFO("%s=%s.", key, value);
    }
}

}  // namespace

unsigned int CZceConfigFile::m_SwitchReg = 0;
std::string CZceConfigFile::m_ini_path;

CZceConfigFile::CZceConfigFile(std::string path, IDrv* drv, CVelaZceMdApiImpl* api)
    : m_strPath(std::move(path)), m_pDrv(drv), m_pApi(api) {}

CZceConfigFile::~CZceConfigFile() {
    if (m_pDict != nullptr) {
        iniparser_freedict(m_pDict);
    }
}

int CZceConfigFile::Init() {
    if (m_strPath.empty()) {
        LOG_ERROR("Null config name");
        return -1;
    }
    dictionary* loaded = ZceIniLoad(m_strPath.c_str());
    if (loaded == nullptr) {
        LOG_ERROR("Failed to load file %s", m_strPath.c_str());
        return -1;
    }
    if (m_pDict != nullptr) {
        iniparser_freedict(m_pDict);
    }
    m_pDict = loaded;
    if (GetDmaChannel() == g_uiChannelFail) {
        LOG_ERROR("Get dma chan fail!");
        return -1;
    }
    LOG_INFO("Successful load confie file %s", m_strPath.c_str());
    return 0;
}

const char* CZceConfigFile::GetString(const std::string& key) const {
    return iniparser_getstring(m_pDict, key.c_str(), nullptr);
}

int CZceConfigFile::GetInt(const char* key, int absent) const {
    return IntOf(m_pDict, key, absent);
}

unsigned int CZceConfigFile::GetDmaChannel() {
    if (m_uiChannel != ZCE_CHANNEL_UNKNOWN) {
        return m_uiChannel;
    }
    const char* device = GetString(g_szKeyDevice);
    std::string lowered = device == nullptr ? "" : device;
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    // Straight into the fields: what is rejected below stays stored. Deliberate.
    if (ParseDevice(lowered, m_uiBusId, m_uiChannel) && m_uiChannel < ZCE_CHANNEL_NUM &&
        m_uiBusId < g_uiBusNum) {
        m_strDmaChanName = "CUSTOM_CHAN" + std::to_string(m_uiChannel) + "_DATA";
        return m_uiChannel;
    }
    std::printf("Error! Invalid parameter! Input: %s \n", Shown(device));
    return g_uiChannelFail;
}

unsigned int CZceConfigFile::GetBusId() {
    const char* device = GetString(g_szKeyDevice);
    unsigned int channel = 0;
    // Not lowercased here, unlike in GetDmaChannel. Deliberate.
    if (device != nullptr && ParseDevice(device, m_uiBusId, channel)) {
        LOG_INFO("[channel:%d] Busid:%d, ChannelId:%d.", static_cast<int>(m_uiChannel),
                 static_cast<int>(m_uiBusId), static_cast<int>(channel));
    } else {
        LOG_ERROR("[channel:%d] Failed to parse the input string:%s", static_cast<int>(m_uiChannel),
                  Shown(device));
    }
    return m_uiBusId;
}

int ZceCpuCoreOf(const dictionary* loaded) {
    return IntOf(loaded, g_szKeyCpuCore, ZCE_NO_CPU_CORE);
}

void CZceConfigFile::BindCpu() {
    const int channel = static_cast<int>(m_uiChannel);
    const int cpu = ZceCpuCoreOf(m_pDict);
    if (cpu == ZCE_NO_CPU_CORE) {
        LOG_INFO("[channel:%d] Doesn't need to bind cpu.", channel);
        return;
    }
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    if (static_cast<unsigned int>(cpu) < CPU_SETSIZE) {
        CPU_SET(static_cast<unsigned int>(cpu), &cpus);
    }
    if (sched_setaffinity(0, sizeof(cpus), &cpus) == -1) {
        LOG_INFO("[channel:%d] Set CPU[%d] affinity failed.", channel, cpu);
    } else {
        LOG_INFO("[channel:%d] Set CPU[%d] affinity success.", channel, cpu);
    }
}

void CZceConfigFile::ShowVersion() {
    LOG_INFO("Current soft version %s.", GetUpDmaLibVersion());
}

void CZceConfigFile::DumpDevInfo() {
    unsigned int feeds = ZCE_SWITCH_L1 | ZCE_SWITCH_L5;
    const char* const level1 = GetString(g_szKeyLevel1);
    LogSwitch(g_szKeyLevel1, level1);
    if (IsDisabled(level1)) {
        feeds &= ~ZCE_SWITCH_L1;
    }
    const char* const level2 = GetString(g_szKeyLevel2);
    LogSwitch(g_szKeyLevel2, level2);
    if (IsDisabled(level2)) {
        feeds &= ~ZCE_SWITCH_L5;
    }
    FPGA_LOG(g_arrFeedReports[feeds].level, "%s", g_arrFeedReports[feeds].text);
    m_SwitchReg = feeds;
}

}  // namespace Vela2_U50
