#include "check/InstrumentNames.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <sstream>
#include <string_view>

#include "DataType/ZceSubsMasks.h"
#include "VelaZceBinFile.h"
#include "check/IniLines.h"
#include "program/RegularFile.h"

namespace ZceCheck {

namespace {

constexpr unsigned MAX_INDEX = std::numeric_limits<unsigned short>::max();

// The next free index of each table, for a list that has none.
using Next = std::array<unsigned, 2>;

bool ToNumber(std::string_view text, unsigned& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && !text.empty();
}

// "index,type,name": false if it is no such line.
bool SplitListed(std::string_view line, unsigned& index, std::string_view& name) {
    const auto first = line.find(',');
    const auto second = first == std::string_view::npos ? first : line.find(',', first + 1);
    unsigned type = 0;
    if (second == std::string_view::npos || !ToNumber(line.substr(0, first), index) ||
        !ToNumber(line.substr(first + 1, second - first - 1), type)) {
        return false;
    }
    name = line.substr(second + 1);
    return true;
}

// The empty text, or why the line is refused.
std::string AddLine(std::string_view line, InstrumentNames& names, Next& next) {
    std::string_view name = line;
    unsigned index = 0;
    if (!SplitListed(line, index, name)) {
        const bool bSingle = Vela2_U50::KindOfInst(name) == Vela2_U50::InstKind_t::single;
        index = next[bSingle ? 0 : 1]++;
    }
    if (name.empty() || !std::all_of(name.begin(), name.end(),
                                     [](char letter) { return letter > ' ' && letter < 127; })) {
        return fmt::format("\"{}\" is not one instrument's name", line);
    }
    if (index > MAX_INDEX) {
        return fmt::format("the index {} is above {}", index, MAX_INDEX);
    }
    if (!names.byName.emplace(name, static_cast<unsigned short>(index)).second) {
        return fmt::format("{} is there twice", name);
    }
    return {};
}

// The whole of a file or a pipe, "-" being standard input.
bool ReadList(const std::string& path, std::string& all, std::string& reason) {
    const bool bStandardInput = path == "-";
    const int descriptor = bStandardInput ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        reason = std::strerror(errno);
        return false;
    }
    bool bRead = ZceProgram::ReadUpTo(descriptor, ZceProgram::MAX_FILE_BYTES, all, reason);
    if (bRead && all.size() > ZceProgram::MAX_FILE_BYTES) {  // a device may never end
        reason = "has more than 16 MiB";
        bRead = false;
    }
    if (!bStandardInput) {
        close(descriptor);
    }
    return bRead;
}

}  // namespace

bool ReadNameList(const std::string& path, InstrumentNames& names, std::string& error) {
    names.source = path == "-" ? "standard input" : path;
    std::string all;
    if (!ReadList(path, all, error)) {
        error = names.source + ": " + error;
        return false;
    }
    std::istringstream in(all);
    Next next{};
    unsigned number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        const std::string_view text = Trimmed(std::string_view(line).substr(0, line.find('#')));
        const std::string reason = text.empty() ? "" : AddLine(text, names, next);
        if (!reason.empty()) {
            error = fmt::format("{}:{}: {}", names.source, number, reason);
            return false;
        }
    }
    if (names.byName.empty()) {
        error = names.source + ": there is no instrument in it";
        return false;
    }
    return true;
}

bool ReadBinFile(const std::string& path, InstrumentNames& names, std::string& error) {
    names.source = path;
    CTernBinFile file(names.byName, 0);
    const int descriptor = ZceProgram::OpenRegular(path, error);
    if (descriptor < 0) {
        error = path + ": " + error;
        return false;
    }
    close(descriptor);
    errno = 0;
    if (file.Intrade_OpenFile(path.c_str()) != 0 || file.Intrade_GetAllInstFromBin() != 0) {
        error = fmt::format("{}: {}", path, std::strerror(errno != 0 ? errno : EIO));
        return false;
    }
    if (names.byName.empty()) {
        error = path + ": there is no instrument in it";
        return false;
    }
    names.bIncomplete = !file.Intrade_IsBinComplete();
    return true;
}

}  // namespace ZceCheck
