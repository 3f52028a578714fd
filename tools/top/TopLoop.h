#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "top/TopOutput.h"
#include "top/TopPage.h"

namespace ZceBoard {

// What shows something again and again: on the terminal that standard output is, or as text.
class CTopLoop {
  public:
    // `interval`: seconds of real time from look to look; `bOnce`: one report, as text.
    CTopLoop(double interval, bool bOnce);
    virtual ~CTopLoop() = default;
    CTopLoop(const CTopLoop&) = delete;
    CTopLoop& operator=(const CTopLoop&) = delete;

  protected:
    virtual void Show() = 0;
    // False: the end.
    virtual bool OnKey(const TopKey& key) = 0;

    // Chooses the output. False: `error` says why there is none.
    bool Open(std::string& error);
    // False: the end.
    bool AwaitNextLook();

    bool IsOnce() const { return m_bOnce; }
    bool IsScreen() const { return m_bScreen; }
    // What Open made; null before.
    CTopOutput* Output() const { return m_output.get(); }
    // Gives the terminal back.
    void Close() { m_output.reset(); }

  private:
    int64_t m_intervalNs;
    bool m_bOnce;
    bool m_bScreen = false;
    std::unique_ptr<CTopOutput> m_output;
};

}  // namespace ZceBoard
