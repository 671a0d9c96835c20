// A server in a process of its own.
#include "tests/support/ServerProcess.h"

#include <csignal>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::test {

ServerProcess::ServerProcess(const HttpServer::Handler& handler) {
    int channel[2];
    if (::pipe(channel) != 0) throw std::runtime_error("no pipe");
    m_process = ::fork();
    if (m_process < 0) throw std::runtime_error("no process");
    if (m_process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::close(channel[0]);
        HttpServer server(handler);
        int port = server.Port();
        bool told = ::write(channel[1], &port, sizeof port) == sizeof port;
        if (!told) ::_exit(1);
        while (true) {
            ::pause();
        }
    }
    ::close(channel[1]);
    bool told = ::read(channel[0], &m_port, sizeof m_port) == sizeof m_port;
    ::close(channel[0]);
    if (!told) throw std::runtime_error("no server");
}

ServerProcess::~ServerProcess() {
    ::kill(m_process, SIGKILL);
    ::waitpid(m_process, nullptr, 0);
}

std::string ServerProcess::Url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(m_port) + path;
}

}  // namespace kx::test
