#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "market.h"

namespace velatest {

// A message, as the recorder or the application wrote it down.
struct Taken {
    unsigned int channel = 0;
    std::string bytes;

    unsigned int Type() const {
        uint32_t type = 0;
        std::memcpy(&type, bytes.data(), sizeof(type));
        return type;
    }
    bool operator==(const Taken& other) const = default;
};

// The lines of an output that begin with these words.
inline std::vector<std::string> LinesThatBegin(const std::string& output, const std::string& with) {
    std::vector<std::string> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        if (line.rfind(with, 0) == 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

// A market with a board that is quick to learn its few instruments, and record-app on it.
class AppMarket : public Market {
  protected:
    void StartFastBoard(const std::string& rate = "20000") {
        constexpr unsigned int auction = 85000;
        StartClock(auction);
        WriteFile(Path("instruments"), "SR301\nSR305\nCF301\nSPD-SR301&SR305\n");
        StartBoard(
            {"--instruments", Path("instruments"), "--rate", rate, "--broadcast-cycle", "0.01"});
    }
    // In the directory `name`, where it writes what it polled to `name`-polled.
    std::unique_ptr<Process> App(const std::string& name, const std::string& channels, size_t count,
                                 const std::string& end) {
        const std::vector<std::string> command{RECORD_APP_PROGRAM, Path(name + "-polled"), channels,
                                               std::to_string(count), end};
        return std::make_unique<Process>(command, Where(name));
    }
    // What it wrote down there.
    std::vector<Taken> Polled(const std::string& name) const {
        const std::string all = ReadFile(Path(name + "-polled"));
        std::vector<Taken> messages;
        for (size_t at = 0; at < all.size();) {
            uint16_t channel = 0;
            uint32_t size = 0;
            std::memcpy(&channel, all.data() + at, sizeof(channel));
            std::memcpy(&size, all.data() + at + 2, sizeof(size));
            messages.push_back({channel, all.substr(at + 6, size)});
            at += 6 + size;
        }
        return messages;
    }
};

}  // namespace velatest
