#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <future>

#include "drvRegFixture.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using velatest::FakeEnyx;

class DrvRegReadBytes : public DrvReg {};
class DrvRegWriteBytes : public DrvReg {};

TEST_F(DrvRegReadBytes, ThirteenBytesAreTwoReadsOf64Bits) {
    Start();
    FakeEnyx::SetBytes(68, Counting(16));
    Bytes block(16, 0xEE);
    EXPECT_EQ(m_drv.ReadBytes(0x11, block.data(), 13), 13);
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", "read off=68 width=64",
                                               "read off=76 width=64", "core_unlock"));
    EXPECT_THAT(block, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 0xEE, 0xEE, 0xEE));
}

TEST_F(DrvRegReadBytes, WholeWordsNeedNoReadMore) {
    Start();
    FakeEnyx::SetBytes(0, Counting(24));
    Bytes block(16);
    EXPECT_EQ(m_drv.ReadBytes(0, block.data(), 16), 16);
    EXPECT_EQ(FakeEnyx::CountOf("read"), 2);
    EXPECT_EQ(block, Counting(16));
}

TEST_F(DrvRegReadBytes, OneByteIsOneReadOf64Bits) {
    Start();
    FakeEnyx::SetBytes(4, {0x5A, 0x5B});
    unsigned char byte = 0;
    EXPECT_EQ(m_drv.ReadBytes(1, &byte, 1), 1);
    EXPECT_EQ(byte, 0x5A);
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", "read off=4 width=64", "core_unlock"));
}

TEST_F(DrvRegReadBytes, LengthOf0ReadsNothing) {
    Start();
    unsigned char byte = 0xEE;
    EXPECT_EQ(m_drv.ReadBytes(1, &byte, 0), 0);
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", "core_unlock"));
    EXPECT_EQ(byte, 0xEE);
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvRegReadBytes, NullDestinationReturns0UnderTheLock) {
    Start();
    EXPECT_EQ(m_drv.ReadBytes(1, nullptr, 8), 0);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Didn't inited in yet!"));
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", "core_unlock"));
}

TEST_F(DrvRegReadBytes, FailedReadKeepsTheBytesBeforeIt) {
    Start();
    FakeEnyx::SetBytes(68, Counting(24));
    FakeEnyx::Fail("read", 2, EIO);
    Bytes block(24, 0xEE);
    EXPECT_EQ(m_drv.ReadBytes(0x11, block.data(), 24), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Read value failed, addr:17"));
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", "read off=68 width=64",
                                               "read off=76 width=64", "core_unlock"));
    EXPECT_THAT(Bytes(block.begin(), block.begin() + 8), ElementsAreArray(Counting(8)));
    EXPECT_THAT(Bytes(block.begin() + 8, block.end()), Each(0xEE));
}

