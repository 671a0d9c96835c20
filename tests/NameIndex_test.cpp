// Nodes by the hash of their names.
#include "Files/Base/NameIndex.h"

#include <deque>
#include <gtest/gtest.h>
#include <string>

namespace kx::test {
namespace {

struct Node {
    uint32_t m_hash;
    int name;
    Node* m_pSameBucket = nullptr;
};

class NameIndexes : public ::testing::Test {
protected:
    Node* Add(uint32_t hash, int name) {
        Node* node = &m_nodes.emplace_back(Node{hash, name});
        m_index.Reserve();
        m_index.Add(node);
        return node;
    }

    [[nodiscard]] Node* Find(uint32_t hash, int name) const {
        return m_index.Find(hash, [&](const Node& each) { return each.name == name; });
    }

    NameIndex<Node> m_index;

private:
    std::deque<Node> m_nodes;
};

TEST_F(NameIndexes, FindNothingWhereNothingIs) {
    EXPECT_EQ(Find(0, 0), nullptr);
    m_index.Reserve();
    EXPECT_EQ(Find(0, 0), nullptr);
}

TEST_F(NameIndexes, FindANodeByItsHashAndItsName) {
    Node* node = Add(5, 1);

    EXPECT_EQ(Find(5, 1), node);
    EXPECT_EQ(Find(5, 2), nullptr);
    EXPECT_EQ(Find(6, 1), nullptr);
    EXPECT_EQ(Find(5 + (1u << 31), 1), nullptr);
}

TEST_F(NameIndexes, AskOnlyForNodesOfTheHash) {
    Add(5, 1);
    Add(5 + (1u << 31), 2);  // in the same bucket

    m_index.Find(5, [](const Node& each) {
        EXPECT_EQ(each.m_hash, 5u);
        return false;
    });
}

TEST_F(NameIndexes, TellNodesOfOneHashApart) {
    constexpr int kCount = 100;
    Node* nodes[kCount];
    for (int i = 0; i < kCount; ++i) {
        nodes[i] = Add(7, i);
    }
    for (int i : {0, 50, 99}) {
        m_index.Remove(nodes[i]);
    }
    for (int i = 0; i < kCount; ++i) {
        bool removed = i == 0 || i == 50 || i == 99;
        EXPECT_EQ(Find(7, i), removed ? nullptr : nodes[i]);
    }
}

TEST_F(NameIndexes, FindAllHoweverManyThereAre) {
    constexpr int kCount = 10000;
    auto hash = [](int i) { return static_cast<uint32_t>(i) * 2654435761u; };
    Node* nodes[kCount];
    for (int i = 0; i < kCount; ++i) {
        nodes[i] = Add(hash(i), i);
    }
    for (int i = 0; i < kCount; i += 2) {
        m_index.Remove(nodes[i]);
    }
    for (int i = 0; i < kCount; ++i) {
        ASSERT_EQ(Find(hash(i), i), i % 2 ? nodes[i] : nullptr);
    }
}

TEST_F(NameIndexes, TakeANodeBackThatWasRemoved) {
    Node* node = Add(5, 1);
    m_index.Remove(node);
    EXPECT_EQ(Find(5, 1), nullptr);

    m_index.Reserve();
    m_index.Add(node);

    EXPECT_EQ(Find(5, 1), node);
}

TEST_F(NameIndexes, AreEmptyAgainOnceCleared) {
    for (int i = 0; i < 100; ++i) {
        Add(static_cast<uint32_t>(i), i);
    }
    m_index.Clear();

    EXPECT_EQ(Find(5, 5), nullptr);
    Node* node = Add(5, 5);
    EXPECT_EQ(Find(5, 5), node);
    EXPECT_EQ(Find(6, 6), nullptr);
}

}  // namespace
}  // namespace kx::test
