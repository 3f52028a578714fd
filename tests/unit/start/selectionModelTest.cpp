// The selection, from the INI file and the packets of the call auction to the words of the board's
// tables, compared with one made by a plain model: random lists in the exchange's namings, random
// rules on all 16 channels. Then the same from the cache file in the session that follows.

#include "selectionModel.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <set>

#include "slowBuild.h"
#include "startBench.h"

namespace velatest {
namespace {

constexpr unsigned int today = 20261120;
constexpr std::size_t recordsPerPacket = 60;
constexpr int roundsPerSeed = slowBuild ? 3 : 12;

struct Tables_t {
    std::vector<unsigned int> sgl;
    std::vector<unsigned int> cmb;
};

class SelectionModel : public testing::TestWithParam<unsigned int> {
  public:
    // The board holds names, and masks of an earlier start.
    void PutBoard() {
        bench.board.Clear();
        bench.board.tradeDate = today;
        for (std::size_t word = 0; word < CompactBoard::wordNum; ++word) {
            bench.board.sgl.words[word] = static_cast<unsigned int>(word * 2654435761U);
            bench.board.cmb.words[word] = static_cast<unsigned int>(word * 2246822519U);
        }
        before = {bench.board.sgl.words, bench.board.cmb.words};
    }

    // The list as the exchange repeats it, some names with another index the second time.
    void HoldTheAuction(const Insts_t& list) {
        FakeClock::Set(today, 85000);
        PutBoard();
        bench.Start();
        ASSERT_FALSE(HasFatalFailure());
        Announce(list);
        Insts_t again(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(list.size() / 3));
        for (std::size_t at = 0; at + 1 < again.size(); at += 7) {
            std::swap(again[at].first, again[at + 1].first);
        }
        Announce(again);
        FakeClock::SetTime(85510);
        bench.Receive(MapPacket({{1, "TOO209"}}));
        bench.Receive(MapPacket({{2, "LATE209"}}));
        EXPECT_EQ(bench.board.decode, 3U);
        EXPECT_EQ(bench.board.mapTrans, 0U);
    }
    void Announce(const Insts_t& list) {
        for (std::size_t from = 0; from < list.size(); from += recordsPerPacket) {
            const std::size_t to = std::min(from + recordsPerPacket, list.size());
            const auto begin = list.begin();
            bench.Receive(MapPacket(Insts_t(begin + static_cast<std::ptrdiff_t>(from),
                                            begin + static_cast<std::ptrdiff_t>(to))));
            for (std::size_t at = from; at < to; ++at) {
                const auto& [index, name] = list[at];
                first.emplace(name, index);
                latest[name] = index;
            }
        }
    }

    // Every word of both tables: the masks are the model's, all else is as before.
    void ExpectTables(const Masks_t& masks) {
        Tables_t expected = before;
        for (std::size_t entry = 0; entry < 4096; ++entry) {
            expected.sgl[entry * 64] = masks.sgl[entry];
            expected.cmb[entry * 64] = masks.cmb[entry];
        }
        EXPECT_TRUE(bench.board.sgl.words == expected.sgl) << FirstWrong(expected);
        EXPECT_TRUE(bench.board.cmb.words == expected.cmb) << FirstWrong(expected);
    }
    std::string FirstWrong(const Tables_t& expected) const {
        for (std::size_t word = 0; word < CompactBoard::wordNum; ++word) {
            const bool sgl = bench.board.sgl.words[word] != expected.sgl[word];
            if (sgl || bench.board.cmb.words[word] != expected.cmb[word]) {
                std::string text = sgl ? "single-leg" : "combination";
                text += " entry " + std::to_string(word / 64) + " word " +
                        std::to_string(word % 64) + ", names:";
                for (const auto& [name, index] : latest) {
                    text += index == word / 64 ? " '" + name + "'" : "";
                }
                return text;
            }
        }
        return {};
    }

    void Round(Random_t& random, std::size_t listSize) {
        first.clear();
        latest.clear();
        const Insts_t list = DrawList(random, listSize);
        const Rules_t rules = DrawRules(random, list);
        const std::string ini = DrawIni(random, rules);
        SCOPED_TRACE(ini);
        PutFile("test.ini", ini);
        HoldTheAuction(list);
        const Masks_t masks = SelectMasks(rules, latest);
        ExpectTables(masks);
        Count(masks, list);

        // A restart in the session: the file has the index under which a name was seen first.
        FakeClock::SetTime(93000);
        PutBoard();
        bench.Start();
        EXPECT_EQ(bench.Insts(), first);
        ExpectTables(SelectMasks(rules, first));
        ++selections;
    }
    void Count(const Masks_t& masks, const Insts_t& list) {
        ++selections;
        names += list.size();
        for (const auto* table : {&masks.sgl, &masks.cmb}) {
            selected += static_cast<unsigned long>(std::count_if(
                table->begin(), table->end(), [](unsigned int mask) { return mask != 0; }));
        }
    }

