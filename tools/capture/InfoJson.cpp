#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "capture/ZceCapture.h"
#include "capturetool/Info.h"
#include "capturetool/LocalTime.h"

namespace ZceCaptureTool {

namespace {

using nlohmann::ordered_json;

ordered_json BusJson(uint16_t bus) {
    return bus == ZCE_CAPTURE_BUS_UNKNOWN ? ordered_json() : ordered_json(bus);
}

ordered_json TimeJson(int64_t timeNs) {
    return {{"ns", timeNs}, {"local", std::string(CTimeWriter().Iso(timeNs))}};
}

ordered_json MissingJson(const Missing& missing) {
    return {{"places", missing.places}, {"messages", missing.numbers}};
}

ordered_json StreamJson(const StreamId& id, const StreamScan& stream) {
    ordered_json json = {{"bus", BusJson(id.bus)},
                         {"channel", id.channel},
                         {"opening", id.opening},
                         {"messages", stream.all.messages},
                         {"bytes", stream.all.bytes},
                         {"first", TimeJson(stream.firstNs)},
                         {"last", TimeJson(stream.lastNs)},
                         {"first_number", stream.firstNumber},
                         {"last_number", stream.lastNumber},
                         {"left_out", MissingJson(stream.recorder)},
                         {"numbers_not_rising", stream.notRising},
                         {"board_sequence", ordered_json()},
                         {"types", ordered_json::array()}};
    if (stream.bodies != 0) {
        json["board_sequence"] = {{"bodies", stream.bodies},
                                  {"first", stream.firstSeq},
                                  {"last", stream.lastSeq},
                                  {"missing", MissingJson(stream.board)},
                                  {"not_rising", stream.seqNotRising}};
    }
    for (const auto& [type, count] : stream.types) {
        json["types"].push_back(
            {{"type", type}, {"messages", count.messages}, {"bytes", count.bytes}});
    }
    if (stream.otherTypes.messages != 0) {
        json["types"].push_back({{"type", ordered_json()},
                                 {"messages", stream.otherTypes.messages},
                                 {"bytes", stream.otherTypes.bytes}});
    }
    return json;
}

ordered_json RatesJson(const CScan& scan) {
    ordered_json json = {{"mean_per_s", ordered_json()}, {"peaks", ordered_json::array()}};
    if (scan.DurationNs() != 0) {
        json["mean_per_s"] =
            static_cast<double>(scan.All().messages) * 1e9 / static_cast<double>(scan.DurationNs());
    }
    for (const CPeakWindow& peak : scan.Peaks()) {
        json["peaks"].push_back({{"window_ns", peak.LengthNs()},
                                 {"messages", peak.Peak()},
                                 {"to", TimeJson(peak.PeakNs())}});
    }
    return json;
}

ordered_json BurstsJson(const CBursts& bursts) {
    ordered_json json = {
        {"gap_ns", bursts.GapNs()}, {"counts", ordered_json::array()}, {"largest", ordered_json()}};
    for (std::size_t k = 0; k < CBursts::AT_LEAST.size(); ++k) {
        json["counts"].push_back({{"at_least", CBursts::AT_LEAST[k]}, {"bursts", bursts.Count(k)}});
    }
    if (const CBursts::Burst& largest = bursts.Largest(); largest.messages != 0) {
        json["largest"] = {{"messages", largest.messages},
                           {"duration_ns", NsBetween(largest.firstNs, largest.lastNs)},
                           {"from", TimeJson(largest.firstNs)}};
    }
    return json;
}

ordered_json GapJson(const Gap& gap) {
    return {{"numbering", gap.kind == Gap::Kind::Recorder ? "recorder" : "board"},
            {"bus", BusJson(gap.stream.bus)},
            {"channel", gap.stream.channel},
            {"opening", gap.stream.opening},
            {"packet", gap.packet},
            {"time", TimeJson(gap.timeNs)},
            {"last", gap.last},
            {"next", gap.next},
            {"missing", gap.missing}};
}

const char* EndName(Ending ending) {
    return ending == Ending::Whole ? "whole" : ending == Ending::Cut ? "cut" : "bad";
}

ordered_json FileJson(const CScan& scan) {
    ordered_json json = {{"file", scan.Path()},
                         {"bytes", scan.FileBytes()},
                         {"packets", scan.Packets()},
                         {"end", EndName(scan.End())},
                         {"error", scan.Error()},
                         {"messages", scan.All().messages},
                         {"message_bytes", scan.All().bytes},
                         {"lost", scan.LostTold()}};
    if (scan.All().messages == 0) {
        return json;
    }
    json["first"] = TimeJson(scan.FirstNs());
    json["last"] = TimeJson(scan.LastNs());
    json["duration_ns"] = scan.DurationNs();
    json["rate"] = RatesJson(scan);
    json["bursts"] = BurstsJson(scan.Bursts());
    json["bodies"] = {{"market", scan.Market()}, {"software_board", scan.Bodies()}};
    json["streams"] = ordered_json::array();
    for (const auto& [id, stream] : scan.Streams()) {
        json["streams"].push_back(StreamJson(id, stream));
    }
    json["gaps"] = ordered_json::array();
    for (const Gap& gap : scan.Gaps()) {
        json["gaps"].push_back(GapJson(gap));
    }
    json["gap_count"] = scan.GapCount();
    return json;
}

}  // namespace

std::string InfoJson(const std::vector<CScan>& scans) {
    ordered_json json = {{"files", ordered_json::array()}};
    for (const CScan& scan : scans) {
        json["files"].push_back(FileJson(scan));
    }
    return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace ZceCaptureTool
