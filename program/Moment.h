#pragma once

#include <optional>
#include <string>

namespace ZceProgram {

// A second of a day, in local time.
struct Moment {
    unsigned int date = 0;  // yyyymmdd
    unsigned int time = 0;  // hhmmss
    bool operator==(const Moment&) const = default;
};

// A moment as the library's calendar has it.
template <typename LocalMoment>
std::optional<Moment> AsMoment(const std::optional<LocalMoment>& local) {
    return local ? std::optional<Moment>({local->date, local->time}) : std::nullopt;
}

// Reads what an option --at takes: HH:MM or HH:MM:SS, which is of the day `today` (yyyymmdd), or a
// date before it, YYYY-MM-DD, with a T or a blank between the two. Nothing for any other text, and
// for a day or a time that there is not.
std::optional<Moment> ReadMoment(const std::string& text, unsigned int today);

// The moment that `text`, what an option --at was given, says, or `now`, the host's, without one.
// Nothing, told on standard error as "NAME: REASON", if the text is no moment or the host has none.
std::optional<Moment> MomentToAsk(const char* name, const std::optional<std::string>& text,
                                  const std::optional<Moment>& now);

// "2026-11-23 09:30:00", and its time alone.
std::string MomentText(const Moment& moment);
std::string TimeText(unsigned int time);

// What the usage error of a program says of a text that is no moment.
extern const char* const NO_MOMENT;

}  // namespace ZceProgram
