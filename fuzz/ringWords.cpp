// A ring whose words somebody else writes over between the steps of its producer and its consumer:
// header words, messages, positions, generations. Each step is an operation and its numbers. Every
// poll ends, and no message or place for one lies outside of the ring's memory.

#include <cstring>
#include <memory>

#include "fuzzHost.h"
#include "fuzzInput.h"
#include "memory/Ring.h"

namespace {

using namespace velafuzz;
using namespace ZceBoard;

constexpr size_t RING_BYTES = 4096;
using Memory = RingMemory<RING_BYTES>;

class CRingUnderFire {
  public:
    CRingUnderFire() { Open(true); }

    void Step(CFuzzInput& input) {
        const auto operation = input.Take<unsigned char>();
        switch (operation % 11) {
            case 0:
                Open(operation % 2 == 0);
                break;
            case 1:
            case 2:
                Put(1 + input.Take<uint16_t>() % STREAM_MTU);
                break;
            case 3:
            case 4:
                Poll();
                break;
            case 5: {
                const uint64_t place = input.Take<uint16_t>();
                m_view.HeaderAt(place).store(input.Take<uint32_t>());
                break;
            }
            case 6:
                m_view.control->head.store(Position(input));
                break;
            case 7:
                m_view.control->tail.store(Position(input));
                break;
            case 8:
                m_view.control->generation.store(input.Take<uint32_t>());
                break;
            case 9:
                m_view.control->lastGeneration.store(input.Take<uint32_t>());
                break;
            default:
                CloseRing(m_view, m_generation);
                m_producer.Begin(input.Take<uint32_t>() % 4);
                break;
        }
        FUZZ_CHECK(m_producer.Used() <= RING_BYTES);
    }

  private:
    // Somewhere near the ring's own positions, or anywhere.
    uint64_t Position(CFuzzInput& input) const {
        const auto choice = input.Take<unsigned char>();
        const auto number = input.Take<uint64_t>();
        switch (choice % 3) {
            case 0:
                return number;
            case 1:
                return m_view.control->head.load() + number % (2 * RING_BYTES) - RING_BYTES;
            default:
                return m_view.control->tail.load() + number % (2 * RING_BYTES) - RING_BYTES;
        }
    }

    void Open(bool atHead) {
        m_generation = OpenRing(m_view, atHead);
        m_producer.Begin(m_generation);
        m_consumer = CRingConsumer(m_view, m_generation);
    }

    bool IsInside(const unsigned char* place, size_t len) const {
        const unsigned char* const begin = m_memory->data.data();
        return place >= begin && place + len <= begin + m_memory->data.size();
    }

    void Put(uint32_t len) {
        unsigned char* const place = m_producer.PrepareWrite(len);
        if (place == nullptr) {
            m_producer.CountBackPressure();
            return;
        }
        FUZZ_CHECK(IsInside(place, len));
        FUZZ_CHECK(place + len <= m_view.data + RING_BYTES);
        std::memset(place, static_cast<int>(len % 256), len);
        m_producer.CommitWrite(len);
    }

    void Poll() {
        int handed = 0;
        const int result = m_consumer.PollOnce([&](const unsigned char* message, uint32_t len) {
            FUZZ_CHECK(len >= 1 && len <= STREAM_MTU);
            FUZZ_CHECK(IsInside(message, len));
            unsigned int sum = 0;  // every byte is there to be read
            for (uint32_t k = 0; k < len; ++k) {
                sum += message[k];
            }
            FUZZ_CHECK(sum <= 255 * len);
            ++handed;
        });
        FUZZ_CHECK(result == handed);
    }

    // On the heap: a read beyond the data's slack is noticed.
    std::unique_ptr<Memory> m_memory = std::make_unique<Memory>();
    RingView m_view = ViewOf(*m_memory);
    CRingProducer m_producer{m_view};
    CRingConsumer m_consumer;
    uint32_t m_generation = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CFuzzInput input(data, size);
    CRingUnderFire ring;
    while (input.Left() != 0) {
        ring.Step(input);
    }
    return 0;
}
