#include "benchSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "benchMain.h"

namespace velabench {

namespace {

constexpr int bufferBytes = 2 << 20;  // the kernel gives what it allows

sockaddr* Plain(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

// A socket at a free port of the loopback interface.
int Bound(sockaddr_in& address) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (fd < 0 || bind(fd, Plain(address), size) != 0 ||
        getsockname(fd, Plain(address), &size) != 0) {
        Die("no UDP socket on the loopback interface");
    }
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bufferBytes, sizeof(bufferBytes));
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof(bufferBytes));
    return fd;
}

}  // namespace

CSocketPair::CSocketPair() {
    sockaddr_in board{};
    sockaddr_in application{};
    m_board = Bound(board);
    m_application = Bound(application);
    if (connect(m_board, Plain(application), sizeof(application)) != 0 ||
        connect(m_application, Plain(board), sizeof(board)) != 0) {
        Die("the two UDP sockets cannot be connected");
    }
}

CSocketPair::~CSocketPair() {
    close(m_board);
    close(m_application);
}

bool CSocketPair::Send(int fd, const void* data, std::size_t size) {
    return send(fd, data, size, 0) == static_cast<ssize_t>(size);
}

bool CSocketPair::Take(int fd, void* data, std::size_t size, int flags) {
    const ssize_t got = recv(fd, data, size, flags);
    if (got == static_cast<ssize_t>(size)) {
        return true;
    }
    if (got >= 0 || (errno != EAGAIN && errno != EINTR)) {
        Die("a datagram could not be received");
    }
    return false;
}

}  // namespace velabench
