#pragma once

#include <cstdint>
#include <string>

#include "watch/WatchReader.h"

// The pages of the watched processes in Prometheus' text format.
namespace ZceWatch {

struct ExportSettings {
    int64_t nowNs = 0;          // ns since 1970
    int64_t forgetAfterNs = 0;  // a process that is gone is told for so long after its last sign
    std::string version;        // of the program
};

// Every channel of every process is one set of series with the labels program, bus and channel. A
// process started again goes on in the series of the one before, which Prometheus takes for a
// counter that was reset: of two pages with the same three labels the one whose process runs is
// told, of several such, or of none, the youngest. A process may have two channels with the same
// labels, if the numbers of their boards are not known: the one that was opened last is told.
//
// What is told of a process that is gone stands still, with zce_process_up 0; after
// `forgetAfterNs` it is told no more.
std::string ExportText(const Directory& pages, const ExportSettings& settings);

// Puts `text` in the place of the file `path` at once: whoever reads it finds the old text or the
// new one, readable by all. False: `error` says what could not be done, and the file is as it was.
bool ReplaceFile(const std::string& path, const std::string& text, std::string& error);

// The channels of the pages for people: titles, and a line for each. Times are the host's local
// ones, the gap is the longest ever.
std::string ListText(const Directory& pages);

}  // namespace ZceWatch