TEST_F(DrvRegReadBytes, FailedReadOfTheTailHasTheSameLine) {
    Start();
    FakeEnyx::Fail("read", 2, EIO);
    Bytes block(9, 0xEE);
    EXPECT_EQ(m_drv.ReadBytes(0x11, block.data(), 9), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Read value failed, addr:17"));
    EXPECT_EQ(block[8], 0xEE);
}

TEST_F(DrvRegReadBytes, BlocksOfSeveralThreadsAreNotInterleaved) {
    Start();
    constexpr std::size_t threads = 4;
    constexpr std::size_t rounds = 50;
    std::vector<std::future<void>> workers;
    workers.reserve(threads);
    for (std::size_t i = 0; i < threads; ++i) {
        workers.push_back(std::async(std::launch::async, [this, i] {
            for (std::size_t round = 0; round < rounds; ++round) {
                Bytes block(24, static_cast<unsigned char>(i));
                if (i % 2 == 0) {
                    EXPECT_EQ(m_drv.WriteBytes(0, block.data(), 24), 24);
                } else {
                    EXPECT_EQ(m_drv.ReadBytes(0, block.data(), 24), 24);
                    EXPECT_THAT(block, Each(block.front()));
                }
            }
        }));
    }
    for (std::future<void>& worker : workers) {
        worker.get();
    }
    const Lines calls = FakeEnyx::Calls();
    ASSERT_EQ(calls.size(), threads * rounds * 5);
    for (std::size_t i = 0; i < calls.size(); i += 5) {
        EXPECT_EQ(calls[i], "core_lock");
        EXPECT_NE(calls[i + 1].find(" off=0 "), std::string::npos);
        EXPECT_NE(calls[i + 2].find(" off=8 "), std::string::npos);
        EXPECT_NE(calls[i + 3].find(" off=16 "), std::string::npos);
        EXPECT_EQ(calls[i + 4], "core_unlock");
    }
}

TEST_F(DrvRegWriteBytes, ThreeBytesAreOneWriteOf24Bits) {
    Start();
    FakeEnyx::SetBytes(68, Bytes(8, 0xEE));
    Bytes block = {1, 2, 3};
    EXPECT_EQ(m_drv.WriteBytes(0x11, block.data(), 3), 3);
    EXPECT_THAT(FakeEnyx::Calls(),
                ElementsAre("core_lock", "write off=68 width=24 value=0x30201", "core_unlock"));
    EXPECT_THAT(FakeEnyx::Bytes(68, 4), ElementsAre(1, 2, 3, 0xEE));
}

TEST_F(DrvRegWriteBytes, WholeWordsThenTheTailOfItsSize) {
    Start();
    Bytes block = Counting(23);
    EXPECT_EQ(m_drv.WriteBytes(0x11, block.data(), 23), 23);
    EXPECT_THAT(FakeEnyx::Calls(),
                ElementsAre("core_lock", "write off=68 width=64 value=0x807060504030201",
                            "write off=76 width=64 value=0x100f0e0d0c0b0a09",
                            "write off=84 width=56 value=0x17161514131211", "core_unlock"));
    EXPECT_EQ(FakeEnyx::Bytes(68, 23), Counting(23));
}

TEST_F(DrvRegWriteBytes, LengthOf0WritesNothing) {
    Start();
    unsigned char byte = 1;
    EXPECT_EQ(m_drv.WriteBytes(0x11, &byte, 0), 0);
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", "core_unlock"));
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvRegWriteBytes, NullSourceReturns0UnderTheLock) {
    Start();
    EXPECT_EQ(m_drv.WriteBytes(0x11, nullptr, 8), 0);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Didn't inited out yet!"));
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("core_lock", "core_unlock"));
}

