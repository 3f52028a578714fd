#ifndef ZCE_CAPTURE_H
#define ZCE_CAPTURE_H

/**
 * @file
 * A capture: a file of the DMA messages that an application polled, written by libzce-record.so,
 * read by zce-board's replay and by Wireshark with zce.lua.
 *
 * The file is a libpcap file with time stamps in nanoseconds (magic 0xa1b23c4d) and link type
 * LINKTYPE_USER0, 147, or the same as one zstd frame. A reader should also take microseconds,
 * pcapng and several frames. The time of a packet is CLOCK_REALTIME when the message was polled, to
 * 1 us; of messages that were polled right behind each other up to eight may have one time. A
 * packet is never cut short: captured and original length are equal.
 *
 * Each packet begins with a prefix of 16 bytes, all integers little-endian:
 *
 *     offset  size  meaning
 *      0      1     version, 1
 *      1      1     kind: 1 a DMA message, 2 messages were lost here
 *      2      2     bus index of the board; 65535: not known
 *      4      2     DMA channel, 0 to 15
 *      6      2     which opening of this stream by the recorded process: 1, 2, 3, ...
 *      8      8     kind 1: number of the message in this opening: 1, 2, 3, ..., lost ones counted
 *                   kind 2: how many messages were lost
 *
 * Kind 1: the DMA message follows, from its byte 0 (the head with the message type) to its last
 * byte, as it was polled; ZceBoardMsg.h has the layouts of the software board's messages.
 *
 * Kind 2: nothing follows. The messages that the recorder lost because it could not write as fast
 * as they came: those between the messages of the same opening before and behind this packet. The
 * application got them. A message that the board itself dropped is not in these counts.
 *
 * The messages of one opening are in the order of their polls. The packets of several streams are
 * in the order of time as far as possible; a clock that was set back, or a polling thread that was
 * held up for milliseconds, may make an exception.
 *
 * This header can be read as C99 and as C++11.
 */

#include <stdint.h> /* NOLINT(modernize-deprecated-headers): read by C compilers too */
#include <string.h> /* NOLINT(modernize-deprecated-headers) */

#ifdef __cplusplus
extern "C" {
#endif

/** Versions, kinds and sizes. */
enum { /* NOLINT: C has no other way to name a constant of an array's size */
       ZCE_CAPTURE_VERSION = 1,        /**< of the prefix */
       ZCE_CAPTURE_KIND_MESSAGE = 1,   /**< a DMA message follows */
       ZCE_CAPTURE_KIND_LOST = 2,      /**< messages were lost here */
       ZCE_CAPTURE_PREFIX_SIZE = 16,   /**< bytes */
       ZCE_CAPTURE_CHANNELS = 16,      /**< channels are 0 to 15 */
       ZCE_CAPTURE_LINK_TYPE = 147,    /**< LINKTYPE_USER0 */
       ZCE_CAPTURE_SNAPLEN = 262144,   /**< of the file; no packet is larger, the prefix included */
       ZCE_CAPTURE_BUS_UNKNOWN = 65535 /**< in place of a bus index */
};

/** What every packet begins with, 16 bytes. */
typedef struct ZceCapturePrefix_t { /* NOLINT(modernize-use-using) */
    uint8_t ucVersion;              /**<  0  ZCE_CAPTURE_VERSION */
    uint8_t ucKind;                 /**<  1  ZCE_CAPTURE_KIND_... */
    uint16_t usBus;                 /**<  2  bus index of the board */
    uint16_t usChannel;             /**<  4  DMA channel, 0 to 15 */
    uint16_t usOpening;             /**<  6  which opening of the stream */
    uint64_t ulNumber;              /**<  8  number of the message, or how many were lost */
} ZceCapturePrefix_t;

/** Copies the prefix of a packet, which need not lie on any boundary. */
static inline void ZceCaptureReadPrefix(const unsigned char* pPacket, ZceCapturePrefix_t* pPrefix) {
    memcpy(pPrefix, pPacket, sizeof(*pPrefix));
}

#ifdef __cplusplus
} /* extern "C" */

#include <cstddef>

static_assert(sizeof(ZceCapturePrefix_t) == 16, "prefix");
static_assert(offsetof(ZceCapturePrefix_t, ucVersion) == 0, "prefix");
static_assert(offsetof(ZceCapturePrefix_t, ucKind) == 1, "prefix");
static_assert(offsetof(ZceCapturePrefix_t, usBus) == 2, "prefix");
static_assert(offsetof(ZceCapturePrefix_t, usChannel) == 4, "prefix");
static_assert(offsetof(ZceCapturePrefix_t, usOpening) == 6, "prefix");
static_assert(offsetof(ZceCapturePrefix_t, ulNumber) == 8, "prefix");
#endif

#endif /* ZCE_CAPTURE_H */
