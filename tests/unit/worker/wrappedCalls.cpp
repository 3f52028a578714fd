#include "wrappedCalls.h"

#include <pwd.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

using velatest::WrappedCalls;

// The linker's names: the calls as the code under test makes them, and the real ones.
extern "C" {
int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode);
int __real_stat(const char* path, struct stat* result);
int __wrap_stat(const char* path, struct stat* result);
passwd* __real_getpwuid(uid_t uid);
passwd* __wrap_getpwuid(uid_t uid);
int __real__Z18elog_log_file_initPKcS0_(const char* dir, const char* name);
int __wrap__Z18elog_log_file_initPKcS0_(const char* dir, const char* name);

int __wrap_access(const char* path, int mode) {
    if (std::strcmp(path, ".") != 0) {
        return __real_access(path, mode);
    }
    WrappedCalls::accessMode = mode;
    if (WrappedCalls::accessErrno == 0) {
        return __real_access(path, mode);
    }
    errno = WrappedCalls::accessErrno;
    return -1;
}

int __wrap_stat(const char* path, struct stat* result) {
    if (WrappedCalls::statErrno == 0 || std::strcmp(path, ".") != 0) {
        return __real_stat(path, result);
    }
    errno = WrappedCalls::statErrno;
    return -1;
}

passwd* __wrap_getpwuid(uid_t uid) {
    static passwd owner{};
    static char name[64];
    if (WrappedCalls::noOwner) {
        errno = WrappedCalls::ownerErrno == 0 ? errno : WrappedCalls::ownerErrno;
        return nullptr;
    }
    if (WrappedCalls::ownerName == nullptr) {
        return __real_getpwuid(uid);
    }
    std::strncpy(name, WrappedCalls::ownerName, sizeof(name) - 1);
    owner.pw_name = name;
    return &owner;
}

int __wrap__Z18elog_log_file_initPKcS0_(const char* dir, const char* name) {
    if (!WrappedCalls::holdLogInit) {
        return __real__Z18elog_log_file_initPKcS0_(dir, name);
    }
    WrappedCalls::logInits.emplace_back(dir, name);
    return WrappedCalls::logInitResult;
}
}
