/* The header of the captures as a C compiler reads it. */
#include "capture/ZceCapture.h"

ZceCapturePrefix_t PrefixInC(const unsigned char* pPacket);

ZceCapturePrefix_t PrefixInC(const unsigned char* pPacket) {
    ZceCapturePrefix_t prefix;
    ZceCaptureReadPrefix(pPacket, &prefix);
    return prefix;
}
