// Values to JSON text: the one encoder, the walks over maps, lists and arrays, and json_encode.
#include "Files/Base/Json.h"
#include "Files/Base/KXObjectBase.h"
#include "Files/Base/Limits.h"
#include "Files/Base/RefDynamicArray.h"
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Internal.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"

#include <climits>
#include <cstdio>
#include <exception>

namespace {

constexpr unsigned int FIRST_KEY_SIZE = 16;
constexpr int POINTER_LIMIT = 19;
constexpr int TEXT_FORM_SIZE = 32;

/// The containers around the value that is being encoded. What is nested deeper than the library reads back is written
/// all the same, and said once the text is whole.
class Nesting {
public:
    Nesting() {
        Add(kx::kJsonContainerBytes);
        ++depth;
    }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;
    ~Nesting() {
        if (--depth == 0) End();
    }

    /// For each value: its depth, and its size beside all before it. A few containers that stand in many places can
    /// make more than any memory holds.
    static void Count(size_t textLength = 0) {
        tooDeep = tooDeep || depth >= JSON_TOKENER_DEFAULT_DEPTH;
        if (depth > 0) Add(kx::kJsonValueBytes + textLength);
    }

private:
    static void Add(unsigned long long size) {
        bytes += size;
        if (bytes > kx::kMaxJsonBytes) kx::RefuseJson();
    }

    static void End() {
        bool written = tooDeep && std::uncaught_exceptions() == 0;
        tooDeep = false;
        bytes = 0;
        if (written) Tell();
    }

    static void Tell() noexcept {
        try {
            dbg_csol->Output("JSON nested deeper than %d levels: it is written, but cannot be read back\n",
                             JSON_TOKENER_DEFAULT_DEPTH);
        } catch (...) {
            // a destructor calls this: the text counts for more than the line
        }
    }

    static thread_local int depth;
    static thread_local bool tooDeep;
    static thread_local unsigned long long bytes;
};

thread_local int Nesting::depth = 0;
thread_local bool Nesting::tooDeep = false;
thread_local unsigned long long Nesting::bytes = 0;

/// A map's key as a member's name.
class KeyName {
public:
    explicit KeyName(const RValue& key) {
        bool hasText = (key.kind & KIND_MASK) == VALUE_STRING && key.str && key.str->m_thing;
        if (hasText) {
            m_text = key.str->m_thing;
        } else {
            Print(key);
        }
    }
    KeyName(const KeyName&) = delete;
    KeyName& operator=(const KeyName&) = delete;

    const char* Text() const { return m_text; }

private:
    void Print(const RValue& key) {
        m_buffer.text = static_cast<char*>(MemoryManager::Alloc(FIRST_KEY_SIZE, MODULE_SOURCE, __LINE__, true));
        char* pos = m_buffer.text;
        int size = FIRST_KEY_SIZE;
        STRING_RValue(&pos, &m_buffer.text, &size, &key);
        m_text = m_buffer.text;
    }

