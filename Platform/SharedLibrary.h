#pragma once

#include <dlfcn.h>
#include <string>

namespace kx {

/// A library of the system that is loaded when it is first needed: linked, it and what it brings would lengthen the
/// start of every program that never uses it. It stays for the life of the process.
///
///     bool loaded = SharedLibrary("libz.so.1").Find(&z->crc32, "crc32").Find(&z->adler32, "adler32").Load(&reason);
class SharedLibrary {
public:
    explicit SharedLibrary(const char* file) : m_file(file), m_library(::dlopen(file, RTLD_NOW | RTLD_LOCAL)) {}

    /// Sets a pointer to a function of the library, null where it has none of that name.
    template <class Function>
    SharedLibrary& Find(Function* function, const char* name) {
        *function = m_library ? reinterpret_cast<Function>(::dlsym(m_library, name)) : nullptr;
        m_complete = m_complete && *function;
        return *this;
    }

    /// @param reason  set where the library or one of the functions is not there.
    /// @return false then.
    [[nodiscard]] bool Load(std::string* reason) const {
        if (m_complete) return true;
        const char* fault = ::dlerror();
        *reason = std::string("cannot load ") + m_file + ": " + (fault ? fault : "it is incomplete");
        return false;
    }

private:
    const char* m_file;
    void* m_library;
    bool m_complete = true;
};

}  // namespace kx
