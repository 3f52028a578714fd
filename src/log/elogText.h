#pragma once

#include <cstddef>

namespace elogoutput {

// A text under construction in a buffer of the caller's, which gets no zero at its end. Whatever
// does not fit is cut silently. Nothing but plain stores: a signal handler may build its line with
// it.
class CText {
  public:
    CText(char* buffer, std::size_t size) : m_buffer(buffer), m_size(size) {}

    void PutChar(char character) {
        if (m_length < m_size) {
            m_buffer[m_length++] = character;
        }
    }
    // A null text counts as empty.
    void Put(const char* text) {
        for (; text != nullptr && *text != '\0' && m_length < m_size; ++text) {
            m_buffer[m_length++] = *text;
        }
    }
    // As printf prints it with "%0<width>ld": `width` characters at least, the sign included. No
    // more than the first `most` characters are taken.
    void PutNumber(long value, unsigned int width = 0, unsigned int most = g_uiNumberBytes) {
        char reversed[g_uiNumberBytes];
        unsigned int digits = 0;
        // Counted from the negative side, where every number has room.
        for (long rest = value < 0 ? value : -value; rest != 0 || digits == 0; rest /= 10) {
            reversed[digits++] = static_cast<char>('0' - rest % 10);
        }
        const unsigned int sign = value < 0 ? 1 : 0;
        while (digits + sign < width && digits + sign < g_uiNumberBytes) {
            reversed[digits++] = '0';
        }
        if (sign != 0) {
            reversed[digits++] = '-';
        }
        for (; digits != 0 && most != 0; --digits, --most) {
            PutChar(reversed[digits - 1]);
        }
    }
    std::size_t Length() const { return m_length; }

  private:
    static constexpr unsigned int g_uiNumberBytes = 24;  // 20 of any number; a width stays below

    char* m_buffer;
    std::size_t m_size;
    std::size_t m_length = 0;
};

}  // namespace elogoutput
