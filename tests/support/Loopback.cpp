// Sockets on the loopback interface.
#include "tests/support/Loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace kx::test {
namespace {

sockaddr_in AddressOf(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

Loopback::Loopback(Kind kind) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = AddressOf(0);
    socklen_t size = sizeof address;
    bool done = ::bind(m_socket, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                (kind == refusing || ::listen(m_socket, SOMAXCONN) == 0) &&
                ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    if (!done) throw std::runtime_error("no port on 127.0.0.1");
    m_port = ntohs(address.sin_port);
}

void Loopback::Close() {
    if (m_socket >= 0) ::close(m_socket);
    m_socket = -1;
}

std::string Exchange(int port, const std::string& text) {
    int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = AddressOf(port);
    bool done = ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                ::send(socket, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    std::string answer;
    char part[4096];
    for (ssize_t count = 1; done && count > 0;) {
        count = ::recv(socket, part, sizeof part, 0);
        if (count > 0) answer.append(part, static_cast<size_t>(count));
    }
    ::close(socket);
    return answer;
}

}  // namespace kx::test
