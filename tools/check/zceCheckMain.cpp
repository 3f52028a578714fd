#include <cstdio>
#include <exception>

#include "check/Commands.h"
#include "program/Program.h"

// zce-check: what will the day bring, asked before the session. The exit status is Commands.h's.

namespace {

int Main(int argc, const char* const* argv) {
    return ZceCheck::ConfigMain(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
    ZceProgram::IgnoreBrokenPipes();
    try {
        return ZceProgram::FinishOutput("zce-check", Main(argc, argv));
    } catch (const std::exception& error) {  // out of memory
        fprintf(stderr, "zce-check: %s\n", error.what());
        return ZceProgram::EXIT_NOT_DONE;
    }
}
