// An allocator that fails at will, on top of the C library's.
#include "tests/support/FailingMalloc.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
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

/// One thread's plan, or that of all others.
template <class Flag, class Counter>
struct Plan {
    Flag armed{false};
    Flag failed{false};
    Counter skip{0};
    FailingMalloc::Mode mode = FailingMalloc::once;
    FailingMalloc::Scope scope = FailingMalloc::ours;

    bool Fails(FailingMalloc::Scope caller) {
        if (!armed || caller > scope) return false;
        if (skip-- > 0) return false;
        if (mode == FailingMalloc::once && failed) return false;
        failed = true;
        return true;
    }
};

thread_local Plan<bool, int> t_plan;
Plan<std::atomic<bool>, std::atomic<int>> g_othersPlan;
thread_local bool t_isArmer = false;

constexpr int kMost = 8;

/// Code of one scope, in address order of its segments as they come.
struct Ranges {
    struct Range {
        uintptr_t from = 0;
        uintptr_t to = 0;
    };

    void Add(uintptr_t from, uintptr_t to) {
        if (count < kMost) ranges[count++] = {from, to};
    }

    [[nodiscard]] bool Hold(uintptr_t address) const {
        for (int i = 0; i < count; ++i) {
            if (address >= ranges[i].from && address < ranges[i].to) return true;
        }
        return false;
    }

    Range ranges[kMost];
    int count = 0;
};

Ranges g_ours;
Ranges g_libraries;

bool IsOneOf(const char* name, std::initializer_list<const char*> libraries) {
    for (const char* library : libraries) {
        if (std::strstr(name, library)) return true;
    }
    return false;
}

int FindCode(dl_phdr_info* info, size_t, void*) {
    bool ours = !*info->dlpi_name || IsOneOf(info->dlpi_name, {"libstdc++.so"});  // the program itself has no name
    bool library = IsOneOf(info->dlpi_name, {"libjson-c.so", "libzip.so", "libc.so"});
    for (int i = 0; (ours || library) && i < info->dlpi_phnum; ++i) {
        const auto& segment = info->dlpi_phdr[i];
        bool code = segment.p_type == PT_LOAD && (segment.p_flags & PF_X);
        if (!code) continue;
        uintptr_t from = info->dlpi_addr + segment.p_vaddr;
        (ours ? g_ours : g_libraries).Add(from, from + segment.p_memsz);
    }
    return 0;
}

/// Anew each time: libraries are loaded while the program runs.
void FindAllCode() {
    g_ours.count = 0;
    g_libraries.count = 0;
    ::dl_iterate_phdr(FindCode, nullptr);
}

bool Fails(const void* caller) {
    bool others = !t_isArmer && g_othersPlan.armed;
    if (!t_plan.armed && !others) return false;
    auto address = reinterpret_cast<uintptr_t>(caller);
    bool ours = g_ours.Hold(address);
    if (!ours && !g_libraries.Hold(address)) return false;
    FailingMalloc::Scope scope = ours ? FailingMalloc::ours : FailingMalloc::library;
    bool fails = others ? g_othersPlan.Fails(scope) : t_plan.Fails(scope);
    if (fails) errno = ENOMEM;
    return fails;
}

template <class AnyPlan>
void Prepare(AnyPlan& plan, int skipped, FailingMalloc::Mode mode, FailingMalloc::Scope scope) {
    plan.skip = skipped;
    plan.mode = mode;
    plan.scope = scope;
    plan.failed = false;
    plan.armed = true;
}

void* Counted(void* block) {
    if (block) ++g_live;
    return block;
}

}  // namespace

void FailingMalloc::Arm(int skipped, Mode mode, Scope scope, Threads threads) {
    FindAllCode();
    t_isArmer = true;
    if (threads == own) {
        Prepare(t_plan, skipped, mode, scope);
    } else {
        Prepare(g_othersPlan, skipped, mode, scope);
    }
}

bool FailingMalloc::Disarm() {
    bool failed = t_plan.failed || g_othersPlan.failed;
    t_plan.armed = t_plan.failed = false;
    g_othersPlan.armed = g_othersPlan.failed = false;
    t_isArmer = false;
    return failed;
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
