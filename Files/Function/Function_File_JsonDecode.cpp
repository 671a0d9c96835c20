// JSON text to maps and lists: the walks that fill them, and json_decode.
#include "Files/Base/Number.h"
#include "Files/Function/Function_File_Json.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

constexpr char WRAPPED_TEXT[] = "{ \"default\" : \"%s\" }";
constexpr char WRAPPED_VALUE[] = "{ \"default\" : %s }";
constexpr unsigned int WRAPPED_TEXT_EXTRA = 20;
constexpr unsigned int WRAPPED_VALUE_EXTRA = 18;
constexpr unsigned int NUMBER_SIZE = 54;

/// Reads a 64-bit integer in its text form, "@i64@", hexadecimal digits, "$i64$"; digits that do not read give 0.
/// @return false, nothing changed, where the text is not in that form.
bool SetInt64FromText(RValue* value, const char* text) {
    constexpr char kHead[] = "@i64@";
    constexpr char kTail[] = "$i64$";
    constexpr size_t kHeadLength = sizeof kHead - 1;
    constexpr size_t kTailLength = sizeof kTail - 1;
    if (text[0] != kHead[0] || std::strncmp(text, kHead, kHeadLength) != 0) return false;
    size_t length = std::strlen(text);
    bool isForm = length > kHeadLength + kTailLength && std::strcmp(text + length - kTailLength, kTail) == 0;
    if (!isForm) return false;

    unsigned long long bits = 0;
    std::sscanf(text, "@i64@%llx", &bits);
    value->i64 = static_cast<int64_t>(bits);
    value->kind = VALUE_INT64;
    return true;
}

/// A value on its way into a container. Where it does not arrive, the new map or list that it refers to goes too:
/// nobody knows its index.
class Arrival {
public:
    Arrival() = default;
    Arrival(const Arrival&) = delete;
    Arrival& operator=(const Arrival&) = delete;
    ~Arrival() {
        if (!m_arrived) FreeDsTree(&value);
        FREE_RValue__Pre(&value);
    }

    void Arrive() { m_arrived = true; }

    RValue value{};

private:
    bool m_arrived = false;
};

void SetMark(RValue* value, int index, unsigned int mark) {
    value->real = index;
    value->kind = VALUE_REAL | mark;
}

int NewMap(json_object* _jobj, Tree tree);
int NewList(json_object* array, Tree tree);

/// An object or array as a reference to a new map or list, anything else as its value.
void SetValue(RValue* value, json_object* _jobj, Tree tree) {
    switch (json_object_get_type(_jobj)) {
    case json_type_object: SetMark(value, NewMap(_jobj, tree), KIND_DS_MAP); return;
    case json_type_array: SetMark(value, NewList(_jobj, tree), KIND_DS_LIST); return;
    default: json_value(_jobj, value); return;
    }
}

void FillMap(json_object* _jobj, CDS_Map* map, Tree tree) {
    lh_table* members = json_object_get_object(_jobj);
    if (!members) return;
    KXNames names;
    if (map->Count() == 0) map->Reserve(json_object_object_length(_jobj));
    for (lh_entry* entry = lh_table_head(members); entry; entry = lh_entry_next(entry)) {
        RValueOwner key;
        Arrival val;
        KXSetString(&key.value, static_cast<const char*>(lh_entry_k(entry)));
        SetValue(&val.value, static_cast<json_object*>(lh_entry_v(entry)), tree);
        if (map->Add(&key.value, &val.value)) val.Arrive();
        if (tree == Tree::spent) SpendMember(entry);
    }
}

void FillList(json_object* array, CDS_List* list, Tree tree) {
    if (!json_object_is_type(array, json_type_array)) return;
    KXNames names;
    size_t length = json_object_array_length(array);
    if (list->m_count == 0) list->Reserve(static_cast<int>(length));
    for (size_t i = 0; i < length; ++i) {
        json_object* element = json_object_array_get_idx(array, i);
        Arrival val;
        val.value = g_undefined;  // what null is here, and a null pointer in an object
        if (element) SetValue(&val.value, element, tree);
        list->Add(&val.value);
        val.Arrive();
        if (tree == Tree::spent) SpendElement(array, i, length);
    }
}

int NewMap(json_object* _jobj, Tree tree) {
    DS_AutoMutex lock;
    DS_Owner<CDS_Map> map;
    FillMap(_jobj, map.Get(), tree);
    int index = FindFreeDsMapIndex();
    themaps.arr[index] = map.Release();
    return index;
}

int NewList(json_object* array, Tree tree) {
    DS_Owner<CDS_List> list;
    FillList(array, list.Get(), tree);
    int index = FindFreeDsListIndex();
    thelists.arr[index] = list.Release();
    return index;
}

/// What a walk over an array is asked for: the member `_key`, or without a key the value itself.
json_object* MemberOrItself(json_object* _jobj, const char* _key) {
    return _key ? json_object_object_get(_jobj, _key) : _jobj;
}

/// A text put into one of the forms above; nothing in it is quoted.
char* Wrap(const char* form, unsigned int extra, const char* text) {
    auto size = static_cast<unsigned int>(std::strlen(text)) + extra;
    auto* wrapped = static_cast<char*>(MemoryManager::Alloc(size, MODULE_SOURCE, __LINE__, false));
    std::snprintf(wrapped, size, form, text);
    return wrapped;
}

