#include "memory/Ring.h"

#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using ZceBoard::CRingConsumer;
using ZceBoard::CRingProducer;
using ZceBoard::RingView;

constexpr size_t SMALL = 4096;

class Ring : public testing::Test {
  protected:
    using Memory = ZceBoard::RingMemory<SMALL>;

    void Open() {
        m_generation = OpenRing(m_view, true);
        m_producer.Begin(m_generation);
        m_consumer = CRingConsumer(m_view, m_generation);
    }

    bool Put(size_t len, unsigned char fill) {
        unsigned char* place = m_producer.PrepareWrite(static_cast<uint32_t>(len));
        if (place == nullptr) {
            return false;
        }
        memset(place, fill, len);
        m_producer.CommitWrite(static_cast<uint32_t>(len));
        return true;
    }

    // The next message; empty if there is none.
    std::vector<unsigned char> Get() {
        std::vector<unsigned char> message;
        m_consumer.PollOnce([&](const unsigned char* data, uint32_t len) {
            EXPECT_EQ(reinterpret_cast<uintptr_t>(data + 12) % 8, 0U);
            EXPECT_GE(data, m_view.data);
            EXPECT_LE(data + len, m_view.data + SMALL) << "a message runs over the ring's end";
            message.assign(data, data + len);
        });
        return message;
    }

    std::atomic<uint32_t>& HeaderAt(uint64_t pos) const { return m_view.HeaderAt(pos); }
    uint64_t Head() const { return m_view.control->head.load(); }
    uint64_t Tail() const { return m_view.control->tail.load(); }
    uint32_t Errors() const { return m_view.control->errors.load(); }

    std::unique_ptr<Memory> m_memory = std::make_unique<Memory>();
    RingView m_view = ViewOf(*m_memory);
    CRingProducer m_producer{m_view};
    CRingConsumer m_consumer;
    uint32_t m_generation = 0;
};

TEST_F(Ring, AMessageCountsAsTakenWhenItsHandlerThrows) {
    Open();
    ASSERT_TRUE(Put(100, 1));
    ASSERT_TRUE(Put(200, 2));
    EXPECT_THROW(m_consumer.PollOnce([](const unsigned char*, uint32_t) { throw 17; }), int);
    EXPECT_EQ(Get(), std::vector<unsigned char>(200, 2));
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(Tail(), Head());
}

TEST_F(Ring, GivesMessagesInOrderAsTheyWerePut) {
    Open();
    EXPECT_TRUE(Get().empty());
    ASSERT_TRUE(Put(1, 1));
    ASSERT_TRUE(Put(13, 2));
    ASSERT_TRUE(Put(244, 3));
    EXPECT_EQ(Get(), std::vector<unsigned char>(1, 1));
    EXPECT_EQ(Get(), std::vector<unsigned char>(13, 2));
    EXPECT_EQ(Get(), std::vector<unsigned char>(244, 3));
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(Head(), Tail());
    EXPECT_EQ(m_view.control->packetCount.load(), 3U);
}

TEST_F(Ring, EveryLengthAtEveryPlaceStaysInOnePieceRoundAndRound) {
    Open();
    uint32_t n = 0;
    for (uint32_t round = 0; round < 40; ++round) {
        for (uint32_t len = 1; len <= 1500; len += 7) {
            const auto fill = static_cast<unsigned char>(++n);
            ASSERT_TRUE(Put(len, fill));
            ASSERT_EQ(Get(), std::vector<unsigned char>(len, fill));
        }
    }
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(Errors(), 0U);
}

TEST_F(Ring, SeveralMessagesAheadOfTheReaderRoundAndRound) {
    Open();
    uint32_t put = 0;
    uint32_t got = 0;
    for (uint32_t round = 0; round < 20000; ++round) {
        while (Put(1 + put * 37 % 700, static_cast<unsigned char>(put))) {
            ++put;
        }
        for (uint32_t k = 0; k < 1 + round % 5 && got < put; ++k) {
            ASSERT_EQ(Get(), std::vector<unsigned char>(1 + got * 37 % 700,
                                                        static_cast<unsigned char>(got)));
            ++got;
        }
    }
    EXPECT_EQ(Errors(), 0U);
    EXPECT_GT(got, 20000U);
}

