#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

// A start's way through the configuration, and what came of it.
namespace velatest {

// What a channel's rules came to.
struct RulesSeen {
    std::vector<std::string> ids;
    std::vector<std::string> classes;
    bool all = false;
    bool options = false;
    bool ips = false;
    bool spd = false;
};

struct StartEffect {
    bool fails = false;
    unsigned int board = 0;
    unsigned int channel = 0;
    int cpu = -1;            // the CPU that the starting thread was bound to; -1: none
    unsigned int feeds = 3;  // the feed switch word
    std::vector<std::pair<unsigned long, unsigned long>> writes;  // registers and values, in order
    std::map<unsigned int, RulesSeen> rules;                      // of the channels that have any
    bool rulesCut = false;  // the rules of later channels were not read
};

// One line for comparing and for reading.
std::string Describe(const StartEffect& effect);

struct StartSeen {
    StartEffect effect;
    // Every line of the start: "STDERR text", then in their order "STDOUT text" and the log's
    // lines as "LEVEL text".
    std::vector<std::string> lines;
};

enum class As { caller, user };

// Starts with the file at `path` on a board whose fibres are all connected, as far as the
// configuration goes: load, board, CPU, and on channel 0 version, fibres, addresses, feeds, rules.
// As::user: by a process that is no root; of its effect only `fails` is told.
StartSeen RunStart(const std::string& path, As who);

// What binding a thread to the CPU comes to on this host; `same`: it is the only one anyway.
enum class Binding { refused, same, done };
Binding TryBinding(int cpu);

}  // namespace velatest
