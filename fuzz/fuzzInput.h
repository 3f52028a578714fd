#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

// The target: libFuzzer calls it for each input.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace velafuzz {

// One input, taken apart from its beginning on. Where it has ended, numbers are 0 and bytes none.
class CFuzzInput {
  public:
    CFuzzInput(const uint8_t* data, size_t size) : m_data(data), m_left(size) {}

    size_t Left() const { return m_left; }

    // An unsigned number, least significant byte first.
    template <class Number>
    Number Take() {
        Number value{};
        const size_t bytes = std::min(sizeof(value), m_left);
        std::memcpy(&value, m_data, bytes);
        Skip(bytes);
        return value;
    }
    // At most `size` bytes.
    std::string TakeText(size_t size) {
        const size_t bytes = std::min(size, m_left);
        std::string text(reinterpret_cast<const char*>(m_data), bytes);
        Skip(bytes);
        return text;
    }
    std::string Rest() { return TakeText(m_left); }

  private:
    void Skip(size_t bytes) {
        m_data += bytes;
        m_left -= bytes;
    }

    const uint8_t* m_data;
    size_t m_left;
};

// A copy of bytes in a block of exactly their size: a read beyond them is noticed.
class CExactBlock {
  public:
    explicit CExactBlock(const std::string& bytes)
        : m_bytes(new unsigned char[bytes.size()]), m_size(bytes.size()) {
        std::memcpy(m_bytes.get(), bytes.data(), bytes.size());
    }
    const unsigned char* Data() const { return m_bytes.get(); }
    const char* Chars() const { return reinterpret_cast<const char*>(m_bytes.get()); }
    unsigned int Size() const { return static_cast<unsigned int>(m_size); }

  private:
    std::unique_ptr<unsigned char[]> m_bytes;
    size_t m_size;
};

// The same with a terminating zero, cut at the first one that is in there.
inline CExactBlock ZeroTerminated(const std::string& text) {
    return CExactBlock(text.substr(0, text.find('\0')) + '\0');
}

}  // namespace velafuzz