TEST_F(Ring, IsFullWhenTheNextHeaderHasNoRoomAndTakesOnAgainAfterARead) {
    Open();
    // Records of 1024 bytes: three fit, since a record's place beyond them has to stay clear.
    EXPECT_TRUE(Put(1020, 1));
    EXPECT_TRUE(Put(1020, 2));
    EXPECT_TRUE(Put(1020, 3));
    EXPECT_FALSE(Put(1020, 4));
    EXPECT_TRUE(Put(1004, 4));  // this one leaves 16 bytes
    EXPECT_FALSE(Put(1, 5));
    EXPECT_EQ(Get().size(), 1020U);
    EXPECT_TRUE(Put(1, 5));
    EXPECT_EQ(Get().front(), 2);
    EXPECT_EQ(Get().front(), 3);
    EXPECT_EQ(Get().front(), 4);
    EXPECT_EQ(Get().front(), 5);
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(m_view.control->fifoErrors.load(), 0U);
}

TEST_F(Ring, AfterADenseBurstThePollsGoOnAsBefore) {
    Open();
    for (uint32_t round = 1; round <= 20; ++round) {
        for (uint32_t n = 0; n < round; ++n) {
            ASSERT_TRUE(Put(100, static_cast<unsigned char>(n)));
        }
        for (uint32_t n = 0; n < round; ++n) {
            ASSERT_EQ(Get(), std::vector<unsigned char>(100, static_cast<unsigned char>(n)));
        }
        EXPECT_TRUE(Get().empty());
    }
}

// The consumer expects the next record where one of the last length would end.
TEST_F(Ring, ChangingLengthsAreTakenAtTheirOwnPlaces) {
    Open();
    const std::vector<size_t> lengths{148, 148, 244, 244, 148, 244, 148, 1, 2000, 1};
    for (const size_t len : lengths) {
        ASSERT_TRUE(Put(len, static_cast<unsigned char>(len)));
    }
    for (const size_t len : lengths) {
        ASSERT_EQ(Get(), std::vector<unsigned char>(len, static_cast<unsigned char>(len)));
    }
    EXPECT_TRUE(Get().empty());
}

TEST_F(Ring, TheMessageIsGivenBackOnlyAfterTheHandlerReturned) {
    Open();
    ASSERT_TRUE(Put(100, 1));
    uint64_t tailInside = 99;
    m_consumer.PollOnce([&](const unsigned char*, uint32_t) { tailInside = Tail(); });
    EXPECT_EQ(tailInside, 0U);
    EXPECT_EQ(Tail(), 112U);
}

TEST_F(Ring, ANewOpeningGetsNothingThatWasMeantForTheOneBefore) {
    Open();
    ASSERT_TRUE(Put(100, 1));
    ASSERT_TRUE(Put(100, 2));
    const uint32_t second = OpenRing(m_view, true);
    EXPECT_EQ(second, m_generation + 1);
    m_consumer = CRingConsumer(m_view, second);
    EXPECT_TRUE(Get().empty());
    // The producer has not noticed yet: one more message of the opening before.
    ASSERT_TRUE(Put(100, 3));
    m_producer.Begin(second);
    ASSERT_TRUE(Put(100, 4));
    EXPECT_EQ(Get().front(), 4);
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(Errors(), 0U);
    EXPECT_EQ(m_view.control->packetCount.load(), 1U) << "counts of this opening";
}

TEST_F(Ring, AMessageOfTheOpeningBeforeMayEvenWrapAround) {
    Open();
    for (int k = 0; k < 3; ++k) {
        ASSERT_TRUE(Put(1020, 1));
        Get();
    }
    const uint32_t second = OpenRing(m_view, true);
    m_consumer = CRingConsumer(m_view, second);
    ASSERT_TRUE(Put(1500, 2));  // a filler, then the message at the ring's beginning
    m_producer.Begin(second);
    ASSERT_TRUE(Put(100, 3));
    EXPECT_EQ(Get().front(), 3);
    EXPECT_EQ(Errors(), 0U);
}

