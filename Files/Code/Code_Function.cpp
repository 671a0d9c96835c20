// The table of built-ins, and access to arguments and results.
#include "Files/Code/Code_Function.h"

#include "Files/Base/Number.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

namespace {

/// Texts of numbers, each alive until this many more have been asked for: more than one call can ask for.
constexpr int kNumberTexts = 16;

/// Longer ones hardly come again.
constexpr int kLongestName = 64;

class FunctionTable {
public:
    void Add(const char* name, TRoutine routine, int argc, bool flag) {
        auto found = m_byName.find(name);
        if (found != m_byName.end()) {
            FunctionRecord& record = m_records[found->second];
            record = {record.name, routine, argc, flag};
            return;
        }
        const std::string& kept = m_names.emplace_back(name);
        m_byName.emplace(kept, m_records.size());
        m_records.push_back({kept.c_str(), routine, argc, flag});
    }

    const FunctionRecord* Find(std::string_view name) const {
        auto found = m_byName.find(name);
        return found == m_byName.end() ? nullptr : &m_records[found->second];
    }

    const FunctionRecord* At(int index) const {
        bool inside = index >= 0 && index < Count();
        return inside ? &m_records[static_cast<size_t>(index)] : nullptr;
    }

    int Count() const { return static_cast<int>(m_records.size()); }

private:
    std::deque<std::string> m_names;  // deques: neither names nor records ever move
    std::deque<FunctionRecord> m_records;
    std::unordered_map<std::string_view, size_t> m_byName;
};

FunctionTable& Table() {
    static FunctionTable table;
    return table;
}

const char* NumberText(const RValue& v) {
    thread_local char texts[kNumberTexts][kx::kNumberText];
    thread_local unsigned int next = 0;
    char* text = texts[next++ % kNumberTexts];
    switch (v.kind & KIND_MASK) {
    case VALUE_REAL: kx::PrintReal(text, v.real); return text;
    case VALUE_INT32: kx::PrintInteger(text, v.i32); return text;
    case VALUE_INT64: kx::PrintInteger(text, v.i64); return text;
    case VALUE_BOOL: return v.real != 0.0 ? "true" : "false";
    default: return nullptr;
    }
}

double NumberIn(const RValue& string) {
    if (!string.str || !string.str->m_thing) return 0;
    std::string_view text = string.str->m_thing;
    double value = 0;
    bool whole = !text.empty() && kx::ParseReal(text, &value) == static_cast<int>(text.size());
    return whole ? value : 0;
}

}  // namespace

void Function_Add(const char* name, TRoutine routine, int argc, bool flag) {
    Table().Add(name, routine, argc, flag);
}

const FunctionRecord* Function_Find(const char* name) {
    return Table().Find(name);
}

int Function_Count() {
    return Table().Count();
}

const FunctionRecord* Function_At(int index) {
    return Table().At(index);
}

const char* KXGetString(const RValue* args, int index) {
    const RValue& v = args[index];
    if ((v.kind & KIND_MASK) == VALUE_STRING) return v.str ? v.str->m_thing : nullptr;
    return NumberText(v);
}

double KXGetReal(const RValue* args, int index) {
    const RValue& v = args[index];
    switch (v.kind & KIND_MASK) {
    case VALUE_REAL:
    case VALUE_BOOL: return v.real;
    case VALUE_INT32: return v.i32;
    case VALUE_INT64: return static_cast<double>(v.i64);
    case VALUE_STRING: return NumberIn(v);
    default: return 0;
    }
}

int KXGetInt32(const RValue* args, int index) {
    if (args[index].kind == VALUE_REAL) return kx::ToInt32(args[index].real);  // ids, most of the time
    return kx::ToInt32(KXGetReal(args, index));
}

void KXCreateString(RValue* result, const char* text) {
    if (!text) text = "";
    size_t length = std::strlen(text);
    if (length >= INT_MAX) throw std::bad_alloc();
    void* memory = MemoryManager::Alloc(static_cast<unsigned int>(length) + 1, __FILE__, __LINE__, false);
    std::unique_ptr<char, decltype(&KXFree)> copy(static_cast<char*>(memory), &KXFree);
    std::memcpy(copy.get(), text, length + 1);
    result->str = new _RefThing<char const*>{copy.get(), 1, static_cast<int>(length)};
    copy.release();
    result->flags = 0;
    result->kind = VALUE_STRING;
}

thread_local KXNames* KXNames::t_current = nullptr;

KXNames::KXNames() : m_outer(t_current) {
    if (m_outer) return;
    std::fill(std::begin(m_names), std::end(m_names), g_undefined);
    t_current = this;
}

KXNames::~KXNames() {
    if (m_outer) return;
    t_current = nullptr;
    for (RValue& name : m_names) {
        FREE_RValue__Pre(&name);
    }
}

void KXNames::Share(RValue* value, const char* text) {
    unsigned int hash = 0;
    const char* end = text;
    for (; *end && end - text < kLongestName; ++end) {
        hash = hash * 31 + static_cast<unsigned char>(*end);
    }
    if (*end) return KXCreateString(value, text);
    RValue& place = m_names[(hash ^ (hash >> 7)) % kNames];
    bool known = place.kind == VALUE_STRING && std::strcmp(place.str->m_thing, text) == 0;
    if (!known) {
        RValue name{};
        KXCreateString(&name, text);
        FREE_RValue__Pre(&place);
        place = name;
    }
    COPY_RValue(value, &place);
}

void KXSetString(RValue* value, const char* text) {
    if (KXNames::t_current && text) return KXNames::t_current->Share(value, text);
    KXCreateString(value, text);
}
