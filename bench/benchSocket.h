#pragma once

#include <cstddef>

// Two UDP sockets on the loopback interface, connected to each other.
namespace velabench {

class CSocketPair {
  public:
    CSocketPair();
    ~CSocketPair();
    CSocketPair(const CSocketPair&) = delete;
    CSocketPair& operator=(const CSocketPair&) = delete;

    bool SendToApplication(const void* data, std::size_t size) const {
        return Send(m_board, data, size);
    }
    bool SendToBoard(const void* data, std::size_t size) const {
        return Send(m_application, data, size);
    }
    // One datagram of this size; false if none is there (with MSG_DONTWAIT in `flags`).
    bool TakeAtApplication(void* data, std::size_t size, int flags) const {
        return Take(m_application, data, size, flags);
    }
    bool TakeAtBoard(void* data, std::size_t size, int flags) const {
        return Take(m_board, data, size, flags);
    }

  private:
    static bool Send(int fd, const void* data, std::size_t size);
    static bool Take(int fd, void* data, std::size_t size, int flags);

    int m_board = -1;
    int m_application = -1;
};

}  // namespace velabench
