// What zce-check vendor says of libraries: one that has all calls, one that lacks one, one of
// another soname, files that are none; and which library the loader takes, by which rule.

#include <elf.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <set>
#include <string>

#include "check/VendorChecks.h"
#include "check/VendorElf.h"
#include "check/VendorLoader.h"
#include "programRun.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using ZceMachine::ElfLibrary;
using ZceMachine::Level;
using ZceMachine::LoaderAnswer;
using ZceMachine::Result;

std::string Report(const std::vector<Result>& results) {
    return ZceMachine::AsText(results);
}

const std::string stub = STUB_LIBRARY;

TEST(VendorLibrary, HasAllCalls) {
    const std::string expected = "ok       library: " + stub +
                                 "\n"
                                 "ok       machine: x86-64\n"
                                 "ok       soname: libenyx-hw-c.so.5\n"
                                 "ok       calls: all 34 that the product needs; "
                                 "enyx_hw_mmio_destroy is not there (not needed)\n";
    EXPECT_EQ(Report(ZceMachine::CheckVendorLibrary(stub)), expected);
    // The same library, its names hashed the old way.
    const std::vector<Result> old = ZceMachine::CheckVendorLibrary(SYSV_LIBRARY);
    EXPECT_EQ(ZceMachine::ExitStatus(old), 0) << Report(old);
    const std::vector<Result> board = ZceMachine::CheckVendorLibrary(BOARD_LIBRARY);
    EXPECT_EQ(Report(board),
              "ok       library: " BOARD_LIBRARY
              " (the software board's)\n"
              "ok       machine: x86-64\n"
              "ok       soname: libenyx-hw-c.so.5\n"
              "ok       calls: all 34 that the product needs; enyx_hw_mmio_destroy is "
              "there too\n");
}

// The list is the one that another test compares with what the library imports.
TEST(VendorLibrary, TheCallsAreThoseOfTheList) {
    std::set<std::string> listed;
    std::ifstream file(ZCE_VENDOR_NAMES);
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with('#')) {
            listed.insert(line);
        }
    }
    const auto needed = ZceMachine::NeededCalls();
    EXPECT_EQ(std::set<std::string>(needed.begin(), needed.end()), listed);
    EXPECT_EQ(needed.size(), 34U);
}

TEST(VendorLibrary, LacksACall) {
    EXPECT_EQ(Report(ZceMachine::CheckVendorLibrary(LACKING_LIBRARY)),
              "ok       library: " LACKING_LIBRARY
              "\n"
              "ok       machine: x86-64\n"
              "ok       soname: libenyx-hw-c.so.5\n"
              "error    calls: 1 of 34 missing: enyx_hw_core_lock\n"
              "         -> a process that loads it ends at once; see the declarations in "
              "enyxHw.h\n");
}

// A name that is only asked for is not there.
TEST(VendorLibrary, AsksForACallItself) {
    std::string reason;
    const std::optional<ElfLibrary> library = ZceMachine::ReadElfFile(SUBJECT_LIBRARY, reason);
    ASSERT_TRUE(library) << reason;
    EXPECT_TRUE(library->calls.contains("subject"));
    EXPECT_FALSE(library->calls.contains("enyx_hw_read"));
    const std::vector<Result> results = ZceMachine::CheckVendorLibrary(SUBJECT_LIBRARY);
    EXPECT_TRUE(results.at(3).found.starts_with("34 of 34 missing: enyx_hw_a2c_stream_create, "));
    EXPECT_TRUE(results.at(2).found.starts_with("libcheck_subject.so, not ")) << results[2].found;
}

TEST(VendorLibrary, HasAnotherSoname) {
    EXPECT_EQ(Report(ZceMachine::CheckVendorLibrary(OLDER_LIBRARY)),
              "ok       library: " OLDER_LIBRARY
              "\n"
              "ok       machine: x86-64\n"
              "error    soname: libenyx-hw-c.so.4, not libenyx-hw-c.so.5\n"
              "         -> take the vendor's release with this soname: another may have other "
              "declarations\n"
              "ok       calls: all 34 that the product needs; enyx_hw_mmio_destroy is not there "
              "(not needed)\n");
}

