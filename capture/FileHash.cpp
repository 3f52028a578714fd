#include "capture/FileHash.h"

#define XXH_INLINE_ALL  // no symbol of the library gets into an application
#include <xxhash.h>

#include <array>

namespace ZceCapture {

struct CFileHash::State {
    XXH3_state_t xxh3;
};

CFileHash::CFileHash() : m_state(std::make_unique<State>()) {
    XXH3_128bits_reset(&m_state->xxh3);
}

CFileHash::~CFileHash() = default;

CFileHash::CFileHash(const CFileHash& other) : CFileHash() {
    *this = other;
}

CFileHash& CFileHash::operator=(const CFileHash& other) {
    XXH3_copyState(&m_state->xxh3, &other.m_state->xxh3);
    return *this;
}

void CFileHash::Add(const void* data, size_t size) {
    XXH3_128bits_update(&m_state->xxh3, data, size);
}

std::string CFileHash::Text() const {
    constexpr std::array<char, 17> digits{"0123456789abcdef"};
    constexpr unsigned int fourBits = 15;
    XXH128_canonical_t bytes;
    XXH128_canonicalFromHash(&bytes, XXH3_128bits_digest(&m_state->xxh3));
    std::string text;
    for (const unsigned char byte : bytes.digest) {
        text += digits.at(byte >> 4);
        text += digits.at(byte & fourBits);
    }
    return text;
}

static_assert(sizeof(XXH64_state_t) <= sizeof(CFrameChecksum));
static_assert(alignof(XXH64_state_t) <= alignof(CFrameChecksum));

CFrameChecksum::CFrameChecksum() : m_state() {
    XXH64_reset(reinterpret_cast<XXH64_state_t*>(m_state.data()), 0);
}

void CFrameChecksum::Add(const void* data, size_t size) {
    XXH64_update(reinterpret_cast<XXH64_state_t*>(m_state.data()), data, size);
}

uint32_t CFrameChecksum::Value() const {
    return static_cast<uint32_t>(
        XXH64_digest(reinterpret_cast<const XXH64_state_t*>(m_state.data())));
}

}  // namespace ZceCapture
