#include <cstring>
#include <memory>

#include "device/Board.h"
#include "libraryFixture.h"

namespace {

class LibraryStream : public boardtest::LibraryFixture {
  protected:
    ~LibraryStream() override {
        enyx_hw_a2c_stream_destroy(m_stream);
        enyx_hw_c2a_stream_destroy(m_requests);
    }

    void Open(uint32_t channel = 3) {
        m_stream = OpenA2c(m_accelerator, "CUSTOM_CHAN" + std::to_string(channel) + "_DATA");
        ASSERT_NE(m_stream, nullptr);
    }
    ZceBoard::CChannelSender& Sender(uint32_t channel = 3) { return m_playing.Channels()[channel]; }
    void Send(size_t size, unsigned char fill, uint32_t channel = 3) {
        ASSERT_TRUE(Sender(channel).IsOpen());
        const std::vector<unsigned char> message(size, fill);
        Sender(channel).SendMapPacket(message.data(), static_cast<uint32_t>(size));
    }
    uint32_t Count(int (*counter)(enyx_hw_a2c_stream*, uint32_t*)) const {
        uint32_t value = 0xFFFFFFFF;
        EXPECT_EQ(counter(m_stream, &value), 0);
        return value;
    }

    std::unique_ptr<ZceBoard::CBoardMemory> m_board = MakeBoard();
    ZceBoard::CBoard m_playing{*m_board};
    enyx_hw_accelerator* m_accelerator = Accelerator();
    enyx_hw_a2c_stream* m_stream = nullptr;
    enyx_hw_c2a_stream* m_requests = nullptr;
};

TEST_F(LibraryStream, ThereAreSixteenNamedStreamsInEachDirection) {
    enyx_hw_filter* filter = Filter();
    enyx_hw_a2c_stream_descriptor* a2c[20] = {};
    enyx_hw_c2a_stream_descriptor* c2a[20] = {};
    EXPECT_EQ(enyx_hw_accelerator_enumerate_a2c_streams(m_accelerator, filter, a2c, 20), 16);
    EXPECT_EQ(enyx_hw_accelerator_enumerate_c2a_streams(m_accelerator, filter, c2a, 20), 16);
    enyx_hw_free_a2c_stream_descriptors(a2c, 16);
    enyx_hw_free_c2a_stream_descriptors(c2a, 16);
    for (const char* name : {"CUSTOM_CHAN0_DATA", "CUSTOM_CHAN9_DATA", "CUSTOM_CHAN15_DATA"}) {
        enyx_hw_filter_set_name(filter, name);
        EXPECT_EQ(enyx_hw_accelerator_enumerate_a2c_streams(m_accelerator, filter, a2c, 1), 1);
        EXPECT_EQ(enyx_hw_accelerator_enumerate_c2a_streams(m_accelerator, filter, c2a, 1), 1);
        enyx_hw_free_a2c_stream_descriptors(a2c, 1);
        enyx_hw_free_c2a_stream_descriptors(c2a, 1);
    }
    for (const char* name :
         {"CUSTOM_CHAN16_DATA", "CUSTOM_CHAN-1_DATA", "CUSTOM_CHAN03_DATA", "CHAN3", ""}) {
        enyx_hw_filter_set_name(filter, name);
        EXPECT_EQ(enyx_hw_accelerator_enumerate_a2c_streams(m_accelerator, filter, a2c, 1), 0);
        EXPECT_EQ(errno, ENODEV);
        EXPECT_EQ(enyx_hw_accelerator_enumerate_c2a_streams(m_accelerator, filter, c2a, 1), 0);
    }
    enyx_hw_filter_destroy(filter);
}

TEST_F(LibraryStream, AMessageIsTakenThoughItsHandlerThrows) {
    Open();
    Send(1500, 7);
    Send(64, 8);
    const auto refuse = [](const unsigned char*, uint32_t, void*) { throw 17; };
    EXPECT_THROW(enyx_hw_a2c_stream_poll_once(m_stream, refuse, nullptr), int);
    const auto messages = Drain(m_stream);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0], std::vector<unsigned char>(64, 8));
}

TEST_F(LibraryStream, AnIdlePollGivesZeroAndAMessageIsHandedOutOnce) {
    Open();
    EXPECT_TRUE(Drain(m_stream).empty());
    Send(1500, 7);
    Send(1, 8);
    const auto messages = Drain(m_stream);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0], std::vector<unsigned char>(1500, 7));
    EXPECT_EQ(messages[1], std::vector<unsigned char>(1, 8));
    EXPECT_TRUE(Drain(m_stream).empty());
}

