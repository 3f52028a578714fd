#include "DrvEnyx/drvCore.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "DrvEnyx/keptErrno.h"
#include "Utils/clockSeam.h"
#include "Utils/threadMutex.h"
#include "log/elog.h"

namespace {

constexpr std::size_t busCount = 10;
// What the board needs after the reset of its root core.
constexpr unsigned int rootResetSeconds = 1;
// The register space in which the cores are: the accelerator's first.
constexpr unsigned int mmioIndex = 0;

// Found objects by bus index. The entries are atomic because DrvEnyxVarClear takes no lock; the
// discovery itself works under s_coreMutex.
template <typename Object>
using BusCache = std::array<std::atomic<Object*>, busCount>;

constinit BusCache<enyx_hw_accelerator> s_accelerators{};
constinit BusCache<enyx_hw_mmio> s_mmios{};
constinit BusCache<enyx_hw_core_tree> s_trees{};
constinit BusCache<enyx_hw_core> s_roots{};

VORBA2::CThreadMutex s_coreMutex;

// The descriptor of the accelerator on the bus, or null. The caller gives it back.
enyx_hw_accelerator_descriptor* FindAccelerator(unsigned short bus) {
    KeptErrno reason;
    enyx_hw_filter* filter = enyx_hw_filter_create();
    if (filter == nullptr) {
        reason.Keep();
        LOG_ERROR("Could not create filter for DMA. errno:%d", errno);
        return nullptr;
    }
    enyx_hw_accelerator_descriptor* descriptor = nullptr;
    bool found = false;
    if (enyx_hw_filter_set_index(filter, bus) != 0) {
        reason.Keep();
        LOG_ERROR("Could not set filter id. errno:%d, errMsg:%s.", errno, std::strerror(errno));
    } else {
        const int count = enyx_hw_enumerate_accelerators(filter, &descriptor, 1);
        found = count == 1;
        if (!found) {
            reason.Keep();
            LOG_ERROR("Could not find accelerator. ernno:%d, msg:%s, get acc num:%d.", errno,
                      std::strerror(errno), count);
        }
    }
    enyx_hw_filter_destroy(filter);
    if (!found && descriptor != nullptr) {
        enyx_hw_free_accelerator_descriptors(&descriptor, 1);
        descriptor = nullptr;
    }
    return descriptor;
}

// The descriptor of the accelerator's register space, or null. The caller gives it back.
enyx_hw_mmio_descriptor* FindMmio(enyx_hw_accelerator* accelerator) {
    KeptErrno reason;
    enyx_hw_filter* filter = enyx_hw_filter_create();
    if (filter == nullptr) {
        reason.Keep();
        LOG_ERROR("Could not create mmio filter, errmsg:%s.", std::strerror(errno));
        return nullptr;
    }
    enyx_hw_mmio_descriptor* descriptor = nullptr;
    bool found = false;
    if (enyx_hw_filter_set_index(filter, mmioIndex) != 0) {
        reason.Keep();
        LOG_ERROR("Could not set mmio filter index, errmsg:%s.", std::strerror(errno));
    } else {
        found = enyx_hw_accelerator_enumerate_mmios(accelerator, filter, &descriptor, 1) == 1;
        if (!found) {
            reason.Keep();
            LOG_ERROR("Could not find mmio, errmsg:%s.", std::strerror(errno));
        }
    }
    enyx_hw_filter_destroy(filter);
    if (!found && descriptor != nullptr) {
        enyx_hw_free_mmio_descriptors(&descriptor, 1);
        descriptor = nullptr;
    }
    return descriptor;
}

enyx_hw_mmio* OpenMmio(unsigned short bus, enyx_hw_accelerator* accelerator) {
    enyx_hw_mmio_descriptor* descriptor = FindMmio(accelerator);
    if (descriptor == nullptr) {
        return nullptr;
    }
    KeptErrno reason;
    enyx_hw_mmio* mmio = enyx_hw_mmio_create(descriptor);
    s_mmios[bus] = mmio;
    if (mmio == nullptr) {
        reason.Keep();
        LOG_ERROR("Could not create mmio, errmsg:%s.", std::strerror(errno));
    }
    enyx_hw_free_mmio_descriptors(&descriptor, 1);
    return mmio;
}

enyx_hw_core* FindRoot(unsigned short bus, enyx_hw_mmio* mmio) {
    KeptErrno reason;
    enyx_hw_core_tree* tree = enyx_hw_enumerate_cores(mmio);
    s_trees[bus] = tree;
    if (tree == nullptr) {
        reason.Keep();
        LOG_ERROR("Could not find tree, errmsg:%s.", std::strerror(errno));
        return nullptr;
    }
    enyx_hw_core* root = enyx_hw_core_tree_get_root(tree);
    s_roots[bus] = root;
    if (root == nullptr) {
        reason.Keep();
        LOG_ERROR("Could not find root, errmsg:%s.", std::strerror(errno));
    }
    return root;
}

// The root core of the bus, freshly reset; null after a failure, and then the root's entry is still
// empty, so that the next call starts again. Under s_coreMutex.
enyx_hw_core* DiscoverRoot(unsigned short bus) {
    enyx_hw_accelerator* accelerator = DrvEnyxCoreGetAcc(bus);
    if (accelerator == nullptr) {
        return nullptr;
    }
    enyx_hw_mmio* mmio = OpenMmio(bus, accelerator);
    if (mmio == nullptr) {
        return nullptr;
    }
    KeptErrno reason;
    enyx_hw_core* root = FindRoot(bus, mmio);
    if (root == nullptr) {
        reason.Keep();
        // Its entry in s_mmios stays as it is; nothing reads an entry whose root is empty.
        enyx_hw_mmio_destroy(mmio);
        return nullptr;
    }
    if (enyx_hw_core_reset(root) != 0) {
        // Deliberately no failure of the discovery: the core is there.
        LOG_WARN("Could not reset root core, busId:%u, errmsg:%s.", bus, std::strerror(errno));
    }
    // Still under the lock: nobody may use the core before it is ready.
    VORBA2::Clock::SleepSeconds(rootResetSeconds);
    return root;
}

enyx_hw_core* GetRoot(unsigned short bus) {
    const VORBA2::CThreadMutexGuard guard(s_coreMutex);
    if (bus < busCount && s_roots[bus] != nullptr) {
        return s_roots[bus];
    }
    return DiscoverRoot(bus);
}

}  // namespace

