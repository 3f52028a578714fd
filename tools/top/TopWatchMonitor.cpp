#include "top/TopWatchMonitor.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "memory/HostClock.h"
#include "top/TopScroll.h"
#include "watch/Ticks.h"

namespace ZceBoard {

CTopWatchMonitor::CTopWatchMonitor(std::string directory, double interval, bool bOnce)
    : CTopLoop(interval, bOnce), m_directory(std::move(directory)) {}

bool CTopWatchMonitor::Run(std::string& error) {
    // The terminal is left alone if there is nothing to be shown on it.
    if (Look(error) && Open(error)) {
        bool bGoesOn = true;
        while (bGoesOn) {
            Show();
            bGoesOn = !IsOnce() && AwaitNextLook() && Look(error);
        }
        if (error.empty()) {
            error = Output()->Fault();
        }
        Close();
    }
    return error.empty();
}

bool CTopWatchMonitor::Look(std::string& error) {
    ZceWatch::Directory pages;
    if (!ZceWatch::ReadDirectory(m_directory, pages, error)) {
        return false;
    }
    m_view =
        m_history.Add(m_directory, std::move(pages), RealNs(), ZceWatch::ClockNs(CLOCK_REALTIME));
    // Processes go, and their rows: the last of what is left stays in sight.
    const size_t rows = WatchRows(m_view);
    m_skipped = std::min(m_skipped, rows == 0 ? 0 : rows - 1);
    return true;
}

void CTopWatchMonitor::Show() {
    Output()->Show({WatchLines(m_view, IsScreen() ? m_skipped : 0), IsScreen() ? "q quits" : ""});
}

bool CTopWatchMonitor::OnKey(const TopKey& key) {
    if (key.kind == TopKey::Kind::Back) {
        return false;
    }
    const std::ptrdiff_t step = ScrollStep(key.kind);
    const size_t rows = WatchRows(m_view);
    if (step != 0 && rows != 0) {
        m_skipped = Moved(m_skipped, step, rows - 1);
        Show();
    }
    return true;
}

}  // namespace ZceBoard
