#include "memory/Control.h"

#include <fcntl.h>

#include <cerrno>

#include "memory/HostClock.h"

namespace ZceBoard {

namespace {

constexpr int64_t WAIT_NS = 3'000'000'000;
constexpr int64_t NAP_NS = 1'000'000;

// Until `done()`: 0, ENODEV if the board is gone meanwhile, ETIMEDOUT.
template <class Done>
int Await(CBoardMemory& memory, Done done) {
    CBoardFile file;
    const int64_t end = RealNs() + WAIT_NS;
    while (!done()) {
        if (RealNs() >= end) {
            return ETIMEDOUT;
        }
        file.Close();
        if (memory.Reopen(file) != 0) {
            return ENODEV;
        }
        RealSleep(NAP_NS);
    }
    return 0;
}

}  // namespace

void PutRequest(ControlMailbox& mailbox, uint32_t number, Request request, uint64_t argument) {
    const auto kind = static_cast<uint32_t>(request);
    mailbox.kind.store(kind, std::memory_order_relaxed);
    mailbox.argument.store(argument, std::memory_order_relaxed);
    mailbox.seal.store(SealOf(number, kind, argument), std::memory_order_relaxed);
    mailbox.asked.store(number, std::memory_order_release);
}

int AskBoard(CBoardMemory& memory, Request request, uint64_t argument) {
    CBoardFile lock;
    int err = memory.Reopen(lock);
    if (err != 0) {
        return err;
    }
    int locked = EAGAIN;
    err = Await(memory, [&lock, &locked] {
        locked = lock.Lock(LOCK_CONTROL);
        return locked != EAGAIN;
    });
    if (err != 0 || locked != 0) {
        return err == ETIMEDOUT ? EBUSY : (err != 0 ? err : locked);
    }
    ControlMailbox& mailbox = memory.Shm().control;
    // Whoever asked before may have given up while the board was still at it.
    const uint32_t before = mailbox.asked.load(std::memory_order_acquire);
    err = Await(memory, [&mailbox, before] {
        return mailbox.answered.load(std::memory_order_acquire) == before;
    });
    if (err != 0) {
        return err;
    }
    const uint32_t number = before + 1;
    PutRequest(mailbox, number, request, argument);
    err = Await(memory, [&mailbox, number] {
        return mailbox.answered.load(std::memory_order_acquire) == number;
    });
    return err != 0 ? err : mailbox.result.load(std::memory_order_relaxed);
}

int AwaitPass(CBoardMemory& memory) {
    const std::atomic<uint64_t>& passes = memory.Shm().stats.passes;
    // The pass under way may have looked already: the one after it has not.
    const uint64_t wanted = passes.load(std::memory_order_acquire) + 2;
    return Await(memory,
                 [&passes, wanted] { return passes.load(std::memory_order_acquire) >= wanted; });
}

}  // namespace ZceBoard
