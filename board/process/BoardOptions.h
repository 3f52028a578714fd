#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "exchange/Instruments.h"
#include "traffic/LiveTraffic.h"

namespace ZceBoard {

// The command line of zce-board.
struct Options {
    std::optional<uint32_t> bus;
    LiveOptions live;
    std::string instruments;
    std::string products;
    std::optional<std::string> feeds;
    std::string scenario;
    std::string replay;
    int64_t speedMilli = 1000;  // 0: as fast as can be
    std::string relay;
    std::string relaySettings;
    std::string relayStream;
    bool bRelayFromStart = false;
    std::string clockFile;
    std::optional<gid_t> group;  // which may use the board beside the user
    uint32_t accessNs = 0;       // what an access to a register takes at least
    bool bList = false;
    std::vector<std::string> command;  // that runs beside the board
};

// Nothing if the board is to start; else the program's exit status: --help or --version was
// answered, or a usage error is told on standard error.
std::optional<int> ParseOptions(int argc, char** argv, Options& options);

// The instruments of --products or --instruments; false with the reason in `error`.
bool ReadInstruments(const Options& options, CInstrumentList& list, std::string& error);

}  // namespace ZceBoard
