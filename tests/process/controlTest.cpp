#include "memory/Control.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "memory/CoreLock.h"
#include "playingBoard.h"
#include "traffic/LiveTraffic.h"

namespace boardtest {

namespace {

using ZceBoard::AskBoard;
using ZceBoard::Request;

// A board whose clock is the host's, as a running process has it; the host's time is the test's.
class Controlled : public BoardFixture {
  protected:
    Controlled() {
        setenv("TZ", "UTC", 1);
        tzset();
        m_list.Add("SR209");
        ZceBoard::LiveOptions options;
        options.rate = 10000;
        m_traffic = std::make_unique<ZceBoard::CLiveTraffic>(m_list, options);
        m_loop = std::make_unique<ZceBoard::CBoardLoop>(m_board, *m_traffic, 0, m_clock);
        ZceBoard::CRegisterFile(m_memory->Shm()).WriteWord(0x11, 3);
        Pass(0);
    }
    ~Controlled() override { unlink(m_clock.c_str()); }

    void Pass(int64_t ns) {
        for (int64_t left = ns; left >= 0; left -= MS) {
            m_loop->Pass(m_host);
            m_host.wallNs += left != 0 ? MS : 0;
            m_host.realNs += left != 0 ? MS : 0;
        }
    }
    // The answer to a request; the board passes meanwhile, its clocks standing still.
    int Ask(Request request, uint64_t argument = 0) {
        int result = -1;
        std::atomic<bool> done{false};
        std::thread asker([&] {
            result = AskBoard(*m_memory, request, argument);
            done = true;
        });
        while (!done) {
            m_loop->Pass(m_host);
        }
        asker.join();
        return result;
    }
    uint32_t Clock() { return ZceBoard::CRegisterFile(m_memory->Shm()).ReadWord(0x104); }
    uint64_t Parsed() const { return m_board.Parsed(); }

