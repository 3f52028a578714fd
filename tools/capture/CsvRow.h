#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "capture/CaptureReader.h"
#include "capturetool/LocalTime.h"

namespace ZceCaptureTool {

// The rows of a table of messages (RFC 4180, but for the line ends, which are \n): one set of
// columns for all of them. A message of the software board's has its fields; any other, and any
// with `raw`, has all of its bytes in the last column, in hex. Nothing of a message is left out
// either way.
class CCsvRows {
  public:
    // No row is longer.
    static constexpr std::size_t LONGEST_ROW = 8192;

    explicit CCsvRows(bool raw) : m_bRaw(raw) {}

    // The names of the columns, with the line end.
    static std::string_view Header();
    // Writes the row of a message of at most CCaptureReader::LARGEST_MESSAGE bytes to the beginning
    // of `space`, which has at least LONGEST_ROW bytes; the bytes written.
    std::size_t Write(const ZceCapture::CaptureMessage& message, std::span<char> space);

  private:
    bool m_bRaw;
    CTimeWriter m_times;
};

}  // namespace ZceCaptureTool