TEST_F(Ring, ClosingAnEarlierOpeningDoesNothing) {
    Open();
    const uint32_t second = OpenRing(m_view, true);
    CloseRing(m_view, m_generation);
    EXPECT_EQ(m_view.control->generation.load(), second);
    CloseRing(m_view, second);
    EXPECT_EQ(m_view.control->generation.load(), 0U);
    EXPECT_EQ(OpenRing(m_view, true), second + 1);
}

TEST_F(Ring, TheTagIsNeverZeroAndTheNumberOfAnOpeningNeitherWhenItRunsOver) {
    for (const uint32_t generation : {0U, 1U, 0xFFFEU, 0xFFFFU, 0x10000U, 0xFFFFFFFFU}) {
        EXPECT_NE(ZceBoard::TagOf(generation), 0U) << generation;
        EXPECT_EQ(ZceBoard::TagOf(generation) & 0xFFFF, 0U) << generation;
    }
    m_view.control->lastGeneration.store(0xFFFFFFFF);
    EXPECT_EQ(OpenRing(m_view, true), 1U);
}

TEST_F(Ring, AnImpossibleLengthCountsAnErrorAndTheReaderGoesOnAtTheHead) {
    Open();
    for (const uint32_t garbage : {0xFFFFFFFFU, 0x12345678U, ZceBoard::TagOf(1) | 2049U}) {
        const uint32_t errors = Errors();
        ASSERT_TRUE(Put(100, 1));
        ASSERT_TRUE(Put(100, 2));
        HeaderAt(Tail()).store(garbage);
        EXPECT_TRUE(Get().empty());
        EXPECT_EQ(Errors(), errors + 1);
        EXPECT_EQ(Tail(), Head());
        ASSERT_TRUE(Put(50, 3));
        EXPECT_EQ(Get(), std::vector<unsigned char>(50, 3));
    }
}

TEST_F(Ring, GarbageWhereNothingIsYetIsCountedOnceAndWiped) {
    Open();
    ASSERT_TRUE(Put(100, 1));
    Get();
    HeaderAt(Head()).store(0xABCDEF01);
    EXPECT_TRUE(Get().empty());
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(Errors(), 1U);
    ASSERT_TRUE(Put(50, 3));
    EXPECT_EQ(Get(), std::vector<unsigned char>(50, 3));
}

TEST_F(Ring, AFillerAtTheRingsBeginningIsGarbageAndNoEndlessLoop) {
    Open();
    HeaderAt(0).store(ZceBoard::TagOf(m_generation));
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(Errors(), 1U);
    ASSERT_TRUE(Put(50, 3));
    EXPECT_EQ(Get().size(), 50U);
}

TEST_F(Ring, AReaderLedAstrayByAWrongLengthIsWokenWhenTheRingIsFull) {
    Open();
    while (Put(100, 0)) {  // all zero: nothing in the messages looks like a header
    }
    HeaderAt(0).store(ZceBoard::TagOf(m_generation) | 20U);  // a record of 32 bytes instead of 112
    EXPECT_EQ(Get().size(), 20U);
    EXPECT_TRUE(Get().empty());
    EXPECT_FALSE(Put(200, 0));
    EXPECT_EQ(m_view.control->fifoErrors.load(), 1U);
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(Errors(), 1U);
    ASSERT_TRUE(Put(50, 3));
    EXPECT_EQ(Get(), std::vector<unsigned char>(50, 3));
}

TEST_F(Ring, ImpossiblePositionsOfTheOtherSideDoNoHarm) {
    Open();
    ASSERT_TRUE(Put(100, 1));
    m_view.control->tail.store(0x7777777777777777);
    while (Put(1000, 1)) {}
    m_view.control->head.store(0x123456789abcdef1);
    m_view.control->tail.store(~uint64_t{0});
    m_producer.Begin(5);
    CRingConsumer consumer(m_view, 5);
    for (int k = 0; k < 100; ++k) {
        consumer.PollOnce([](const unsigned char*, uint32_t) {});
        Put(1000, 1);
    }
}

