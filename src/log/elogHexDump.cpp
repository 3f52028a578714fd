#include <cstdio>

#include "log/elog.h"
#include "log/elogOutput.h"

namespace {

using elogoutput::g_uiLineBytes;

constexpr unsigned int g_uiGroup = 8;  // positions before an extra space
constexpr unsigned char g_ucFirstPrintable = 32;
constexpr unsigned char g_ucLastPrintable = 126;

// A row under construction. What does not fit is counted but not stored.
class CRow {
  public:
    explicit CRow(char* line) : m_line(line) {}

    void PutChar(char character) {
        if (m_length < g_uiLineBytes) {
            m_line[m_length] = character;
        }
        ++m_length;
    }
    void Put(const char* text) {
        for (; *text != '\0'; ++text) {
            PutChar(*text);
        }
    }
    void PutStart(const char* name, unsigned int begin, unsigned int end) {
        m_length += static_cast<std::size_t>(
            std::snprintf(m_line, g_uiLineBytes, "[DEBUG  ]HEX %s: %04X-%04X: ", name, begin, end));
    }
    std::size_t Length() const { return m_length; }

  private:
    char* m_line;
    std::size_t m_length = 0;
};

void PutHex(CRow& row, const unsigned char* bytes, unsigned int count, unsigned int width) {
    for (unsigned int position = 0; position < width; ++position) {
        char text[4] = "   ";
        if (position < count) {
            std::snprintf(text, sizeof(text), "%02X ", static_cast<unsigned int>(bytes[position]));
        }
        row.Put(text);
        if ((position + 1) % g_uiGroup == 0) {
            row.PutChar(' ');
        }
    }
}

void PutText(CRow& row, const unsigned char* bytes, unsigned int count) {
    for (unsigned int position = 0; position < count; ++position) {
        const unsigned char byte = bytes[position];
        const bool printable = byte >= g_ucFirstPrintable && byte <= g_ucLastPrintable;
        row.PutChar(printable ? static_cast<char>(byte) : '.');
    }
}

}  // namespace

void elog_hex_dump(const char* name, std::uint8_t width, const void* buffer, std::uint16_t size) {
    if (!elogoutput::IsWanted(ELOG_LVL_DEBUG) || size == 0) {
        return;
    }
    const char* shownName = name == nullptr ? "" : name;
    if (width == 0 || buffer == nullptr) {
        elog_write_line(ELOG_LVL_WARN, "log", "elog", __func__, __LINE__,
                        "Hex dump of %s left out: no width or no data.", shownName);
        return;
    }
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    for (unsigned int offset = 0; offset < size; offset += width) {
        const unsigned int left = size - offset;
        const unsigned int count = left < width ? left : width;
        char line[g_uiLineBytes];
        CRow row(line);
        row.PutStart(shownName, offset, offset + width);
        PutHex(row, bytes + offset, count, width);
        row.Put("  ");
        PutText(row, bytes + offset, count);
        elogoutput::Write(line, elogoutput::EndLine(line, row.Length()),
                          elogtime::Caller::ordinary);
    }
}
