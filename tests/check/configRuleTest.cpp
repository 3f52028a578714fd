// What zce-check finds in the rules of the channels, without and with a list of instruments.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "configRun.h"

namespace velatest {

namespace {

using testing::HasSubstr;

constexpr const char* LIST =
    "SR209\nSR301\nSR305\nCF209\nTA209\nSR209C5000\nSR209P5000\nSR301C6000\nCF209C15000\n"
    "SPD-SR209&SR301\nSPD-SR301&SR305\nIPS-SR209&CF209\n";
constexpr const char* SINGLE_LIST = "SR209\nSR209C5000\n";

// The findings of a channel that begins on line 3 and whose list is on line 4.
std::string Insts(const std::string& insts, const std::string& list = "") {
    return FindingsBelowDevice("[channel3]\ninsts = " + insts + "\noptions = recv\n", list);
}

using Numbers = std::array<std::size_t, 3>;

// Futures, options, combinations of a channel with LIST.
Numbers CountsOf(const std::string& rules, unsigned channel = 0) {
    const ConfigRun run("[config]\ndevice = xilinx0:0\n[channel0]\n" + rules, LIST);
    const auto& counts = run.Result().counts[channel];
    return counts ? Numbers{counts->futures, counts->options, counts->combinations}
                  : Numbers{99, 99, 99};
}

TEST(CheckRules, OptionsMissing) {
    EXPECT_EQ(FindingsBelowDevice("[channel3]\ninsts = SR\n"),
              "c.ini:4: error: [channel3] insts: there is no options beside it: the reading of the "
              "rules ends here, and channels 4 to 15 get nothing (options-missing)\n"
              "    -> add options = recv or options = norecv to [channel3]\n");
    EXPECT_THAT(FindingsBelowDevice("[channel15]\ninsts = SR\n"),
                HasSubstr("the reading of the rules ends here (options-missing)\n"));
}

TEST(CheckRules, ChannelNotRead) {
    EXPECT_EQ(FindingsBelowDevice("[channel3]\ninsts = SR\nspd = recv\n[channel4]\nspd = recv\n"
                                  "[channel2]\nspd = recv\n"),
              "c.ini:4: error: [channel3] insts: there is no options beside it: the reading of the "
              "rules ends here, and channels 4 to 15 get nothing (options-missing)\n"
              "    -> add options = recv or options = norecv to [channel3]\n"
              "c.ini:5: error: [channel3] spd = recv: not read: the reading of the rules ended "
              "before it (channel-not-read)\n"
              "    -> add options to [channel3]\n"
              "c.ini:6: error: [channel4] not read: the reading of the rules ended in [channel3] "
              "(channel-not-read)\n"
              "    -> add options to [channel3]\n");
}

TEST(CheckRules, OptionsWithoutInsts) {
    EXPECT_EQ(FindingsBelowDevice("[channel3]\noptions = recv\nspd = recv\n"),
              "c.ini:4: error: [channel3] options = recv: options without insts is not read: no "
              "option is selected (options-without-insts)\n"
              "    -> add insts, with all for every instrument\n");
    EXPECT_EQ(FindingsBelowDevice("[channel3]\noptions = norecv\nspd = recv\n"), "");
}

TEST(CheckRules, WhatOptionsHoldsWithoutInstsIsToldOnce) {
    EXPECT_EQ(FindingsBelowDevice("[channel3]\noptions = RECV\nspd = recv\n"),
              "c.ini:4: error: [channel3] options = RECV: options without insts is not read: no "
              "option is selected (options-without-insts)\n"
              "    -> add insts, with all for every instrument\n");
}

TEST(CheckRules, NotRecv) {
    EXPECT_EQ(FindingsBelowDevice("[channel3]\ninsts = SR\noptions = RECV\n"),
              "c.ini:5: error: [channel3] options = RECV: it counts as norecv: only the exact word "
              "recv asks for them (not-recv)\n"
              "    -> write recv\n");
    for (const char* const value : {"Recv", "\"recv \"", "recieve", "yes", "1", "true"}) {
        EXPECT_THAT(
            FindingsBelowDevice("[channel3]\nips = recv\nspd = " + std::string(value) + "\n"),
            HasSubstr("(not-recv)"))
            << value;
    }
}

TEST(CheckRules, OddSwitch) {
    EXPECT_EQ(
        FindingsBelowDevice("[channel3]\nspd = no\nips = recv\n"),
        "c.ini:4: warning: [channel3] spd = no: it counts as norecv: only the exact word recv "
        "asks for them (odd-switch)\n"
        "    -> write recv or norecv\n");
}

TEST(CheckRules, InstsEmpty) {
    EXPECT_EQ(Insts(", ,"),
              "c.ini:4: warning: [channel3] insts: the list is empty: it selects nothing "
              "(insts-empty)\n"
              "    -> name ids, classes or all, or take the key away\n");
}

TEST(CheckRules, FullWidthComma) {
    EXPECT_EQ(Insts("SR\xef\xbc\x8c"
                    "CF, TA"),
              "c.ini:4: error: [channel3] insts: \"SR\xef\xbc\x8c"
              "CF\" is one item, and can match "
              "nothing: there is a full-width comma or blank in it (full-width)\n"
              "    -> put plain commas between the items\n");
}

TEST(CheckRules, FullWidthLetters) {
    EXPECT_EQ(Insts("TA, \xef\xbc\xb3R209"),
              "c.ini:4: error: [channel3] insts: \"\xef\xbc\xb3R209\" is one item, and can match "
              "nothing: there is a full-width letter in it (full-width)\n"
              "    -> write plain letters and digits\n");
}

TEST(CheckRules, ClassNotLetters) {
    EXPECT_EQ(
        Insts("SR/CF"),
        "c.ini:4: error: [channel3] insts: \"SR/CF\" can match nothing: a class is the letters "
        "that ids begin with, and nothing else (class-not-letters)\n"
        "    -> put commas between the items, and no tab\n");
    EXPECT_THAT(Insts("SR,\tCF"), HasSubstr("\"\\tCF\" can match nothing"));
}

TEST(CheckRules, OptionId) {
    EXPECT_EQ(Insts("SR209C5000", LIST),
              "c.ini:4: error: [channel3] insts: SR209C5000 is an option, and an option's own id "
              "selects nothing (option-id)\n"
              "    -> write SR209 and options = recv for all options on it\n");
}

TEST(CheckRules, CombinationId) {
    EXPECT_EQ(
        Insts("SPD-SR209&SR301, IPS", LIST),
        "c.ini:4: error: [channel3] insts: SPD-SR209&SR301 is a combination, and insts selects "
        "none of them (combination-id)\n"
        "    -> write spd = recv for all of its kind\n"
        "c.ini:4: error: [channel3] insts: IPS is a combination, and insts selects none of "
        "them (combination-id)\n"
        "    -> write ips = recv for all of its kind\n");
}

TEST(CheckRules, LowerCase) {
    EXPECT_EQ(
        Insts("sr, Cf209, TA"),
        "c.ini:4: warning: [channel3] insts: Cf209 has small letters in it, and the exchange's "
        "names have capitals: it matches nothing (lower-case)\n"
        "    -> write it in capitals\n"
        "c.ini:4: warning: [channel3] insts: sr has small letters in it, and the exchange's "
        "names have capitals: it matches nothing (lower-case)\n"
        "    -> write it in capitals\n");
}

TEST(CheckRules, BlankInItem) {
    EXPECT_EQ(Insts("SR CF, TA"),
              "c.ini:4: warning: [channel3] insts: \"SR CF\" is one item, SRCF: blanks separate "
              "nothing (blank-in-item)\n"
              "    -> put commas between the items\n");
}

TEST(CheckRules, AllInWord) {
    EXPECT_EQ(
        Insts("SMALL"),
        "c.ini:4: warning: [channel3] insts: there is \"all\" in SMALL: the channel gets every "
        "future, and every option with options = recv (all-in-word)\n"
        "    -> write all if that is meant, or take the item away\n");
    EXPECT_EQ(Insts("ALL"), "");
}

TEST(CheckRules, AllInAnIdOrBehindAFullWidthComma) {
    EXPECT_EQ(Insts("BALL209"),
              "c.ini:4: warning: [channel3] insts: there is \"all\" in BALL209: the channel gets "
              "every future, and every option with options = recv (all-in-word)\n"
              "    -> write all if that is meant, or take the item away\n");
    EXPECT_THAT(Insts("SR\uff0call"), HasSubstr("gets every future, and every option with"));
    EXPECT_THAT(Insts("SR\uff0call"), HasSubstr("(full-width)"));
    EXPECT_THAT(Insts("SPD-ALL"), HasSubstr("(all-in-word)"));
}

TEST(CheckRules, DuplicateItem) {
    EXPECT_EQ(Insts("SR, SR209, TA, SR, SR209"),
              "c.ini:4: warning: [channel3] insts: SR is there more than once (duplicate-item)\n"
              "    -> keep one of them\n"
              "c.ini:4: warning: [channel3] insts: SR209 is there more than once (duplicate-item)\n"
              "    -> keep one of them\n");
}

TEST(CheckRules, ChannelSelectsNothing) {
    EXPECT_EQ(FindingsBelowDevice("[channel3]\nips = norecv\n"),
              "c.ini:3: warning: [channel3] the section selects nothing: the channel gets no data "
              "(channel-selects-nothing)\n"
              "    -> add insts with options, ips or spd, or take the section away\n");
}

TEST(CheckRules, IdNotInList) {
    EXPECT_EQ(Insts("SR209, SR303, XY999, XY999", LIST),
              "c.ini:4: warning: [channel3] insts: XY999 is there more than once (duplicate-item)\n"
              "    -> keep one of them\n"
              "c.ini:4: error: [channel3] insts: SR303 is not in list (id-not-in-list)\n"
              "    -> did you mean SR301, SR305 or SR209?\n"
              "c.ini:4: error: [channel3] insts: XY999 is not in list (id-not-in-list)\n"
              "    -> take it away, or take a newer list\n");
}

TEST(CheckRules, ClassNotInList) {
    EXPECT_EQ(Insts("sr, CF, TAR", LIST),
              "c.ini:4: error: [channel3] insts: no instrument of list has the class sr "
              "(class-not-in-list)\n"
              "    -> did you mean SR?\n"
              "c.ini:4: error: [channel3] insts: no instrument of list has the class TAR "
              "(class-not-in-list)\n"
              "    -> did you mean TA?\n");
}

TEST(CheckRules, WhatCanNeverMatchIsNotLookedForInTheList) {
    std::string codes;
    const ConfigRun run(
        "[config]\ndevice = xilinx0:0\n[channel3]\noptions = recv\n"
        "insts = SR305C7000, SPD-AP1&AP2, \xef\xbc\xb3R209, SR/CF, IPS, small\n",
        LIST);
    for (const ZceCheck::Finding& finding : run.Result().findings.All()) {
        codes += std::string(ZceCheck::InfoOf(finding.code).name) + " ";
    }
    EXPECT_EQ(codes,
              "option-id combination-id full-width class-not-letters combination-id all-in-word ");
}

TEST(CheckRules, NoneOfKind) {
    EXPECT_EQ(
        FindingsBelowDevice("[channel3]\ninsts = SR\noptions = recv\nips = recv\n", SINGLE_LIST),
        "c.ini:6: warning: [channel3] ips = recv: list holds no such spread (none-of-kind)\n"
        "    -> take a newer list if there should be some\n");
}

TEST(CheckRules, ChannelGetsNothing) {
    EXPECT_EQ(FindingsBelowDevice("[channel3]\ninsts = all\noptions = norecv\n", "SR209C5000\n"),
              "c.ini:3: warning: [channel3] of list the channel gets nothing "
              "(channel-gets-nothing)\n"
              "    -> compare the rules with the list\n");
}

TEST(CheckRules, CountsAreThoseOfTheSelection) {
    EXPECT_EQ(CountsOf("insts = SR\noptions = norecv\n"), (Numbers{3, 0, 0}));
    EXPECT_EQ(CountsOf("insts = SR\noptions = recv\n"), (Numbers{3, 3, 0}));
    EXPECT_EQ(CountsOf("insts = SR209\noptions = recv\n"), (Numbers{1, 2, 0}));
    EXPECT_EQ(CountsOf("insts = SR209C5000\noptions = recv\n"), (Numbers{0, 0, 0}));
    EXPECT_EQ(CountsOf("insts = SR, CF209\noptions = recv\nips = recv\n"), (Numbers{4, 4, 1}));
    EXPECT_EQ(CountsOf("insts = all\noptions = recv\nspd = recv\nips = recv\n"),
              (Numbers{5, 4, 3}));
    EXPECT_EQ(CountsOf("spd = recv\n"), (Numbers{0, 0, 2}));
    EXPECT_EQ(CountsOf("insts = SR\n[channel1]\ninsts = all\noptions = recv\n", 0),
              (Numbers{3, 0, 0}));
    EXPECT_EQ(CountsOf("insts = SR\n[channel1]\ninsts = all\noptions = recv\n", 1),
              (Numbers{0, 0, 0}));
}

}  // namespace

}  // namespace velatest
