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

std::map<std::string, std::string> CRotations::Links() const {
    std::map<std::string, std::string> links;
    for (const auto& [place, file] : m_files) {
        const std::string before = PlaceOf(Beside(file, file.sidecar.previous));
        if (!file.sidecar.previous.empty() && m_files.count(before) != 0) {
            links.try_emplace(before, place);
        }
    }
    // What a file says itself counts more.
    for (const auto& [place, file] : m_files) {
        const std::string behind = PlaceOf(Beside(file, file.sidecar.next));
        if (!file.sidecar.next.empty() && m_files.count(behind) != 0) {
            links[place] = behind;
        }
    }
    return links;
}

std::vector<std::string> CRotations::Faults() const {
    std::vector<std::string> faults;
    const std::map<std::string, std::string> links = Links();
    std::set<std::string> notFirst;
    for (const auto& [place, behind] : links) {
        notFirst.insert(behind);
    }
    std::set<std::string> done;
    for (const auto& [place, file] : m_files) {
        AddAbsent(file, faults);
        if (notFirst.count(place) != 0) {
            continue;
        }
        Streams streams;
        std::string at = place;
        while (!at.empty() && done.insert(at).second) {
            Follow(m_files.at(at), streams, faults);
            const auto link = links.find(at);
            at = link != links.end() ? link->second : "";
        }
    }
    return faults;
}

}  // namespace ZceCaptureTool
