#pragma once

#include <string>

namespace ZceRelay {

// Where the NATS server is and how it knows this program. Who is who stands in a file, never on a
// command line, which every user of the machine can read.
struct Settings {
    std::string server = "nats://127.0.0.1:4222";  // several with commas between: a cluster
    std::string user;
    std::string password;
    std::string token;
    std::string nkey;         // the public key
    std::string nkeySeed;     // file of the seed
    std::string credentials;  // file as nsc makes it: a user's JWT and seed
    std::string ca;           // file of the certificates that are trusted
    std::string certificate;  // file of this program's own, with key
    std::string key;
    bool bTls = false;
};

// Reads the section [nats] of an INI file into `settings`; files that it names are relative to its
// own place. False: `error` names the file, the key and the reason.
bool ReadSettings(const std::string& path, Settings& settings, std::string& error);

// Puts the servers of a command line in place of those of the file. False: `error` says what is
// wrong with them: an address that has a password in it, above all.
bool TakeServer(const std::string& server, Settings& settings, std::string& error);

}  // namespace ZceRelay
