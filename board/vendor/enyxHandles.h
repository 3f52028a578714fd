#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "DrvEnyx/enyxHw.h"
#include "memory/BoardFile.h"
#include "memory/BoardMemory.h"
#include "memory/CoreLock.h"
#include "memory/Faults.h"
#include "memory/RegisterFile.h"
#include "memory/Ring.h"
#include "vendor/BoardWatch.h"
#include "vendor/IdleCount.h"

// What is behind the opaque handles of the vendor's C interface.

// The exported functions; everything else of the library stays inside.
#define ENYX_HW_EXPORT __attribute__((visibility("default")))

struct enyx_hw_filter {
    std::optional<uint32_t> index;
    std::optional<std::string> name;

    bool Matches(uint32_t anIndex, const std::string& aName) const {
        return (!index || *index == anIndex) && (!name || *name == aName);
    }
};

struct enyx_hw_accelerator_descriptor {
    uint32_t bus;
};

struct enyx_hw_core {
    enyx_hw_accelerator* accelerator;
    uint32_t id;
};

struct enyx_hw_core_tree {
    enyx_hw_core root;
    enyx_hw_core registers;  // below the root
    enyx_hw_core twin;       // the same registers, found a second time by a fault of the board
};

struct enyx_hw_mmio {
    enyx_hw_core_tree tree;
};

// An attached board. Never destroyed: cores and streams refer to it. An MMIO that its creator does
// not destroy belongs to it: drivers that discover a board anew leave the cores of their earlier
// discovery in use.
struct enyx_hw_accelerator {
    ZceBoard::CBoardMemory memory;
    std::optional<ZceBoard::CRegisterFile> registers;
    std::optional<ZceBoard::CCoreLock> lock;
    ZceBoard::CBoardFile life;  // the kernel is asked by it whether the board runs
    ZceBoard::BoardWatch watch;
    std::mutex mmioMutex;
    std::vector<std::unique_ptr<enyx_hw_mmio>> mmios;
};

struct enyx_hw_mmio_descriptor {
    enyx_hw_accelerator* accelerator;
};

struct enyx_hw_a2c_stream_descriptor {
    enyx_hw_accelerator* accelerator;
    uint32_t channel;
};

struct enyx_hw_c2a_stream_descriptor {
    enyx_hw_accelerator* accelerator;
    uint32_t channel;
};

struct enyx_hw_a2c_stream {
    ZceBoard::CRingConsumer consumer;
    ZceBoard::RingView ring;
    uint32_t generation;
    ZceBoard::CBoardFile holder;  // holds the stream's lock
    ZceBoard::BoardShm* shm;
    uint32_t channel;
    enyx_hw_accelerator* accelerator;
    ZceBoard::IdleCount idle;
};

struct enyx_hw_c2a_stream {
    ZceBoard::CRingProducer producer;
    ZceBoard::RingView ring;
    uint32_t generation;
    ZceBoard::CBoardFile holder;
    ZceBoard::BoardShm* shm;
    uint32_t channel;
};

namespace ZceBoard {

// Sets errno and gives the result -1 of a failed call.
inline int Fail(int err) {
    errno = err;
    return -1;
}

// The same for calls that return a pointer.
inline std::nullptr_t FailNull(int err) {
    errno = err;
    return nullptr;
}

inline std::string StreamName(uint32_t channel) {
    return "CUSTOM_CHAN" + std::to_string(channel) + "_DATA";
}

// Takes the lock that holds a stream, at `byte` of the board's memory: 0, or the errno of a stream
// that cannot be opened.
inline int HoldStream(const CBoardMemory& memory, uint32_t channel, int64_t byte,
                      CBoardFile& holder) {
    int err = memory.Reopen(holder);
    if (err == 0 && CFaults(memory.Shm()).Strikes(Fault::StreamRefused, channel) != 0) {
        err = EIO;
    }
    if (err == 0) {
        err = holder.Lock(byte);
    }
    return err == EAGAIN ? EBUSY : err;
}

// Gives a list of descriptors back; entries are nulled, so giving it back twice does no harm.
template <class Descriptor>
void FreeDescriptors(Descriptor** descriptors, size_t count) {
    if (descriptors == nullptr) {
        return;
    }
    for (size_t k = 0; k < count; ++k) {
        delete descriptors[k];
        descriptors[k] = nullptr;
    }
}

// Puts one found object into a list with room for `capacity` of them; false: out of memory.
template <class Descriptor>
bool AddDescriptor(Descriptor** descriptors, size_t capacity, size_t found, const Descriptor& one) {
    if (found >= capacity) {
        return true;
    }
    descriptors[found] = new (std::nothrow) Descriptor(one);
    return descriptors[found] != nullptr;
}

// The streams of one direction that a filter matches.
template <class Descriptor>
int EnumerateStreams(enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
                     Descriptor** descriptors, size_t capacity) {
    if (accelerator == nullptr || filter == nullptr || (descriptors == nullptr && capacity != 0)) {
        return Fail(EINVAL);
    }
    size_t found = 0;
    for (uint32_t channel = 0; channel < CHANNELS; ++channel) {
        if (!filter->Matches(channel, StreamName(channel))) {
            continue;
        }
        if (!AddDescriptor(descriptors, capacity, found, Descriptor{accelerator, channel})) {
            FreeDescriptors(descriptors, found);
            return Fail(ENOMEM);
        }
        ++found;
    }
    if (found == 0) {
        errno = ENODEV;
    }
    return static_cast<int>(found);
}

}  // namespace ZceBoard
