#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <utility>

#include "ctlFixture.h"
#include "memory/Faults.h"

namespace {

using boardtest::AnsweringThread;
using nlohmann::json;
using testing::HasSubstr;
using ZceBoard::CFaults;
using ZceBoard::Fault;
using ZceBoard::Request;

using Asked = std::vector<std::pair<Request, uint64_t>>;

class CtlAsk : public boardtest::CtlFixture {
  protected:
    // A board that notes what it is asked for, and answers `result`.
    AnsweringThread Answering(int result) {
        return AnsweringThread(Shm(), [this, result](Request request, uint64_t argument) {
            m_asked.emplace_back(request, argument);
            return result;
        });
    }

    // What a board that answers `result` to everything makes of a command.
    std::string RefusedWith(int result, const std::vector<const char*>& arguments) {
        const AnsweringThread board = Answering(result);
        return Refused(arguments);
    }

    Asked m_asked;  // to be looked at when the board does not answer any more
};

TEST_F(CtlAsk, EachCommandAsksForItsThingAndTellsTheClock) {
    Shm().stats.date = 20261120;
    Shm().stats.hhmmss = 90000;
    Shm().stats.phase = 2;
    Shm().stats.paused = 1;
    Shm().stats.speedMilli = 1000;
    {
        const AnsweringThread board = Answering(0);
        const std::string clock = "bus 0: 2026-11-20 09:00:00.000, trading, paused, speed 1\n";
        EXPECT_EQ(Said({"pause"}), clock);
        EXPECT_EQ(Said({"resume"}), clock);
        EXPECT_EQ(Said({"step"}), clock);
        EXPECT_EQ(Said({"step", "100"}), clock);
        EXPECT_EQ(Said({"advance", "to", "09:05:07"}), clock);
        EXPECT_EQ(Said({"advance", "23:59:59"}), clock);
        EXPECT_EQ(json::parse(Said({"pause", "--json"})), json::parse(R"({
            "bus": 0, "date": "2026-11-20", "time": "09:00:00.000", "phase": "trading",
            "paused": true, "speed": 1})"));
    }
    EXPECT_EQ(m_asked, (Asked{{Request::Pause, 0},
                              {Request::Resume, 0},
                              {Request::Step, 1},
                              {Request::Step, 100},
                              {Request::Advance, 90507},
                              {Request::Advance, 235959},
                              {Request::Pause, 0}}));
}

TEST_F(CtlAsk, ALongStepIsMadeASecondAtATime) {
    {
        const AnsweringThread board = Answering(0);
        Said({"step", "2500"});
    }
    EXPECT_EQ(m_asked, (Asked{{Request::Step, 1000}, {Request::Step, 1000}, {Request::Step, 500}}));
}

TEST_F(CtlAsk, WhatTheBoardRefusesIsSaidInWords) {
    const std::string where = "zce-board ctl: bus 0: ";
    EXPECT_EQ(RefusedWith(EPERM, {"step"}),
              where + "a step can be made only while the board is paused\n");
    EXPECT_EQ(RefusedWith(EINVAL, {"step", "7"}), where + "a step of 7 ms is not possible\n");
    EXPECT_EQ(RefusedWith(EINVAL, {"advance", "to", "09:00:00"}),
              where + "the clock cannot go forward to 09:00:00\n");
    EXPECT_EQ(RefusedWith(ENOTSUP, {"advance", "09:00:00"}),
              where + "the board's traffic has a time of its own, which cannot be moved\n");
    EXPECT_EQ(RefusedWith(EIO, {"pause"}), where + "Input/output error\n");
}

TEST_F(CtlAsk, WhatIsSoAlreadyIsSaidAndNoError) {
    Shm().stats.date = 20261120;
    Shm().stats.hhmmss = 90000;
    Shm().stats.phase = 2;
    Shm().stats.speedMilli = 1000;
    const std::string clock = "bus 0: 2026-11-20 09:00:00.000, trading, running, speed 1\n";
    const AnsweringThread board = Answering(EALREADY);
    EXPECT_EQ(Said({"pause"}), "bus 0: already paused\n" + clock);
    EXPECT_EQ(Said({"resume"}), "bus 0: already running\n" + clock);
    EXPECT_EQ(json::parse(Said({"resume", "--json"}))["phase"], "trading");
}

TEST_F(CtlAsk, ABoardThatDoesNotAnswerIsNamed) {
    EXPECT_EQ(Refused({"pause"}),
              "zce-board ctl: bus 0: the board (process 4711) does not answer\n");
}

TEST_F(CtlAsk, ABoardThatIsAskedBySomebodyElseAllTheTimeIsSaid) {
    ZceBoard::CBoardFile other;
    ASSERT_EQ(m_memory->Reopen(other), 0);
    ASSERT_EQ(other.Lock(ZceBoard::LOCK_CONTROL), 0);
    EXPECT_EQ(Refused({"pause"}),
              "zce-board ctl: bus 0: somebody else is asking the board all the time\n");
}

TEST_F(CtlAsk, ABoardThatGoesWhileItIsAskedIsSaid) {
    std::thread end([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        unlink(ShmPath().c_str());
    });
    EXPECT_EQ(Refused({"pause"}), "zce-board ctl: bus 0: the board (process 4711) is gone\n");
    end.join();
}

TEST_F(CtlAsk, WithoutABoardThatCanBeLookedAtEveryCommandSaysWhy) {
    for (const char* command : {"status", "registers", "tables", "counters", "pause", "step"}) {
        EXPECT_EQ(Refused({"--bus", "3", command}),
                  "zce-board ctl: bus 3: no zce-board is running on it\n");
    }
    EXPECT_EQ(Refused({"fault", "list", "--bus", "4"}),
              "zce-board ctl: bus 4: no zce-board is running on it\n");
    Shm().header.version = 99;
    EXPECT_EQ(Refused({"status"}),
              "zce-board ctl: bus 0: the zce-board running on it is of another version\n");
    setenv("ZCE_BOARD_SHM_PREFIX", "a/b", 1);
    EXPECT_EQ(Refused({"status"}),
              "zce-board ctl: ZCE_BOARD_SHM_PREFIX cannot be part of a name in shared memory\n");
}

TEST_F(CtlAsk, ABoardThatHasNotSaidAnythingYetIsWaitedFor) {
    Shm().stats.passes = 0;
    Shm().stats.hhmmss = 90000;
    std::thread begin([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        Shm().stats.hhmmss = 93000;
        Shm().stats.passes = 2;
    });
    EXPECT_THAT(Said({"status"}), HasSubstr("09:30:00"));
    begin.join();
}

TEST_F(CtlAsk, AUsageErrorSaysWhatAndWhereInOneLine) {
    const char* const commands =
        "; there are status, registers, tables, counters, advance, pause, resume, step, fault\n";
    const std::vector<std::pair<std::vector<const char*>, std::string>> cases = {
        {{}, std::string("a command is missing") + commands},
        {{"bogus"}, std::string("no such command: 'bogus'") + commands},
        {{"fault"}, "fault: a command is missing; there are list, kinds, on, off\n"},
        {{"fault", "up"}, "fault: no such command: 'up'; there are list, kinds, on, off\n"},
        {{"fault", "on"}, "fault on: kind is required\n"},
        {{"status", "--bus", "10"}, "status: --bus: Value 10 not in range 0 to 9\n"},
        {{"status", "all", "of"}, "status: not expected: all of\n"},
        {{"tables", "--channel", "16"}, "tables: --channel: Value 16 not in range 0 to 15\n"},
        {{"tables", "--all", "--channel", "1"}, "tables: --channel excludes --all\n"},
        {{"registers", "0x20000"},
         "registers: \"0x20000\": a register is 0x0 to 0x1ffff, or the same in decimal; a range is "
         "FIRST-LAST\n"},
        {{"registers", "0x12", "0x12-"},
         "registers: \"0x12-\": a register is 0x0 to 0x1ffff, or the same in decimal; a range is "
         "FIRST-LAST\n"},
        {{"registers", "12-0x2"}, "registers: \"12-0x2\": the range ends before it begins\n"},
        {{"step", "0"}, "step: \"0\": a step is 1 to 86400000 ms of board time\n"},
        {{"step", "86400001"}, "step: \"86400001\": a step is 1 to 86400000 ms of board time\n"},
        {{"step", "1s"}, "step: \"1s\": a step is 1 to 86400000 ms of board time\n"},
        {{"advance"}, "advance: time is required\n"},
    };
    for (const auto& [arguments, error] : cases) {
        EXPECT_EQ(Refused(arguments), "zce-board ctl: " + error);
    }
    for (const char* time : {"24:00:00", "09:60:00", "09:00:60", "9:00:00", "09:00", "090000",
                             "09:00:0a", "09-00-00", ""}) {
        EXPECT_EQ(Refused({"advance", "to", time}),
                  std::string("zce-board ctl: advance: \"to ") + time +
                      "\": a time of day is HH:MM:SS, 00:00:00 to 23:59:59\n");
    }
    EXPECT_THAT(Refused({"advance", "at", "09:00:00"}), HasSubstr("\"at 09:00:00\""));
}

TEST_F(CtlAsk, HelpIsNoError) {
    EXPECT_THAT(Said({"--help"}), HasSubstr("registers"));
    EXPECT_THAT(Said({"tables", "--help"}), HasSubstr("--channel"));
}

TEST_F(CtlAsk, AFaultIsOnWhenTheBoardHasSeenIt) {
    const AnsweringThread board = Answering(0);
    const uint64_t before = Shm().stats.passes;
    EXPECT_EQ(Said({"fault", "on", "read-fails", "every=3", "register=0x11"}),
              "bus 0: read-fails register=0x11 every=3 is on\n");
    EXPECT_GE(Shm().stats.passes, before + 2);
    const CFaults faults(Shm());
    EXPECT_TRUE(faults.IsOn(Fault::ReadFails, 0x11));
    EXPECT_FALSE(faults.IsOn(Fault::ReadFails, 0x12));
    EXPECT_EQ(faults.Words(Fault::ReadFails).every, 3U);
}

TEST_F(CtlAsk, FaultsThatAreOnAreListedWithTheirStrikes) {
    const AnsweringThread board = Answering(0);
    EXPECT_EQ(Said({"fault", "list"}), "no fault is on\n");
    EXPECT_EQ(json::parse(Said({"fault", "list", "--json"})),
              json::parse(R"({"bus": 0, "faults": []})"));
    Said({"fault", "on", "stream-refused", "channel=3"});
    Said({"fault", "on", "link-down", "value=7"});
    CFaults faults(Shm());
    faults.Strikes(Fault::StreamRefused, 3);
    faults.Strikes(Fault::StreamRefused, 3);
    EXPECT_EQ(Said({"fault", "list"}),
              "fault                     occasions  strikes\n"
              "link-down value=7                 -        -\n"
              "stream-refused channel=3          2        2\n");
    EXPECT_EQ(json::parse(Said({"fault", "on", "crash", "--json"})), json::parse(R"({
        "bus": 0,
        "faults": [{"kind": "link-down", "value": 7},
                   {"kind": "stream-refused", "channel": 3, "every": 1, "limit": 0,
                    "occasions": 2, "strikes": 2},
                   {"kind": "crash"}]})"));
}

TEST_F(CtlAsk, AFaultIsSwitchedOffAloneOrWithAllOthers) {
    const AnsweringThread board = Answering(0);
    for (const char* kind : {"read-fails", "core-twice", "send-busy"}) {
        Said({"fault", "on", kind});
    }
    const CFaults faults(Shm());
    const uint64_t before = Shm().stats.passes;
    EXPECT_EQ(Said({"fault", "off", "core-twice"}), "bus 0: core-twice is off\n");
    EXPECT_GE(Shm().stats.passes, before + 2);
    EXPECT_FALSE(faults.IsOn(Fault::CoreTwice));
    EXPECT_TRUE(faults.IsOn(Fault::ReadFails));
    EXPECT_EQ(Said({"fault", "off", "all"}), "bus 0: all faults are off\n");
    EXPECT_FALSE(faults.Any());
}

TEST_F(CtlAsk, AFaultThatDoesNotExistIsRefusedAndNothingIsSet) {
    EXPECT_THAT(Refused({"fault", "on", "fire"}),
                testing::StartsWith(
                    "zce-board ctl: fault on: no such fault: 'fire'; there are link-down, "));
    EXPECT_EQ(Refused({"fault", "on", "link-down", "value=16"}),
              "zce-board ctl: fault on: link-down: 'value=16': allowed is value=0..15\n");
    EXPECT_THAT(Refused({"fault", "off", "fire"}),
                testing::StartsWith(
                    "zce-board ctl: fault off: no such fault: 'fire'; there are all, link-down, "));
    EXPECT_FALSE(CFaults(Shm()).Any());
}

TEST_F(CtlAsk, ABoardThatIsKilledOnRequestIsNoError) {
    std::thread killed([this] {
        while (!CFaults(Shm()).IsOn(Fault::Crash)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        unlink(ShmPath().c_str());
    });
    EXPECT_EQ(Said({"fault", "on", "crash"}), "bus 0: crash is on\n");
    killed.join();
}

TEST_F(CtlAsk, TheKindsOfFaultsAreToldWithoutABoard) {
    m_memory.reset();
    const std::string text = Said({"fault", "kinds"});
    EXPECT_THAT(text, HasSubstr("  slow-reader [channel=0..15] [value=4096..2097152]\n"));
    EXPECT_THAT(text, HasSubstr("  crash\n"));
    const json kinds = json::parse(Said({"fault", "kinds", "--json"}))["kinds"];
    ASSERT_EQ(kinds.size(), 15U);
    EXPECT_EQ(kinds[0], json::parse(R"({
        "kind": "link-down", "target": null, "value": {"key": "value", "min": 0, "max": 15},
        "counted": false, "text": "the link status 0x103 reads value"})"));
    EXPECT_EQ(kinds[3]["target"], json::parse(R"({"key": "register", "min": 0, "max": 131071})"));
}

}  // namespace
