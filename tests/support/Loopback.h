#pragma once

#include <string>

namespace kx::test {

/// A socket on a port of 127.0.0.1 that the kernel has chosen; nobody else gets the port while it lives.
class Loopback {
public:
    enum Kind {
        listening,  ///< connections are made, whether anyone accepts them or not
        refusing,   ///< connections are refused
    };

    explicit Loopback(Kind kind = listening);
    Loopback(const Loopback&) = delete;
    Loopback& operator=(const Loopback&) = delete;
    ~Loopback() { Close(); }

    [[nodiscard]] int Socket() const { return m_socket; }
    [[nodiscard]] int Port() const { return m_port; }
    void Close();

private:
    int m_socket;
    int m_port = 0;
};

/// Sends a text to a port of 127.0.0.1.
/// @return what comes back until the other side closes.
std::string Exchange(int port, const std::string& text);

}  // namespace kx::test
