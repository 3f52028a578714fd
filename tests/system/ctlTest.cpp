#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGSTOP
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "pausedBoard.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Ctl : public velatest::PausedBoard {
  protected:
    Ctl() { Start(); }

    json Asked(std::vector<std::string> arguments) {
        arguments.emplace_back("--json");
        return json::parse(PausedBoard::Ctl(arguments));
    }

    // The board's time of day in ms.
    static int Ms(const json& status) {
        int hour = 0;
        int minute = 0;
        int second = 0;
        int ms = 0;
        EXPECT_EQ(sscanf(status["time"].get<std::string>().c_str(), "%d:%d:%d.%d", &hour, &minute,
                         &second, &ms),
                  4);
        return ((hour * 60 + minute) * 60 + second) * 1000 + ms;
    }
};

TEST_F(Ctl, APausedBoardStandsStillAndGoesOnWhenItIsResumed) {
    Trade();
    const json paused = Asked({"status"});
    EXPECT_TRUE(paused["paused"]);
    EXPECT_EQ(paused["time"], "09:00:00.600");
    usleep(50'000);
    EXPECT_EQ(Asked({"status"}), paused);
    EXPECT_FALSE(Asked({"resume"})["paused"]);
    for (int k = 0; k < 1000 && Asked({"status"})["parsed"] == paused["parsed"]; ++k) {}
    const json later = Asked({"pause"});
    EXPECT_TRUE(later["paused"]);
    EXPECT_GT(Ms(later), 9 * 3'600'000 + 600);
    EXPECT_GT(Asked({"status"})["parsed"], paused["parsed"]);
}

TEST_F(Ctl, AStepLetsItsTimePassAndTheTrafficOfThatTime) {
    Trade();
    const json before = Asked({"status"});
    EXPECT_EQ(Ms(Asked({"step", "100"})), Ms(before) + 100);
    EXPECT_EQ(Asked({"status"})["parsed"], before["parsed"].get<int>() + 100);
    EXPECT_EQ(Ms(Asked({"step"})), Ms(before) + 101);
    // Longer than what the board does at once.
    EXPECT_EQ(Ms(Asked({"step", "70000"})), Ms(before) + 70'101);
    EXPECT_EQ(Asked({"status"})["parsed"], before["parsed"].get<int>() + 70'101);
}

TEST_F(Ctl, TheClockIsMovedForwardAndHostsReadIt) {
    EXPECT_THAT(PausedBoard::Ctl({"advance", "to", "09:30:00"}),
                HasSubstr(" 09:30:00.000, trading, paused, speed 1\n"));
    EXPECT_EQ(Registers().Peek(0x104), 93000U);
    const json today = Asked({"advance", "23:59:59"});
    EXPECT_EQ(today["phase"], "closed");
    // What is over today is meant tomorrow.
    const json tomorrow = Asked({"advance", "09:30:00"});
    EXPECT_EQ(tomorrow["time"], "09:30:00.000");
    EXPECT_GT(tomorrow["date"], today["date"]);
}

TEST_F(Ctl, TheCountsAreThoseOfWhatTheReadersGot) {
    Trade();
    const json status = Asked({"status"});
    ASSERT_EQ(status["channels"].size(), 2U);
    for (const json& channel : status["channels"]) {
        auto got = Drain(channel["channel"]);
        for (const uint32_t type : {2U, 17U, 18U, 19U, 20U}) {
            EXPECT_EQ(channel["type" + std::to_string(type)], got[type])
                << "channel " << channel["channel"] << " type " << type;
        }
        EXPECT_GT(channel["total"], 0);
        EXPECT_EQ(channel["dropped"], 0);
    }
    EXPECT_EQ(status["parsed"], 600);
    const json counters = Asked({"counters"});
    EXPECT_EQ(counters["channels"], status["channels"]);
    int parsed = 0;
    for (const json& count : counters["parse_counters"]["a"]) {
        parsed += count.get<int>();
    }
    EXPECT_EQ(parsed, 600);
}

TEST_F(Ctl, WhatTheBoardRefusesIsSaidWithExitStatus2) {
    EXPECT_THAT(PausedBoard::Ctl({"pause"}), StartsWith("bus 0: already paused\nbus 0: "));
    EXPECT_THAT(PausedBoard::Ctl({"resume"}), Not(HasSubstr("already")));
    EXPECT_THAT(PausedBoard::Ctl({"resume"}), StartsWith("bus 0: already running\nbus 0: "));
    EXPECT_EQ(PausedBoard::Ctl({"step"}, 2),
              "zce-board ctl: bus 0: a step can be made only while the board is paused\n");
    EXPECT_EQ(PausedBoard::Ctl({"status", "--bus", "1"}, 2),
              "zce-board ctl: bus 1: no zce-board is running on it\n");
}

TEST_F(Ctl, ABoardThatHangsIsLookedAtButDoesNotAnswer) {
    m_board->Signal(SIGSTOP);
    EXPECT_THAT(PausedBoard::Ctl({"status"}), HasSubstr("paused"));
    EXPECT_EQ(PausedBoard::Ctl({"resume"}, 2), "zce-board ctl: bus 0: the board (process " +
                                                   std::to_string(m_board->Pid()) +
                                                   ") does not answer\n");
    m_board->Signal(SIGCONT);
}

TEST_F(Ctl, AFaultIsThereWhenTheCommandHasEnded) {
    Trade();
    PausedBoard::Ctl({"fault", "on", "link-down", "value=5"});
    EXPECT_EQ(Asked({"status"})["link"], 5);
    PausedBoard::Ctl({"fault", "off", "link-down"});
    EXPECT_EQ(Asked({"status"})["link"], 15);
    EXPECT_EQ(Asked({"fault", "list"})["faults"], json::array());
}

TEST_F(Ctl, AnOutputThatCannotBeWrittenIsAnError) {
    const std::string command = std::string("'") + ZCE_BOARD_PROGRAM + "' ctl registers >/dev/full";
    velatest::Process process({"sh", "-c", command}, Where("full"));
    EXPECT_EQ(process.WaitEnd(), 2);
    EXPECT_EQ(process.Output(), "zce-board ctl: standard output: No space left on device\n");
}

TEST_F(Ctl, TheDocsShowWhatTheCommandsPrint) {
    using Command = std::vector<std::string>;
    Trade();
    const auto show = [this](const std::vector<Command>& commands) {
        std::string text;
        for (const Command& command : commands) {
            text += "$ zce-board ctl";
            for (const std::string& word : command) {
                text += " " + word;
            }
            text += "\n" + PausedBoard::Ctl(command);
        }
        return Fixed(text);
    };
    const std::vector<std::pair<const char*, std::vector<Command>>> blocks = {
        {"ctl status", {{"status"}}},
        {"ctl registers", {{"registers", "0x10-0x12", "0x103-0x106"}}},
        {"ctl tables", {{"tables"}, {"tables", "--channel", "3"}}},
        {"ctl counters", {{"counters"}}},
        {"ctl json", {{"registers", "0x11", "0x106", "--json"}}},
        {"ctl clock", {{"step", "100"}, {"advance", "to", "10:14:59"}}},
        {"ctl fault",
         {{"fault", "on", "read-fails", "register=0x11", "every=3"},
          {"fault", "on", "link-down", "value=7"},
          {"fault", "list"},
          {"fault", "off", "all"}}},
    };
    for (const auto& [name, commands] : blocks) {
        velatest::ExpectDocsShow(name, show(commands));
    }
}

}  // namespace
