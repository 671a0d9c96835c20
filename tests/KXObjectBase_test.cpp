// Structs: members, their order, and their printed form.
#include "Files/Base/KXObjectBase.h"

#include "Files/Base/Collector.h"
#include "Files/Base/Json.h"
#include "Files/Base/Limits.h"
#include "tests/RValue_fixture.h"

#include <climits>
#include <vector>

namespace kx::test {
namespace {

KXObjectBase* NewStruct() {
    return KXObjectBase::Alloc(0, VALUE_UNSET, 0, false);
}

RValue StructValue(KXObjectBase* object) {
    RValue value{};
    value.obj = object;
    value.kind = VALUE_OBJECT;
    return value;
}

/// Adds a member and releases the value.
void Add(KXObjectBase* object, const std::string& name, RValue value) {
    object->Add(name.c_str(), value, 0);
    FREE_RValue__Pre(&value);
}

std::vector<std::string> Names(const KXObjectBase& object) {
    std::vector<std::string> names;
    for (int place = 0; place < object.Places(); ++place) {
        if (object.NameAt(place)) names.emplace_back(object.NameAt(place));
    }
    EXPECT_EQ(static_cast<int>(names.size()), object.Count());
    return names;
}

class Structs : public ::testing::Test {
protected:
    void SetUp() override {
        Collector::Collect();  // what tests before left
        m_blocks = MemoryManager::Stats().blocks;
    }
    void TearDown() override {
        Collector::Collect();
        EXPECT_EQ(MemoryManager::Stats().blocks, m_blocks);
    }

private:
    long long m_blocks = 0;
};

TEST_F(Structs, BeginEmptyAndOrdinary) {
    KXObjectBase* object = NewStruct();
    RValue result = StructValue(object);
    JS_GenericObjectConstructor(result, nullptr, nullptr, 0, nullptr);

    EXPECT_EQ(object->Count(), 0);
    EXPECT_EQ(object->m_visited, 0u);
    EXPECT_STREQ(object->m_className, "");
    EXPECT_EQ(object->Get("x"), nullptr);
}

TEST_F(Structs, KeepTheirMembersInTheOrderOfTheirComing) {
    KXObjectBase* object = NewStruct();
    Add(object, "b", Real(1));
    Add(object, "a", Text("text"));
    Add(object, "", Real(3));
    Add(object, "b", Real(4));  // keeps its place

    EXPECT_EQ(Names(*object), (std::vector<std::string>{"b", "a", ""}));
    EXPECT_EQ(object->Get("b")->real, 4);
    EXPECT_STREQ(object->Get("a")->str->m_thing, "text");
    EXPECT_EQ(object->ValueAt(2)->real, 3);
    EXPECT_EQ(object->Get(nullptr)->real, 3);  // no name is the empty one
    for (int place : {-1, 3, INT_MAX, INT_MIN}) {
        EXPECT_EQ(object->ValueAt(place), nullptr);
        EXPECT_EQ(object->NameAt(place), nullptr);
    }
}

TEST_F(Structs, ShareTheValuesThatTheyAreGiven) {
    KXObjectBase* object = NewStruct();
    RValue text = Text("shared");

    object->Add("a", text, 0);
    object->Add("b", text, 0);

    EXPECT_EQ(object->Get("a")->str, text.str);
    EXPECT_EQ(text.str->m_refCount, 3);
    EXPECT_TRUE(object->Remove("a"));
    EXPECT_EQ(text.str->m_refCount, 2);
    Add(object, "b", Real(1));
    EXPECT_EQ(text.str->m_refCount, 1);
    FREE_RValue__Pre(&text);
}

TEST_F(Structs, MayTakeAValueOfTheirOwn) {
    KXObjectBase* object = NewStruct();
    Add(object, "first", Text("text"));
    for (int i = 0; i < 100; ++i) {
        object->Add(("m" + std::to_string(i)).c_str(), const_cast<RValue&>(*object->ValueAt(i)), 0);
        object->Add("first", const_cast<RValue&>(*object->ValueAt(0)), 0);
    }

    EXPECT_EQ(object->Get("first")->str->m_refCount, 101);
    EXPECT_STREQ(object->Get("m99")->str->m_thing, "text");
}

TEST_F(Structs, FindTheirMembersHoweverManyThereAre) {
    KXObjectBase* object = NewStruct();
    for (int i = 0; i < 1000; ++i) {
        Add(object, "m" + std::to_string(i), Real(i));
    }
    for (int i = 0; i < 1000; i += 2) {
        EXPECT_TRUE(object->Remove(("m" + std::to_string(i)).c_str()));
    }
    EXPECT_FALSE(object->Remove("m0"));
    Add(object, "last", Real(-1));

    EXPECT_EQ(object->Count(), 501);
    for (int i = 0; i < 1000; ++i) {
        const RValue* value = object->Get(("m" + std::to_string(i)).c_str());
        ASSERT_EQ(value != nullptr, i % 2 == 1) << i;
        EXPECT_TRUE(!value || value->real == i);
    }
    std::vector<std::string> names = Names(*object);
    EXPECT_EQ(names.front(), "m1");
    EXPECT_EQ(names.back(), "last");
}

TEST_F(Structs, CloseTheirGapsOnceMostMembersAreGone) {
    KXObjectBase* object = NewStruct();
    for (int i = 0; i < 100; ++i) {
        Add(object, "m" + std::to_string(i), Real(i));
    }
    for (int i = 0; i < 50; ++i) {
        EXPECT_TRUE(object->Remove(("m" + std::to_string(i)).c_str()));
    }
    EXPECT_EQ(object->Places(), 100);

    EXPECT_TRUE(object->Remove("m50"));

    EXPECT_EQ(object->Places(), 49);
    for (int place = 0; place < 49; ++place) {
        std::string name = "m" + std::to_string(place + 51);
        EXPECT_EQ(object->NameAt(place), name);
        EXPECT_EQ(object->Get(name.c_str()), object->ValueAt(place));
        EXPECT_EQ(object->ValueAt(place)->real, place + 51);
    }
}

TEST_F(Structs, ShowNothingOfAMemberThatIsGone) {
    KXObjectBase* object = NewStruct();
    std::string printed;
    std::string json;
    for (int i = 0; i < 30; ++i) {
        std::string number = std::to_string(i);
        Add(object, "m" + number, Int32(i));
        if (i == 7) continue;
        printed += (printed.empty() ? "m" : ", m") + number + " : " + number;
        json += (json.empty() ? "\"m" : ", \"m") + number + "\": " + number;
    }

    EXPECT_TRUE(object->Remove("m7"));

    EXPECT_EQ(object->Places(), 30);  // a gap is left
    EXPECT_EQ(Printed(StructValue(object)), "{ " + printed + " }");
    kx::JsonTree tree(EncodeObject(object));
    EXPECT_EQ(kx::PrintJson(tree.Get()), "{ " + json + " }");
}

TEST_F(Structs, PrintTheirMembers) {
    KXObjectBase* object = NewStruct();
    EXPECT_EQ(Printed(StructValue(object)), "{  }");

    Add(object, "a", Real(1));
    EXPECT_EQ(Printed(StructValue(object)), "{ a : 1 }");

    RValue array = Array();
    Push(&array, Text("x"));
    Push(&array, StructValue(object));
    Add(object, "list", array);
    EXPECT_EQ(Printed(StructValue(object)), "{ a : 1, list : [ x,null ] }");
    EXPECT_EQ(Printed(StructValue(nullptr)), "null");
}

TEST_F(Structs, NestedTooDeepAreNotPrinted) {
    KXObjectBase* first = NewStruct();
    KXObjectBase* last = first;
    for (int i = 0; i < kMaxNesting; ++i) {
        KXObjectBase* next = NewStruct();
        Add(last, "next", StructValue(next));
        last = next;
    }
    EXPECT_THROW(
        {
            int size = 16;
            auto* buffer = static_cast<char*>(MemoryManager::Alloc(16, __FILE__, __LINE__, true));
            char* pos = buffer;
            RValue value = StructValue(first);
            try {
                STRING_RValue(&pos, &buffer, &size, &value);
            } catch (...) {
                MemoryManager::Free(buffer);
                throw;
            }
        },
        KXRecursionLimit);
    ResetVisits();
    EXPECT_EQ(Printed(StructValue(last)), "{  }");
}

TEST_F(Structs, BecomeJsonObjectsInTheirOrder) {
    KXObjectBase* object = NewStruct();
    Add(object, "z", Text("text"));
    Add(object, "a", StructValue(NewStruct()));

    kx::JsonTree tree(EncodeObject(object));

    EXPECT_STREQ(kx::PrintJson(tree.Get()), R"({ "z": "text", "a": { } })");
}

}  // namespace
}  // namespace kx::test
