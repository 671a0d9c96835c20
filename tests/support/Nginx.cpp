// A real web server for tests.
#include "tests/support/Nginx.h"

#include "tests/support/Loopback.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::test {
namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// The environment, with the listening sockets in the variable in which nginx hands its own to its successor.
std::vector<std::string> EnvironmentWith(const std::vector<int>& sockets) {
    std::vector<std::string> environment;
    for (char** each = environ; *each; ++each) {
        environment.emplace_back(*each);
    }
    environment.emplace_back("NGINX=");
    for (int socket : sockets) {
        environment.back() += std::to_string(socket) + ";";
    }
    return environment;
}

}  // namespace

Nginx::Nginx(const Servers& servers) {
    // Sockets that listen already: no port is lost to others, and nobody has to wait until nginx is there.
    std::vector<std::unique_ptr<Loopback>> loopbacks;
    std::vector<int> sockets;
    for (const Server& server : servers) {
        loopbacks.push_back(std::make_unique<Loopback>());
        sockets.push_back(loopbacks.back()->Socket());
        ::fcntl(sockets.back(), F_SETFL, O_NONBLOCK);
        m_ports.push_back(loopbacks.back()->Port());
        m_schemes.push_back(server.listen.find("ssl") == std::string::npos ? "http" : "https");
    }
    WriteConfiguration(servers);
    Start(sockets);
}

Nginx::~Nginx() {
    int status = 0;
    if (::waitpid(m_child, &status, WNOHANG) != 0) {
        ADD_FAILURE() << "nginx (" << KXNGINX << ") has ended by itself; ./kx test gets one where there is none:\n"
                      << (std::filesystem::exists(Log()) ? ReadWholeFile(Log()) : "");
        return;
    }
    ::kill(m_child, SIGTERM);  // by which it ends its worker too
    ::waitpid(m_child, &status, 0);
}

std::string Nginx::Url(const std::string& path, size_t server) const {
    return m_schemes[server] + "://127.0.0.1:" + std::to_string(Port(server)) + path;
}

std::string Nginx::WithPorts(std::string directives) const {
    for (size_t i = 0; i < m_ports.size(); ++i) {
        std::string name = "PORT" + std::to_string(i);
        for (size_t at = directives.find(name); at != std::string::npos; at = directives.find(name)) {
            directives.replace(at, name.size(), std::to_string(m_ports[i]));
        }
    }
    return directives;
}

void Nginx::WriteConfiguration(const Servers& servers) {
    std::string text = "daemon off; worker_processes 1; pid nginx.pid; error_log error.log;\n"
                       "events { worker_connections 2000; }\n"
                       "http {\naccess_log off; keepalive_requests 1000000; default_type text/plain;\n";
    if (::geteuid() == 0) text = "user root;\n" + text;  // a worker that may not read the folder serves nothing
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        text += std::string(kind) + "_temp_path " + kind + ";\n";
    }
    for (size_t i = 0; i < servers.size(); ++i) {
        text += "server {\nlisten 127.0.0.1:" + std::to_string(m_ports[i]) + " " + servers[i].listen + ";\n" +
                WithPorts(servers[i].directives) + "\n}\n";
    }
    WriteWholeFile(m_folder.Path() / "nginx.conf", text + "}\n");
}

void Nginx::Start(const std::vector<int>& sockets) {
    std::vector<std::string> words = {KXNGINX, "-e", Log(), "-p", m_folder.Path(), "-c", "nginx.conf"};
    std::vector<std::string> variables = EnvironmentWith(sockets);
    std::vector<char*> argv = Pointers(words);
    std::vector<char*> environment = Pointers(variables);
    m_child = ::fork();
    if (m_child != 0) return;

    ::prctl(PR_SET_PDEATHSIG, SIGTERM);  // a test that crashes leaves none behind
    for (int socket : sockets) {
        ::fcntl(socket, F_SETFD, 0);
    }
    ::execve(argv[0], argv.data(), environment.data());
    ::_exit(127);
}

}  // namespace kx::test
