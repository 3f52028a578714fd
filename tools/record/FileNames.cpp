#include "record/FileNames.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "capture/FileStatus.h"

namespace ZceRecord {

namespace {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;
constexpr const char* LETTERS = "YmdHMSbcnp%";
constexpr mode_t FOLDER_MODE = 0755;

tm LocalTime(int64_t timeNs) {
    const auto second = static_cast<time_t>(timeNs / NS_PER_SECOND);
    tm local{};
    localtime_r(&second, &local);
    return local;
}

std::string Digits(uint64_t value, int width) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%0*llu", width,
                  static_cast<unsigned long long>(value));
    return text.data();
}

std::string Expanded(char letter, const NameParts& parts, const tm& local) {
    switch (letter) {
        case 'b':
            return parts.bus;
        case 'c':
            return parts.channel;
        case 'n':
            return Digits(parts.number, 4);
        case 'p':
            return parts.processId;
        case '%':
            return "%";
        default:
            break;
    }
    const std::array<char, 3> format{'%', letter, '\0'};
    std::array<char, 16> text{};
    strftime(text.data(), text.size(), format.data(), &local);
    return text.data();
}

// Where the endings begin that stay at a name's end.
size_t EndingsOf(const std::string& name) {
    const size_t slash = name.rfind('/');
    const size_t begin = (slash == std::string::npos ? 0 : slash + 1) + 1;  // not of ".pcap"
    size_t at = name.size();
    for (const char* ending : {".registers", ".zst"}) {
        const size_t size = std::strlen(ending);
        if (at >= begin + size && name.compare(at - size, size, ending) == 0) {
            at -= size;
        }
    }
    const size_t point = name.rfind('.', at - std::min<size_t>(at, 1));
    return point != std::string::npos && point >= begin ? point : at;
}

}  // namespace

std::string PatternFault(const std::string& pattern) {
    for (size_t at = 0; (at = pattern.find('%', at)) != std::string::npos; at += 2) {
        const char letter = at + 1 < pattern.size() ? pattern[at + 1] : '\0';
        if (letter == '\0' || std::strchr(LETTERS, letter) == nullptr) {
            return pattern.substr(at, 2) + " is no pattern";
        }
    }
    return "";
}

bool HasPattern(const std::string& pattern, char letter) {
    for (size_t at = 0; (at = pattern.find('%', at)) != std::string::npos; at += 2) {
        if (at + 1 < pattern.size() && pattern[at + 1] == letter) {
            return true;
        }
    }
    return false;
}

std::string Expand(const std::string& pattern, const NameParts& parts) {
    const tm local = LocalTime(parts.timeNs);
    std::string name;
    for (size_t at = 0; at < pattern.size(); ++at) {
        if (pattern[at] == '%' && at + 1 < pattern.size()) {
            name += Expanded(pattern[++at], parts, local);
        } else {
            name += pattern[at];
        }
    }
    return name;
}

std::string Numbered(const std::string& name, size_t k) {
    if (k < 2) {
        return name;
    }
    const size_t endings = EndingsOf(name);
    return name.substr(0, endings) + '-' + std::to_string(k) + name.substr(endings);
}

bool MakeFoldersOf(const std::string& path, std::string& error) {
    for (size_t at = 0; (at = path.find('/', at + 1)) != std::string::npos;) {
        const std::string folder = path.substr(0, at);
        if (ZceCapture::StatusOf(folder) || mkdir(folder.c_str(), FOLDER_MODE) == 0 ||
            errno == EEXIST) {
            continue;
        }
        error = "the folder " + folder + " cannot be made: " + std::strerror(errno);
        return false;
    }
    return true;
}

int64_t EndOfStretch(int64_t timeNs, unsigned int minutes) {
    constexpr int64_t daySeconds = 86400;
    const tm local = LocalTime(timeNs);
    const int64_t second = (local.tm_hour * 60 + local.tm_min) * 60 + std::min(local.tm_sec, 59);
    const int64_t stretch = int64_t{60} * minutes;
    const int64_t end = std::min((second / stretch + 1) * stretch, daySeconds);
    return (timeNs / NS_PER_SECOND + end - second) * NS_PER_SECOND;
}

}  // namespace ZceRecord