TEST_F(LibraryStream, ThePacketLiesInTheRingAndItsBodyOnABoundaryOf8) {
    Open();
    Send(148, 1);
    Send(244, 2);
    Send(13, 3);
    const auto look = [](const unsigned char* data, unsigned int, void* context) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(data + 12) % 8, 0U);
        ++*static_cast<int*>(context);
    };
    int handed = 0;
    EXPECT_EQ(enyx_hw_a2c_stream_poll_once(m_stream, look, &handed), 1);
    EXPECT_EQ(enyx_hw_a2c_stream_poll_once(m_stream, look, &handed), 1);
    EXPECT_EQ(enyx_hw_a2c_stream_poll_once(m_stream, look, &handed), 1);
    EXPECT_EQ(enyx_hw_a2c_stream_poll_once(m_stream, look, &handed), 0);
    EXPECT_EQ(handed, 3);
    EXPECT_EQ(enyx_hw_a2c_stream_poll_once(m_stream, nullptr, nullptr), -1);
}

TEST_F(LibraryStream, MtusAreThoseOfTheBoardAndFlagsAreNone) {
    Open();
    m_requests = OpenC2a(m_accelerator, "CUSTOM_CHAN3_DATA");
    ASSERT_NE(m_requests, nullptr);
    uint32_t mtu = 0;
    EXPECT_EQ(enyx_hw_a2c_stream_get_mtu(m_stream, &mtu), 0);
    EXPECT_EQ(mtu, 2048U);
    mtu = 0;
    EXPECT_EQ(enyx_hw_c2a_stream_get_mtu(m_requests, &mtu), 0);
    EXPECT_EQ(mtu, 2048U);
    enyx_hw_filter* filter = Filter();
    enyx_hw_a2c_stream_descriptor* descriptor = nullptr;
    EXPECT_EQ(enyx_hw_accelerator_enumerate_a2c_streams(m_accelerator, filter, &descriptor, 1), 16);
    EXPECT_EQ(enyx_hw_a2c_stream_create(descriptor, 1), nullptr);
    EXPECT_EQ(errno, EINVAL);
    enyx_hw_free_a2c_stream_descriptors(&descriptor, 1);
    enyx_hw_filter_destroy(filter);
}

TEST_F(LibraryStream, AnOpenStreamCannotBeOpenedAgainAnywhere) {
    Open();
    EXPECT_EQ(OpenA2c(m_accelerator, "CUSTOM_CHAN3_DATA"), nullptr);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(
        boardtest::InChild([] {
            return OpenA2c(Accelerator(), "CUSTOM_CHAN3_DATA") == nullptr && errno == EBUSY ? 0 : 1;
        }),
        0);
    enyx_hw_a2c_stream* other = OpenA2c(m_accelerator, "CUSTOM_CHAN4_DATA");
    EXPECT_NE(other, nullptr);
    enyx_hw_a2c_stream_destroy(other);
    m_requests = OpenC2a(m_accelerator, "CUSTOM_CHAN3_DATA");
    ASSERT_NE(m_requests, nullptr) << "the other direction is a stream of its own";
    EXPECT_EQ(OpenC2a(m_accelerator, "CUSTOM_CHAN3_DATA"), nullptr);
    EXPECT_EQ(errno, EBUSY);
    Send(20, 1);
    EXPECT_EQ(Drain(m_stream).size(), 1U) << "and the holder is not disturbed";
}

TEST_F(LibraryStream, ADestroyedStreamCanBeOpenedAgainWithFreshCounters) {
    Open();
    Send(20, 1);
    Send(20, 2);
    EXPECT_EQ(Count(enyx_hw_a2c_stream_stats_get_packet_count), 2U);
    enyx_hw_a2c_stream_destroy(m_stream);
    EXPECT_FALSE(Sender().IsOpen());
    Open();
    EXPECT_EQ(Count(enyx_hw_a2c_stream_stats_get_packet_count), 0U)
        << "also before the board has noticed";
    EXPECT_TRUE(Drain(m_stream).empty()) << "nothing stale";
    Send(20, 3);
    EXPECT_EQ(Count(enyx_hw_a2c_stream_stats_get_packet_count), 1U);
    EXPECT_EQ(Drain(m_stream).front().front(), 3);
}

TEST_F(LibraryStream, AKilledHoldersStreamIsFreeAtOnce) {
    boardtest::HoldingChild receiver([] {
        return OpenA2c(Accelerator(), "CUSTOM_CHAN3_DATA") != nullptr &&
               OpenC2a(Accelerator(), "CUSTOM_CHAN3_DATA") != nullptr;
    });
    ASSERT_TRUE(receiver.Holds());
    EXPECT_EQ(OpenA2c(m_accelerator, "CUSTOM_CHAN3_DATA"), nullptr);
    EXPECT_EQ(errno, EBUSY);
    Send(100, 1);
    receiver.Kill();
    Open();
    m_requests = OpenC2a(m_accelerator, "CUSTOM_CHAN3_DATA");
    EXPECT_NE(m_requests, nullptr);
    EXPECT_TRUE(Drain(m_stream).empty());
    Send(100, 2);
    EXPECT_EQ(Drain(m_stream).front().front(), 2);
}

