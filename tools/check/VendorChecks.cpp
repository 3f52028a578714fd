#include "check/VendorChecks.h"

#include <elf.h>
#include <fmt/format.h>

#include <filesystem>

#include <VendorNames.h>
#include "check/VendorElf.h"
#include "check/VendorLoader.h"

namespace ZceMachine {

namespace {

namespace fs = std::filesystem;

constexpr const char* WELCOME[] = {"enyx_hw_mmio_destroy"};

Result MachineResult(const ElfLibrary& library) {
    if (library.machine == EM_X86_64) {
        return {Level::Ok, "machine", "x86-64", ""};
    }
    return {Level::Error, "machine", fmt::format("ELF machine {}, not x86-64", library.machine),
            "take the vendor's package for x86-64"};
}

Result SonameResult(const ElfLibrary& library) {
    if (library.soname == VENDOR_SONAME) {
        return {Level::Ok, "soname", library.soname, ""};
    }
    return {
        Level::Error, "soname",
        fmt::format("{}, not {}", library.soname.empty() ? "none" : library.soname, VENDOR_SONAME),
        "take the vendor's release with this soname: another may have other declarations"};
}

Result CallsResult(const ElfLibrary& library) {
    std::string missing;
    unsigned int count = 0;
    for (const char* const name : NeededCalls()) {
        if (!library.calls.contains(name)) {
            missing += (count == 0 ? "" : ", ") + std::string(name);
            ++count;
        }
    }
    const std::size_t needed = NeededCalls().size();
    if (count != 0) {
        return {Level::Error, "calls", fmt::format("{} of {} missing: {}", count, needed, missing),
                "a process that loads it ends at once; see the declarations in enyxHw.h"};
    }
    std::string found = fmt::format("all {} that the product needs", needed);
    for (const char* const name : WelcomeCalls()) {
        found += fmt::format(
            "; {} {}", name,
            library.calls.contains(name) ? "is there too" : "is not there (not needed)");
    }
    return {Level::Ok, "calls", found, ""};
}

bool IsSameFile(const std::string& a, const std::string& b) {
    std::error_code error;
    return fs::equivalent(a, b, error);
}

}  // namespace

std::span<const char* const> NeededCalls() {
    return NEEDED_CALLS;
}

std::span<const char* const> WelcomeCalls() {
    return WELCOME;
}

std::vector<Result> CheckVendorLibrary(const std::string& path) {
    std::string reason;
    const std::optional<ElfLibrary> library = ReadElfFile(path, reason);
    if (!library) {
        return {
            {Level::Error, "library", path + ": " + reason, "name the vendor's libenyx-hw-c.so.5"}};
    }
    const std::string kind = library->bSoftwareBoard ? " (the software board's)" : "";
    return {{Level::Ok, "library", path + kind, ""},
            MachineResult(*library),
            SonameResult(*library),
            CallsResult(*library)};
}

Result CheckLoader(const std::string& subject, const std::string& library) {
    std::string reason;
    const std::optional<LoaderAnswer> answer = AskLoader(subject, reason);
    if (!answer) {
        return {Level::Error, "loader", subject + ": " + reason,
                "name the product's library, or a program that uses it, with --for"};
    }
    if (!answer->bNeeded) {
        return {Level::Error, "loader",
                fmt::format("{} does not ask for {}", subject, VENDOR_SONAME),
                "name the product's library, or a program that uses it, with --for"};
    }
    if (answer->path.empty()) {
        return {Level::Error, "loader", fmt::format("{} finds no {}", subject, VENDOR_SONAME),
                "install the vendor's package and run ldconfig, or set LD_LIBRARY_PATH; for the "
                "software board start the program with zce-board-run"};
    }
    const std::optional<ElfLibrary> taken = ReadElfFile(answer->path, reason);
    const bool bBoard = taken && taken->bSoftwareBoard;
    const std::string found = fmt::format("{} takes {}, {}, by {}", subject, answer->path,
                                          !taken   ? "which cannot be read"
                                          : bBoard ? "the software board's"
                                                   : "not the software board's",
                                          answer->rule);
    if (!library.empty() && !IsSameFile(library, answer->path)) {
        return {Level::Warning, "loader", found + ", and not " + library,
                "put the directory of the other one first: LD_LIBRARY_PATH, or ldconfig"};
    }
    if (!taken) {
        return {Level::Error, "loader", found, "look at its rights"};
    }
    return bBoard ? Result{Level::Warning, "loader", found,
                           "right in the lab; with a card the vendor's must be found first"}
                  : Result{Level::Ok, "loader", found, ""};
}

std::string ProductLibrary() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    for (const char* const directory : {"lib", VELAZCE_LIBDIR}) {
        const fs::path library = program.parent_path().parent_path() / directory / VELAZCE_LIBRARY;
        if (fs::exists(library, error)) {
            return library.string();
        }
    }
    return {};
}

}  // namespace ZceMachine
