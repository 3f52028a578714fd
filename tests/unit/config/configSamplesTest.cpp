#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "configDoc.h"
#include "configStart.h"
#include "tempDir.h"

// The files that the pages show, each tried as it stands.
namespace {

using velatest::IniSample;
using velatest::TempDir;

std::vector<std::string> Pages() {
    const std::filesystem::path root(VELAZCE_SOURCE);
    std::vector<std::string> pages;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root / "docs")) {
        if (entry.path().extension() == ".md") {
            pages.push_back(entry.path().string());
        }
    }
    for (const auto& entry : std::filesystem::directory_iterator(root)) {
        if (entry.path().extension() == ".md") {
            pages.push_back(entry.path().string());
        }
    }
    std::sort(pages.begin(), pages.end());
    return pages;
}

bool HasPlace(const IniSample& sample) {
    return std::find(sample.lines.begin(), sample.lines.end(), "...") != sample.lines.end();
}

// Of a block without [config] the page shows a part of a file: the rest is the smallest one.
std::string FileText(const IniSample& sample) {
    std::string text;
    for (const std::string& line : sample.lines) {
        text += line + "\n";
    }
    return text.find("[config]") == std::string::npos ? "[config]\ndevice = xilinx0:0\n" + text
                                                      : text;
}

// What a start would not read: a misspelt key or section is no error to the library.
std::vector<std::string> Unknown(const std::string& text) {
    static const std::regex section(R"(\s*\[(config|channel(?:[0-9]|1[0-5]))\]\s*)",
                                    std::regex::icase);
    static const std::regex board(
        R"(\s*(device|cpucore|czce_level[12]|L[15]_(?:SRC|DST)(?:MAC|IP|PORT))\s*=.*)",
        std::regex::icase);
    static const std::regex rule(R"(\s*(insts|options|ips|spd)\s*=.*)", std::regex::icase);
    static const std::regex nothing(R"(\s*([;#].*)?)");
    std::vector<std::string> unknown;
    bool inChannel = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::smatch found;
        if (std::regex_match(line, found, section)) {
            inChannel = std::tolower(static_cast<unsigned char>(found[1].str()[1])) == 'h';
        } else if (!std::regex_match(line, nothing) &&
                   !std::regex_match(line, inChannel ? rule : board)) {
            unknown.push_back(line);
        }
    }
    return unknown;
}

TEST(ConfigSamples, TheLibraryTakesEveryFileThatAPageShows) {
    int tried = 0;
    for (const std::string& page : Pages()) {
        for (const IniSample& sample : velatest::ReadIniSamples(page)) {
            if (HasPlace(sample)) {
                continue;  // a table of values stands below it, and each of its rows is a test
            }
            SCOPED_TRACE(page + ":" + std::to_string(sample.line));
            const TempDir dir;
            const std::string path = dir / "velazce.ini";
            const std::string text = FileText(sample);
            std::ofstream(path) << text;
            const velatest::StartSeen seen = velatest::RunStart(path, velatest::As::caller);
            EXPECT_FALSE(seen.effect.fails);
            EXPECT_FALSE(seen.effect.rulesCut);
            for (const std::string& line : seen.lines) {
                EXPECT_TRUE(line.starts_with("INFO ")) << line;
                EXPECT_EQ(line.find("Maybe lack item"), std::string::npos) << line;
            }
            EXPECT_EQ(Unknown(text), std::vector<std::string>());
            ++tried;
        }
    }
    EXPECT_GE(tried, 6);
}

}  // namespace
