#include "top/TopMonitor.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>

#include "ctl/Snapshot.h"
#include "memory/HostClock.h"

namespace ZceBoard {

namespace {

constexpr int64_t LOOK_NS = 200 * NS_PER_MS;  // how often it looks for a board that it waits for

}  // namespace

CTopMonitor::CTopMonitor(const TopOptions& options)
    : m_options(options),
      m_intervalNs(static_cast<int64_t>(options.interval * static_cast<double>(NS_PER_SECOND))),
      m_where(fmt::format("zce-top: bus {}", options.bus)) {}

bool CTopMonitor::Run(std::string& error) {
    // The terminal is left alone if there is nothing to be shown on it.
    const bool bReady = Attach() || (m_error.empty() && m_options.bWait);
    if (bReady && Open()) {
        Watch();
        if (m_error.empty()) {
            m_error = m_output->Fault();
        }
        m_output.reset();
        if (m_error.empty() && !m_lastLine.empty()) {
            m_error = PrintText(m_lastLine);
        }
    }
    error = bReady || !m_error.empty() ? m_error : m_noBoard;
    return error.empty();
}

// Maps the bus's board. False: there is none, or `m_error` says what else is wrong.
bool CTopMonitor::Attach() {
    auto memory = std::make_unique<CBoardMemory>();
    std::string reason;
    const int err = TryAttach(*memory, m_options.bus, reason);
    if (err != 0) {
        (err == ENODEV ? m_noBoard : m_error) = reason;
        return false;
    }
    m_memory = std::move(memory);
    m_history = {};
    m_lastLine.clear();
    return true;
}

bool CTopMonitor::Open() {
    CatchEndSignals();
    const bool bScreen = !m_options.bOnce && isatty(STDOUT_FILENO) == 1;
    m_output = bScreen ? MakeTerminal(m_error) : MakePlainOutput();
    return m_output != nullptr;
}

// Until something ends it.
void CTopMonitor::Watch() {
    while (m_memory != nullptr || AwaitBoard()) {
        const std::vector<std::string> lines =
            TopLines(m_history.Add(TakeSnapshot(m_memory->Shm()), RealNs()));
        m_output->Show(lines);
        if (m_options.bOnce || !AwaitNextLook(lines)) {
            return;
        }
        if (NoticeEnd() && !m_options.bWait) {
            return;
        }
    }
}

// Shows that there is no board until there is one. False: the end.
bool CTopMonitor::AwaitBoard() {
    const std::vector<std::string> lines{m_where + ": waiting for a board"};
    auto event = CTopOutput::Event::Redraw;
    while (!Attach()) {
        if (event == CTopOutput::Event::Redraw) {
            m_output->Show(lines);
        }
        event = m_output->Wait(LOOK_NS);
        if (event == CTopOutput::Event::Quit || !m_error.empty()) {
            return false;
        }
    }
    return true;
}

// False: the end.
bool CTopMonitor::AwaitNextLook(const std::vector<std::string>& lines) {
    const int64_t end = RealNs() + m_intervalNs;
    for (int64_t left = m_intervalNs; left > 0; left = end - RealNs()) {
        switch (m_output->Wait(left)) {
            case CTopOutput::Event::Quit:
                return false;
            case CTopOutput::Event::Redraw:
                m_output->Show(lines);
                break;
            case CTopOutput::Event::TimeUp:
                break;
        }
    }
    return true;
}

// Whether the board is gone, which is then noted.
bool CTopMonitor::NoticeEnd() {
    CBoardFile file;
    if (m_memory->Reopen(file) == 0) {
        return false;
    }
    m_lastLine = fmt::format("{}: the board (process {}) is gone\n", m_where,
                             m_memory->Shm().header.boardPid.load());
    m_memory.reset();
    return true;
}

}  // namespace ZceBoard
