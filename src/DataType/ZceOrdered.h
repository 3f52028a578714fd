#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace Vela2_U50 {

// The entry of `index`, made with `value` if it is absent, for indexes that come in ascending
// order: `from` is the entry of the last one, or end() for the first. The next few entries are
// looked at before all of the map is searched. bMade: it was absent.
template <typename Value>
struct ZceEntry_t {
    typename std::map<std::uint16_t, Value>::iterator at;
    bool bMade;
};
template <typename Value>
ZceEntry_t<Value> EntryFrom(std::map<std::uint16_t, Value>& map,
                            typename std::map<std::uint16_t, Value>::iterator from,
                            std::uint16_t index, const Value& value) {
    constexpr unsigned int steps = 8;
    for (unsigned int step = 0; step < steps && from != map.end() && from->first < index; ++step) {
        ++from;
    }
    if (from != map.end() && from->first == index) {
        return {from, false};
    }
    const std::size_t before = map.size();
    from = map.emplace_hint(from, index, value);
    return {from, map.size() != before};
}

// As above; the entry becomes `value` in either case.
template <typename Value>
typename std::map<std::uint16_t, Value>::iterator PutFrom(
    std::map<std::uint16_t, Value>& map, typename std::map<std::uint16_t, Value>::iterator from,
    std::uint16_t index, const Value& value) {
    const ZceEntry_t<Value> entry = EntryFrom(map, from, index, value);
    if (!entry.bMade) {
        entry.at->second = value;
    }
    return entry.at;
}

}  // namespace Vela2_U50
