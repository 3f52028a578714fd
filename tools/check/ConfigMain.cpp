#include <CLI/CLI.hpp>
#include <string>

#include "check/Commands.h"
#include "program/Program.h"

namespace ZceCheck {

int ConfigMain(int argc, const char* const* argv) {
    CLI::App app{"Says what a configuration file of the library will do, before the session.",
                 "zce-check"};
    std::string file;
    app.add_option("CONFIG", file, "The configuration file")->required();
    if (const auto status = ZceProgram::ReadCommandLine(app, argc, argv)) {
        return *status;
    }
    return ZceProgram::EXIT_FINE;
}

}  // namespace ZceCheck