TEST(VendorLibrary, IsForAnotherMachine) {
    const TempDir dir;
    std::string bytes = WholeFile(stub);
    bytes.at(offsetof(Elf64_Ehdr, e_machine)) = static_cast<char>(EM_AARCH64);
    PutFile(dir / "arm.so", bytes);
    const std::vector<Result> results = ZceMachine::CheckVendorLibrary(dir / "arm.so");
    EXPECT_EQ(Report({results.at(1)}),
              "error    machine: ELF machine 183, not x86-64\n"
              "         -> take the vendor's package for x86-64\n");
    bytes.at(EI_CLASS) = ELFCLASS32;
    PutFile(dir / "small.so", bytes);
    EXPECT_EQ(ZceMachine::CheckVendorLibrary(dir / "small.so").at(0).found,
              dir / "small.so" + ": no 64-bit little-endian library");
}

TEST(VendorLibrary, IsNone) {
    const TempDir dir;
    const auto found = [](const std::string& path) {
        const std::vector<Result> results = ZceMachine::CheckVendorLibrary(path);
        EXPECT_EQ(results.size(), 1U);
        EXPECT_EQ(results.at(0).level, Level::Error);
        EXPECT_EQ(results.at(0).advice, "name the vendor's libenyx-hw-c.so.5");
        return results.at(0).found;
    };
    PutFile(dir / "text", "libenyx-hw-c.so.5\n");
    PutFile(dir / "empty", "");
    EXPECT_EQ(found(dir / "text"), dir / "text" + ": no ELF file");
    EXPECT_EQ(found(dir / "empty"), dir / "empty" + ": no ELF file");
    EXPECT_EQ(found(dir / "none"), dir / "none" + ": No such file or directory");
    EXPECT_EQ(found(dir.path()), dir.path() + ": no regular file");
    EXPECT_EQ(found("/dev/zero"), "/dev/zero: no regular file");
    std::string object = WholeFile(stub);
    object.at(offsetof(Elf64_Ehdr, e_type)) = ET_REL;
    PutFile(dir / "object", object);
    EXPECT_EQ(found(dir / "object"), dir / "object" + ": an ELF file, but no shared library");
}

// A library that was cut or altered gives a reason or an answer, and is read no further than it
// goes: what the sanitizers watch for.
TEST(VendorLibrary, IsCutOrAltered) {
    const std::string whole = WholeFile(SMALL_LIBRARY);
    ASSERT_FALSE(whole.empty());
    std::string reason;
    ASSERT_TRUE(ZceMachine::ReadElf(whole, reason));
    unsigned int refused = 0;
    for (std::size_t size = 0; size < 2048; size += 7) {
        refused += ZceMachine::ReadElf(std::string_view(whole).substr(0, size), reason) ? 0 : 1;
    }
    EXPECT_GT(refused, 50U);
    EXPECT_FALSE(ZceMachine::ReadElf(std::string_view(whole).substr(0, 100), reason));
    EXPECT_EQ(reason, "its segments lead beyond the file");
    std::mt19937 random(1);
    for (unsigned int run = 0; run < 500; ++run) {
        std::string altered = whole;
        for (unsigned int change = 0; change < 4; ++change) {
            const std::size_t at = random() % std::min<std::size_t>(altered.size(), 4096);
            altered[at] = static_cast<char>(random());
        }
        ZceMachine::ReadElf(altered, reason);
    }
}

// The library with another soname, which stands behind all else. Its strings lie in the file as
// they do in memory.
std::string WithSoname(std::string library, const std::string& soname) {
    const auto at = [&library]<typename Record>(std::size_t offset, Record& record) {
        ASSERT_LE(offset + sizeof(record), library.size());
        std::memcpy(&record, library.data() + offset, sizeof(record));
    };
    Elf64_Ehdr head{};
    at(0, head);
    Elf64_Phdr segment{};
    for (std::size_t number = 0; segment.p_type != PT_DYNAMIC && number < head.e_phnum; ++number) {
        at(head.e_phoff + number * sizeof(segment), segment);
    }
    std::size_t place = 0;  // of the soname's entry
    std::uint64_t strings = 0;
    Elf64_Dyn entry{};
    for (std::size_t offset = segment.p_offset; offset < segment.p_offset + segment.p_filesz;
         offset += sizeof(entry)) {
        at(offset, entry);
        place = entry.d_tag == DT_SONAME ? offset : place;
        strings = entry.d_tag == DT_STRTAB ? entry.d_un.d_ptr : strings;
    }
    entry.d_tag = DT_SONAME;
    entry.d_un.d_val = library.size() - strings;
    std::memcpy(library.data() + place, &entry, sizeof(entry));
    return library + soname + '\0';
}

