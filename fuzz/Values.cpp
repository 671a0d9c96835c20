// Script values in fuzz targets: comparing them, and calling with them.
#include "fuzz/Values.h"

#include "Files/Base/KXObjectBase.h"
#include "Files/Base/RefDynamicArray.h"
#include "Files/Code/Code_Error.h"
#include "Files/Support/Support_Data_Structures.h"
#include "fuzz/Host.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <optional>
#include <string_view>

namespace kx::fuzz {
namespace {

bool IsNumber(const RValue& value) {
    return value.kind == VALUE_REAL || value.kind == VALUE_BOOL || value.kind == VALUE_INT32 ||
           value.kind == VALUE_INT64;
}

bool IsNull(const RValue& value) {
    return value.kind == VALUE_UNDEFINED || (value.kind == VALUE_PTR && !value.ptr);
}

bool IsSameNumber(const RValue& a, const RValue& b) {
    if (a.kind == VALUE_INT64 && b.kind == VALUE_INT64) return a.i64 == b.i64;
    double x = KXGetReal(&a, 0);
    double y = KXGetReal(&b, 0);
    return x == y || (std::isnan(x) && std::isnan(y));
}

/// What lists and arrays hold.
struct Row {
    const RValue* elements;
    int count;
};

std::optional<Row> RowOf(const RValue& value) {
    if (const CDS_List* list = DsListOf(&value)) return Row{list->m_elements, list->m_count};
    if (value.kind == VALUE_ARRAY && value.arr) return Row{value.arr->m_elements, value.arr->m_length};
    return std::nullopt;
}

/// What maps and structs hold.
using Members = std::vector<std::pair<std::string_view, const RValue*>>;

Members MembersOf(const CDS_Map& map) {
    Members members;
    ForEachEntry(map, [&](const MapStore& entry) {
        Require(entry.key.kind == VALUE_STRING, "the keys are texts");
        members.emplace_back(entry.key.str->m_thing, &entry.value);
    });
    return members;
}

Members MembersOf(const KXObjectBase& object) {
    Members members;
    for (int place = 0; place < object.Places(); ++place) {
        if (object.NameAt(place)) members.emplace_back(object.NameAt(place), object.ValueAt(place));
    }
    return members;
}

std::optional<Members> MembersOf(const RValue& value) {
    if (const CDS_Map* map = DsMapOf(&value)) return MembersOf(*map);
    if (value.kind == VALUE_OBJECT && value.obj) return MembersOf(*value.obj);
    return std::nullopt;
}

bool IsSameRow(const Row& a, const Row& b) {
    bool same = a.count == b.count;
    for (int i = 0; same && i < a.count; ++i) {
        same = IsSame(a.elements[i], b.elements[i]);
    }
    return same;
}

bool IsSameMembers(Members a, Members b) {
    auto byName = [](const auto& x, const auto& y) { return x.first < y.first; };
    std::sort(a.begin(), a.end(), byName);
    std::sort(b.begin(), b.end(), byName);
    auto same = [](const auto& x, const auto& y) { return x.first == y.first && IsSame(*x.second, *y.second); };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

}  // namespace

bool IsSame(const RValue& a, const RValue& b) {
    std::optional<Row> row = RowOf(a);
    std::optional<Row> otherRow = RowOf(b);
    if (row || otherRow) return row && otherRow && IsSameRow(*row, *otherRow);
    std::optional<Members> members = MembersOf(a);
    std::optional<Members> otherMembers = MembersOf(b);
    if (members || otherMembers) return members && otherMembers && IsSameMembers(*members, *otherMembers);
    if (IsNumber(a) || IsNumber(b)) return IsNumber(a) && IsNumber(b) && IsSameNumber(a, b);
    if (IsNull(a) || IsNull(b)) return IsNull(a) && IsNull(b);
    return a.kind == VALUE_STRING && b.kind == VALUE_STRING && TextOf(a) == TextOf(b);
}

std::string TextOf(const RValue& value) {
    bool hasText = (value.kind & KIND_MASK) == VALUE_STRING && value.str && value.str->m_thing;
    return hasText ? value.str->m_thing : "";
}

RValue Text(const std::string& text) {
    RValue value{};
    KXCreateString(&value, text.c_str());
    return value;
}

bool BuiltIn::Call(std::vector<RValue> arguments, RValueOwner* result) {
    if (!m_record) m_record = Function_Find(m_name);
    Require(m_record && m_record->argc == static_cast<int>(arguments.size()), "the built-in takes these arguments",
            m_name);
    FREE_RValue__Pre(&result->value);
    result->value = RValue{};
    try {
        m_record->routine(result->value, nullptr, nullptr, m_record->argc, arguments.data());
        return !TakeError();
    } catch (const KXRecursionLimit&) {
        ResetVisits();
    } catch (const std::exception&) {
    }
    TakeError();
    return false;
}

double BuiltIn::Number(std::vector<RValue> arguments) {
    RValueOwner result;
    Require(Call(std::move(arguments), &result), "no error is raised", m_name);
    Require(result.value.kind == VALUE_REAL, "the result is a number", m_name);
    return result.value.real;
}

}  // namespace kx::fuzz
