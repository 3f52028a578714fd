#pragma once

// What zce-recv does with the messages: counts them, looks for gaps, prints the first ones.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "IVelaZceMdApi.h"
#include "ZceBoardMsg.h"

// A counter that the receiving thread alone writes and the reporting thread reads.
class CCount {
  public:
    void Add(std::uint64_t more) {
        m_ulValue.store(m_ulValue.load(std::memory_order_relaxed) + more,
                        std::memory_order_relaxed);
    }
    std::uint64_t Get() const { return m_ulValue.load(std::memory_order_relaxed); }

  private:
    std::atomic<std::uint64_t> m_ulValue{0};
};

// The application's side of the interface. Every callback comes on the receiving thread, and the
// body is only valid until it returns.
class CReceiver : public IVelaZceMdSpi {
  public:
    // `lPrint`: print that many messages; `bKeepNames`: count by instrument, for WriteNamesTo.
    CReceiver(long lPrint, bool bKeepNames) : m_lPrint(lPrint), m_bKeepNames(bKeepNames) {}

    void OnDmaType17Msg(const unsigned char* body) override { Take(17, body); }
    void OnDmaType18Msg(const unsigned char* body) override { Take(18, body); }
    void OnDmaType19Msg(const unsigned char* body) override { Take(19, body); }
    void OnDmaType20Msg(const unsigned char* body) override { Take(20, body); }

    std::uint64_t Count(std::size_t type) const { return m_aCounts[type].Get(); }
    std::uint64_t Gaps() const { return m_gaps.Get(); }
    std::uint64_t Bad() const { return m_bad.Get(); }
    std::uint64_t Total() const {
        std::uint64_t ulTotal = 0;
        for (const CCount& count : m_aCounts) {
            ulTotal += count.Get();
        }
        return ulTotal;
    }

    // One line "messages,name" for each instrument that had any. False, with errno: `out` did not
    // take all of them.
    bool WriteNames(std::FILE* out) const;

  private:
    struct Instrument {
        std::uint64_t messages = 0;
        std::string name;
    };

    static bool WriteName(std::FILE* out, const Instrument& instrument);
    void Take(unsigned int uiType, const unsigned char* body);
    static void PrintMessage(unsigned int uiType, const ZceBoardQuote_t& quote,
                             const unsigned char* body);
    void KeepName(const ZceBoardQuote_t& quote);

    std::array<CCount, 4> m_aCounts;  // of types 17 to 20
    CCount m_gaps;
    CCount m_bad;
    std::uint64_t m_ulLastSeq = 0;
    long m_lPrint;
    bool m_bKeepNames;
    std::array<std::vector<Instrument>, 2> m_aTables;  // single-leg and combination instruments
};

// Writes the names to this file, "-" being standard output. False, with errno: not all of them.
bool WriteNamesTo(const std::string& path, const CReceiver& receiver);
