#include "relay-tool/InstrumentFile.h"

#include <unistd.h>

#include <ctime>

#include "program/RegularFile.h"
#include "relay/InstrumentLines.h"
#include "relay/Wire.h"

namespace ZceRelay {

namespace {

bool IsToday(time_t when) {
    const time_t now = time(nullptr);
    struct tm today {};
    struct tm then {};
    localtime_r(&now, &today);
    localtime_r(&when, &then);
    return today.tm_year == then.tm_year && today.tm_yday == then.tm_yday;
}

bool IsSame(const struct stat& one, const struct stat& other) {
    return one.st_ino == other.st_ino && one.st_size == other.st_size &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
           one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

}  // namespace

bool CInstrumentFile::Look() {
    std::string reason;
    struct stat now {};
    if (m_path.empty() || stat(m_path.c_str(), &now) != 0 || IsSame(now, m_seen) ||
        !IsToday(now.st_mtim.tv_sec)) {
        return false;
    }
    const int file = ZceProgram::OpenRegular(m_path, reason);
    if (file < 0) {
        return false;
    }
    std::string text;
    const bool bRead = ZceProgram::ReadUpTo(file, LARGEST_LIST, text, reason);
    close(file);
    if (!bRead) {
        return false;
    }
    m_seen = now;
    m_list = InstrumentText(ReadInstrumentLines(text));
    return true;
}

}  // namespace ZceRelay
