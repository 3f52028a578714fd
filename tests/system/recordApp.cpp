// An application on the vendor's interface, for the tests of the recorder and the watch: polls as
// many messages as it is told and writes them down itself, so that a test can compare.
//
//     record-app OUT CHANNELS COUNT END
//
// CHANNELS: like 0,3. OUT gets, for each message, the channel (2 bytes), the size (4 bytes) and the
// bytes. END: what comes behind the messages:
//     return     the streams are closed, main returns
//     exit       exit(0) inside the handler of the last message
//     static     the last message is polled by the destructor of a static object
//     wait       the streams stay open until a signal ends the process
//     more       after SIGUSR1 as many messages again, then return
//     reopen     the streams are closed and opened, as many messages again, then return
//     strict     as many messages again, and at least as many polls that find nothing, after which
//                the process is gone, with status 0 if no system call was made for them
//     fork       a child that opens a stream, polls and exits; then as many messages again, return
//
// Prints "opened", and "polled N" when it has its messages.

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "DrvEnyx/enyxHw.h"

namespace {

constexpr int errnoMark = 77;

struct Stream {
    unsigned int channel;
    enyx_hw_a2c_stream* handle;
};

struct App {
    std::string path;
    std::string end;
    size_t count = 0;
    size_t polled = 0;
    std::string out;
    std::vector<Stream> streams;
    enyx_hw_accelerator* accelerator = nullptr;
    enyx_hw_core* core = nullptr;
    const unsigned char* memoryBegin = nullptr;
    const unsigned char* memoryEnd = nullptr;
};

App g_app;

[[noreturn]] void Die(const std::string& what) {
    std::printf("record-app: %s: %s\n", what.c_str(), std::strerror(errno));
    std::fflush(stdout);
    _exit(3);
}

void Check(bool good, const char* what) {
    if (!good) {
        Die(what);
    }
}

void WriteOut() {
    std::ofstream(g_app.path, std::ios::binary) << g_app.out;
}

// Where the board's memory lies: what is polled has to lie in it.
void FindMemory() {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find("zce-board.0") != std::string::npos) {
            unsigned long long begin = 0;
            unsigned long long end = 0;
            Check(std::sscanf(line.c_str(), "%llx-%llx", &begin, &end) == 2, line.c_str());
            g_app.memoryBegin = reinterpret_cast<const unsigned char*>(begin);
            g_app.memoryEnd = reinterpret_cast<const unsigned char*>(end);
        }
    }
    Check(g_app.memoryBegin != nullptr, "no board's memory");
}

void Connect() {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_set_index(filter, 0);
    enyx_hw_accelerator_descriptor* descriptor = nullptr;
    Check(enyx_hw_enumerate_accelerators(filter, &descriptor, 1) == 1, "accelerators");
    g_app.accelerator = enyx_hw_accelerator_get(descriptor);
    enyx_hw_free_accelerator_descriptors(&descriptor, 1);
    enyx_hw_mmio_descriptor* mmioDescriptor = nullptr;
    Check(enyx_hw_accelerator_enumerate_mmios(g_app.accelerator, filter, &mmioDescriptor, 1) == 1,
          "mmios");
    enyx_hw_mmio* mmio = enyx_hw_mmio_create(mmioDescriptor);
    enyx_hw_free_mmio_descriptors(&mmioDescriptor, 1);
    enyx_hw_filter_destroy(filter);
    enyx_hw_core* root = enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(mmio));
    Check(enyx_hw_core_enumerate(root, 474, &g_app.core, 1) == 1, "cores");
}

Stream Open(unsigned int channel) {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    const std::string name = "CUSTOM_CHAN" + std::to_string(channel) + "_DATA";
    enyx_hw_filter_set_name(filter, name.c_str());
    enyx_hw_a2c_stream_descriptor* descriptor = nullptr;
    Check(enyx_hw_accelerator_enumerate_a2c_streams(g_app.accelerator, filter, &descriptor, 1) == 1,
          "streams");
    errno = errnoMark;
    enyx_hw_a2c_stream* stream = enyx_hw_a2c_stream_create(descriptor, 0);
    Check(stream != nullptr, "stream");
    enyx_hw_free_a2c_stream_descriptors(&descriptor, 1);
    enyx_hw_filter_destroy(filter);
    return {channel, stream};
}

void Write(uint64_t index, uint64_t value) {
    const enyx_hw_register_description place{index * 4, 0, 32};
    Check(enyx_hw_write(g_app.core, &place, value) == 0, "write");
}

// Two accesses out of the ordinary, for the trace of registers.
void OddAccesses() {
    const enyx_hw_register_description narrow{0x106 * 4 + 2, 0, 16};
    uint64_t value = 0;
    Check(enyx_hw_read(g_app.core, &narrow, &value) == 0 && value == 0, "read");
    const enyx_hw_register_description nowhere{uint64_t{1} << 40, 0, 32};
    errno = 0;
    Check(enyx_hw_write(g_app.core, &nowhere, 5) < 0 && errno == EINVAL, "write to nowhere");
}

// The first four instruments of both tables, to all channels; both kinds of feed; the broadcast.
void Subscribe() {
    for (const uint64_t table : {0x11000U, 0x12000U}) {
        for (uint64_t index = 0; index < 4; ++index) {
            Write(table + 1, 0xFFFF);
            Write(table, index * 64);
        }
    }
    Write(0x12, 1);
    Write(0x11, 3);
}

