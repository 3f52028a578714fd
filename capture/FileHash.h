#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace ZceCapture {

// The XXH3-128 of bytes that come in pieces. One thread.
class CFileHash {
  public:
    CFileHash();
    ~CFileHash();
    CFileHash(const CFileHash& other);
    CFileHash& operator=(const CFileHash& other);

    void Reset();
    void Add(const void* data, size_t size);
    // Of all bytes since the beginning: 32 digits, as xxh128sum prints them. More may be added.
    std::string Text() const;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace ZceCapture