TEST(VendorLibrary, HasNoNameOfThousandsOfLetters) {
    const std::string whole = WholeFile(STUB_LIBRARY);
    ASSERT_FALSE(whole.empty());
    std::string reason;
    const auto read = ZceMachine::ReadElf(WithSoname(whole, std::string(4095, 'x')), reason);
    ASSERT_TRUE(read) << reason;
    EXPECT_EQ(read->soname, std::string(4095, 'x'));
    EXPECT_FALSE(ZceMachine::ReadElf(WithSoname(whole, std::string(4096, 'x')), reason));
    EXPECT_EQ(reason, "its strings lead beyond the file");
}

// An environment of the test's own for the loader's runs.
class LoaderTest : public testing::Test {
  protected:
    LoaderTest() { unsetenv("LD_LIBRARY_PATH"); }
    ~LoaderTest() override { unsetenv("LD_LIBRARY_PATH"); }

    const std::string subject = SUBJECT_LIBRARY;
    const std::string bound = BOUND_LIBRARY;
    const std::string stubFolder = std::filesystem::path(stub).parent_path().string();
    const std::string boardFolder = std::filesystem::path(BOARD_LIBRARY).parent_path().string();
};

TEST_F(LoaderTest, FindsNone) {
    EXPECT_EQ(Report({ZceMachine::CheckLoader(subject, "")}),
              "error    loader: " + subject +
                  " finds no libenyx-hw-c.so.5\n"
                  "         -> install the vendor's package and run ldconfig, or set "
                  "LD_LIBRARY_PATH; for the software board start the program with "
                  "zce-board-run\n");
}

TEST_F(LoaderTest, TakesTheOneOfTheEnvironment) {
    setenv("LD_LIBRARY_PATH", ("/nonexistent:" + stubFolder + ":" + boardFolder).c_str(), 1);
    const std::string taken = subject + " takes " + stubFolder + "/libenyx-hw-c.so.5";
    EXPECT_EQ(Report({ZceMachine::CheckLoader(subject, "")}),
              "ok       loader: " + taken + ", not the software board's, by LD_LIBRARY_PATH\n");
    EXPECT_EQ(ZceMachine::CheckLoader(subject, stub).level, Level::Ok);
    EXPECT_EQ(Report({ZceMachine::CheckLoader(subject, LACKING_LIBRARY)}),
              "warning  loader: " + taken +
                  ", not the software board's, by LD_LIBRARY_PATH, and not " LACKING_LIBRARY
                  "\n"
                  "         -> put the directory of the other one first: LD_LIBRARY_PATH, or "
                  "ldconfig\n");
    setenv("LD_LIBRARY_PATH", (boardFolder + ":" + stubFolder).c_str(), 1);
    EXPECT_EQ(Report({ZceMachine::CheckLoader(subject, "")}),
              "warning  loader: " + subject + " takes " + boardFolder +
                  "/libenyx-hw-c.so.5, the software board's, by LD_LIBRARY_PATH\n"
                  "         -> right in the lab; with a card the vendor's must be found first\n");
}

TEST_F(LoaderTest, TakesTheOneOfTheRunpathAfterTheEnvironment) {
    EXPECT_EQ(Report({ZceMachine::CheckLoader(bound, "")}),
              "ok       loader: " + bound + " takes " + stubFolder +
                  "/libenyx-hw-c.so.5, not the software board's, by RUNPATH of " + bound + "\n");
    setenv("LD_LIBRARY_PATH", boardFolder.c_str(), 1);
    EXPECT_TRUE(ZceMachine::CheckLoader(bound, "").found.ends_with("by LD_LIBRARY_PATH"));
}

