// What zce-check takes a file's lines for, against what the library's reader makes of them.

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <random>
#include <set>
#include <string>

#include "check/IniLines.h"
#include "check/Library.h"
#include "tempDir.h"

namespace velatest {

namespace {

// Parts that a file's lines are put together from; what matters to the reader is frequent.
std::string RandomFile(std::mt19937& random) {
    static const std::array<std::string, 28> parts = {
        "\n",         "\n",           "\n",        "\n",          "[", "]",
        "[config]\n", "[channel3]\n", " = ",       "=",           "=", "insts",
        "device",     "spd",          "recv",      "xilinx0:0",   ";", "#",
        "\\\n",       "\\",           "\"",        "'",           " ", "\t",
        "\r\n",       "[a]\nB=",      "\nA = 1\n", "\xef\xbb\xbf"};
    std::string text;
    const std::size_t length = 1 + random() % 24;
    for (std::size_t at = 0; at < length; ++at) {
        text += parts[random() % parts.size()];
    }
    return text;
}

std::set<std::string> KeysRead(const ZceCheck::Understood& library) {
    std::set<std::string> keys;
    for (const auto& [name, value] : library.values) {
        if (value) {
            keys.insert(name);
        }
    }
    return keys;
}

std::set<std::string> KeysSeen(const ZceCheck::IniLines& lines) {
    std::set<std::string> keys;
    for (const ZceCheck::IniKey& entry : lines.keys) {
        keys.insert(entry.section + ":" + entry.key);
    }
    // A line that begins as a section does and is none is a key to the reader.
    for (const ZceCheck::IniMark& mark : lines.marks) {
        if (mark.kind == ZceCheck::IniMark::Kind::sectionNotBegun) {
            keys.insert("[");
        }
    }
    return keys;
}

// The keys of both as they are compared: those with a bracket in front count as one.
std::set<std::string> Comparable(const std::set<std::string>& keys) {
    std::set<std::string> comparable;
    for (const std::string& key : keys) {
        const auto name = key.rfind(":[") == std::string::npos ? key : "[";
        comparable.insert(name);
    }
    return comparable;
}

TEST(CheckPlaces, EveryKeyThatTheReaderSeesHasItsLineAndNoOther) {
    const TempDir dir(TempDir::Enter::yes);
    std::mt19937 random(1);
    unsigned loaded = 0;
    for (unsigned number = 0; number < 3000; ++number) {
        const std::string text = RandomFile(random);
        std::ofstream("c.ini", std::ios::binary) << text;
        const ZceCheck::Understood library = ZceCheck::AskLibrary("c.ini", nullptr, false);
        if (!library.bLoaded) {
            EXPECT_FALSE(library.refused.empty()) << text;
            continue;
        }
        ++loaded;
        ASSERT_EQ(Comparable(KeysSeen(ZceCheck::ScanIni(text))), Comparable(KeysRead(library)))
            << text;
    }
    EXPECT_GT(loaded, 300U);
}

}  // namespace

}  // namespace velatest
