#include "exchange/Exchange.h"

#include <algorithm>
#include <cstring>

#include "exchange/ProductList.h"
#include "memory/RegisterMap.h"

namespace ZceBoard {

namespace {

// Of 100 ticks, by kind: futures, options, combinations.
constexpr uint32_t KIND_WEIGHTS[] = {60, 25, 15};

constexpr uint32_t L5_LEVELS = 5;
constexpr int64_t WALK_TICKS = 200;   // how far a price goes from where it began
constexpr uint32_t STEP_CHOICES = 5;  // a tick moves the price by -2 to 2 steps
constexpr uint32_t MAX_TRADE_LOTS = 20;
constexpr uint32_t MAX_DEPTH_LOTS = 300;

}  // namespace

CExchange::CExchange(const std::vector<Instrument>& instruments, uint64_t seed)
    : m_instruments(instruments), m_random(seed) {
    m_states.reserve(instruments.size());
    for (size_t place = 0; place < instruments.size(); ++place) {
        const Instrument& instrument = instruments[place];
        const auto place32 = static_cast<uint32_t>(place);
        Kind& kind = m_kinds[static_cast<size_t>(instrument.kind)];
        kind.weight = KIND_WEIGHTS[static_cast<size_t>(instrument.kind)];
        kind.places.push_back(place32);
        m_states.push_back(Begin(instrument, m_random));
    }
    for (const Kind& kind : m_kinds) {
        m_weights += kind.weight;
    }
}

CExchange::State CExchange::Begin(const Instrument& instrument, CRandom& random) {
    const PriceFrame prices = PricesOf(instrument.name);
    State state{};
    state.lTick = prices.lTick;
    state.lLow = prices.lBase - WALK_TICKS * prices.lTick;
    state.lHigh = prices.lBase + WALK_TICKS * prices.lTick;
    const bool combination = instrument.kind == InstrumentKind::Combination;
    if (!combination) {
        state.lLow = std::max(state.lLow, prices.lTick);
    }
    ZceBoardQuote_t& quote = state.quote;
    memcpy(quote.szName, instrument.name.data(), std::min(instrument.name.size(), NAME_SIZE));
    quote.usIndex = instrument.index;
    quote.ucTable = static_cast<uint8_t>(instrument.table);
    quote.lPreSettlePrice = prices.lBase;
    quote.lLastPrice = std::clamp(prices.lBase, state.lLow, state.lHigh);
    quote.ulOpenInterest = combination ? 0 : 1000 + random.Below(100000);
    state.auiDepth[0] = 1 + random.Below(MAX_DEPTH_LOTS);
    state.auiDepth[1] = 1 + random.Below(MAX_DEPTH_LOTS);
    return state;
}

size_t CExchange::PickPlace() {
    uint32_t point = m_random.Below(m_weights);
    for (const Kind& kind : m_kinds) {
        if (point < kind.weight) {
            return kind.places[m_random.Below(static_cast<uint32_t>(kind.places.size()))];
        }
        point -= kind.weight;
    }
    return 0;
}

size_t CExchange::MoveOne() {
    const size_t place = PickPlace();
    Move(m_states[place]);
    return place;
}

Tick CExchange::TickOf(size_t place, uint32_t feed) const {
    const Instrument& instrument = m_instruments[place];
    const bool combination = instrument.table == TABLE_COMBINE;
    const auto level1 = combination ? ZCE_BOARD_TYPE_L1_COMBINE : ZCE_BOARD_TYPE_L1_SINGLE;
    const auto level2 = combination ? ZCE_BOARD_TYPE_L5_COMBINE : ZCE_BOARD_TYPE_L5_SINGLE;
    return {&instrument, place, static_cast<uint32_t>(feed == SWITCH_L1 ? level1 : level2), feed};
}

Tick CExchange::Next() {
    const size_t place = MoveOne();
    return TickOf(place, m_random.Below(2) == 0 ? SWITCH_L1 : SWITCH_L5);
}

Tick CExchange::NextOn(uint32_t feed) {
    return TickOf(MoveOne(), feed);
}

void CExchange::Move(State& state) {
    ZceBoardQuote_t& quote = state.quote;
    const int64_t step = int64_t{m_random.Below(STEP_CHOICES)} - STEP_CHOICES / 2;
    quote.lLastPrice = std::clamp(quote.lLastPrice + step * state.lTick, state.lLow, state.lHigh);
    const uint32_t lots = 1 + m_random.Below(MAX_TRADE_LOTS);
    if (quote.ulVolume == 0) {
        quote.lOpenPrice = quote.lLastPrice;
        quote.lHighPrice = quote.lLastPrice;
        quote.lLowPrice = quote.lLastPrice;
    }
    quote.lHighPrice = std::max(quote.lHighPrice, quote.lLastPrice);
    quote.lLowPrice = std::min(quote.lLowPrice, quote.lLastPrice);
    quote.uiLastVolume = lots;
    quote.ulVolume += lots;
    const uint64_t noise = m_random.Next();
    state.auiDepth[0] = 1 + static_cast<uint32_t>(noise & 0xFFFF) % MAX_DEPTH_LOTS;
    state.auiDepth[1] = 1 + static_cast<uint32_t>(noise >> 16 & 0xFFFF) % MAX_DEPTH_LOTS;
}

void CExchange::Fill(const Tick& tick, const BoardTime& time, Phase phase,
                     ZceBoardL5_t& body) const {
    const State& state = m_states[tick.place];
    body.quote = state.quote;
    body.quote.uiDate = time.date;
    body.quote.uiTime = time.hhmmss;
    body.quote.ulTimeNs = time.dayNs;
    body.quote.ucPhase = static_cast<uint8_t>(phase);
    const uint32_t levels = tick.feed == SWITCH_L5 ? L5_LEVELS : 1;
    body.quote.ucLevels = static_cast<uint8_t>(levels);
    for (uint32_t k = 0; k < L5_LEVELS; ++k) {
        ZceBoardLevel_t& level = body.aLevel[k];
        if (k >= levels) {
            level = {};
            continue;
        }
        const int64_t bid = state.quote.lLastPrice - (int64_t{k} + 1) * state.lTick;
        // A price below the first step is no price: there is no bid.
        const bool there = bid > 0 || state.quote.ucTable == TABLE_COMBINE;
        level.lBidPrice = there ? bid : 0;
        level.uiBidVolume = there ? state.auiDepth[0] + k * 7 : 0;
        level.lAskPrice = state.quote.lLastPrice + (int64_t{k} + 1) * state.lTick;
        level.uiAskVolume = state.auiDepth[1] + k * 7;
    }
}

}  // namespace ZceBoard
