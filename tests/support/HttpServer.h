#pragma once

#include "tests/support/Loopback.h"

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kx::test {

/// A server whose answers are what a test makes of them, whole or broken.
///
///     HttpServer server([](HttpServer::Connection& connection) {
///         connection.ReadRequest();
///         connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\ncut short");
///     });
///     …a request to server.Url()…
///
/// The handler is called once for each connection, on a thread of its own; the connection is closed when it returns.
/// At the end of the server's life every connection is shut, so that no handler waits any longer, and its thread ends.
class HttpServer {
public:
    class Connection;
    using Handler = std::function<void(Connection&)>;

    explicit HttpServer(Handler handler);
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    ~HttpServer();

    [[nodiscard]] int Port() const { return m_loopback.Port(); }
    [[nodiscard]] std::string Url(const std::string& path = "/") const;

    /// The requests that handlers have read so far, byte for byte.
    [[nodiscard]] std::vector<std::string> Requests() const;
    [[nodiscard]] int Connections() const { return m_connections; }

private:
    struct Session;

    void Accept();
    void Serve(Session& session);
    void JoinFinished();
    void Remember(const std::string& request);

    Handler m_handler;
    Loopback m_loopback;
    std::atomic<bool> m_ending{false};
    std::atomic<int> m_connections{0};
    mutable std::mutex m_mutex;
    std::vector<std::string> m_requests;             // under the mutex
    std::list<std::unique_ptr<Session>> m_sessions;  // the accepting thread's, and the destructor's when that has ended
    std::thread m_accepting;
};

/// One connection, as its handler sees it.
class HttpServer::Connection {
public:
    Connection(HttpServer& server, int socket) : m_server(server), m_socket(socket) {}
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { Close(); }

    /// Reads a request with the body that its Content-Length tells of.
    /// @return its bytes; what has come where the client closed in the middle, empty where nothing has.
    std::string ReadRequest();

    /// @return false where the client has gone.
    bool Send(std::string_view text);

    /// Waits until the client closes; what it sends meanwhile is dropped.
    void WaitForClose();

    /// Closes: in order, or with a reset, which also drops what the client has not read yet.
    void Close();
    void Reset();

private:
    friend class HttpServer;
    bool ReadMore();
    void Shut();

    HttpServer& m_server;
    std::mutex m_mutex;   // of the socket's end: the handler closes it, the server shuts it
    int m_socket;         // -1 when closed
    std::string m_ahead;  // read, and no part of a request that was given
};

}  // namespace kx::test
