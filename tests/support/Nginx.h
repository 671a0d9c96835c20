#pragma once

#include "tests/support/Folder.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace kx::test {

/// A real web server: nginx, on free ports of 127.0.0.1, with a folder of its own. It takes connections from the start
/// and ends with this.
///
///     Nginx nginx("location / { return 200 hello; }");
///     …a request to nginx.Url()…
///
/// An nginx that does not run fails the test and says what it had to say.
class Nginx {
public:
    struct Server {
        std::string listen;      ///< options of its port: "ssl http2", or none
        std::string directives;  ///< the server's; PORT0, PORT1… stand for the ports of all
    };

    using Servers = std::vector<Server>;

    explicit Nginx(const Servers& servers);
    explicit Nginx(const std::string& directives) : Nginx(Servers{{"", directives}}) {}
    Nginx(const Nginx&) = delete;
    Nginx& operator=(const Nginx&) = delete;
    ~Nginx();

    [[nodiscard]] int Port(size_t server = 0) const { return m_ports[server]; }
    [[nodiscard]] std::string Url(const std::string& path = "/", size_t server = 0) const;

    /// What it serves files from, by default: <folder>/html.
    [[nodiscard]] const std::filesystem::path& Folder() const { return m_folder.Path(); }

private:
    void WriteConfiguration(const Servers& servers);
    [[nodiscard]] std::string WithPorts(std::string directives) const;
    void Start(const std::vector<int>& sockets);
    [[nodiscard]] std::filesystem::path Log() const { return m_folder.Path() / "error.log"; }

    TemporaryFolder m_folder;
    std::vector<int> m_ports;
    std::vector<std::string> m_schemes;
    pid_t m_child = -1;
};

}  // namespace kx::test
