#include <cstdio>
#include <string_view>

#include "program/CommandLine.h"
#include "program/Program.h"
#include "relay-tool/Commands.h"

// zce-relay: a board's messages on other machines. The exit status is Commands.h's.

namespace {

int Main(int argc, const char* const* argv) {
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "publish") {
        return ZceRelay::PublishMain(argc - 1, argv + 1);
    }
    if (command == "subscribe") {
        return ZceRelay::SubscribeMain(argc - 1, argv + 1);
    }
    const ZceProgram::CCommandLine app{
        "zce-relay", "Takes a board's messages to other machines, through a NATS server."};
    app.Footer(
        "zce-relay publish CONFIG ...    receives a channel and publishes its messages\n"
        "zce-relay subscribe ...         writes what is published into a capture, or checks it\n"
        "zce-board --relay nats://...    plays it to the applications of another machine\n"
        "\n"
        "Each command has its own --help. Manual page: zce-relay(1).");
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    fputs("zce-relay: a command is missing: publish or subscribe; see zce-relay --help\n", stderr);
    return ZceProgram::EXIT_NOT_DONE;
}

}  // namespace

int main(int argc, char** argv) {
    const auto body = [](int count, const char* const* arguments) {
        return ZceProgram::FinishOutput("zce-relay", Main(count, arguments));
    };
    return ZceProgram::RunMain("zce-relay", body, argc, argv);
}
