#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace velatest {

// What a command of the shell printed to standard output, and its exit status.
struct ProgramRun {
    std::string text;
    int status = -1;

    explicit ProgramRun(const std::string& command) {
        // NOLINTNEXTLINE(bugprone-command-processor,cert-env33-c): the tests' own command lines
        std::FILE* const pipe = popen(command.c_str(), "r");
        if (pipe == nullptr) {
            return;
        }
        char piece[4096];
        std::size_t size = 0;
        while ((size = std::fread(piece, 1, sizeof(piece), pipe)) > 0) {
            text.append(piece, size);
        }
        const int ended = pclose(pipe);
        status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
    }
};

}  // namespace velatest
