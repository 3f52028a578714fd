#include "top/TopMonitor.h"

#include <fmt/format.h>
#include <cerrno>
#include <optional>

#include "ctl/Snapshot.h"
#include "memory/HostClock.h"

namespace ZceBoard {

namespace {

constexpr int64_t LOOK_NS = 200 * NS_PER_MS;  // how often it looks for a board that it waits for

}  // namespace

CTopMonitor::CTopMonitor(const TopOptions& options)
    : CTopLoop(options.interval, options.bOnce),
      m_options(options),
      m_where(fmt::format("zce-top: bus {}", options.bus)) {}

bool CTopMonitor::Run(std::string& error) {
    // The terminal is left alone if there is nothing to be shown on it.
    const bool bReady = Attach() || (m_error.empty() && m_options.bWait);
    if (bReady && Open(m_error)) {
        Watch();
        if (m_error.empty()) {
            m_error = Output()->Fault();
        }
        Close();
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
    m_instrumentHistory.Clear();
    m_lastLine.clear();
    return true;
}

// Until something ends it.
void CTopMonitor::Watch() {
    while (m_memory != nullptr || AwaitBoard()) {
        Look();
        Show();
        if (IsOnce() || !AwaitNextLook()) {
            return;
        }
        if (NoticeEnd() && !m_options.bWait) {
            return;
        }
    }
}

void CTopMonitor::Look() {
    m_view = m_history.Add(TakeSnapshot(m_memory->Shm()), RealNs());
    LookAtInstruments();
}

// Of the channel that is shown alone: the counts of the others need not be in anybody's memory.
void CTopMonitor::LookAtInstruments() {
    const std::optional<size_t> channel = m_pages.ShownChannel();
    if (channel) {
        m_instruments =
            m_instrumentHistory.Add(*channel, TakeInstruments(m_memory->Shm(), *channel), RealNs());
    } else {
        m_instrumentHistory.Clear();
        m_instruments.clear();
    }
}

void CTopMonitor::Show() {
    Output()->Show(IsScreen() ? m_pages.Page(m_view, m_instruments)
                              : TopPage{TopLines(m_view), ""});
}

// Shows that there is no board until there is one. False: the end.
bool CTopMonitor::AwaitBoard() {
    const TopPage page{{m_where + ": waiting for a board"}, "q quits"};
    auto event = CTopOutput::Event::Redraw;
    while (!Attach()) {
        if (event == CTopOutput::Event::Redraw) {
            Output()->Show(page);
        }
        TopKey key;
        event = Output()->Wait(LOOK_NS, key);
        if (event == CTopOutput::Event::Quit || key.kind == TopKey::Kind::Back ||
            !m_error.empty()) {
            return false;
        }
    }
    return true;
}

bool CTopMonitor::OnKey(const TopKey& key) {
    const std::optional<size_t> before = m_pages.ShownChannel();
    const CTopPages::Answer answer = m_pages.OnKey(key, m_view, m_instruments.size());
    if (m_pages.ShownChannel() != before) {
        LookAtInstruments();
    }
    if (answer == CTopPages::Answer::Changed) {
        Show();
    }
    return answer != CTopPages::Answer::Quit;
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
