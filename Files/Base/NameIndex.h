#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kx {

/// Finds nodes by hash. The nodes are the caller's and link themselves: members `m_hash`, which stays as long as the
/// node is in the index, and `m_pSameBucket`, which is the index's.
/// @thread one at a time
template <class Node>
class NameIndex {
public:
    /// @param matches  tells the node that is meant among those of its hash.
    /// @return null where there is none.
    template <class Matches>
    Node* Find(uint32_t hash, Matches matches) const {
        if (m_buckets.empty()) return nullptr;
        Node* node = m_buckets[hash & Mask()];
        while (node && !(node->m_hash == hash && matches(*node))) {
            node = node->m_pSameBucket;
        }
        return node;
    }

    /// Makes room for one more node, so that Add cannot fail.
    /// @throws std::bad_alloc
    void Reserve() {
        if (m_count < m_buckets.size()) return;
        std::vector<Node*> before(m_buckets.empty() ? kFirstBuckets : m_buckets.size() * 2);
        before.swap(m_buckets);
        for (Node* node : before) {
            while (node) {
                Node* next = node->m_pSameBucket;
                Link(node);
                node = next;
            }
        }
    }

    /// Adds a node that Reserve has made room for.
    void Add(Node* node) {
        Link(node);
        ++m_count;
    }

    void Remove(Node* node) {
        Node** place = &m_buckets[node->m_hash & Mask()];
        while (*place != node) {
            place = &(*place)->m_pSameBucket;
        }
        *place = node->m_pSameBucket;
        --m_count;
    }

    void Clear() {
        m_buckets = {};
        m_count = 0;
    }

private:
    static constexpr size_t kFirstBuckets = 8;

    [[nodiscard]] size_t Mask() const { return m_buckets.size() - 1; }

    void Link(Node* node) {
        Node** first = &m_buckets[node->m_hash & Mask()];
        node->m_pSameBucket = *first;
        *first = node;
    }

    std::vector<Node*> m_buckets;  // as many as a power of two
    size_t m_count = 0;
};

}  // namespace kx
