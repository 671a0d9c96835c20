#pragma once

#include "Platform/MemoryManager.h"

#include <algorithm>
#include <new>
#include <type_traits>

namespace kx {

/// Makes many small objects of one kind: they never move, and what is given back is used again. All go with the pool.
/// @thread one at a time
template <class Item>
class Pool {
    static_assert(std::is_trivially_destructible_v<Item>, "the pool frees its memory, nothing else");

public:
    Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() { Clear(); }

    /// @return a new item, value-initialised.
    /// @throws std::bad_alloc
    Item* Make() {
        if (m_free) return new (TakeFree()) Item{};
        if (m_used == m_size) AddChunk();
        return new (m_chunks->Places() + m_used++) Item{};
    }

    void GiveBack(Item* item) {
        auto* place = reinterpret_cast<Place*>(item);
        place->next = m_free;
        m_free = place;
    }

    /// Ends all items at once.
    void Clear() {
        while (m_chunks) {
            Chunk* next = m_chunks->next;
            MemoryManager::Free(m_chunks);
            m_chunks = next;
        }
        m_free = nullptr;
        m_used = 0;
        m_size = 0;
    }

private:
    union Place {
        Place* next;  // of those that are free
        alignas(Item) unsigned char item[sizeof(Item)];
    };
    struct alignas(Place) Chunk {
        Chunk* next;
        Place* Places() { return reinterpret_cast<Place*>(this + 1); }
    };

    static constexpr unsigned int kFirstChunk = 4;
    static constexpr unsigned int kLargestChunk = 1024;

    Place* TakeFree() {
        Place* place = m_free;
        m_free = place->next;
        return place;
    }

    void AddChunk() {
        unsigned int size = std::clamp(m_size * 2, kFirstChunk, kLargestChunk);
        auto bytes = static_cast<unsigned int>(sizeof(Chunk) + size * sizeof(Place));
        auto* chunk = static_cast<Chunk*>(MemoryManager::Alloc(bytes, __FILE__, __LINE__, false));
        chunk->next = m_chunks;
        m_chunks = chunk;
        m_used = 0;
        m_size = size;
    }

    Chunk* m_chunks = nullptr;  // the newest first; the others are full
    Place* m_free = nullptr;
    unsigned int m_used = 0;  // of the newest chunk
    unsigned int m_size = 0;
};

}  // namespace kx
