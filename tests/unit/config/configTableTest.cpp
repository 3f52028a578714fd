#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "configDoc.h"
#include "configStart.h"
#include "tempDir.h"

namespace {

using velatest::DocCell;
using velatest::DocRow;
using velatest::DocTable;
using velatest::StartEffect;
using velatest::TempDir;

constexpr const char* wholeFile = "The whole file";
constexpr std::size_t kindColumn = 0;
constexpr std::size_t fileColumn = 1;
constexpr std::size_t effectColumn = 2;
constexpr std::size_t linesColumn = 3;

// One row of a table of bad values, with what it needs of its table.
struct ValueRow {
    std::string key;
    std::vector<std::string> block;
    DocRow row;

    const std::string& Kind() const { return row.cells[kindColumn].raw; }
    const DocCell& File() const { return row.cells[fileColumn]; }
    const DocCell& Effect() const { return row.cells[effectColumn]; }
    const DocCell& Lines() const { return row.cells[linesColumn]; }
};

std::vector<ValueRow> RowsOf(const DocTable& table) {
    std::vector<ValueRow> rows;
    for (const DocRow& row : table.rows) {
        rows.push_back({table.title, table.block, row});
    }
    return rows;
}

// Every table of bad values on the page.
const std::vector<DocTable>& ValueTables() {
    static const std::vector<DocTable> tables = velatest::DocTablesOf(velatest::configPage, "kind");
    return tables;
}

std::vector<ValueRow> ValueRows() {
    std::vector<ValueRow> rows;
    for (const DocTable& table : ValueTables()) {
        const std::vector<ValueRow> own = RowsOf(table);
        rows.insert(rows.end(), own.begin(), own.end());
    }
    return rows;
}

// ---- The file of a row -------------------------------------------------------------------------

constexpr const char* place = "...";  // where a row's lines stand in the block of its table

std::string FileText(const ValueRow& row) {
    std::string text;
    for (const std::string& line : row.block) {
        if (line != place) {
            text += line + "\n";
            continue;
        }
        for (const std::string& own : row.File().spans) {
            text += own + "\n";
        }
    }
    if (row.Kind() == "no newline at the end") {
        text.pop_back();
    }
    return text;
}

void WriteFile(const std::string& path, const std::string& text) {
    std::FILE* file = std::fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
    EXPECT_EQ(std::fclose(file), 0);
}

// Makes what the row's path leads to, and returns the path.
std::string MakeFile(const ValueRow& row, const TempDir& dir) {
    std::string path = dir / "velazce.ini";
    if (row.Kind() == "no file name") {
        return "";
    }
    if (row.Kind() == "missing file") {
        return path;
    }
    if (row.Kind() == "directory") {
        EXPECT_EQ(mkdir(path.c_str(), 0700), 0);
        return path;
    }
    WriteFile(path, FileText(row));
    if (row.Kind() == "unreadable") {
        EXPECT_EQ(chmod(dir.path().c_str(), 0755), 0);
        EXPECT_EQ(chmod(path.c_str(), 0), 0);
    }
    return path;
}

// ---- The effect that a row tells ---------------------------------------------------------------

void TakeWrites(const std::vector<std::string>& spans, StartEffect& effect) {
    for (const std::string& span : spans) {
        std::size_t end = 0;
        const unsigned long addr = std::stoul(span, &end, 16);
        ASSERT_EQ(span[end], '=') << span;
        effect.writes.emplace_back(addr, std::stoul(span.substr(end + 1), nullptr, 16));
    }
}

bool TakeRule(const std::string& word, const std::vector<std::string>& spans,
              velatest::RulesSeen& rules) {
    const std::map<std::string, bool*> flags = {
        {"all", &rules.all}, {"options", &rules.options}, {"ips", &rules.ips}, {"spd", &rules.spd}};
    const std::map<std::string, std::vector<std::string>*> lists = {{"ids", &rules.ids},
                                                                    {"classes", &rules.classes}};
    if (const auto flag = flags.find(word); flag != flags.end()) {
        *flag->second = true;
        return true;
    }
    if (const auto list = lists.find(word); list != lists.end()) {
        *list->second = spans;
        return true;
    }
    return false;
}

// "board 2, channel 3" and "CPU 0".
bool TakeNumbers(const std::string& phrase, StartEffect& effect) {
    return std::sscanf(phrase.c_str(), "board %u, channel %u", &effect.board, &effect.channel) ==
               2 ||
           std::sscanf(phrase.c_str(), "CPU %d", &effect.cpu) == 1;
}

// One phrase of the few that the page uses.
void TakePhrase(const std::string& phrase, const std::vector<std::string>& spans,
                StartEffect& effect) {
    const std::string word = phrase.substr(0, phrase.find(' '));
    if (phrase == "start fails") {
        effect.fails = true;
    } else if (phrase == "L1 off") {
        effect.feeds &= ~2U;
    } else if (phrase == "L5 off") {
        effect.feeds &= ~1U;
    } else if (word == "writes") {
        TakeWrites(spans, effect);
    } else if (phrase == "later channels not read") {
        effect.rulesCut = true;
    } else if (unsigned int channel = 0; std::sscanf(phrase.c_str(), "channel %u", &channel) == 1) {
        const std::string rest = phrase.substr(phrase.find(' ', phrase.find(' ') + 1) + 1);
        EXPECT_TRUE(TakeRule(rest.substr(0, rest.find(' ')), spans, effect.rules[channel]))
            << phrase;
    } else if (phrase != "none" && !TakeNumbers(phrase, effect)) {
        EXPECT_TRUE(TakeRule(word, spans, effect.rules[0])) << "unknown effect: " << phrase;
    }
}

StartEffect ToldEffect(const DocCell& cell) {
    StartEffect effect;
    std::istringstream phrases(cell.raw);
    std::size_t taken = 0;
    for (std::string phrase; std::getline(phrases, phrase, ';');) {
        phrase.erase(0, phrase.find_first_not_of(' '));
        const auto count =
            static_cast<std::size_t>(std::count(phrase.begin(), phrase.end(), '`') / 2);
        const auto first = cell.spans.begin() + static_cast<std::ptrdiff_t>(taken);
        TakePhrase(phrase, {first, first + static_cast<std::ptrdiff_t>(count)}, effect);
        taken += count;
    }
    return effect;
}

// ---- The lines that a row tells ----------------------------------------------------------------

// The steps whose lines a table of values gives; the other steps say what they always say.
std::set<std::string> StepsOf(const std::string& key) {
    if (key.starts_with("channel")) {
        return {"rules"};
    }
    if (key.starts_with("config:L")) {
        return {"addresses"};
    }
    if (key.starts_with("config:czce_level")) {
        return {"feeds"};
    }
    if (key == "config:cpucore") {
        return {"CPU"};
    }
    return {"load", "board"};
}

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

std::vector<std::string> ToldLines(const ValueRow& row, const StartEffect& effect) {
    const std::vector<std::string>& own = row.Lines().spans;
    if (effect.fails) {
        return own;
    }
    static const std::vector<DocTable> steps = velatest::DocTablesOf(velatest::configPage, "step");
    EXPECT_EQ(steps.size(), 1U);
    const std::set<std::string> told =
        row.Lines().raw == "the usual" ? std::set<std::string>() : StepsOf(row.key);
    std::vector<std::string> lines;
    bool ownTaken = told.empty();
    for (const DocRow& step : steps.at(0).rows) {
        const std::string& name = step.cells[0].raw;
        if (!told.contains(name)) {
            lines.insert(lines.end(), step.cells[2].spans.begin(), step.cells[2].spans.end());
        } else if (!ownTaken) {
            lines.insert(lines.end(), own.begin(), own.end());
            ownTaken = true;
        }
        if (name == "CPU" && effect.channel != 0) {
            break;
        }
    }
    for (std::string& line : lines) {
        ReplaceAll(line, "[channel:0] Doesn't",
                   "[channel:" + std::to_string(effect.channel) + "] Doesn't");
    }
    return lines;
}

// Not every host lets a thread run on CPU 0, and some have no other.
void FitToHost(StartEffect& effect, std::vector<std::string>& lines) {
    if (effect.cpu == -1) {
        return;
    }
    const velatest::Binding binding = velatest::TryBinding(effect.cpu);
    if (binding == velatest::Binding::refused) {
        for (std::string& line : lines) {
            ReplaceAll(line, "affinity success", "affinity failed");
        }
    }
    if (binding != velatest::Binding::done) {
        effect.cpu = -1;
    }
}

// ---- The tests ---------------------------------------------------------------------------------

void TryRow(const ValueRow& row) {
    ASSERT_EQ(row.row.cells.size(), 4U);
    StartEffect effect = ToldEffect(row.Effect());
    std::vector<std::string> lines = ToldLines(row, effect);
    FitToHost(effect, lines);

    const TempDir dir;
    const std::string path = MakeFile(row, dir);
    const velatest::StartSeen seen = velatest::RunStart(
        path, row.Kind() == "unreadable" ? velatest::As::user : velatest::As::caller);
    for (std::string& line : lines) {
        ReplaceAll(line, "FILE", path);
    }
    EXPECT_EQ(Describe(seen.effect), Describe(effect));
    EXPECT_EQ(seen.lines, lines);
}

class ConfigValues : public testing::TestWithParam<std::size_t> {};

TEST_P(ConfigValues, DoWhatThePageSays) {
    for (const ValueRow& row : RowsOf(ValueTables().at(GetParam()))) {
        SCOPED_TRACE(std::string(velatest::configPage) + ":" + std::to_string(row.row.line) + ", " +
                     row.Kind());
        TryRow(row);
    }
}

// The heading of the table.
std::string TableName(const testing::TestParamInfo<std::size_t>& table) {
    std::string name = ValueTables().at(table.param).title;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char letter) { return std::isalnum(letter) == 0; },
        '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Page, ConfigValues, testing::Range<std::size_t>(0, ValueTables().size()),
                         TableName);

