#pragma once

#include <string>
#include <zip.h>

namespace kx {

/// libzip, loaded when the first file of an archive is unpacked; it brings a library of ciphers.
///
/// The members are the library's functions, without "zip_" before their names.
struct ZipLibrary {
    /// Loads the library, once.
    /// @param reason  set where it cannot be used.
    /// @return null then; the next call tries again.
    /// @thread any
    static const ZipLibrary* Load(std::string* reason);

    decltype(&::zip_open_from_source) open_from_source;
    decltype(&::zip_discard) discard;
    decltype(&::zip_compression_method_supported) compression_method_supported;

    decltype(&::zip_fopen_index) fopen_index;
    decltype(&::zip_fread) fread;
    decltype(&::zip_fclose) fclose;
    decltype(&::zip_file_get_error) file_get_error;

    decltype(&::zip_source_function_create) source_function_create;
    decltype(&::zip_source_free) source_free;
    decltype(&::zip_error_code_zip) error_code_zip;
    decltype(&::zip_error_code_system) error_code_system;
    decltype(&::zip_error_init) error_init;
    decltype(&::zip_error_fini) error_fini;
    decltype(&::zip_error_set) error_set;
    decltype(&::zip_error_to_data) error_to_data;
    decltype(&::zip_get_error) get_error;
};

}  // namespace kx
