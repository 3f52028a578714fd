#include "DrvEnyx/drvCore.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

#include "DrvEnyx/enyxHw.h"
#include "DrvEnyx/enyxOwned.h"
#include "DrvEnyx/keptErrno.h"
#include "Utils/clockSeam.h"
#include "Utils/threadMutex.h"
#include "log/elog.h"

// No interface that is known here promises this call; where the library has none, a register space
// that is of no use stays open until the process ends.
#pragma weak enyx_hw_mmio_destroy

namespace {

constexpr std::size_t g_uiBusCount = 10;
// The register space in which the cores are: the accelerator's first.
constexpr std::uint32_t g_uiMmioIndex = 0;

// Found objects by bus index. The entries are atomic because DrvEnyxVarClear takes no lock, so that
// one may go between any two looks at it; the discovery itself works under s_coreMutex.
template <typename Object>
using BusCache_t = std::array<std::atomic<Object*>, g_uiBusCount>;

constinit BusCache_t<enyx_hw_accelerator> s_accelerators{};
constinit BusCache_t<enyx_hw_mmio> s_mmios{};
constinit BusCache_t<enyx_hw_core_tree> s_trees{};
constinit BusCache_t<enyx_hw_core> s_roots{};

VORBA2::CThreadMutex s_coreMutex;

// What an accelerator and a register space differ in when one of them is looked for: the
// enumeration, and what is said of each step that fails (while errno is still the vendor's).
struct AccSearch_t {
    using Descriptor_t = CEnyxAccDescriptor;

    static int Enumerate(const enyx_hw_filter* filter, Descriptor_t& found) {
        return enyx_hw_enumerate_accelerators(filter, found.List(), Descriptor_t::g_uiCapacity);
    }
    static void NoFilter() { LOG_ERROR("Could not create filter for DMA. errno:%d", errno); }
    static void NoIndex() {
        LOG_ERROR("Could not set filter id. errno:%d, errMsg:%s.", errno, std::strerror(errno));
    }
    static void NotFound(int count) {
        LOG_ERROR("Could not find accelerator. ernno:%d, msg:%s, get acc num:%d.", errno,
                  std::strerror(errno), count);
    }
};

struct MmioSearch_t {
    using Descriptor_t = CEnyxMmioDescriptor;

    int Enumerate(const enyx_hw_filter* filter, Descriptor_t& found) const {
        return enyx_hw_accelerator_enumerate_mmios(accelerator, filter, found.List(),
                                                   Descriptor_t::g_uiCapacity);
    }
    static void NoFilter() {
        LOG_ERROR("Could not create mmio filter, errmsg:%s.", std::strerror(errno));
    }
    static void NoIndex() {
        LOG_ERROR("Could not set mmio filter index, errmsg:%s.", std::strerror(errno));
    }
    static void NotFound(int /*count*/) {
        LOG_ERROR("Could not find mmio, errmsg:%s.", std::strerror(errno));
    }

    enyx_hw_accelerator* accelerator;
};

// The descriptor of the one object with this index; none after a failure, which has been logged and
// whose errno is kept.
template <typename Search>
std::optional<typename Search::Descriptor_t> FindByIndex(const Search& search,
                                                         std::uint32_t index) {
    CKeptErrno reason;
    typename Search::Descriptor_t found;  // given back after the filter
    const CEnyxFilter filter;
    if (!filter) {
        reason.Keep();
        Search::NoFilter();
        return std::nullopt;
    }
    if (enyx_hw_filter_set_index(filter.Get(), index) != 0) {
        reason.Keep();
        Search::NoIndex();
        return std::nullopt;
    }
    const int count = search.Enumerate(filter.Get(), found);
    if (count != 1) {
        reason.Keep();
        Search::NotFound(count);
        return std::nullopt;
    }
    return std::optional(std::move(found));
}

enyx_hw_mmio* OpenMmio(unsigned short bus, enyx_hw_accelerator* accelerator) {
    CKeptErrno reason;
    const auto descriptor = FindByIndex(MmioSearch_t{accelerator}, g_uiMmioIndex);
    if (!descriptor) {
        return nullptr;
    }
    enyx_hw_mmio* mmio = enyx_hw_mmio_create(descriptor->Get());
    s_mmios[bus] = mmio;
    if (mmio == nullptr) {
        reason.Keep();
        LOG_ERROR("Could not create mmio, errmsg:%s.", std::strerror(errno));
    }
    return mmio;
}

enyx_hw_core* FindRoot(unsigned short bus, enyx_hw_mmio* mmio) {
    CKeptErrno reason;
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
    CKeptErrno reason;
    enyx_hw_core* root = FindRoot(bus, mmio);
    if (root == nullptr) {
        reason.Keep();
        // Its entry in s_mmios stays as it is; nothing reads an entry whose root is empty.
        if (enyx_hw_mmio_destroy != nullptr) {
            enyx_hw_mmio_destroy(mmio);
        }
        return nullptr;
    }
    // Whether it has a result at all is not known: the core is there, and is used.
    (void)enyx_hw_core_reset(root);
    // Still under the lock: nobody may use the core before it is ready.
    VORBA2::Clock::SleepSeconds(ZCE_ROOT_RESET_SECONDS);
    return root;
}

enyx_hw_core* GetRoot(unsigned short bus) {
    const VORBA2::CThreadMutexGuard guard(s_coreMutex);
    enyx_hw_core* const root = bus < g_uiBusCount ? s_roots[bus].load() : nullptr;
    return root != nullptr ? root : DiscoverRoot(bus);
}

}  // namespace

enyx_hw_accelerator* DrvEnyxCoreGetAcc(unsigned short bus) {
    const VORBA2::CThreadMutexGuard guard(s_coreMutex);
    if (bus >= g_uiBusCount) {
        LOG_ERROR("Bus index out of range. busId:%u, valid:0 to %zu.", bus, g_uiBusCount - 1);
        errno = EINVAL;
        return nullptr;
    }
    if (enyx_hw_accelerator* const known = s_accelerators[bus]; known != nullptr) {
        return known;
    }
    CKeptErrno reason;
    const auto descriptor = FindByIndex(AccSearch_t{}, bus);
    if (!descriptor) {
        return nullptr;
    }
    enyx_hw_accelerator* accelerator = enyx_hw_accelerator_get(descriptor->Get());
    if (accelerator == nullptr) {
        reason.Keep();
        LOG_ERROR("Could not get accelerator. errno:%d", errno);
    }
    s_accelerators[bus] = accelerator;
    return accelerator;
}

int DrvEnyxGetCore(unsigned short bus, unsigned short coreId, enyx_hw_core** cores,
                   unsigned long capacity) {
    CKeptErrno reason;
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
    for (std::size_t bus = 0; bus < g_uiBusCount; ++bus) {
        s_accelerators[bus] = nullptr;
        s_mmios[bus] = nullptr;
        s_trees[bus] = nullptr;
        s_roots[bus] = nullptr;
    }
}
