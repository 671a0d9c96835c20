#pragma once

#include "Platform/SystemCalls.h"
#include "proof/Crash_Model.h"

#include <filesystem>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace kx::proof {

/// Stands in the table of system calls while it lives: passes every call on, and writes down what those that succeed
/// change below a folder.
/// @thread calls on any thread; it comes and goes while no other thread makes any.
class Recorder {
public:
    /// @param folder  is the model's root. What it holds counts as on the disk.
    explicit Recorder(const std::filesystem::path& folder);
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder();

    /// What was there before.
    [[nodiscard]] const DiskModel& Before() const { return m_before; }

    /// What has been done since, in its order.
    [[nodiscard]] std::vector<Event> Events() const;

    // For the entries.
    [[nodiscard]] const SystemCalls& Real() const { return m_real; }
    int Opened(int directory, const char* path, unsigned int flags, int file);
    void Written(int file, off_t offset, const void* data, ssize_t count);
    void Synced(int file);
    void Bound(int directory, const char* path, int node);
    void Made(int directory, const char* path);
    [[nodiscard]] int NodeAt(int directory, const char* path, int flags) const;

private:
    using Identity = std::pair<dev_t, ino_t>;

    void AddExisting(const std::filesystem::path& path, int node);
    int NewNode(Event::Kind kind, const struct stat& status);
    [[nodiscard]] int NodeOf(int file) const;
    [[nodiscard]] int Find(const struct stat& status) const;

    SystemCalls m_real;
    DiskModel m_before;
    mutable std::mutex m_mutex;
    std::map<Identity, int> m_nodes;  // under the mutex, as what follows
    int m_count = 1;
    std::vector<Event> m_events;
};

}  // namespace kx::proof
