#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kx {

/// Finds nodes by hash, a table with open addressing. The nodes are the caller's; each says its hash in a member
/// `m_hash`, which stays as long as it is in the index.
/// @thread one at a time
template <class Node>
class NameIndex {
public:
    /// @param matches  tells the node that is meant among those of its hash.
    /// @return null where there is none.
    template <class Matches>
    Node* Find(uint32_t hash, Matches matches) const {
        if (m_places.empty()) return nullptr;
        size_t i = hash & Mask();
        while (m_places[i].node && !(m_places[i].hash == hash && matches(*m_places[i].node))) {
            i = (i + 1) & Mask();
        }
        return m_places[i].node;
    }

    /// Makes room for one more node, so that Add cannot fail.
    /// @throws std::bad_alloc
    void Reserve() {
        if (m_count < m_places.size() / 4 * 3) return;
        std::vector<Place> before(m_places.empty() ? kFirstPlaces : m_places.size() * 2);
        before.swap(m_places);
        for (const Place& place : before) {
            if (place.node) Put(place);
        }
    }

    /// Adds a node that Reserve has made room for.
    void Add(Node* node) {
        Put({node, node->m_hash});
        ++m_count;
    }

    void Remove(const Node* node) {
        size_t hole = node->m_hash & Mask();
        while (m_places[hole].node != node) {
            hole = (hole + 1) & Mask();
        }
        // Whatever follows without a gap moves up, unless that would take it before its place.
        for (size_t i = (hole + 1) & Mask(); m_places[i].node; i = (i + 1) & Mask()) {
            size_t way = (i - m_places[i].hash) & Mask();
            if (way < ((i - hole) & Mask())) continue;
            m_places[hole] = m_places[i];
            hole = i;
        }
        m_places[hole] = {};
        --m_count;
    }

    void Clear() {
        m_places = {};
        m_count = 0;
    }

private:
    struct Place {
        Node* node = nullptr;
        uint32_t hash = 0;
    };

    static constexpr size_t kFirstPlaces = 8;

    [[nodiscard]] size_t Mask() const { return m_places.size() - 1; }

    void Put(const Place& place) {
        size_t i = place.hash & Mask();
        while (m_places[i].node) {
            i = (i + 1) & Mask();
        }
        m_places[i] = place;
    }

    std::vector<Place> m_places;  // as many as a power of two, a quarter of them free
    size_t m_count = 0;
};

}  // namespace kx
