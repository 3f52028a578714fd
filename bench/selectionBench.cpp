// The selection of instruments: rules of 16 channels, given as the texts that stand in the
// configuration, become each channel's list of instruments, and one mask of channels for each of
// 8,190 instruments. Beside the library's, an independent version that finds the rules in hash sets
// and keeps what it has found in vectors. The result of both must be the same, in every run.
//
// The library's side is all of its selection, from the splitting of the texts and the report of
// instruments that are missing to the masks in the table service. What is written to the board
// afterwards is not measured: it is the board's time.

#include <malloc.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "DataType/ContractServ.h"
#include "DataType/ZceConfigFile.h"
#include "DataType/ZceFpgaServ.h"
#include "VelaZceBinFile.h"
#include "benchDrv.h"
#include "benchFolder.h"
#include "benchInstruments.h"
#include "benchMain.h"
#include "benchProcess.h"

namespace velabench {

namespace {

using Masks = CFreeDrv::Masks;
using InstMap = std::map<std::string, unsigned short>;

constexpr std::size_t channelCount = Vela2_U50::ZCE_CHANNEL_NUM;
constexpr std::size_t tableSize = 4096;

// What a configuration says for one channel.
struct Rules {
    std::string insts;
    bool bOptions = false;
    bool bIps = false;
    bool bSpd = false;
};

struct Case {
    std::string name;
    std::size_t instruments;
    std::size_t channels;
    std::size_t rules;  // of each channel

    // Made from these by Prepare.
    InstMap map;
    std::array<Rules, channelCount> channel;
};

// What a selection gives, whose names are its own: for each of the two tables what each channel
// selects, and the masks and names of all that some channel selects, by the board's index.
struct Table {
    std::array<std::vector<std::pair<std::uint16_t, std::string>>, channelCount> ofChannel;
    Masks masks = Masks(tableSize);
    std::vector<std::string> names = std::vector<std::string>(tableSize);

