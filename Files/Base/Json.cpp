// json-c: memory that runs out, and texts that would need too much of it.
#include "Files/Base/Json.h"

#include "Files/Base/Limits.h"
#include "Files/Code/Code_Error.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <locale.h>
#include <new>
#include <stdexcept>
#include <string>

namespace kx {
namespace {

// What json-c's parse of a text takes at most besides its values and its objects, in bytes, on a 64-bit target.
constexpr unsigned long long kArray = 64 * sizeof(void*);
constexpr unsigned long long kTextByte = 4;
constexpr unsigned long long kParser = 16384;

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
           (CountOf(',', text, length) + 1) * kJsonValueBytes + length * kTextByte + kParser;
}

/// json-c 0.16 follows a null pointer where there is no memory for a member's name, so it is not even begun without.
bool IsThereMemory(unsigned long long bytes) {
    void* volatile room = std::malloc(static_cast<size_t>(bytes));  // volatile, or a compiler may know better
    bool there = room != nullptr;
    std::free(room);
    return there;
}

/// Whether a text can stand for null, by its first character; after a comment it can.
bool MayBeNull(const char* text) {
    text += std::strspn(text, " \t\n\r");
    return *text == 'n' || *text == 'N' || *text == '/';
}

/// json_tokener_parse, in its steps: that one cannot tell null from an error, and leaves out, without a word, a piece
/// of a string that its buffer cannot grow for. This one's buffer holds the longest string from the start.
class Tokener {
public:
    explicit Tokener(size_t longest) : m_tokener(json_tokener_new()) {
        if (!m_tokener) throw std::bad_alloc();
        bool holds = printbuf_memset(m_tokener->pb, static_cast<int>(longest), 0, 1) == 0;
        if (holds) return;
        json_tokener_free(m_tokener);
        throw std::bad_alloc();
    }
    Tokener(const Tokener&) = delete;
    Tokener& operator=(const Tokener&) = delete;
    ~Tokener() { json_tokener_free(m_tokener); }

    json_object* Parse(const char* text) {
        errno = 0;
        json_object* tree = json_tokener_parse_ex(m_tokener, text, -1);
        if (errno != ENOMEM) return tree;
        json_object_put(tree);
        throw std::bad_alloc();
    }

    /// Where a text ends inside a comment the library reports success for some value inside; so it does where there is
    /// no memory for the next one.
    bool IsWhole() const { return json_tokener_get_error(m_tokener) == json_tokener_success && m_tokener->depth == 0; }

private:
    json_tokener* m_tokener;
};

/// Numbers have a point while one lives, whatever the process's locale is: json-c puts right a comma, but no other
/// character.
class PointLocale {
public:
    PointLocale() : m_before(::uselocale(Point())) {}
    PointLocale(const PointLocale&) = delete;
    PointLocale& operator=(const PointLocale&) = delete;
    ~PointLocale() { ::uselocale(m_before); }

private:
    static locale_t Point() {
        static locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
        return locale;  // null, which changes nothing, where there was no memory for it
    }

    locale_t m_before;
};

bool IsTooLarge(const char* text, size_t length) {
    bool mayBe = length > kMaxJsonBytes / kJsonContainerBytes;  // were it nothing but braces
    return mayBe && MostBytes(text, length) > kMaxJsonBytes;
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
    PointLocale locale;
    // A piece that its buffer cannot grow for is left out without a word; only malloc itself tells.
    errno = 0;
    const char* text = json_object_to_json_string(tree);
    if (!text || errno == ENOMEM) throw std::bad_alloc();
    size_t length = std::strlen(text);
    CheckLength(length);
    if (IsTooLarge(text, length)) dbg_csol->Output("JSON text is written, but is too large to be read back\n");
    return text;
}

JsonVerdict ParseJson(const char* text, JsonTree* tree) {
    if (!text) return JsonVerdict::malformed;
    size_t length = std::strlen(text);
    unsigned long long bytes = MostBytes(text, length);
    if (bytes > kMaxJsonBytes) {
        dbg_csol->Output("JSON text too large: it could take %llu MiB\n", bytes >> 20);
        return JsonVerdict::tooLarge;
    }
    if (!IsThereMemory(bytes)) throw std::bad_alloc();

    Tokener tokener(length);
    JsonTree parsed(tokener.Parse(text));
    bool whole = tokener.IsWhole() && (parsed.Get() || MayBeNull(text));
    if (!whole) return JsonVerdict::malformed;
    *tree = std::move(parsed);
    return JsonVerdict::read;
}

}  // namespace kx
