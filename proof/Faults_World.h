#pragma once

#include "Files/Code/Code_Error.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Folder.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/Snapshot.h"
#include "tests/support/Variable.h"

#include <mutex>
#include <string>

namespace kx::proof {

/// Takes the debug console's place and remembers that something was said, without any memory.
class Witness : public IConsole {
public:
    Witness();
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;
    ~Witness() override;

    void Output(const char* format, ...) override __attribute__((format(printf, 2, 3)));

    /// @return whether anything was said since the last call, a script error counted.
    bool TakeSaid();

    /// The start of what was said last.
    [[nodiscard]] const char* Last() const { return m_last; }

private:
    IConsole* m_before;
    std::mutex m_mutex;
    bool m_said = false;
    char m_last[256] = "";
};

/// What scripts of a campaign find: two areas with files of every kind, the module, a server.
///
///     World world;
///     world.Reset();
///     …built-ins are called…
///     world.Settle(true);                  // as the runner ends a script that failed
///     world.Files();                       // what there is now
/// @thread one, and one in a process
class World {
public:
    World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World();

    /// The areas hold what they held at first.
    void Reset();

    /// The bundle is an archive that holds the same, until the next Reset.
    void ShipArchive();

    /// Ends all that scripts have left: files, the INI document, the search, requests, containers, buffers.
    /// @param failed  whether the script has: what it was writing anew is then given up.
    void Settle(bool failed);

    /// Ends the transport's threads and connections.
    static void EndHttp();

    /// Everything in and beside the areas.
    [[nodiscard]] test::Snapshot Files() const { return test::ContentsBelow(m_folder.Path()); }

    /// The same before anything has been done.
    [[nodiscard]] const test::Snapshot& First() const { return m_first; }

    /// Sets the areas again, as the next start of a program does.
    void Restart() const;

    /// What a script holds: open files by number, the document, the search, containers and their contents.
    [[nodiscard]] static std::string Holdings();

    /// Whether a file or the document is open: only what was closed is saved.
    [[nodiscard]] static bool HoldsFiles();

    /// How many of them there are.
    [[nodiscard]] static int CountHoldings();

    /// Waits for the event of every request in flight.
    /// @return what the events tell; nothing of one that there was no memory for.
    static std::string AwaitEvents();

    [[nodiscard]] std::string Url(const std::string& path) const { return m_server.Url(path); }
    [[nodiscard]] Witness& Said() { return m_witness; }

private:
    [[nodiscard]] std::filesystem::path At(const std::string& name) const { return m_folder.Path() / name; }

    test::ServerProcess m_server;  // before there is any thread
    test::TemporaryFolder m_folder;
    test::Variable m_noProxy{"no_proxy", "*"};
    Witness m_witness;
    test::Snapshot m_first;
    bool m_archiveShipped = false;
};

/// A value as a text: a number, a text, or the JSON of what it holds.
std::string Describe(const RValue& value);

/// The answers of the server, by path.
std::string AnswerTo(const std::string& request);

}  // namespace kx::proof
