// The host's allocator over malloc.
#include "Platform/MemoryManager.h"

#include "Platform/Sanitizer.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <mutex>
#include <new>
#include <sys/mman.h>

#if KX_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace {

// Clearing reaches to the end of a block's usable size, so that what a later ReAlloc finds there is zero too.

/// Blocks up to this size come from malloc's per-thread cache, which calloc does not use.
constexpr unsigned int kCachedBlock = 1032;

constexpr size_t kHugeBlock = 8 << 20;
constexpr uintptr_t kPage = 4096;

/// One thread's share of the statistics. Only its own thread writes it, so that counting needs no locked instruction;
/// a share may be negative where blocks are freed by another thread than allocated them.
struct Counters {
    std::atomic<long long> blocks{0};
    std::atomic<long long> bytes{0};
    Counters* next = nullptr;
    Counters* previous = nullptr;

    void Add(long long block, size_t size) {
        blocks.store(blocks.load(std::memory_order_relaxed) + block, std::memory_order_relaxed);
        bytes.store(bytes.load(std::memory_order_relaxed) + block * static_cast<long long>(size),
                    std::memory_order_relaxed);
    }
};

struct Ledger {
    std::mutex mutex;
    Counters ended;  ///< what threads that have ended left behind
    Counters* first = nullptr;
};

Ledger& TheLedger() {
    static auto* ledger = new Ledger;  // threads may still end while static objects are destroyed
    return *ledger;
}

/// Enters a thread's counters in the ledger and takes them out when the thread ends.
struct Enrolment {
    explicit Enrolment(Counters* own) : counters(own) {
        Ledger& ledger = TheLedger();
        std::lock_guard<std::mutex> lock(ledger.mutex);
        counters->next = ledger.first;
        if (ledger.first) ledger.first->previous = counters;
        ledger.first = counters;
    }

    ~Enrolment() {
        Ledger& ledger = TheLedger();
        std::lock_guard<std::mutex> lock(ledger.mutex);
        if (counters->previous) {
            counters->previous->next = counters->next;
        } else {
            ledger.first = counters->next;
        }
        if (counters->next) counters->next->previous = counters->previous;
        ledger.ended.blocks += counters->blocks;
        ledger.ended.bytes += counters->bytes;
        counters->blocks = 0;
        counters->bytes = 0;
    }

    Counters* counters;
};

thread_local Counters t_counters;
thread_local bool t_enrolled = false;

void Enrol() {
    thread_local Enrolment enrolment(&t_counters);
    t_enrolled = true;
}

void Count(long long block, void* p) {
    if (__builtin_expect(!t_enrolled, 0)) Enrol();
    t_counters.Add(block, malloc_usable_size(p));
}

/// Asks for huge pages: reading a large file then takes a fault every 2 MiB instead of every 4 KiB. A mere wish.
void AdviseHugePages(void* block, size_t size) {
    if (size < kHugeBlock) return;
    auto address = reinterpret_cast<uintptr_t>(block);
    uintptr_t aligned = (address + kPage - 1) & ~(kPage - 1);
    ::madvise(reinterpret_cast<void*>(aligned), size - (aligned - address), MADV_HUGEPAGE);
}

}  // namespace

void* MemoryManager::Alloc(unsigned int size, const char* /*file*/, int /*line*/, bool clear) {
    if (size == 0) size = 1;
    // calloc spares large blocks the clearing: fresh pages are zero already.
    bool large = size > kCachedBlock;
    void* p = clear && large ? std::calloc(size, 1) : std::malloc(size);
    if (!p) throw std::bad_alloc();
    AdviseHugePages(p, size);
    if (clear && !large) std::memset(p, 0, malloc_usable_size(p));
    Count(1, p);
    return p;
}

void* MemoryManager::ReAlloc(void* p, unsigned int size, const char* file, int line, bool clear) {
    if (!p) return Alloc(size, file, line, clear);

    size_t before = malloc_usable_size(p);
    void* grown = std::realloc(p, size ? size : 1);
    if (!grown) throw std::bad_alloc();
    t_counters.Add(-1, before);
    Count(1, grown);
    size_t after = malloc_usable_size(grown);
    if (clear && after > before) std::memset(static_cast<char*>(grown) + before, 0, after - before);
    return grown;
}

void* MemoryManager::Reserve(size_t size) {
    int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    void* room = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (room == MAP_FAILED) throw std::bad_alloc();
#if KX_ADDRESS_SANITIZER
    __lsan_register_root_region(room, size);  // what stands in a table is no leak
#endif
    return room;
}

void MemoryManager::Free(const void* p) {
    if (!p) return;
    void* block = const_cast<void*>(p);
    Count(-1, block);
    std::free(block);
}

MemoryManager::Statistics MemoryManager::Stats() {
    Ledger& ledger = TheLedger();
    std::lock_guard<std::mutex> lock(ledger.mutex);
    Statistics sum{ledger.ended.blocks, ledger.ended.bytes};
    for (Counters* each = ledger.first; each; each = each->next) {
        sum.blocks += each->blocks;
        sum.bytes += each->bytes;
    }
    return sum;
}

char* KXStrDup(const char* s) {
    if (!s) return nullptr;
    size_t size = std::strlen(s) + 1;
    if (size > 0xFFFFFFFFu) throw std::bad_alloc();
    void* copy = MemoryManager::Alloc(static_cast<unsigned int>(size), __FILE__, __LINE__, false);
    return static_cast<char*>(std::memcpy(copy, s, size));
}

void KXFree(const void* p) {
    MemoryManager::Free(p);
}
