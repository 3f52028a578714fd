#include "record/Settings.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "preload/Say.h"

namespace ZceRecord {

namespace {

constexpr size_t MIB = size_t{1} << 20;
constexpr size_t DEFAULT_BUFFER_MIB = 8;
constexpr size_t MAX_BUFFER_MIB = 1024;

std::string Environment(const char* name) {
    const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): before any thread
    return value != nullptr ? value : "";
}

// False if the text is not a number of MiB.
bool ReadBuffer(const std::string& text, size_t& bytes) {
    bytes = DEFAULT_BUFFER_MIB * MIB;
    if (text.empty()) {
        return true;
    }
    if (text.size() > 4 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    const auto mib = static_cast<size_t>(std::stoul(text));
    if (mib < 1 || mib > MAX_BUFFER_MIB) {
        return false;
    }
    bytes = mib * MIB;
    return true;
}

}  // namespace

Settings ReadSettings() {
    Settings settings;
    settings.name = Environment("ZCE_RECORD");
    for (size_t at = 0; (at = settings.name.find("%p", at)) != std::string::npos;) {
        settings.name.replace(at, 2, std::to_string(getpid()));
    }
    if (settings.name.empty()) {
        settings.fault = "ZCE_RECORD names no file: nothing is recorded";
    }
    // An application that changes its directory later does not move its capture.
    std::error_code failed;
    settings.path = std::filesystem::absolute(settings.name, failed).string();
    if (failed) {
        settings.path = settings.name;
    }
    const std::string buffer = Environment("ZCE_RECORD_BUFFER");
    if (!ReadBuffer(buffer, settings.bufferBytes)) {
        settings.fault = "ZCE_RECORD_BUFFER: '" + buffer + "' is not a number of MiB from 1 to " +
                         std::to_string(MAX_BUFFER_MIB) + ": nothing is recorded";
    }
    const std::string registers = Environment("ZCE_RECORD_REGISTERS");
    settings.registers = registers == "1";
    if (!registers.empty() && registers != "0" && registers != "1") {
        settings.fault =
            "ZCE_RECORD_REGISTERS: '" + registers + "' is neither 0 nor 1: nothing is recorded";
    }
    return settings;
}

void Say(const std::string& text) {
    ZcePreload::Say("zce-record", text);
}

std::string MissingLine(const std::string& name, uint64_t all, uint64_t written,
                        const std::string& what) {
    if (written >= all) {
        return "";
    }
    // What is being written just now is not counted as written.
    return name + ": nothing can be written any more: up to " + std::to_string(all - written) +
           " of " + std::to_string(all) + " " + what + " are not in the file";
}

}  // namespace ZceRecord
