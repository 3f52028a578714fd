#include "relay/Wire.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>

namespace ZceRelay {

namespace {

constexpr std::string_view PREFIX = "zce.";
constexpr std::string_view INSTRUMENTS = "instruments";
constexpr std::string_view MARK = "mark";

// Cuts the text up to `separator` off the front of `rest`: all of it if there is none.
std::string_view CutWord(std::string_view& rest, char separator) {
    const size_t end = rest.find(separator);
    const std::string_view word = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return word;
}

// A number in decimal, without sign, blanks and leading zeros: one way to write each.
template <class Number>
bool ReadNumber(std::string_view text, Number most, Number& number) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && text[0] != '-' &&
           (text[0] != '0' || text.size() == 1) && number <= most;
}

}  // namespace

std::string SubjectText(const Subject& subject) {
    switch (subject.kind) {
        case Kind::Instruments:
            return fmt::format("{}{}.{}", PREFIX, subject.bus, INSTRUMENTS);
        case Kind::Mark:
            return fmt::format("{}{}.{}.{}", PREFIX, subject.bus, subject.channel, MARK);
        case Kind::MarketData:
            break;
    }
    return fmt::format("{}{}.{}.{}", PREFIX, subject.bus, subject.channel, subject.type);
}

std::string WantedText(uint16_t bus) {
    return fmt::format("zce-wanted.{}", bus);
}

std::optional<Subject> ReadSubject(std::string_view text) {
    if (!text.starts_with(PREFIX)) {
        return std::nullopt;
    }
    text.remove_prefix(PREFIX.size());
    Subject subject;
    if (!ReadNumber(CutWord(text, '.'), std::numeric_limits<uint16_t>::max(), subject.bus)) {
        return std::nullopt;
    }
    if (text == INSTRUMENTS) {
        subject.kind = Kind::Instruments;
        return subject;
    }
    if (!ReadNumber(CutWord(text, '.'), static_cast<uint16_t>(CHANNELS - 1), subject.channel)) {
        return std::nullopt;
    }
    if (text == MARK) {
        subject.kind = Kind::Mark;
        return subject;
    }
    if (!ReadNumber(text, FIRST_TYPE + TYPES - 1, subject.type) || subject.type < FIRST_TYPE) {
        return std::nullopt;
    }
    return subject;
}

std::string SequenceText(const Sequence& sequence) {
    return fmt::format("{} {} {}", sequence.session, sequence.number, sequence.bBoardBody ? 1 : 0);
}

std::optional<Sequence> ReadSequence(std::string_view text) {
    constexpr uint64_t most = std::numeric_limits<uint64_t>::max();
    Sequence sequence;
    uint32_t layout = 0;
    if (!ReadNumber(CutWord(text, ' '), most, sequence.session) ||
        !ReadNumber(CutWord(text, ' '), most, sequence.number) || sequence.number == 0 ||
        !ReadNumber(text, 1U, layout)) {
        return std::nullopt;
    }
    sequence.bBoardBody = layout == 1;
    return sequence;
}

std::optional<int64_t> ReadTime(std::string_view text) {
    int64_t timeNs = 0;
    if (!ReadNumber(text, std::numeric_limits<int64_t>::max(), timeNs)) {
        return std::nullopt;
    }
    return timeNs;
}

std::vector<std::string_view> SplitText(std::string_view text, char separator) {
    std::vector<std::string_view> words;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find(separator, at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

}  // namespace ZceRelay