std::set<std::string> KindsOf(const std::string& key) {
    std::set<std::string> kinds;
    for (const ValueRow& row : ValueRows()) {
        if (row.key == key) {
            kinds.insert(row.Kind());
        }
    }
    return kinds;
}

TEST(ConfigPage, HasARowForEachKeyAndKindOfBadValue) {
    const std::array<const char*, 20> keys = {
        "config:device",     "config:cpucore",    "config:czce_level1", "config:czce_level2",
        "config:L5_DSTMAC",  "config:L5_DSTIP",   "config:L5_DSTPORT",  "config:L5_SRCMAC",
        "config:L5_SRCIP",   "config:L5_SRCPORT", "config:L1_DSTMAC",   "config:L1_DSTIP",
        "config:L1_DSTPORT", "config:L1_SRCMAC",  "config:L1_SRCIP",    "config:L1_SRCPORT",
        "channelN:insts",    "channelN:options",  "channelN:ips",       "channelN:spd"};
    const std::array<const char*, 9> kinds = {"good",
                                              "absent",
                                              "empty",
                                              "wrong type",
                                              "out of range",
                                              "far too long",
                                              "longer than a line",
                                              "odd case",
                                              "odd blanks"};
    for (const char* key : keys) {
        const std::set<std::string> there = KindsOf(key);
        for (const char* kind : kinds) {
            EXPECT_TRUE(there.contains(kind)) << key << ": " << kind;
        }
    }
}

