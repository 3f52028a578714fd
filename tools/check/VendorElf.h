#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

// A shared library's own description, read from the file: nothing of it is run.
namespace ZceMachine {

struct ElfLibrary {
    unsigned int machine = 0;     // EM_X86_64 is 62
    std::string soname;           // empty: it has none
    std::set<std::string> calls;  // names of functions that others can call
    bool bSoftwareBoard = false;  // it is the software board's vendor library
};

// Reads the bytes of a file. Nothing, with the reason, for what is no 64-bit ELF shared library of
// this byte order, or one whose tables lead beyond it.
std::optional<ElfLibrary> ReadElf(std::string_view bytes, std::string& reason);
// The same of a file, of 256 MiB at most.
std::optional<ElfLibrary> ReadElfFile(const std::string& path, std::string& reason);

}  // namespace ZceMachine
