#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "DrvEnyx/IDrv.h"
#include "DrvEnyx/IDrvDMA.h"
#include "DrvEnyx/drvDMAEnyx.h"
#include "DrvEnyx/drvEnyx.h"
#include "DrvEnyx/enyxHw.h"
#include "drvFixture.h"

// The slots of the two interfaces, called by number, and the layout of what crosses them. The
// destructor, slot 1, takes two entries of the table (0: complete, 1: deleting), so that the number
// of a slot from 2 on is also its entry.
namespace {

using ::testing::ElementsAre;

template <typename Function>
Function Entry(void* object, std::size_t number) {
    void** table = nullptr;
    std::memcpy(&table, object, sizeof table);
    return reinterpret_cast<Function>(table[number]);
}

std::vector<std::string> calls;

class RecordingDrv final : public IDrv {
  public:
    ~RecordingDrv() override { calls.emplace_back("destructor"); }
    int Init(void*) override { return Made("Init"); }
    int ReadInt8(unsigned long, unsigned char&) override { return Made("ReadInt8"); }
    int ReadInt16(unsigned long, unsigned short&) override { return Made("ReadInt16"); }
    int ReadInt32(unsigned long, unsigned int&) override { return Made("ReadInt32"); }
    int ReadInt64(unsigned long, unsigned long&) override { return Made("ReadInt64"); }
    long ReadLess128Bytes(unsigned long, unsigned char*, unsigned long) override {
        return Made("ReadLess128Bytes");
    }
    long ReadBytes(unsigned long, unsigned char*, unsigned long) override {
        return Made("ReadBytes");
    }
    int WriteInt8(unsigned long, unsigned char) override { return Made("WriteInt8"); }
    int WriteInt16(unsigned long, unsigned short) override { return Made("WriteInt16"); }
    int WriteInt32(unsigned long, unsigned int) override { return Made("WriteInt32"); }
    int WriteInt32_Log(unsigned long, unsigned int) override { return Made("WriteInt32_Log"); }
    int WriteInt32_LogWithRead(unsigned long, unsigned int) override {
        return Made("WriteInt32_LogWithRead");
    }
    int WriteInt64(unsigned long, unsigned long) override { return Made("WriteInt64"); }
    long WriteLess128Bytes(unsigned long, unsigned char*, unsigned long) override {
        return Made("WriteLess128Bytes");
    }
    long WriteBytes(unsigned long, unsigned char*, unsigned long) override {
        return Made("WriteBytes");
    }

  private:
    static int Made(const char* name) {
        calls.emplace_back(name);
        return 0;
    }
};

class RecordingDma : public IDrvDMA {
  public:
    ~RecordingDma() override { calls.emplace_back("destructor"); }
    int Init(void*) override { return Made("Init"); }
    int Send(void*, unsigned int) override { return Made("Send"); }
    int RecvOnce(void*, void*) override { return Made("RecvOnce"); }
    int RecvOnceCb() override { return Made("RecvOnceCb"); }
    void RegisterHandler(void*, void*) override { Made("RegisterHandler"); }
    int PollData() override { return Made("PollData"); }

