#ifndef ZCE_BOARD_MSG_H
#define ZCE_BOARD_MSG_H

/**
 * @file
 * The messages of the software board, types 17 to 20, as an application receives them.
 *
 * The callbacks OnDmaType17Msg to OnDmaType20Msg get a pointer to a message's body, which is byte
 * 12 of the DMA message. The body is valid during the callback only; copy what is to be kept.
 *
 *     type  callback         feed  instruments                  body
 *     17    OnDmaType17Msg   L1    single-leg                   ZceBoardL1_t
 *     18    OnDmaType18Msg   L1    combinations (SPD-, IPS-)    ZceBoardL1_t
 *     19    OnDmaType19Msg   L5    single-leg                   ZceBoardL5_t
 *     20    OnDmaType20Msg   L5    combinations (SPD-, IPS-)    ZceBoardL5_t
 *
 * All integers are little-endian, of the widths given, naturally aligned (a body starts on a
 * boundary of 8 bytes), without hidden padding. Prices are in 1/10000 of the quoted unit, so 5612.5
 * is 56125000; a price of 0 with a volume of 0 means that there is no order at that level; the
 * prices of combinations may be negative. This header can be read as C99 and as C++11.
 */

#include <stdint.h> /* NOLINT(modernize-deprecated-headers): read by C compilers too */
#include <string.h> /* NOLINT(modernize-deprecated-headers) */

#ifdef __cplusplus
extern "C" {
#endif

/** Message types and sizes. */
enum { /* NOLINT: C has no other way to name a constant of an array's size */
       ZCE_BOARD_TYPE_INST_MAP = 2,    /**< a part of the instrument list */
       ZCE_BOARD_TYPE_L1_SINGLE = 17,  /**< L1, single-leg */
       ZCE_BOARD_TYPE_L1_COMBINE = 18, /**< L1, combinations */
       ZCE_BOARD_TYPE_L5_SINGLE = 19,  /**< L5, single-leg */
       ZCE_BOARD_TYPE_L5_COMBINE = 20, /**< L5, combinations */
       ZCE_BOARD_HEAD_SIZE = 12,       /**< bytes in front of the body */
       ZCE_BOARD_NAME_SIZE = 16,       /**< bytes of an instrument's name */
       ZCE_BOARD_PRICE_SCALE = 10000   /**< a price in a body is the quoted one times this */
};

/** Where the exchange's day stands (ucPhase). */
enum {                              /* NOLINT */
       ZCE_BOARD_PHASE_CLOSED = 0,  /**< outside the day */
       ZCE_BOARD_PHASE_AUCTION = 1, /**< call auction */
       ZCE_BOARD_PHASE_TRADING = 2, /**< trading */
       ZCE_BOARD_PHASE_BREAK = 3    /**< between two trading times */
};

/** The head of every message, 12 bytes; the body follows. An application does not see it. */
typedef struct ZceBoardHead_t { /* NOLINT(modernize-use-using) */
    uint32_t uiType;            /**<  0  message type: 2, 17 to 20 */
    uint16_t usChannel;         /**<  4  the DMA channel it was sent to, 0 to 15 */
    uint16_t usBodyLen;         /**<  6  bytes after the head */
    uint32_t uiZero;            /**<  8  0 */
} ZceBoardHead_t;

/** One price level, 24 bytes. */
typedef struct ZceBoardLevel_t { /* NOLINT(modernize-use-using) */
    int64_t lBidPrice;           /**<  0  of the buyers */
    int64_t lAskPrice;           /**<  8  of the sellers */
    uint32_t uiBidVolume;        /**< 16  lots */
    uint32_t uiAskVolume;        /**< 20  lots */
} ZceBoardLevel_t;

/** What all bodies begin with, 112 bytes. */
typedef struct ZceBoardQuote_t {      /* NOLINT(modernize-use-using) */
    uint64_t ulSeq;                   /**<   0  counts the messages 17 to 20 sent to this channel
                                              together, 1, 2, 3, ... from each opening of the
                                              stream; a number left out is a message lost because
                                              the reader was too slow */
    uint32_t uiDate;                  /**<   8  the exchange's date, yyyymmdd */
    uint32_t uiTime;                  /**<  12  the exchange's time of day, hhmmss */
    uint64_t ulTimeNs;                /**<  16  the same, in ns since midnight */
    char szName[ZCE_BOARD_NAME_SIZE]; /**<  24  instrument, NUL-padded; 16 characters: no NUL */
    uint16_t usIndex;                 /**<  40  the instrument's index in its table */
    uint8_t ucTable;                  /**<  42  0 single-leg, 1 combination */
    uint8_t ucLevels;                 /**<  43  price levels in this body: 1 or 5 */
    uint8_t ucPhase;                  /**<  44  ZCE_BOARD_PHASE_... */
    uint8_t aucZero[3];               /**<  45  0 */
    int64_t lLastPrice;               /**<  48  of the last trade */
    int64_t lOpenPrice;               /**<  56  of the first trade */
    int64_t lHighPrice;               /**<  64  of the day */
    int64_t lLowPrice;                /**<  72  of the day */
    int64_t lPreSettlePrice;          /**<  80  the day before's settlement price */
    uint64_t ulVolume;                /**<  88  lots traded today */
    uint64_t ulOpenInterest;          /**<  96  lots */
    uint32_t uiLastVolume;            /**< 104  lots of the last trade */
    uint32_t uiZero;                  /**< 108  0 */
} ZceBoardQuote_t;

/** Body of types 17 and 18, 136 bytes. */
typedef struct ZceBoardL1_t {  /* NOLINT(modernize-use-using) */
    ZceBoardQuote_t quote;     /**<   0  what all have */
    ZceBoardLevel_t aLevel[1]; /**< 112  the best bid and ask */
} ZceBoardL1_t;

/** Body of types 19 and 20, 232 bytes. */
typedef struct ZceBoardL5_t {  /* NOLINT(modernize-use-using) */
    ZceBoardQuote_t quote;     /**<   0  what all have */
    ZceBoardLevel_t aLevel[5]; /**< 112  best first */
} ZceBoardL5_t;

/** The size of a body in bytes; 0 for a type that is none of 17 to 20. */
static inline uint32_t ZceBoardBodySize(uint32_t uiType) {
    if (uiType == ZCE_BOARD_TYPE_L1_SINGLE || uiType == ZCE_BOARD_TYPE_L1_COMBINE) {
        return (uint32_t)sizeof(ZceBoardL1_t);
    }
    if (uiType == ZCE_BOARD_TYPE_L5_SINGLE || uiType == ZCE_BOARD_TYPE_L5_COMBINE) {
        return (uint32_t)sizeof(ZceBoardL5_t);
    }
    return 0;
}

/** Copies what all four bodies begin with, from a callback's pointer. */
static inline void ZceBoardReadQuote(const unsigned char* pBody, ZceBoardQuote_t* pQuote) {
    memcpy(pQuote, pBody, sizeof(*pQuote));
}

/** Copies a whole body of type 17 or 18, from a callback's pointer. */
static inline void ZceBoardReadL1(const unsigned char* pBody, ZceBoardL1_t* pL1) {
    memcpy(pL1, pBody, sizeof(*pL1));
}

/** Copies a whole body of type 19 or 20, from a callback's pointer. */
static inline void ZceBoardReadL5(const unsigned char* pBody, ZceBoardL5_t* pL5) {
    memcpy(pL5, pBody, sizeof(*pL5));
}

/** The instrument's name with a NUL at its end, also when it fills all 16 characters. */
static inline const char* ZceBoardName(const ZceBoardQuote_t* pQuote,
                                       char szName[ZCE_BOARD_NAME_SIZE + 1]) {
    memcpy(szName, pQuote->szName, ZCE_BOARD_NAME_SIZE);
    szName[ZCE_BOARD_NAME_SIZE] = '\0';
    return szName;
}

/** A price in quoted units, for printing. */
static inline double ZceBoardPrice(int64_t lPrice) {
    return (double)lPrice / (double)ZCE_BOARD_PRICE_SCALE;
}

#ifdef __cplusplus
} /* extern "C" */

