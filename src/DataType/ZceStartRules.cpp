#include "DataType/ZceStartRules.h"

namespace Vela2_U50 {

namespace {

// The board's time is relied on when its hhmmss number and the host's differ by at most 1799
// (the difference of the numbers, not seconds).
constexpr unsigned int g_uiTimeDiffMax = 1799;

// The call auction is over from ten seconds after its end on; the width is one of hhmmss numbers.
constexpr unsigned int g_uiDayExpireBegin = 85510;     // to 93000
constexpr unsigned int g_uiNightExpireBegin = 205510;  // to 213000
constexpr unsigned int g_uiExpireWidth = 7490;
constexpr unsigned int g_uiLastDayTime = 145959;

// What a board that was reset gets to gather the exchange's broadcast.
constexpr unsigned int g_uiResetWaitMinutes = 4;
constexpr unsigned int g_uiBreakWaitMinutes = 20;
// The host's time and the board's time that mean the morning break, bounds inclusive.
constexpr unsigned int g_uiMorningBegin = 90001;
constexpr unsigned int g_uiMorningEnd = 119999;
constexpr unsigned int g_uiBreakBegin = 101450;
constexpr unsigned int g_uiBreakEnd = 103000;

bool IsWithin(unsigned int value, unsigned int first, unsigned int last) {
    return value >= first && value <= last;
}

}  // namespace

// Without a board time the same comparison is made with 0. Deliberate.
unsigned int ZceTimeToRelyOn(unsigned int boardTime, unsigned int hostTime) {
    const bool near = boardTime - hostTime + g_uiTimeDiffMax <= 2 * g_uiTimeDiffMax;
    return near ? boardTime : hostTime;
}

bool ZceIsAuctionOver(unsigned int exchangeTime, unsigned int hostTime) {
    const unsigned int uiBegin =
        hostTime > g_uiLastDayTime ? g_uiNightExpireBegin : g_uiDayExpireBegin;
    return exchangeTime >= uiBegin && exchangeTime - uiBegin <= g_uiExpireWidth;
}

unsigned int ZceExpireMinutes(unsigned int hostTime, unsigned int boardTime, bool bReset) {
    const bool inBreak = IsWithin(hostTime, g_uiMorningBegin, g_uiMorningEnd) &&
                         IsWithin(boardTime, g_uiBreakBegin, g_uiBreakEnd);
    if (!bReset) {
        return 0;
    }
    return inBreak ? g_uiBreakWaitMinutes : g_uiResetWaitMinutes;
}

}  // namespace Vela2_U50
