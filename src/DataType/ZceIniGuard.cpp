#include "DataType/ZceIniGuard.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

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

// What stands in front of every block that iniparser gets: its neighbours in the ring of the blocks
// of one load. Freeing a block touches no other load's.
struct alignas(std::max_align_t) Block_t {
    Block_t* pPrev;
    Block_t* pNext;
};

void Close(Block_t& ring) {
    ring.pPrev = &ring;
    ring.pNext = &ring;
}

void Unlink(Block_t& block) {
    block.pPrev->pNext = block.pNext;
    block.pNext->pPrev = block.pPrev;
    Close(block);
}

void InsertBehind(Block_t& place, Block_t& block) {
    block.pPrev = &place;
    block.pNext = place.pNext;
    place.pNext->pPrev = &block;
    place.pNext = &block;
}

// Leaves iniparser_load in the middle: its frames hold nothing but what the load has noted here.
struct LoadFailed_t {};

// What the load that is going on has taken.
struct Load_t {
    Block_t blocks;
    std::FILE* pFile;
};

VORBA2::CThreadMutex g_loadMutex;
Load_t* g_pLoad = nullptr;  // guarded by g_loadMutex; null between loads

[[noreturn]] void LeaveLoad() {
    throw LoadFailed_t{};
}

void* NewBlock(std::size_t size) {
    void* const pRaw = size > std::numeric_limits<std::size_t>::max() - sizeof(Block_t)
                           ? nullptr
                           : std::malloc(sizeof(Block_t) + size);
    if (pRaw == nullptr) {
        std::fputs("iniparser: memory allocation failure\n", stderr);
        LeaveLoad();
    }
    auto* const pBlock = static_cast<Block_t*>(pRaw);
    InsertBehind(g_pLoad->blocks, *pBlock);
    return pBlock + 1;
}

void GiveBack(Load_t& load) {
    while (load.blocks.pNext != &load.blocks) {
        ZceIni_free(load.blocks.pNext + 1);
    }
    if (load.pFile != nullptr) {
        std::fclose(load.pFile);
    }
}

}  // namespace

void* ZceIni_malloc(std::size_t size) {
    return NewBlock(size);
}

void* ZceIni_calloc(std::size_t count, std::size_t size) {
    const bool bTooMuch = size != 0 && count > std::numeric_limits<std::size_t>::max() / size;
    const std::size_t bytes = bTooMuch ? std::numeric_limits<std::size_t>::max() : count * size;
    return std::memset(NewBlock(bytes), 0, bytes);
}

void ZceIni_free(void* memory) {
    if (memory != nullptr) {
        Block_t* const pBlock = static_cast<Block_t*>(memory) - 1;
        Unlink(*pBlock);
        std::free(pBlock);
    }
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
    Load_t load{};
    Close(load.blocks);
    g_pLoad = &load;
    ZceIni_stderr = stderr;
    dictionary* loaded = nullptr;
    try {
        loaded = iniparser_load(path);
    } catch (const LoadFailed_t&) {
        loaded = nullptr;
    }
    g_pLoad = nullptr;
    if (loaded != nullptr) {
        Unlink(load.blocks);  // the dictionary's blocks stay a ring of their own
    } else {
        GiveBack(load);
    }
    return loaded;
}
