// Any value as JSON: a JSON library reads what json_stringify writes, and json_parse finds the same value in it.
#include "Files/Base/Collector.h"
#include "Files/Base/Json.h"
#include "Files/Base/KXObjectBase.h"
#include "Files/Base/RefDynamicArray.h"
#include "Files/Support/Support_Data_Structures.h"
#include "fuzz/Host.h"
#include "fuzz/Input.h"
#include "fuzz/Values.h"
#include "tests/support/Numbers.h"

#include <algorithm>
#include <cstdint>

namespace kx::fuzz {
namespace {

using test::Bool, test::Int32, test::Int64, test::Real;

constexpr int kMostDepth = 40;
constexpr int kAnyDepth = 400;  // more than sharing makes of it
constexpr int kMostShared = 3;  // or a few containers are a text of any length
constexpr double kReals[] = {0.0, -0.0, 1.5, 1e15, 1e16, 1e308, 5e-324, 0.1, 4294967296.0, -2147483648.0};
constexpr int64_t kIntegers[] = {0,         1,         -1,        INT32_MAX,       INT32_MIN,
                                 INT64_MAX, INT64_MIN, 1LL << 53, (1LL << 53) + 1, (1LL << 62) + 1};

/// Makes values; the maps and lists that it has made go with it.
class Maker {
public:
    explicit Maker(Input* input) : m_input(*input) {}
    Maker(const Maker&) = delete;
    Maker& operator=(const Maker&) = delete;
    ~Maker() {
        std::for_each(m_maps.begin(), m_maps.end(), FreeDsMap);
        std::for_each(m_lists.begin(), m_lists.end(), FreeDsList);
    }

    /// @return a value that the caller owns.
    RValue Value(int depth = 0) {
        bool leaf = depth >= kMostDepth || m_input.IsOver();
        switch (m_input.Below(leaf ? 8 : 13)) {
        case 0: return Real(m_input.Of(kReals));
        case 1: return Real(m_input.ConsumeFloatingPoint<double>());
        case 2: return Int64(m_input.Of(kIntegers));
        case 3: return Int64(m_input.ConsumeIntegral<int64_t>());
        case 4: return Int32(m_input.ConsumeIntegral<int32_t>());
        case 5: return Bool(m_input.ConsumeBool());
        case 6: return g_undefined;
        case 8: return Struct(depth);
        case 9: return Array(depth);
        case 10: return Map(depth);
        case 11: return List(depth);
        case 12: return Shared();
        default: return Text(Name());
        }
    }

private:
    /// None that json_parse takes for the text form of an integer.
    std::string Name() {
        std::string text = m_input.Text(12);
        return text.substr(0, 1) == "@" ? "a" + text : text;
    }

    RValue Struct(int depth) {
        RValue value{};
        value.obj = KXObjectBase::Alloc(0, VALUE_UNSET, 0, false);
        value.kind = VALUE_OBJECT;
        for (size_t left = m_input.Below(4); left > 0; --left) {
            std::string name = Name();
            RValueOwner member(Value(depth + 1));
            value.obj->Add(name.c_str(), member.value, 0);
        }
        return Done(value);
    }

    RValue Array(int depth) {
        RValueOwner array;
        array.value.arr = ARRAY_RefAlloc();
        array.value.kind = VALUE_ARRAY;
        for (int left = static_cast<int>(m_input.Below(4)); left > 0; --left) {
            RValueOwner element(Value(depth + 1));
            SET_RValue(&array.value, &element.value, nullptr, left - 1);
        }
        RValue value{};
        COPY_RValue(&value, &array.value);
        return value;
    }

    RValue Map(int depth) {
        int index = FindFreeDsMapIndex();
        themaps.arr[index] = new CDS_Map;
        m_maps.push_back(index);
        RValue value{{static_cast<double>(index)}, 0, VALUE_REAL | KIND_DS_MAP};
        for (size_t left = m_input.Below(4); left > 0; --left) {
            RValueOwner key(Text(Name()));
            RValueOwner entry(Value(depth + 1));
            themaps.arr[index]->Set(&key.value, &entry.value);
        }
        return Done(value);
    }

    RValue List(int depth) {
        int index = FindFreeDsListIndex();
        thelists.arr[index] = new CDS_List;
        m_lists.push_back(index);
        RValue value{{static_cast<double>(index)}, 0, VALUE_REAL | KIND_DS_LIST};
        for (size_t left = m_input.Below(4); left > 0; --left) {
            RValueOwner element(Value(depth + 1));
            thelists.arr[index]->Add(&element.value);
        }
        return Done(value);
    }

    /// A container that is filled may stand elsewhere too.
    RValue Done(const RValue& container) {
        m_filled.push_back(container);
        return container;
    }

    RValue Shared() {
        if (m_filled.empty() || ++m_shared > kMostShared) return g_undefined;
        return m_filled[m_input.Below(m_filled.size())];
    }

    Input& m_input;
    std::vector<RValue> m_filled;  // containers, none of which owns anything
    std::vector<int> m_maps;
    std::vector<int> m_lists;
    int m_shared = 0;
};

bool IsJson(const std::string& text, int depth) {
    json_tokener* parser = json_tokener_new_ex(depth);
    json_object_put(json_tokener_parse_ex(parser, text.c_str(), -1));
    bool parsed = json_tokener_get_error(parser) == json_tokener_success;
    json_tokener_free(parser);
    return parsed;
}

void Check(Input* input) {
    static BuiltIn stringify("json_stringify");
    static BuiltIn parse("json_parse");
    Maker maker(input);
    RValueOwner value(maker.Value());
    RValueOwner text;
    Require(stringify.Call({value.value}, &text), "a value without circles is written");
    std::string json = TextOf(text.value);
    Require(IsJson(json, kAnyDepth), "what is written is JSON", json);
    bool readable = json != "null" && IsJson(json, JSON_TOKENER_DEFAULT_DEPTH);
    if (!readable) return;
    RValueOwner again;
    Require(parse.Call({text.value}, &again), "what is written can be read", json);
    Require(IsSame(value.value, again.value), "what is written reads back the same", json);
}

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    kx::fuzz::Input input(data, size);
    kx::fuzz::Check(&input);
    Collector::Collect();
    return 0;
}
