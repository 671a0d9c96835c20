#pragma once

#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"
#include "tests/support/HttpServer.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kx::proof {

/// A file that a save changes.
struct SavedFile {
    std::string name;                   ///< in the save area
    std::optional<std::string> before;  ///< none where the save makes it
    std::string after;
    bool openedEmpty = false;  ///< one that is new is there, empty, from its open on
};

/// A way in which a script saves.
///
/// The folder that it happens in holds the save area, `save`, and the bundle, `bundle`.
struct Scenario {
    std::string name;
    std::vector<SavedFile> files;
    std::function<bool()> save;         ///< as a script does; false where the script is told that it failed
    std::function<void()> warmUp = {};  ///< before the save begins: what the first of its kind would do besides saving
    std::string archive = {};           ///< update.zip in the bundle, where there is one
    bool firstStart = false;            ///< there is no save area yet
};

/// A file system that lacks something, or an embedder that does.
struct Setting {
    std::string name;
    bool unnamedFiles = true;  ///< O_TMPFILE
    bool links = true;         ///< linkat
    bool exchange = true;      ///< RENAME_EXCHANGE
    bool durable = true;       ///< the save area's durability is full
};

/// @param server  answers with TheDownload(); the download asks it.
std::vector<Scenario> AllScenarios(const test::HttpServer& server);
std::vector<Setting> AllSettings();
std::string TheDownload();

/// Makes the two areas as they are before a save.
void Prepare(const Scenario& scenario, const std::filesystem::path& folder);

/// Why contents that a file was found with break the promise; null where they do not.
/// @param found     null where there is no such file.
/// @param reported  the script has been told that the file is saved.
const char* FaultOf(const SavedFile& file, const std::string* found, bool reported);

/// The first of a scenario's files below a folder that breaks the promise, and why; empty where none does.
std::string FaultBelow(const Scenario& scenario, const std::filesystem::path& folder, bool reported);

/// A process's host: areas set, built-ins ready, messages kept.
class Host {
public:
    Host(const std::filesystem::path& folder, const Setting& setting);
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host();

    /// @return true where both areas could be used and no script error is pending.
    bool Works();

    [[nodiscard]] std::string Messages() { return m_console.Take(); }

private:
    test::CapturingConsole m_console;
    test::FaultySystemCalls m_calls;
    bool m_started = false;
};

/// Starts the host in a process of its own, on what a crash has left: the leftovers are swept away, the files read as
/// they are, and a further save works.
/// @return what is wrong; empty for nothing.
std::string RestartOn(const Scenario& scenario, const Setting& setting, const std::filesystem::path& folder);

}  // namespace kx::proof
