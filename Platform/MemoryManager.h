#pragma once

#include <cstddef>

/// The host's allocator: malloc with live statistics and no header of its own, so that a block of 1,024 bytes stays in
/// malloc's fast path.
///
/// What Alloc, ReAlloc and KXStrDup return is released with Free or KXFree, never with the standard free.
/// @thread any
class MemoryManager {
public:
    struct Statistics {
        long long blocks;  ///< blocks that are allocated now
        long long bytes;   ///< their usable sizes added up
    };

    /// @param size   bytes; 0 gives a block that must be freed too.
    /// @param file   source file of the caller, for tracking; kept nowhere in this host.
    /// @param clear  fill with zero bytes.
    /// @throws std::bad_alloc when there is no memory.
    static void* Alloc(unsigned int size, const char* file, int line, bool clear);

    /// Changes a block's size and keeps its contents; a null block is allocated anew.
    /// @param clear  fill what the block gains with zero bytes; only for a block that was allocated with `clear`.
    /// @throws std::bad_alloc when there is no memory; the block is then as it was.
    static void* ReAlloc(void* p, unsigned int size, const char* file, int line, bool clear);

    /// Reserves address space for a table that is never to move. Pages read as zero and take memory once they are
    /// written; the room is never given back.
    /// @throws std::bad_alloc
    static void* Reserve(size_t size);

    /// Null-safe.
    static void Free(const void* p);

    /// What all threads together hold now.
    static Statistics Stats();
};

/// @return a new copy of a text in host memory; null for null.
/// @throws std::bad_alloc
char* KXStrDup(const char* s);

/// Releases host memory. Null-safe.
void KXFree(const void* p);

/// A text in host memory that goes with its owner, whatever ends it.
struct HostText {
    explicit HostText(char* owned) : text(owned) {}
    HostText(const HostText&) = delete;
    HostText& operator=(const HostText&) = delete;
    ~HostText() { KXFree(text); }

    char* Release() {
        char* released = text;
        text = nullptr;
        return released;
    }

    char* text;  ///< may be null, and may be replaced
};
