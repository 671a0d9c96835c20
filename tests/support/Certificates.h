#pragma once

#include "tests/support/Folder.h"

#include <string>

namespace kx::test {

/// A certificate with its key, as PEM files.
struct Certificate {
    std::filesystem::path certificate;
    std::filesystem::path key;

    /// The directives of an nginx server that shows it.
    [[nodiscard]] std::string Directives() const;
};

/// Certificates good and bad, by authorities that nobody but a test knows. They are for "localhost" and 127.0.0.1 where
/// nothing else stands.
class Certificates {
public:
    /// Those of this program, made at the first call.
    static const Certificates& Get();

    Certificate authority;  ///< which a client is to trust
    Certificate good;       ///< by the authority
    Certificate expired;
    Certificate otherHost;  ///< by the authority, for other.test
    Certificate selfSigned;
    Certificate strange;  ///< by another authority

private:
    Certificates();
    [[nodiscard]] Certificate SelfSigned(const std::string& name, const std::string& subject) const;
    [[nodiscard]] Certificate SignedBy(const Certificate& issuer, const std::string& name, const std::string& hosts,
                                       const std::string& days) const;

    TemporaryFolder m_folder;
};

}  // namespace kx::test
