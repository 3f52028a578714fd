#pragma once

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace velatest {

constexpr int COULD_NOT_RUN = 99;

// Runs `body` (returning a status of 0 to 98) in a forked child that is no root, whoever runs the
// test, so that permissions count. Returns its status; COULD_NOT_RUN if there was no such child or
// it crashed. The child writes to the test's standard output and error.
template <class Body>
int RunAsUser(Body body) {
    constexpr unsigned int nobody = 65534;
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 &&
            (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0)) {
            _exit(COULD_NOT_RUN);
        }
        const int status = body();
        std::fflush(nullptr);
        _exit(status);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
        return COULD_NOT_RUN;
    }
    return WEXITSTATUS(status);
}

}  // namespace velatest
