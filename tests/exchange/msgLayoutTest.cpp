#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "ZceBoardMsg.h"

extern "C" {
uint32_t SizeInC(uint32_t uiType);
uint64_t SeqInC(const unsigned char* pBody);
size_t LevelOffsetInC(void);
}

namespace {

TEST(MsgLayout, BodySizesByType) {
    EXPECT_EQ(ZceBoardBodySize(17), 136U);
    EXPECT_EQ(ZceBoardBodySize(18), 136U);
    EXPECT_EQ(ZceBoardBodySize(19), 232U);
    EXPECT_EQ(ZceBoardBodySize(20), 232U);
    EXPECT_EQ(ZceBoardBodySize(2), 0U);
    EXPECT_EQ(ZceBoardBodySize(16), 0U);
    EXPECT_EQ(ZceBoardBodySize(21), 0U);
}

TEST(MsgLayout, FieldsAreReadFromTheirBytes) {
    // Every byte is its own offset, so a field's value tells where it was read.
    std::array<unsigned char, 232> body{};
    for (size_t k = 0; k < body.size(); ++k) {
        body[k] = static_cast<unsigned char>(k);
    }
    ZceBoardL5_t l5;
    ZceBoardReadL5(body.data(), &l5);
    EXPECT_EQ(l5.quote.ulSeq, 0x0706050403020100U);
    EXPECT_EQ(l5.quote.uiDate, 0x0b0a0908U);
    EXPECT_EQ(l5.quote.uiTime, 0x0f0e0d0cU);
    EXPECT_EQ(l5.quote.ulTimeNs, 0x1716151413121110U);
    EXPECT_EQ(l5.quote.szName[0], 24);
    EXPECT_EQ(l5.quote.usIndex, 0x2928U);
    EXPECT_EQ(l5.quote.ucTable, 42);
    EXPECT_EQ(l5.quote.ucLevels, 43);
    EXPECT_EQ(l5.quote.ucPhase, 44);
    EXPECT_EQ(l5.quote.lLastPrice, 0x3736353433323130);
    EXPECT_EQ(l5.quote.lOpenPrice, 0x3f3e3d3c3b3a3938);
    EXPECT_EQ(l5.quote.lHighPrice, 0x4746454443424140);
    EXPECT_EQ(l5.quote.lLowPrice, 0x4f4e4d4c4b4a4948);
    EXPECT_EQ(l5.quote.lPreSettlePrice, 0x5756555453525150);
    EXPECT_EQ(l5.quote.ulVolume, 0x5f5e5d5c5b5a5958U);
    EXPECT_EQ(l5.quote.ulOpenInterest, 0x6766656463626160U);
    EXPECT_EQ(l5.quote.uiLastVolume, 0x6b6a6968U);
    EXPECT_EQ(l5.aLevel[0].lBidPrice, 0x7776757473727170);
    EXPECT_EQ(l5.aLevel[0].lAskPrice, 0x7f7e7d7c7b7a7978);
    EXPECT_EQ(l5.aLevel[0].uiBidVolume, 0x83828180U);
    EXPECT_EQ(l5.aLevel[0].uiAskVolume, 0x87868584U);
    EXPECT_EQ(l5.aLevel[4].uiAskVolume, 0xe7e6e5e4U);
    ZceBoardL1_t l1;
    ZceBoardReadL1(body.data(), &l1);
    EXPECT_EQ(memcmp(&l1, body.data(), 136), 0);
}

TEST(MsgLayout, ANameThatFillsItsFieldIsTerminatedForPrinting) {
    ZceBoardQuote_t quote{};
    memcpy(quote.szName, "ABCDEFGHIJKLMNOP", 16);
    char name[17];
    EXPECT_STREQ(ZceBoardName(&quote, name), "ABCDEFGHIJKLMNOP");
    memcpy(quote.szName, "SR209\0\0\0\0\0\0\0\0\0\0", 16);
    EXPECT_STREQ(ZceBoardName(&quote, name), "SR209");
}

TEST(MsgLayout, PricesAreTenThousandths) {
    EXPECT_DOUBLE_EQ(ZceBoardPrice(56125000), 5612.5);
}

TEST(MsgLayout, ACProgramSeesTheSame) {
    EXPECT_EQ(SizeInC(17), 136U);
    EXPECT_EQ(SizeInC(20), 232U);
    EXPECT_EQ(LevelOffsetInC(), 112U);
    const unsigned char body[112] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(SeqInC(body), 0x0807060504030201U);
}

}  // namespace
