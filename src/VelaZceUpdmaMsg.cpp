#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>

#include "DataType/ContractServ.h"
#include "DataType/ZceFpgaServ.h"
#include "SignalProcess.h"
#include "VelaZceBinFile.h"
#include "VelaZceMdApiImpl.h"
#include "VelaZceUpdmaImpl.h"
#include "VelaZceUtils.h"
#include "log/elog.h"

// What the board sends. Every message begins with its type, 32 bits in host order; bytes 4 to 11
// are the board's own.
namespace {

constexpr unsigned int g_uiTypeSize = 4;
constexpr unsigned int g_uiHeadSize = 12;  // the body of a market-data message comes next

constexpr std::uint32_t g_uiTypeContMap = 2;
constexpr std::uint32_t g_uiTypeMd17 = 17;
constexpr std::uint32_t g_uiTypeMd18 = 18;
constexpr std::uint32_t g_uiTypeMd19 = 19;
constexpr std::uint32_t g_uiTypeMd20 = 20;

// An instrument-map packet keeps the shape of an Ethernet frame: where the frame's type would
// stand is the length of the record area behind it, big-endian.
constexpr unsigned int g_uiMapAreaLenOffset = 12;
constexpr unsigned int g_uiMapAreaOffset = 14;
constexpr unsigned int g_uiMapMinSize = 15;

// Offsets in a record. Numbers are big-endian; the name takes the rest of the record. The first
// record of a packet has a longer head than the others; that is the format.
struct RecHead_t {
    unsigned int uiAttr;
    unsigned int uiIndex;
    unsigned int uiName;
};
constexpr RecHead_t g_stFirstRec = {6, 7, 9};
constexpr RecHead_t g_stLaterRec = {2, 3, 5};
constexpr unsigned int g_uiRecLenSize = 2;
constexpr unsigned int g_uiNameBufSize = 64;  // with its terminating zero

constexpr unsigned long g_ulParsedLogStep = 8192;

std::uint32_t ReadType(const unsigned char* msg) {
    std::uint32_t uiType = 0;
    std::memcpy(&uiType, msg, sizeof(uiType));
    return uiType;
}

unsigned int ReadBig16(const unsigned char* p) {
    return static_cast<unsigned int>(p[0]) << 8 | p[1];
}

const RecHead_t& HeadOf(unsigned int recNo) {
    return recNo == 0 ? g_stFirstRec : g_stLaterRec;
}

// Length of the record at the beginning of `left` bytes; 0, which no record has, if they hold none.
unsigned int RecordLength(const unsigned char* rec, unsigned int left) {
    return left < g_uiRecLenSize ? 0 : ReadBig16(rec);
}

// Why a record of this length cannot be taken when `left` bytes of the packet are there for it;
// null if it can. Only what would lead beyond the received packet or the name buffer, or not
// onwards, is refused.
const char* RecordFault(unsigned int recNo, unsigned int recLen, unsigned int left) {
    const unsigned int uiHead = HeadOf(recNo).uiName;
    if (left < g_uiRecLenSize || recLen > left) {
        return "beyond the end of the packet";
    }
    if (recLen < uiHead) {
        return "length below its head's";
    }
    return recLen - uiHead < g_uiNameBufSize ? nullptr : "name too long";
}

void WarnMapRecord(unsigned int recNo, unsigned int offset, const char* fault,
                   unsigned int recLen) {
    LOG_WARN(
        "Bad instrument map record %u at byte %u: %s (record length %u). It is dropped, and the "
        "rest of its packet.",
        recNo, offset, fault, recLen);
}

bool IsMarketData(std::uint32_t uiType) {
    return uiType - g_uiTypeMd17 <= g_uiTypeMd20 - g_uiTypeMd17;
}

// What a message is: the one place that looks at length and type.
enum class MsgKind_t { tooShort, contMap, marketData, unsupported };

MsgKind_t KindOf(const unsigned char* msg, unsigned int len) {
    if (len >= g_uiHeadSize && IsMarketData(ReadType(msg))) [[likely]] {
        return MsgKind_t::marketData;
    }
    if (len < g_uiTypeSize || IsMarketData(ReadType(msg))) {
        return MsgKind_t::tooShort;
    }
    return ReadType(msg) == g_uiTypeContMap ? MsgKind_t::contMap : MsgKind_t::unsupported;
}

[[gnu::cold, gnu::noinline]] void WarnShortMsg(unsigned int len) {
    LOG_WARN("Dma message of %u bytes is too short for its kind. It is dropped.", len);
}

[[gnu::cold, gnu::noinline]] void DumpUnsupportedMsg(const unsigned char* msg, unsigned int len) {
    constexpr unsigned int bytesPerWrite = 8;
    constexpr char digits[] = "0123456789ABCDEF";
    LOG_ERROR("Unsupported dma type, type:%u.", ReadType(msg));
    for (unsigned int uiDone = 0; uiDone < len;) {
        const unsigned int uiCount = std::min(bytesPerWrite, len - uiDone);
        char szHex[2 * bytesPerWrite] = {};
        char* pEnd = szHex;
        for (const unsigned char* p = msg + uiDone; p != msg + uiDone + uiCount; ++p) {
            *pEnd++ = digits[*p >> 4];
            *pEnd++ = digits[*p & 0xF];
        }
        std::fwrite(szHex, 1, static_cast<std::size_t>(pEnd - szHex), stdout);
        uiDone += uiCount;
    }
    std::putchar('\n');
}

}  // namespace

