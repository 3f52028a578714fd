#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "memory/HostClock.h"
#include "top/TopOutput.h"

namespace ZceBoard {

namespace {

class CPlainOutput : public CTopOutput {
  public:
    void Show(const TopPage& page) override {
        std::string text;
        for (const TopLine& line : page.lines) {
            text.append(line.text).append("\n");
        }
        text.append("\n");
        m_fault = PrintText(text);
    }

    std::string Fault() const override { return m_fault; }

    Event Wait(int64_t ns, TopKey& /*key*/) override {
        WaitEnd end = WaitEnd::Interrupted;
        for (const int64_t until = RealNs() + ns; end == WaitEnd::Interrupted && m_fault.empty();) {
            end = WaitForInput(-1, std::max<int64_t>(until - RealNs(), 0));
        }
        return end == WaitEnd::TimeUp ? Event::TimeUp : Event::Quit;
    }

  private:
    std::string m_fault;
};

}  // namespace

std::unique_ptr<CTopOutput> MakePlainOutput() {
    return std::make_unique<CPlainOutput>();
}

std::string PrintText(const std::string& text) {
    errno = 0;
    if (fputs(text.c_str(), stdout) < 0 || fflush(stdout) != 0) {
        return std::string("standard output: ") + strerror(errno);
    }
    return "";
}

}  // namespace ZceBoard
