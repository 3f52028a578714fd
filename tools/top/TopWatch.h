#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "top/TopPage.h"
#include "watch/WatchReader.h"

namespace ZceBoard {

// A channel of a watched process, and how fast it goes.
struct WatchRow {
    ZceWatch::Stream stream;
    struct Rates {
        uint64_t messages = 0;  // a second
        bool bPressed = false;  // more back pressure, FIFO errors or errors in this time
        bool bFailed = false;
    };
    std::optional<Rates> rates;  // since the look before; none with the first one
};

struct WatchView {
    std::string directory;
    int64_t nowNs = 0;  // since 1970
    struct Shown {
        ZceWatch::Process process;  // without its streams
        std::vector<WatchRow> rows;
    };
    std::vector<Shown> processes;
    std::vector<std::string> refused;
};

// Makes views of one directory's pages, read one time after another.
class CWatchHistory {
  public:
    // `realNs`: when they were read, on a clock that does not go back; `nowNs`: since 1970.
    WatchView Add(const std::string& directory, ZceWatch::Directory pages, int64_t realNs,
                  int64_t nowNs);

  private:
    // By the page and the place in it.
    std::map<std::pair<std::string, size_t>, ZceWatch::Stream> m_last;
    int64_t m_lastNs = 0;
};

// The whole text, as wide and as long as it is, without the first `skipped` rows of the channels:
// what tells whether all is well stands first.
std::vector<TopLine> WatchLines(const WatchView& view, size_t skipped = 0);

// How many channels there are.
size_t WatchRows(const WatchView& view);

// A time in at most 6 characters (below 10,000 days): "850ns", "12.3us", "4ms", "2.1s", "12m",
// "3h", "5d".
std::string ShortTime(uint64_t ns);

}  // namespace ZceBoard
