#include "record/Settings.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "capture/CaptureFile.h"
#include "preload/Say.h"
#include "preload/SteadyCounter.h"
#include "record/FileNames.h"

namespace ZceRecord {

namespace {

constexpr size_t MIB = size_t{1} << 20;
constexpr uint64_t DEFAULT_BUFFER_MIB = 8;
constexpr uint64_t MAX_BUFFER_MIB = 1024;
constexpr uint64_t DEFAULT_FREE_MIB = 1024;
constexpr uint64_t MAX_DISK_MIB = uint64_t{1} << 30;
constexpr unsigned int MINUTES_OF_A_DAY = 1440;
constexpr const char* NOTHING = ": nothing is recorded";

std::string Environment(const char* name) {
    const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): before any thread
    return value != nullptr ? value : "";
}

// Reads variables of the environment, and keeps what is wrong with the last bad one.
class CVariables {
  public:
    // A number from `least` to `most`; what is not there leaves `value` as it is. True: it is there
    // and good.
    template <class Number>
    bool Read(const char* name, const char* unit, Number least, Number most, Number& value) {
        const std::string text = Environment(name);
        if (text.empty()) {
            return false;
        }
        if (text.size() <= std::to_string(most).size() &&
            text.find_first_not_of("0123456789") == std::string::npos) {
            const auto number = static_cast<Number>(std::stoull(text));
            if (number >= least && number <= most) {
                value = number;
                return true;
            }
        }
        m_fault = std::string(name) + ": '" + text + "' is not " + unit + " from " +
                  std::to_string(least) + " to " + std::to_string(most) + NOTHING;
        return false;
    }
    void Read(const char* name, bool& value) {
        const std::string text = Environment(name);
        value = text == "1";
        if (!text.empty() && text != "0" && text != "1") {
            m_fault = std::string(name) + ": '" + text + "' is neither 0 nor 1" + NOTHING;
        }
    }
    const std::string& Fault() const { return m_fault; }

  private:
    std::string m_fault;
};

// The name and what follows from it.
void ReadName(Settings& settings) {
    settings.name = Environment("ZCE_RECORD");
    if (settings.name.empty()) {
        settings.fault = std::string("ZCE_RECORD names no file") + NOTHING;
    }
    const std::string fault = PatternFault(settings.name);
    if (!fault.empty()) {
        settings.fault = "ZCE_RECORD: '" + settings.name + "': " + fault +
                         "; there are %Y %m %d %H %M %S %b %c %n %p and %%" + NOTHING;
    }
    // An application that changes its directory later does not move its capture.
    std::error_code failed;
    settings.path = settings.name;
    if (!settings.name.empty() && settings.name[0] != '/') {
        settings.path.clear();
        for (const char c : std::filesystem::current_path(failed).string()) {
            settings.path += c == '%' ? "%%" : std::string(1, c);  // no pattern
        }
        settings.path = failed ? settings.name : settings.path + '/' + settings.name;
    }
    if (settings.zstdLevel != 0 && !EndsWithZst(settings.name)) {
        settings.name += ".zst";
        settings.path += ".zst";
    } else if (settings.zstdLevel == 0 && EndsWithZst(settings.name)) {
        settings.zstdLevel = ZceCapture::CCaptureFile::USUAL_LEVEL;
    }
}

}  // namespace

Settings ReadSettings() {
    using ZceCapture::CCaptureFile;
    Settings settings;
    CVariables variables;
    variables.Read<int>("ZCE_RECORD_ZSTD", "a level", CCaptureFile::LOWEST_LEVEL,
                        CCaptureFile::HIGHEST_LEVEL, settings.zstdLevel);
    ReadName(settings);
    uint64_t mib = DEFAULT_BUFFER_MIB;
    variables.Read<uint64_t>("ZCE_RECORD_BUFFER", "a number of MiB", 1, MAX_BUFFER_MIB, mib);
    settings.bufferBytes = mib * MIB;
    mib = 0;
    variables.Read<uint64_t>("ZCE_RECORD_MAX_MIB", "a number of MiB", 1, MAX_DISK_MIB, mib);
    settings.maxBytes = mib * MIB;
    variables.Read<unsigned int>("ZCE_RECORD_MAX_MINUTES", "a number of minutes", 1,
                                 MINUTES_OF_A_DAY, settings.maxMinutes);
    mib = DEFAULT_FREE_MIB;
    settings.freeByDefault =
        !variables.Read<uint64_t>("ZCE_RECORD_FREE_MIB", "a number of MiB", 0, MAX_DISK_MIB, mib);
    settings.freeBytes = mib * MIB;
    settings.counts = ZcePreload::HasSteadyCounter();
    variables.Read("ZCE_RECORD_OVERWRITE", settings.overwrite);
    variables.Read("ZCE_RECORD_REGISTERS", settings.registers);
    if (!variables.Fault().empty()) {
        settings.fault = variables.Fault();
    }
    return settings;
}

bool EndsWithZst(const std::string& name) {
    const std::string ending = ".zst";
    return name.size() > ending.size() &&
           name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
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
