#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "capture/CaptureFile.h"
#include "capture/Sidecar.h"
#include "record/FileMaker.h"
#include "record/MessageQueue.h"
#include "record/Settings.h"
#include "record/Surroundings.h"

namespace ZceRecord {

// What the streams of one name record to: one capture or, if the settings limit its size or time,
// one behind the other, each with its sidecar. A capture ends between two messages, and the next
// one is made for the next message. One thread but where it says otherwise.
//
// What returns a bool is false when nothing more can be written; `error` then begins with the file
// that it is said of.
class CCaptureSeries {
  public:
    // `bus` and `channel` are for the name. The first two outlive it.
    CCaptureSeries(const Settings& settings, CFileMaker& maker, std::string bus,
                   std::string channel);

    // Makes the first file, or the next one. With `taken`, the name that another file has already.
    bool Begin(int64_t timeNs, std::string& taken, std::string& error);
    // A packet with its prefix, of a message or a note of lost ones.
    bool Add(const StreamId& id, uint64_t number, int64_t timeNs, const unsigned char* packet,
             uint32_t size, std::string& error);
    bool AddLost(const StreamId& id, uint64_t lost, int64_t timeNs, std::string& error);
    // So many bytes wait for the file.
    size_t Pending() const { return m_open ? m_file.Pending() : 0; }
    // What waits is written; with `all`, to the last byte of a compressed file too.
    bool Flush(bool all, std::string& error);
    // The file ends if its time is over and no message came since a while.
    bool EndIfOver(int64_t nowNs, std::string& error);
    // The file and the series end: as intended, or stopped for this reason.
    bool End(std::string& error);
    void Stop(const std::string& reason);

    bool IsOf(const std::string& bus, const std::string& channel) const {
        return bus == m_bus && channel == m_channel;
    }
    // Of the last file, and how many there were.
    const std::string& Name() const { return m_made.name; }
    uint64_t Files() const { return m_number; }

    // For any thread: grows with what is written.
    uint64_t Progress() const { return m_file.Written(); }
    // For the child of a fork.
    void Abandon() { m_file.Close(); }

  private:
    NameParts Parts(int64_t timeNs) const;
    bool MakeRoomFor(int64_t timeNs, uint32_t size, std::string& error);
    bool EndFile(ZceCapture::Sidecar::State state, const std::string& ended, std::string& error);
    bool WriteSidecar(std::string& error);
    void TellPrevious();
    bool CheckDisk(std::string& error);
    void Mark();
    void Rewind();
    bool Fail(std::string& error, const std::string& reason) const;
    ZceCapture::Sidecar::Stream& StreamOf(const StreamId& id);

    const Settings& m_settings;
    CFileMaker& m_maker;
    const std::string m_bus;
    const std::string m_channel;

    ZceCapture::CCaptureFile m_file;
    CFileMaker::File m_made;
    bool m_open = false;
    uint64_t m_number = 0;   // of the file
    int64_t m_endNs = 0;     // of its time
    bool m_regular = false;  // with a sidecar, and limits
    ZceCapture::Sidecar m_sidecar;
    ZceCapture::Sidecar m_marked;  // the same as it was when the file was marked
    size_t m_stream = 0;           // in the sidecar, where the last message belonged
    std::string m_previousPath;
    ZceCapture::Sidecar m_previous;
};

}  // namespace ZceRecord
