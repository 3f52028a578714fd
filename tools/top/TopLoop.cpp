#include "top/TopLoop.h"

#include <unistd.h>

#include "memory/HostClock.h"

namespace ZceBoard {

CTopLoop::CTopLoop(double interval, bool bOnce)
    : m_intervalNs(static_cast<int64_t>(interval * static_cast<double>(NS_PER_SECOND))),
      m_bOnce(bOnce) {}

bool CTopLoop::Open(std::string& error) {
    CatchEndSignals();
    if (!m_bOnce && isatty(STDOUT_FILENO) == 1) {
        m_output = MakeTerminal(error);
    }
    m_bScreen = m_output != nullptr;
    if (!m_bScreen && error.empty()) {
        m_output = MakePlainOutput();
    }
    return m_output != nullptr;
}

bool CTopLoop::AwaitNextLook() {
    const int64_t end = RealNs() + m_intervalNs;
    for (int64_t left = m_intervalNs; left > 0; left = end - RealNs()) {
        TopKey key;
        switch (m_output->Wait(left, key)) {
            case CTopOutput::Event::Quit:
                return false;
            case CTopOutput::Event::Redraw:
                Show();
                break;
            case CTopOutput::Event::Key:
                if (!OnKey(key)) {
                    return false;
                }
                break;
            case CTopOutput::Event::TimeUp:
                break;
        }
    }
    return true;
}

}  // namespace ZceBoard
