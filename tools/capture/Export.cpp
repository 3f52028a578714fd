#include "capturetool/Export.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "capturetool/BoardBody.h"
#include "capturetool/CsvRow.h"
#include "capturetool/Input.h"
#include "capturetool/Status.h"
#include "capturetool/TextOutput.h"
#include "program/Printable.h"
#include "program/Program.h"

namespace ZceCaptureTool {

namespace {

using ZceCapture::CaptureMessage;
using ZceCapture::CCaptureReader;

// Which messages are wanted.
class CFilter {
  public:
    // Times without a date are of the day of `first`, the capture's first message.
    CFilter(const ExportOptions& options, const CaptureMessage& first) : m_types(options.types) {
        for (const uint32_t channel : options.channels) {
            m_channels |= 1U << channel;
        }
        const unsigned int day = CTimeWriter().Date(first.timeNs);
        m_fromNs = options.from ? NsOf(*options.from, day) : std::numeric_limits<int64_t>::min();
        m_toNs = options.to ? NsOf(*options.to, day) : std::numeric_limits<int64_t>::max();
    }

    bool Wants(const CaptureMessage& message) const {
        return (m_channels == 0 || (m_channels >> message.channel & 1U) != 0) &&
               message.timeNs >= m_fromNs && message.timeNs < m_toNs &&
               (m_types.empty() ||
                std::find(m_types.begin(), m_types.end(), TypeOf(message.bytes)) != m_types.end());
    }

  private:
    uint32_t m_channels = 0;
    const std::vector<uint32_t>& m_types;
    int64_t m_fromNs = 0;
    int64_t m_toNs = 0;
};

int Failed(const std::string& error, int status) {
    fprintf(stderr, "zce-capture: %s\n", ZceProgram::Printable(error).c_str());
    return status;
}

}  // namespace

int RunExport(const ExportOptions& options) {
    std::string error;
    CCaptureReader reader;
    CTextOutput output;
    if (!OpenCapture(options.file, reader, error) ||
        !output.Open(options.output, {options.file}, error)) {
        return Failed(error, ZceProgram::EXIT_NOT_DONE);
    }
    output.Put(CCsvRows::Header());
    CCsvRows rows(options.raw);
    CaptureMessage message;
    CCaptureReader::Next next = reader.Read(message);
    const CFilter filter(options, message);
    for (; next == CCaptureReader::Next::Message && output.Good(); next = reader.Read(message)) {
        if (filter.Wants(message)) {
            output.Add(rows.Write(message, output.Space(CCsvRows::LONGEST_ROW)));
        }
    }
    if (!output.Close(error)) {
        return Failed(error, ZceProgram::EXIT_NOT_DONE);
    }
    if (EndingOf(next) != Ending::Whole) {
        return Failed(reader.Error() + ": the rows before it are written", EXIT_NOT_WELL);
    }
    return ZceProgram::EXIT_FINE;
}

}  // namespace ZceCaptureTool
