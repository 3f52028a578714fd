#include "faultTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <regex>
#include <sstream>

#include "process.h"

namespace velatest {

namespace {

// The row of the table of faults that names this test, and in it the lines in backticks.
std::vector<std::string> RowLines(const std::string& test) {
    std::istringstream page(ReadFile(FAULT_TABLE));
    std::vector<std::string> lines;
    for (std::string row; std::getline(page, row);) {
        if (!row.starts_with("|") || row.find("| `" + test + "` |") == std::string::npos) {
            continue;
        }
        static const std::regex line("`((INFO|WARN|ERROR) [^`]*)`");
        for (std::sregex_iterator at(row.begin(), row.end(), line), end; at != end; ++at) {
            std::string text = (*at)[1];
            if (text.ends_with("␣")) {
                text.replace(text.size() - std::string("␣").size(), std::string::npos, " ");
            }
            lines.push_back(text);
        }
        return lines;
    }
    ADD_FAILURE() << FAULT_TABLE << " has no row of " << test;
    return lines;
}

// A row's line as a pattern: "..." is any text.
std::regex Pattern(const std::string& line) {
    static const std::regex special(R"([\[\](){}*+?^$|\\.])");
    std::string pattern = std::regex_replace(line, special, R"(\$&)");
    for (auto at = pattern.find(R"(\.\.\.)"); at != std::string::npos;
         at = pattern.find(R"(\.\.\.)", at)) {
        pattern.replace(at, 6, ".+");
    }
    return std::regex(pattern);
}

}  // namespace

std::set<std::string> LinesBesideRow(const std::vector<std::string>& lines) {
    const auto* const info = testing::UnitTest::GetInstance()->current_test_info();
    const std::vector<std::string> row =
        RowLines(std::string(info->test_suite_name()) + "." + info->name());
    EXPECT_FALSE(row.empty()) << "the row has no line";
    std::vector<std::regex> patterns;
    std::transform(row.begin(), row.end(), std::back_inserter(patterns), Pattern);
    std::vector<bool> found(row.size());
    std::set<std::string> beside;
    for (const std::string& line : std::set<std::string>(lines.begin(), lines.end())) {
        bool named = false;
        for (std::size_t k = 0; k < row.size(); ++k) {
            if (std::regex_match(line, patterns[k])) {
                found[k] = true;
                named = true;
            }
        }
        if (!named && !line.starts_with("INFO ")) {
            beside.insert(line);
        }
    }
    for (std::size_t k = 0; k < row.size(); ++k) {
        EXPECT_TRUE(found[k]) << "not logged: " << row[k];
    }
    return beside;
}

}  // namespace velatest
