#pragma once

#include <string>

// What every fuzz target needs of its process.
namespace velafuzz {

// Ends the process, as a crash that libFuzzer reports, and says which rule was broken.
[[noreturn]] void Broken(const char* rule, const char* file, int line);

// What is printed to standard output goes nowhere; libFuzzer's own words go to standard error.
void SilenceOutput();

// Makes a directory of the process's own, below TMPDIR or /dev/shm, and enters it. It goes when the
// process ends by itself; scripts/fuzz.sh removes it after a crash.
void EnterOwnDirectory();
// Both, and a name for the memory of a board that no other process has unless ZCE_BOARD_SHM_PREFIX
// gives one. Once a process, by the first input.
void PrepareBoard();
// Files of that directory.
void WriteFile(const char* name, const std::string& content);
std::string ReadFile(const char* name);

}  // namespace velafuzz

// A rule that holds for every input.
#define FUZZ_CHECK(rule) \
    ((rule) ? static_cast<void>(0) : velafuzz::Broken(#rule, __FILE__, __LINE__))
