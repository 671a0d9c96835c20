// A server whose answers are what a test makes of them.
#include "tests/support/HttpServer.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sys/socket.h>
#include <unistd.h>

namespace kx::test {
namespace {

constexpr char kHeadEnd[] = "\r\n\r\n";

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

size_t LengthOfBody(const std::string& head) {
    static const std::string name = "\r\ncontent-length:";
    size_t line = LowerCase(head).find(name);
    if (line == std::string::npos) return 0;
    return static_cast<size_t>(std::strtoull(head.c_str() + line + name.size(), nullptr, 10));
}

}  // namespace

struct HttpServer::Session {
    Session(HttpServer& server, int socket) : connection(server, socket) {}

    Connection connection;
    std::atomic<bool> finished{false};
    std::thread thread;
};

HttpServer::HttpServer(Handler handler) : m_handler(std::move(handler)), m_accepting([this] { Accept(); }) {}

HttpServer::~HttpServer() {
    m_ending = true;
    ::shutdown(m_loopback.Socket(), SHUT_RDWR);
    m_accepting.join();
    for (const auto& session : m_sessions) {
        session->connection.Shut();
    }
    for (const auto& session : m_sessions) {
        session->thread.join();
    }
}

std::string HttpServer::Url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(Port()) + path;
}

std::vector<std::string> HttpServer::Requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

void HttpServer::Remember(const std::string& request) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_requests.push_back(request);
}

void HttpServer::Accept() {
    while (!m_ending) {
        int socket = ::accept4(m_loopback.Socket(), nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) continue;
        ++m_connections;
        JoinFinished();
        m_sessions.push_back(std::make_unique<Session>(*this, socket));
        Session& session = *m_sessions.back();
        session.thread = std::thread([this, &session] { Serve(session); });
    }
}

void HttpServer::Serve(Session& session) {
    m_handler(session.connection);
    session.connection.Close();
    session.finished = true;
}

void HttpServer::JoinFinished() {
    m_sessions.remove_if([](const std::unique_ptr<Session>& session) {
        if (!session->finished) return false;
        session->thread.join();
        return true;
    });
}

std::string HttpServer::Connection::ReadRequest() {
    size_t end = m_ahead.find(kHeadEnd);
    while (end == std::string::npos && ReadMore()) {
        end = m_ahead.find(kHeadEnd);
    }
    size_t length = m_ahead.size();
    if (end != std::string::npos) {
        length = end + sizeof kHeadEnd - 1;
        length += LengthOfBody(m_ahead.substr(0, length));
        while (m_ahead.size() < length && ReadMore()) {
        }
    }
    std::string request = m_ahead.substr(0, length);
    m_ahead.erase(0, length);
    if (!request.empty()) m_server.Remember(request);
    return request;
}

bool HttpServer::Connection::ReadMore() {
    char part[65536];
    ssize_t count = ::recv(m_socket, part, sizeof part, 0);
    if (count <= 0) return false;
    m_ahead.append(part, static_cast<size_t>(count));
    return true;
}

bool HttpServer::Connection::Send(std::string_view text) {
    while (!text.empty()) {
        ssize_t count = ::send(m_socket, text.data(), text.size(), MSG_NOSIGNAL);
        if (count <= 0) return false;
        text.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

void HttpServer::Connection::WaitForClose() {
    while (ReadMore()) {
        m_ahead.clear();
    }
}

void HttpServer::Connection::Close() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_socket >= 0) ::close(m_socket);
    m_socket = -1;
}

void HttpServer::Connection::Reset() {
    linger atOnce{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    Close();
}

void HttpServer::Connection::Shut() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_socket >= 0) ::shutdown(m_socket, SHUT_RDWR);
}

}  // namespace kx::test
