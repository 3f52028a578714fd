#pragma once

#include <optional>
#include <string>

// Which vendor's library the dynamic loader takes, as the loader itself says it, asked as by ldd
// and with LD_DEBUG=libs. No library's code is run.
namespace ZceMachine {

extern const char* const VENDOR_SONAME;  // libenyx-hw-c.so.5

struct LoaderAnswer {
    bool bNeeded = false;  // the file, or what it loads, asks for the vendor's library
    std::string path;      // what is taken; empty: the loader finds none
    std::string rule;      // where it was found: "LD_LIBRARY_PATH", "RUNPATH of FILE", ...
};

// What the loader does for `file`, a program or a shared library, in this process's environment.
// Nothing, with the reason, if it cannot be asked or refuses the file.
std::optional<LoaderAnswer> AskLoader(const std::string& file, std::string& reason);

// The answer in what the loader has printed; nothing if it is no list of libraries.
std::optional<LoaderAnswer> ReadLoaderOutput(const std::string& text);

}  // namespace ZceMachine
