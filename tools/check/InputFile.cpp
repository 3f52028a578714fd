#include "check/InputFile.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

namespace ZceCheck {

namespace {

constexpr size_t MAX_BYTES = size_t{16} << 20;

}  // namespace

bool ReadWholeFile(const std::string& path, std::string& text, std::string& error, bool bDash) {
    const bool bStandardInput = bDash && path == "-";
    const std::string name = bStandardInput ? "standard input" : path;
    const auto close = [](FILE* opened) {
        return opened == nullptr || opened == stdin ? 0 : fclose(opened);
    };
    const std::unique_ptr<FILE, int (*)(FILE*)> file(
        bStandardInput ? stdin : fopen(path.c_str(), "r"), close);
    std::array<char, 4096> piece{};
    size_t got = 0;
    while (file && text.size() <= MAX_BYTES &&
           (got = fread(piece.data(), 1, piece.size(), file.get())) != 0) {
        text.append(piece.data(), got);
    }
    if (!file || ferror(file.get()) != 0) {
        error = name + ": " + std::strerror(errno);
        return false;
    }
    if (text.size() > MAX_BYTES) {
        error = name + ": has more than 16 MiB";
        return false;
    }
    return true;
}

bool IsNoFile(const std::string& path, std::string& error) {
    using std::filesystem::file_type;
    std::error_code unknown;
    const file_type type = std::filesystem::status(path, unknown).type();
    if (type == file_type::regular || type == file_type::directory || unknown) {
        return false;  // opening it tells why it cannot be read
    }
    error = path + ": is no regular file";
    return true;
}

}  // namespace ZceCheck
