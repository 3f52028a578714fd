#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

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

constexpr const char* g_szBeyondEnd = "beyond the end";

// Why a record of length recLen cannot be taken when `left` bytes are there for it; null if it can.
const char* RecordFault(unsigned int recNo, unsigned int recLen, unsigned int left) {
    const unsigned int uiHead = HeadOf(recNo).uiName;
    if (recLen < uiHead) {
        return "length below its head's";
    }
    if (recLen > left) {
        return g_szBeyondEnd;
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

[[gnu::cold, gnu::noinline]] void WarnShortMsg(unsigned int len) {
    LOG_WARN("Dma message of %u bytes is too short for its kind. It is dropped.", len);
}

[[gnu::cold, gnu::noinline]] void DumpUnsupportedMsg(std::uint32_t uiType, const unsigned char* msg,
                                                     unsigned int len) {
    constexpr unsigned int bytesPerWrite = 8;
    constexpr char digits[] = "0123456789ABCDEF";
    LOG_ERROR("Unsupported dma type, type:%u.", uiType);
    for (unsigned int uiDone = 0; uiDone < len;) {
        const unsigned int uiCount = std::min(bytesPerWrite, len - uiDone);
        char szHex[2 * bytesPerWrite];
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

// One market-data message to its slot. Part of the two operations below, not a call from them.
[[gnu::always_inline]] inline void CZceDmaChanImpl::Deliver(unsigned int type,
                                                            const unsigned char* msg) {
    if (m_bSignalRegister == 0) [[unlikely]] {
        RegisterSignals();
    }
    IVelaZceMdSpi& spi = *m_pApi->GetSpi();
    const unsigned char* const body = msg + g_uiHeadSize;
    switch (type) {
        case g_uiTypeMd17:
            spi.OnDmaType17Msg(body);
            break;
        case g_uiTypeMd18:
            spi.OnDmaType18Msg(body);
            break;
        case g_uiTypeMd19:
            spi.OnDmaType19Msg(body);
            break;
        default:  // 20: there is no fifth
            spi.OnDmaType20Msg(body);
            break;
    }
    m_bGotData = 1;
}

// The hot path: nothing stands between the poll and the callback but a length, the type, the
// signal flag and the slot.
void CZceDmaChanImpl::DmaEntrance(const unsigned char* msg, unsigned int len, void* ctx) {
    auto* const pChan = static_cast<CZceDmaChanImpl*>(ctx);
    if (len >= g_uiHeadSize) [[likely]] {
        const std::uint32_t uiType = ReadType(msg);
        if (IsMarketData(uiType)) [[likely]] {
            pChan->Deliver(uiType, msg);
            return;
        }
    }
    pChan->HandleOtherMsg(msg, len);
}

void CZceDmaChanImpl::HandleUpSubsResult(const unsigned char* msg, unsigned int len,
                                         void* /*ctx*/) {
    const bool bHasType = len >= g_uiTypeSize;
    const std::uint32_t uiType = bHasType ? ReadType(msg) : 0;
    if (bHasType && !IsMarketData(uiType)) {
        DumpUnsupportedMsg(uiType, msg, len);
    } else if (len < g_uiHeadSize) {
        WarnShortMsg(len);
    } else {
        Deliver(uiType, msg);
    }
}

void CZceDmaChanImpl::HandleOtherMsg(const unsigned char* msg, unsigned int len) {
    const std::uint32_t uiType = len < g_uiTypeSize ? g_uiTypeMd17 : ReadType(msg);
    if (IsMarketData(uiType)) {
        WarnShortMsg(len);
    } else if (uiType == g_uiTypeContMap) {
        HandleContMapPkt(msg, len, this);
    } else {
        LOG_ERROR("Unsupported dma type 0x%x", uiType);
    }
}

// Not before the first market-data message, deliberately: during the start and the learning of the
// instruments SIGINT and SIGTERM keep their default effect.
void CZceDmaChanImpl::RegisterSignals() {
    CSignalProcess::InitSignal();
    m_bSignalRegister = 1;
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

unsigned int CZceDmaChanImpl::LoadtoMapFromMac(unsigned char* msg) {
    return LoadtoMapFromMac(msg, g_uiMapAreaOffset + ReadBig16(msg + g_uiMapAreaLenOffset));
}

unsigned int CZceDmaChanImpl::LoadtoMapFromMac(const unsigned char* msg, unsigned int len) {
    const unsigned int uiAreaLen = ReadBig16(msg + g_uiMapAreaLenOffset);
    const unsigned int uiAreaEnd = g_uiMapAreaOffset + uiAreaLen;
    const unsigned int uiReadable = std::min(uiAreaEnd, len);
    unsigned int uiRecLen = uiAreaLen;
    unsigned int uiOffset = g_uiMapAreaOffset;
    // A single byte at the end of the area begins no record.
    for (unsigned int uiRecNo = 0; uiOffset + 1 < uiAreaEnd; ++uiRecNo) {
        const unsigned int uiLeft = uiReadable - uiOffset;
        const bool bHasLen = uiLeft >= g_uiRecLenSize;
        const unsigned int uiThisLen = bHasLen ? ReadBig16(msg + uiOffset) : 0;
        const char* const szFault =
            bHasLen ? RecordFault(uiRecNo, uiThisLen, uiLeft) : g_szBeyondEnd;
        if (szFault != nullptr) {
            WarnMapRecord(uiRecNo, uiOffset, szFault, uiThisLen);
            return uiRecLen;
        }
        LoadtoMapFromEachMsg(const_cast<unsigned char*>(msg) + uiOffset, uiRecNo, uiRecLen);
        uiOffset += uiRecLen;
    }
    if (uiAreaEnd > len) {
        LOG_WARN("Instrument map packet of %u bytes announces %u bytes of records.", len,
                 uiAreaLen);
    }
    return uiRecLen;
}

void CZceDmaChanImpl::LoadtoMapFromEachMsg(void* rec, unsigned int recNo, unsigned int& recLen) {
    const auto* const pRec = static_cast<const unsigned char*>(rec);
    const RecHead_t& head = HeadOf(recNo);
    recLen = ReadBig16(pRec);
    const char* const szFault = RecordFault(recNo, recLen, UINT_MAX);
    if (szFault != nullptr) {
        WarnMapRecord(recNo, 0, szFault, recLen);
        return;
    }
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
    const auto it = m_mapInst.find(name);
    if (it != m_mapInst.end()) {
        it->second = index;
        return;
    }
    m_pBinFile->Normal_WriteInstToBin(name, index);
    m_mapInst.emplace(name, index);
}
