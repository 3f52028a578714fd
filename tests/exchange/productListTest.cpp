// The full list: how many instruments, of which months, and options on which products.

#include "exchange/ProductList.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "exchange/Instruments.h"

namespace {

using ZceBoard::InstrumentKind;

class ProductList : public testing::Test {
  protected:
    ProductList() { m_list.AddAllProducts(); }
    ZceBoard::CInstrumentList m_list;
};

TEST_F(ProductList, Has4080SingleLegInstrumentsAnd387Combinations) {
    EXPECT_EQ(m_list.Count(0), 4080U);
    EXPECT_EQ(m_list.Count(1), 387U);
}

TEST_F(ProductList, FuturesAreOfTheMonths207To306WhateverTheDate) {
    std::set<std::string> months;
    for (const auto& instrument : m_list.All()) {
        if (instrument.kind == InstrumentKind::Future) {
            months.insert(instrument.name.substr(2));
        }
    }
    EXPECT_EQ(months, (std::set<std::string>{"207", "208", "209", "210", "211", "212", "301", "302",
                                             "303", "304", "305", "306"}));
}

TEST_F(ProductList, OptionsAreOnTheProductsThatHaveThemAndOnFuturesOfTheList) {
    std::set<std::string> futures;
    std::set<std::string> products;
    for (const auto& instrument : m_list.All()) {
        if (instrument.kind == InstrumentKind::Future) {
            futures.insert(instrument.name);
        }
    }
    for (const auto& instrument : m_list.All()) {
        if (instrument.kind == InstrumentKind::Option) {
            EXPECT_EQ(futures.count(instrument.name.substr(0, 5)), 1U) << instrument.name;
            products.insert(instrument.name.substr(0, 2));
        }
    }
    EXPECT_EQ(products,
              (std::set<std::string>{"AP", "CF", "CJ", "FG", "MA", "OI", "PF", "PK", "PX", "RM",
                                     "SA", "SF", "SH", "SM", "SR", "TA", "UR", "ZC"}));
}

}  // namespace
