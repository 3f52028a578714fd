#include "Utils/threadMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

thread_local bool t_bLockFails = false;

}  // namespace

extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    return t_bLockFails ? EAGAIN : __real_pthread_mutex_lock(mutex);
}
}

namespace {

using VORBA2::CThreadMutex;
using VORBA2::CThreadMutexGuard;

// Whether another thread could take the mutex now.
bool IsFree(CThreadMutex& mutex) {
    bool taken = false;
    std::thread([&mutex, &taken] {
        taken = mutex.TryAcquire();
        if (taken) {
            mutex.Release();
        }
    }).join();
    return taken;
}

TEST(ThreadMutex, IsRecursive) {
    CThreadMutex mutex;
    mutex.Acquire();
    mutex.Acquire();
    EXPECT_TRUE(mutex.TryAcquire());
    EXPECT_FALSE(IsFree(mutex));
    mutex.Release();
    mutex.Release();
    EXPECT_FALSE(IsFree(mutex));  // given back as often as taken, not before
    mutex.Release();
    EXPECT_TRUE(IsFree(mutex));
}

TEST(ThreadMutex, ExcludesOtherThreads) {
    constexpr int perThread = 20000;
    CThreadMutex mutex;
    int count = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&mutex, &count] {
            for (int turn = 0; turn < perThread; ++turn) {
                const CThreadMutexGuard guard(mutex);
                count = count + 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 4 * perThread);
}

TEST(ThreadMutex, AcquireWaits) {
    CThreadMutex mutex;
    std::atomic<bool> isReleasing{false};
    bool wasReleasing = false;
    mutex.Acquire();
    std::thread waiter([&] {
        mutex.Acquire();
        wasReleasing = isReleasing;
        mutex.Release();
    });
    EXPECT_FALSE(IsFree(mutex));
    isReleasing = true;
    mutex.Release();
    waiter.join();
    EXPECT_TRUE(wasReleasing);
}

TEST(ThreadMutex, GuardHoldsForItsLife) {
    CThreadMutex mutex;
    {
        const CThreadMutexGuard guard(mutex);
        EXPECT_FALSE(IsFree(mutex));
    }
    EXPECT_TRUE(IsFree(mutex));
}

TEST(ThreadMutex, AcquireTellsWhetherItGotTheMutex) {
    CThreadMutex mutex;
    t_bLockFails = true;
    const bool bGot = mutex.Acquire();
    t_bLockFails = false;
    EXPECT_FALSE(bGot);
    EXPECT_TRUE(IsFree(mutex));
    EXPECT_TRUE(mutex.Acquire());
    EXPECT_FALSE(IsFree(mutex));
    mutex.Release();
}

// A guard that did not get the mutex leaves it to the one around it.
TEST(ThreadMutex, GuardGivesBackOnlyWhatItGot) {
    CThreadMutex mutex;
    {
        const CThreadMutexGuard around(mutex);
        {
            t_bLockFails = true;
            const CThreadMutexGuard guard(mutex);
            t_bLockFails = false;
        }
        EXPECT_FALSE(IsFree(mutex));
    }
    EXPECT_TRUE(IsFree(mutex));
}

TEST(ThreadMutex, IsUsableInStaticConstructorsAndDestructors) {
    static_assert(std::is_trivially_destructible_v<CThreadMutex>);
    static constinit CThreadMutex mutex;
    EXPECT_TRUE(IsFree(mutex));
}

}  // namespace
