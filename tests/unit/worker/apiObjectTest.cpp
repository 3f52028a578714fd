// Rules of the API object that hold across its operations: threads, signals, what it keeps.

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <future>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "apiBench.h"
#include "sanitizers.h"
#include "wrappedCalls.h"

namespace {

bool s_failNothrowNew = false;

}  // namespace

// As the C++ library's own; it fails when told to.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return s_failNothrowNew ? nullptr : ::operator new(size);
}

namespace {

using velatest::ApiBench;
using velatest::FakeClock;
using velatest::FakeEnyx;
using velatest::Lines_t;
using velatest::OpenApi;
using velatest::RecordingSpi;
using velatest::WrappedCalls;

class ApiObject : public ApiBench {
  protected:
    ~ApiObject() override { WrappedCalls::holdLogInit = false; }
};

// Ends by itself after some polls.
class CountedApi : public OpenApi {
  public:
    CountedApi() : OpenApi(nullptr) {}
    int VelaRecv() override { return ++polls < 1000 ? OpenApi::VelaRecv() : -1; }
    int polls = 0;
};

TEST_F(ApiObject, RecvStartPollsWithoutSleeping) {
    CountedApi api;
    EXPECT_EQ(api.VelaRecvStart(spi, "chan3.ini"), 0);
    EXPECT_EQ(FakeEnyx::PollCount(), 999U);
    EXPECT_TRUE(FakeClock::Sleeps().empty());
}

class ThreadSpi : public RecordingSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override {
        RecordingSpi::OnDmaType17Msg(body);
        thread = std::this_thread::get_id();
    }
    std::thread::id thread;
};

TEST_F(ApiObject, TheCallbackIsMadeByThePollingThreadBeforeThePollReturns) {
    ThreadSpi looking;
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(looking, "chan3.ini"), 0);
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(17));
    std::thread([&] {
        EXPECT_EQ(api.VelaRecv(), 1);
        EXPECT_EQ(looking.calls.size(), 1U);
        EXPECT_EQ(looking.thread, std::this_thread::get_id());
    }).join();
}

TEST_F(ApiObject, TheStartInstallsNoSignalHandlers) {
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(api.VelaRecv(), 0);
    for (const int sig : {SIGINT, SIGTERM, SIGPIPE}) {
        struct sigaction action {};
        ASSERT_EQ(sigaction(sig, nullptr, &action), 0);
        EXPECT_EQ(action.sa_handler, SIG_DFL) << sig;
    }
}

TEST_F(ApiObject, ADestroyedObjectsConfigurationStaysUsable) {
    auto api = std::make_unique<OpenApi>(nullptr);
    ASSERT_EQ(api->VelaStart(spi, "chan3.ini"), 0);
    Vela2_U50::CZceConfigFile* const cfg = api->m_pCfg;
    api.reset();
    EXPECT_EQ(cfg->GetDmaChannel(), 3U);
    EXPECT_EQ(cfg->GetDmaChanName(), "CUSTOM_CHAN3_DATA");
}

TEST_F(ApiObject, ASecondStartMakesNoSecondLogger) {
    WrappedCalls::holdLogInit = true;
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(spi, "chan3.ini"), 0);
    ASSERT_EQ(api.VelaStart(spi, "chan4.ini"), 0);
    EXPECT_EQ(WrappedCalls::logInits.size(), 1U);
}

TEST_F(ApiObject, ThreadsThatStartAtOnceMakeOneLogger) {
    WrappedCalls::holdLogInit = true;
    std::vector<std::future<int>> results;
    results.reserve(8);
    for (int i = 0; i < 8; ++i) {
        results.push_back(std::async(std::launch::async, [] {
            OpenApi api(nullptr);
            return api.LogInit("x.ini");
        }));
    }
    for (std::future<int>& result : results) {
        EXPECT_EQ(result.get(), 0);
    }
    EXPECT_EQ(WrappedCalls::logInits.size(), 1U);
}

TEST_F(ApiObject, AConfigurationThatCannotBeMadeEndsTheProcess) {
    if (velatest::newIsTheSanitizers) {
        GTEST_SKIP() << "a failing operator new is passed by";
    }
    EXPECT_EXIT(
        {
            OpenApi api(nullptr);
            s_failNothrowNew = true;
            api.VelaStart(spi, "chan3.ini");
            std::_Exit(9);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(LinesOfStart(),
              (Lines_t{"INFO Config file init fail", "ERROR Vela inner init fail."}));
}

TEST_F(ApiObject, OneThatIsNotStartedIsDestroyedWithoutALine) {
    IVelaZceMdApi::DestroyVelaZceMdApi(*IVelaZceMdApi::CreateVelaZceMdApi());
    EXPECT_EQ(log.Lines(), Lines_t{});
    EXPECT_TRUE(FakeEnyx::Calls().empty());
}

}  // namespace
