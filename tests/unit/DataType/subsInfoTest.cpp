#include "DataType/ZceSubsInfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logCapture.h"

namespace {

using namespace Vela2_U50;
using testing::ElementsAre;

TEST(RemoveSpace, TakesSpacesAwayAndKeepsTabs) {
    EXPECT_EQ(RemoveSpace(" SR , \tCF  "), "SR,\tCF");
    EXPECT_EQ(RemoveSpace("   "), "");
    EXPECT_EQ(RemoveSpace(""), "");
    EXPECT_EQ(RemoveSpace("SR\n"), "SR\n");
}

TEST(FindStringIgnoreCase, FindsAnywhereInAnyCase) {
    EXPECT_TRUE(findStringIgnoreCase("xxALlyy", "aLL"));
    EXPECT_TRUE(findStringIgnoreCase("all", "ALL"));
    EXPECT_TRUE(findStringIgnoreCase("anything", ""));
    EXPECT_FALSE(findStringIgnoreCase("al", "all"));
    EXPECT_FALSE(findStringIgnoreCase("a ll", "all"));
    EXPECT_FALSE(findStringIgnoreCase("", "all"));
}

TEST(FindAllTag, IsTheLettersAllAnywhere) {
    EXPECT_TRUE(FindAllTag("all"));
    EXPECT_TRUE(FindAllTag("ALL"));
    EXPECT_TRUE(FindAllTag("SR,BALLS,TA209"));
    EXPECT_FALSE(FindAllTag("SR,AL,L"));
    EXPECT_FALSE(FindAllTag(""));
}

TEST(IsOption, WantsCapitalCOrPBetweenDigits) {
    EXPECT_TRUE(IsOption("SR209C5000"));
    EXPECT_TRUE(IsOption("SR209P5000"));
    EXPECT_TRUE(IsOption("1C1"));
    EXPECT_FALSE(IsOption("SR209c5000"));
    EXPECT_FALSE(IsOption("SR209p5000"));
    EXPECT_FALSE(IsOption("CF209"));  // no letter after the first digit
    EXPECT_FALSE(IsOption("AP210P"));
    EXPECT_FALSE(IsOption("AP210PX"));
    EXPECT_FALSE(IsOption("AP210XP5"));
    EXPECT_FALSE(IsOption("C5"));
    EXPECT_FALSE(IsOption("PC"));
    EXPECT_FALSE(IsOption("209"));
    EXPECT_FALSE(IsOption(""));
}

TEST(IsOption, SearchesOnAfterALetterThatMarksNothing) {
    EXPECT_TRUE(IsOption("CF209XC1P2"));
    EXPECT_TRUE(IsOption("SR209CP1C2"));
    EXPECT_FALSE(IsOption("SR209CC5000"));
    EXPECT_FALSE(IsOption("SR209PCX"));
}

TEST(OptionExtractSecondClass, IsTheTextBeforeTheMarkingLetter) {
    std::string underlying = "before";
    EXPECT_EQ(OptionExtractSecondClass("SR209C5000", underlying), 0);
    EXPECT_EQ(underlying, "SR209");
    EXPECT_EQ(OptionExtractSecondClass("CF301P14000", underlying), 0);
    EXPECT_EQ(underlying, "CF301");
    EXPECT_EQ(OptionExtractSecondClass("SR209CP1C2", underlying), 0);
    EXPECT_EQ(underlying, "SR209CP1");
}

TEST(OptionExtractSecondClass, LeavesTheResultAloneOtherwise) {
    for (const char* id : {"CF209", "AP210P", "SR209c5000", "", "CP"}) {
        std::string underlying = "before";
        EXPECT_EQ(OptionExtractSecondClass(id, underlying), -1) << id;
        EXPECT_EQ(underlying, "before");
    }
}

TEST(ExtractClass, IsTheLeadingRunOfLetters) {
    EXPECT_EQ(ExtractClass("SR209", 5), "SR");
    EXPECT_EQ(ExtractClass("sr209", 5), "sr");
    EXPECT_EQ(ExtractClass("209SR", 5), "");
    EXPECT_EQ(ExtractClass("SPD-SR209", 9), "SPD");
    EXPECT_EQ(ExtractClass("APPLE", 5), "APPLE");
    EXPECT_EQ(ExtractClass("", 0), "");
}

TEST(ExtractClass, LooksAtCountCharactersOnly) {
    EXPECT_EQ(ExtractClass("ABCDE", 3), "ABC");
    EXPECT_EQ(ExtractClass("AB1", 1), "A");
    EXPECT_EQ(ExtractClass("ABC", 0), "");
    EXPECT_EQ(ExtractClass("AB", 100), "AB");
    EXPECT_EQ(ExtractClass("\xC4\xD6", 2), "");  // letters of no alphabet that is known here
}

TEST(SubsInfo, NewRecordIsEmpty) {
    const ZceSubsInfo_t rules;
    EXPECT_TRUE(rules.vecSubIds.empty() && rules.vecSubClasses.empty());
    EXPECT_EQ(rules.bSubAll + rules.bOptionsRecv + rules.bIpsRecv + rules.bSpdRecv, 0);
    EXPECT_EQ(rules.nReserved, 3U);
    EXPECT_EQ(
        rules.strSubIds + rules.strSubClasses + rules.strOptions + rules.strIps + rules.strSpd, "");
}

TEST(SubsInfo, MembersStandInOrder) {
    const ZceSubsInfo_t rules;
    const auto at = [&rules](const auto& member) {
        return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&rules);
    };
    EXPECT_EQ(at(rules.vecSubIds), 0);
    EXPECT_EQ(at(rules.vecSubClasses), 24);
    EXPECT_EQ(at(rules.bSubAll), 48);
    EXPECT_EQ(at(rules.bOptionsRecv), 49);
    EXPECT_EQ(at(rules.bIpsRecv), 50);
    EXPECT_EQ(at(rules.bSpdRecv), 51);
    EXPECT_EQ(at(rules.nReserved), 52);
    EXPECT_EQ(at(rules.strSubIds), 56);
    EXPECT_EQ(at(rules.strSubClasses), 88);
    EXPECT_EQ(at(rules.strOptions), 120);
    EXPECT_EQ(at(rules.strIps), 152);
    EXPECT_EQ(at(rules.strSpd), 184);
    EXPECT_EQ(sizeof(rules), 216U);
}

TEST(SubsInfo, ChannelsBeyond15HaveNoRules) {
    ZceSubsInfoArray_t rules;
    EXPECT_EQ(FindSubsInfo(rules, 0), &rules[0]);
    EXPECT_EQ(FindSubsInfo(rules, 15), &rules[15]);
    const velatest::LogCapture log;
    EXPECT_EQ(FindSubsInfo(rules, 16), nullptr);
    EXPECT_THAT(log.Lines(),
                ElementsAre("WARN [channel:16] There is no such channel, its rules are ignored."));
}

}  // namespace
