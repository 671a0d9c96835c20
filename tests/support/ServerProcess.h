#pragma once

#include "tests/support/HttpServer.h"

#include <string>
#include <sys/types.h>

namespace kx::test {

/// A server in a process of its own: what fails in this one does not fail there. Made where there is one thread only.
class ServerProcess {
public:
    explicit ServerProcess(const HttpServer::Handler& handler);
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;
    ~ServerProcess();

    [[nodiscard]] std::string Url(const std::string& path = "/") const;

private:
    pid_t m_process = -1;
    int m_port = 0;
};

}  // namespace kx::test
