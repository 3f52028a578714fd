#include "check/HostFiles.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "VelaZceBinFormat.h"

namespace ZceMachine {

namespace {

constexpr unsigned int MODE_BITS = 07777;

std::string OwnerText(const struct stat& status) {
    const passwd* const user = getpwuid(status.st_uid);
    const std::string userName = user == nullptr ? std::to_string(status.st_uid) : user->pw_name;
    const group* const members = getgrgid(status.st_gid);
    return fmt::format("{}:{} {:04o}", userName,
                       members == nullptr ? std::to_string(status.st_gid) : members->gr_name,
                       status.st_mode & MODE_BITS);
}

bool MayUse(const std::string& path, int how) {
    return faccessat(AT_FDCWD, path.c_str(), how, AT_EACCESS) == 0;
}

// A directory that is made where it is missing.
Result MissingDirectory(const std::string& directory) {
    std::string parent = directory;
    parent.erase(parent.find_last_not_of('/') + 1);
    const std::size_t slash = parent.rfind('/');
    parent = slash == std::string::npos ? "." : slash == 0 ? "/" : parent.substr(0, slash);
    if (MayUse(parent, W_OK | X_OK)) {
        return {Level::Ok, "log", directory + " is not there; the start makes it", ""};
    }
    return {Level::Error, "log", directory + " is not there, and cannot be made",
            "make it, writable for the user of the processes"};
}

// A file of another user in a directory that all may write to: root is refused too.
bool IsProtected(const struct stat& directory, const struct stat& file,
                 const std::string& protectedRegular) {
    const bool bForAll = (directory.st_mode & S_ISVTX) != 0 && (directory.st_mode & S_IWOTH) != 0;
    return bForAll && !protectedRegular.empty() && protectedRegular != "0" &&
           file.st_uid != geteuid() && file.st_uid != directory.st_uid;
}

}  // namespace

Result LogDirectoryResult(const std::string& directory, unsigned int date,
                          const std::string& protectedRegular) {
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return MissingDirectory(directory);
        }
        return {Level::Error, "log", directory + ": " + std::strerror(errno), "set its rights"};
    }
    const std::string found = fmt::format("{} {}", directory, OwnerText(status));
    if (!S_ISDIR(status.st_mode)) {
        return {Level::Error, "log", found + ": no directory", "remove it"};
    }
    if (!MayUse(directory, W_OK | X_OK)) {
        return {Level::Error, "log", found + ": this user may not write there",
                "start as its owner, or share it by a group (2775, umask 002)"};
    }
    const std::string file = fmt::format("{}/fpga_{:08}.log", directory, date);
    struct stat fileStatus {};
    if (lstat(file.c_str(), &fileStatus) != 0) {
        return {Level::Ok, "log", found, ""};
    }
    if (!S_ISREG(fileStatus.st_mode)) {
        return {Level::Error, "log", file + ": no regular file; a start ends there", "remove it"};
    }
    if (!MayUse(file, W_OK) || IsProtected(status, fileStatus, protectedRegular)) {
        return {Level::Error, "log",
                fmt::format("{} {}: this user may not write to it", file, OwnerText(fileStatus)),
                "start as its owner, or share the directory by a group (2775, umask 002)"};
    }
    return {Level::Ok, "log", found, ""};
}

Result WorkDirectoryResult(const std::string& directory) {
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0) {
        return {Level::Error, "work", directory + ": " + std::strerror(errno), "choose another"};
    }
    const std::string found = fmt::format("{} {}", directory, OwnerText(status));
    if (!S_ISDIR(status.st_mode)) {
        return {Level::Error, "work", found + ": no directory", "choose another"};
    }
    if (!MayUse(directory, R_OK | W_OK | X_OK)) {
        return {Level::Error, "work",
                found + ": the master cannot write its cache file there outside trading time",
                "start as its owner, or in another directory"};
    }
    const std::string bin = directory + "/" + ZCE_BIN_NAME;
    struct stat binStatus {};
    const bool bThere = stat(bin.c_str(), &binStatus) == 0;
    if (bThere && !S_ISREG(binStatus.st_mode)) {
        return {Level::Warning, "work", bin + ": no regular file; no cache file is kept",
                "remove it"};
    }
    if (bThere && !MayUse(bin, R_OK | W_OK)) {
        return {
            Level::Warning, "work",
            fmt::format("{} {}: this user may not read and write it", bin, OwnerText(binStatus)),
            "remove it"};
    }
    if ((status.st_mode & S_IWOTH) != 0) {
        return {Level::Warning, "work", found + ": anybody may put another cache file there",
                "take a directory of the master's own"};
    }
    return {Level::Ok, "work", found, ""};
}

}  // namespace ZceMachine