// One market-data message to its slot. Part of the operations below, not a call from them. The flag
// comes before the callback, so that nothing is left to do behind it: the handler ends in the jump
// to the callback and needs no frame of its own.
[[gnu::always_inline]] inline void CZceDmaChanImpl::Deliver(unsigned int type,
                                                            const unsigned char* msg) {
    const unsigned char* const body = msg + g_uiHeadSize;
    m_bGotData = 1;
    IVelaZceMdSpi& spi = *m_pApi->GetSpi();
    // By halves, so that each of the four is two comparisons away; the singles' way goes straight
    // on, and the L1 single's takes no branch.
    static_assert(g_uiTypeMd17 % 2 == 1 && g_uiTypeMd18 % 2 == 0 && g_uiTypeMd19 % 2 == 1 &&
                  g_uiTypeMd20 % 2 == 0);
    if (type % 2 != 0) [[likely]] {
        if (type == g_uiTypeMd17) [[likely]] {
            return spi.OnDmaType17Msg(body);
        }
        return spi.OnDmaType19Msg(body);
    }
    if (type == g_uiTypeMd18) {
        return spi.OnDmaType18Msg(body);
    }
    return spi.OnDmaType20Msg(body);
}

// The hot path: nothing stands between the poll and the callback but a length, the type and the
// slot. One comparison settles that the type is one of the four and that the signal handlers are
// there. It begins a cache line, as VelaRecv does: what it executes lies in the fewest lines.
[[gnu::aligned(64)]] void CZceDmaChanImpl::DmaEntrance(const unsigned char* msg, unsigned int len,
                                                       void* ctx) {
    auto* const pChan = static_cast<CZceDmaChanImpl*>(ctx);
    if (len >= g_uiHeadSize && ReadType(msg) - g_uiTypeMd17 < pChan->m_uiDirectTypes) [[likely]] {
        pChan->Deliver(ReadType(msg), msg);
        return;
    }
    HandleOtherMsg(msg, len, ctx);
}

// The first market-data message of the process installs the signal handlers before its callback;
// not sooner, deliberately: during the start and the learning of the instruments SIGINT and SIGTERM
// keep their default effect.
void CZceDmaChanImpl::DeliverWithSignals(unsigned int type, const unsigned char* msg) {
    if (m_bSignalRegister.load(std::memory_order_relaxed) == 0) {
        CSignalProcess::InitSignal();
        m_bSignalRegister.store(1, std::memory_order_relaxed);
    }
    m_uiDirectTypes = g_uiTypeMd20 - g_uiTypeMd17 + 1;
    Deliver(type, msg);
}

void CZceDmaChanImpl::HandleUpSubsResult(const unsigned char* msg, unsigned int len,
                                         void* /*ctx*/) {
    switch (KindOf(msg, len)) {
        case MsgKind_t::marketData:
            DeliverWithSignals(ReadType(msg), msg);
            break;
        case MsgKind_t::tooShort:
            WarnShortMsg(len);
            break;
        case MsgKind_t::contMap:
        case MsgKind_t::unsupported:
            DumpUnsupportedMsg(msg, len);
            break;
    }
}

// The handler's own arguments as they came, so that DmaEntrance has nothing to move before it
// knows.
void CZceDmaChanImpl::HandleOtherMsg(const unsigned char* msg, unsigned int len, void* ctx) {
    auto* const pChan = static_cast<CZceDmaChanImpl*>(ctx);
    switch (KindOf(msg, len)) {
        case MsgKind_t::contMap:
            // Nothing may be thrown through the frames of the vendor's poll. The exchange repeats
            // its broadcast: what this packet lacked, or was to set going, comes with a later one.
            try {
                pChan->HandleContMapPkt(msg, len, ctx);
            } catch (const std::exception& error) {
                LOG_ERROR("Instrument map packet of %u bytes is dropped, errmsg:%s.", len,
                          error.what());
            }
            break;
        case MsgKind_t::tooShort:
            WarnShortMsg(len);
            break;
        case MsgKind_t::marketData:
            pChan->DeliverWithSignals(ReadType(msg), msg);
            break;
        case MsgKind_t::unsupported:
            LOG_ERROR("Unsupported dma type 0x%x", ReadType(msg));
            break;
    }
}

