#include "DataType/ZceIniGuard.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>
#include <unordered_set>

#include "Utils/threadMutex.h"

// iniparser's own calls for memory and for its file: the build redirects them to here (see
// cmake/Iniparser.cmake).
extern "C" {
void* ZceIni_malloc(std::size_t size);
void* ZceIni_calloc(std::size_t count, std::size_t size);
void ZceIni_free(void* memory);
std::FILE* ZceIni_fopen(const char* path, const char* mode);
char* ZceIni_fgets(char* line, int size, std::FILE* file);
int ZceIni_fclose(std::FILE* file);
extern std::FILE* ZceIni_stderr;
}

std::FILE* ZceIni_stderr = nullptr;

namespace {

// Leaves iniparser_load in the middle: its frames hold nothing but what the load has noted here.
struct LoadFailed_t {};

// What the load that is going on has taken. The blocks are noted beside them and not in front of
// them: once loaded, they are the heap's like any other, and its checkers see whose they are.
struct Load_t {
    std::unordered_set<void*> blocks;
    std::FILE* pFile = nullptr;
};

VORBA2::CThreadMutex g_loadMutex;
Load_t* g_pLoad = nullptr;  // guarded by g_loadMutex; null between loads
// The thread of that load, no thread between loads: any other one that frees, frees a dictionary.
std::atomic<std::thread::id> g_loader;

[[noreturn]] void LeaveLoad() {
    throw LoadFailed_t{};
}

// A block as the heap has given it, noted; none at all ends the load.
void* Note(void* block) {
    if (block != nullptr) {
        try {
            g_pLoad->blocks.insert(block);
            return block;
        } catch (const std::bad_alloc&) {
            std::free(block);
        }
    }
    std::fputs("iniparser: memory allocation failure\n", stderr);
    LeaveLoad();
}

void GiveBack(const Load_t& load) {
    for (void* const block : load.blocks) {
        std::free(block);
    }
    if (load.pFile != nullptr) {
        std::fclose(load.pFile);
    }
}

}  // namespace

void* ZceIni_malloc(std::size_t size) {
    return Note(std::malloc(size));
}

void* ZceIni_calloc(std::size_t count, std::size_t size) {
    return Note(std::calloc(count, size));
}

void ZceIni_free(void* memory) {
    if (g_loader.load(std::memory_order_relaxed) == std::this_thread::get_id()) {
        g_pLoad->blocks.erase(memory);
    }
    std::free(memory);
}

std::FILE* ZceIni_fopen(const char* path, const char* mode) {
    g_pLoad->pFile = std::fopen(path, mode);
    return g_pLoad->pFile;
}

char* ZceIni_fgets(char* line, int size, std::FILE* file) {
    char* const pRead = std::fgets(line, size, file);
    if (std::ferror(file) != 0) {
        std::fprintf(stderr, "iniparser: cannot read the file, errmsg:%s\n", std::strerror(errno));
        LeaveLoad();
    }
    return pRead;
}

int ZceIni_fclose(std::FILE* file) {
    g_pLoad->pFile = nullptr;
    return std::fclose(file);
}

dictionary* Vela2_U50::ZceIniLoad(const char* path) {
    const VORBA2::CThreadMutexGuard guard(g_loadMutex);
    Load_t load;
    g_pLoad = &load;
    g_loader.store(std::this_thread::get_id(), std::memory_order_relaxed);
    ZceIni_stderr = stderr;
    dictionary* loaded = nullptr;
    try {
        loaded = iniparser_load(path);
    } catch (const LoadFailed_t&) {
        loaded = nullptr;
    }
    g_loader.store(std::thread::id(), std::memory_order_relaxed);
    g_pLoad = nullptr;
    if (loaded == nullptr) {
        GiveBack(load);
    }
    return loaded;
}
