// A zip archive as the bundle area.
#include "Files/IO/LoadSave_ArchiveArea.h"

#include "Files/Base/Limits.h"
#include "Files/Code/Code_Error.h"

#include <cstring>
#include <fcntl.h>
#include <utility>

namespace kx {
namespace {

constexpr mode_t kReadableFile = S_IFREG | 0444;
constexpr mode_t kReadableDirectory = S_IFDIR | 0555;

constexpr size_t kChunkBytes = 64 * 1024;
constexpr uint64_t kMostDeflated = 1032;  // bytes that deflate makes one of, at best

}  // namespace

int ArchiveArea::Open(const char* path) {
    Descriptor file(RetryInterrupted(
        [&] { return g_systemCalls.openat(AT_FDCWD, path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0); }));
    struct stat status {};
    if (!file || g_systemCalls.fstat(file.Get(), &status) != 0) return errno;
    if (!S_ISREG(status.st_mode)) return ENOTDIR;

    std::string fault;
    std::vector<ArchiveNode> nodes;
    auto archive = Archive::Open(ArchiveBytes(std::move(file), status), &fault);
    bool usable = archive && BuildTree(*archive, CaseRule::counts, &nodes, &fault);
    if (!usable) {
        dbg_csol->Output("Failed to open archive: %s (%s)\n", path, fault.c_str());
        return EINVAL;
    }
    if (int reason = SetPathsOf(path)) return reason;
    m_archive = std::move(archive);
    m_nodes = std::move(nodes);
    return 0;
}

int ArchiveArea::Look(const std::string& place, struct stat* status) const {
    *status = {};
    status->st_mode = kReadableDirectory;
    if (place.empty()) return 0;  // the root
    const ArchiveNode* node = FindNode(m_nodes, place);
    if (!node) return ENOENT;
    if (node->directory) return 0;
    status->st_mode = kReadableFile;
    status->st_size = static_cast<off_t>(node->entry->size);
    return 0;
}

Contents ArchiveArea::Load(const std::string& place) const {
    const ArchiveNode* node = FindNode(m_nodes, place);
    bool isFile = node && !node->directory;
    if (!isFile) {
        errno = node || place.empty() ? EISDIR : ENOENT;
        return nullptr;
    }
    bool fits = node->entry->size <= static_cast<uint64_t>(kMaxFileBytes);
    std::string fault = fits ? "" : std::strerror(EFBIG);
    Contents contents = fits ? Unpack(*node->entry, &fault) : nullptr;
    if (contents) return contents;
    dbg_csol->Output("Failed to read file: %s (%s)\n", FullPath(place).c_str(), fault.c_str());
    errno = fits ? EIO : EFBIG;
    return nullptr;
}

Contents ArchiveArea::Unpack(const ArchiveEntry& entry, std::string* fault) const {
    std::unique_ptr<ArchiveFile> file = ArchiveFile::Open(*m_archive, entry, fault);
    if (!file) return nullptr;
    // Room for all at once where the size can be true; what cannot is given none before its bytes are there.
    bool believable = entry.size / kMostDeflated <= entry.packedSize;
    auto contents =
        std::make_unique<Buffer_Standard>(believable ? static_cast<int>(entry.size) : 0, eBuffer_Format_Grow, 1);
    contents->Truncate(0);
    std::unique_ptr<char[]> chunk(new char[kChunkBytes]);  // nobody sets them first
    while (ssize_t count = file->Read(chunk.get(), kChunkBytes, fault)) {
        if (count < 0) return nullptr;
        contents->Write(chunk.get(), static_cast<int>(count));  // it has room: its size has been looked at
    }
    contents->Seek(eBuffer_Start, 0);
    return contents;
}

Descriptor ArchiveArea::OpenToRead(const std::string& place, struct stat* status) const {
    int reason = Look(place, status);
    errno = reason ? reason : ENXIO;  // no file of the system
    return Descriptor();
}

int ArchiveArea::List(const std::string& place, std::vector<DirectoryEntry>* entries) const {
    struct stat status {};
    if (int reason = Look(place, &status)) return reason;
    if (!S_ISDIR(status.st_mode)) return ENOTDIR;
    std::string above = place.empty() ? "" : place + "/";
    for (size_t i = FirstFrom(m_nodes, above); i < m_nodes.size();) {
        const ArchiveNode& node = m_nodes[i];
        if (node.key.compare(0, above.size(), above) != 0) break;
        size_t slash = node.key.find('/', above.size());
        if (slash == std::string::npos) {
            EntryKind kind = node.directory ? EntryKind::directory : EntryKind::file;
            entries->push_back({node.key.substr(above.size()), kind});
            ++i;
        } else {
            constexpr char kAfterSlash = '/' + 1;
            i = FirstFrom(m_nodes, node.key.substr(0, slash) + kAfterSlash);  // past all that lies deeper
        }
    }
    return 0;
}

}  // namespace kx
