#include "exchange/Instruments.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "exchange/ProductList.h"

namespace {

using ZceBoard::CInstrumentList;
using ZceBoard::InstrumentKind;

class InstrumentFile : public testing::Test {
  protected:
    InstrumentFile() {
        std::string pattern = testing::TempDir() + "/instruments.XXXXXX";
        m_dir = mkdtemp(pattern.data());
        m_path = m_dir + "/list";
    }
    ~InstrumentFile() override {
        unlink(m_path.c_str());
        rmdir(m_dir.c_str());
    }

    // Reads a file of this content; the error, or the empty text.
    std::string Read(const std::string& content) {
        std::ofstream(m_path, std::ios::binary) << content;
        m_list = CInstrumentList();
        std::string error;
        const bool good = m_list.ReadFile(m_path, error);
        EXPECT_EQ(good, error.empty());
        return error;
    }

    std::string m_dir;
    std::string m_path;
    CInstrumentList m_list;
};

TEST_F(InstrumentFile, EachTableCountsItsOwnIndexesInTheFilesOrder) {
    ASSERT_EQ(Read("SR209\nSPD-SR209&SR301\n  CF301 \t# a comment\n\n# alone\nSR209C5000\r\n"
                   "IPS-SF209&SM209"),
              "");
    const auto& all = m_list.All();
    ASSERT_EQ(all.size(), 5U);
    EXPECT_EQ(all[0].name, "SR209");
    EXPECT_EQ(all[0].table, 0U);
    EXPECT_EQ(all[0].index, 0);
    EXPECT_EQ(all[1].name, "SPD-SR209&SR301");
    EXPECT_EQ(all[1].table, 1U);
    EXPECT_EQ(all[1].index, 0);
    EXPECT_EQ(all[2].name, "CF301");
    EXPECT_EQ(all[2].index, 1);
    EXPECT_EQ(all[3].name, "SR209C5000");
    EXPECT_EQ(all[3].index, 2);
    EXPECT_EQ(all[4].name, "IPS-SF209&SM209");
    EXPECT_EQ(all[4].table, 1U);
    EXPECT_EQ(all[4].index, 1);
    EXPECT_EQ(m_list.Count(0), 3U);
    EXPECT_EQ(m_list.Count(1), 2U);
}

TEST_F(InstrumentFile, ABadLineIsNamedWithFileLineAndReason) {
    EXPECT_EQ(Read("SR209\n# x\nABCDEFGHIJKLMNOPQ\n"),
              m_path + ":3: \"ABCDEFGHIJKLMNOPQ\" has more than 16 characters");
    EXPECT_EQ(Read("SR209\nCF209\nSR209\n"), m_path + ":3: \"SR209\" is there twice");
    EXPECT_EQ(Read("SR209\nCF 209\n"),
              m_path + ":2: the name holds a blank or a character that cannot be printed");
    EXPECT_EQ(Read("SR\x01\n"),
              m_path + ":1: the name holds a blank or a character that cannot be printed");
    EXPECT_EQ(Read("SR\xe9\n"),
              m_path + ":1: the name holds a blank or a character that cannot be printed");
    EXPECT_EQ(Read("SPD-\n"), m_path + ":1: \"SPD-\" names no legs");
    EXPECT_EQ(Read("ABCDEFGHIJKLMNOP\n"), "") << "16 characters are a name";
}

TEST_F(InstrumentFile, TheFirstInstrumentTooManyForATableIsNamed) {
    std::string content;
    for (int k = 0; k < 4095; ++k) {
        content += "X" + std::to_string(k) + "\n";
    }
    EXPECT_EQ(Read(content), "");
    EXPECT_EQ(Read(content + "SPD-A&B\n"), "") << "the other table has room";
    EXPECT_EQ(Read(content + "Y\n"), m_path + ":4096: more than 4095 single-leg instruments");
    content.clear();
    for (int k = 0; k < 4096; ++k) {
        content += "SPD-" + std::to_string(k) + "\n";
    }
    EXPECT_EQ(Read(content), m_path + ":4096: more than 4095 combinations");
}

TEST_F(InstrumentFile, AByteOrderMarkIsNamed) {
    const std::string why = ":1: the list begins with a byte order mark: save it without";
    EXPECT_EQ(Read("\xEF\xBB\xBFSR209\n"), m_path + why);
    EXPECT_EQ(Read("\xEF\xBB\xBF# all\nSR209\n"), m_path + why);
}

TEST_F(InstrumentFile, AnEmptyFileAndOneThatCannotBeReadAreErrors) {
    EXPECT_EQ(Read("# nothing\n\n"), m_path + ": there is no instrument in it");
    std::string error;
    EXPECT_FALSE(CInstrumentList().ReadFile(m_dir + "/absent", error));
    EXPECT_EQ(error, m_dir + "/absent: No such file or directory");
    EXPECT_FALSE(CInstrumentList().ReadFile(m_dir, error));
    EXPECT_EQ(error, m_dir + ": Is a directory");
}

TEST(Instruments, AnEmptyNameIsRefused) {
    EXPECT_EQ(CInstrumentList().Add(""), "the name is empty");
}

TEST(Instruments, KindsByName) {
    EXPECT_EQ(ZceBoard::KindOf("SR209"), InstrumentKind::Future);
    EXPECT_EQ(ZceBoard::KindOf("SR209C5000"), InstrumentKind::Option);
    EXPECT_EQ(ZceBoard::KindOf("CF301P14600"), InstrumentKind::Option);
    EXPECT_EQ(ZceBoard::KindOf("SPD-SR209&SR301"), InstrumentKind::Combination);
    EXPECT_EQ(ZceBoard::KindOf("IPS-SF209&SM209"), InstrumentKind::Combination);
    for (const char* name : {"SPDX", "SR209C", "SR209X500", "SR209C5A0", "C", "", "123"}) {
        EXPECT_EQ(ZceBoard::KindOf(name), InstrumentKind::Future) << name;
    }
}

class FullList : public testing::Test {
  protected:
    FullList() { m_list.AddAllProducts(); }
    CInstrumentList m_list;
};

TEST_F(FullList, IsOfTheExchangesSizeAndFitsTheTables) {
    EXPECT_GE(m_list.Count(0), 3900U);
    EXPECT_LE(m_list.Count(0), 4095U);
    EXPECT_GE(m_list.Count(1), 300U);
    EXPECT_LE(m_list.Count(1), 4095U);
    EXPECT_EQ(m_list.Count(0) + m_list.Count(1), ZceBoard::AllProductNames().size())
        << "no name is refused, so none is there twice or too long";
}

TEST_F(FullList, EveryNameIsFormedAsTheExchangeFormsIt) {
    const std::regex form(
        "[A-Z]{2}[0-9]{3}([CP][0-9]+)?|SPD-([A-Z]{2})[0-9]{3}&\\2[0-9]{3}|"
        "IPS-SF([0-9]{3})&SM\\3");
    std::set<std::string> products;
    std::set<std::pair<uint32_t, uint16_t>> places;
    for (const auto& instrument : m_list.All()) {
        EXPECT_TRUE(std::regex_match(instrument.name, form)) << instrument.name;
        EXPECT_LE(instrument.name.size(), 16U);
        EXPECT_TRUE(places.emplace(instrument.table, instrument.index).second) << instrument.name;
        if (instrument.kind == InstrumentKind::Future) {
            products.insert(instrument.name.substr(0, 2));
            const int month = std::stoi(instrument.name.substr(3));
            EXPECT_TRUE(month >= 1 && month <= 12) << instrument.name;
        }
    }
    EXPECT_EQ(products, (std::set<std::string>{"AP", "CF", "CJ", "CY", "FG", "JR", "LR", "MA", "OI",
                                               "PF", "PK", "PM", "PX", "RI", "RM", "RS", "SA", "SF",
                                               "SH", "SM", "SR", "TA", "UR", "WH", "ZC"}));
}

TEST_F(FullList, HoldsTheNamesThatExamplesSpeakOf) {
    std::set<std::string> names;
    for (const auto& instrument : m_list.All()) {
        names.insert(instrument.name);
    }
    for (const char* name : {"SR209", "SR301", "SR209C5000", "SR209P5700", "SPD-SR209&SR301",
                             "IPS-SF209&SM209", "CF301C14600", "ZC305P850"}) {
        EXPECT_TRUE(names.count(name)) << name;
    }
}

TEST(Prices, FollowTheProduct) {
    EXPECT_EQ(ZceBoard::PricesOf("SR209").lBase, 57000000);
    EXPECT_EQ(ZceBoard::PricesOf("SR209").lTick, 10000);
    EXPECT_EQ(ZceBoard::PricesOf("SPD-SR209&SR301").lBase, 0);
    // In the money by 700 and seven strikes away: 700 + 200 / 8.
    EXPECT_EQ(ZceBoard::PricesOf("SR209C5000").lBase, 7250000);
    EXPECT_EQ(ZceBoard::PricesOf("SR209P5000").lBase, 250000);
    EXPECT_GT(ZceBoard::PricesOf("??").lBase, 0);
    EXPECT_GT(ZceBoard::PricesOf("IPS-").lTick, 0);
    EXPECT_GT(ZceBoard::PricesOf("").lTick, 0);
}

}  // namespace
