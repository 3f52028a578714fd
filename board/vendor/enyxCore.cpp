#include <algorithm>
#include <memory>
#include <mutex>

#include "memory/AccessTime.h"
#include "vendor/enyxHandles.h"

using ZceBoard::Fail;
using ZceBoard::FailNull;

namespace {

ZceBoard::RegisterField FieldOf(const enyx_hw_register_description& description) {
    return {description.byte_offset, description.bit_offset, description.width};
}

// The register cores below a root, as many as `capacity` takes; how many there are.
int FindRegisterCores(enyx_hw_core_tree& tree, enyx_hw_core** cores, size_t capacity) {
    ZceBoard::CFaults faults(tree.root.accelerator->memory.Shm());
    if (faults.Strikes(ZceBoard::Fault::CoreMissing) != 0) {
        errno = ENODEV;
        return 0;
    }
    enyx_hw_core* const found[] = {&tree.registers, &tree.twin};
    const size_t count = faults.Strikes(ZceBoard::Fault::CoreTwice) != 0 ? 2 : 1;
    std::copy_n(found, std::min(count, capacity), cores);
    return static_cast<int>(count);
}

// Whether an access may be made: a register core, and everything else there.
bool CanAccess(const enyx_hw_core* core, bool argumentsThere) {
    if (core == nullptr || !argumentsThere) {
        errno = EINVAL;
        return false;
    }
    if (core->id != ZceBoard::REGISTER_CORE_ID) {
        errno = ENXIO;  // the root has no registers of its own
        return false;
    }
    return true;
}

// An access under the lock, which is held for the board's access time as well: accesses take turns,
// as on a bus.
template <class Call>
int Access(const enyx_hw_core& core, Call call) {
    enyx_hw_accelerator& accelerator = *core.accelerator;
    const ZceBoard::CCoreLockGuard guard(*accelerator.lock);
    return ZceBoard::TakeTime(accelerator.memory.Shm(),
                              [&] { return call(*accelerator.registers); });
}

}  // namespace

extern "C" {

ENYX_HW_EXPORT enyx_hw_mmio* enyx_hw_mmio_create(const enyx_hw_mmio_descriptor* descriptor) {
    if (descriptor == nullptr || descriptor->accelerator == nullptr) {
        return FailNull(EINVAL);
    }
    enyx_hw_accelerator* accelerator = descriptor->accelerator;
    const std::lock_guard guard(accelerator->mmioMutex);
    accelerator->mmios.push_back(
        std::make_unique<enyx_hw_mmio>(enyx_hw_mmio{{{accelerator, ZceBoard::ROOT_CORE_ID},
                                                     {accelerator, ZceBoard::REGISTER_CORE_ID},
                                                     {accelerator, ZceBoard::REGISTER_CORE_ID}}}));
    return accelerator->mmios.back().get();
}

ENYX_HW_EXPORT void enyx_hw_mmio_destroy(enyx_hw_mmio* mmio) {
    if (mmio == nullptr) {
        return;
    }
    enyx_hw_accelerator* accelerator = mmio->tree.root.accelerator;
    const std::lock_guard guard(accelerator->mmioMutex);
    auto& mmios = accelerator->mmios;
    mmios.erase(std::remove_if(mmios.begin(), mmios.end(),
                               [mmio](const auto& owned) { return owned.get() == mmio; }),
                mmios.end());
}

ENYX_HW_EXPORT enyx_hw_core_tree* enyx_hw_enumerate_cores(enyx_hw_mmio* mmio) {
    return mmio != nullptr ? &mmio->tree : FailNull(EINVAL);
}

ENYX_HW_EXPORT enyx_hw_core* enyx_hw_core_tree_get_root(enyx_hw_core_tree* tree) {
    return tree != nullptr ? &tree->root : FailNull(EINVAL);
}

// Deliberately leaves registers, tables and streams as they are: every process that starts to use
// the board does this, while others are receiving.
ENYX_HW_EXPORT int enyx_hw_core_reset(enyx_hw_core* core) {
    if (core == nullptr) {
        return Fail(EINVAL);
    }
    core->accelerator->memory.Shm().header.coreResets.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

ENYX_HW_EXPORT int enyx_hw_core_enumerate(enyx_hw_core* root, uint16_t core_id,
                                          enyx_hw_core** cores, size_t capacity) {
    if (root == nullptr || (cores == nullptr && capacity != 0)) {
        return Fail(EINVAL);
    }
    if (root->id == core_id) {
        if (capacity != 0) {
            cores[0] = root;
        }
        return 1;
    }
    if (root->id == ZceBoard::ROOT_CORE_ID && core_id == ZceBoard::REGISTER_CORE_ID) {
        // The root is the first member of its tree.
        return FindRegisterCores(*reinterpret_cast<enyx_hw_core_tree*>(root), cores, capacity);
    }
    return 0;
}

ENYX_HW_EXPORT void enyx_hw_core_lock(enyx_hw_core* core) {
    if (core != nullptr) {
        core->accelerator->lock->Lock();
    }
}

ENYX_HW_EXPORT void enyx_hw_core_unlock(enyx_hw_core* core) {
    if (core != nullptr) {
        core->accelerator->lock->Unlock();
    }
}

ENYX_HW_EXPORT int enyx_hw_read(enyx_hw_core* core, const enyx_hw_register_description* description,
                                uint64_t* value) {
    if (!CanAccess(core, description != nullptr && value != nullptr)) {
        return -1;
    }
    return Access(*core, [&](ZceBoard::CRegisterFile& registers) {
        const ZceBoard::RegisterField field = FieldOf(*description);
        if (registers.FailsByFault(ZceBoard::Fault::ReadFails, field)) [[unlikely]] {
            return Fail(EIO);
        }
        return registers.Read(field, *value) ? 0 : Fail(EINVAL);
    });
}

ENYX_HW_EXPORT int enyx_hw_write(enyx_hw_core* core,
                                 const enyx_hw_register_description* description, uint64_t value) {
    if (!CanAccess(core, description != nullptr)) {
        return -1;
    }
    return Access(*core, [&](ZceBoard::CRegisterFile& registers) {
        const ZceBoard::RegisterField field = FieldOf(*description);
        if (registers.FailsByFault(ZceBoard::Fault::WriteFails, field)) [[unlikely]] {
            return Fail(EIO);
        }
        return registers.Write(field, value) ? 0 : Fail(EINVAL);
    });
}

}  // extern "C"
