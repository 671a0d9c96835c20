// JSON text to structs and arrays, and any value to JSON text.
#include "Files/Base/KXObjectBase.h"
#include "Files/Base/RefDynamicArray.h"
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Json.h"

namespace {

constexpr char STRUCT_CLASS[] = "___struct___";

void SetStruct(RValue& Result, json_object* _jobj, Tree tree);
void SetArray(RValue& Result, json_object* _jobj, Tree tree);

void SetAny(RValue& Result, json_object* _jobj, Tree tree) {
    switch (json_object_get_type(_jobj)) {
    case json_type_object: SetStruct(Result, _jobj, tree); return;
    case json_type_array: SetArray(Result, _jobj, tree); return;
    default: json_value(_jobj, &Result); return;
    }
}

void SetStruct(RValue& Result, json_object* _jobj, Tree tree) {
    Result.obj = KXObjectBase::Alloc(0, VALUE_UNSET, 0, false);
    Result.kind = VALUE_OBJECT;
    JS_GenericObjectConstructor(Result, nullptr, nullptr, 0, nullptr);
    Result.obj->m_className = STRUCT_CLASS;
    lh_table* members = json_object_get_object(_jobj);
    if (!members) return;
    KXNames names;
    for (lh_entry* entry = lh_table_head(members); entry; entry = lh_entry_next(entry)) {
        RValueOwner tmp;
        SetAny(tmp.value, static_cast<json_object*>(lh_entry_v(entry)), tree);
        Result.obj->Add(static_cast<const char*>(lh_entry_k(entry)), tmp.value, 0);
        if (tree == Tree::spent) SpendMember(entry);
    }
}

/// From the last element down: the first one that is stored makes room for all.
void SetArray(RValue& Result, json_object* _jobj, Tree tree) {
    Result.arr = ARRAY_RefAlloc();
    Result.kind = VALUE_ARRAY;
    if (!json_object_is_type(_jobj, json_type_array)) return;
    KXNames names;
    size_t length = json_object_array_length(_jobj);
    for (size_t i = length; i > 0; --i) {
        RValueOwner tmp;
        SetAny(tmp.value, json_object_array_get_idx(_jobj, i - 1), tree);
        SET_RValue(&Result, &tmp.value, nullptr, static_cast<int>(i - 1));
        if (tree == Tree::spent) SpendElement(_jobj, i - 1, length);
    }
}

}  // namespace

void F_JsonEncodeExt(RValue& result, CInstance*, CInstance*, int argc, RValue* arg) {
    if (argc < 1) {
        KXError("json_stringify expects a parameter");
        return;
    }
    kx::JsonTree tree(EncodeValue(&arg[0]));
    KXCreateString(&result, kx::PrintJson(tree.Get()));
}

void F_JsonDecodeExt(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    if ((arg[0].kind & KIND_MASK) != VALUE_STRING) {
        KXError("json_parse : expects a string argument");
        return;
    }
    result.kind = VALUE_UNDEFINED;
    kx::JsonTree tree;
    bool parsed = kx::ParseJson(KXGetString(arg, 0), &tree) == kx::JsonVerdict::read;
    if (!parsed || !tree.Get()) {
        KXError("JSON parse error");
        return;
    }
    SetAny(result, tree.Get(), Tree::spent);
}

void json_parse_ext(RValue& Result, json_object* _jobj) {
    SetAny(Result, _jobj, Tree::kept);
}

void json_parse_object_ext(RValue& Result, json_object* _jobj) {
    SetStruct(Result, _jobj, Tree::kept);
}

void json_parse_array_ext(RValue& Result, json_object* _jobj) {
    SetArray(Result, _jobj, Tree::kept);
}