    StartBench bench;
    Tables_t before;
    std::map<std::string, unsigned short> first;   // as first announced
    std::map<std::string, unsigned short> latest;  // as last announced
    unsigned long selections = 0;
    unsigned long names = 0;
    unsigned long selected = 0;
};

TEST_P(SelectionModel, GivesTheSameWordsInTheTables) {
    Random_t random(GetParam());
    for (int round = 0; round < roundsPerSeed && !HasFailure(); ++round) {
        Round(random, slowBuild ? 40 : 300);
    }
    std::printf("selection model, seed %u: selections %lu, names %lu, entries selected %lu\n",
                GetParam(), selections, names, selected);
    EXPECT_GT(selected, 0U);
    EXPECT_LT(selected, names);
}

INSTANTIATE_TEST_SUITE_P(Seed, SelectionModel, testing::Range(1U, 13U));

using FullList = SelectionModel;

// As many instruments as the exchange has on a full day.
TEST_P(FullList, GivesTheSameWordsInTheTables) {
    Random_t random(GetParam());
    Round(random, 4800);
    const auto combinations = std::count_if(latest.begin(), latest.end(), [](const auto& inst) {
        return inst.first.starts_with("SPD-") || inst.first.starts_with("IPS-");
    });
    EXPECT_GE(combinations, 300);
    EXPECT_GE(latest.size() - static_cast<std::size_t>(combinations), 3600U);
    std::printf("selection model, full list: names %zu, entries selected %lu\n", latest.size(),
                selected);
}

INSTANTIATE_TEST_SUITE_P(Full, FullList, testing::Range(100U, 103U));

// The model itself, on names that everybody can check by hand.
TEST(SelectionModelItself, TakesWhatTheRulesSay) {
    const std::map<std::string, unsigned short> insts = {
        {"SR209", 1},         {"SR209C5000", 2},      {"CF209", 3},
        {"CF209C14000", 4},   {"PX309C8000", 5},      {"CJ309P9000", 6},
        {"CF209MSC14000", 7}, {"SPD-SR209&SR301", 1}, {"IPS-SF209&SM209", 2}};
    Rules_t rules;
    rules[0] = {true, {"SR"}, "recv", std::nullopt, "recv"};
    rules[1] = {true, {"CF209"}, "recv", "recv", std::nullopt};
    rules[2] = {true, {"xALLx"}, "norecv", std::nullopt, std::nullopt};
    rules[3] = {true, {"all"}, "recv", std::nullopt, std::nullopt};
    rules[4] = {true, {"SR209C5000", "CF"}, "RECV", std::nullopt, std::nullopt};
    rules[5] = {true, {"SR209C5000"}, "recv", "RECV", "RECV"};
    rules[6] = {true, {"PX", "CJ309"}, "recv", std::nullopt, std::nullopt};
    rules[7] = {true, {"TA"}, std::nullopt, "recv", "recv"};
    rules[8] = {true, {"SR"}, "recv", "recv", "recv"};
    Masks_t expected;
    expected.sgl[1] = 0b0000'1101;  // SR209: class on 0, all on 2 and 3
    expected.sgl[2] = 0b0000'1001;  // its option: class on 0, all on 3; its own id selects nothing
    expected.sgl[3] = 0b0001'1110;  // CF209: id on 1, all, class on 4
    expected.sgl[4] = 0b0000'1010;  // its option: contract on 1, all on 3; 4 takes no options
    expected.sgl[5] = 0b0100'1000;  // PX309C8000
    expected.sgl[6] = 0b0100'1000;  // CJ309P9000
    expected.sgl[7] = 0b0001'1100;  // no digit before its C: no option, so a future of class CF
    expected.cmb[1] = 0b0000'0001;
    expected.cmb[2] = 0b0000'0010;
    EXPECT_TRUE(SelectMasks(rules, insts) == expected);
}

}  // namespace
}  // namespace velatest
