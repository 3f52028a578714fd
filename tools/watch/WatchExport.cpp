#include "watch/WatchExport.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "program/Printable.h"
#include "watch/Ticks.h"
#include "watch/WatchText.h"

namespace ZceWatch {

namespace {

// `text` as the value of a label, between its quotes. What is no UTF-8 would cost the whole file.
std::string LabelValue(std::string_view text) {
    std::string value;
    for (const char letter : ZceProgram::Printable(text)) {
        if (letter == '\\' || letter == '"') {
            value += '\\';
        }
        value += letter;
    }
    return value;
}

std::string SecondsOf(uint64_t ns) {
    constexpr auto second = static_cast<uint64_t>(NS_PER_SECOND);
    return fmt::format("{}.{:09}", ns / second, ns % second);
}

// A sign within the digits of a page that is damaged would cost the whole file as well.
std::string Seconds(int64_t ns) {
    return (ns < 0 ? "-" : "") +
           SecondsOf(ns < 0 ? uint64_t{0} - static_cast<uint64_t>(ns) : static_cast<uint64_t>(ns));
}

// A channel that is told: its labels, and where it stands.
struct Told {
    std::string labels;
    const Process* process;
    const Stream* stream;
};

bool Runs(const Told& told) {
    return told.process->life == Life::Runs;
}

// When the stream was polled last, as far as is known; 0: it is not.
int64_t LastPollNs(const Told& told, int64_t nowNs) {
    return Runs(told) && told.stream->gaps.runningNs != 0
               ? nowNs - static_cast<int64_t>(told.stream->gaps.runningNs)
               : 0;
}

// Writes the series of one family of metrics; its name goes before each.
class CSeries {
  public:
    CSeries(std::string& text, const char* name) : m_text(text), m_name(name) {}

    void Add(const Told& told, uint64_t value) { Add("", told, "", fmt::to_string(value)); }
    void AddTime(const Told& told, int64_t ns) { Add("", told, "", Seconds(ns)); }
    // With one more label, `key="value"`, behind the others.
    void Add(const Told& told, const char* key, std::string_view label, const std::string& value) {
        Add("", told, fmt::format(",{}=\"{}\"", key, label), value);
    }
    void Add(const char* suffix, const Told& told, const std::string& more,
             const std::string& value) {
        fmt::format_to(std::back_inserter(m_text), "{}{}{{{}{}}} {}\n", m_name, suffix, told.labels,
                       more, value);
    }
    // One of several states: 1 for that which is, 0 for the others.
    template <size_t SIZE>
    void AddState(const Told& told, const std::array<const char*, SIZE>& names, size_t state) {
        for (size_t k = 0; k < SIZE; ++k) {
            Add(told, "state", names[k], k == state ? "1" : "0");
        }
    }

