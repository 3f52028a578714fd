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

#include "DataType/ZceNumbers.h"
#include "VelaZceUtils.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

constexpr const char* keyDevice = "config:device";
constexpr const char* keyCpuCore = "config:cpucore";
constexpr const char* keyLevel1 = "config:czce_level1";
constexpr const char* keyLevel2 = "config:czce_level2";
constexpr std::string_view devicePrefix = "xilinx";
constexpr int noCpuCore = -1;

// What is said of a feed switch word, which is the index.
struct FeedReport_t {
    std::uint8_t level;
    const char* text;
};
constexpr std::array<FeedReport_t, 4> feedReports = {{
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
    if (!device.starts_with(devicePrefix)) {
        return false;
    }
    std::array<long, 2> numbers{};
    const std::size_t read =
        ScanNumbers(device.c_str() + devicePrefix.size(), 10, ':', numbers.data(), numbers.size());
    const std::array<unsigned int*, 2> targets = {&bus, &channel};
    for (std::size_t number = 0; number < read; ++number) {
        *targets[number] = static_cast<unsigned int>(
            static_cast<int>(std::clamp<long>(numbers[number], INT_MIN, INT_MAX)));
    }
    return read == numbers.size();
}

// The value of a feed's switch: only this exact text turns the feed off.
bool IsDisabled(const char* key, const char* value) {
    if (value == nullptr) {
        return false;
    }
    LOG_INFO("%s=%s.", key, value);
    return std::strcmp(value, "disabled") == 0;
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
    dictionary* loaded = iniparser_load(m_strPath.c_str());
    if (loaded == nullptr) {
        LOG_ERROR("Failed to load file %s", m_strPath.c_str());
        return -1;
    }
    if (m_pDict != nullptr) {
        iniparser_freedict(m_pDict);
    }
    m_pDict = loaded;
    if (GetDmaChannel() == ZCE_CHANNEL_FAIL) {
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
    // A section of the key's name is an entry without a value, which iniparser_getint would follow.
    return GetString(key) == nullptr ? absent : iniparser_getint(m_pDict, key, absent);
}

unsigned int CZceConfigFile::GetDmaChannel() {
    if (m_uiChannel != ZCE_CHANNEL_UNKNOWN) {
        return m_uiChannel;
    }
    const char* device = GetString(keyDevice);
    std::string lowered = device == nullptr ? "" : device;
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    // Straight into the fields: what is rejected below stays stored. Deliberate.
    if (ParseDevice(lowered, m_uiBusId, m_uiChannel) && m_uiChannel < ZCE_CHANNEL_NUM &&
        m_uiBusId < ZCE_BUS_NUM) {
        m_strDmaChanName = "CUSTOM_CHAN" + std::to_string(m_uiChannel) + "_DATA";
        return m_uiChannel;
    }
    std::printf("Error! Invalid parameter! Input: %s \n", Shown(device));
    return ZCE_CHANNEL_FAIL;
}

unsigned int CZceConfigFile::GetBusId() {
    const char* device = GetString(keyDevice);
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

void CZceConfigFile::BindCpu() {
    const int channel = static_cast<int>(m_uiChannel);
    const int cpu = GetInt(keyCpuCore, noCpuCore);
    if (cpu == noCpuCore) {
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
    if (IsDisabled(keyLevel1, GetString(keyLevel1))) {
        feeds &= ~ZCE_SWITCH_L1;
    }
    if (IsDisabled(keyLevel2, GetString(keyLevel2))) {
        feeds &= ~ZCE_SWITCH_L5;
    }
    FPGA_LOG(feedReports[feeds].level, "%s", feedReports[feeds].text);
    m_SwitchReg = feeds;
}

}  // namespace Vela2_U50
