// Certificates good and bad, made with the openssl command.
#include "tests/support/Certificates.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

constexpr char kOurHosts[] = "DNS:localhost,IP:127.0.0.1";

/// Runs the openssl command, its output to a file.
void OpenSsl(std::vector<std::string> words, const fs::path& log) {
    words.insert(words.begin(), "openssl");
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    pid_t child = -1;
    int reason = ::posix_spawnp(&child, "openssl", &actions, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    if (reason == 0) ::waitpid(child, &status, 0);
    if (status != 0) throw std::runtime_error("openssl " + words[1] + ": " + (reason ? "" : ReadWholeFile(log)));
}

}  // namespace

std::string Certificate::Directives() const {
    return "ssl_certificate " + certificate.string() + "; ssl_certificate_key " + key.string() + ";\n";
}

const Certificates& Certificates::Get() {
    static const Certificates certificates;
    return certificates;
}

Certificates::Certificates() {
    authority = SelfSigned("authority", "/CN=an authority for tests");
    good = SignedBy(authority, "good", kOurHosts, "30");
    expired = SignedBy(authority, "expired", kOurHosts, "-1");
    otherHost = SignedBy(authority, "other", "DNS:other.test", "30");
    selfSigned = SelfSigned("self", "/CN=localhost");
    strange = SignedBy(SelfSigned("stranger", "/CN=another authority"), "strange", kOurHosts, "30");
}

Certificate Certificates::SelfSigned(const std::string& name, const std::string& subject) const {
    Certificate made{m_folder.Path() / (name + ".pem"), m_folder.Path() / (name + ".key")};
    OpenSsl({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "30", "-subj",
             subject, "-addext", std::string("subjectAltName=") + kOurHosts, "-keyout", made.key, "-out",
             made.certificate},
            m_folder.Path() / "log");
    return made;
}

Certificate Certificates::SignedBy(const Certificate& issuer, const std::string& name, const std::string& hosts,
                                   const std::string& days) const {
    Certificate made{m_folder.Path() / (name + ".pem"), m_folder.Path() / (name + ".key")};
    fs::path request = m_folder.Path() / (name + ".request");
    fs::path extensions = m_folder.Path() / (name + ".extensions");
    WriteWholeFile(extensions, "subjectAltName=" + hosts + "\nbasicConstraints=critical,CA:FALSE\n");
    OpenSsl({"req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj", "/CN=" + name,
             "-keyout", made.key, "-out", request},
            m_folder.Path() / "log");
    OpenSsl({"x509", "-req", "-in", request, "-CA", issuer.certificate, "-CAkey", issuer.key, "-CAcreateserial",
             "-days", days, "-extfile", extensions, "-out", made.certificate},
            m_folder.Path() / "log");
    return made;
}

}  // namespace kx::test
