#pragma once

#include <optional>
#include <string>

#include "program/CommandLine.h"
#include "relay/Settings.h"

namespace ZceRelay {

// The options that say which server, alike for all commands.
struct ServerOptions {
    std::optional<std::string> server;
    std::string settingsFile;
};

void AddServerOptions(const ZceProgram::CArguments& app, ServerOptions& options);
// What they and the file say together; false with the reason.
bool SettingsOf(const ServerOptions& options, Settings& settings, std::string& error);

}  // namespace ZceRelay
