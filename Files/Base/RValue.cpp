// Script values: sharing, printed form, and the lock over their reference counts.
#include "Files/Base/RValue.h"

#include "Files/Base/KXObjectBase.h"
#include "Files/Base/Limits.h"
#include "Files/Base/Number.h"
#include "Files/Base/RefDynamicArray.h"
#include "Platform/MemoryManager.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <sys/single_threaded.h>
#include <utility>

unsigned int g_countSTRING_RValue = 1;
unsigned int g_comparisonSTRUCT_RValue = 1;
unsigned int g_comparisonARRAY_RValue = 1;

namespace {

std::recursive_mutex& Mutex() {
    static auto* mutex = new std::recursive_mutex;  // outlives every static object that holds a value
    return *mutex;
}

void AddReference(int* count) {
    LOCK_RVALUE_MUTEX();
    ++*count;
    UNLOCK_RVALUE_MUTEX();
}

/// The text that STRING_RValue grows, with its terminator always in place.
class TextBuffer {
public:
    TextBuffer(char** pos, char** buffer, int* size) : m_pos(pos), m_buffer(buffer), m_size(size) {}

    void Append(const char* text) { Append(text, std::strlen(text)); }

    void Append(const char* text, size_t length) {
        Reserve(length + 1);
        std::memcpy(*m_pos, text, length);
        *m_pos += length;
        **m_pos = 0;
    }

private:
    void Reserve(size_t more) {
        auto used = static_cast<size_t>(*m_pos - *m_buffer);
        size_t needed = used + more;
        if (needed <= static_cast<size_t>(*m_size)) return;
        if (needed > INT_MAX / 2) throw std::bad_alloc();
        auto grown = static_cast<unsigned int>(needed * 2);
        *m_buffer = static_cast<char*>(MemoryManager::ReAlloc(*m_buffer, grown, __FILE__, __LINE__, false));
        *m_size = static_cast<int>(grown);
        *m_pos = *m_buffer + used;
    }

    char** m_pos;
    char** m_buffer;
    int* m_size;
};

void PrintValue(TextBuffer* text, const RValue* v, int depth);

void PrintArray(TextBuffer* text, RefDynamicArrayOfRValue* array, int depth) {
    if (!array || Visit::IsUnderWay(array->m_visited, g_comparisonARRAY_RValue)) {
        text->Append("null");
        return;
    }
    if (depth >= kx::kMaxNesting) throw KXRecursionLimit{};

    Visit visit(&array->m_visited, &g_comparisonARRAY_RValue);
    text->Append("[ ");
    for (int i = 0; i < array->m_length; ++i) {
        if (i > 0) text->Append(",");
        PrintValue(text, &array->m_elements[i], depth + 1);
    }
    text->Append(" ]");
}

void PrintStruct(TextBuffer* text, KXObjectBase* object, int depth) {
    if (!object || Visit::IsUnderWay(object->m_visited, g_comparisonSTRUCT_RValue)) {
        text->Append("null");
        return;
    }
    if (depth >= kx::kMaxNesting) throw KXRecursionLimit{};

    Visit visit(&object->m_visited, &g_comparisonSTRUCT_RValue);
    text->Append("{ ");
    bool first = true;
    for (int i = 0; i < object->Places(); ++i) {
        if (!object->NameAt(i)) continue;
        if (!std::exchange(first, false)) text->Append(", ");
        text->Append(object->NameAt(i));
        text->Append(" : ");
        PrintValue(text, object->ValueAt(i), depth + 1);
    }
    text->Append(" }");
}

void PrintPointer(TextBuffer* text, const void* pointer) {
    char digits[kx::kNumberText];
    std::snprintf(digits, sizeof digits, "%p", pointer);
    text->Append(pointer ? digits : "null");
}

void PrintValue(TextBuffer* text, const RValue* v, int depth) {
    char digits[kx::kNumberText];
    switch (v->kind & KIND_MASK) {
    case VALUE_REAL: text->Append(digits, static_cast<size_t>(kx::PrintReal(digits, v->real))); return;
    case VALUE_INT32: text->Append(digits, static_cast<size_t>(kx::PrintInteger(digits, v->i32))); return;
    case VALUE_INT64: text->Append(digits, static_cast<size_t>(kx::PrintInteger(digits, v->i64))); return;
    case VALUE_BOOL: text->Append(v->real != 0.0 ? "true" : "false"); return;
    case VALUE_UNDEFINED: text->Append("undefined"); return;
    case VALUE_NULL: text->Append("null"); return;
    case VALUE_PTR: PrintPointer(text, v->ptr); return;
    case VALUE_ARRAY: PrintArray(text, v->arr, depth); return;
    case VALUE_OBJECT: PrintStruct(text, v->obj, depth); return;
    case VALUE_STRING:
        if (v->str && v->str->m_thing) text->Append(v->str->m_thing);
        return;
    default: return;
    }
}

}  // namespace

void COPY_RValue(RValue* dest, const RValue* source) {
    RValue copy = *source;
    switch (copy.kind & KIND_MASK) {
    case VALUE_STRING:
        if (copy.str) AddReference(&copy.str->m_refCount);
        break;
    case VALUE_ARRAY:
        if (copy.arr) AddReference(&copy.arr->m_refCount);
        break;
    case VALUE_PTR: copy.flags &= ~VALUE_FLAG_OWNED; break;
    default: break;
    }
    *dest = copy;
}

void STRING_RValue(char** pos, char** buffer, int* size, const RValue* v) {
    TextBuffer text(pos, buffer, size);
    PrintValue(&text, v, 0);
}

void ResetVisits() {
    ++g_countSTRING_RValue;
    g_comparisonSTRUCT_RValue = g_countSTRING_RValue;
    g_comparisonARRAY_RValue = g_countSTRING_RValue;
}

// A process of one thread has nobody to lock out. Nothing between the two starts a thread or joins one.

void LOCK_RVALUE_MUTEX() {
    if (!__libc_single_threaded) Mutex().lock();
}

void UNLOCK_RVALUE_MUTEX() {
    if (!__libc_single_threaded) Mutex().unlock();
}