    void Put(const std::string& name, std::uint16_t index, unsigned int mask) {
        for (unsigned int rest = mask; rest != 0; rest &= rest - 1) {
            ofChannel[static_cast<unsigned int>(std::countr_zero(rest))].emplace_back(index, name);
        }
        if (mask != 0) {
            masks[index] = static_cast<std::uint16_t>(mask);
            names[index] = name;
        }
    }
};
struct Selected {
    Table single;
    Table combination;
};

// One rule in eight is a product, the others are contracts; beyond the 300 contracts options and
// unknown ones, which take their place in a list as any other.
std::string RuleText(std::size_t rules, std::mt19937& random) {
    std::vector<std::string> items;
    for (std::size_t rule = 0; rule < rules; ++rule) {
        if (rule % 8 == 0 && rule / 8 < products.size() / 2) {
            items.emplace_back(products[random() % products.size()]);
        } else {
            items.push_back(FutureName(random() % products.size(), random() % months.size()) +
                            (rule < 256 ? "" : "C" + std::to_string(rule)));
        }
    }
    std::string text;
    for (const std::string& item : items) {
        text += (text.empty() ? "" : ", ") + item;
    }
    return text;
}

// The first of the list in an order of chance, so that each part of it is made as the whole is.
void Prepare(Case& test) {
    std::vector<ZceBoard::Instrument> list = FullInstrumentList();
    std::mt19937 random(1);
    std::shuffle(list.begin(), list.end(), random);
    for (std::size_t k = 0; k < test.instruments; ++k) {
        test.map.emplace(list[k].name, list[k].index);
    }
    for (std::size_t k = 0; k < test.channels; ++k) {
        test.channel[k] = {RuleText(test.rules, random), k % 4 != 3, k % 4 == 0, k % 2 == 0};
    }
}

// ---- The independent version.

bool IsDigit(char letter) {
    return letter >= '0' && letter <= '9';
}

// Where the letter of an option stands; npos if it is none.
std::size_t OptionLetter(std::string_view name) {
    std::size_t at = name.find_first_of("0123456789");
    for (; at != std::string_view::npos && at + 1 < name.size(); ++at) {
        if ((name[at] == 'C' || name[at] == 'P') && IsDigit(name[at - 1]) &&
            IsDigit(name[at + 1])) {
            return at;
        }
    }
    return std::string_view::npos;
}

std::string_view ClassOf(std::string_view name) {
    std::size_t length = 0;
    while (length < name.size() && std::isalpha(static_cast<unsigned char>(name[length])) != 0) {
        ++length;
    }
    return name.substr(0, length);
}

struct RuleSets {
    std::unordered_set<std::string_view> ids;
    std::unordered_set<std::string_view> classes;
    std::string text;  // what the two above look at
    bool bAll = false;
    bool bOptions = false;
    bool bIps = false;
    bool bSpd = false;
};

void Split(const Rules& rules, RuleSets& sets) {
    sets.text = rules.insts;
    std::erase(sets.text, ' ');
    std::string lower = sets.text;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    sets.bAll = lower.find("all") != std::string::npos;
    for (std::string_view rest = sets.text; !rest.empty();) {
        const std::string_view item = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(item.size() + 1, rest.size()));
        if (!item.empty()) {
            (std::any_of(item.begin(), item.end(), IsDigit) ? sets.ids : sets.classes).insert(item);
        }
    }
    sets.bOptions = rules.bOptions;
    sets.bIps = rules.bIps;
    sets.bSpd = rules.bSpd;
}

std::unique_ptr<Selected> SelectByHash(const Case& test) {
    auto selected = std::make_unique<Selected>();
    std::array<RuleSets, channelCount> sets;
    for (std::size_t k = 0; k < channelCount; ++k) {
        Split(test.channel[k], sets[k]);
    }
    for (const auto& [name, index] : test.map) {
        unsigned int mask = 0;
        const bool bSpd = name.starts_with("SPD-");
        if (bSpd || name.starts_with("IPS-")) {
            for (std::size_t k = 0; k < channelCount; ++k) {
                mask |= static_cast<unsigned int>(bSpd ? sets[k].bSpd : sets[k].bIps) << k;
            }
            selected->combination.Put(name, index, mask);
            continue;
        }
        const std::size_t letter = OptionLetter(name);
        const std::string_view contract = std::string_view(name).substr(0, letter);
        const std::string_view product = ClassOf(name);
        for (std::size_t k = 0; k < channelCount; ++k) {
            if ((letter == std::string_view::npos || sets[k].bOptions) &&
                (sets[k].bAll || sets[k].classes.contains(product) ||
                 sets[k].ids.contains(contract))) {
                mask |= 1U << k;
            }
        }
        selected->single.Put(name, index, mask);
    }
    return selected;
}

// ---- The library's.

class COpenContracts final : public Vela2_U50::CContractServ {
  public:
    using CContractServ::CContractServ;
    using CContractServ::m_mapCmbSubs;
    using CContractServ::m_mapSglSubs;
};

using NameMap = std::map<std::uint16_t, std::string>;

// Ends the program if the library's selection is another one. Gives how many pairs of a channel and
// an instrument it has.
std::size_t Check(Table& expected, const NameMap (&ofChannel)[channelCount], const Masks& onBoard) {
    std::size_t pairs = 0;
    bool bSame = onBoard == expected.masks;
    for (std::size_t k = 0; k < channelCount; ++k) {
        auto& chosen = expected.ofChannel[k];
        std::sort(chosen.begin(), chosen.end());
        bSame =
            bSame && std::equal(chosen.begin(), chosen.end(), ofChannel[k].begin(),
                                ofChannel[k].end(), [](const auto& left, const auto& right) {
                                    return left.first == right.first && left.second == right.second;
                                });
        pairs += chosen.size();
    }
    if (!bSame) {
        Die("the two selections differ");
    }
    return pairs;
}

struct Library {
    explicit Library(InstMap& map)
        : insts(map),
          cfg("", &drv, nullptr),
          bin(insts, 0),
          fpga(insts, 0),
          contracts(insts, &cfg, &bin, &fpga, 0, cfg.getArrayReference()) {
        fpga.Init(&drv);
    }

    void Select(const Case& test) {
        for (unsigned int k = 0; k < channelCount; ++k) {
            Vela2_U50::ZceSubsInfo_t& rules = cfg.getArrayReference()[k];
            const std::string text = Vela2_U50::RemoveSpace(test.channel[k].insts);
            rules.bSubAll = Vela2_U50::FindAllTag(text) ? 1 : 0;
            cfg.ParseRawInsts(text, k);
            rules.bOptionsRecv = test.channel[k].bOptions ? 1 : 0;
            rules.bIpsRecv = test.channel[k].bIps ? 1 : 0;
            rules.bSpdRecv = test.channel[k].bSpd ? 1 : 0;
        }
        contracts.FilterAndStoreToGlobMap();
    }

