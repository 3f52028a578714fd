#include <nlohmann/json.hpp>

#include "check/Machine.h"

namespace ZceMachine {

std::string AsJson(const std::vector<Result>& results) {
    nlohmann::ordered_json json = {{"status", ExitStatus(results)},
                                   {"results", nlohmann::ordered_json::array()}};
    for (const Result& result : results) {
        json["results"].push_back({{"check", result.check},
                                   {"level", Word(result.level)},
                                   {"found", result.found},
                                   {"advice", result.advice}});
    }
    // File names may be any bytes.
    return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace ZceMachine
