#pragma once

// What a start of the master decides by the time of day, and how long its steps take: the rules
// alone, which neither read the board nor wait. Times of day are numbers hhmmss, in the host's
// local time where nothing else is said.
namespace Vela2_U50 {

// The parse counters stand still if so many further readings, so far apart, equal the first one.
constexpr unsigned int ZCE_COUNTER_CHECKS = 2;
constexpr unsigned int ZCE_COUNTER_CHECK_SECONDS = 1;
// How long a reset is asserted.
constexpr unsigned int ZCE_RESET_SECONDS = 1;
// The wait after a reset when the cache file supplied the list.
constexpr unsigned int ZCE_BIN_RESET_WAIT_SECONDS = 120;

// Times of day (both bounds inclusive) at which a board of today's date is reset all the same;
// where bStandStill is set only if its parse counters stand still. Tried in this order: reading the
// counters takes seconds, so they are not looked at before their row is reached.
struct ZceRstWindow_t {
    unsigned int uiBegin;
    unsigned int uiEnd;
    bool bStandStill;
};
constexpr ZceRstWindow_t ZCE_RST_WINDOWS[] = {
    {0, 80000, false},       {90000, 101450, true},  {103000, 113000, true},
    {133000, 160000, true},  {210000, 233000, true}, {160000, 201500, false},
    {233000, 235959, false},
};

// Whether a board of today's date is to be reset at `time`. standStill() tells whether its parse
// counters stand still; it is asked in the rows that want to know, and in no other.
template <typename StandStill>
bool ZceIsResetDue(unsigned int time, StandStill&& standStill) {
    for (const ZceRstWindow_t& window : ZCE_RST_WINDOWS) {
        if (window.uiBegin <= time && time <= window.uiEnd &&
            (!window.bStandStill || standStill())) {
            return true;
        }
    }
    return false;
}

// The time of day to rely on: the board's if it is near the host's, else the host's. A board time
// of 0, which stands for none, is compared as well: the first minutes after midnight give 0.
unsigned int ZceTimeToRelyOn(unsigned int boardTime, unsigned int hostTime);

// Whether the call auction before the session is over by the exchange's time; the host's time says
// which session.
bool ZceIsAuctionOver(unsigned int exchangeTime, unsigned int hostTime);

// Minutes that the board gets to gather the exchange's list before its tables are read.
// boardTime: as ZceTimeToRelyOn gives it; bReset: the board was reset in this start.
unsigned int ZceExpireMinutes(unsigned int hostTime, unsigned int boardTime, bool bReset);

}  // namespace Vela2_U50
