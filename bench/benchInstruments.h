#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "benchMain.h"
#include "exchange/Instruments.h"

namespace velabench {

// As many as the board's two tables hold: 4095 futures and options, 4095 combinations.
constexpr std::size_t allInstruments = 8190;

inline constexpr std::array<std::string_view, 25> products = {
    "AP", "CF", "CJ", "CY", "FG", "JR", "LR", "MA", "OI", "PF", "PK", "PM", "PX",
    "RI", "RM", "RS", "SA", "SF", "SH", "SM", "SR", "TA", "UR", "WH", "ZC"};
inline constexpr std::array<std::string_view, 12> months = {
    "207", "208", "209", "210", "211", "212", "301", "302", "303", "304", "305", "306"};

inline std::string FutureName(std::size_t product, std::size_t month) {
    return std::string(products[product]) + std::string(months[month]);
}

// The exchange's list, filled up with more options and combinations of the same forms until both
// tables are full. Always the same.
inline std::vector<ZceBoard::Instrument> FullInstrumentList() {
    ZceBoard::CInstrumentList list;
    list.AddAllProducts();
    // Whatever is there already, or has no room any more, is refused.
    for (int strike = 7000; strike < 9000; strike += 100) {
        list.Add("SR209C" + std::to_string(strike));
    }
    for (std::size_t near = 0; near < products.size(); ++near) {
        for (std::size_t month = 0; month < months.size(); ++month) {
            for (std::size_t later = month + 1; later < months.size(); ++later) {
                list.Add("SPD-" + FutureName(near, month) + "&" + FutureName(near, later));
            }
            for (std::size_t far = near + 1; far < products.size(); ++far) {
                list.Add("IPS-" + FutureName(near, month) + "&" + FutureName(far, month));
            }
        }
    }
    if (list.All().size() != allInstruments) {
        Die("the instrument list has " + std::to_string(list.All().size()) + " entries");
    }
    return list.All();
}

}  // namespace velabench