void OnMessage(const unsigned char* data, unsigned int size, void* context) {
    const auto channel = static_cast<uint16_t>(static_cast<const Stream*>(context)->channel);
    Check(errno == errnoMark, "errno changed before the handler");
    if (data < g_app.memoryBegin || data + size > g_app.memoryEnd) {
        Die("the message is a copy");
    }
    const uint32_t length = size;
    g_app.out.append(reinterpret_cast<const char*>(&channel), sizeof(channel));
    g_app.out.append(reinterpret_cast<const char*>(&length), sizeof(length));
    g_app.out.append(reinterpret_cast<const char*>(data), size);
    ++g_app.polled;
    if (g_app.end == "exit" && g_app.polled == g_app.count) {
        WriteOut();
        std::exit(0);  // NOLINT(concurrency-mt-unsafe): what is tried
    }
}

void Poll(size_t upTo) {
    while (g_app.polled < upTo) {
        for (Stream& stream : g_app.streams) {
            if (g_app.polled == upTo) {
                break;
            }
            const size_t before = g_app.polled;
            errno = errnoMark;
            const int result = enyx_hw_a2c_stream_poll_once(stream.handle, OnMessage, &stream);
            Check(errno == errnoMark, "errno changed by a poll");
            Check(result == static_cast<int>(g_app.polled - before), "another result");
        }
    }
    std::printf("polled %zu\n", g_app.polled);
    std::fflush(stdout);
}

void BadPolls() {
    errno = 0;
    Check(enyx_hw_a2c_stream_poll_once(nullptr, OnMessage, nullptr) == -1 && errno == EINVAL,
          "poll of no stream");
    errno = 0;
    Check(enyx_hw_a2c_stream_poll_once(g_app.streams.front().handle, nullptr, nullptr) == -1 &&
              errno == EINVAL,
          "poll without a handler");
}

void OpenAll(const std::string& channels) {
    std::istringstream list(channels);
    for (std::string one; std::getline(list, one, ',');) {
        g_app.streams.push_back(Open(static_cast<unsigned int>(std::stoul(one))));
    }
}

void CloseAll() {
    for (const Stream& stream : g_app.streams) {
        enyx_hw_a2c_stream_destroy(stream.handle);
    }
    g_app.streams.clear();
}

void ForkAndWait() {
    const pid_t child = fork();
    if (child == 0) {
        Stream own = Open(9);
        errno = errnoMark;
        while (enyx_hw_a2c_stream_poll_once(own.handle, OnMessage, &own) != 1) {}
        std::exit(0);  // NOLINT(concurrency-mt-unsafe): with all exit handlers
    }
    int status = -1;
    Check(waitpid(child, &status, 0) == child && status == 0, "child");
}

// From here on the kernel kills the process at any system call but the thread's exit. Not by the
// strict mode, which takes the processor's counter away as well.
void AllowNothingButTheEnd() {
    std::array<sock_filter, 4> rules{{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    }};
    const sock_fprog program{rules.size(), rules.data()};
    Check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
              prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0,
          "filter of system calls");
}

[[noreturn]] void PollStrictly() {
    static size_t messages = 0;
    const auto count = [](const unsigned char*, unsigned int, void*) { ++messages; };
    WriteOut();
    AllowNothingButTheEnd();
    size_t idle = 0;
    while (messages < g_app.count || idle < g_app.count) {
        for (const Stream& stream : g_app.streams) {
            idle += enyx_hw_a2c_stream_poll_once(stream.handle, count, nullptr) == 0 ? 1 : 0;
        }
    }
    syscall(SYS_exit, 0);
    __builtin_unreachable();
}

struct StaticPoller {
    size_t upTo = 0;
    ~StaticPoller() {
        if (upTo != 0) {
            Poll(upTo);
            WriteOut();
        }
    }
};
StaticPoller g_staticPoller;

// True: the rest of the messages is to be polled too.
bool MoreAfter(const std::string& channels, const sigset_t& wake) {
    if (g_app.end == "reopen") {
        CloseAll();
        OpenAll(channels);
    } else if (g_app.end == "fork") {
        ForkAndWait();
    } else if (g_app.end == "more") {
        int signal = 0;
        sigwait(&wake, &signal);
    } else {
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        return 2;
    }
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, SIGUSR1);
    sigprocmask(SIG_BLOCK, &wake, nullptr);
    g_app.path = argv[1];
    g_app.count = std::stoul(argv[3]);
    g_app.end = argv[4];
    Connect();
    FindMemory();
    OpenAll(argv[2]);
    BadPolls();
    OddAccesses();
    std::puts("opened");
    std::fflush(stdout);
    Subscribe();
    Poll(g_app.end == "static" ? g_app.count - 1 : g_app.count);
    if (g_app.end == "static") {
        g_staticPoller.upTo = g_app.count;
        return 0;
    }
    if (g_app.end == "strict") {
        PollStrictly();
    }
    if (MoreAfter(argv[2], wake)) {
        Poll(2 * g_app.count);
    }
    WriteOut();
    if (g_app.end == "wait") {
        std::puts("waits");
        std::fflush(stdout);
        pause();
    }
    CloseAll();
    return 0;
}
