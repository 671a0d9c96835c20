// An allocator that fails at will, on top of the C library's.
#include "tests/support/FailingMalloc.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <link.h>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);
}

namespace kx::test {
namespace {

std::atomic<long long> g_live{0};
thread_local bool t_armed = false;
thread_local bool t_failed = false;
thread_local int t_skip = 0;
thread_local FailingMalloc::Mode t_mode = FailingMalloc::once;
thread_local FailingMalloc::Scope t_scope = FailingMalloc::ours;

struct Range {
    uintptr_t from = 0;
    uintptr_t to = 0;
};

/// The code of the libraries that count as json-c: it, and the C library, whose strdup it calls.
Range g_libraries[2];

int FindLibraries(dl_phdr_info* info, size_t, void*) {
    int which = std::strstr(info->dlpi_name, "libjson-c.so") ? 0 : std::strstr(info->dlpi_name, "libc.so") ? 1 : -1;
    for (int i = 0; which >= 0 && i < info->dlpi_phnum; ++i) {
        const auto& segment = info->dlpi_phdr[i];
        bool code = segment.p_type == PT_LOAD && (segment.p_flags & PF_X);
        if (!code) continue;
        uintptr_t from = info->dlpi_addr + segment.p_vaddr;
        g_libraries[which] = {from, from + segment.p_memsz};
    }
    return 0;
}

bool IsLibrary(const void* caller) {
    auto address = reinterpret_cast<uintptr_t>(caller);
    for (const Range& range : g_libraries) {
        if (address >= range.from && address < range.to) return true;
    }
    return false;
}

bool Fails(const void* caller) {
    if (!t_armed) return false;
    if (t_scope == FailingMalloc::ours && IsLibrary(caller)) return false;
    if (t_skip-- > 0) return false;
    if (t_mode == FailingMalloc::once && t_failed) return false;
    t_failed = true;
    errno = ENOMEM;
    return true;
}

void* Counted(void* block) {
    if (block) ++g_live;
    return block;
}

}  // namespace

void FailingMalloc::Arm(int skipped, Mode mode, Scope scope) {
    if (!g_libraries[0].to) ::dl_iterate_phdr(FindLibraries, nullptr);
    t_skip = skipped;
    t_mode = mode;
    t_scope = scope;
    t_failed = false;
    t_armed = true;
}

bool FailingMalloc::Disarm() {
    t_armed = false;
    return t_failed;
}

long long FailingMalloc::Live() {
    return g_live;
}

}  // namespace kx::test

extern "C" {

void* malloc(size_t size) {
    if (kx::test::Fails(__builtin_return_address(0))) return nullptr;
    return kx::test::Counted(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) {
    if (kx::test::Fails(__builtin_return_address(0))) return nullptr;
    return kx::test::Counted(__libc_calloc(count, size));
}

void* realloc(void* block, size_t size) {
    if (kx::test::Fails(__builtin_return_address(0))) return nullptr;
    void* moved = __libc_realloc(block, size);
    return block ? moved : kx::test::Counted(moved);
}

void free(void* block) {
    if (block) --kx::test::g_live;
    __libc_free(block);
}
}
