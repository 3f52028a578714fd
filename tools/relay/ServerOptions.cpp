#include "relay-tool/ServerOptions.h"

namespace ZceRelay {

void AddServerOptions(const ZceProgram::CArguments& app, ServerOptions& options) {
    app.Option("--server", options.server,
               "Address of the NATS server, nats://HOST:PORT; several of a cluster with commas "
               "between. Without: that of the settings file, or nats://127.0.0.1:4222");
    app.Option("--settings", options.settingsFile,
               "An INI file whose section [nats] has the server, user and password, token, "
               "nkey or credentials, and the files for TLS");
}

bool SettingsOf(const ServerOptions& options, Settings& settings, std::string& error) {
    if (!options.settingsFile.empty() && !ReadSettings(options.settingsFile, settings, error)) {
        return false;
    }
    std::string why;
    if (options.server && !TakeServer(*options.server, settings, why)) {
        error = "--server: " + why;
        return false;
    }
    return true;
}

}  // namespace ZceRelay
