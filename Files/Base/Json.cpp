// json-c: memory that runs out, and texts that would need too much of it.
#include "Files/Base/Json.h"

#include "Files/Base/Limits.h"
#include "Files/Code/Code_Error.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

namespace kx {
namespace {

// What json-c's parse of a text takes at most besides its values and its objects, in bytes, on a 64-bit target.
constexpr unsigned long long kArray = 256;
constexpr unsigned long long kTextByte = 4;

/// How often a byte stands in a text. In blocks whose counts fit a byte, which compilers make one instruction of many.
unsigned long long CountOf(char byte, const char* text, size_t length) {
    constexpr size_t kBlock = 128;
    unsigned long long count = 0;
    size_t i = 0;
    for (; i + kBlock <= length; i += kBlock) {
        unsigned char inBlock = 0;
        for (size_t k = 0; k < kBlock; ++k) {
            inBlock = static_cast<unsigned char>(inBlock + (text[i + k] == byte));
        }
        count += inBlock;
    }
    return count + static_cast<unsigned long long>(std::count(text + i, text + length, byte));
}

/// @return bytes that parsing a text may take at most. Brackets inside strings count too.
unsigned long long MostBytes(const char* text, size_t length) {
    return CountOf('{', text, length) * kJsonContainerBytes + CountOf('[', text, length) * kArray +
           (CountOf(',', text, length) + 1) * kJsonValueBytes + length * kTextByte;
}

/// json-c 0.16 follows a null pointer where there is no memory for a member's name, so it is not even begun without.
bool IsThereMemory(unsigned long long bytes) {
    void* room = std::malloc(bytes);
    std::free(room);
    return room != nullptr;
}

/// json-c prints into a buffer of 31 bits, and leaves out without a word what would go past its end. That takes one
/// piece of 1 GiB, or as much text before it.
void CheckLength(size_t length) {
    if (length >= kMaxJsonText) throw std::bad_alloc();
}

}  // namespace

json_object* MadeJson(json_object* made) {
    if (!made) throw std::bad_alloc();
    return made;
}

json_object* MadeJsonText(const char* text) {
    CheckLength(std::strlen(text));
    return MadeJson(json_object_new_string(text));
}

void RefuseJson() {
    throw std::length_error("the value is more than JSON text is made of: over " + std::to_string(kMaxJsonBytes >> 20) +
                            " MiB");
}

void AddMember(const JsonTree& object, const char* name, JsonTree value) {
    CheckLength(std::strlen(name));
    if (json_object_object_add(object.Get(), name, value.Get()) != 0) throw std::bad_alloc();
    value.Release();
}

void AddElement(const JsonTree& array, JsonTree value) {
    if (json_object_array_add(array.Get(), value.Get()) != 0) throw std::bad_alloc();
    value.Release();
}

const char* PrintJson(json_object* tree) {
    // A piece that its buffer cannot grow for is left out without a word; only malloc itself tells.
    errno = 0;
    const char* text = json_object_to_json_string(tree);
    if (!text || errno == ENOMEM) throw std::bad_alloc();
    CheckLength(std::strlen(text));
    return text;
}

bool ParseJson(const char* text, JsonTree* tree) {
    if (!text) return false;
    unsigned long long bytes = MostBytes(text, std::strlen(text));
    if (bytes > kMaxJsonBytes) {
        dbg_csol->Output("JSON text too large: it could take %llu MiB\n", bytes >> 20);
        return false;
    }
    if (!IsThereMemory(bytes)) throw std::bad_alloc();

    json_tokener_error error = json_tokener_error_size;
    JsonTree parsed(
        json_tokener_parse_verbose(text, &error));  // json_tokener_parse itself cannot tell null from errors
    if (error != json_tokener_success) return false;
    *tree = std::move(parsed);
    return true;
}

}  // namespace kx
