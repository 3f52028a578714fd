#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// How the messages of a board's channel look on a NATS server.
//
// Subjects, with the numbers in decimal:
//
//     zce.<bus>.<channel>.<type>    a message of type 17 to 20; the payload is its body
//     zce.<bus>.<channel>.mark      no payload: so far the publisher has come
//     zce.<bus>.instruments         the instrument list: lines "index,name"
//     zce-wanted.<bus>              somebody asks for the list; no stream keeps it
//
// Headers of a message and of a mark:
//
//     Zce-Sequence: SESSION NUMBER LAYOUT
//     Zce-Time: NANOSECONDS
//
// SESSION tells one run of a publisher from all others. NUMBER counts the messages of the channel
// that its callbacks got, from 1, those counted in that it could not keep; a mark has the number of
// the last one. LAYOUT is 1 for the bodies of ZceBoardMsg.h, 0 for any other. Zce-Time is the wall
// clock when the callback was made, in ns since the epoch.
namespace ZceRelay {

constexpr const char* HEADER_SEQUENCE = "Zce-Sequence";
constexpr const char* HEADER_TIME = "Zce-Time";

constexpr uint32_t FIRST_TYPE = 17;
constexpr uint32_t TYPES = 4;
constexpr uint16_t CHANNELS = 16;
// What a board's stream can carry, less the head.
constexpr uint32_t LARGEST_BODY = 2048 - 12;
// A list of two full tables stays below.
constexpr uint32_t LARGEST_LIST = 1U << 20U;

enum class Kind : uint8_t { MarketData, Mark, Instruments };

struct Subject {
    Kind kind = Kind::MarketData;
    uint16_t bus = 0;
    uint16_t channel = 0;
    uint32_t type = 0;  // 17 to 20
    bool operator==(const Subject&) const = default;
};

struct Sequence {
    uint64_t session = 0;
    uint64_t number = 0;
    bool bBoardBody = false;  // the body is one of ZceBoardMsg.h
    bool operator==(const Sequence&) const = default;
};

std::string SubjectText(const Subject& subject);
// Where somebody asks for the list of a bus.
std::string WantedText(uint16_t bus);
// Nothing for a subject that is none of the first three.
std::optional<Subject> ReadSubject(std::string_view text);

std::string SequenceText(const Sequence& sequence);
// Nothing for what is no such text, or has the number 0.
std::optional<Sequence> ReadSequence(std::string_view text);
std::optional<int64_t> ReadTime(std::string_view text);

// The words between the separators; an empty one where there is nothing between two.
std::vector<std::string_view> SplitText(std::string_view text, char separator);

}  // namespace ZceRelay
