#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "watch/WatchExport.h"

namespace ZceWatch {

namespace {

constexpr mode_t FOR_ALL_TO_READ = 0644;

bool WriteWhole(int descriptor, const std::string& text) {
    for (size_t at = 0; at < text.size();) {
        const ssize_t written = write(descriptor, text.data() + at, text.size() - at);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        at += written < 0 ? 0 : static_cast<size_t>(written);
    }
    return true;
}

// The file under another name, whole and on the disk: after a crash of the machine there is none
// that is empty. 0, or the error.
int WriteBeside(std::string& name, const std::string& text) {
    const int descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0) {
        return errno;
    }
    const bool bWritten = WriteWhole(descriptor, text) &&
                          fchmod(descriptor, FOR_ALL_TO_READ) == 0 && fsync(descriptor) == 0;
    int err = bWritten ? 0 : errno;
    if (close(descriptor) != 0 && err == 0) {
        err = errno;
    }
    if (err != 0) {
        unlink(name.c_str());
    }
    return err;
}

}  // namespace

bool ReplaceFile(const std::string& path, const std::string& text, std::string& error) {
    // The node exporter reads what ends in .prom: this does not.
    std::string fresh = path + ".XXXXXX";
    int err = WriteBeside(fresh, text);
    if (err == 0 && rename(fresh.c_str(), path.c_str()) != 0) {
        err = errno;
        unlink(fresh.c_str());
    }
    if (err != 0) {
        error = fmt::format("{} cannot be written: {}", path, strerror(err));
    }
    return err == 0;
}

}  // namespace ZceWatch
