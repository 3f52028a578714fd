#include "ctl/FaultCommands.h"

#include <fmt/format.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <optional>

#include "ctl/CtlBoard.h"
#include "ctl/CtlError.h"
#include "ctl/TextTable.h"
#include "memory/Control.h"
#include "memory/FaultText.h"

namespace ZceBoard {

namespace {

using Json = nlohmann::ordered_json;

std::vector<Fault> FaultsOn(const CFaults& faults) {
    std::vector<Fault> on;
    for (size_t k = 0; k < FAULT_KINDS; ++k) {
        if (faults.IsOn(static_cast<Fault>(k))) {
            on.push_back(static_cast<Fault>(k));
        }
    }
    return on;
}

// A name and the bounds of its number; null for a kind that does not take it.
Json KeyJson(const char* name, uint32_t min, uint32_t max) {
    return name == nullptr ? Json() : Json{{"key", name}, {"min", min}, {"max", max}};
}

// Waits until the board has seen what was set.
void AwaitFaults(CBoardMemory& memory, std::optional<Fault> kind) {
    const int err = AwaitPass(memory);
    const bool bKilled = err == ENODEV && kind == Fault::Crash;  // as it was asked to be
    if (err != 0 && !bKilled) {
        throw CCtlError(AnswerErrorText(memory, err));
    }
}

}  // namespace

std::string FaultsText(BoardShm& shm) {
    const CFaults faults(shm);
    CTextTable table({"fault", ">occasions", ">strikes"});
    const std::vector<Fault> on = FaultsOn(faults);
    for (const Fault kind : on) {
        const FaultWords& words = faults.Words(kind);
        const bool bCounted = InfoOf(kind).counted;
        table.Add({TextOf(faults.Setting(kind)),
                   bCounted ? std::to_string(words.occasions.load()) : "-",
                   bCounted ? std::to_string(words.strikes.load()) : "-"});
    }
    return on.empty() ? "no fault is on\n" : table.Text();
}

Json FaultsJson(BoardShm& shm) {
    const CFaults faults(shm);
    Json list = Json::array();
    for (const Fault kind : FaultsOn(faults)) {
        const FaultInfo& info = InfoOf(kind);
        const FaultSetting setting = faults.Setting(kind);
        Json& one = list.emplace_back();
        one["kind"] = info.name;
        if (info.target != nullptr) {
            one[info.target] = setting.target == FAULT_ANY ? Json() : Json(setting.target);
        }
        if (info.value != nullptr) {
            one[info.value] = setting.value;
        }
        if (info.counted) {
            one["every"] = setting.every;
            one["limit"] = setting.limit;
            one["occasions"] = faults.Words(kind).occasions.load();
            one["strikes"] = faults.Words(kind).strikes.load();
        }
    }
    return list;
}

std::string FaultKindsText() {
    return FaultHelp();
}

Json FaultKindsJson() {
    Json list = Json::array();
    for (size_t k = 0; k < FAULT_KINDS; ++k) {
        const FaultInfo& info = InfoOf(static_cast<Fault>(k));
        Json& one = list.emplace_back();
        one["kind"] = info.name;
        one["target"] = KeyJson(info.target, info.targetMin, info.targetMax);
        one["value"] = KeyJson(info.value, info.valueMin, info.valueMax);
        one["counted"] = info.counted;
        one["text"] = info.text;
    }
    return {{"kinds", list}};
}

std::string SwitchFaultOn(CBoardMemory& memory, const std::string& kind,
                          const std::vector<std::string>& settings) {
    std::vector<std::string> words{kind};
    words.insert(words.end(), settings.begin(), settings.end());
    FaultSetting setting{};
    std::string error;
    if (!ParseFault(words, setting, error)) {
        throw CCtlError("fault on: " + error);
    }
    CFaults(memory.Shm()).Set(setting);
    AwaitFaults(memory, setting.kind);
    return fmt::format("bus {}: {} is on\n", memory.Bus(), TextOf(setting));
}

std::string SwitchFaultOff(CBoardMemory& memory, const std::string& kind) {
    CFaults faults(memory.Shm());
    if (kind == "all") {
        faults.ClearAll();
        AwaitFaults(memory, std::nullopt);
        return fmt::format("bus {}: all faults are off\n", memory.Bus());
    }
    const std::optional<Fault> fault = FaultOf(kind);
    if (!fault) {
        throw CCtlError(
            fmt::format("fault off: no such fault: '{}'; there are all, {}", kind, FaultNames()));
    }
    faults.Clear(*fault);
    AwaitFaults(memory, std::nullopt);
    return fmt::format("bus {}: {} is off\n", memory.Bus(), kind);
}

}  // namespace ZceBoard