  private:
    static int Made(const char* name) {
        calls.emplace_back(name);
        return 0;
    }
};

using Destructor = void (*)(void*);

template <typename Object>
void CallDestructorEntries() {
    calls.clear();
    alignas(Object) unsigned char place[sizeof(Object)];
    Object* placed = new (place) Object;
    Entry<Destructor>(placed, 0)(placed);
    Object* allocated = new Object;
    Entry<Destructor>(allocated, 1)(allocated);
    EXPECT_THAT(calls, ElementsAre("destructor", "destructor"));
}

TEST(DriverSlots, RegisterDriverDestructorIsSlot1) {
    CallDestructorEntries<RecordingDrv>();
}

TEST(DriverSlots, DmaDriverDestructorIsSlot1) {
    CallDestructorEntries<RecordingDma>();
}

TEST(DriverSlots, RegisterDriverOperationsAreSlots2To16) {
    using Init = int (*)(void*, void*);
    using Read = int (*)(void*, unsigned long, void*);
    using Block = long (*)(void*, unsigned long, unsigned char*, unsigned long);
    using Write = int (*)(void*, unsigned long, unsigned long);
    RecordingDrv drv;
    std::uint64_t value = 0;
    unsigned char block[8] = {};
    calls.clear();
    Entry<Init>(&drv, 2)(&drv, nullptr);
    for (const std::size_t number : {3U, 4U, 5U, 6U}) {
        Entry<Read>(&drv, number)(&drv, 1, &value);
    }
    for (const std::size_t number : {7U, 8U}) {
        Entry<Block>(&drv, number)(&drv, 1, block, sizeof block);
    }
    for (const std::size_t number : {9U, 10U, 11U, 12U, 13U, 14U}) {
        Entry<Write>(&drv, number)(&drv, 1, 2);
    }
    for (const std::size_t number : {15U, 16U}) {
        Entry<Block>(&drv, number)(&drv, 1, block, sizeof block);
    }
    EXPECT_THAT(calls, ElementsAre("Init", "ReadInt8", "ReadInt16", "ReadInt32", "ReadInt64",
                                   "ReadLess128Bytes", "ReadBytes", "WriteInt8", "WriteInt16",
                                   "WriteInt32", "WriteInt32_Log", "WriteInt32_LogWithRead",
                                   "WriteInt64", "WriteLess128Bytes", "WriteBytes"));
}

TEST(DriverSlots, DmaDriverOperationsAreSlots2To7) {
    using OnePointer = int (*)(void*, void*);
    using Send = int (*)(void*, void*, unsigned int);
    using TwoPointers = int (*)(void*, void*, void*);
    using Register = void (*)(void*, void*, void*);
    using None = int (*)(void*);
    RecordingDma dma;
    calls.clear();
    Entry<OnePointer>(&dma, 2)(&dma, nullptr);
    Entry<Send>(&dma, 3)(&dma, nullptr, 0);
    Entry<TwoPointers>(&dma, 4)(&dma, nullptr, nullptr);
    Entry<None>(&dma, 5)(&dma);
    Entry<Register>(&dma, 6)(&dma, nullptr, nullptr);
    Entry<None>(&dma, 7)(&dma);
    EXPECT_THAT(calls, ElementsAre("Init", "Send", "RecvOnce", "RecvOnceCb", "RegisterHandler",
                                   "PollData"));
}

TEST(DriverSlots, ThePollerOfAnyDriverIsItsRecvOnce) {
    class Answering final : public RecordingDma {
      public:
        int RecvOnce(void* handler, void* context) override {
            EXPECT_EQ(handler, reinterpret_cast<void*>(&Take));
            EXPECT_EQ(context, &calls);
            return 1 + RecordingDma::RecvOnce(handler, context);
        }
        static void Take(const unsigned char* /*data*/, unsigned int /*size*/, void* /*context*/) {}
    };
    calls.clear();
    Answering dma;
    const DrvDmaPoll_t poller = dma.Poller();
    EXPECT_EQ(poller.poll(poller.polled, &Answering::Take, &calls), 1);
    EXPECT_THAT(calls, ElementsAre("RecvOnce"));
}

TEST(DriverRecords, RegisterOpenRecordIsTwo16BitFieldsInOrder) {
    static_assert(offsetof(DrvRegInitParms_t, busId) == 0);
    static_assert(offsetof(DrvRegInitParms_t, coreId) == 2);
    static_assert(sizeof(DrvRegInitParms_t) == 4);
    const DrvRegInitParms_t parms{0x0102, 474};
    unsigned short fields[2] = {};
    std::memcpy(fields, &parms, sizeof parms);
    EXPECT_THAT(fields, ElementsAre(0x0102, 474));
}

TEST(DriverRecords, DmaOpenRecordIsBusNameAndThreeValuesInOrder) {
    static_assert(offsetof(DrvDmaInitParms_t, busId) == 0);
    static_assert(sizeof(DrvDmaInitParms_t::busId) == 4);
    static_assert(offsetof(DrvDmaInitParms_t, chanName) == 8);
    constexpr std::size_t afterName = 8 + sizeof(std::string);
    static_assert(offsetof(DrvDmaInitParms_t, uiReserved0) == afterName);
    static_assert(offsetof(DrvDmaInitParms_t, uiReserved1) == afterName + 4);
    static_assert(offsetof(DrvDmaInitParms_t, uiReserved2) == afterName + 8);
    static_assert(sizeof(DrvDmaInitParms_t::uiReserved2) == 4);
}

template <typename Value>
Value At(const void* object, std::size_t offset) {
    Value value{};
    std::memcpy(&value, static_cast<const unsigned char*>(object) + offset, sizeof value);
    return value;
}

class DriverObjects : public DrvTest {};

TEST_F(DriverObjects, RegisterDriverHoldsTheCoreThenTheFlag) {
    static_assert(sizeof(CDrvEnyxReg) == 24);
    CDrvEnyxReg drv;
    EXPECT_EQ(At<void*>(&drv, 8), nullptr);
    EXPECT_EQ(At<unsigned char>(&drv, 16), 0);
    DrvRegInitParms_t parms{0, 475};
    EXPECT_EQ(drv.Init(&parms), -1);
    EXPECT_EQ(At<void*>(&drv, 8), nullptr);
    EXPECT_EQ(At<unsigned char>(&drv, 16), 0);
    parms.coreId = 474;
    EXPECT_EQ(drv.Init(&parms), 0);
    EXPECT_NE(At<void*>(&drv, 8), nullptr);
    EXPECT_EQ(At<unsigned char>(&drv, 16), 1);
}

// Offsets in the DMA driver, by the order of its members.
constexpr std::size_t dmaBus = 8;
constexpr std::size_t dmaName = 16;
constexpr std::size_t dmaKept = dmaName + sizeof(std::string);
constexpr std::size_t dmaInited = dmaKept + 12;
constexpr std::size_t dmaC2a = dmaInited + 4;
constexpr std::size_t dmaA2c = dmaC2a + 8;
constexpr std::size_t dmaA2cMtu = dmaA2c + 8;
constexpr std::size_t dmaC2aMtu = dmaA2cMtu + 4;
constexpr std::size_t dmaHandler = dmaC2aMtu + 4;
constexpr std::size_t dmaContext = dmaHandler + 8;
constexpr std::size_t dmaStreamName = dmaContext + 8;
constexpr std::size_t dmaChannel = dmaStreamName + sizeof(std::string);

const std::string& StringAt(const void* object, std::size_t offset) {
    return *reinterpret_cast<const std::string*>(static_cast<const unsigned char*>(object) +
                                                 offset);
}

TEST_F(DriverObjects, DmaDriverStartsCleared) {
    const CDrvDMAEnyx dma;
    EXPECT_EQ(At<unsigned short>(&dma, dmaBus), 0);
    EXPECT_EQ(StringAt(&dma, dmaName), "");
    EXPECT_EQ(At<unsigned char>(&dma, dmaInited), 0);
    EXPECT_EQ(At<void*>(&dma, dmaC2a), nullptr);
    EXPECT_EQ(At<void*>(&dma, dmaA2c), nullptr);
    EXPECT_EQ(At<unsigned int>(&dma, dmaA2cMtu), 0U);
    EXPECT_EQ(At<unsigned int>(&dma, dmaC2aMtu), 0U);
    EXPECT_EQ(At<void*>(&dma, dmaHandler), nullptr);
    EXPECT_EQ(At<void*>(&dma, dmaContext), nullptr);
    EXPECT_EQ(StringAt(&dma, dmaStreamName), "");
}

TEST_F(DriverObjects, DmaDriverHoldsItsMembersInOrder) {
    velatest::FakeEnyx::SetBoards({7});
    velatest::FakeEnyx::SetMtu(4096, 512);
    CDrvDMAEnyx dma;
    DrvDmaInitParms_t parms{0xABC0007, "CUSTOM_CHAN5_DATA", 21, 64, 23};
    ASSERT_EQ(dma.Init(&parms), 0);
    int handler = 0;
    int context = 0;
    dma.RegisterHandler(&handler, &context);
    EXPECT_EQ(At<unsigned short>(&dma, dmaBus), 7);
    EXPECT_EQ(StringAt(&dma, dmaName), "CUSTOM_CHAN5_DATA");
    EXPECT_EQ(At<unsigned int>(&dma, dmaKept), 21U);
    EXPECT_EQ(At<unsigned int>(&dma, dmaKept + 4), 64U);
    EXPECT_EQ(At<unsigned int>(&dma, dmaKept + 8), 23U);
    EXPECT_EQ(At<unsigned char>(&dma, dmaInited), 1);
    EXPECT_NE(At<void*>(&dma, dmaC2a), nullptr);
    EXPECT_NE(At<void*>(&dma, dmaA2c), nullptr);
    // The a2c stream is the one that a poll asks.
    std::uint32_t value = 0;
    EXPECT_EQ(enyx_hw_a2c_stream_get_mtu(static_cast<enyx_hw_a2c_stream*>(At<void*>(&dma, dmaA2c)),
                                         &value),
              0);
    EXPECT_EQ(At<unsigned int>(&dma, dmaA2cMtu), 4096U);
    EXPECT_EQ(At<unsigned int>(&dma, dmaC2aMtu), 512U);
    EXPECT_EQ(At<void*>(&dma, dmaHandler), &handler);
    EXPECT_EQ(At<void*>(&dma, dmaContext), &context);
    EXPECT_EQ(StringAt(&dma, dmaStreamName), "CUSTOM_CHAN5_DATA");
    EXPECT_EQ(At<int>(&dma, dmaChannel), 5);
}

}  // namespace
