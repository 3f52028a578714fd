#include "Receiver.h"

#include <cerrno>
#include <cstring>

#include "Output.h"

namespace {

const unsigned int firstType = ZCE_BOARD_TYPE_L1_SINGLE;

// A callback gives no length, and nobody has looked at the body: one that does not fit its type
// must not be taken for the truth. (Behind a message that is too short there may be the body of an
// old one. It fits, and its number shows as a gap.)
bool IsBodyOf(unsigned int uiType, const ZceBoardQuote_t& quote) {
    const bool bCombine =
        uiType == ZCE_BOARD_TYPE_L1_COMBINE || uiType == ZCE_BOARD_TYPE_L5_COMBINE;
    const bool bLevel1 = uiType == ZCE_BOARD_TYPE_L1_SINGLE || uiType == ZCE_BOARD_TYPE_L1_COMBINE;
    const std::uint64_t ulSeconds = quote.ulTimeNs / 1000000000;
    return quote.ucTable == (bCombine ? 1 : 0) && quote.ucLevels == (bLevel1 ? 1 : 5) &&
           quote.ucPhase <= ZCE_BOARD_PHASE_BREAK && quote.ulSeq != 0 && quote.szName[0] != '\0' &&
           quote.uiTime == ulSeconds / 3600 * 10000 + ulSeconds / 60 % 60 * 100 + ulSeconds % 60;
}

}  // namespace

bool CReceiver::WriteNames(std::FILE* out) const {
    for (const std::vector<Instrument>& table : m_aTables) {
        for (const Instrument& instrument : table) {
            if (instrument.messages != 0 && !WriteName(out, instrument)) {
                return false;
            }
        }
    }
    return true;
}

bool CReceiver::WriteName(std::FILE* out, const Instrument& instrument) {
    if (!CanPrint(outputPatienceMs, fileno(out))) {
        errno = EAGAIN;
        return false;
    }
    return std::fprintf(out, "%llu,%s\n", static_cast<unsigned long long>(instrument.messages),
                        instrument.name.c_str()) >= 0 &&
           std::fflush(out) == 0;
}

void CReceiver::Take(unsigned int uiType, const unsigned char* body) {
    ZceBoardQuote_t quote;
    ZceBoardReadQuote(body, &quote);
    if (!IsBodyOf(uiType, quote)) {
        m_bad.Add(1);
        return;
    }
    m_aCounts[uiType - firstType].Add(1);
    if (quote.ulSeq != m_ulLastSeq + 1) {
        // The numbers begin at 1 when the stream is opened, so that a lost first message shows.
        m_gaps.Add(quote.ulSeq > m_ulLastSeq ? quote.ulSeq - m_ulLastSeq - 1 : 1);
    }
    m_ulLastSeq = quote.ulSeq;
    if (m_lPrint > 0 && CanPrint(outputPatienceMs)) {
        --m_lPrint;
        PrintMessage(uiType, quote, body);
    }
    if (m_bKeepNames) {
        KeepName(quote);
    }
}

void CReceiver::PrintMessage(unsigned int uiType, const ZceBoardQuote_t& quote,
                             const unsigned char* body) {
    char szName[ZCE_BOARD_NAME_SIZE + 1];
    ZceBoardLevel_t best;
    std::memcpy(&best, body + sizeof(quote), sizeof(best));
    Print("zce-recv type=%u %s %06u last %.2f bid %.2f x %u ask %.2f x %u volume %llu\n", uiType,
          ZceBoardName(&quote, szName), quote.uiTime, ZceBoardPrice(quote.lLastPrice),
          ZceBoardPrice(best.lBidPrice), best.uiBidVolume, ZceBoardPrice(best.lAskPrice),
          best.uiAskVolume, static_cast<unsigned long long>(quote.ulVolume));
}

void CReceiver::KeepName(const ZceBoardQuote_t& quote) {
    std::vector<Instrument>& table = m_aTables[quote.ucTable != 0 ? 1 : 0];
    if (table.size() <= quote.usIndex) {
        table.resize(quote.usIndex + 1U);
    }
    Instrument& instrument = table[quote.usIndex];
    if (instrument.messages == 0) {
        char szName[ZCE_BOARD_NAME_SIZE + 1];
        instrument.name = ZceBoardName(&quote, szName);
    }
    ++instrument.messages;
}

bool WriteNamesTo(const std::string& path, const CReceiver& receiver) {
    if (path == "-") {
        return receiver.WriteNames(stdout);
    }
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        return false;
    }
    const bool bWritten = receiver.WriteNames(file);
    return std::fclose(file) == 0 && bWritten;
}
