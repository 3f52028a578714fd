#include "check/WhenStart.h"

#include <algorithm>

#include "DataType/ZceStartRules.h"
#include "DrvEnyx/drvCore.h"
#include "Utils/calendar.h"

namespace ZceCheck {

namespace {

// Seconds of the day from which on a packet finds the auction over. In trading time a packet is
// not looked at.
bool FindsAuctionOver(unsigned int second) {
    const unsigned int time = TimeOfSecond(second);
    return Vela2_U50::ZceIsAuctionOver(time, time) && !VORBA2::IsTradeTime(time);
}

// The seconds of a day at which an auction comes to be over.
const std::vector<unsigned int>& AuctionEnds() {
    static const std::vector<unsigned int> ends = [] {
        std::vector<unsigned int> found;
        bool bBefore = FindsAuctionOver(DAY_SECONDS - 1);
        for (unsigned int second = 0; second < DAY_SECONDS; ++second) {
            const bool bOver = FindsAuctionOver(second);
            if (bOver && !bBefore) {
                found.push_back(second);
            }
            bBefore = bOver;
        }
        return found;
    }();
    return ends;
}

// The first second from `second` on at which a packet finds the auction over.
unsigned int NextAuctionEnd(unsigned int second) {
    if (FindsAuctionOver(second)) {
        return second;
    }
    const std::vector<unsigned int>& ends = AuctionEnds();
    const auto next = std::lower_bound(ends.begin(), ends.end(), second % DAY_SECONDS);
    const unsigned int midnight = second - second % DAY_SECONDS;
    return next == ends.end() ? midnight + DAY_SECONDS + ends.front() : midnight + *next;
}

// What GetRealTime of the library gives: outside trading time it does not ask the board.
unsigned int RealTime(unsigned int second) {
    const unsigned int time = TimeOfSecond(second);
    return Vela2_U50::ZceTimeToRelyOn(VORBA2::IsTradeTime(time) ? time : 0, time);
}

}  // namespace

unsigned int TimeOfSecond(unsigned int second) {
    const unsigned int ofDay = second % DAY_SECONDS;
    return ofDay / 3600 * 10000 + ofDay / 60 % 60 * 100 + ofDay % 60;
}

unsigned int SecondOfTime(unsigned int time) {
    return time / 10000 * 3600 + time / 100 % 100 * 60 + time % 100;
}

StartPlan PlanStart(unsigned int call, BoardState state, unsigned int round) {
    StartPlan plan;
    plan.looks = plan.ready = call + ZCE_ROOT_RESET_SECONDS;
    const auto standStill = [&plan, state] {
        if (state == BoardState::Moving || state == BoardState::Still) {
            plan.ready += Vela2_U50::ZCE_COUNTER_CHECKS * Vela2_U50::ZCE_COUNTER_CHECK_SECONDS;
            plan.bLooksAtCounters = true;
        }
        return state == BoardState::Still;
    };
    plan.bReset =
        state == BoardState::OtherDay || Vela2_U50::ZceIsResetDue(RealTime(plan.looks), standStill);
    plan.ready += plan.bReset ? Vela2_U50::ZCE_RESET_SECONDS : 0;
    const unsigned int time = TimeOfSecond(plan.ready);
    if (VORBA2::IsTradeTime(time)) {
        plan.way = ListWay::Recover;
        plan.waitWithBin = plan.bReset ? Vela2_U50::ZCE_BIN_RESET_WAIT_SECONDS : 0;
        plan.waitWithoutBin =
            MINUTE_SECONDS * Vela2_U50::ZceExpireMinutes(time, RealTime(plan.ready), plan.bReset);
        return plan;
    }
    plan.auctionEnd = NextAuctionEnd(plan.ready);
    // One packet at least must come in time: the second at which the auction is over has none.
    const bool bInTime = plan.auctionEnd - plan.ready >= std::max(round, 1U);
    plan.way = bInTime ? ListWay::Learn : ListWay::TooLate;
    return plan;
}

unsigned int GoodFrom(unsigned int call, const std::vector<BoardState>& states,
                      unsigned int round) {
    const auto isTooLate = [round](unsigned int second, BoardState state) {
        return PlanStart(second, state, round).way == ListWay::TooLate;
    };
    unsigned int second = call;
    while (std::any_of(states.begin(), states.end(), [second, &isTooLate](BoardState state) {
        return isTooLate(second, state);
    })) {
        ++second;
    }
    return second;
}

}  // namespace ZceCheck
