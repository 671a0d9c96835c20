// Unpacking archives.
#include "Files/Code/Code_Error.h"
#include "Files/IO/Archive_Name.h"
#include "Files/IO/LoadSave_Open.h"
#include "Files/Run/Run_Command.h"
#include "Files/Run/Run_Command_UnzipPlan.h"

#include <cstring>
#include <fcntl.h>
#include <memory>
#include <set>
#include <utility>

using kx::Archive;
using kx::ArchiveFile;
using kx::Descriptor;
using kx::Durability;
using kx::SaveArea;
using kx::UnzipPlan;
using kx::UnzipProgress;

namespace {

constexpr size_t kChunkBytes = 128 * 1024;

kx::UnzipObserver g_observer = nullptr;

/// Writes what a plan says.
class Unpacking {
public:
    Unpacking(const Archive& archive, const UnzipPlan& plan, const char* path)
        : m_archive(archive), m_plan(plan),
          m_chunk(new char[kChunkBytes]), m_progress{path, 0, plan.files, 0, plan.bytes, false} {}

    Unpacking(const Unpacking&) = delete;
    Unpacking& operator=(const Unpacking&) = delete;
    ~Unpacking() {
        m_progress.over = true;
        GoOn();
    }

    /// @param fault  set to what went wrong, as the end of a sentence.
    /// @return false then.
    bool Run(const std::string& destination, std::string* fault) {
        bool written = Make(destination, fault) && WriteTargets(fault);
        std::string unsynced;
        bool synced = SyncDirectories(&unsynced);  // what has been written is there to stay all the same
        if (written) *fault = unsynced;
        return written && synced;
    }

    [[nodiscard]] int Files() const { return m_progress.files; }

private:
    bool WriteTargets(std::string* fault) {
        for (const UnzipPlan::Target& target : m_plan.targets) {
            std::string wrong;
            bool made = target.directory ? Make(target.place, &wrong) : Write(target, &wrong);
            if (made && GoOn()) continue;
            *fault = m_stopped ? "stopped" : kx::FaultOfEntry(target.entry->name, wrong);
            return false;
        }
        return true;
    }

    static bool Fail(std::string* fault, const char* what, int reason) {
        *fault = std::string(what) + ": " + std::strerror(reason);
        return false;
    }

    bool Make(const std::string& directory, std::string* fault) {
        // The directories' own syncs come at the end, once for each.
        int reason = kx::MakeDirectoriesBeneath(SaveArea().Root(), directory, Durability::none);
        if (reason) return Fail(fault, "cannot be made", reason);
        if (SaveArea().DurabilityNow() != Durability::full) return true;
        for (std::string above = directory; m_changed.insert(above).second && !above.empty();) {
            above = kx::ParentOf(above);
        }
        return true;
    }

    bool Write(const UnzipPlan::Target& target, std::string* fault) {
        if (!Enter(kx::ParentOf(target.place), fault)) return false;
        std::unique_ptr<ArchiveFile> file = ArchiveFile::Open(m_archive, *target.entry, fault);
        if (!file) return false;
        bool synced = SaveArea().DurabilityNow() != Durability::none;
        kx::FileReplacement replacement(m_directory.Get(), kx::LeafOf(target.place),
                                        synced ? Durability::contents : Durability::none);
        if (int reason = replacement.Begin()) return Fail(fault, "cannot be written", reason);
        if (!Copy(*file, &replacement, fault)) return false;
        replacement.SetModified(kx::ModifiedAt(*target.entry));
        if (int reason = replacement.Commit()) return Fail(fault, "cannot be written", reason);
        ++m_progress.files;
        return true;
    }

    /// Opens the directory that the next file goes to; most lie where the one before them does.
    bool Enter(const std::string& directory, std::string* fault) {
        if (m_directory && directory == m_entered) return true;
        if (!Make(directory, fault)) return false;
        m_directory = kx::OpenBeneath(SaveArea().Root(), directory, O_RDONLY | O_DIRECTORY);
        m_entered = directory;
        return m_directory || Fail(fault, "cannot be written", errno);
    }

    bool Copy(ArchiveFile& file, kx::FileReplacement* replacement, std::string* fault) {
        for (;;) {
            ssize_t count = file.Read(m_chunk.get(), kChunkBytes, fault);
            if (count < 0) return false;
            if (count == 0) return true;
            int reason = replacement->Write(m_chunk.get(), static_cast<size_t>(count));
            if (reason) return Fail(fault, "cannot be written", reason);
            m_progress.bytes += static_cast<uint64_t>(count);
            if (!GoOn()) return false;
        }
    }

    bool GoOn() {
        m_stopped = g_observer && !g_observer(m_progress);
        return !m_stopped;
    }

    bool SyncDirectories(std::string* fault) {
        for (const std::string& directory : m_changed) {
            Descriptor opened = kx::OpenBeneath(SaveArea().Root(), directory, O_RDONLY | O_DIRECTORY);
            int reason = opened ? kx::Sync(kx::g_systemCalls.fsync, opened.Get()) : errno;
            if (reason) return Fail(fault, "is unpacked, but not on the disk yet", reason);
        }
        return true;
    }

    const Archive& m_archive;
    const UnzipPlan& m_plan;
    std::unique_ptr<char[]> m_chunk;  // kChunkBytes that nobody sets first
    UnzipProgress m_progress;
    bool m_stopped = false;
    Descriptor m_directory;
    std::string m_entered;            // the place of m_directory
    std::set<std::string> m_changed;  // directories that have to be synced
};

/// @return the place that a path names in the save area, where a directory is or can be.
std::optional<std::string> PlaceOfDestination(const char* path, std::string* fault) {
    std::optional<std::string> place = SaveArea().Place(path);
    struct stat status {};
    int reason = place ? SaveArea().Look(*place, &status) : 0;
    if (place && reason == ENOENT) return place;
    bool isOther = place && reason == 0 && !S_ISDIR(status.st_mode);
    if (isOther) reason = ENOTDIR;
    if (place && reason == 0) return place;
    *fault = "destination \"" + std::string(path ? path : "") + "\" " +
             (place ? std::strerror(reason) : "is not in the save area");
    return std::nullopt;
}

/// @return files written; -1 with `fault` set.
int Unzip(const char* zipPath, const char* destPath, std::string* fault) {
    std::unique_ptr<Archive> archive = kx::OpenArchive(zipPath, fault);
    if (!archive) return -1;
    std::optional<std::string> destination = PlaceOfDestination(destPath, fault);
    if (!destination) return -1;
    UnzipPlan plan;
    if (!kx::MakeUnzipPlan(*archive, *destination, &plan, fault)) return -1;
    Unpacking unpacking(*archive, plan, zipPath);
    return unpacking.Run(*destination, fault) ? unpacking.Files() : -1;
}

}  // namespace

int Command_Unzip(const char* zipPath, const char* destPath, int reserved1, int reserved2, char* reserved3) {
    std::string fault = "reserved parameters are 0, 0 and null";
    bool valid = reserved1 == 0 && reserved2 == 0 && !reserved3;
    int files = valid ? Unzip(zipPath, destPath, &fault) : -1;
    if (files < 0) dbg_csol->Output("Failed to unzip: %s (%s)\n", zipPath ? zipPath : "", fault.c_str());
    return files;
}

kx::UnzipObserver kx::SetUnzipObserver(UnzipObserver observer) {
    return std::exchange(g_observer, observer);
}
