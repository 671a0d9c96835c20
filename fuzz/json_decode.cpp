// Any text as JSON for json_decode: what it reads, json_encode writes so that it reads back the same.
#include "Files/Support/Support_Data_Structures.h"
#include "fuzz/Host.h"
#include "fuzz/Values.h"
#include "tests/support/Numbers.h"

#include <cstdint>
#include <json-c/json.h>
#include <memory>

namespace kx::fuzz {
namespace {

BuiltIn g_decode("json_decode");
BuiltIn g_encode("json_encode");

RValue MapReference(double index) {
    return {{index}, 0, VALUE_REAL | KIND_DS_MAP};
}

/// A map that json_decode has made, freed with all that it leads to.
class Decoded {
public:
    explicit Decoded(const std::string& text) {
        RValueOwner argument(Text(text));
        m_index = g_decode.Number({argument.value});
    }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;
    ~Decoded() {
        RValue reference = MapReference(m_index);
        FreeDsTree(&reference);
    }

    [[nodiscard]] bool IsThere() const { return m_index >= 0; }
    [[nodiscard]] RValue Reference() const { return MapReference(m_index); }

    [[nodiscard]] std::string Encode() const {
        RValueOwner text;
        Require(g_encode.Call({test::Real(m_index)}, &text), "a map that was read is written");
        return TextOf(text.value);
    }

private:
    double m_index;
};

/// Members of a text that is a JSON object by the letter of the standard; -1 for any other.
int MembersOf(const std::string& text) {
    std::unique_ptr<json_tokener, decltype(&json_tokener_free)> parser(json_tokener_new(), &json_tokener_free);
    json_tokener_set_flags(parser.get(), JSON_TOKENER_STRICT);
    json_object* tree = json_tokener_parse_ex(parser.get(), text.c_str(), -1);
    bool isObject =
        json_tokener_get_error(parser.get()) == json_tokener_success && json_object_is_type(tree, json_type_object);
    int members = isObject ? json_object_object_length(tree) : -1;
    json_object_put(tree);
    return members;
}

void CheckRoundTrip(const std::string& text) {
    Decoded first(text);
    int members = MembersOf(text);
    Require(members < 0 || first.IsThere(), "a JSON object is read", text);
    if (!first.IsThere()) return;
    RValue map = first.Reference();
    Require(DsMapOf(&map), "what is read is a map", text);
    Require(members < 0 || DsMapOf(&map)->Count() == members, "every member is an entry", text);

    std::string written = first.Encode();
    Decoded second(written);
    Require(second.IsThere(), "what is written can be read", written);
    Require(IsSame(map, second.Reference()), "what is written reads back the same", text + "\n" + written);
}

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    kx::fuzz::CheckRoundTrip(std::string(reinterpret_cast<const char*>(data), size).c_str());
    return 0;
}
