#include <algorithm>
#include <string_view>

#include "check/Commands.h"
#include "program/Program.h"

// zce-check: what will the day bring, asked before the session. The exit status is Commands.h's.

namespace {

bool HasArgument(int argc, const char* const* argv, std::string_view argument) {
    return std::any_of(argv + 1, argv + std::max(argc, 1),
                       [argument](const char* given) { return given == argument; });
}

int Main(int argc, const char* const* argv) {
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "host") {
        return ZceCheck::HostMain(argc - 1, argv + 1);
    }
    if (command == "vendor") {
        return ZceCheck::VendorMain(argc - 1, argv + 1);
    }
    if (HasArgument(argc, argv, "--when")) {
        return ZceCheck::WhenMain(argc, argv);
    }
    return ZceCheck::ConfigMain(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
    const auto body = [](int count, const char* const* arguments) {
        return ZceProgram::FinishOutput("zce-check", Main(count, arguments));
    };
    return ZceProgram::RunMain("zce-check", body, argc, argv);
}