TEST(ConfigPage, HasARowForEachKindOfBadFile) {
    const std::set<std::string> there = KindsOf(wholeFile);
    for (const char* kind : {"no file name", "missing file", "directory", "unreadable",
                             "empty file", "garbage", "line too long", "section twice", "key twice",
                             "no newline at the end", "CRLF line ends", "UTF-8 byte order mark"}) {
        EXPECT_TRUE(there.contains(kind)) << kind;
    }
}

// A row that names another key than its table's would try nothing.
TEST(ConfigPage, RowsWriteTheKeyOfTheirTable) {
    for (const ValueRow& row : ValueRows()) {
        const auto colon = row.key.find(':');
        const bool oneKey = colon != std::string::npos && row.key.find(' ') == std::string::npos;
        if (!oneKey || row.Kind() == "absent") {
            continue;
        }
        std::string written;
        for (const std::string& line : row.File().spans) {
            written += line;
        }
        std::string key = row.key.substr(colon + 1);
        for (std::string* text : {&written, &key}) {
            std::transform(text->begin(), text->end(), text->begin(), [](unsigned char letter) {
                return static_cast<char>(std::tolower(letter));
            });
        }
        EXPECT_NE(written.find(key), std::string::npos)
            << velatest::configPage << ":" << row.row.line;
    }
}

}  // namespace
