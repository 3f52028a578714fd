#pragma once

#include <optional>
#include <string>

#include "relay/Settings.h"

namespace CLI {
class App;
}

namespace ZceRelay {

// The options that say which server, alike for all commands.
struct ServerOptions {
    std::optional<std::string> server;
    std::string settingsFile;
};

void AddServerOptions(CLI::App& app, ServerOptions& options);
// What they and the file say together; false with the reason.
bool SettingsOf(const ServerOptions& options, Settings& settings, std::string& error);

}  // namespace ZceRelay
