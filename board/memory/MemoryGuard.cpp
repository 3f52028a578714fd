#include "memory/MemoryGuard.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <mutex>

namespace ZceBoard {

namespace {

constexpr size_t LINE_SIZE = 256;
constexpr size_t MAX_WATCHED = 64;  // a process maps a board once or twice

// One watched mapping. A handler may run at any moment: `begin` is set last and cleared first.
struct Watched {
    std::atomic<uintptr_t> begin{0};
    size_t size = 0;
    size_t length = 0;
    std::array<char, LINE_SIZE> line{};
};

std::array<Watched, MAX_WATCHED> g_watched;
struct sigaction g_before;
std::atomic<bool> g_told{false};

std::mutex& WatchMutex() {
    static auto* mutex = new std::mutex;  // objects of static storage may unmap theirs late
    return *mutex;
}

const Watched* Find(const void* address) {
    const auto place = reinterpret_cast<uintptr_t>(address);
    for (const Watched& watched : g_watched) {
        const uintptr_t begin = watched.begin.load(std::memory_order_acquire);
        if (begin != 0 && place - begin < watched.size) {
            return &watched;
        }
    }
    return nullptr;
}

// As if there had been no handler: the access is made again, or the signal comes again, and ends
// the process.
void EndBySignal(const siginfo_t& info) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;  // NOLINT(cppcoreguidelines-pro-type-union-access)
    sigaction(SIGBUS, &action, nullptr);
    if (info.si_code <= 0) {
        raise(SIGBUS);  // sent by somebody: nothing would send it again
    }
}

void HandBack(int signal, siginfo_t* info, void* context) {
    if ((g_before.sa_flags & SA_SIGINFO) != 0) {
        g_before.sa_sigaction(signal, info, context);
    } else if (g_before.sa_handler == SIG_IGN && info->si_code <= 0) {
        return;
    } else if (g_before.sa_handler != SIG_DFL && g_before.sa_handler != SIG_IGN) {
        g_before.sa_handler(signal);
    } else {
        EndBySignal(*info);
    }
}

void OnBusError(int signal, siginfo_t* info, void* context) {
    const int err = errno;
    const Watched* watched = info->si_code > 0 ? Find(info->si_addr) : nullptr;
    if (watched == nullptr) {
        HandBack(signal, info, context);
    } else {
        if (!g_told.exchange(true) &&
            write(STDERR_FILENO, watched->line.data(), watched->length) < 0) {
            // There is nobody to tell it to.
        }
        EndBySignal(*info);
    }
    errno = err;
}

void InstallOnce() {
    static bool installed = false;
    if (!installed) {
        struct sigaction action {};
        action.sa_sigaction = OnBusError;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        installed =
            sigaction(SIGBUS, nullptr, &g_before) == 0 && sigaction(SIGBUS, &action, nullptr) == 0;
    }
}

}  // namespace

void WatchMemory(const void* begin, size_t size, const std::string& line) {
    const std::lock_guard guard(WatchMutex());
    InstallOnce();
    auto* const place =
        std::find_if(g_watched.begin(), g_watched.end(),
                     [](const Watched& watched) { return watched.begin.load() == 0; });
    if (place == g_watched.end()) {
        return;
    }
    place->size = size;
    place->length = std::min(line.size(), LINE_SIZE - 1);
    memcpy(place->line.data(), line.data(), place->length);
    place->line[place->length++] = '\n';
    place->begin.store(reinterpret_cast<uintptr_t>(begin), std::memory_order_release);
}

void UnwatchMemory(const void* begin) {
    const std::lock_guard guard(WatchMutex());
    for (Watched& watched : g_watched) {
        if (begin != nullptr && watched.begin.load() == reinterpret_cast<uintptr_t>(begin)) {
            watched.begin.store(0);
        }
    }
}

}  // namespace ZceBoard
