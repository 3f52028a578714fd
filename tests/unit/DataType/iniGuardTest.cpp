// The INI file's reader when memory or the file fail it: every allocation of a load, every read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "DataType/ZceIniGuard.h"
#include "configFixture.h"
#include "slowBuild.h"

namespace {

using testing::ElementsAre;
using velatest::ConfigRig;
using velatest::LogCapture;

// Allocations since Count was set to 0; the one of this number fails (0: none), all later ones too
// if `forGood` is set.
struct Allocations {
    static std::atomic<int> count;
    static int failing;
    static bool forGood;
    static std::atomic<int> held;  // allocated and not freed

    static bool Fails() {
        ++count;
        return failing != 0 && (count == failing || (forGood && count > failing));
    }
};
std::atomic<int> Allocations::count{0};
int Allocations::failing = 0;
bool Allocations::forGood = false;
std::atomic<int> Allocations::held{0};

// How many bytes of a file that is opened now can be read before reading fails; -1: all.
int s_readable = -1;

// Whether iniparser runs in this thread, and the starts of the blocks it got in the last load.
thread_local bool t_bLoading = false;
std::array<const void*, 8192> s_blocks;
std::size_t s_blockNum = 0;
std::atomic<int> s_loadsBegun{0};

void* Got(void* block) {
    ++Allocations::held;
    if (t_bLoading) {  // one load at a time
        s_blocks.at(s_blockNum++) = block;
    }
    return block;
}

bool IsBlock(const void* memory) {
    const auto* const end = s_blocks.cbegin() + s_blockNum;
    return std::find(s_blocks.cbegin(), end, memory) != end;
}

struct Torn {
    std::FILE* file;
    int left;
};

ssize_t ReadTorn(void* cookie, char* buffer, std::size_t size) {
    auto& torn = *static_cast<Torn*>(cookie);
    if (torn.left == 0) {
        errno = EIO;
        return -1;
    }
    const std::size_t wanted = std::min(size, static_cast<std::size_t>(torn.left));
    const std::size_t count = std::fread(buffer, 1, wanted, torn.file);
    torn.left -= static_cast<int>(count);
    return static_cast<ssize_t>(count);
}

int CloseTorn(void* cookie) {
    const auto* torn = static_cast<Torn*>(cookie);
    const int result = std::fclose(torn->file);
    delete torn;
    return result;
}

}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size);
dictionary* __real_iniparser_load(const char* path);
dictionary* __wrap_iniparser_load(const char* path);
void __real_free(void* memory);
void __wrap_free(void* memory);
std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode);

void* __wrap_malloc(std::size_t size) {
    if (Allocations::Fails()) {
        errno = ENOMEM;
        return nullptr;
    }
    return Got(__real_malloc(size));
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    if (Allocations::Fails()) {
        errno = ENOMEM;
        return nullptr;
    }
    return Got(__real_calloc(count, size));
}

// operator new: fails while iniparser runs, which itself has none.
void* __wrap__Znwm(std::size_t size) {
    if (t_bLoading && Allocations::Fails()) {
        throw std::bad_alloc();
    }
    return __real__Znwm(size);
}

dictionary* __wrap_iniparser_load(const char* path) {
    struct Loading_t {
        Loading_t() { t_bLoading = true; }
        ~Loading_t() { t_bLoading = false; }
        Loading_t(const Loading_t&) = delete;
        Loading_t& operator=(const Loading_t&) = delete;
    };
    const Loading_t loading;
    s_blockNum = 0;
    ++s_loadsBegun;
    return __real_iniparser_load(path);
}

void __wrap_free(void* memory) {
    Allocations::held -= memory == nullptr ? 0 : 1;
    __real_free(memory);
}

std::FILE* __wrap_fopen(const char* path, const char* mode) {
    std::FILE* const file = __real_fopen(path, mode);
    if (file == nullptr || s_readable < 0 || std::strcmp(mode, "r") != 0) {
        return file;
    }
    return fopencookie(new Torn{file, s_readable}, mode, {ReadTorn, nullptr, nullptr, CloseTorn});
}
}

