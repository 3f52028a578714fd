#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "check/Report.h"

namespace ZceCheck {

namespace {

using Json = nlohmann::ordered_json;

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json FindingJson(const Finding& finding) {
    const CodeInfo& info = InfoOf(finding.code);
    return {{"code", info.name},          {"severity", Word(info.severity)},
            {"line", finding.place.line}, {"section", finding.place.section},
            {"key", finding.place.key},   {"value", finding.place.value},
            {"message", finding.message}, {"hint", finding.hint}};
}

Json ChannelJson(const CheckResult& result, unsigned channel) {
    const Vela2_U50::ZceSubsInfo_t& rules = result.library.rules[channel];
    const std::optional<Counts>& counts = result.counts[channel];
    const auto count = [&](std::size_t Counts::*of) {
        return counts ? Json((*counts).*of) : Json(nullptr);
    };
    return {{"channel", channel},
            {"section", result.library.HasSection(ChannelSection(channel))},
            {"rules",
             {{"ids", rules.vecSubIds},
              {"classes", rules.vecSubClasses},
              {"all", rules.bSubAll != 0},
              {"options", rules.bOptionsRecv != 0},
              {"ips", rules.bIpsRecv != 0},
              {"spd", rules.bSpdRecv != 0}}},
            {"futures", count(&Counts::futures)},
            {"options", count(&Counts::options)},
            {"combinations", count(&Counts::combinations)}};
}

Json EndJson(const FeedEnd& end) {
    return {{"mac", OrNull(end.mac)}, {"ip", OrNull(end.ip)}, {"port", OrNull(end.port)}};
}

Json FeedJson(const Feed& feed) {
    return {{"feed", feed.name},
            {"on", feed.bOn},
            {"addresses", feed.items},
            {"opens", feed.bOpens},
            {"destination", EndJson(feed.destination)},
            {"source", EndJson(feed.source)}};
}

Json ProcessJson(const Understood& library) {
    if (!library.bStarts) {
        return nullptr;
    }
    return {{"bus", library.bus}, {"channel", library.channel}, {"cpu", OrNull(library.cpu)}};
}

Json RegistersJson(const Understood& library) {
    Json registers = Json::object();
    for (const auto& [number, value] : library.registers) {
        registers[fmt::format("0x{:x}", number)] = fmt::format("0x{:08x}", value);
    }
    return registers;
}

}  // namespace

std::string JsonReport(const CheckResult& result) {
    Json findings = Json::array();
    for (const Finding& finding : result.findings.All()) {
        findings.push_back(FindingJson(finding));
    }
    Json channels = Json::array();
    for (unsigned channel = 0; channel < CHANNELS && result.library.bLoaded; ++channel) {
        channels.push_back(ChannelJson(result, channel));
    }
    Json feeds = Json::array();
    for (std::size_t at = 0; at < result.feeds.size() && result.library.bLoaded; ++at) {
        feeds.push_back(FeedJson(result.feeds[at]));
    }
    const Json report = {
        {"file", result.file},
        {"status", result.Status()},
        {"errors", result.findings.Count(Severity::error)},
        {"warnings", result.findings.Count(Severity::warning)},
        {"process", ProcessJson(result.library)},
        {"instruments", result.listSource.empty() ? Json(nullptr) : Json(result.listSource)},
        {"findings", findings},
        {"channels", channels},
        {"feeds", feeds},
        {"registers", RegistersJson(result.library)}};
    // What is not UTF-8 in a file shows as the replacement character.
    return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace ZceCheck
