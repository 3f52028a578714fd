#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "capture/CaptureFile.h"
#include "record/MessageQueue.h"

namespace ZceRecord {

// The messages of all streams of this process, on their way into one capture. Opened, Missing
// and Progress may be called by any thread; Open, Pass and Summary by one at a time.
class CMessageRecorder {
  public:
    // Makes the file; false with the reason.
    bool Open(const std::string& name, const std::string& path, size_t bufferBytes,
              std::string& error);
    // The queue of a new opening of the stream. It lives until it is closed and written.
    CMessageQueue* Opened(uint16_t bus, uint16_t channel);
    // Writes what waits, in the order of time: a message that came since the last pass begins is
    // left for the next one, since an older one may still be on its way from another thread. The
    // last pass leaves nothing.
    void Pass(bool last);
    // The line that tells what was recorded; empty after a failure, which was told then.
    std::string Summary() const;
    // The line that tells what is not written; empty after a failure, or if all is.
    std::string Missing();
    // Grows with what is written.
    uint64_t Progress() const { return m_file.Written(); }
    // The child of a fork lets the file go.
    void Abandon() { m_file.Close(); }

  private:
    struct Source {
        std::unique_ptr<CMessageQueue> queue;
        uint64_t written = 0;  // the number of the last message written or noted as lost
        uint64_t counted = 0;
        bool closed = false;
    };

    void BeginPass(bool last);
    void EndPass(bool last, bool wrote);
    Source* Earliest();
    void RemoveClosed();
    void WriteMessage(Source& source);
    void WriteLost(Source& source, uint64_t upTo, int64_t timeNs);
    void Flush();

    std::string m_name;
    size_t m_bufferBytes = 0;
    // What Opened and Missing look at too, and so the changes of the list m_sources. Never held
    // while a file is written.
    std::mutex m_mutex;
    std::map<std::pair<uint16_t, uint16_t>, uint16_t> m_openings;
    std::vector<std::unique_ptr<CMessageQueue>> m_new;
    std::vector<Source> m_sources;
    uint64_t m_countedBefore = 0;  // by sources that are gone

    ZceCapture::CCaptureFile m_file;
    std::vector<unsigned char> m_packet;
    uint64_t m_recorded = 0;
    uint64_t m_lost = 0;
    uint64_t m_passes = 0;
    std::atomic<uint64_t> m_inFile{0};  // of the recorded messages
    std::atomic<bool> m_failed{false};
};

}  // namespace ZceRecord