void CZceDmaChanImpl::HandleContMapPkt(const unsigned char* msg, unsigned int len, void* /*ctx*/) {
    if (m_pFpgaServ == nullptr) {
        LOG_WARN("Instrument map packet on a channel that is not the master. It is dropped.");
        return;
    }
    if (ZceIsInTradeTime()) {
        LOG_WARN("Now is in trade time! Note that you should start program before each trade!");
        m_pFpgaServ->FpgaCloseTrans();
        return;
    }
    if (s_bAllSubsOver == 0 && s_bCallTimeExpired == 1) {
        SubscribeAll();
        m_pFpgaServ->FpgaCloseTrans();
        LOG_INFO("All channel subs over.");
        s_bAllSubsOver = 1;
        return;
    }
    if (len < g_uiMapMinSize) {
        LOG_WARN("Unexpect dma size, size %u", len);
        return;
    }
    if (s_bCallTimeExpired == 0 && IsCallTimeExpired()) {
        s_bCallTimeExpired = 1;
        s_bLoadMapEnabled = 0;
        LOG_INFO("Call auction time has expired, totally parse %lu instrumentid.", m_ulParsedCnt);
        m_pBinFile->WriteEndToBin();
        return;
    }
    if (s_bLoadMapEnabled == 1) {
        LoadtoMapFromMac(msg, len);
    }
}

unsigned int CZceDmaChanImpl::LoadtoMapFromMac(const unsigned char* msg, unsigned int len) {
    const unsigned int uiAreaLen = ReadBig16(msg + g_uiMapAreaLenOffset);
    const unsigned int uiLastByte = g_uiMapAreaOffset + uiAreaLen - 1;
    unsigned int uiRecLen = uiAreaLen;
    unsigned int uiOffset = g_uiMapAreaOffset;
    // A record counts if it begins before the last byte of the announced area, also if it reaches
    // beyond that area; what was received is the only end.
    for (unsigned int uiRecNo = 0; uiOffset < uiLastByte; ++uiRecNo) {
        const unsigned char* const pRec = msg + uiOffset;
        const unsigned int uiThisLen = RecordLength(pRec, len - uiOffset);
        const char* const szFault = RecordFault(uiRecNo, uiThisLen, len - uiOffset);
        if (szFault != nullptr) {
            WarnMapRecord(uiRecNo, uiOffset, szFault, uiThisLen);
            break;
        }
        LoadtoMapFromEachMsg(pRec, uiRecNo, uiRecLen);
        uiOffset += uiRecLen;
    }
    return uiRecLen;
}

void CZceDmaChanImpl::LoadtoMapFromEachMsg(const void* rec, unsigned int recNo,
                                           unsigned int& recLen) {
    const auto* const pRec = static_cast<const unsigned char*>(rec);
    const RecHead_t& head = HeadOf(recNo);
    recLen = ReadBig16(pRec);
    // Zeroes behind the name end it; one inside it ends it sooner.
    char szName[g_uiNameBufSize] = {};
    std::memcpy(szName, pRec + head.uiName, recLen - head.uiName);
    LoadtomapFrmParsedMsg(szName, pRec[head.uiAttr],
                          static_cast<unsigned short>(ReadBig16(pRec + head.uiIndex)), recNo);
}

void CZceDmaChanImpl::LoadtomapFrmParsedMsg(const std::string& name, unsigned char /*attr*/,
                                            unsigned short index, unsigned int /*recNo*/) {
    ++m_ulParsedCnt;
    if (m_ulParsedCnt % g_ulParsedLogStep == 0) {
        LOG_INFO("Have parsed %u instrument id already, instnum:%u.",
                 static_cast<unsigned int>(m_ulParsedCnt),
                 static_cast<unsigned int>(m_mapInst.size()));
    }
    const auto it = m_mapInst.lower_bound(name);
    if (it != m_mapInst.end() && it->first == name) {
        it->second = index;
        return;
    }
    m_pBinFile->Normal_WriteInstToBin(name, index);
    m_mapInst.emplace_hint(it, name, index);
}
