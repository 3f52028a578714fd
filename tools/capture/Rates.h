#pragma once

#include <array>
#include <cstdint>
#include <limits>

namespace ZceCaptureTool {

// later - earlier; 0 if `later` is the earlier one. As unsigned, since a file may hold any times.
inline uint64_t NsBetween(int64_t earlier, int64_t later) {
    return later > earlier ? static_cast<uint64_t>(later) - static_cast<uint64_t>(earlier) : 0;
}

// The most messages in any stretch of time of one length. The stretch is moved in steps of a
// thousandth of its length, so the memory is the same for any number of messages; what lies a whole
// length apart, but for such a step, may be missed.
class CPeakWindow {
  public:
    explicit CPeakWindow(uint64_t lengthNs) : m_lengthNs(lengthNs) {}

    // Times that go back by less than the length are right; by more, all begins anew there.
    void Add(int64_t timeNs);

    uint64_t LengthNs() const { return m_lengthNs; }
    uint64_t Peak() const { return m_peak; }
    // The first message behind which there had been that many: the stretch ends there.
    int64_t PeakNs() const { return m_peakNs; }

  private:
    static constexpr int64_t STEPS = 1000;

    void MoveTo(int64_t step);

    uint64_t m_lengthNs;
    std::array<uint32_t, STEPS> m_counts{};                // of the step s at s mod STEPS
    int64_t m_step = std::numeric_limits<int64_t>::min();  // the latest
    uint64_t m_inWindow = 0;
    uint64_t m_peak = 0;
    int64_t m_peakNs = 0;
};

// Runs of messages in which each comes less than a given time behind the latest before it.
class CBursts {
  public:
    // Runs are counted by how many messages they have at least.
    static constexpr std::array<uint64_t, 5> AT_LEAST = {2, 10, 100, 1000, 10'000};

    struct Burst {
        uint64_t messages = 0;
        int64_t firstNs = 0;
        int64_t lastNs = 0;
    };

    explicit CBursts(uint64_t gapNs) : m_gapNs(gapNs) {}
    void Add(int64_t timeNs);
    // Behind the last message.
    void Finish() { End(); }

    uint64_t GapNs() const { return m_gapNs; }
    // How many have at least AT_LEAST[k] messages.
    uint64_t Count(std::size_t k) const { return m_counts.at(k); }
    // The one with the most messages, the first of several; none has fewer than two.
    const Burst& Largest() const { return m_largest; }

  private:
    void End();

    uint64_t m_gapNs;
    Burst m_now;
    Burst m_largest;
    std::array<uint64_t, AT_LEAST.size()> m_counts{};
};

}  // namespace ZceCaptureTool