namespace {

// More keys than the dictionary has room for at first, a continued line, a section twice.
std::string BigText() {
    std::string text = "[config]\ndevice = xilinx0:7\nczce_level1 = \\\n enabled\n";
    for (int key = 0; key < 150; ++key) {
        text += "key" + std::to_string(key) + " = value " + std::to_string(key) + "\n";
    }
    return text + "[channel7]\ninsts = SR209\n[config]\nkey0 = again\n";
}

std::ptrdiff_t OpenFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class IniGuard : public testing::Test {
  protected:
    // A load with this allocation failing, of a file of which so much can be read; whether it
    // succeeded. A failed one must have said so and have left nothing behind.
    bool Load(int failing, bool forGood, int readable = -1) {
        log.Clear();
        const int heldBefore = Allocations::held;
        const std::ptrdiff_t filesBefore = OpenFiles();
        int result = 0;
        {
            Vela2_U50::CZceConfigFile cfg(rig.file.path(), nullptr, nullptr);
            Allocations::count = 0;
            Allocations::forGood = forGood;
            Allocations::failing = failing;
            s_readable = readable;
            result = cfg.Init();
            Allocations::failing = 0;
            s_readable = -1;
            if (result == 0) {
                EXPECT_EQ(cfg.GetDmaChannel(), 7U);
            } else {
                EXPECT_EQ(Allocations::held, heldBefore);
                EXPECT_EQ(OpenFiles(), filesBefore);
                EXPECT_THAT(log.Lines(),
                            ElementsAre("ERROR Failed to load file " + rig.file.path()));
            }
        }
        EXPECT_EQ(Allocations::held, heldBefore);
        EXPECT_EQ(OpenFiles(), filesBefore);
        return result == 0;
    }
    // Every allocation of a load failing, one after the other; how many there are. In a slow build
    // the first fifty, and then every seventh.
    int FailEach(bool forGood) {
        for (int failing = 1;; failing += velatest::slowBuild && failing > 50 ? 7 : 1) {
            const bool loaded = Load(failing, forGood);
            if (Allocations::count < failing) {
                EXPECT_TRUE(loaded);
                return Allocations::count;
            }
            EXPECT_FALSE(loaded) << "allocation " << failing;
        }
    }

    LogCapture log;
    ConfigRig rig{BigText()};
};

TEST_F(IniGuard, AnyFailedAllocationIsAFailedLoad) {
    const int allocations = FailEach(false);
    EXPECT_GT(allocations, 600);  // those of iniparser, and what is noted of each
    RecordProperty("allocations", allocations);
}

TEST_F(IniGuard, AnyAllocationFromWhichOnAllFailIsAFailedLoad) {
    EXPECT_GT(FailEach(true), 600);
}

TEST_F(IniGuard, AFailedAllocationIsNamedOnStandardError) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Load(20, false));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "iniparser: memory allocation failure\n");
}

// Wherever reading stops, also behind a whole line and before the first byte.
TEST_F(IniGuard, AReadErrorIsAFailedLoadAndNotAShorterFile) {
    const int size = static_cast<int>(BigText().size());
    for (int readable = 0; readable < size; readable += 23) {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(Load(0, false, readable)) << readable;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "iniparser: cannot read the file, errmsg:Input/output error\n");
    }
    EXPECT_TRUE(Load(0, false));
}

TEST_F(IniGuard, AReadErrorInsteadOfTheEndIsAFailedLoad) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Load(0, false, static_cast<int>(BigText().size())));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "iniparser: cannot read the file, errmsg:Input/output error\n");
}

// What one load holds is its own: freeing in another order than loading leaves the others whole.
TEST_F(IniGuard, SeveralFilesAreHeldAndFreedInAnyOrder) {
    const int heldBefore = Allocations::held;
    ConfigRig other("[config]\ndevice = xilinx0:9\n");
    {
        Vela2_U50::CZceConfigFile second(other.file.path(), nullptr, nullptr);
        {
            Vela2_U50::CZceConfigFile first(rig.file.path(), nullptr, nullptr);
            ASSERT_EQ(first.Init(), 0);
            ASSERT_EQ(second.Init(), 0);
            EXPECT_EQ(first.GetDmaChannel(), 7U);
        }
        EXPECT_EQ(second.GetBusId(), 0U);
        EXPECT_TRUE(log.Has("INFO [channel:9] Busid:0, ChannelId:9."));
        EXPECT_FALSE(Load(30, false));
        EXPECT_EQ(second.GetBusId(), 0U);
    }
    EXPECT_EQ(Allocations::held, heldBefore);
}

// The heap and its checkers know a block by where it starts.
TEST_F(IniGuard, ALoadedDictionaryIsInBlocksOfTheHeap) {
    dictionary* const loaded = Vela2_U50::ZceIniLoad(rig.file.path().c_str());
    ASSERT_NE(loaded, nullptr);
    EXPECT_TRUE(IsBlock(loaded));
    int entries = 0;
    for (ssize_t slot = 0; slot < loaded->size; ++slot) {
        if (loaded->key[slot] != nullptr) {
            ++entries;
            EXPECT_TRUE(IsBlock(loaded->key[slot]));
            EXPECT_TRUE(loaded->val[slot] == nullptr || IsBlock(loaded->val[slot]));
        }
    }
    EXPECT_EQ(entries, 155);
    iniparser_freedict(loaded);
}

// What one thread frees is not taken for what another one is loading.
TEST_F(IniGuard, OneThreadFreesWhileAnotherLoads) {
    const int heldBefore = Allocations::held;
    const std::string path = rig.file.path();
    std::vector<dictionary*> loaded(300);
    for (dictionary*& one : loaded) {
        one = Vela2_U50::ZceIniLoad(path.c_str());
        ASSERT_NE(one, nullptr);
    }
    std::atomic<bool> bFreed{false};
    std::thread loader([&] {
        while (!bFreed) {
            iniparser_freedict(Vela2_U50::ZceIniLoad(path.c_str()));
        }
    });
    for (dictionary* const one : loaded) {
        const int before = s_loadsBegun;
        while (s_loadsBegun == before) {
            std::this_thread::yield();
        }
        iniparser_freedict(one);  // while the load that has just begun is going on
    }
    bFreed = true;
    loader.join();
    EXPECT_EQ(Allocations::held, heldBefore);
}

}  // namespace