    InstMap& insts;
    CFreeDrv drv;
    Vela2_U50::CZceConfigFile cfg;
    CTernBinFile bin;
    Vela2_U50::CZceFpgaServ fpga;
    COpenContracts contracts;
};

template <class Work>
double SecondsOf(Work work) {
    const std::int64_t begin = NowNs();
    work();
    return static_cast<double>(NowNs() - begin) * 1e-9;
}

void Compare(benchmark::State& state, Case& test) {
    const int pairs = IsSmokeRun() ? 1 : test.instruments > 1000 ? 2 : 10;
    while (state.KeepRunning()) {
        double hash = 0;
        double library = 0;
        std::size_t chosen = 0;
        for (int k = 0; k < pairs; ++k) {
            std::unique_ptr<Selected> expected;
            hash += SecondsOf([&] { expected = SelectByHash(test); });
            Library ours(test.map);
            library += SecondsOf([&] { ours.Select(test); });
            ours.fpga.SubsFromGlobInsts();
            chosen = Check(expected->single, ours.contracts.m_mapSglSubs, ours.drv.SingleMasks()) +
                     Check(expected->combination, ours.contracts.m_mapCmbSubs,
                           ours.drv.CombinationMasks());
        }
        state.SetIterationTime(library / pairs);
        state.counters["library"] = library / pairs;
        state.counters["hash"] = hash / pairs;
        state.counters["ratio"] = library / hash;
        state.counters["chosen"] = static_cast<double>(chosen);
    }
}

std::vector<Case> g_cases;

template <std::size_t Number>
void CompareCase(benchmark::State& state) {
    Compare(state, g_cases[Number]);
}

constexpr std::size_t ofInstruments[] = {100, 500, 1000, 2047, 4095, 6000};
constexpr std::size_t ofChannels[] = {1, 2, 4, 8, 12};
constexpr std::size_t ofRules[] = {1, 4, 16, 250, 500, 1000};
constexpr std::size_t caseCount =
    1 + std::size(ofInstruments) + std::size(ofChannels) + std::size(ofRules);

std::string CaseName(std::size_t instruments, std::size_t channels, std::size_t rules) {
    return std::to_string(instruments) + "x" + std::to_string(channels) + "x" +
           std::to_string(rules);
}

void AddCase(std::size_t instruments, std::size_t channels, std::size_t rules) {
    g_cases.push_back(
        {CaseName(instruments, channels, rules), instruments, channels, rules, {}, {}});
    Prepare(g_cases.back());
}

void MakeCases() {
    AddCase(allInstruments, channelCount, 64);
    for (const std::size_t instruments : ofInstruments) {
        AddCase(instruments, channelCount, 64);
    }
    for (const std::size_t channels : ofChannels) {
        AddCase(allInstruments, channels, 64);
    }
    for (const std::size_t rules : ofRules) {
        AddCase(allInstruments, channelCount, rules);
    }
}

template <std::size_t... Number>
void RegisterCases(std::index_sequence<Number...> /*numbers*/) {
    (Register(g_cases[Number].name, CompareCase<Number>), ...);
}

// How much more an instrument (or a channel) costs at the largest size than at `size`.
double Growth(const CMedians& medians, const std::string& whole, const std::string& part,
              double times) {
    return medians.Counter(whole, "library") / medians.Counter(part, "library") / times;
}

void PrintPoints(const CMedians& medians, const std::string& plot, double x,
                 const std::string& name) {
    for (const char* series : {"library", "hash"}) {
        PrintPoint("selection-" + plot, series, x, medians.Counter(name, series) * 1e6);
    }
}

void Print(const CMedians& medians) {
    const std::string whole = CaseName(allInstruments, channelCount, 64);
    std::printf(
        "%zu instruments, %zu channels of 64 rules, %.0f pairs selected: VelaZceMdApi %.2f ms, "
        "hash sets %.2f ms\n",
        allInstruments, channelCount, medians.Counter(whole, "chosen"),
        medians.Counter(whole, "library") * 1e3, medians.Counter(whole, "hash") * 1e3);
    for (const Case& test : g_cases) {
        const bool bWhole = test.name == whole;
        if (bWhole || test.instruments != allInstruments) {
            PrintPoints(medians, "instruments", static_cast<double>(test.instruments), test.name);
        }
        if (bWhole || test.channels != channelCount) {
            PrintPoints(medians, "channels", static_cast<double>(test.channels), test.name);
        }
        if (bWhole || test.rules != 64) {
            PrintPoints(medians, "rules", static_cast<double>(test.rules), test.name);
        }
    }
    PrintRatioAtMost("selection-library/hash", medians.Counter(whole, "ratio"), 1.5);
    constexpr double linear = 1.3;
    PrintRatioAtMost("selection-an-instrument-8190/4095",
                     Growth(medians, whole, CaseName(4095, channelCount, 64), 8190.0 / 4095),
                     linear);
    PrintRatioAtMost("selection-an-instrument-8190/2047",
                     Growth(medians, whole, CaseName(2047, channelCount, 64), 8190.0 / 2047),
                     linear);
    PrintRatioAtMost("selection-a-channel-16/8",
                     Growth(medians, whole, CaseName(allInstruments, 8, 64), 2), linear);
    PrintRatioAtMost("selection-a-channel-16/4",
                     Growth(medians, whole, CaseName(allInstruments, 4, 64), 4), linear);
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    ReadOptions(argc, argv);
    GoAhead();
    Pin(sched_getcpu());
    EnterOwnFolder();
    // What a run has given back the next one takes again: neither side is to measure the kernel.
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    MakeCases();
    RegisterCases(std::make_index_sequence<caseCount>{});
    CMedians medians;
    RunAll(medians);
    Print(medians);
    Finish();
    return 0;
}