TEST_F(LibraryStream, AChildOfTheHolderDoesNotKeepTheStream) {
    Open();
    boardtest::HoldingChild child([] { return true; });
    ASSERT_TRUE(child.Holds());
    enyx_hw_a2c_stream_destroy(m_stream);
    Open();  // while the child lives
}

TEST_F(LibraryStream, BackPressureIsCountedWhenTheRingIsFull) {
    Open();
    int sent = 0;
    while (Sender().Total().dropped < 3) {
        Send(1500, 1);
        ++sent;
    }
    EXPECT_EQ(Count(enyx_hw_a2c_stream_stats_get_backpressure), 3U);
    EXPECT_EQ(Count(enyx_hw_a2c_stream_stats_get_packet_count), static_cast<uint32_t>(sent - 3));
    EXPECT_EQ(Drain(m_stream).size(), static_cast<size_t>(sent - 3));
    EXPECT_EQ(Count(enyx_hw_a2c_stream_stats_get_fifo_errors), 0U);
    EXPECT_EQ(Count(enyx_hw_a2c_stream_stats_get_errors), 0U);
    Send(1500, 9);
    EXPECT_EQ(Drain(m_stream).front().front(), 9);
}

TEST_F(LibraryStream, GarbageInTheRingIsCountedAsAnError) {
    Open();
    Send(100, 1);
    m_board->Shm().a2c[3].data[2] = 0x77;  // part of the record's header
    m_board->Shm().a2c[3].data[1] = 0xFF;
    EXPECT_TRUE(Drain(m_stream).empty());
    // A header of a foreign tag may be a left-over of the opening before; a good one was not seen.
    Send(100, 2);
    EXPECT_EQ(Drain(m_stream).size(), 1U);
    EXPECT_EQ(Count(enyx_hw_a2c_stream_stats_get_errors), 1U);
}

TEST_F(LibraryStream, APolledOutStreamOfADeadBoardIsIdleAndCannotBeOpenedAgain) {
    Open();
    Send(100, 1);
    m_board.reset();
    EXPECT_EQ(Drain(m_stream).size(), 1U);
    EXPECT_TRUE(Drain(m_stream).empty());
    enyx_hw_a2c_stream_destroy(m_stream);
    m_stream = OpenA2c(m_accelerator, "CUSTOM_CHAN3_DATA");
    EXPECT_EQ(m_stream, nullptr);
    EXPECT_EQ(errno, ENODEV);
}

TEST_F(LibraryStream, RequestsReachTheBoardAndAFullRingSaysTryAgain) {
    m_requests = OpenC2a(m_accelerator, "CUSTOM_CHAN0_DATA");
    ASSERT_NE(m_requests, nullptr);
    const std::vector<unsigned char> request(2048, 1);
    EXPECT_EQ(enyx_hw_c2a_stream_send(m_requests, request.data(), 1), 0);
    EXPECT_EQ(enyx_hw_c2a_stream_send(m_requests, request.data(), 2048), 0);
    m_playing.DrainRequests();
    EXPECT_EQ(m_playing.Requests(), 2U);
    uint64_t sent = 2;
    int result = 0;
    while ((result = enyx_hw_c2a_stream_send(m_requests, request.data(), 2048)) == 0) {
        ++sent;
        ASSERT_LT(sent, 1000U);
    }
    EXPECT_EQ(result, 11);
    m_playing.DrainRequests();
    EXPECT_EQ(m_playing.Requests(), sent);
    EXPECT_EQ(enyx_hw_c2a_stream_send(m_requests, request.data(), 2048), 0);
    EXPECT_LT(enyx_hw_c2a_stream_send(m_requests, request.data(), 2049), 0);
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_LT(enyx_hw_c2a_stream_send(m_requests, request.data(), 0), 0);
    EXPECT_LT(enyx_hw_c2a_stream_send(m_requests, nullptr, 5), 0);
}

TEST_F(LibraryStream, RequestsOfASenderThatClosedOrDiedStillReachTheBoard) {
    const char request[] = "request";
    m_requests = OpenC2a(m_accelerator, "CUSTOM_CHAN0_DATA");
    enyx_hw_c2a_stream_send(m_requests, request, sizeof(request));
    enyx_hw_c2a_stream_destroy(m_requests);
    boardtest::HoldingChild sender([&request] {
        return enyx_hw_c2a_stream_send(OpenC2a(Accelerator(), "CUSTOM_CHAN0_DATA"), request,
                                       sizeof(request)) == 0;
    });
    ASSERT_TRUE(sender.Holds());
    sender.Kill();
    m_requests = OpenC2a(m_accelerator, "CUSTOM_CHAN0_DATA");
    ASSERT_NE(m_requests, nullptr);
    enyx_hw_c2a_stream_send(m_requests, request, sizeof(request));
    m_playing.DrainRequests();
    EXPECT_EQ(m_playing.Requests(), 3U);
}

}  // namespace
