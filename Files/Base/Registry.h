#pragma once

#include <mutex>

namespace kx {

/// The objects of a kind that are alive, linked through members `previous` and `next` of their own, so that neither
/// adding nor removing can fail.
/// @thread any
template <class Item>
class Registry {
public:
    void Add(Item* item) {
        std::lock_guard<std::mutex> lock(m_mutex);
        item->next = m_first;
        if (m_first) m_first->previous = item;
        m_first = item;
    }

    /// An item that was never added may be removed too.
    void Remove(Item* item) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (item->previous) item->previous->next = item->next;
        if (item->next) item->next->previous = item->previous;
        if (m_first == item) m_first = item->next;
    }

    /// Calls back for each item, the newest first, while none can be added or removed.
    template <class Visit>
    void ForEach(Visit visit) {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (Item* item = m_first; item; item = item->next) {
            visit(item);
        }
    }

private:
    std::mutex m_mutex;
    Item* m_first = nullptr;
};

}  // namespace kx
