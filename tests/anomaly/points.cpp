#include "points.h"

#include <pwd.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace anomaly {

namespace {

Report* s_report = nullptr;
std::atomic<bool> s_armed{false};
Failure s_failure;

}  // namespace

const char* NameOf(Kind kind) {
    static constexpr std::array<const char*, kindNum> names = {
        "vendor's call", "register read", "register write", "fopen",
        "fwrite",        "fflush",        "stat",           "access",
        "popen",         "mutex lock",    "allocation",     "local time"};
    return names.at(static_cast<std::size_t>(kind));
}

Report& TheReport() {
    return *s_report;
}

void MakeReport() {
    if (s_report == nullptr) {
        void* const memory = mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            std::abort();
        }
        s_report = static_cast<Report*>(memory);
    }
}

void Arm(const Failure& failure) {
    s_failure = failure;
    s_armed = true;
}

void Disarm() {
    s_armed = false;
}

bool Fails(Kind kind) {
    if (!s_armed.load(std::memory_order_relaxed)) {
        return false;
    }
    const std::uint32_t number = ++s_report->counts.at(static_cast<std::size_t>(kind));
    if (kind != s_failure.kind) {
        return false;
    }
    const bool fails = number == s_failure.first || (s_failure.forGood && number > s_failure.first);
    s_report->failures += fails ? 1 : 0;
    return fails;
}

}  // namespace anomaly

using anomaly::Fails;
using anomaly::Kind;

// The C library's calls, as the library makes them (the linker's --wrap).
extern "C" {
std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode);
std::size_t __real_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file);
std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file);
int __real_fflush(std::FILE* file);
int __wrap_fflush(std::FILE* file);
int __real_stat(const char* path, struct stat* result);
int __wrap_stat(const char* path, struct stat* result);
int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode);
std::FILE* __real_popen(const char* command, const char* mode);
std::FILE* __wrap_popen(const char* command, const char* mode);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);

std::FILE* __wrap_fopen(const char* path, const char* mode) {
    if (Fails(Kind::Fopen)) {
        errno = EIO;
        return nullptr;
    }
    return __real_fopen(path, mode);
}

std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
    if (file != stdout && file != stderr && Fails(Kind::Fwrite)) {
        errno = EIO;
        return 0;
    }
    return __real_fwrite(data, size, count, file);
}

int __wrap_fflush(std::FILE* file) {
    if (file != nullptr && file != stdout && Fails(Kind::Fflush)) {
        errno = EIO;
        return EOF;
    }
    return __real_fflush(file);
}

int __wrap_stat(const char* path, struct stat* result) {
    if (Fails(Kind::Stat)) {
        errno = EIO;
        return -1;
    }
    return __real_stat(path, result);
}

int __wrap_access(const char* path, int mode) {
    if (Fails(Kind::Access)) {
        errno = EIO;
        return -1;
    }
    return __real_access(path, mode);
}

std::FILE* __wrap_popen(const char* command, const char* mode) {
    if (Fails(Kind::Popen)) {
        errno = EIO;
        return nullptr;
    }
    // NOLINTNEXTLINE(bugprone-command-processor): the command is the library's
    return __real_popen(command, mode);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    return Fails(Kind::MutexLock) ? EINVAL : __real_pthread_mutex_lock(mutex);
}

void* __wrap_malloc(std::size_t size) {
    if (Fails(Kind::Memory)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    if (Fails(Kind::Memory)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_calloc(count, size);
}
}

void* operator new(std::size_t size) {
    void* const memory = Fails(Kind::Memory) ? nullptr : __real_malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Fails(Kind::Memory) ? nullptr : __real_malloc(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
