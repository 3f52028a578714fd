// The table of the streams: who has what, as streams come and go.

#include "preload/StreamTable.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>

namespace velatest {
namespace {

using Table = ZcePreload::CStreamTable<int>;

constexpr size_t capacity = 256;
std::array<char, capacity + 1> g_places;
std::array<int, capacity + 1> g_owned;

// Addresses alone: nobody looks behind them.
const enyx_hw_a2c_stream* Handle(size_t k) {
    return reinterpret_cast<const enyx_hw_a2c_stream*>(&g_places[k]);
}

TEST(StreamTable, WithoutAStreamNothingIsTheFirstNotEvenNull) {
    Table table;
    EXPECT_FALSE(table.IsFirst(nullptr));
    EXPECT_FALSE(table.IsFirst(Handle(0)));
    EXPECT_EQ(table.Find(nullptr), nullptr);
    EXPECT_EQ(table.Remove(Handle(0)), nullptr);
    ASSERT_TRUE(table.Add(Handle(0), g_owned.data()));
    EXPECT_EQ(table.Remove(Handle(0)), g_owned.data());
    EXPECT_FALSE(table.IsFirst(nullptr));
    EXPECT_FALSE(table.IsFirst(Handle(0)));
    EXPECT_EQ(table.Find(nullptr), nullptr);
    EXPECT_EQ(table.Find(Handle(0)), nullptr);
}

TEST(StreamTable, EachStreamHasItsOwnAndAPlaceThatIsFreeIsTakenFirst) {
    Table table;
    for (size_t k = 0; k < 3; ++k) {
        ASSERT_TRUE(table.Add(Handle(k), &g_owned[k]));
    }
    EXPECT_TRUE(table.IsFirst(Handle(0)));
    EXPECT_EQ(table.FindFirst(), g_owned.data());
    for (size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(table.Find(Handle(k)), &g_owned[k]);
        EXPECT_EQ(table.IsFirst(Handle(k)), k == 0);
    }
    EXPECT_EQ(table.Remove(Handle(0)), g_owned.data());
    EXPECT_EQ(table.Find(Handle(0)), nullptr);
    EXPECT_EQ(table.Find(Handle(2)), &g_owned[2]);
    ASSERT_TRUE(table.Add(Handle(3), &g_owned[3]));
    EXPECT_TRUE(table.IsFirst(Handle(3)));
    EXPECT_EQ(table.FindFirst(), &g_owned[3]);
    table.Clear();
    EXPECT_FALSE(table.IsFirst(Handle(3)));
    EXPECT_EQ(table.Find(Handle(1)), nullptr);
}

TEST(StreamTable, AFullOneTakesNoMoreUntilAStreamGoes) {
    Table table;
    for (size_t k = 0; k < capacity; ++k) {
        ASSERT_TRUE(table.Add(Handle(k), &g_owned[k]));
    }
    EXPECT_FALSE(table.Add(Handle(capacity), &g_owned[capacity]));
    EXPECT_EQ(table.Find(Handle(capacity)), nullptr);
    EXPECT_EQ(table.Find(Handle(capacity - 1)), &g_owned[capacity - 1]);
    EXPECT_EQ(table.Remove(Handle(7)), &g_owned[7]);
    ASSERT_TRUE(table.Add(Handle(capacity), &g_owned[capacity]));
    EXPECT_EQ(table.Find(Handle(capacity)), &g_owned[capacity]);
}

}  // namespace
}  // namespace velatest
