#pragma once

#include <array>
#include <cstdint>

#include "DrvEnyx/enyxHw.h"
#include "IVelaZceMdApi.h"
#include "ZceBoardMsg.h"
#include "memory/BoardMemory.h"
#include "memory/ShmLayout.h"

// A board of the program's own, and the library on one of its channels.
namespace velabench {

constexpr unsigned int libraryChannel = 3;
constexpr unsigned int vendorChannel = 4;  // received from by the vendor's call alone
constexpr unsigned int answerChannel = 5;  // sent to by the vendor's call
// The library holds both streams of its channel, so an application that answers takes another's.

class CBenchBoard {
  public:
    // The board is this process, which also receives: `spi` through the library. The board's name
    // in the file system is gone when this returns, whatever ends the program later.
    // With bAllStreams the streams of all other channels are opened as well, by the vendor's calls.
    explicit CBenchBoard(IVelaZceMdSpi& spi, bool bAllStreams = false);
    ~CBenchBoard();
    CBenchBoard(const CBenchBoard&) = delete;
    CBenchBoard& operator=(const CBenchBoard&) = delete;

    ZceBoard::BoardShm& Shm() const { return m_memory.Shm(); }
    // 1, 0; a signal (-1) ends the program.
    int Recv() {
        const int got = m_pApi->VelaRecv();
        if (got < 0) [[unlikely]] {
            Interrupted();
        }
        return got;
    }
    IVelaZceMdApi* Api() const { return m_pApi; }
    // The stream that the library holds, for polls of the same ring by the vendor's call: on the
    // thread that calls Recv, and not during it.
    enyx_hw_a2c_stream* LibraryStream() const { return m_streams[libraryChannel]; }
    enyx_hw_a2c_stream* VendorStream() const { return m_streams[vendorChannel]; }
    // Any channel's.
    enyx_hw_a2c_stream* Stream(unsigned int channel) const { return m_streams.at(channel); }
    enyx_hw_c2a_stream* AnswerStream() const { return m_c2a; }

  private:
    [[noreturn]] static void Interrupted();
    void StartLibrary(IVelaZceMdSpi& spi);
    void OpenStreams(bool bAllStreams);
    enyx_hw_a2c_stream* OpenStream(unsigned int channel) const;

    ZceBoard::CBoardMemory m_memory;
    IVelaZceMdApi* m_pApi = nullptr;
    enyx_hw_accelerator* m_accelerator = nullptr;
    std::array<enyx_hw_a2c_stream*, ZceBoard::CHANNELS> m_streams{};  // the library's among them
    enyx_hw_c2a_stream* m_c2a = nullptr;
};

// What an application does first: looks at the message. The sequence numbers must rise.
class CSink final : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType18Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType19Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType20Msg(const unsigned char* body) override { Take(body); }

    void Begin() { *this = CSink(); }
    std::uint64_t m_ulCount = 0;
    std::uint64_t m_ulLast = 0;  // sequence number
    std::uint64_t m_ulBack = 0;  // messages that came in a wrong order
    std::uint64_t m_ulSum = 0;

  private:
    void Take(const unsigned char* body) {
        ZceBoardL1_t l1;  // five levels begin as one level does
        ZceBoardReadL1(body, &l1);
        m_ulBack += l1.quote.ulSeq <= m_ulLast ? 1 : 0;
        m_ulLast = l1.quote.ulSeq;
        m_ulSum += l1.quote.ulVolume + l1.aLevel[0].uiAskVolume;
        ++m_ulCount;
    }
};

}  // namespace velabench