TEST_F(DrvRegWriteBytes, FailedWordAndFailedTailDifferInTheirCapital) {
    Start();
    Bytes block = Counting(11);
    FakeEnyx::Fail("write", 1, EIO);
    EXPECT_EQ(m_drv.WriteBytes(0x11, block.data(), 11), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR write int8 failed, addr:17"));
    EXPECT_THAT(
        FakeEnyx::Calls(),
        ElementsAre("core_lock", "write off=68 width=64 value=0x807060504030201", "core_unlock"));
    FakeEnyx::ClearCalls();
    m_log.Clear();
    FakeEnyx::Fail("write", 2, EIO);
    EXPECT_EQ(m_drv.WriteBytes(0x11, block.data(), 11), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Write int8 failed, addr:17"));
    EXPECT_EQ(FakeEnyx::Calls().back(), "core_unlock");
}

TEST_F(DrvRegWriteBytes, TailIsNotReadPastTheEndOfTheSource) {
    Start();
    // The source ends where the readable memory does.
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* pages =
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    auto* end = static_cast<unsigned char*>(pages) + page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    std::memcpy(end - 11, Counting(11).data(), 11);
    EXPECT_EQ(m_drv.WriteBytes(0x11, end - 11, 11), 11);
    EXPECT_EQ(FakeEnyx::Bytes(68, 11), Counting(11));
    munmap(pages, 2 * page);
}

// ---- reversed blocks ----

class DrvRegLess128 : public DrvReg {};

TEST_F(DrvRegLess128, ReadReversesTheBytes) {
    Start();
    FakeEnyx::SetBytes(68, {1, 2, 3, 4, 5});
    Bytes block(5, 0xEE);
    EXPECT_EQ(m_drv.ReadLess128Bytes(0x11, block.data(), 4), 4);
    EXPECT_THAT(block, ElementsAre(4, 3, 2, 1, 0xEE));
}

TEST_F(DrvRegLess128, WriteReversesTheBytes) {
    Start();
    Bytes block = {1, 2, 3, 4, 5};
    EXPECT_EQ(m_drv.WriteLess128Bytes(0x11, block.data(), 5), 5);
    EXPECT_THAT(FakeEnyx::Calls(),
                ElementsAre("core_lock", "write off=68 width=40 value=0x102030405", "core_unlock"));
    EXPECT_THAT(block, ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(DrvRegLess128, LengthOf128Works) {
    Start();
    Bytes block = Counting(128);
    EXPECT_EQ(m_drv.WriteLess128Bytes(0, block.data(), 128), 128);
    EXPECT_EQ(FakeEnyx::Bytes(0, 1), Bytes{128});
    Bytes back(128);
    EXPECT_EQ(m_drv.ReadLess128Bytes(0, back.data(), 128), 128);
    EXPECT_EQ(back, block);
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvRegLess128, LengthOf129AndNullBuffersAreRejected) {
    Start();
    Bytes block(129);
    EXPECT_EQ(m_drv.ReadLess128Bytes(0, block.data(), 129), 0);
    EXPECT_EQ(m_drv.ReadLess128Bytes(0, nullptr, 4), 0);
    EXPECT_EQ(m_drv.WriteLess128Bytes(0, block.data(), 129), 0);
    EXPECT_EQ(m_drv.WriteLess128Bytes(0, nullptr, 4), 0);
    const std::string line = "ERROR length should less than 128!";
    EXPECT_THAT(m_log.Lines(), ElementsAre(line, line, line, line));
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
}

TEST_F(DrvRegLess128, LengthOf0MovesNothing) {
    Start();
    unsigned char byte = 0xEE;
    EXPECT_EQ(m_drv.ReadLess128Bytes(0, &byte, 0), 0);
    EXPECT_EQ(m_drv.WriteLess128Bytes(0, &byte, 0), 0);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvRegLess128, FailedReadReturnsMinus1AndLeavesTheDestination) {
    Start();
    FakeEnyx::Fail("read", 1, EIO);
    Bytes block(4, 0xEE);
    EXPECT_EQ(m_drv.ReadLess128Bytes(0x11, block.data(), 4), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Read value failed, addr:17",
                                           "ERROR Read failed, should Read 4, now -1"));
    EXPECT_THAT(block, Each(0xEE));
}

TEST_F(DrvRegLess128, FailedWriteReturnsMinus1) {
    Start();
    FakeEnyx::Fail("write", 1, EIO);
    Bytes block(4);
    EXPECT_EQ(m_drv.WriteLess128Bytes(0x11, block.data(), 4), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Write int8 failed, addr:17"));
}

// Block operations of its own: the reversed ones go through the interface.
class ShortDrv : public CDrvEnyxReg {
  public:
    long ReadBytes(unsigned long addr, unsigned char* dst, unsigned long len) override {
        EXPECT_EQ(addr, 0x11U);
        EXPECT_THAT(Bytes(dst, dst + 128), Each(0));
        return static_cast<long>(len) - 2;
    }
    long WriteBytes(unsigned long addr, unsigned char* src, unsigned long len) override {
        EXPECT_EQ(addr, 0x11U);
        EXPECT_EQ(len, 3U);
        EXPECT_THAT(Bytes(src, src + 5), ElementsAre(3, 2, 1, 0, 0));
        return 77;
    }
};

TEST_F(DrvRegLess128, ShortReadReturnsItsCount) {
    ShortDrv drv;
    Bytes block(4, 0xEE);
    EXPECT_EQ(drv.ReadLess128Bytes(0x11, block.data(), 4), 2);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Read failed, should Read 4, now 2"));
    EXPECT_THAT(block, Each(0xEE));
}

TEST_F(DrvRegLess128, WriteReturnsTheResultOfWriteBytes) {
    ShortDrv drv;
    Bytes block = {1, 2, 3};
    EXPECT_EQ(drv.WriteLess128Bytes(0x11, block.data(), 3), 77);
}

}  // namespace
