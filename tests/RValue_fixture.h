#pragma once

#include "Files/Base/RefDynamicArray.h"
#include "Files/Code/Code_Function.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Numbers.h"

#include <gtest/gtest.h>
#include <string>

/// Values as the tests of values make them: plain records, released by the test.
namespace kx::test {

inline RValue Text(const char* text) {
    RValue value{};
    KXCreateString(&value, text);
    return value;
}

/// A string whose record has no text.
inline RValue Textless() {
    RValue value = Text("");
    KXFree(value.str->m_thing);
    value.str->m_thing = nullptr;
    return value;
}

inline RValue Array() {
    RValue value{};
    value.arr = ARRAY_RefAlloc();
    value.kind = VALUE_ARRAY;
    return value;
}

/// Puts a value at an array's end and releases it.
inline void Push(RValue* array, RValue value) {
    SET_RValue(array, &value, nullptr, array->arr->m_length);
    FREE_RValue__Pre(&value);
}

inline RValue Other(unsigned int kind, int64_t payload) {
    RValue value{};
    value.i64 = payload;
    value.kind = kind;
    return value;
}

/// The printed form, through a buffer that starts as small as the module's own.
inline std::string Printed(const RValue& value) {
    int size = 16;
    auto* buffer = static_cast<char*>(MemoryManager::Alloc(16, __FILE__, __LINE__, true));
    char* pos = buffer;
    STRING_RValue(&pos, &buffer, &size, &value);
    std::string text = buffer;
    EXPECT_EQ(pos, buffer + text.size());
    EXPECT_GT(size, static_cast<int>(text.size()));
    MemoryManager::Free(buffer);
    return text;
}

}  // namespace kx::test
