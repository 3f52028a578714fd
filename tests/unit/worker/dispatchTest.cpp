// What becomes of a received message, by its type.

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <vector>

#include "mapPacket.h"
#include "workerBench.h"

namespace {
int g_failingSignal = 0;  // whose sigaction fails
int g_sigactions = 0;
}  // namespace

extern "C" {
// The linker's names for the call as the code under test makes it, and for the real one.
int __real_sigaction(int sig, const struct sigaction* now, struct sigaction* before);
int __wrap_sigaction(int sig, const struct sigaction* now, struct sigaction* before);
int __wrap_sigaction(int sig, const struct sigaction* now, struct sigaction* before) {
    ++g_sigactions;
    if (sig == g_failingSignal && now != nullptr) {
        errno = EINVAL;
        return -1;
    }
    return __real_sigaction(sig, now, before);
}
}

namespace {

using velatest::Bytes_t;
using velatest::Lines_t;
using velatest::Peer;
using velatest::RecordingSpi;
using velatest::StdoutCapture;
using velatest::WorkerBench;

class Dispatch : public WorkerBench {
  protected:
    Dispatch() { MakeWorker(channel3Ini); }
    ~Dispatch() override { CSignalProcess::m_isExit = 0; }

    void Receive(const Bytes_t& message) {
        CZceDmaChanImpl::DmaEntrance(message.data(), static_cast<unsigned int>(message.size()),
                                     chan);
    }
};

TEST_F(Dispatch, TypesSeventeenToTwentyGoToSlotsZeroToThreeWithByteTwelve) {
    for (std::uint8_t type = 17; type <= 20; ++type) {
        const Bytes_t message = {type, 0, 0, 0, 9, 9, 9, 9, 9, 9, 9, 9, 0xB0};
        spi.calls.clear();
        Peer::GotData(*chan) = 0;
        CZceDmaChanImpl::DmaEntrance(message.data(), 13, chan);
        ASSERT_EQ(spi.calls.size(), 1U);
        EXPECT_EQ(spi.calls[0].slot, type - 17);
        EXPECT_EQ(spi.calls[0].body, message.data() + 12);
        EXPECT_EQ(Peer::GotData(*chan), 1U);
    }
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(Dispatch, HandleUpSubsResultDeliversLikewise) {
    for (std::uint8_t type = 17; type <= 20; ++type) {
        const Bytes_t message = {type, 0, 0, 0, 9, 9, 9, 9, 9, 9, 9, 9, 0xB0};
        spi.calls.clear();
        chan->HandleUpSubsResult(message.data(), 13, chan);
        ASSERT_EQ(spi.calls.size(), 1U);
        EXPECT_EQ(spi.calls[0].slot, type - 17);
        EXPECT_EQ(spi.calls[0].body, message.data() + 12);
    }
    EXPECT_EQ(Peer::GotData(*chan), 1U);
}

TEST_F(Dispatch, AMessageWithoutABodyIsDeliveredToo) {
    Receive({17, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(spi.calls.size(), 1U);
}

TEST_F(Dispatch, TheWholeOf32BitsIsTheType) {
    Receive({17, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    Receive({17, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_TRUE(spi.calls.empty());
    EXPECT_EQ(log.Lines(), (Lines_t{"ERROR Unsupported dma type 0x111",
                                    "ERROR Unsupported dma type 0x1000011"}));
}

TEST_F(Dispatch, AnyOtherTypeIsLoggedAndDropped) {
    for (const std::uint8_t type : Bytes_t{0, 1, 3, 16, 21, 255}) {
        Receive({type, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    }
    EXPECT_EQ(log.Lines(),
              (Lines_t{"ERROR Unsupported dma type 0x0", "ERROR Unsupported dma type 0x1",
                       "ERROR Unsupported dma type 0x3", "ERROR Unsupported dma type 0x10",
                       "ERROR Unsupported dma type 0x15", "ERROR Unsupported dma type 0xff"}));
    EXPECT_EQ(Peer::GotData(*chan), 0U);
    EXPECT_EQ(Peer::SignalRegister(), 0);
}

TEST_F(Dispatch, AShortMessageOfAnotherTypeIsUnsupportedToo) {
    Receive({21, 0, 0, 0});
    EXPECT_EQ(log.Lines(), Lines_t{"ERROR Unsupported dma type 0x15"});
}

TEST_F(Dispatch, MarketDataShorterThanItsHeadIsOneWarning) {
    for (std::size_t len = 4; len < 12; ++len) {
        log.Clear();
        Bytes_t message(len, 0);
        message[0] = 20;
        Receive(message);
        EXPECT_EQ(log.Lines(), Lines_t{"WARN Dma message of " + std::to_string(len) +
                                       " bytes is too short for its kind. It is dropped."});
    }
    EXPECT_TRUE(spi.calls.empty());
    EXPECT_EQ(Peer::GotData(*chan), 0U);
}

TEST_F(Dispatch, AMessageWithoutATypeIsOneWarning) {
    for (std::size_t len = 0; len < 4; ++len) {
        log.Clear();
        Receive(Bytes_t(len, 2));
        EXPECT_EQ(log.Lines(), Lines_t{"WARN Dma message of " + std::to_string(len) +
                                       " bytes is too short for its kind. It is dropped."});
    }
}

TEST_F(Dispatch, HandleUpSubsResultRefusesShortMessagesToo) {
    const Bytes_t message = {17, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7};
    chan->HandleUpSubsResult(message.data(), 11, chan);
    chan->HandleUpSubsResult(message.data(), 3, chan);
    EXPECT_TRUE(spi.calls.empty());
    EXPECT_EQ(log.Lines(),
              (Lines_t{"WARN Dma message of 11 bytes is too short for its kind. It is dropped.",
                       "WARN Dma message of 3 bytes is too short for its kind. It is dropped."}));
}

TEST_F(Dispatch, HandleUpSubsResultPrintsAnyOtherTypeInHexadecimal) {
    Bytes_t message = {21, 0, 0, 0, 0xAB, 0xCD, 0xEF, 0x01, 0x23, 0x45, 0x67};
    StdoutCapture out;
    chan->HandleUpSubsResult(message.data(), 11, chan);
    out.Stop();
    EXPECT_EQ(log.Lines(), Lines_t{"ERROR Unsupported dma type, type:21."});
    const std::string text = out.Text();
    const std::string expected = "15000000ABCDEF01234567\n";
    ASSERT_GE(text.size(), expected.size());
    EXPECT_EQ(text.substr(text.size() - expected.size()), expected);
    EXPECT_EQ(Peer::SignalRegister(), 0);
    EXPECT_EQ(Peer::GotData(*chan), 0U);
}

TEST_F(Dispatch, HandleUpSubsResultPrintsAMessageOfEightBytesWhole) {
    Bytes_t message = {22, 0, 0, 0, 1, 2, 3, 4};
    StdoutCapture out;
    chan->HandleUpSubsResult(message.data(), 8, chan);
    out.Stop();
    EXPECT_TRUE(out.Text().ends_with("1600000001020304\n"));
    EXPECT_EQ(log.Lines(), Lines_t{"ERROR Unsupported dma type, type:22."});
}

struct sigaction ActionOf(int sig) {
    struct sigaction action {};
    sigaction(sig, nullptr, &action);
    return action;
}

TEST_F(Dispatch, TheFirstMarketDataMessageInstallsTheSignalHandlersBeforeItsCallback) {
    class LookingSpi : public RecordingSpi {
      public:
        void OnDmaType18Msg(const unsigned char* body) override {
            RecordingSpi::OnDmaType18Msg(body);
            installed = ActionOf(SIGINT).sa_sigaction == CSignalProcess::SignalHandler &&
                        ActionOf(SIGTERM).sa_sigaction == CSignalProcess::SignalHandler;
        }
        bool installed = false;
    } looking;
    api.m_pSpi = &looking;
    Receive({21, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(ActionOf(SIGINT).sa_handler, SIG_DFL);
    EXPECT_EQ(ActionOf(SIGTERM).sa_handler, SIG_DFL);
    Receive({18, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_TRUE(looking.installed);
    EXPECT_EQ(Peer::SignalRegister(), 1);
}

TEST_F(Dispatch, TheSignalHandlersAreInstalledOncePerProcess) {
    Receive({17, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    signal(SIGTERM, SIG_DFL);
    Receive({17, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(ActionOf(SIGTERM).sa_handler, SIG_DFL);
}

TEST_F(Dispatch, AFailedInstallationIsNotTriedAgain) {
    g_failingSignal = SIGTERM;
    Receive({17, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xB0});
    g_failingSignal = 0;
    EXPECT_EQ(log.Lines(),
              Lines_t{"ERROR Failed to install SIGTERM handle! msg:Invalid argument."});
    ASSERT_EQ(spi.calls.size(), 1U);
    EXPECT_EQ(Peer::SignalRegister(), 1);
    EXPECT_EQ(ActionOf(SIGINT).sa_sigaction, &CSignalProcess::SignalHandler);
    EXPECT_EQ(ActionOf(SIGTERM).sa_handler, SIG_DFL);
    EXPECT_EQ(ActionOf(SIGPIPE).sa_handler, SIG_DFL);
    g_sigactions = 0;
    Receive({17, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xB0});
    EXPECT_EQ(g_sigactions, 0);
    EXPECT_EQ(spi.calls.size(), 2U);
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(Dispatch, AnInterruptBeforeTheFirstMarketDataEndsTheProcess) {
    EXPECT_EXIT(
        {
            Receive({21, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
            raise(SIGINT);
        },
        testing::KilledBySignal(SIGINT), "");
}

TEST_F(Dispatch, AnInterruptAfterTheFirstMarketDataSetsTheExitFlag) {
    Receive({17, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    raise(SIGINT);
    EXPECT_EQ(CSignalProcess::m_isExit, 1);
}

TEST_F(Dispatch, AMapPacketOnAChannelThatIsNotTheMasterIsOneWarning) {
    Receive(velatest::MapPacket().Add("SR209", 7).Packet());
    EXPECT_EQ(log.Lines(), Lines_t{"WARN Instrument map packet on a channel that is not the "
                                   "master. It is dropped."});
    EXPECT_TRUE(Peer::Insts(*chan).empty());
    EXPECT_TRUE(drv->Accesses().empty());
}

}  // namespace