    std::string m_clock = testing::TempDir() + "/zceclock" + std::to_string(getpid());
    std::unique_ptr<ZceBoard::CBoardMemory> m_memory = MakeBoard();
    ZceBoard::CBoard m_board{*m_memory};
    ZceBoard::CInstrumentList m_list;
    std::unique_ptr<ZceBoard::CLiveTraffic> m_traffic;
    std::unique_ptr<ZceBoard::CBoardLoop> m_loop;
    // 2026-11-20 09:30:00 UTC
    ZceBoard::HostTime m_host{1795167000 * SECOND, 5 * SECOND};
};

TEST_F(Controlled, WhilePausedClockAndTrafficStandStillAndGoOnFromThere) {
    Pass(SECOND);
    EXPECT_EQ(Clock(), 93001U);
    EXPECT_EQ(Ask(Request::Pause), 0);
    const uint64_t parsed = Parsed();
    Pass(10 * SECOND);
    EXPECT_EQ(Clock(), 93001U);
    EXPECT_EQ(Parsed(), parsed);
    EXPECT_EQ(m_memory->Shm().stats.paused.load(), 1U);
    EXPECT_NE(m_loop->StatusLine().find(" paused"), std::string::npos);
    EXPECT_EQ(Ask(Request::Resume), 0);
    Pass(SECOND);
    EXPECT_EQ(Clock(), 93002U);
    EXPECT_EQ(Parsed(), parsed + 10000);
    EXPECT_EQ(m_memory->Shm().stats.paused.load(), 0U);
}

TEST_F(Controlled, AStepIsSoMuchTimeWithItsTraffic) {
    EXPECT_EQ(Ask(Request::Step, 5), EPERM);
    EXPECT_EQ(Ask(Request::Pause), 0);
    const uint64_t parsed = Parsed();
    EXPECT_EQ(Ask(Request::Step, 1500), 0);
    EXPECT_EQ(Clock(), 93001U);
    EXPECT_EQ(m_memory->Shm().stats.millisecond.load(), 500U);
    EXPECT_EQ(Parsed(), parsed + 15000);
    Pass(SECOND);
    EXPECT_EQ(Clock(), 93001U);
    EXPECT_EQ(Ask(Request::Step, 0), EINVAL);
    EXPECT_EQ(Ask(Request::Step, 60001), EINVAL);
    EXPECT_EQ(Ask(Request::Resume), 0);
    Pass(500 * MS);
    EXPECT_EQ(Clock(), 93002U);
}

TEST_F(Controlled, TheClockIsAdvancedForwardToATimeOfDay) {
    EXPECT_EQ(Ask(Request::Advance, 205500), 0);
    EXPECT_EQ(Clock(), 205500U);
    EXPECT_EQ(m_memory->Shm().stats.date.load(), 20261120U);
    Pass(SECOND);
    EXPECT_EQ(Clock(), 205501U);
    EXPECT_EQ(Ask(Request::Advance, 85500), 0);  // the next day's
    EXPECT_EQ(Clock(), 85500U);
    EXPECT_EQ(m_memory->Shm().stats.date.load(), 20261121U);
    EXPECT_EQ(Ask(Request::Advance, 246000), EINVAL);
    EXPECT_EQ(Ask(Request::Advance, 126000), EINVAL);
    EXPECT_EQ(Ask(Request::Advance, 120060), EINVAL);
}

TEST_F(Controlled, PausingTwiceAndResumingWhatGoesOnIsSaid) {
    EXPECT_EQ(Ask(Request::Resume), EALREADY);
    EXPECT_EQ(Ask(Request::Pause), 0);
    EXPECT_EQ(Ask(Request::Pause), EALREADY);
    EXPECT_EQ(Ask(static_cast<Request>(77)), EINVAL);
}

TEST_F(Controlled, ARequestThatNobodyWaitsForAnyMoreIsNotTakenForTheNextOne) {
    // Somebody asked and gave up; the board has not answered yet.
    ZceBoard::ControlMailbox& mailbox = m_memory->Shm().control;
    PutRequest(mailbox, mailbox.answered + 1, Request::Pause, 0);
    EXPECT_EQ(Ask(Request::Advance, 100000), 0);
    EXPECT_EQ(Clock(), 100000U);
    EXPECT_EQ(m_memory->Shm().stats.paused.load(), 1U) << "both were done";
}

TEST_F(Controlled, AStepThatALockedCoreHoldsUpIsNotDone) {
    EXPECT_EQ(Ask(Request::Advance, 205500), 0);  // an auction: the broadcast needs the core
    EXPECT_EQ(Ask(Request::Pause), 0);
    ZceBoard::CCoreLock lock(*m_memory);
    std::atomic<int> state{0};
    std::thread holder([&] {
        lock.Lock();
        state = 1;
        while (state != 2) {
            std::this_thread::yield();
        }
        lock.Unlock();
    });
    while (state != 1) {
        std::this_thread::yield();
    }
    EXPECT_EQ(Ask(Request::Step, 20000), EAGAIN);
    state = 2;
    holder.join();
    EXPECT_EQ(Ask(Request::Step, 20000), 0);
}

TEST_F(Controlled, ABoardThatIsGoneIsSaid) {
    ZceBoard::CBoardMemory user;
    ASSERT_EQ(user.Attach(0), 0);
    m_memory.reset();
    EXPECT_EQ(AskBoard(user, Request::Pause, 0), ENODEV);
    EXPECT_EQ(ZceBoard::AwaitPass(user), ENODEV);
}

TEST_F(Controlled, TheClockFileTellsHowFarTheBoardIsAheadOfTheMachine) {
    const auto told = [this] {
        std::ifstream file(m_clock);
        double seconds = 0;
        file >> seconds;
        return seconds;
    };
    const double before = told();
    EXPECT_EQ(Ask(Request::Advance, 103000), 0);
    EXPECT_NEAR(told() - before, 3600, 10);  // and what the test itself took
}

TEST_F(Controlled, AClockFileThatCannotBeThereIsSaid) {
    using ZceBoard::CClockFile;
    EXPECT_EQ(CClockFile::WhyNot(m_clock), "");
    EXPECT_EQ(CClockFile::WhyNot("clock"), "");
    EXPECT_EQ(CClockFile::WhyNot("/nowhere/clock"), "No such file or directory");
    EXPECT_EQ(CClockFile::WhyNot(m_clock + "/clock"), "Not a directory");
    EXPECT_EQ(CClockFile::WhyNot("/proc"), "Is a directory");
}

}  // namespace

}  // namespace boardtest
