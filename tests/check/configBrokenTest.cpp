// The corpus of broken files, and the page that explains every finding.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "check/Check.h"
#include "check/InstrumentNames.h"
#include "wholeFile.h"

namespace velatest {

namespace {

using std::filesystem::path;

std::vector<path> BrokenFiles() {
    std::vector<path> files;
    for (const auto& entry : std::filesystem::directory_iterator(CHECK_BROKEN)) {
        if (entry.path().extension() == ".ini") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

path Beside(path file, const char* extension) {
    return file.replace_extension(extension);
}

// "LINE CODE" for each finding, in the order of the report. A file NAME.list beside the
// configuration holds its instruments, NAME.bin is a cache file.
std::string FoundIn(const path& file) {
    ZceCheck::InstrumentNames names;
    std::string error;
    const path list = Beside(file, ".list");
    const path bin = Beside(file, ".bin");
    bool bNames = false;
    if (std::filesystem::exists(list)) {
        bNames = ZceCheck::ReadNameList(list.string(), names, error);
    } else if (std::filesystem::exists(bin)) {
        bNames = ZceCheck::ReadBinFile(bin.string(), names, error);
    }
    EXPECT_EQ(error, "");
    const auto result =
        ZceCheck::CheckFile(file.string(), WholeFile(file.string()), bNames ? &names : nullptr);
    std::string found;
    for (const ZceCheck::Finding& finding : result.findings.All()) {
        found +=
            std::to_string(finding.place.line) + " " + ZceCheck::InfoOf(finding.code).name + "\n";
    }
    return found;
}

TEST(CheckBroken, EveryFileOfTheCorpusHasTheFindingsBesideIt) {
    const std::vector<path> files = BrokenFiles();
    EXPECT_GE(files.size(), 30U);
    for (const path& file : files) {
        SCOPED_TRACE(file.filename());
        const std::string expected = WholeFile(Beside(file, ".expected").string());
        EXPECT_NE(expected, "");
        EXPECT_EQ(FoundIn(file), expected);
    }
}

TEST(CheckBroken, EveryFindingIsInTheCorpus) {
    std::set<std::string> there;
    for (const path& file : BrokenFiles()) {
        std::istringstream text(WholeFile(Beside(file, ".expected").string()));
        for (std::string line, code; text >> line >> code;) {
            there.insert(code);
        }
    }
    for (const ZceCheck::CodeInfo& info : ZceCheck::AllCodes()) {
        EXPECT_TRUE(there.contains(info.name)) << info.name;
    }
}

// The rows of the page's table of findings: "| `code` | severity |".
TEST(CheckBroken, ThePageExplainsEveryFindingAndNoOther) {
    std::vector<std::string> page;
    std::istringstream text(WholeFile(CHECK_PAGE));
    for (std::string line; std::getline(text, line);) {
        if (!line.starts_with("| `")) {
            continue;
        }
        const auto end = line.find('`', 3);
        const auto severity = line.find("| ", end) + 2;
        const std::string word = line.substr(severity, line.find(' ', severity) - severity);
        if (word == "error" || word == "warning") {
            page.push_back(line.substr(3, end - 3) + " " + word);
        }
    }
    std::vector<std::string> program;
    for (const ZceCheck::CodeInfo& info : ZceCheck::AllCodes()) {
        program.push_back(std::string(info.name) + " " + ZceCheck::Word(info.severity));
    }
    EXPECT_EQ(page, program);
}

}  // namespace

}  // namespace velatest
