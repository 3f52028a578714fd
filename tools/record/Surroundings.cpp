#include "record/Surroundings.h"

#include <sys/statvfs.h>

#include "record/TickClock.h"

namespace ZceRecord {

namespace {

bool SpaceOf(const std::string& file, Space& space) {
    struct statvfs status {};
    const std::string folder = file.substr(0, file.rfind('/') + 1);
    // Some file systems do not know their size.
    if (statvfs(folder.empty() ? "." : folder.c_str(), &status) != 0 || status.f_blocks == 0) {
        return false;
    }
    space.freeBytes = uint64_t{status.f_bavail} * status.f_frsize;
    space.allBytes = uint64_t{status.f_blocks} * status.f_frsize;
    return true;
}

}  // namespace

const Surroundings& TheSystem() {
    static const Surroundings system{&RealTimeNs, &SpaceOf};
    return system;
}

}  // namespace ZceRecord
