#include "device/ChannelSender.h"

#include <cstring>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace {

using ZceBoard::CChannelSender;

class Sender : public testing::Test {
  protected:
    Sender() {
        m_generation = OpenRing(m_view, true);
        m_consumer = ZceBoard::CRingConsumer(m_view, m_generation);
        EXPECT_TRUE(m_sender.IsOpen());
        // Every byte of a body another one, but for the sequence number's.
        unsigned char bytes[sizeof(m_body)];
        for (size_t k = 0; k < sizeof(bytes); ++k) {
            bytes[k] = static_cast<unsigned char>(k < 8 ? 0xEE : k);
        }
        memcpy(&m_body, bytes, sizeof(bytes));
    }

    std::vector<unsigned char> Get() {
        std::vector<unsigned char> message;
        m_consumer.PollOnce(
            [&](const unsigned char* data, uint32_t size) { message.assign(data, data + size); });
        return message;
    }

    // The head and the first eight bytes of the body as given, then the body's own.
    static std::vector<unsigned char> Expected(const std::vector<unsigned char>& begin,
                                               size_t bodySize) {
        std::vector<unsigned char> message = begin;
        for (size_t k = 8; k < bodySize; ++k) {
            message.push_back(static_cast<unsigned char>(k));
        }
        return message;
    }

    using Memory = ZceBoard::RingMemory<4096>;
    std::unique_ptr<Memory> m_memory = std::make_unique<Memory>();
    ZceBoard::RingView m_view = ViewOf(*m_memory);
    uint32_t m_generation = 0;
    ZceBoard::CRingConsumer m_consumer;
    CChannelSender m_sender{m_view, 11};
    ZceBoardL5_t m_body;
};

TEST_F(Sender, AMessageIsTheHeadTheSequenceNumberAndTheRestOfTheBody) {
    m_sender.SendMarketData(18, m_body, 136);
    m_sender.SendMarketData(19, m_body, 232);
    EXPECT_EQ(Get(), Expected({18, 0, 0, 0, 11, 0, 136, 0, 0, 0, 0, 0,  //
                               1,  0, 0, 0, 0,  0, 0,   0},
                              136));
    EXPECT_EQ(Get(), Expected({19, 0, 0, 0, 11, 0, 232, 0, 0, 0, 0, 0,  //
                               2,  0, 0, 0, 0,  0, 0,   0},
                              232));
    EXPECT_TRUE(Get().empty());
}

TEST_F(Sender, EveryPlaceOfTheRingTakesAMessageWhole) {
    for (unsigned char n = 1; n <= 200; ++n) {
        m_sender.SendMarketData(17, m_body, 136);
        ASSERT_EQ(Get(), Expected({17, 0, 0, 0, 11, 0, 136, 0, 0, 0, 0, 0,  //
                                   n,  0, 0, 0, 0,  0, 0,   0},
                                  136));
    }
}

TEST_F(Sender, AMessageThatFindsNoRoomIsDroppedAndItsNumberIsUsedUp) {
    while (m_sender.Total().dropped == 0) {
        m_sender.SendMarketData(20, m_body, 232);
    }
    // 15 records of 256 bytes, since the place behind the last one has to stay clear.
    EXPECT_EQ(m_sender.Total().MarketData(), 15U);
    EXPECT_EQ(m_view.control->backPressure.load(), 1U);
    for (int k = 0; k < 15; ++k) {
        EXPECT_FALSE(Get().empty());
    }
    m_sender.SendMarketData(20, m_body, 232);
    const std::vector<unsigned char> next = Get();
    ASSERT_EQ(next.size(), 244U);
    EXPECT_EQ(next[12], 17) << "16 was dropped";
}

// What a sender with counts by instrument has counted: "table/index=count", in order.
std::string Counted(const ZceBoard::InstrumentCounts& counts) {
    std::string text;
    for (size_t table = 0; table < counts.sent.size(); ++table) {
        for (size_t index = 0; index < counts.sent[table].size(); ++index) {
            const uint64_t count = counts.sent[table][index].load();
            if (count != 0) {
                text += std::to_string(table) + "/" + std::to_string(index) + "=" +
                        std::to_string(count) + " ";
            }
        }
    }
    return text;
}

TEST_F(Sender, MessagesAreCountedByInstrument) {
    const auto counts = std::make_unique<ZceBoard::InstrumentCounts>();
    m_sender = CChannelSender(m_view, 11, counts.get());
    ASSERT_TRUE(m_sender.IsOpen());
    const auto send = [this](uint32_t type, uint8_t table, uint16_t index, uint32_t len) {
        m_body.quote.ucTable = table;
        m_body.quote.usIndex = index;
        m_sender.SendMarketData(type, m_body, len);
        Get();
    };
    send(17, 0, 0, 136);
    send(19, 0, 0, 232);
    send(18, 1, 4095, 136);
    send(17, 0, 4096, 136);  // no table has such an entry
    send(17, 2, 1, 136);     // nor is there such a table
    EXPECT_EQ(Counted(*counts), "0/0=2 1/4095=1 ");
    // What finds no room was not sent.
    while (m_sender.Total().dropped == 0) {
        m_body.quote = {};
        m_body.quote.usIndex = 7;
        m_sender.SendMarketData(20, m_body, 232);
    }
    EXPECT_EQ(Counted(*counts), "0/0=2 0/7=15 1/4095=1 ");
}

TEST_F(Sender, OfWholeMessagesThoseOfTheSoftwareBoardAreCountedByInstrument) {
    const auto counts = std::make_unique<ZceBoard::InstrumentCounts>();
    m_sender = CChannelSender(m_view, 11, counts.get());
    ASSERT_TRUE(m_sender.IsOpen());
    const auto send = [this](unsigned char type, unsigned char table, uint32_t size) {
        std::vector<unsigned char> message(size, 0);
        message[0] = type;
        message[12 + 40] = 9;
        message[12 + 42] = table;
        ASSERT_TRUE(m_sender.SendWhole(message.data(), size));
        EXPECT_EQ(Get().size(), size);
    };
    send(17, 0, 148);
    send(20, 1, 244);
    send(20, 0, 244);  // combinations are in the other table
    send(17, 1, 148);
    send(17, 0, 147);  // of another size than the software board's
    send(2, 0, 148);
    EXPECT_EQ(Counted(*counts), "0/9=1 1/9=1 ");
}

}  // namespace
