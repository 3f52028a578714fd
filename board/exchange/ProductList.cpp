#include "exchange/ProductList.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "exchange/Instruments.h"

namespace ZceBoard {

namespace {

constexpr int64_t SCALE = 10000;

// One product: whether it has options; price in quoted units, price step in 1/10000 of a unit, and
// the distance between two strikes.
struct Product {
    std::string_view name;
    bool bOptions;
    int iPrice;
    int iTick;
    int iStrikeStep;
};

constexpr Product PRODUCTS[] = {
    {"AP", true, 8600, 10000, 100},  {"CF", true, 14600, 50000, 200},
    {"CJ", true, 10900, 50000, 200}, {"CY", false, 21500, 50000, 200},
    {"FG", true, 1650, 10000, 20},   {"JR", false, 2800, 10000, 20},
    {"LR", false, 2900, 10000, 20},  {"MA", true, 2600, 10000, 25},
    {"OI", true, 10200, 10000, 100}, {"PF", true, 7300, 20000, 100},
    {"PK", true, 9800, 20000, 100},  {"PM", false, 3100, 10000, 20},
    {"PX", true, 8400, 20000, 100},  {"RI", false, 2750, 10000, 20},
    {"RM", true, 2900, 10000, 25},   {"RS", false, 6100, 10000, 50},
    {"SA", true, 2400, 10000, 20},   {"SF", true, 8100, 20000, 100},
    {"SH", true, 2700, 10000, 20},   {"SM", true, 7200, 20000, 100},
    {"SR", true, 5700, 10000, 100},  {"TA", true, 5600, 20000, 50},
    {"UR", true, 2350, 10000, 20},   {"WH", false, 3200, 10000, 20},
    {"ZC", true, 850, 2000, 10},
};
constexpr Product UNKNOWN_PRODUCT = {"", false, 5000, 10000, 100};

// Three digits: the year's last one and the month.
constexpr std::array<std::string_view, 12> MONTHS = {"207", "208", "209", "210", "211", "212",
                                                     "301", "302", "303", "304", "305", "306"};
constexpr size_t OPTION_MONTHS[] = {2, 4, 6, 8, 10};
constexpr size_t SPREAD_MONTHS[] = {0, 2, 4, 6, 8, 10};
constexpr int STRIKES_EACH_SIDE = 10;  // of the price, beside the one at it

std::string Text(std::string_view text) {
    return std::string(text);
}

void AddFutures(std::vector<std::string>& names) {
    for (const Product& product : PRODUCTS) {
        for (const std::string_view month : MONTHS) {
            names.push_back(Text(product.name) + Text(month));
        }
    }
}

void AddOptions(std::vector<std::string>& names) {
    for (const Product& product : PRODUCTS) {
        if (!product.bOptions) {
            continue;
        }
        const int middle = product.iPrice / product.iStrikeStep * product.iStrikeStep;
        for (const size_t month : OPTION_MONTHS) {
            const std::string future = Text(product.name) + Text(MONTHS[month]);
            for (const char right : {'C', 'P'}) {
                for (int k = -STRIKES_EACH_SIDE; k <= STRIKES_EACH_SIDE; ++k) {
                    names.push_back(future + right +
                                    std::to_string(middle + k * product.iStrikeStep));
                }
            }
        }
    }
}

void AddCombinations(std::vector<std::string>& names) {
    for (const Product& product : PRODUCTS) {
        for (const size_t near : SPREAD_MONTHS) {
            for (const size_t far : SPREAD_MONTHS) {
                if (near < far) {
                    names.push_back("SPD-" + Text(product.name) + Text(MONTHS[near]) + "&" +
                                    Text(product.name) + Text(MONTHS[far]));
                }
            }
        }
    }
    for (const std::string_view month : MONTHS) {
        names.push_back("IPS-SF" + Text(month) + "&SM" + Text(month));
    }
}

const Product& ProductOf(std::string_view name) {
    const auto* found =
        std::find_if(std::begin(PRODUCTS), std::end(PRODUCTS), [name](const Product& product) {
            return name.substr(0, product.name.size()) == product.name;
        });
    return found != std::end(PRODUCTS) ? *found : UNKNOWN_PRODUCT;
}

// An option's worth: what exercising it brings, and a time value that fades away from the strike.
int64_t OptionBase(const Product& product, std::string_view name) {
    const size_t right = name.find_last_of("CP");
    int64_t strike = 0;
    std::from_chars(name.data() + right + 1, name.data() + name.size(), strike);
    const int64_t gain = name[right] == 'C' ? product.iPrice - strike : strike - product.iPrice;
    const int64_t distance = std::abs(product.iPrice - strike) / product.iStrikeStep;
    const int64_t timeValue = int64_t{product.iStrikeStep} * 2 / (1 + distance);
    return (std::max<int64_t>(gain, 0) + std::max<int64_t>(timeValue, 1)) * SCALE;
}

}  // namespace

std::vector<std::string> AllProductNames() {
    std::vector<std::string> names;
    AddFutures(names);
    AddOptions(names);
    AddCombinations(names);
    return names;
}

PriceFrame PricesOf(std::string_view name) {
    switch (KindOf(name)) {
        case InstrumentKind::Combination: {
            // Spreads lie around zero.
            const Product& leg = ProductOf(name.substr(std::min<size_t>(4, name.size())));
            return {0, leg.iTick};
        }
        case InstrumentKind::Option: {
            const Product& product = ProductOf(name);
            const int64_t tick = product.iTick / 2;
            return {OptionBase(product, name) / tick * tick, tick};
        }
        case InstrumentKind::Future:
            break;
    }
    const Product& product = ProductOf(name);
    return {product.iPrice * SCALE / product.iTick * product.iTick, product.iTick};
}

}  // namespace ZceBoard