enyx_hw_accelerator* DrvEnyxCoreGetAcc(unsigned short bus) {
    const VORBA2::CThreadMutexGuard guard(s_coreMutex);
    if (bus >= busCount) {
        LOG_ERROR("Bus index out of range. busId:%u, valid:0 to %zu.", bus, busCount - 1);
        errno = EINVAL;
        return nullptr;
    }
    if (s_accelerators[bus] != nullptr) {
        return s_accelerators[bus];
    }
    enyx_hw_accelerator_descriptor* descriptor = FindAccelerator(bus);
    if (descriptor == nullptr) {
        return nullptr;
    }
    KeptErrno reason;
    enyx_hw_accelerator* accelerator = enyx_hw_accelerator_get(descriptor);
    if (accelerator == nullptr) {
        reason.Keep();
        LOG_ERROR("Could not get accelerator. errno:%d", errno);
    }
    enyx_hw_free_accelerator_descriptors(&descriptor, 1);
    s_accelerators[bus] = accelerator;
    return accelerator;
}

int DrvEnyxGetCore(unsigned short bus, unsigned short coreId, enyx_hw_core** cores,
                   unsigned long capacity) {
    KeptErrno reason;
    enyx_hw_core* root = GetRoot(bus);
    if (root == nullptr) {
        reason.Keep();
        LOG_ERROR("Get core error. busId:%u, coreId:%u", bus, coreId);
        return -1;
    }
    const int count = enyx_hw_core_enumerate(root, coreId, cores, capacity);
    if (count == -1) {
        reason.Keep();
        LOG_ERROR("Could not enumerate cores, busId:%u, coreId:%u. errmsg:%s.", bus, coreId,
                  std::strerror(errno));
    }
    return count;
}

void DrvEnyxVarClear() {
    for (std::size_t bus = 0; bus < busCount; ++bus) {
        s_accelerators[bus] = nullptr;
        s_mmios[bus] = nullptr;
        s_trees[bus] = nullptr;
        s_roots[bus] = nullptr;
    }
}
