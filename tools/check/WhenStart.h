#pragma once

#include <vector>

// What a start of the master does at a moment of the day, by the library's own rules. Moments are
// seconds since the midnight before the start, 86400 and more on the next day. The host's clock and
// the board's are taken to agree.
namespace ZceCheck {

constexpr unsigned int DAY_SECONDS = 86'400;
constexpr unsigned int MINUTE_SECONDS = 60;

// How long the exchange takes to send its whole list once, in seconds, if nothing else is said. It
// decides how early before the end of the auction a start must be.
constexpr unsigned int DEFAULT_ROUND = 60;

// Time of day hhmmss of a second, and the reverse.
unsigned int TimeOfSecond(unsigned int second);
unsigned int SecondOfTime(unsigned int time);

// How a start finds the board.
enum class BoardState {
    OtherDay,  // its date is not today's: switched on, or not used since yesterday
    Idle,      // used today, it does not decode
    Moving,    // used today, it decodes, and its parse counters move
    Still,     // used today, it decodes, and its parse counters stand still
};
constexpr BoardState BOARD_STATES[] = {BoardState::OtherDay, BoardState::Idle, BoardState::Moving,
                                       BoardState::Still};

// How the start comes by the instrument list.
enum class ListWay {
    Learn,    // from the exchange's broadcast, until the call auction is over
    TooLate,  // so too, but only a part of it still comes, or nothing
    Recover,  // from the cache file or the board's tables
};

struct StartPlan {
    unsigned int looks = 0;  // when it looks at the board
    bool bLooksAtCounters = false;
    bool bReset = false;
    unsigned int ready = 0;  // when the board is kept or reset, and the list's turn comes
    ListWay way = ListWay::Learn;
    unsigned int auctionEnd = 0;      // Learn, TooLate: when the auction is found over
    unsigned int waitWithBin = 0;     // Recover: seconds that it waits with a cache file of the
    unsigned int waitWithoutBin = 0;  // session, and without one
    bool operator==(const StartPlan&) const = default;
};

// The start that is called at the second `call`. round: as DEFAULT_ROUND.
StartPlan PlanStart(unsigned int call, BoardState state, unsigned int round = DEFAULT_ROUND);

// The first second from `call` on at which a start is not too late on a board in any of the states.
unsigned int GoodFrom(unsigned int call, const std::vector<BoardState>& states,
                      unsigned int round = DEFAULT_ROUND);

}  // namespace ZceCheck
