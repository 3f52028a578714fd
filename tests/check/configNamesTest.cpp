// Where zce-check has the instruments from.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "check/InstrumentNames.h"
#include "memory/BoardMemory.h"
#include "memory/RegisterFile.h"
#include "tempDir.h"

namespace velatest {

namespace {

using Names = std::map<std::string, unsigned short>;
using Reader = bool (*)(const std::string&, ZceCheck::InstrumentNames&, std::string&);

// What a reader makes of a file "f" that holds `text`.
struct Outcome {
    Outcome(Reader read, const std::string& text) {
        const TempDir dir(TempDir::Enter::yes);
        std::ofstream("f", std::ios::binary) << text;
        bDone = read("f", names, error);
    }
    ZceCheck::InstrumentNames names;
    std::string error;
    bool bDone = false;
};

Outcome List(const std::string& text) {
    return {ZceCheck::ReadNameList, text};
}

TEST(CheckNames, AListHasOneNameALine) {
    const Outcome list = List("# ours\nSR209\n  TA209\t# sugar\r\n\nSPD-SR209&SR301\nCF209");
    ASSERT_TRUE(list.bDone) << list.error;
    EXPECT_EQ(list.names.source, "f");
    EXPECT_EQ(list.names.byName,
              (Names{{"SR209", 0}, {"TA209", 1}, {"SPD-SR209&SR301", 0}, {"CF209", 2}}));
}

TEST(CheckNames, AListMayBeThatOfTheBoard) {
    const Outcome list = List("7,0,SR209\n12,1,IPS-SR209&CF209\n");
    ASSERT_TRUE(list.bDone) << list.error;
    EXPECT_EQ(list.names.byName, (Names{{"SR209", 7}, {"IPS-SR209&CF209", 12}}));
}

TEST(CheckNames, ABadLineOfAListIsNamed) {
    EXPECT_EQ(List("SR209\nSR 301\n").error, "f:2: \"SR 301\" is not one instrument's name");
    EXPECT_EQ(List("SR209\n\nSR209\n").error, "f:3: SR209 is there twice");
    EXPECT_EQ(List("65536,0,SR209\n").error, "f:1: the index 65536 is above 65535");
    EXPECT_EQ(List("1,0,\n").error, "f:1: \"1,0,\" is not one instrument's name");
    EXPECT_EQ(List("# nothing\n").error, "f: there is no instrument in it");
    EXPECT_FALSE(List("SR209\nSR209\n").bDone);
}

TEST(CheckNames, AListThatCannotBeReadIsNamed) {
    ZceCheck::InstrumentNames names;
    std::string error;
    const TempDir dir;
    EXPECT_FALSE(ZceCheck::ReadNameList(dir / "none", names, error));
    EXPECT_EQ(error, dir / "none" + ": No such file or directory");
    EXPECT_FALSE(ZceCheck::ReadNameList(dir.path(), names, error));
    EXPECT_EQ(error, dir.path() + ": Is a directory");
}

TEST(CheckNames, ACacheFileOfAnyDayIsRead) {
    const Outcome bin(ZceCheck::ReadBinFile,
                      "3,SR209\n4,SR209C5000\n0,SPD-SR209&SR301\n"
                      "contract's_corresponding_time=20200102085500\nbin_file_over_tag");
    ASSERT_TRUE(bin.bDone) << bin.error;
    EXPECT_EQ(bin.names.byName, (Names{{"SR209", 3}, {"SR209C5000", 4}, {"SPD-SR209&SR301", 0}}));
    EXPECT_FALSE(bin.names.bIncomplete);
}

TEST(CheckNames, ACacheFileWithoutItsEndIsIncomplete) {
    const Outcome bin(ZceCheck::ReadBinFile, "3,SR209\n4,SR3");
    ASSERT_TRUE(bin.bDone) << bin.error;
    EXPECT_EQ(bin.names.byName, (Names{{"SR209", 3}}));
    EXPECT_TRUE(bin.names.bIncomplete);
}

TEST(CheckNames, ACacheFileThatCannotBeReadIsNamed) {
    ZceCheck::InstrumentNames names;
    std::string error;
    const TempDir dir;
    EXPECT_FALSE(ZceCheck::ReadBinFile(dir / "none", names, error));
    EXPECT_EQ(error, dir / "none" + ": No such file or directory");
    EXPECT_FALSE(ZceCheck::ReadBinFile(dir.path(), names, error));
    EXPECT_EQ(error, dir.path() + ": Is a directory");
    EXPECT_EQ(Outcome(ZceCheck::ReadBinFile, "SR209\n").error, "f: there is no instrument in it");
}

TEST(CheckNames, ABoardsTablesAreReadAndTheBoardIsUntouched) {
    setenv("ZCE_BOARD_SHM_PREFIX", ("check" + std::to_string(getpid())).c_str(), 1);
    ZceBoard::CBoardMemory board;
    int32_t pid = 0;
    ASSERT_EQ(board.Create(2, pid), 0);
    ZceBoard::CRegisterFile registers(board.Shm());
    registers.StoreName(0, 5, "SR209");
    registers.StoreName(0, 4094, "SR209C5000");
    registers.StoreName(1, 9, "SPD-SR209&SR301");
    registers.Poke(0x11002, 320);
    const auto* const bytes = reinterpret_cast<const char*>(&board.Shm());
    const std::vector<char> before(bytes, bytes + sizeof(ZceBoard::BoardShm));

    ZceCheck::InstrumentNames names;
    std::string error;
    ASSERT_TRUE(ZceCheck::ReadBoardTables(2, names, error)) << error;
    EXPECT_EQ(names.byName, (Names{{"SR209", 5}, {"SR209C5000", 4094}, {"SPD-SR209&SR301", 9}}));
    EXPECT_EQ(names.source, "the board on bus 2");
    EXPECT_EQ(std::memcmp(before.data(), bytes, before.size()), 0);
}

TEST(CheckNames, ABusWithoutABoardAndABoardWithoutNamesAreNamed) {
    setenv("ZCE_BOARD_SHM_PREFIX", ("check" + std::to_string(getpid())).c_str(), 1);
    ZceCheck::InstrumentNames names;
    std::string error;
    EXPECT_FALSE(ZceCheck::ReadBoardTables(3, names, error));
    EXPECT_EQ(error,
              "bus 3: no zce-board is running on it; the tables of a card cannot be read without "
              "disturbing it, take --bin or --instruments");
    ZceBoard::CBoardMemory board;
    int32_t pid = 0;
    ASSERT_EQ(board.Create(3, pid), 0);
    EXPECT_FALSE(ZceCheck::ReadBoardTables(3, names, error));
    EXPECT_EQ(error, "the board on bus 3 knows no instrument yet");
}

}  // namespace

}  // namespace velatest
