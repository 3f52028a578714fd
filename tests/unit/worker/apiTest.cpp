// The API object: its table, its members, its ways of receiving.

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <stdexcept>
#include <type_traits>

#include "apiBench.h"

namespace {

using velatest::ApiBench;
using velatest::FakeEnyx;
using velatest::Lines_t;
using velatest::OpenApi;
using velatest::RecordingSpi;

static_assert(std::is_abstract_v<IVelaZceMdApi> && std::is_abstract_v<IVelaZceMdSpi>);
static_assert(std::has_virtual_destructor_v<IVelaZceMdApi>);
static_assert(!std::has_virtual_destructor_v<IVelaZceMdSpi>);
static_assert(!std::is_destructible_v<IVelaZceMdSpi>);  // by the library
static_assert(std::is_base_of_v<CSignalProcess, CVelaZceMdApiImpl> &&
              std::is_empty_v<CSignalProcess>);
static_assert(!std::is_final_v<CVelaZceMdApiImpl>);

// Slot `slot` of an object's table. The object's class leads it with the table's address.
template <typename Function>
Function SlotOf(const void* object, int slot) {
    void* const* const table = *static_cast<void* const* const*>(object);
    return reinterpret_cast<Function>(table[slot]);
}

#if defined(__clang__)
// The call below has the operation's calling convention, not its C++ type.
#define VELAZCE_CALLS_BY_SLOT __attribute__((no_sanitize("function")))
#else
#define VELAZCE_CALLS_BY_SLOT
#endif

VELAZCE_CALLS_BY_SLOT void CallSpiSlot(IVelaZceMdSpi& spi, int slot, const unsigned char* body) {
    SlotOf<void (*)(IVelaZceMdSpi*, const unsigned char*)>(&spi, slot)(&spi, body);
}

TEST(SpiSlots, TheFourOperationsAreSlotsZeroToThree) {
    RecordingSpi spi;
    const unsigned char body = 0;
    for (int slot = 0; slot < 4; ++slot) {
        CallSpiSlot(spi, slot, &body);
    }
    ASSERT_EQ(spi.calls.size(), 4U);
    for (int slot = 0; slot < 4; ++slot) {
        EXPECT_EQ(spi.calls[static_cast<std::size_t>(slot)].slot, slot);
        EXPECT_EQ(spi.calls[static_cast<std::size_t>(slot)].body, &body);
    }
}

// Answers every operation with a number of its own.
class NumberedApi : public IVelaZceMdApi {
  public:
    explicit NumberedApi(int* destroyed) : m_destroyed(destroyed) {}
    ~NumberedApi() override { ++*m_destroyed; }
    NumberedApi(const NumberedApi&) = delete;
    NumberedApi& operator=(const NumberedApi&) = delete;
    int VelaRecvStart(IVelaZceMdSpi& /*spi*/, const char* /*cfgPath*/) override { return 100; }
    int VelaStart(IVelaZceMdSpi& /*spi*/, const char* /*cfgPath*/) override { return 101; }
    int VelaRecv() override { return 102; }

  private:
    int* m_destroyed;
};

VELAZCE_CALLS_BY_SLOT int CallStartSlot(IVelaZceMdApi& api, int slot, IVelaZceMdSpi& spi) {
    return SlotOf<int (*)(IVelaZceMdApi*, IVelaZceMdSpi*, const char*)>(&api, slot)(&api, &spi, "");
}
VELAZCE_CALLS_BY_SLOT int CallRecvSlot(IVelaZceMdApi& api, int slot) {
    return SlotOf<int (*)(IVelaZceMdApi*)>(&api, slot)(&api);
}

TEST(ApiSlots, RecvStartStartRecvThenTheTwoDestructors) {
    int destroyed = 0;
    auto* const api = new NumberedApi(&destroyed);
    RecordingSpi spi;
    EXPECT_EQ(CallStartSlot(*api, 0, spi), 100);
    EXPECT_EQ(CallStartSlot(*api, 1, spi), 101);
    EXPECT_EQ(CallRecvSlot(*api, 2), 102);
    // Slot 4 destroys and frees.
    CallRecvSlot(*api, 4);
    EXPECT_EQ(destroyed, 1);
}

TEST(ApiLayout, MembersFollowTheTableInTheirOrder) {
    OpenApi api(nullptr);
    const auto offset = [&api](const auto& member) {
        return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&api);
    };
    EXPECT_EQ(offset(api.m_pChan), 8);
    EXPECT_EQ(offset(api.m_pDrv), 16);
    EXPECT_EQ(offset(api.m_pCfg), 24);
    EXPECT_EQ(offset(api.m_pSpi), 32);
    EXPECT_EQ(sizeof(CVelaZceMdApiImpl), 40U);
    EXPECT_EQ(static_cast<void*>(static_cast<IVelaZceMdApi*>(&api)), static_cast<void*>(&api));
    EXPECT_EQ(OpenApi::m_ChanReady, 0);
}

TEST(ApiDestroy, AnObjectOfAnotherClassIsLeftAlone) {
    int destroyed = 0;
    NumberedApi api(&destroyed);
    IVelaZceMdApi::DestroyVelaZceMdApi(api);
    EXPECT_EQ(destroyed, 0);
}

class ApiReceive : public ApiBench {};

// Start and poll as a derived class gives them.
class ScriptedApi : public OpenApi {
  public:
    ScriptedApi() : OpenApi(nullptr) {}
    int VelaStart(IVelaZceMdSpi& spi, const char* cfgPath) override {
        m_pSpi = &spi;
        path = cfgPath;
        return startResult;
    }
    int VelaRecv() override { return ++polls < 5 ? polls % 2 : -1; }

    int startResult = 0;
    int polls = 0;
    std::string path;
};

