#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "watch/StreamWatch.h"
#include "watch/Ticks.h"
#include "watch/WatchPage.h"

namespace ZceWatch {

// The page of this process. Its calls are made one at a time. Its memory and its streams stay to
// the very end of the process: a program may poll until then.
class CPageFile {
  public:
    // Makes the page, and the directory if there is none. False: `error` says which file and why,
    // and nothing is left behind.
    bool Open(const std::string& directory, const TickClock& clock, std::string& error);

    // What counts for the next opening of a channel; null: the page is full, which is counted.
    CStreamWatch* StreamOf(uint16_t bus, uint16_t channel);

    // The process ends in order.
    void Finish();
    // In the child of a fork: what it counts from here on is in no page. False: there is no memory
    // for that, and it must not count.
    bool BecomeChild();

  private:
    bool Make(const std::string& path, std::string& error);
    void Fill();

    // Of an entry of the page: not read there, which a child of a fork has an empty one of.
    struct Channel {
        uint16_t bus;
        uint16_t number;
        std::unique_ptr<CStreamWatch> watch;
    };

    Page* m_page = nullptr;
    TickClock m_clock;
    std::vector<Channel> m_channels;
};

// What stands in front of the number in the names of this program's pages.
std::string ProgramName();

// Removes the pages of this program that ended in order, and those that died but for the newest.
void RemoveOldPages(const std::string& directory);

}  // namespace ZceWatch