TEST_F(Ring, AReaderThatABadHeadLedAstrayIsLedBackByMend) {
    Open();
    EXPECT_FALSE(m_producer.Mend()) << "an empty ring is in order";
    ASSERT_TRUE(Put(100, 0));
    ASSERT_TRUE(Put(100, 0));
    EXPECT_FALSE(m_producer.Mend()) << "and one that somebody has to read";
    const uint64_t head = Head();
    HeaderAt(0).store(0xFFFFFFFF);
    m_view.control->head.store(0x7777777777777770);
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(Tail(), 0x7777777777777770U) << "it waits there";
    EXPECT_TRUE(m_producer.Mend());
    EXPECT_EQ(Head(), head);
    EXPECT_TRUE(Get().empty());
    EXPECT_TRUE(m_producer.Mend()) << "the second time it is certain";
    EXPECT_TRUE(Get().empty());
    EXPECT_EQ(Tail(), head);
    ASSERT_TRUE(Put(50, 3));
    EXPECT_EQ(Get(), std::vector<unsigned char>(50, 3));
    EXPECT_FALSE(m_producer.Mend());
}

TEST_F(Ring, AReaderWhoseHeaderWasWipedIsLedBackByMend) {
    Open();
    ASSERT_TRUE(Put(100, 1));
    HeaderAt(0).store(0);
    EXPECT_TRUE(Get().empty());
    EXPECT_TRUE(m_producer.Mend());
    EXPECT_TRUE(Get().empty());
    ASSERT_TRUE(Put(50, 3));
    EXPECT_EQ(Get(), std::vector<unsigned char>(50, 3));
}

TEST_F(Ring, AFullRingWithAnImpossibleTailIsFullNoLongerThanTheReaderNeedsToComeBack) {
    Open();
    while (Put(100, 0)) {}
    HeaderAt(0).store(0xFFFFFFFF);
    m_view.control->head.store(0x7777777777777770);
    EXPECT_TRUE(Get().empty());
    int tries = 0;
    for (; tries < 1000 && !Put(50, 3); ++tries) {
        Get();
    }
    EXPECT_GE(tries, 63) << "a tail that is only written over is written anew by the reader";
    EXPECT_LT(tries, 70);
    EXPECT_EQ(Get(), std::vector<unsigned char>(50, 3));
}

TEST_F(Ring, AReaderWithNothingToReadTellsItsPositionAgain) {
    Open();
    ASSERT_TRUE(Put(100, 1));
    Get();
    const uint64_t tail = Tail();
    m_view.control->tail.store(5);
    m_consumer.TellPosition();
    EXPECT_EQ(Tail(), tail);
}

TEST_F(Ring, AProducerThatDiedBeforeItMovedTheHeadIsMadeGood) {
    Open();
    ASSERT_TRUE(Put(100, 1));
    m_view.control->head.store(0);  // the last thing CommitWrite does
    CRingProducer next(m_view);
    next.Begin(m_generation);
    EXPECT_EQ(Head(), 112U);
    memset(next.PrepareWrite(10), 7, 10);
    next.CommitWrite(10);
    EXPECT_EQ(Get(), std::vector<unsigned char>(100, 1));
    EXPECT_EQ(Get(), std::vector<unsigned char>(10, 7));
}

TEST_F(Ring, TwoThreadsPassAHundredThousandMessagesUnharmed) {
    Open();
    constexpr uint64_t MESSAGES = 100000;
    std::thread producer([this] {
        for (uint64_t n = 1; n <= MESSAGES;) {
            const auto len = static_cast<uint32_t>(8 + n % 500);
            unsigned char* place = m_producer.PrepareWrite(len);
            if (place == nullptr) {
                std::this_thread::yield();
                continue;
            }
            memset(place, static_cast<int>(n & 0xFF), len);
            memcpy(place, &n, sizeof(n));
            m_producer.CommitWrite(len);
            ++n;
        }
    });
    uint64_t expected = 1;
    uint64_t bad = 0;
    while (expected <= MESSAGES) {
        const int got = m_consumer.PollOnce([&](const unsigned char* data, uint32_t len) {
            uint64_t n = 0;
            memcpy(&n, data, sizeof(n));
            bad += n != expected || len != 8 + n % 500 ||
                           (len > 8 && data[len - 1] != static_cast<unsigned char>(n & 0xFF))
                       ? 1
                       : 0;
            ++expected;
        });
        if (got == 0) {
            std::this_thread::yield();
        }
    }
    producer.join();
    EXPECT_EQ(bad, 0U);
    EXPECT_EQ(Errors(), 0U);
}

}  // namespace
