// The reading of the instrument cache file. It may be torn, stale or not a cache file at all:
// nothing that stands in it is trusted.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "Utils/calendar.h"
#include "VelaZceBinFile.h"
#include "VelaZceBinFormat.h"
#include "log/elog.h"

namespace {

constexpr std::size_t g_uiMaxPiece = 255;  // characters read at once, line end included

// The creation times of the session that is running, by the local hour. Wider than the messages
// say, deliberately.
constexpr unsigned int g_uiLastDayTime = 145959;
constexpr unsigned long g_ulDayBegin = 80000;
constexpr unsigned long g_ulDayEnd = 102999;
constexpr unsigned long g_ulNightBegin = 200000;
constexpr unsigned long g_ulNightEnd = 219999;

// Reads up to and with the next line end, but at most g_uiMaxPiece characters: a longer line comes
// in pieces. False at the end of the file.
bool ReadPiece(std::FILE* fp, std::string& piece) {
    piece.clear();
    int iChar = 0;
    while (piece.size() < g_uiMaxPiece && iChar != '\n' && (iChar = std::getc(fp)) != EOF) {
        piece.push_back(static_cast<char>(iChar));
    }
    return !piece.empty();
}

// The next token of `rest` between commas (several in a row are one), which is taken off it; empty
// if there is none left.
std::string_view NextToken(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(','), rest.size()));
    const std::string_view token = rest.substr(0, rest.find(','));
    rest.remove_prefix(token.size());
    return token;
}

// Splits an instrument line. False if a token is missing or the name's has no line end; nothing
// else makes a line invalid: an index without digits is 0. A zero byte ends the text.
bool ParseInst(const char* line, std::string& name, unsigned short& index) {
    std::string_view rest = line;
    const std::string indexToken(NextToken(rest));
    const std::string_view nameToken = NextToken(rest);
    if (indexToken.empty() || nameToken.empty() || nameToken.back() != '\n') {
        return false;
    }
    index = static_cast<unsigned short>(std::strtoul(indexToken.c_str(), nullptr, 10));
    name = nameToken.substr(0, nameToken.size() - 1);
    return true;
}

}  // namespace

int CTernBinFile::Intrade_CheckAndGetAllInstFromBin() {
    if (!OpenFile("r")) {
        LOG_WARN("Cannot open file:%s, errmsg:%s", ZCE_BIN_NAME, std::strerror(errno));
        return -1;
    }
    const int iRet = CheckAndLoad();
    CloseFile();
    if (iRet == 0) {
        LOG_INFO("[channel:%d] Current bin total inst count:%u.", static_cast<int>(m_uiChannel),
                 static_cast<unsigned int>(m_mapInst.size()));
    }
    return iRet;
}

int CTernBinFile::Intrade_OpenFile(const char* path) {
    CloseFile();
    m_fp = std::fopen(path, "r");
    return m_fp == nullptr ? -1 : 0;
}

int CTernBinFile::CheckAndLoad() {
    if (!Intrade_IsBinComplete()) {
        // Names the time's prefix, not the end tag it misses: deliberate.
        LOG_WARN(" %s not found in the file. bin file  is not complete.",
                 ZCE_BIN_TIME_PREFIX.data());
        LOG_WARN("Bin file is not complete.");
        return -1;
    }
    if (Intrade_ExtractBinCreTime() != 0) {
        LOG_WARN("Bin time check fail.");
        return -1;
    }
    if (Intrade_ChkBinTimeValidate() != 0) {
        LOG_WARN("Bin is not validate");
        return -1;
    }
    LOG_INFO("Bin is validate");
    if (Intrade_GetAllInstFromBin() != 0) {
        LOG_WARN("Fail! load to map fail");
        return -1;
    }
    return 0;
}

bool CTernBinFile::FindLine(std::string_view prefix, std::string& text) {
    if (m_fp == nullptr) {
        return false;
    }
    std::rewind(m_fp);
    bool bLineBegins = true;
    for (std::string piece; ReadPiece(m_fp, piece); bLineBegins = piece.back() == '\n') {
        if (bLineBegins && piece.starts_with(prefix)) {
            text = piece;
            return true;
        }
    }
    return false;
}

bool CTernBinFile::Intrade_IsBinComplete() {
    std::string text;
    return FindLine(ZCE_BIN_END_TAG, text);
}

int CTernBinFile::Intrade_ExtractBinCreTime() {
    std::string text;
    if (!FindLine(ZCE_BIN_TIME_PREFIX, text)) {
        LOG_WARN("Error: '%s' not found in the file.\n", ZCE_BIN_TIME_PREFIX.data());
        return -1;
    }
    m_ulCreTime = std::strtoul(text.c_str() + ZCE_BIN_TIME_PREFIX.size(), nullptr, 10);
    LOG_INFO("%s%lu", ZCE_BIN_TIME_PREFIX.data(), m_ulCreTime);
    return 0;
}

int CTernBinFile::Intrade_ChkBinTimeValidate() {
    const std::optional<VORBA2::LocalMoment_t> known = VORBA2::LocalNow();
    const VORBA2::LocalMoment_t now = known.value_or(VORBA2::LocalMoment_t{});
    const unsigned long ulNow = now.date * ZCE_BIN_DATE_UNIT + now.time;
    const bool bNight = now.time > g_uiLastDayTime;
    const unsigned long ulBegin = bNight ? g_ulNightBegin : g_ulDayBegin;
    const unsigned long ulEnd = bNight ? g_ulNightEnd : g_ulDayEnd;
    const unsigned long ulTime = m_ulCreTime % ZCE_BIN_DATE_UNIT;
    if (known && m_ulCreTime / ZCE_BIN_DATE_UNIT == now.date && ulBegin <= ulTime &&
        ulTime <= ulEnd) {
        return 0;
    }
    if (bNight) {
        LOG_WARN(
            "BinCreTime is not in the current date's 8-9 PM range. current time:%lu, Bintime:%lu.",
            ulNow, m_ulCreTime);
    } else {
        LOG_WARN(
            "BinCreTime is not in the current date's 8-9 AM range.current time:%lu, bintime:%lu.",
            ulNow, m_ulCreTime);
    }
    return -1;
}

int CTernBinFile::Intrade_GetAllInstFromBin() {
    if (m_fp == nullptr) {
        return -1;
    }
    std::rewind(m_fp);
    std::string piece;
    std::string name;
    unsigned short usIndex = 0;
    unsigned short usLine = 0;  // counts pieces; wraps, deliberately
    while (ReadPiece(m_fp, piece)) {
        ++usLine;
        if (!ParseInst(piece.c_str(), name, usIndex)) {
            LOG_WARN("Invalid format!we skip line %d: %s", usLine, piece.c_str());
            continue;
        }
        m_mapInst[name] = usIndex;
        LOG_INFO("Loading from bin: Index:%u,Instructmentid:%s, lineNumber:%u.", usIndex,
                 name.c_str(), usLine);
    }
    if (std::ferror(m_fp) != 0) {
        return -1;
    }
    LOG_INFO("Loading over!");
    return 0;
}
