#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ZceBoard {

// Every instrument of the exchange, named as it names them: futures of each product in twelve
// contract months, options of five of these months on the products that have them, spreads between
// two months of a product (SPD-) and between two products (IPS-). Always the same list.
std::vector<std::string> AllProductNames();

// What an instrument is worth at the day's beginning and by what steps its price moves, in 1/10000.
// Names that no product begins get the figures of an unremarkable future.
struct PriceFrame {
    int64_t lBase;
    int64_t lTick;
};
PriceFrame PricesOf(std::string_view name);

}  // namespace ZceBoard