TEST_F(LoaderTest, IsAskedForWhatIsNoReceiver) {
    const std::string advice =
        "         -> name the product's library, or a program that uses it, with --for\n";
    EXPECT_EQ(Report({ZceMachine::CheckLoader("/bin/true", "")}),
              "error    loader: /bin/true does not ask for libenyx-hw-c.so.5\n" + advice);
    const TempDir dir;
    PutFile(dir / "text", "no library\n");
    EXPECT_EQ(Report({ZceMachine::CheckLoader(dir / "text", "")}),
              "error    loader: " + (dir / "text") + ": " + (dir / "text") + ": file too short\n" +
                  advice);
}

TEST(LoaderOutput, IsReadLineByLine) {
    const auto answer = ZceMachine::ReadLoaderOutput(
        "     17:\tfind library=libc.so.6 [0]; searching\n"
        "     17:\t search path=/x\t\t(RUNPATH from file /a/libother.so)\n"
        "     17:\t  trying file=/x/libenyx-hw-c.so.5\n"
        "     17:\tfind library=libenyx-hw-c.so.5 [0]; searching\n"
        "     17:\t search path=/a:/b\t\t(RPATH from file /a/program)\n"
        "     17:\t  trying file=/a/libenyx-hw-c.so.5\n"
        "     17:\t search cache=/etc/ld.so.cache\n"
        "     17:\t  trying file=/opt/my lib/libenyx-hw-c.so.5\n"
        "     17:\t\n"
        "\tlinux-vdso.so.1 (0x00007ffc)\n"
        "\tlibenyx-hw-c.so.5 => /opt/my lib/libenyx-hw-c.so.5 (0x00007f3c)\n");
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->bNeeded);
    EXPECT_EQ(answer->path, "/opt/my lib/libenyx-hw-c.so.5");
    EXPECT_EQ(answer->rule, "/etc/ld.so.cache (ldconfig)");
    const auto preloaded = ZceMachine::ReadLoaderOutput(
        "\tlibenyx-hw-c.so.5 => /opt/libenyx-hw-c.so.5 (0x00007f3c)\n");
    ASSERT_TRUE(preloaded);
    EXPECT_EQ(preloaded->rule, "LD_PRELOAD, or named with its place");
    const auto system = ZceMachine::ReadLoaderOutput(
        "     17:\tfind library=libenyx-hw-c.so.5 [0]; searching\n"
        "     17:\t search path=/lib:/usr/lib\t\t(system search path)\n"
        "     17:\t  trying file=/lib/libenyx-hw-c.so.5\n"
        "\tlibenyx-hw-c.so.5 => /lib/libenyx-hw-c.so.5 (0x00007f3c)\n");
    ASSERT_TRUE(system);
    EXPECT_EQ(system->rule, "system search path");
    EXPECT_FALSE(ZceMachine::ReadLoaderOutput("x: error while loading shared libraries: y\n"));
    EXPECT_FALSE(ZceMachine::ReadLoaderOutput(""));
}

// The program itself. Its own product's library is beside it, in the build as where it is
// installed.
TEST(VendorProgram, AnswersAndTellsByItsStatus) {
    const ProgramRun good("LD_LIBRARY_PATH=$(dirname " + stub + ") " ZCE_CHECK_PROGRAM " vendor " +
                          stub + " --for " SUBJECT_LIBRARY);
    EXPECT_EQ(good.status, 0) << good.text;
    EXPECT_TRUE(good.text.ends_with(", not the software board's, by LD_LIBRARY_PATH\n"));
    EXPECT_EQ(ProgramRun(ZCE_CHECK_PROGRAM " vendor " LACKING_LIBRARY " --json").status, 2);
    const ProgramRun own(ZCE_CHECK_PROGRAM " vendor");
    EXPECT_EQ(own.status, 1) << own.text;
    EXPECT_NE(own.text.find("/lib/libVelaZceMdApi.so.3 takes "), std::string::npos) << own.text;
    EXPECT_EQ(ProgramRun(ZCE_CHECK_PROGRAM " vendor a b 2>&1").status, 2);
}

}  // namespace
}  // namespace velatest
