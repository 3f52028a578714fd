// The loading of the instrument cache file in a start, each step with its lines in the log.

#include <cerrno>
#include <cstring>
#include <optional>

#include "Utils/calendar.h"
#include "VelaZceBinFile.h"
#include "VelaZceBinFormat.h"
#include "VelaZceBinRead.h"
#include "log/elog.h"

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
    return m_fp != nullptr && ZceBinFindLine(m_fp, prefix, text);
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
    m_ulCreTime = ZceBinTimeOf(text);
    LOG_INFO("%s%lu", ZCE_BIN_TIME_PREFIX.data(), m_ulCreTime);
    return 0;
}

int CTernBinFile::Intrade_ChkBinTimeValidate() {
    const std::optional<VORBA2::LocalMoment_t> known = VORBA2::LocalNow();
    const VORBA2::LocalMoment_t now = known.value_or(VORBA2::LocalMoment_t{});
    const unsigned long ulNow = now.date * ZCE_BIN_DATE_UNIT + now.time;
    if (known && ZceBinIsOfSession(m_ulCreTime, now)) {
        return 0;
    }
    if (ZceBinSessionAt(now.time).bNight) {
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
    while (ZceBinReadPiece(m_fp, piece)) {
        ++usLine;
        if (!ZceBinParseInst(piece.c_str(), name, usIndex)) {
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
