// Files of the areas as streams of the standard library.
#include "Files/IO/LoadSave.h"

#include "Files/Base/Registry.h"
#include "Files/Code/Code_Error.h"
#include "Files/IO/LoadSave_Area.h"

#include <array>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>

using kx::Area;
using kx::BundleArea;
using kx::Descriptor;
using kx::SaveArea;

namespace {

constexpr size_t kStreamBytes = 64 * 1024;

// --- reading --------------------------------------------------------------------------------------------------------

struct Reader {
    Reader(Descriptor opened, std::string name) : path(std::move(name)), file(std::move(opened)) {}

    std::string path;
    Descriptor file;
    std::array<char, kStreamBytes> buffer;
};

ssize_t Read(void* cookie, char* data, size_t size) {
    auto* reader = static_cast<Reader*>(cookie);
    ssize_t count = kx::RetryInterrupted([&] { return kx::g_systemCalls.read(reader->file.Get(), data, size); });
    if (count < 0) dbg_csol->Output("Failed to read file: %s (%s)\n", reader->path.c_str(), std::strerror(errno));
    return count;
}

int CloseReader(void* cookie) {
    delete static_cast<Reader*>(cookie);
    return 0;
}

// --- writing --------------------------------------------------------------------------------------------------------

struct Writer {
    Writer(Descriptor opened, const std::string& place)
        : path(SaveArea().FullPath(place)), directory(std::move(opened)),
          replacement(directory.Get(), kx::LeafOf(place), SaveArea().DurabilityNow()) {}

    std::string path;
    Descriptor directory;
    kx::FileReplacement replacement;
    bool abandoned = false;
    FILE* stream = nullptr;
    Writer* previous = nullptr;
    Writer* next = nullptr;
    std::array<char, kStreamBytes> buffer;
};

using OpenWriters = kx::Registry<Writer>;

OpenWriters& TheOpenWriters() {
    static auto* writers = new OpenWriters;  // a stream may be closed while static objects are destroyed
    return *writers;
}

ssize_t Write(void* cookie, const char* data, size_t size) {
    int reason = static_cast<Writer*>(cookie)->replacement.Write(data, size);
    errno = reason;
    return reason ? 0 : static_cast<ssize_t>(size);
}

/// The standard library cannot bear an exception here.
int Commit(kx::FileReplacement& replacement) {
    try {
        return replacement.Commit();
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

int CloseWriter(void* cookie) {
    std::unique_ptr<Writer> writer(static_cast<Writer*>(cookie));
    TheOpenWriters().Remove(writer.get());
    if (writer->abandoned) return 0;
    int reason = Commit(writer->replacement);
    if (reason == 0) return 0;
    dbg_csol->Output("Failed to write file: %s (%s)\n", writer->path.c_str(), std::strerror(reason));
    errno = reason;
    return -1;
}

// --- opening --------------------------------------------------------------------------------------------------------

/// Makes a stream of what a cookie knows, which it owns from then on.
template <class Cookie>
FILE* MakeStream(std::unique_ptr<Cookie> cookie, const char* mode, const cookie_io_functions_t& functions) {
    FILE* stream = ::fopencookie(cookie.get(), mode, functions);
    if (!stream) return nullptr;
    std::setvbuf(stream, cookie->buffer.data(), _IOFBF, cookie->buffer.size());
    cookie.release();
    return stream;
}

FILE* OpenToRead(const char* path) {
    errno = EXDEV;
    for (const Area* area : {static_cast<Area*>(&SaveArea()), &BundleArea()}) {
        std::optional<std::string> place = area->Place(path);
        if (!place) continue;
        struct stat status {};
        Descriptor file = area->OpenToRead(*place, &status);
        if (!file) return nullptr;
        return MakeStream(std::make_unique<Reader>(std::move(file), area->FullPath(*place)), "rb",
                          {Read, nullptr, nullptr, CloseReader});
    }
    return nullptr;
}

FILE* OpenToWrite(const char* path) {
    std::optional<std::string> place = SaveArea().Place(path);
    if (!place || place->empty()) {
        errno = place ? EISDIR : EXDEV;
        return nullptr;
    }
    struct stat status {};
    Descriptor existing = SaveArea().OpenFile(*place, O_WRONLY, &status);
    if (!existing && errno != ENOENT) return nullptr;
    Descriptor directory = SaveArea().OpenDirectoryOf(*place);
    if (!directory) return nullptr;

    auto writer = std::make_unique<Writer>(std::move(directory), *place);
    if (int reason = writer->replacement.Begin()) {
        errno = reason;
        return nullptr;
    }
    Writer* opened = writer.get();
    FILE* stream = MakeStream(std::move(writer), "wb", {nullptr, Write, nullptr, CloseWriter});
    if (!stream) return nullptr;
    opened->stream = stream;
    TheOpenWriters().Add(opened);
    return stream;
}

}  // namespace

void KXAbandonStream(FILE* stream) {
    TheOpenWriters().ForEach([stream](Writer* writer) {
        if (writer->stream == stream) writer->abandoned = true;
    });
}

FILE* KXOpenStream(const char* path, const char* mode) {
    try {
        if (mode == std::string_view("rb")) return OpenToRead(path);
        if (mode == std::string_view("wb")) return OpenToWrite(path);
        errno = EINVAL;
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    return nullptr;
}
