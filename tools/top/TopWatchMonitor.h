#pragma once

#include <cstddef>
#include <string>

#include "top/TopLoop.h"
#include "top/TopWatch.h"

namespace ZceBoard {

// Watches the pages of a directory that libzce-watch.so writes.
class CTopWatchMonitor : public CTopLoop {
  public:
    // As CTopLoop.
    CTopWatchMonitor(std::string directory, double interval, bool bOnce);

    // Until something ends it. False: `error` says what is wrong.
    bool Run(std::string& error);

  private:
    void Show() override;
    bool OnKey(const TopKey& key) override;
    bool Look(std::string& error);

    std::string m_directory;
    CWatchHistory m_history;
    WatchView m_view;
    size_t m_skipped = 0;  // rows that are scrolled away
};

}  // namespace ZceBoard
