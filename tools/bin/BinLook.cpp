#include "bin/BinLook.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

#include "VelaZceBinFormat.h"
#include "VelaZceBinRead.h"
#include "program/Moment.h"
#include "program/RegularFile.h"

namespace ZceBin {

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// The bytes as an open file, for the library's reader.
File OpenBytes(std::string& bytes) {
    return {fmemopen(bytes.data(), bytes.size(), "r"), std::fclose};
}

bool IsTimeOrEnd(const std::string& line) {
    return line.starts_with(ZCE_BIN_TIME_PREFIX) || line.starts_with(ZCE_BIN_END_TAG);
}

void ReadInsts(std::FILE* file, BinLook& look) {
    std::rewind(file);
    unsigned int number = 0;
    bool bLineBegins = true;
    for (std::string piece; ZceBinReadPiece(file, piece); bLineBegins = piece.back() == '\n') {
        ++number;
        std::string name;
        unsigned short index = 0;
        if (ZceBinParseInst(piece.c_str(), name, index)) {
            look.insts[name] = index;
        } else if (!bLineBegins || !IsTimeOrEnd(piece)) {
            const std::size_t size = piece.size() - (piece.back() == '\n' ? 1 : 0);
            look.skipped.push_back({number, piece.substr(0, size)});
        }
    }
}

Verdict Judge(const BinLook& look, const VORBA2::LocalMoment_t& at) {
    if (!VORBA2::IsTradeTime(at.time)) {
        return Verdict::NotRead;
    }
    if (!look.bComplete) {
        return Verdict::Incomplete;
    }
    if (!look.time) {
        return Verdict::NoTime;
    }
    return ZceBinIsOfSession(*look.time, at) ? Verdict::Believed : Verdict::OtherSession;
}

// A bound of the rules, which are bounds of numbers: 102999 is 10:29:59.
std::string ClockText(unsigned long bound) {
    const auto time = static_cast<unsigned int>(bound);
    return ZceProgram::TimeText(time / 10000 * 10000 + std::min(time / 100 % 100, 59U) * 100 +
                                std::min(time % 100, 59U));
}

}  // namespace

BinLook LookAtBin(const std::string& bytes, const VORBA2::LocalMoment_t& at) {
    BinLook look;
    std::string copy = bytes;
    if (const File file = OpenBytes(copy)) {
        std::string line;
        look.bComplete = ZceBinFindLine(file.get(), ZCE_BIN_END_TAG, line);
        if (ZceBinFindLine(file.get(), ZCE_BIN_TIME_PREFIX, line)) {
            look.time = ZceBinTimeOf(line);
        }
        ReadInsts(file.get(), look);
    }
    look.verdict = Judge(look, at);
    return look;
}

std::string CreationTimeText(unsigned long time) {
    constexpr unsigned long firstYear = 1000 * 10000UL;
    const unsigned long date = time / ZCE_BIN_DATE_UNIT;
    if (date < firstYear || date >= 10 * firstYear) {
        return std::to_string(time);
    }
    return MomentText(ZceProgram::Moment{static_cast<unsigned int>(date),
                                         static_cast<unsigned int>(time % ZCE_BIN_DATE_UNIT)});
}

std::string ReasonOf(const BinLook& look, const VORBA2::LocalMoment_t& at) {
    const std::string now = MomentText(ZceProgram::Moment{at.date, at.time});
    switch (look.verdict) {
        case Verdict::Believed:
            return {};
        case Verdict::NotRead:
            return fmt::format(
                "{} is outside trading time: a start does not read it, it empties it", now);
        case Verdict::Incomplete:
            return fmt::format("it is not complete: no line begins with {}", ZCE_BIN_END_TAG);
        case Verdict::NoTime:
            return fmt::format("it has no time: no line begins with {}", ZCE_BIN_TIME_PREFIX);
        case Verdict::OtherSession:
            break;
    }
    const ZceBinSession_t session = ZceBinSessionAt(at.time);
    return fmt::format(
        "its time is not of this session: a start at {} believes {} to {} of the day", now,
        ClockText(session.ulBegin), ClockText(session.ulEnd));
}

std::optional<std::string> ReadBin(const std::string& path, std::string& reason) {
    const int descriptor = path == "-" ? STDIN_FILENO : ZceProgram::OpenRegular(path, reason);
    if (descriptor < 0) {
        return std::nullopt;
    }
    std::string bytes;
    const bool bRead = ZceProgram::ReadUpTo(descriptor, ZceProgram::MAX_FILE_BYTES, bytes, reason);
    if (descriptor != STDIN_FILENO) {
        close(descriptor);
    }
    if (!bRead) {
        return std::nullopt;
    }
    if (bytes.size() > ZceProgram::MAX_FILE_BYTES) {
        reason = "has more than 16 MiB: no cache file has";
        return std::nullopt;
    }
    if (const std::size_t zero = bytes.find('\0'); zero != std::string::npos) {
        reason = fmt::format("is no text: byte {} is zero", zero);
        return std::nullopt;
    }
    return bytes;
}

std::string Printable(const std::string& text) {
    std::string shown;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte >= 0x7F) {
            shown += fmt::format("\\x{:02x}", byte);
        } else {
            shown += character;
        }
    }
    return shown;
}

}  // namespace ZceBin
