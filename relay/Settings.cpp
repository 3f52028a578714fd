#include "relay/Settings.h"

#include <fmt/format.h>
#include <iniparser.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "relay/Wire.h"

namespace ZceRelay {

namespace {

constexpr std::string_view SECTION = "nats:";

enum class Value { Text, File };

struct Key {
    const char* name;
    Value value;
    std::string Settings::*place;
};

constexpr Key KEYS[] = {
    {"server", Value::Text, &Settings::server},
    {"user", Value::Text, &Settings::user},
    {"password", Value::Text, &Settings::password},
    {"token", Value::Text, &Settings::token},
    {"nkey", Value::Text, &Settings::nkey},
    {"nkey_seed", Value::File, &Settings::nkeySeed},
    {"credentials", Value::File, &Settings::credentials},
    {"ca", Value::File, &Settings::ca},
    {"certificate", Value::File, &Settings::certificate},
    {"key", Value::File, &Settings::key},
};

int Quiet(const char* /*format*/, ...) {  // NOLINT(cert-dcl50-cpp): the parser's type
    return 0;
}

using Ini = std::unique_ptr<dictionary, decltype(&iniparser_freedict)>;

Ini Load(const std::string& path) {
    iniparser_set_error_callback(Quiet);
    Ini ini(iniparser_load(path.c_str()), iniparser_freedict);
    iniparser_set_error_callback(nullptr);
    return ini;
}

std::string KeyNames() {
    std::string names = "tls";
    for (const Key& key : KEYS) {
        names = fmt::format("{}, {}", key.name, names);
    }
    return names;
}

bool TakeKey(const std::string& path, std::string_view name, const std::string& value,
             Settings& settings, std::string& error) {
    if (name == "tls") {
        settings.bTls = value == "yes";
        if (value != "yes" && value != "no") {
            error = fmt::format("{}: [nats] tls = {}: yes or no is needed", path, value);
        }
        return error.empty();
    }
    const auto* const key = std::find_if(std::begin(KEYS), std::end(KEYS),
                                         [name](const Key& k) { return k.name == name; });
    if (key == std::end(KEYS)) {
        error = fmt::format("{}: [nats] {}: there is no such key; the keys are {}", path, name,
                            KeyNames());
        return false;
    }
    if (value.empty()) {
        error = fmt::format("{}: [nats] {}: the value is missing", path, name);
        return false;
    }
    std::string& place = settings.*key->place;
    place = value;
    if (key->value == Value::File) {
        place = std::filesystem::path(path).parent_path() / value;
        if (access(place.c_str(), R_OK) != 0) {
            error = fmt::format("{}: [nats] {}: {}: {}", path, name, place, strerror(errno));
            return false;
        }
    }
    return true;
}

// What belongs together is there together.
bool IsWhole(const std::string& path, const Settings& settings, std::string& error) {
    const auto pair = [&path, &error](const std::string& one, const char* name,
                                      const std::string& other, const char* otherName) {
        if (one.empty() == other.empty()) {
            return true;
        }
        error = fmt::format("{}: [nats] {} needs {} as well", path, one.empty() ? otherName : name,
                            one.empty() ? name : otherName);
        return false;
    };
    return pair(settings.user, "user", settings.password, "password") &&
           pair(settings.nkey, "nkey", settings.nkeySeed, "nkey_seed") &&
           pair(settings.certificate, "certificate", settings.key, "key");
}

}  // namespace

bool ReadSettings(const std::string& path, Settings& settings, std::string& error) {
    if (access(path.c_str(), R_OK) != 0) {
        error = fmt::format("{}: {}", path, strerror(errno));
        return false;
    }
    const Ini ini =
        std::filesystem::is_regular_file(path) ? Load(path) : Ini(nullptr, iniparser_freedict);
    if (ini == nullptr) {
        error = path + ": not an INI file";
        return false;
    }
    const int count = iniparser_getsecnkeys(ini.get(), "nats");
    std::vector<const char*> keys(static_cast<size_t>(std::max(count, 0)));
    if (keys.empty() || iniparser_getseckeys(ini.get(), "nats", keys.data()) == nullptr) {
        error = path + ": there is no section [nats]";
        return false;
    }
    for (const char* key : keys) {
        const std::string value = iniparser_getstring(ini.get(), key, "");
        if (!TakeKey(path, key + SECTION.size(), value, settings, error)) {
            return false;
        }
    }
    if (!IsWhole(path, settings, error)) {
        return false;
    }
    std::string why;
    if (!TakeServer(std::string(settings.server), settings, why)) {
        error = fmt::format("{}: [nats] server: {}", path, why);
        return false;
    }
    return true;
}

bool TakeServer(const std::string& server, Settings& settings, std::string& error) {
    if (server.find('@') != std::string::npos) {
        error =
            "a user, a password or a token does not belong into an address, which is told in "
            "messages: use the keys user, password and token of the settings file";
        return false;
    }
    const std::vector<std::string_view> addresses = SplitText(server, ',');
    if (std::any_of(addresses.begin(), addresses.end(), [](std::string_view a) {
            return a.empty() || a.find_first_of(" \t\"") != std::string_view::npos;
        })) {
        error = fmt::format(
            "\"{}\" is no address: nats://HOST:PORT is needed, several of a cluster "
            "with commas between",
            server);
        return false;
    }
    settings.server = server;
    return true;
}

}  // namespace ZceRelay
