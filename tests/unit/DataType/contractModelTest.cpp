// The selection compared with a plain one of the test's own, over thousands of names and random
// rules on all 16 channels.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <random>
#include <regex>
#include <set>

#include "contractFixture.h"
#include "slowBuild.h"

namespace {

using velatest::ContractRig;

const std::vector<std::string> products = {"AP", "CF", "CJ", "CY", "FG", "JR", "LR", "MA", "OI",
                                           "PF", "PK", "PM", "PX", "RI", "RM", "RS", "SA", "SF",
                                           "SH", "SM", "SR", "TA", "UR", "WH", "ZC"};

// The rules of a channel in the test's own terms.
struct Wish {
    std::set<std::string> ids;
    std::set<std::string> classes;
    bool hasInsts = false;
    bool options = false;
    bool ips = false;
    bool spd = false;

    bool All() const {
        // No id or class made here holds these letters by accident.
        return classes.count("all") + classes.count("All") != 0;
    }
};

bool ModelSelects(const Wish& wish, const std::string& name) {
    static const std::regex spread("(SPD|IPS)-.*");
    // The first digit, then the first C or P that stands between two digits.
    static const std::regex option("([^0-9]*[0-9](?:.*?[0-9])?)[CP][0-9].*");
    static const std::regex letters("[A-Za-z]*");
    std::smatch found;
    if (std::regex_match(name, found, spread)) {
        return found[1] == "SPD" ? wish.spd : wish.ips;
    }
    std::regex_search(name, found, letters, std::regex_constants::match_continuous);
    const std::string cls = found[0];
    if (std::regex_match(name, found, option)) {
        return wish.options &&
               (wish.classes.count(cls) != 0 || wish.ids.count(found[1]) != 0 || wish.All());
    }
    return wish.All() || wish.classes.count(cls) != 0 || wish.ids.count(name) != 0;
}

class Draw {
  public:
    explicit Draw(unsigned int seed) : m_random(seed) {}
    unsigned int Below(unsigned int limit) { return static_cast<unsigned int>(m_random() % limit); }
    bool Chance(unsigned int percent) { return Below(100) < percent; }
    const std::string& Product() { return products[Below(25)]; }
    std::string Future() {
        return Product() + std::to_string(2 + Below(3)) + (Below(2) == 0 ? "0" : "1") +
               std::to_string(1 + Below(2));
    }
    std::string Option() {
        return Future() + (Below(2) == 0 ? "C" : "P") + std::to_string(100 * (1 + Below(99)));
    }
    // Names that the exchange does not use, and that must not confuse the rules.
    std::string Odd() {
        static const std::string alphabet = "CPSR-29cp&0X";
        std::string name;
        for (unsigned int length = 1 + Below(10); length != 0; --length) {
            name += alphabet[Below(static_cast<unsigned int>(alphabet.size()))];
        }
        return name;
    }

  private:
    std::mt19937 m_random;
};

std::map<std::string, unsigned short> DrawInsts(Draw& draw) {
    std::map<std::string, unsigned short> insts;
    const auto add = [&insts](const std::string& name) {
        insts.emplace(name, static_cast<unsigned short>(insts.size()));
    };
    for (int count = 0; count < 300; ++count) {
        add(draw.Future());
        add("SPD-" + draw.Future() + "&" + draw.Future());
        add("IPS-" + draw.Future() + "&" + draw.Future());
    }
    for (int count = 0; count < 3000; ++count) {
        add(draw.Option());
    }
    for (int count = 0; count < 500; ++count) {
        add(draw.Odd());
    }
    return insts;
}

// A channel's wishes, and the section that says so with blanks and empty items strewn in.
std::string DrawSection(Draw& draw, unsigned int channel, Wish& wish) {
    std::string text = "[channel" + std::to_string(channel) + "]\n";
    wish.hasInsts = draw.Chance(85);
    if (wish.hasInsts) {
        for (unsigned int count = draw.Below(6); count != 0; --count) {
            wish.ids.insert(draw.Chance(80) ? draw.Future() : draw.Option());
        }
        for (unsigned int count = draw.Below(4); count != 0; --count) {
            wish.classes.insert(draw.Product());
        }
        if (draw.Chance(15)) {
            wish.classes.insert(draw.Chance(50) ? "all" : "All");
        }
        text += "insts = ";
        for (const auto* items : {&wish.ids, &wish.classes}) {
            for (const std::string& item : *items) {
                text += item + (draw.Chance(30) ? " ,, " : ",");
            }
        }
        wish.options = draw.Chance(60);
        text += std::string("\noptions = ") + (wish.options ? "recv" : "norecv") + "\n";
    }
    wish.ips = draw.Chance(50);
    wish.spd = draw.Chance(50);
    text += wish.ips ? "ips = recv\n" : (draw.Chance(50) ? "ips = no\n" : "");
    text += wish.spd ? "spd = recv\n" : (draw.Chance(50) ? "spd = no\n" : "");
    return text;
}

TEST(SelectionModel, AgreesOnRandomRulesAndNames) {
    std::size_t names = 0;
    std::size_t selected = 0;
    for (unsigned int seed = 1; seed <= (velatest::slowBuild ? 2 : 6); ++seed) {
        Draw draw(seed);
        std::vector<Wish> wishes(16);
        std::string sections;
        for (unsigned int channel = 0; channel < 16; ++channel) {
            sections += DrawSection(draw, channel, wishes[channel]);
        }
        ContractRig rig(sections);
        rig.insts = DrawInsts(draw);
        rig.serv.FilterAndStoreToGlobMap();
        // Every index belongs to one name here.
        std::map<unsigned short, unsigned short> sgl;
        std::map<unsigned short, unsigned short> cmb;
        for (const auto& [name, index] : rig.insts) {
            unsigned int mask = 0;
            for (unsigned int channel = 0; channel < 16; ++channel) {
                mask |= ModelSelects(wishes[channel], name) ? 1U << channel : 0U;
            }
            if (mask != 0) {
                const bool isSpread = name.starts_with("SPD-") || name.starts_with("IPS-");
                (isSpread ? cmb : sgl)[index] = static_cast<unsigned short>(mask);
            }
        }
        EXPECT_EQ(rig.fpga.m_mapSglChanBit, sgl) << "seed " << seed;
        EXPECT_EQ(rig.fpga.m_mapCmbChanBit, cmb) << "seed " << seed;
        names += rig.insts.size();
        selected += sgl.size() + cmb.size();
    }
    EXPECT_GT(selected, names / 4);
    std::cout << names << " names, " << selected << " selected\n";
}

}  // namespace
