#pragma once

#include <filesystem>

namespace kx::test {

/// Makes the process act as a user to whom permissions apply, as long as it lives: root, to whom they do not, becomes
/// the user "nobody". The folder is given to that user first.
class OrdinaryUser {
public:
    explicit OrdinaryUser(const std::filesystem::path& folder);
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;
    ~OrdinaryUser();

private:
    bool m_wasRoot;
};

}  // namespace kx::test
