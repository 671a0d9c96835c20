// libzip, loaded when it is needed.
#include "Platform/ZipLibrary.h"

#include "Platform/SharedLibrary.h"

#include <mutex>

namespace kx {
namespace {

constexpr char kFile[] = "libzip.so.4";

bool FindFunctions(ZipLibrary* zip, std::string* reason) {
    return SharedLibrary(kFile)
        .Find(&zip->open_from_source, "zip_open_from_source")
        .Find(&zip->discard, "zip_discard")
        .Find(&zip->compression_method_supported, "zip_compression_method_supported")
        .Find(&zip->fopen_index, "zip_fopen_index")
        .Find(&zip->fread, "zip_fread")
        .Find(&zip->fclose, "zip_fclose")
        .Find(&zip->file_get_error, "zip_file_get_error")
        .Find(&zip->source_function_create, "zip_source_function_create")
        .Find(&zip->source_free, "zip_source_free")
        .Find(&zip->error_code_zip, "zip_error_code_zip")
        .Find(&zip->error_code_system, "zip_error_code_system")
        .Find(&zip->error_init, "zip_error_init")
        .Find(&zip->error_fini, "zip_error_fini")
        .Find(&zip->error_set, "zip_error_set")
        .Find(&zip->error_to_data, "zip_error_to_data")
        .Find(&zip->get_error, "zip_get_error")
        .Load(reason);
}

}  // namespace

const ZipLibrary* ZipLibrary::Load(std::string* reason) {
    static std::mutex mutex;
    static ZipLibrary zip;
    static bool ready = false;
    std::lock_guard<std::mutex> lock(mutex);
    if (!ready) ready = FindFunctions(&zip, reason);
    return ready ? &zip : nullptr;
}

}  // namespace kx
