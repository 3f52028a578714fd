// The reading of the instrument cache file. It may be torn, stale or not a cache file at all:
// nothing that stands in it is trusted.

#include "VelaZceBinRead.h"

#include <algorithm>
#include <cstdlib>

#include "VelaZceBinFormat.h"

namespace {

constexpr std::size_t g_uiMaxPiece = 255;  // characters read at once, line end included

// Wider than the messages say, deliberately.
constexpr unsigned int g_uiLastDayTime = 145959;
constexpr ZceBinSession_t g_stDay = {false, 80000, 102999};
constexpr ZceBinSession_t g_stNight = {true, 200000, 219999};

// The next token of `rest` between commas (several in a row are one), which is taken off it; empty
// if there is none left.
std::string_view NextToken(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(','), rest.size()));
    const std::string_view token = rest.substr(0, rest.find(','));
    rest.remove_prefix(token.size());
    return token;
}

}  // namespace

bool ZceBinReadPiece(std::FILE* fp, std::string& piece) {
    piece.clear();
    int iChar = 0;
    while (piece.size() < g_uiMaxPiece && iChar != '\n' && (iChar = std::getc(fp)) != EOF) {
        piece.push_back(static_cast<char>(iChar));
    }
    return !piece.empty();
}

bool ZceBinFindLine(std::FILE* fp, std::string_view prefix, std::string& text) {
    std::rewind(fp);
    bool bLineBegins = true;
    for (std::string piece; ZceBinReadPiece(fp, piece); bLineBegins = piece.back() == '\n') {
        if (bLineBegins && piece.starts_with(prefix)) {
            text = piece;
            return true;
        }
    }
    return false;
}

bool ZceBinParseInst(const char* line, std::string& name, unsigned short& index) {
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

unsigned long ZceBinTimeOf(const std::string& line) {
    return std::strtoul(line.c_str() + ZCE_BIN_TIME_PREFIX.size(), nullptr, 10);
}

ZceBinSession_t ZceBinSessionAt(unsigned int time) {
    return time > g_uiLastDayTime ? g_stNight : g_stDay;
}

bool ZceBinIsOfSession(unsigned long creTime, const VORBA2::LocalMoment_t& now) {
    const ZceBinSession_t session = ZceBinSessionAt(now.time);
    const unsigned long ulTime = creTime % ZCE_BIN_DATE_UNIT;
    return creTime / ZCE_BIN_DATE_UNIT == now.date && session.ulBegin <= ulTime &&
           ulTime <= session.ulEnd;
}