/// A number that is too long for the buffer makes a text that lacks its end and does not parse, never other digits.
char* WrapNumber(double number) {
    char digits[kx::kFixedText];
    char text[kx::kFixedText + WRAPPED_TEXT_EXTRA] = {};
    kx::PrintRealFixed(digits, sizeof digits, number, 2);  // "%.2f" in any locale
    std::snprintf(text, sizeof text, WRAPPED_TEXT, digits);
    auto* wrapped = static_cast<char*>(MemoryManager::Alloc(NUMBER_SIZE, MODULE_SOURCE, __LINE__, true));
    std::memcpy(wrapped, text, NUMBER_SIZE - 1);
    return wrapped;
}

const char* SkipByteOrderMark(const char* text) {
    bool marked = std::strlen(text) > 2 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0;
    return marked ? text + 3 : text;
}

/// How json_decode reads a text, by its first and last character that are not white space.
enum class Form { object, array, text };

Form FormOf(const char* text) {
    auto length = static_cast<int>(std::strlen(text));
    const char* first = findfirstnonspace(text, 1, length);
    if (!*first) return Form::text;
    const char* last = findfirstnonspace(text + length - 1, -1, length);
    if (first == last) return Form::text;
    if (*first == '{' && *last == '}') return Form::object;
    if (*first == '[' && *last == ']') return Form::array;
    return Form::text;
}

/// Parses a text as json_decode does: an object as it is, anything else as the member "default" of one.
bool ParseWrapped(const char* text, kx::JsonTree* tree) {
    Form form = FormOf(text);
    auto verdict = kx::JsonVerdict::malformed;
    if (form == Form::object) verdict = kx::ParseJson(text, tree);
    if (verdict != kx::JsonVerdict::malformed) return verdict == kx::JsonVerdict::read;

    HostText wrapped(form == Form::array ? Wrap(WRAPPED_VALUE, WRAPPED_VALUE_EXTRA, text)
                                         : Wrap(WRAPPED_TEXT, WRAPPED_TEXT_EXTRA, text));
    verdict = kx::ParseJson(wrapped.text, tree);
    if (verdict != kx::JsonVerdict::malformed) return verdict == kx::JsonVerdict::read;
    HostText again(Wrap(WRAPPED_TEXT, WRAPPED_TEXT_EXTRA, wrapped.text));
    return kx::ParseJson(again.text, tree) == kx::JsonVerdict::read;
}

}  // namespace

void json_value(json_object* _jobj, RValue* pVal) {
    switch (json_object_get_type(_jobj)) {
    case json_type_null:
        pVal->ptr = nullptr;
        pVal->kind = VALUE_PTR;
        return;
    case json_type_boolean: SetReal(*pVal, json_object_get_boolean(_jobj) ? 1.0 : 0.0); return;
    case json_type_double: SetReal(*pVal, json_object_get_double(_jobj)); return;
    case json_type_int: SetReal(*pVal, json_object_get_int(_jobj)); return;
    case json_type_string: {
        const char* text = json_object_get_string(_jobj);
        if (!SetInt64FromText(pVal, text)) KXCreateString(pVal, text);
        return;
    }
    case json_type_object:
    case json_type_array: return;
    }
}

void json_parse_to_map(json_object* _jobj, CDS_Map* _map) {
    FillMap(_jobj, _map, Tree::kept);
}

void json_parse_array_to_list(json_object* _jobj, char* _key, CDS_List* _pList) {
    FillList(MemberOrItself(_jobj, _key), _pList, Tree::kept);
}

int json_parse(json_object* _jobj) {
    return NewMap(_jobj, Tree::kept);
}

int json_parse_array(json_object* _jobj, char* _key) {
    return NewList(MemberOrItself(_jobj, _key), Tree::kept);
}

int JSONToDSMap(char* _jsonData, int _map) {
    kx::JsonTree tree;
    if (kx::ParseJson(_jsonData, &tree) != kx::JsonVerdict::read) return -1;
    DS_AutoMutex lock;
    if (_map < 0) return NewMap(tree.Get(), Tree::spent);
    if (_map < mapnumb && themaps.arr[_map]) FillMap(tree.Get(), themaps.arr[_map], Tree::spent);
    return -1;
}

int JSONToDSList(char* _jsonListData, char* _key, int _list) {
    kx::JsonTree tree;
    if (kx::ParseJson(_jsonListData, &tree) != kx::JsonVerdict::read) return -1;
    json_object* array = MemberOrItself(tree.Get(), _key);
    bool hasElements = json_object_is_type(array, json_type_array) && json_object_array_length(array) > 0;
    if (!hasElements) return -1;
    if (_list < 0) return NewList(array, Tree::spent);
    if (_list < thelists.length && thelists.arr[_list]) FillList(array, thelists.arr[_list], Tree::spent);
    return -1;
}

const char* findfirstnonspace(const char* _pString, int _dir, int _len) {
    for (int i = 0; i < _len && std::isspace(static_cast<unsigned char>(*_pString)); ++i) {
        _pString += _dir;
    }
    return _pString;
}

void F_JsonDecode(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    SetReal(result, -1);
    bool isText = (arg[0].kind & KIND_MASK) == VALUE_STRING;
    HostText number(isText ? nullptr : WrapNumber(KXGetReal(arg, 0)));
    const char* text = isText ? KXGetString(arg, 0) : number.text;
    if (!text) return;
    kx::JsonTree tree;
    if (ParseWrapped(SkipByteOrderMark(text), &tree)) SetReal(result, NewMap(tree.Get(), Tree::spent));
}
