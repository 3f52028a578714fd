#include "process/CommandSetting.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <vector>

#ifndef ZCE_BOARD_LIBDIR
#error "the build tells where libraries lie below a prefix, and below it for this machine"
#endif

namespace ZceBoard {

namespace {

namespace fs = std::filesystem;

constexpr const char* LIBRARY = "libenyx-hw-c.so.5";
constexpr std::string_view FAKETIME = "libfaketime";

std::string Variable(const char* name) {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
}

bool IsFile(const fs::path& path) {
    std::error_code none;
    return fs::is_regular_file(path, none);
}

// The library that moves a process's clock; empty: it is not there.
std::string FindFaketime() {
    if (const std::string given = Variable("ZCE_BOARD_LIBFAKETIME"); !given.empty()) {
        return IsFile(given) ? fs::absolute(given).string() : "";
    }
    for (const char* folder :
         {"/usr/lib/" ZCE_BOARD_MACHINE, "/usr/lib64", "/usr/lib", "/usr/local/lib"}) {
        for (const char* name : {"libfaketime.so.1", "libfaketimeMT.so.1"}) {
            const fs::path path = fs::path(folder) / "faketime" / name;
            if (IsFile(path)) {
                return path.string();
            }
        }
    }
    return "";
}

// Where the board's library lies: installed beside this program, or in the same build tree. Empty:
// in neither, and the command has it by itself.
std::string FindLibrary() {
    std::error_code none;
    const fs::path prefix = fs::read_symlink("/proc/self/exe", none).parent_path().parent_path();
    for (const char* folder : {ZCE_BOARD_LIBDIR "/zce-board", "lib/" ZCE_BOARD_MACHINE "/zce-board",
                               "lib/zce-board", "lib64/zce-board", "lib"}) {
        const fs::path path = prefix / folder;
        if (IsFile(path / LIBRARY)) {
            return path.string();
        }
    }
    return "";
}

// What is preloaded already goes on to be, but for a libfaketime, which is there once.
std::string Preloads(const std::string& faketime) {
    std::string list = faketime;
    const std::string before = Variable("LD_PRELOAD");
    constexpr const char* SEPARATORS = ": ";
    for (size_t at = 0; (at = before.find_first_not_of(SEPARATORS, at)) != std::string::npos;) {
        const size_t end = before.find_first_of(SEPARATORS, at);
        const std::string one = before.substr(at, end == std::string::npos ? end : end - at);
        const std::string name = fs::path(one).filename().string();
        if (name.compare(0, FAKETIME.size(), FAKETIME) != 0) {
            list.append(":").append(one);
        }
        at = end;
        if (at == std::string::npos) {
            break;
        }
    }
    return list;
}

}  // namespace

CCommandSetting::~CCommandSetting() {
    if (!m_directory.empty()) {
        std::error_code none;
        fs::remove_all(m_directory, none);
    }
}

bool CCommandSetting::Make(const std::string& clockFile, std::string& error) {
    const std::string faketime = FindFaketime();
    if (faketime.empty()) {
        error =
            "libfaketime is not there, with which a command has the board's clock: install the "
            "package faketime, or say in ZCE_BOARD_LIBFAKETIME where it is";
        return false;
    }
    if (clockFile.empty()) {
        std::string above = Variable("TMPDIR");
        above = above.empty() ? "/tmp" : above;
        std::string directory = above + "/zce-board.XXXXXX";
        if (mkdtemp(directory.data()) == nullptr) {
            error = fmt::format("cannot make a directory for the clock file in {}: {}", above,
                                strerror(errno));
            return false;
        }
        m_directory = fs::absolute(directory).string();
        m_clockFile = m_directory + "/clock";
    } else {
        m_clockFile = fs::absolute(clockFile).string();
    }
    m_environment = {{"LD_PRELOAD", Preloads(faketime)}, {"FAKETIME_TIMESTAMP_FILE", m_clockFile},
                     {"FAKETIME_NO_CACHE", "1"},         {"FAKETIME_DONT_FAKE_MONOTONIC", "1"},
                     {"DONT_FAKE_MONOTONIC", "1"},       {"FAKETIME", std::nullopt},
                     {"FAKETIME_SHARED", std::nullopt}};
    if (const std::string folder = FindLibrary(); !folder.empty()) {
        const std::string before = Variable("LD_LIBRARY_PATH");
        m_environment["LD_LIBRARY_PATH"] = folder + (before.empty() ? "" : ":" + before);
    }
    return true;
}

}  // namespace ZceBoard
