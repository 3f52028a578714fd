#pragma once

// What the library thinks of the machine, not printed.
namespace VORBA2 {

struct EnvVerdict_t {
    int result = 0;       // as CheckBeforeRun returns it: 0 may run, -1 must not
    char text[256] = {};  // what it prints, with its line end; empty for nothing
};

// The judgement that CheckBeforeRun prints and returns. It runs the same commands.
EnvVerdict_t JudgeEnvironment();

}  // namespace VORBA2