  private:
    std::string& m_text;
    const char* m_name;
};

void AddByType(CSeries& series, const Told& told, uint64_t Counted::*count) {
    for (size_t type = 0; type < TYPES; ++type) {
        series.Add(told, "type", TYPE_NAMES[type], fmt::to_string(told.stream->types[type].*count));
    }
}

void AddLongestGaps(CSeries& series, const Told& told) {
    const Gaps& gaps = told.stream->gaps;
    if (Runs(told)) {  // one that is gone has none to wait for
        series.Add(told, "window", "second", SecondsOf(gaps.secondNs));
        series.Add(told, "window", "minute", SecondsOf(gaps.minuteNs));
    }
    series.Add(told, "window", "ever", SecondsOf(gaps.everNs));
}

void AddHistogram(CSeries& series, const Told& told, int64_t nowNs) {
    uint64_t count = 0;
    for (size_t bucket = 0; bucket < GAP_BUCKETS; ++bucket) {
        count += told.stream->gaps.histogram[bucket];
        const uint64_t endNs = GapBucketEndNs(bucket);
        series.Add(
            "_bucket", told,
            fmt::format(
                ",le=\"{}\"",
                endNs == 0 ? "+Inf" : fmt::to_string(static_cast<double>(endNs) / NS_PER_SECOND)),
            fmt::to_string(count));
    }
    // All gaps of an opening together are the time from its beginning to its last poll.
    const int64_t endNs =
        told.stream->state == EntryState::Closed ? told.stream->closedNs : LastPollNs(told, nowNs);
    const int64_t sumNs = std::max<int64_t>(endNs - told.stream->openedNs, 0);
    series.Add("_sum", told, "", Seconds(sumNs));
    series.Add("_count", told, "", fmt::to_string(count));
}

// A counter of the vendor's; none before it has been read.
void AddCounter(CSeries& series, const Told& told, uint64_t Counters::*count) {
    if (told.stream->counters.readNs != 0) {
        series.Add(told, told.stream->counters.*count);
    }
}

struct Family {
    const char* name;
    const char* type;
    const char* help;
    void (*add)(CSeries& series, const Told& told, int64_t nowNs);
};

const std::array FAMILIES = {
    Family{
        "zce_process_up", "gauge", "Whether the process that opened the stream runs.",
        [](CSeries& series, const Told& told, int64_t) { series.Add(told, Runs(told) ? 1 : 0); }},
    Family{"zce_process_state", "gauge",
           "1 for what became of the process: running, ended in order, or died.",
           [](CSeries& series, const Told& told, int64_t) {
               series.AddState(told, LIFE_TEXTS, IndexOf(told.process->life));
           }},
    Family{"zce_process_begin_timestamp_seconds", "gauge",
           "When the process opened its first stream.",
           [](CSeries& series, const Told& told, int64_t) {
               series.AddTime(told, told.process->beginNs);
           }},
    Family{"zce_process_info", "gauge", "The number of the process, as a label.",
           [](CSeries& series, const Told& told, int64_t) {
               series.Add(told, "pid", fmt::to_string(told.process->pid), "1");
           }},
    Family{"zce_stream_open", "gauge", "Whether the stream is open.",
           [](CSeries& series, const Told& told, int64_t) {
               series.Add(told, Runs(told) && told.stream->state == EntryState::Open ? 1 : 0);
           }},
    Family{"zce_stream_open_timestamp_seconds", "gauge", "When the stream was opened last.",
           [](CSeries& series, const Told& told, int64_t) {
               series.AddTime(told, told.stream->openedNs);
           }},
    Family{
        "zce_stream_openings_total", "counter", "How often the process opened the stream.",
        [](CSeries& series, const Told& told, int64_t) { series.Add(told, told.stream->opening); }},
    Family{"zce_messages_total", "counter", "Messages that the polls brought, by their type.",
           [](CSeries& series, const Told& told, int64_t) {
               AddByType(series, told, &Counted::messages);
           }},
    Family{"zce_bytes_total", "counter", "Bytes of these messages.",
           [](CSeries& series, const Told& told, int64_t) {
               AddByType(series, told, &Counted::bytes);
           }},
    Family{"zce_last_message_timestamp_seconds", "gauge",
           "When the last message came, to some milliseconds; 0 if none did.",
           [](CSeries& series, const Told& told, int64_t) {
               series.AddTime(told, told.stream->lastMessageNs);
           }},
    Family{
        "zce_polls_total", "counter", "Polls of the stream.",
        [](CSeries& series, const Told& told, int64_t) { series.Add(told, told.stream->polls); }},
    Family{"zce_last_poll_timestamp_seconds", "gauge",
           "When the stream was polled last; not there if the process or the stream is gone.",
           [](CSeries& series, const Told& told, int64_t nowNs) {
               if (const int64_t lastNs = LastPollNs(told, nowNs); lastNs != 0) {
                   series.AddTime(told, lastNs);
               }
           }},
    Family{
        "zce_longest_poll_gap_seconds", "gauge",
        "The longest time from one poll to the next: in the last second, in the last minute, ever.",
        [](CSeries& series, const Told& told, int64_t) { AddLongestGaps(series, told); }},
    Family{"zce_poll_gap_seconds", "histogram",
           "The times from one poll to the next; the sum begins with each opening.",
           [](CSeries& series, const Told& told, int64_t nowNs) {
               AddHistogram(series, told, nowNs);
           }},
    Family{"zce_stream_counters_failed", "gauge",
           "Whether the stream's counters could not be read the last time.",
           [](CSeries& series, const Told& told, int64_t) {
               series.Add(told, told.stream->counters.state == CountersState::Failed ? 1 : 0);
           }},
    Family{"zce_stream_counters_timestamp_seconds", "gauge",
           "When the stream's counters were read; 0 if they have not been.",
           [](CSeries& series, const Told& told, int64_t) {
               series.AddTime(told, told.stream->counters.readNs);
           }},
    Family{"zce_stream_backpressure_total", "counter",
           "The stream's counter of back pressure, since it was opened.",
           [](CSeries& series, const Told& told, int64_t) {
               AddCounter(series, told, &Counters::backPressure);
           }},
    Family{"zce_stream_packets_total", "counter",
           "The stream's counter of packets, since it was opened.",
           [](CSeries& series, const Told& told, int64_t) {
               AddCounter(series, told, &Counters::packets);
           }},
    Family{"zce_stream_fifo_errors_total", "counter",
           "The stream's counter of FIFO errors, since it was opened.",
           [](CSeries& series, const Told& told, int64_t) {
               AddCounter(series, told, &Counters::fifoErrors);
           }},
    Family{"zce_stream_errors_total", "counter",
           "The stream's counter of errors, since it was opened.",
           [](CSeries& series, const Told& told, int64_t) {
               AddCounter(series, told, &Counters::errors);
           }},
    Family{
        "zce_board_state", "gauge",
        "1 for what the board's library says of the board: nothing, that it runs, that it is gone, "
        "or that another one is in its place.",
        [](CSeries& series, const Told& told, int64_t) {
            series.AddState(told, BOARD_TEXTS, IndexOf(told.stream->board));
        }},
};

// The last sign of life that a page has of a process that is gone.
int64_t LastSignNs(const Process& process) {
    int64_t lastNs = std::max(process.beginNs, process.endNs);
    for (const Stream& stream : process.streams) {
        lastNs = std::max({lastNs, stream.openedNs, stream.closedNs, stream.lastMessageNs,
                           stream.counters.readNs});
    }
    return lastNs;
}

// By the labels: the one channel that is told under them.
std::vector<Told> ToldOf(const Directory& pages, const ExportSettings& settings) {
    const auto rank = [](const Process& process, const Stream& stream) {
        return std::tuple(process.life == Life::Runs, process.beginNs,
                          stream.state == EntryState::Open, stream.openedNs);
    };
    std::map<std::string, Told> told;
    for (const Process& process : pages.processes) {
        if (process.life != Life::Runs &&
            settings.nowNs - LastSignNs(process) > settings.forgetAfterNs) {
            continue;
        }
        for (const Stream& stream : process.streams) {
            std::string labels =
                fmt::format("program=\"{}\",bus=\"{}\",channel=\"{}\"", LabelValue(process.program),
                            BusText(stream.bus), stream.channel);
            const auto [place, bNew] = told.try_emplace(labels, Told{labels, &process, &stream});
            if (!bNew &&
                rank(*place->second.process, *place->second.stream) < rank(process, stream)) {
                place->second = Told{std::move(labels), &process, &stream};
            }
        }
    }
    std::vector<Told> all;
    all.reserve(told.size());
    for (auto& [labels, one] : told) {
        all.push_back(std::move(one));
    }
    return all;
}

void AddHead(std::string& text, const char* name, const char* type, const char* help) {
    fmt::format_to(std::back_inserter(text), "# HELP {} {}\n# TYPE {} {}\n", name, help, name,
                   type);
}

void AddSingle(std::string& text, const char* name, const char* help, const std::string& value) {
    AddHead(text, name, "gauge", help);
    fmt::format_to(std::back_inserter(text), "{} {}\n", name, value);
}

}  // namespace

std::string ExportText(const Directory& pages, const ExportSettings& settings) {
    std::string text;
    AddHead(text, "zce_watch_build_info", "gauge", "The version of zce-watch, as a label.");
    fmt::format_to(std::back_inserter(text), "zce_watch_build_info{{version=\"{}\"}} 1\n",
                   LabelValue(settings.version));
    AddSingle(text, "zce_export_timestamp_seconds", "When this was written.",
              Seconds(settings.nowNs));
    AddSingle(text, "zce_pages_unreadable",
              "Pages that could not be read: their processes are not told here.",
              fmt::to_string(pages.refused.size()));
    uint64_t notCounted = 0;
    for (const Process& process : pages.processes) {
        notCounted += process.life == Life::Runs ? process.notCounted : 0;
    }
    AddSingle(text, "zce_streams_not_counted",
              "Openings of streams for which the page of a running process had no room.",
              fmt::to_string(notCounted));
    const std::vector<Told> told = ToldOf(pages, settings);
    for (const Family& family : FAMILIES) {
        std::string series;
        CSeries writer(series, family.name);
        for (const Told& one : told) {
            family.add(writer, one, settings.nowNs);
        }
        if (!series.empty()) {
            AddHead(text, family.name, family.type, family.help);
            text += series;
        }
    }
    return text;
}

}  // namespace ZceWatch
