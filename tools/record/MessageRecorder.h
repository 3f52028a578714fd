#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "record/CaptureSeries.h"
#include "record/FileMaker.h"
#include "record/MessageQueue.h"
#include "record/Settings.h"
#include "record/Stamps.h"
#include "record/Surroundings.h"
#include "record/TickClock.h"

namespace ZceRecord {

// The messages of all streams of this process, on their way into their captures. Missing and
// Progress may be called by any thread; Opened by one at a time; Pass, End and Summary by one.
class CMessageRecorder {
  public:
    // Both outlive it.
    explicit CMessageRecorder(const Settings& settings,
                              const Surroundings& surroundings = TheSystem());

    // The queue of a new opening of the stream; it lives until it is closed and written. Makes the
    // file that the stream belongs to, if there is none yet. Null: `error` tells why, and of which
    // file; it is empty if the recording has ended.
    CMessageQueue* Opened(uint16_t bus, uint16_t channel, std::string& error);
    // Writes what waits, in the order of time: a message that came since the last pass begins is
    // left for the next one, since an older one may still be on its way from another thread. The
    // last pass leaves nothing.
    void Pass(bool last);
    // Ends the files, after the last pass.
    void End();
    // The line that tells what was recorded; empty after a failure, which was told then.
    std::string Summary() const;
    // The line that tells what is not written; empty after a failure, or if all is.
    std::string Missing();
    // Grows with what is written.
    uint64_t Progress();
    // The child of a fork lets the files go. No stream is opened meanwhile.
    void Abandon();
    CFileMaker& Maker() { return m_maker; }
    const Beat& GetBeat() const { return m_beat; }

  private:
    struct Source {
        std::unique_ptr<CMessageQueue> queue;
        CCaptureSeries* series = nullptr;
        uint64_t written = 0;  // the number of the last message written or noted as lost
        uint64_t counted = 0;
        bool closed = false;
    };

    CCaptureSeries* SeriesOf(uint16_t bus, uint16_t channel, std::string& error);
    void BeginPass(bool last);
    void EndPass(bool last, bool wrote);
    Source* Earliest();
    void RemoveClosed();
    void WriteMessage(Source& source);
    void WriteLost(Source& source, uint64_t upTo, int64_t stamp);
    void FlushAll(bool last);
    void Check(bool done, const std::string& error);

    const Settings& m_settings;
    const Surroundings& m_surroundings;
    CFileMaker m_maker;
    std::map<std::pair<uint16_t, uint16_t>, uint16_t> m_openings;
    // What Opened, Missing and Progress look at too, and so the changes of the list m_sources.
    // Never held while a file is written.
    std::mutex m_mutex;
    std::vector<std::unique_ptr<CCaptureSeries>> m_series;
    std::vector<Source> m_new;
    std::vector<Source> m_sources;
    uint64_t m_countedBefore = 0;  // by sources that are gone

    // The writer's.
    std::vector<CCaptureSeries*> m_written;
    CTickClock m_clock;
    Beat m_beat;
    std::vector<unsigned char> m_packet;
    uint64_t m_recorded = 0;
    uint64_t m_lost = 0;
    uint64_t m_passes = 0;
    std::atomic<uint64_t> m_inFile{0};  // of the recorded messages
    std::atomic<bool> m_failed{false};
};

}  // namespace ZceRecord
