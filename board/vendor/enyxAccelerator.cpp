#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

#include "ZceBoardState.h"
#include "vendor/enyxHandles.h"

namespace {

using ZceBoard::Fail;
using ZceBoard::FailNull;

using ZceBoard::MAX_BUSES;  // an enumeration without an index looks at them all

// The accelerators this process has opened. They live as long as the process, and longer than any
// object of static storage.
struct Accelerators {
    std::mutex mutex;
    std::vector<std::unique_ptr<enyx_hw_accelerator>> opened;
};

Accelerators& Opened() {
    static auto* accelerators = new Accelerators;
    return *accelerators;
}

// The errno values that only mean that this bus has no card.
bool MeansNoBoard(int err) {
    return err == ENODEV;
}

}  // namespace

extern "C" {

ENYX_HW_EXPORT int enyx_hw_enumerate_accelerators(const enyx_hw_filter* filter,
                                                  enyx_hw_accelerator_descriptor** descriptors,
                                                  size_t capacity) {
    if (filter == nullptr || (descriptors == nullptr && capacity != 0)) {
        return Fail(EINVAL);
    }
    const uint32_t first = filter->index.value_or(0);
    const uint64_t end = filter->index ? uint64_t{first} + 1 : MAX_BUSES;
    size_t found = 0;
    int reason = ENODEV;
    for (uint64_t k = first; k < end; ++k) {
        const auto bus = static_cast<uint32_t>(k);
        const int err = ZceBoard::CBoardMemory::Probe(bus);
        if (err != 0) {
            reason = MeansNoBoard(err) ? reason : err;
            if (err == EACCES) {
                ZceBoard::TellNoAccess(bus);
            }
            continue;
        }
        if (!filter->Matches(bus, "zce-board." + std::to_string(bus))) {
            continue;
        }
        if (!ZceBoard::AddDescriptor(descriptors, capacity, found,
                                     enyx_hw_accelerator_descriptor{bus})) {
            ZceBoard::FreeDescriptors(descriptors, found);
            return Fail(ENOMEM);
        }
        ++found;
    }
    if (found != 0) {
        return static_cast<int>(found);
    }
    errno = reason;
    return MeansNoBoard(reason) ? 0 : -1;
}

ENYX_HW_EXPORT void enyx_hw_free_accelerator_descriptors(
    enyx_hw_accelerator_descriptor** descriptors, size_t count) {
    ZceBoard::FreeDescriptors(descriptors, count);
}

ENYX_HW_EXPORT enyx_hw_accelerator* enyx_hw_accelerator_get(
    const enyx_hw_accelerator_descriptor* descriptor) {
    if (descriptor == nullptr) {
        return FailNull(EINVAL);
    }
    auto accelerator = std::make_unique<enyx_hw_accelerator>();
    const int err = accelerator->memory.Attach(descriptor->bus);
    if (err != 0) {
        return FailNull(err);
    }
    Accelerators& accelerators = Opened();
    const std::lock_guard guard(accelerators.mutex);
    for (const auto& known : accelerators.opened) {
        if (known->memory.Bus() == descriptor->bus &&
            known->memory.Inode() == accelerator->memory.Inode()) {
            return known.get();
        }
    }
    ZceBoard::BoardShm& shm = accelerator->memory.Shm();
    accelerator->registers.emplace(shm);
    accelerator->memory.Reopen(accelerator->life);
    accelerator->lock.emplace(accelerator->memory);
    accelerators.opened.push_back(std::move(accelerator));
    ZceBoard::TellSoftwareBoard(*accelerators.opened.back());
    return accelerators.opened.back().get();
}

ENYX_HW_EXPORT int enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator* accelerator,
                                                       const enyx_hw_filter* filter,
                                                       enyx_hw_mmio_descriptor** descriptors,
                                                       size_t capacity) {
    if (accelerator == nullptr || filter == nullptr || (descriptors == nullptr && capacity != 0)) {
        return Fail(EINVAL);
    }
    if (!filter->Matches(0, "mmio0")) {
        errno = ENODEV;
        return 0;
    }
    if (!ZceBoard::AddDescriptor(descriptors, capacity, 0, enyx_hw_mmio_descriptor{accelerator})) {
        return Fail(ENOMEM);
    }
    return 1;
}

ENYX_HW_EXPORT void enyx_hw_free_mmio_descriptors(enyx_hw_mmio_descriptor** descriptors,
                                                  size_t count) {
    ZceBoard::FreeDescriptors(descriptors, count);
}

ENYX_HW_EXPORT int zce_board_state(void) {
    Accelerators& accelerators = Opened();
    const std::lock_guard guard(accelerators.mutex);
    int state = ZCE_BOARD_RUNS;
    std::vector<uint32_t> seen;
    for (auto it = accelerators.opened.rbegin(); it != accelerators.opened.rend(); ++it) {
        const uint32_t bus = (*it)->memory.Bus();
        if (std::find(seen.begin(), seen.end(), bus) == seen.end()) {
            seen.push_back(bus);
            state = std::max(state, ZceBoard::BoardState(**it));
        }
    }
    return state;
}

}  // extern "C"
