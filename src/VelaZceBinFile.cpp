#include "VelaZceBinFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "Utils/calendar.h"
#include "VelaZceBinFormat.h"
#include "log/elog.h"

namespace {

constexpr std::size_t g_uiInstLineSize = 127;  // at most, the line end included
constexpr std::size_t g_uiTimeLineSize = 256;

// The line of one instrument, cut where it would be longer than the format has it: a name that is
// too long then takes the line end with it.
class CInstLine {
  public:
    CInstLine(const std::string& name, unsigned short index) {
        char* const end = m_szLine + sizeof(m_szLine);
        char* at = std::to_chars(m_szLine, end, index).ptr;
        *at++ = ',';
        const auto room = static_cast<std::size_t>(end - at);
        at = std::copy_n(name.c_str(), std::min(std::strlen(name.c_str()), room), at);
        if (at != end) {
            *at++ = '\n';
        }
        m_uiSize = static_cast<std::size_t>(at - m_szLine);
    }
    std::string_view Text() const { return {m_szLine, m_uiSize}; }

  private:
    char m_szLine[g_uiInstLineSize];
    std::size_t m_uiSize;
};

// Whether opening the cache file cannot wait and reading it comes to an end: not for a FIFO, nor
// for reading a device. Sets errno where it is not so. Looked at before the opening, which is good
// enough in a directory of the user's own; a file that cannot be looked at is left to the opening.
bool IsFile(bool bReading) {
    struct stat status {};
    if (stat(ZCE_BIN_NAME, &status) != 0 || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode) ||
        (S_ISCHR(status.st_mode) && !bReading)) {
        return true;
    }
    errno = ENXIO;
    return false;
}

}  // namespace

unsigned long CZceSettleTime::g_uiContractSettleTm = 0;

CTernBinFile::CTernBinFile(std::map<std::string, unsigned short>& map, unsigned int channel)
    : m_mapInst(map), m_uiChannel(channel) {}

CTernBinFile::~CTernBinFile() {
    CloseFile();
}

bool CTernBinFile::OpenFile(const char* mode) {
    CloseFile();
    m_fp = IsFile(*mode == 'r') ? std::fopen(ZCE_BIN_NAME, mode) : nullptr;
    return m_fp != nullptr;
}

bool CTernBinFile::OpenForWriting() {
    if (OpenFile("w")) {
        return true;
    }
    LOG_WARN("Fail! Unable to open file %s,msg:%s", ZCE_BIN_NAME, std::strerror(errno));
    return false;
}

void CTernBinFile::CloseFile() {
    std::FILE* const fp = std::exchange(m_fp, nullptr);
    if (fp != nullptr) {
        std::fclose(fp);
    }
}

bool CTernBinFile::Put(std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), m_fp) == text.size();
}

bool CTernBinFile::PutTime(unsigned long time) {
    char szLine[g_uiTimeLineSize];
    std::snprintf(szLine, sizeof(szLine), "%s%lu\n", ZCE_BIN_TIME_PREFIX.data(), time);
    return Put(szLine);
}

bool CTernBinFile::Flush() {
    return std::fflush(m_fp) == 0;
}

// Said once: with the file closed nothing is written to it any more.
int CTernBinFile::FailWriting() {
    LOG_WARN("Fail! Unable to write file %s,msg:%s. No more is written to it.", ZCE_BIN_NAME,
             std::strerror(errno));
    CloseFile();
    return -1;
}

void CTernBinFile::Normal_FileInit() {
    OpenForWriting();
}

// The name by value is the interface as given.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int CTernBinFile::Normal_WriteInstToBin(std::string name, unsigned short index) {
    if (m_fp == nullptr) {
        return 0;
    }
    if (!Put(CInstLine(name, index).Text())) {
        return FailWriting();
    }
    LOG_INFO("Write to bin :index:%u,inst:%s,", index, name.c_str());
    return Flush() ? 0 : FailWriting();
}

int CTernBinFile::WriteEndToBin() {
    // The remainder: a time that was widened before is not widened twice.
    unsigned long& ulTime = CZceSettleTime::g_uiContractSettleTm;
    const unsigned long ulDate = VORBA2::LocalNow().value_or(VORBA2::LocalMoment_t{}).date;
    ulTime = ulDate * ZCE_BIN_DATE_UNIT + ulTime % ZCE_BIN_DATE_UNIT;
    if (m_fp == nullptr) {
        return 0;
    }
    if (!PutTime(ulTime) || !Put(ZCE_BIN_END_TAG)) {
        return FailWriting();
    }
    LOG_INFO("Write end tag to bin.");
    return Flush() ? 0 : FailWriting();
}

int CTernBinFile::Intrade_WrInstFromFpga() {
    if (!OpenForWriting()) {
        return -1;
    }
    const VORBA2::LocalMoment_t now = VORBA2::LocalNow().value_or(VORBA2::LocalMoment_t{});
    bool bWritten = PutTime(now.date * ZCE_BIN_DATE_UNIT + now.time);
    for (auto it = m_mapInst.cbegin(); bWritten && it != m_mapInst.cend(); ++it) {
        bWritten = Put(CInstLine(it->first, it->second).Text());
    }
    if (!bWritten) {
        return FailWriting();
    }
    return WriteEndToBin();
}
