#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "market.h"

namespace velatest {

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
};

}  // namespace velatest
