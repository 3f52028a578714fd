#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "DataType/ZceConfigFile.h"
#include "DataType/ZceIniGuard.h"
#include "check/Commands.h"
#include "check/HostChecks.h"
#include "program/CommandLine.h"
#include "program/Program.h"
#include "program/RegularFile.h"

namespace ZceCheck {

namespace {

// What the file says of the CPU; nothing, with the reason told, if it cannot be loaded.
ZceMachine::CpuCore LoadCpuCore(const std::string& path) {
    std::string reason;
    const int descriptor = ZceProgram::OpenRegular(path, reason);
    if (descriptor < 0) {
        fprintf(stderr, "zce-check: %s: %s\n", path.c_str(), reason.c_str());
        return std::nullopt;
    }
    close(descriptor);
    const std::unique_ptr<dictionary, void (*)(dictionary*)> loaded(
        Vela2_U50::ZceIniLoad(path.c_str()), iniparser_freedict);
    if (loaded == nullptr) {
        fprintf(stderr, "zce-check: %s cannot be loaded\n", path.c_str());
        return std::nullopt;
    }
    return Vela2_U50::ZceCpuCoreOf(loaded.get());
}

}  // namespace

int HostMain(int argc, const char* const* argv) {
    const ZceProgram::CCommandLine app{
        "zce-check host",
        "Tells whether this machine is fit for a receiving process. Exit status 1 if there "
        "are warnings, 2 if there are errors."};
    ZceMachine::HostPlaces places;
    std::optional<std::string> config;
    bool bLab = false;
    bool bJson = false;
    app.Option("--config", config, "The configuration of the process: its cpucore is looked at");
    app.Option("--dir", places.work, "The directory that the master is started in").ShowDefault();
    app.Flag("--lab", bLab, "The software board is used: no card and no driver is needed");
    app.Flag("--json", bJson, "The answer as JSON");
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    ZceMachine::CpuCore core;
    if (config) {
        core = LoadCpuCore(*config);
        if (!core) {
            return ZceProgram::EXIT_NOT_DONE;
        }
    }
    const auto results = ZceMachine::CheckHost(places, core, bLab);
    const std::string text = bJson ? ZceMachine::AsJson(results) : ZceMachine::AsText(results);
    fputs(text.c_str(), stdout);
    return ZceMachine::ExitStatus(results);
}

}  // namespace ZceCheck