TEST_F(ApiReceive, RecvStartHonoursOverriddenStartAndRecv) {
    ScriptedApi api;
    EXPECT_EQ(api.VelaRecvStart(spi, "some.ini"), 0);
    EXPECT_EQ(api.path, "some.ini");
    EXPECT_EQ(api.GetSpi(), &spi);
    EXPECT_EQ(api.polls, 5);  // results 1, 0, 1, 0 go on, -1 ends
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(ApiReceive, RecvStartReportsAFailedStartAndDoesNotPoll) {
    ScriptedApi api;
    api.startResult = 7;
    EXPECT_EQ(api.VelaRecvStart(spi, "some.ini"), -1);
    EXPECT_EQ(api.polls, 0);
    EXPECT_EQ(log.Lines(), Lines_t{"ERROR Vela init fail."});
}

TEST_F(ApiReceive, RecvDeliversAndTellsWhetherItDid) {
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(spi, "chan3.ini"), 0);
    EXPECT_EQ(api.VelaRecv(), 0);
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(17));
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(21));
    EXPECT_EQ(api.VelaRecv(), 1);
    EXPECT_EQ(api.VelaRecv(), 0);
    EXPECT_EQ(api.VelaRecv(), 0);
    ASSERT_EQ(spi.calls.size(), 1U);
    EXPECT_EQ(spi.calls[0].slot, 0);
}

TEST_F(ApiReceive, AfterAnInterruptRecvReturnsMinusOneWithoutTouchingTheBoard) {
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(spi, "chan3.ini"), 0);
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(17));
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(18));
    EXPECT_EQ(api.VelaRecv(), 1);
    raise(SIGINT);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(api.VelaRecv(), -1);
    }
    EXPECT_EQ(FakeEnyx::PollCount(), 1U);
    EXPECT_EQ(spi.calls.size(), 1U);
}

class EndingSpi : public RecordingSpi {
  public:
    explicit EndingSpi(int sig) : m_sig(sig) {}
    void OnDmaType20Msg(const unsigned char* body) override {
        RecordingSpi::OnDmaType20Msg(body);
        raise(m_sig);
    }

  private:
    int m_sig;
};

TEST_F(ApiReceive, RecvStartReceivesUntilASignalAndReturnsZero) {
    for (const int sig : {SIGINT, SIGTERM}) {
        CSignalProcess::m_isExit = 0;
        EndingSpi ending(sig);
        {
            OpenApi api(nullptr);
            for (const std::uint8_t type : std::vector<std::uint8_t>{17, 18, 19, 20, 17}) {
                FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(type));
            }
            EXPECT_EQ(api.VelaRecvStart(ending, "chan3.ini"), 0);
            EXPECT_EQ(ending.calls.size(), 4U);
            EXPECT_EQ(CSignalProcess::m_isExit, 1);
        }
        FakeEnyx::Reset();
    }
}

TEST_F(ApiReceive, RecvStartWithTheFlagSetStartsAndReturnsZero) {
    CSignalProcess::m_isExit = 1;
    OpenApi api(nullptr);
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(17));
    EXPECT_EQ(api.VelaRecvStart(spi, "chan3.ini"), 0);
    EXPECT_EQ(FakeEnyx::CountOf("a2c_stream_create"), 1);
    EXPECT_EQ(FakeEnyx::PollCount(), 0U);
    EXPECT_TRUE(spi.calls.empty());
}

// Leaves a number where a function's result stands, as an application may whose operations were
// written with one.
class AnsweringSpi : public RecordingSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Answer(body, 0); }
    void OnDmaType18Msg(const unsigned char* body) override { Answer(body, 1); }
    void OnDmaType19Msg(const unsigned char* body) override { Answer(body, 2); }
    void OnDmaType20Msg(const unsigned char* body) override { Answer(body, 3); }
    int answer = 0;

  private:
    void Answer(const unsigned char* body, int slot) {
        calls.push_back({slot, body});
#if defined(__x86_64__)
        asm volatile("" : : "a"(answer));
#endif
    }
};

TEST_F(ApiReceive, WhatACallbackReturnsIsNotLookedAt) {
    AnsweringSpi answering;
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(answering, "chan3.ini"), 0);
    for (const int answer : {0, 1, -1, INT_MAX}) {
        answering.answer = answer;
        answering.calls.clear();
        for (std::uint8_t type = 17; type <= 20; ++type) {
            FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(type));
            EXPECT_EQ(api.VelaRecv(), 1) << answer;
            EXPECT_EQ(api.VelaRecv(), 0) << answer;
        }
        EXPECT_EQ(answering.calls.size(), 4U);
    }
}

class ThrowingSpi : public RecordingSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override {
        RecordingSpi::OnDmaType17Msg(body);
        throw std::runtime_error("x");
    }
};

TEST_F(ApiReceive, ACallbackThatThrowsIsHeardOfAndItsMessageNotDeliveredTwice) {
    ThrowingSpi throwing;
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(throwing, "chan3.ini"), 0);
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(17));
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(18));
    EXPECT_THROW(api.VelaRecv(), std::runtime_error);
    EXPECT_EQ(api.VelaRecv(), 1);
    EXPECT_EQ(api.VelaRecv(), 0);
    ASSERT_EQ(throwing.calls.size(), 2U);
    EXPECT_EQ(throwing.calls[0].slot, 0);
    EXPECT_EQ(throwing.calls[1].slot, 1);
}

TEST_F(ApiReceive, RecvBeforeAStartIsRefusedWithOneWarning) {
    OpenApi api(nullptr);
    EXPECT_EQ(api.VelaRecv(), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"WARN VelaRecv before a successful VelaStart: there is no "
                                   "channel to poll."});
    EXPECT_EQ(FakeEnyx::PollCount(), 0U);
}

}  // namespace
