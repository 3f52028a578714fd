/* The header of the message bodies as a C application's compiler reads it. */
#include <stddef.h>

#include "ZceBoardMsg.h"

uint32_t SizeInC(uint32_t uiType);
uint64_t SeqInC(const unsigned char* pBody);
size_t LevelOffsetInC(void);

uint32_t SizeInC(uint32_t uiType) {
    return ZceBoardBodySize(uiType);
}

uint64_t SeqInC(const unsigned char* pBody) {
    ZceBoardQuote_t quote;
    ZceBoardReadQuote(pBody, &quote);
    return quote.ulSeq;
}

size_t LevelOffsetInC(void) {
    return offsetof(ZceBoardL5_t, aLevel);
}
