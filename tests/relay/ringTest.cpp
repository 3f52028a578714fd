// What the polling thread puts into the ring, and what of it is only counted.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "relay-tool/Feed.h"
#include "relay/Publisher.h"
#include "sanitizers.h"

namespace ZceRelay {
namespace {

std::vector<unsigned char> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

const unsigned char* Data(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

TEST(RelayRing, AMessageComesOutAsItWentInAndAFullRingIsCounted) {
    // Room for two messages of 8 bytes with their heads, not for three.
    constexpr size_t room = 2 * (sizeof(TakenHead) + 8) + 8;
    CTakenMessages taken(room);
    TakenHead head{};
    std::vector<unsigned char> body;
    EXPECT_FALSE(taken.Next(head, body));
    for (int round = 0; round < 100; ++round) {  // around the ring's end, at every place
        const auto first = static_cast<uint64_t>(round) * 4;
        taken.Take(17, 100, Data("abcdefgh"), 8);
        taken.Take(20, 200, Data("12345"), 5);
        taken.Take(18, 300, Data("lost"), 4);
        EXPECT_EQ(taken.Counted(), first + 3);
        EXPECT_EQ(taken.Lost(), static_cast<uint64_t>(round) * 2 + 1);
        ASSERT_TRUE(taken.Next(head, body));
        EXPECT_EQ(head.number, first + 1);
        EXPECT_EQ(head.timeNs, 100);
        EXPECT_EQ(head.type, 17U);
        EXPECT_EQ(body, Bytes("abcdefgh"));
        ASSERT_TRUE(taken.Next(head, body));
        EXPECT_EQ(head.number, first + 2);
        EXPECT_EQ(head.type, 20U);
        EXPECT_EQ(body, Bytes("12345"));
        EXPECT_FALSE(taken.Next(head, body));
        const std::string large(room, 'x');  // never fits
        taken.Take(19, 400, Data(large), static_cast<uint32_t>(large.size()));
        EXPECT_FALSE(taken.Next(head, body));
    }
}

TEST(RelayRing, ThePollingThreadHasNoPageFaultsOfAFreshRing) {
    if (velatest::underSanitizer) {
        GTEST_SKIP() << "a sanitizer's shadow of the memory has page faults of its own";
    }
    constexpr size_t bytes = size_t{8} << 20U;  // four large pages, where there are such
    CTakenMessages taken(bytes);
    const std::string body(2000, 'x');
    const auto faults = [] {
        rusage usage{};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_minflt;
    };
    taken.Take(17, 0, Data(body), 2000);
    const long before = faults();
    while (taken.Lost() == 0) {
        taken.Take(17, 0, Data(body), 2000);
    }
    EXPECT_LT(faults() - before, 4);
    EXPECT_EQ(taken.Counted(), bytes / (sizeof(TakenHead) + body.size()) + 1);
}

TEST(RelayRing, TwoThreadsLoseNothingButWhatIsCounted) {
    constexpr uint64_t messages = 200'000;
    CTakenMessages taken(4096);
    std::thread poller([&taken] {
        unsigned char body[64];
        for (uint64_t k = 1; k <= messages; ++k) {
            const auto size = static_cast<uint32_t>(k % sizeof(body) + 1);
            std::fill_n(body, size, static_cast<unsigned char>(k));
            taken.Take(17, static_cast<int64_t>(k), body, size);
        }
    });
    TakenHead head{};
    std::vector<unsigned char> body;
    uint64_t got = 0;
    uint64_t last = 0;
    bool bAll = false;
    while (!bAll) {
        bAll = taken.Counted() == messages;
        while (taken.Next(head, body)) {
            ++got;
            ASSERT_GT(head.number, last);
            last = head.number;
            ASSERT_EQ(head.timeNs, static_cast<int64_t>(head.number));
            ASSERT_EQ(body, std::vector<unsigned char>(head.number % 64 + 1,
                                                       static_cast<unsigned char>(head.number)));
        }
    }
    poller.join();
    EXPECT_EQ(got + taken.Lost(), messages);
    EXPECT_GT(got, 0U);
}

TEST(RelayFeed, ACallbackTakesAsManyBytesAsItsTypeHas) {
    BodySizes sizes = BoardBodySizes();
    EXPECT_EQ(sizes, (BodySizes{136, 136, 232, 232}));
    EXPECT_TRUE(TakeBodySize("17=1", sizes));
    EXPECT_TRUE(TakeBodySize("20=2036", sizes));
    EXPECT_EQ(sizes, (BodySizes{1, 136, 232, 2036}));
    for (const char* text : {"", "17", "17=", "=5", "16=5", "21=5", "17=0", "17=2037", "17=-1",
                             "17=5x", "x=5", "17 =5", "17=99999999999"}) {
        EXPECT_FALSE(TakeBodySize(text, sizes)) << text;
    }
    EXPECT_EQ(sizes, (BodySizes{1, 136, 232, 2036}));

    CTakenMessages taken(65536);
    CFeed feed(taken, sizes);
    IVelaZceMdSpi& spi = feed;
    const std::string bytes(2036, 'b');
    const uint64_t before = get_time();
    spi.OnDmaType17Msg(Data(bytes));
    spi.OnDmaType18Msg(Data(bytes));
    spi.OnDmaType19Msg(Data(bytes));
    spi.OnDmaType20Msg(Data(bytes));
    const uint64_t after = get_time();
    for (uint32_t k = 0; k < 4; ++k) {
        TakenHead head{};
        std::vector<unsigned char> body;
        ASSERT_TRUE(taken.Next(head, body));
        EXPECT_EQ(head.type, 17 + k);
        EXPECT_EQ(body.size(), sizes[k]);
        EXPECT_GE(head.timeNs, static_cast<int64_t>(before));
        EXPECT_LE(head.timeNs, static_cast<int64_t>(after));
    }
}

}  // namespace
}  // namespace ZceRelay
