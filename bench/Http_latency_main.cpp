// kxrun beside a server of its own, whose answers a script can date: how long they take from there to the script.
//
// The server reads one request at a time and answers it at once, on one connection after another.
#include "Files/Code/Code_Function.h"
#include "Runner/Options.h"
#include "Runner/Runtime.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

/// Microseconds; from CLOCK_MONOTONIC.
double Now() {
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

class Server {
public:
    Server() : m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* name = reinterpret_cast<sockaddr*>(&address);
        if (m_listener < 0 || ::bind(m_listener, name, size) < 0 || ::listen(m_listener, SOMAXCONN) < 0 ||
            ::getsockname(m_listener, name, &size) < 0) {
            throw std::system_error(errno, std::generic_category(), "cannot listen");
        }
        m_url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
        m_thread = std::thread([this] { Serve(); });
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() {
        m_ending = true;
        ::shutdown(m_listener, SHUT_RDWR);
        if (int connection = m_connection; connection >= 0) ::shutdown(connection, SHUT_RDWR);
        m_thread.join();
        ::close(m_listener);
    }

    const std::string& Url() const { return m_url; }

    /// When the last byte of the answer of that number, from 1, had been sent. It has to be on its way.
    double TimeOfAnswer(int number) const {
        while (m_answers < number)
            std::this_thread::yield();
        return m_sent;
    }

private:
    void Serve() {
        while (!m_ending) {
            int connection = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0) continue;
            int on = 1;
            ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            m_connection = connection;
            AnswerAll(connection);
            m_connection = -1;
            ::close(connection);
        }
    }

    void AnswerAll(int connection) {
        static const std::string answer =
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 1024\r\n\r\n" + std::string(1024, 'x');
        std::string received;
        char part[4096];
        while (!m_ending) {
            ssize_t count = ::recv(connection, part, sizeof part, 0);
            if (count <= 0) return;
            received.append(part, static_cast<size_t>(count));
            size_t end = received.find("\r\n\r\n");
            if (end == std::string::npos) continue;
            received.erase(0, end + 4);
            if (::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) return;
            m_sent = Now();
            ++m_answers;
        }
    }

    int m_listener;
    std::string m_url;
    std::thread m_thread;
    std::atomic<int> m_connection{-1};
    std::atomic<bool> m_ending{false};
    std::atomic<int> m_answers{0};
    std::atomic<double> m_sent{0};
};

const Server* g_server;

void SetReal(RValue* result, double value) {
    result->real = value;
    result->kind = VALUE_REAL;
}

void BenchUrl(RValue& result, CInstance*, CInstance*, int, RValue*) {
    KXCreateString(&result, g_server->Url().c_str());
}

void BenchNow(RValue& result, CInstance*, CInstance*, int, RValue*) {
    SetReal(&result, Now());
}

void BenchSent(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    SetReal(&result, g_server->TimeOfAnswer(KXGetInt32(arg, 0)));
}

int Run(int argc, char** argv) {
    kx::Options options;
    int status = kx::ParseOptions(argc, argv, &options);
    if (status >= 0) return status;
    Server server;
    g_server = &server;
    Function_Add("bench_url", BenchUrl, 0, false);
    Function_Add("bench_now", BenchNow, 0, false);
    Function_Add("bench_sent", BenchSent, 1, false);
    return kx::Runtime(options).Run();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "kxhttplatency: %s\n", failure.what());
        return 1;
    }
}
