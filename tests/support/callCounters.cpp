#include "callCounters.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cstddef>

namespace velatest {

std::atomic<unsigned long> g_allocations{0};
std::atomic<unsigned long> g_locks{0};

namespace {

void* Count(void* made) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return made;
}

template <typename Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Looked up by the first lock of the process, which is long before a test counts.
template <typename Lock>
int CountLock(int (*next)(Lock*), Lock* lock) {
    g_locks.fetch_add(1, std::memory_order_relaxed);
    return next(lock);
}

}  // namespace

}  // namespace velatest

extern "C" {
void* __libc_malloc(std::size_t size);                      // NOLINT: glibc's names
void* __libc_calloc(std::size_t count, std::size_t size);   // NOLINT
void* __libc_realloc(void* pointer, std::size_t size);      // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t);  // NOLINT
}

// The other libraries find them only if they are visible.
#pragma GCC visibility push(default)
extern "C" {

void* malloc(std::size_t size) {
    return velatest::Count(__libc_malloc(size));
}
void* calloc(std::size_t count, std::size_t size) {
    return velatest::Count(__libc_calloc(count, size));
}
void* realloc(void* pointer, std::size_t size) {
    return velatest::Count(__libc_realloc(pointer, size));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return velatest::Count(__libc_memalign(alignment, size));
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const auto next = velatest::Next<int (*)(pthread_mutex_t*)>("pthread_mutex_lock");
    return velatest::CountLock(next, mutex);
}
int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    static const auto next = velatest::Next<int (*)(pthread_mutex_t*)>("pthread_mutex_trylock");
    return velatest::CountLock(next, mutex);
}
int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
    static const auto next = velatest::Next<int (*)(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
    return velatest::CountLock(next, lock);
}
int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
    static const auto next = velatest::Next<int (*)(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
    return velatest::CountLock(next, lock);
}
int pthread_spin_lock(pthread_spinlock_t* lock) noexcept {
    static const auto next = velatest::Next<int (*)(pthread_spinlock_t*)>("pthread_spin_lock");
    return velatest::CountLock(next, lock);
}
}
#pragma GCC visibility pop