#include <cstddef>

static_assert(sizeof(ZceBoardHead_t) == 12, "head");
static_assert(offsetof(ZceBoardHead_t, usChannel) == 4, "head");
static_assert(offsetof(ZceBoardHead_t, usBodyLen) == 6, "head");
static_assert(sizeof(ZceBoardLevel_t) == 24, "level");
static_assert(offsetof(ZceBoardLevel_t, lAskPrice) == 8, "level");
static_assert(offsetof(ZceBoardLevel_t, uiBidVolume) == 16, "level");
static_assert(offsetof(ZceBoardLevel_t, uiAskVolume) == 20, "level");
static_assert(sizeof(ZceBoardQuote_t) == 112, "quote");
static_assert(offsetof(ZceBoardQuote_t, ulSeq) == 0, "quote");
static_assert(offsetof(ZceBoardQuote_t, uiDate) == 8, "quote");
static_assert(offsetof(ZceBoardQuote_t, uiTime) == 12, "quote");
static_assert(offsetof(ZceBoardQuote_t, ulTimeNs) == 16, "quote");
static_assert(offsetof(ZceBoardQuote_t, szName) == 24, "quote");
static_assert(offsetof(ZceBoardQuote_t, usIndex) == 40, "quote");
static_assert(offsetof(ZceBoardQuote_t, ucTable) == 42, "quote");
static_assert(offsetof(ZceBoardQuote_t, ucLevels) == 43, "quote");
static_assert(offsetof(ZceBoardQuote_t, ucPhase) == 44, "quote");
static_assert(offsetof(ZceBoardQuote_t, lLastPrice) == 48, "quote");
static_assert(offsetof(ZceBoardQuote_t, lOpenPrice) == 56, "quote");
static_assert(offsetof(ZceBoardQuote_t, lHighPrice) == 64, "quote");
static_assert(offsetof(ZceBoardQuote_t, lLowPrice) == 72, "quote");
static_assert(offsetof(ZceBoardQuote_t, lPreSettlePrice) == 80, "quote");
static_assert(offsetof(ZceBoardQuote_t, ulVolume) == 88, "quote");
static_assert(offsetof(ZceBoardQuote_t, ulOpenInterest) == 96, "quote");
static_assert(offsetof(ZceBoardQuote_t, uiLastVolume) == 104, "quote");
static_assert(sizeof(ZceBoardL1_t) == 136 && offsetof(ZceBoardL1_t, aLevel) == 112, "L1");
static_assert(sizeof(ZceBoardL5_t) == 232 && offsetof(ZceBoardL5_t, aLevel) == 112, "L5");
#endif

#endif /* ZCE_BOARD_MSG_H */
