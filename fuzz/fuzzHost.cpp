#include "fuzzHost.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace velafuzz {

namespace {

// The library may open a file by its name alone: the working directory is the target's.
std::string& OwnDirectory() {
    static std::string directory;
    return directory;
}

}  // namespace

void Broken(const char* rule, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: broken rule: %s\n", file, line, rule);
    std::abort();
}

void SilenceOutput() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    FUZZ_CHECK(nowhere != -1 && dup2(nowhere, STDOUT_FILENO) != -1);
    close(nowhere);
}

void EnterOwnDirectory() {
    const char* parent = std::getenv("TMPDIR");
    OwnDirectory() = std::string(parent == nullptr ? "/dev/shm" : parent) + "/velafuzz.XXXXXX";
    FUZZ_CHECK(mkdtemp(OwnDirectory().data()) != nullptr);
    FUZZ_CHECK(chdir(OwnDirectory().c_str()) == 0);
    std::atexit([] {
        std::error_code error;
        std::filesystem::remove_all(OwnDirectory(), error);
    });
}

void PrepareBoard() {
    static bool bPrepared = false;
    if (std::exchange(bPrepared, true)) {
        return;
    }
    SilenceOutput();
    EnterOwnDirectory();
    const std::string prefix = "velafuzz" + std::to_string(getpid()) + "-";
    FUZZ_CHECK(setenv("ZCE_BOARD_SHM_PREFIX", prefix.c_str(), 0) == 0);
}

void WriteFile(const char* name, const std::string& content) {
    const int file = open(name, O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    FUZZ_CHECK(file != -1);
    FUZZ_CHECK(write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    close(file);
}

std::string ReadFile(const char* name) {
    std::string content;
    const int file = open(name, O_RDONLY | O_CLOEXEC);
    if (file == -1) {
        return content;
    }
    char piece[4096];
    for (ssize_t count = 0; (count = read(file, piece, sizeof(piece))) > 0;) {
        content.append(piece, static_cast<std::size_t>(count));
    }
    close(file);
    return content;
}

}  // namespace velafuzz