    HostText m_buffer{nullptr};
    const char* m_text = nullptr;
};

json_object* EncodeElements(RValue* elements, int count) {
    Nesting nesting;
    kx::JsonTree array(kx::MadeJson(json_object_new_array()));
    for (int i = 0; i < count; ++i) {
        kx::AddElement(array, kx::JsonTree(EncodeValue(&elements[i])));
    }
    return array.Release();
}

/// A container under the visit rule: null where it is being encoded already.
template <class Encode>
json_object* EncodeVisited(unsigned int* stamp, unsigned int* threshold, Encode encode) {
    if (Visit::IsUnderWay(*stamp, *threshold)) return nullptr;
    Visit visit(stamp, threshold);
    return encode();
}

json_object* EncodeMapReference(const RValue& v) {
    CDS_Map* map = DsMapOf(&v);
    if (!map) return nullptr;
    return EncodeVisited(&map->m_visited, &g_comparisonSTRUCT_RValue, [&] { return EncodeDSMap(map); });
}

json_object* EncodeListReference(const RValue& v) {
    CDS_List* list = DsListOf(&v);
    if (!list) return nullptr;
    return EncodeVisited(&list->m_visited, &g_comparisonARRAY_RValue, [&] { return EncodeDSList(list); });
}

json_object* EncodeArrayValue(const RValue& v) {
    if (!v.arr) return nullptr;
    return EncodeVisited(&v.arr->m_visited, &g_comparisonARRAY_RValue, [&] { return EncodeArray(v.arr); });
}

json_object* EncodeStruct(const RValue& v) {
    if (!v.obj) return nullptr;
    return EncodeVisited(&v.obj->m_visited, &g_comparisonSTRUCT_RValue, [&] {
        Nesting nesting;
        return EncodeObject(v.obj);
    });
}

/// A double that gives the integer back, or else its text form. The two ends of the 32-bit range count as too large for
/// an integer here.
json_object* EncodeInt64(int64_t n) {
    bool small = n > -INT_MAX - 1LL && n < INT_MAX;
    if (small) return kx::MadeJson(json_object_new_int(static_cast<int32_t>(n)));

    constexpr double kBeyond = 9223372036854775808.0;  // 2^63: what rounds up to it fits no 64-bit integer
    auto d = static_cast<double>(n);
    bool exact = d < kBeyond && static_cast<int64_t>(d) == n;
    if (exact) return kx::MadeJson(json_object_new_double(d));

    char text[TEXT_FORM_SIZE] = {};
    std::snprintf(text, sizeof text, "@i64@%llx$i64$", static_cast<unsigned long long>(n));
    return kx::MadeJsonText(text);
}

json_object* EncodeText(const _RefThing<char const*>* text) {
    bool hasText = text && text->m_thing;
    if (!hasText) return kx::MadeJsonText("");
    Nesting::Count(static_cast<size_t>(text->m_size));
    return kx::MadeJsonText(text->m_thing);
}

json_object* EncodePointer(const void* pointer) {
    if (!pointer) return kx::JsonNull();
    char text[TEXT_FORM_SIZE] = {};
    std::snprintf(text, POINTER_LIMIT, "%p", pointer);
    return kx::MadeJsonText(text);
}

/// The map that json_encode and its like name; null where there is none.
CDS_Map* MapAt(int index) {
    return index >= 0 && index < mapnumb ? themaps.arr[index] : nullptr;
}

}  // namespace

json_object* EncodeValue(RValue* v) {
    DS_AutoMutex lock;
    Nesting::Count();
    if (v->kind & KIND_DS_MAP) return EncodeMapReference(*v);
    if (v->kind & KIND_DS_LIST) return EncodeListReference(*v);
    switch (v->kind) {
    case VALUE_INT32: return kx::MadeJson(json_object_new_int(v->i32));
    case VALUE_INT64: return EncodeInt64(v->i64);
    case VALUE_BOOL: return kx::MadeJson(json_object_new_boolean(v->real != 0.0));
    case VALUE_REAL: return kx::MadeJson(json_object_new_double(v->real));
    case VALUE_PTR: return EncodePointer(v->ptr);
    case VALUE_STRING: return EncodeText(v->str);
    case VALUE_ARRAY: return EncodeArrayValue(*v);
    case VALUE_UNDEFINED: return kx::JsonNull();
    case VALUE_OBJECT: return EncodeStruct(*v);
    default: return nullptr;
    }
}

json_object* EncodeDSMap(CDS_Map* map) {
    Nesting nesting;
    kx::JsonTree object(kx::MadeJson(json_object_new_object()));
    const Hash<MapStore>* table = map->m_pHashTable;
    for (int bucket = 0; bucket <= table->m_HashingMask; ++bucket) {
        for (HashNode<MapStore>* node = table->m_pHashingTable[bucket].m_pFirst; node; node = node->m_pNext) {
            MapStore* store = node->m_pObj;
            if (!store) return object.Release();
            KeyName name(store->key);
            kx::AddMember(object, name.Text(), kx::JsonTree(EncodeValue(&store->value)));
        }
    }
    return object.Release();
}

json_object* EncodeDSList(CDS_List* list) {
    return EncodeElements(list->m_elements, list->m_count);
}

json_object* EncodeArray(RefDynamicArrayOfRValue* array) {
    return array ? EncodeElements(array->m_elements, array->m_length) : EncodeElements(nullptr, 0);
}

void F_JsonEncode(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    int index = KXGetInt32(arg, 0);
    SetNoText(result);
    DS_AutoMutex lock;
    CDS_Map* map = MapAt(index);
    if (!map) return;
    kx::JsonTree object(EncodeDSMap(map));
    KXCreateString(&result, kx::PrintJson(object.Get()));
}

void DSMapToJSON(int map, char** text) {
    DS_AutoMutex lock;
    CDS_Map* found = MapAt(map);
    if (!found) return;
    kx::JsonTree object(EncodeDSMap(found));
    char* copy = KXStrDup(kx::PrintJson(object.Get()));
    KXFree(*text);
    *text = copy;
}
