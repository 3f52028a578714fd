#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ctl/CtlBoard.h"
#include "top/TopInstruments.h"
#include "top/TopLoop.h"
#include "top/TopPages.h"
#include "top/TopScreen.h"

namespace ZceBoard {

struct TopOptions {
    uint32_t bus = 0;
    double interval = 1;  // seconds of real time from look to look
    bool bOnce = false;   // one report, as text
    bool bWait = false;   // for a board if there is none, also when the one that is watched goes
};

// Watches the board of a bus.
class CTopMonitor : public CTopLoop {
  public:
    explicit CTopMonitor(const TopOptions& options);

    // Until something ends it. False: `error` says what is wrong.
    bool Run(std::string& error);

  private:
    bool Attach();
    void Watch();
    bool AwaitBoard();
    bool OnKey(const TopKey& key) override;
    void Look();
    void LookAtInstruments();
    void Show() override;
    bool NoticeEnd();

    TopOptions m_options;
    std::string m_where;  // "bus 0"
    std::unique_ptr<CBoardMemory> m_memory;
    CTopHistory m_history;
    TopView m_view;
    CInstrumentHistory m_instrumentHistory;
    std::vector<InstrumentRow> m_instruments;  // of the channel that is shown
    CTopPages m_pages;
    std::string m_error;
    std::string m_noBoard;   // the words for there being none
    std::string m_lastLine;  // said when the terminal is a user's again
};

}  // namespace ZceBoard
