#include "capturetool/Rotation.h"

#include <fmt/format.h>

#include <filesystem>
#include <set>
#include <system_error>

#include "capturetool/Names.h"

namespace ZceCaptureTool {

namespace {

namespace fs = std::filesystem;

std::string PlaceOf(const std::string& path) {
    std::error_code unknown;
    const fs::path place = fs::weakly_canonical(path, unknown);
    return unknown ? path : place.string();
}

}  // namespace

void CRotations::Add(const std::string& path, const ZceCapture::Sidecar& sidecar) {
    m_files.try_emplace(PlaceOf(path), File{path, sidecar});
}

std::string CRotations::Beside(const File& file, const std::string& neighbour) {
    return neighbour.empty() ? "" : (fs::path(file.path).parent_path() / neighbour).string();
}

void CRotations::AddAbsent(const File& file, std::vector<std::string>& faults) const {
    const std::pair<const char*, std::string> neighbours[] = {
        {"before", Beside(file, file.sidecar.previous)},
        {"behind", Beside(file, file.sidecar.next)}};
    for (const auto& [where, path] : neighbours) {
        std::error_code unknown;
        if (!path.empty() && !fs::exists(path, unknown)) {
            faults.push_back(
                fmt::format("{}: MISSING FILE: the one {} it in its rotation, {}, is not "
                            "there: look where the recordings are kept",
                            file.path, where, path));
        }
    }
}

void CRotations::Follow(const File& file, Streams& streams, std::vector<std::string>& faults) {
    for (const ZceCapture::Sidecar::Stream& stream : file.sidecar.streams) {
        Known& now = streams[{stream.bus, stream.channel, stream.opening}];
        if (stream.messages == 0) {
            now.spare += stream.lost;
            continue;
        }
        // The numbers count the lost ones; those between two messages of the file are inside.
        const uint64_t inside = stream.last - stream.first + 1 - stream.messages;
        const uint64_t spare = now.spare + (stream.lost > inside ? stream.lost - inside : 0);
        if (now.last == 0) {  // what came before it is not known
            now = {stream.last, spare, file.path};
            continue;
        }
        const uint64_t between = stream.first > now.last ? stream.first - now.last - 1 : 0;
        if (stream.first <= now.last) {
            faults.push_back(fmt::format(
                "{}: NOT CONTINUOUS: bus {} channel {} opening {} begins with number {}, "
                "and {} ends with {}",
                file.path, BusText(stream.bus), stream.channel, stream.opening, stream.first,
                now.path, now.last));
        } else if (between > spare) {
            faults.push_back(fmt::format(
                "{}: NOT CONTINUOUS: bus {} channel {} opening {}: {} messages are missing between "
                "number {} in {} and {}",
                file.path, BusText(stream.bus), stream.channel, stream.opening, between - spare,
                now.last, now.path, stream.first));
        }
        now = {stream.last, spare > between ? spare - between : 0, file.path};
    }
}

std::vector<std::string> CRotations::Faults() const {
    std::vector<std::string> faults;
    std::set<std::string> done;
    for (const auto& [place, file] : m_files) {
        AddAbsent(file, faults);
        const std::string before = Beside(file, file.sidecar.previous);
        if (!before.empty() && m_files.count(PlaceOf(before)) != 0) {
            continue;  // not the first of those that are here
        }
        Streams streams;
        std::string at = place;
        for (auto now = m_files.find(at); now != m_files.end() && done.insert(at).second;
             now = m_files.find(at)) {
            Follow(now->second, streams, faults);
            const std::string next = Beside(now->second, now->second.sidecar.next);
            at = next.empty() ? "" : PlaceOf(next);
        }
    }
    return faults;
}

}  // namespace ZceCaptureTool
