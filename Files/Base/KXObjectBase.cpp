// Structs: members in their order, with an index over many.
#include "Files/Base/KXObjectBase.h"

#include "Files/Base/Collector.h"
#include "Files/Code/Code_Function.h"
#include "Platform/MemoryManager.h"

#include <climits>
#include <cstring>
#include <new>
#include <utility>

namespace {

/// Up to here looking through the names is as fast as an index.
constexpr int kUnindexedMembers = 16;

constexpr int kFirstMembers = 4;

std::string_view TextOf(const RValue& name) {
    return {name.str->m_thing, static_cast<size_t>(name.str->m_size)};
}

}  // namespace

KXObjectBase* KXObjectBase::Alloc(unsigned int, int, int, bool) {
    auto* object = new KXObjectBase;
    Collector::Adopt(object);
    return object;
}

KXObjectBase::~KXObjectBase() {
    ReleaseMembers();
}

void KXObjectBase::Add(const char* name, RValue& value, int /*flags*/) {
    if (!name) name = "";
    RValueOwner copy;
    COPY_RValue(&copy.value, &value);  // it may be one of those that move
    int place = PlaceOf(name);
    if (place >= 0) {
        std::swap(m_members[place].value, copy.value);
        return;
    }
    Reserve(m_count + 1);
    RValueOwner newName;
    KXSetString(&newName.value, name);
    if (m_index) m_index->emplace(TextOf(newName.value), m_count);
    m_members[m_count++] = {std::exchange(newName.value, RValue{}), std::exchange(copy.value, RValue{})};
    if (!m_index && m_count > kUnindexedMembers) Index();
}

void KXObjectBase::Reserve(int count) {
    if (count <= m_allocated) return;
    long long grown = m_allocated ? m_allocated * 2LL : kFirstMembers;
    long long bytes = grown * static_cast<long long>(sizeof(Member));
    if (bytes > INT_MAX) throw std::bad_alloc();
    void* moved = MemoryManager::ReAlloc(m_members, static_cast<unsigned int>(bytes), __FILE__, __LINE__, false);
    m_members = static_cast<Member*>(moved);
    m_allocated = static_cast<int>(grown);
}

const RValue* KXObjectBase::Get(const char* name) const {
    return ValueAt(PlaceOf(name ? name : ""));
}

bool KXObjectBase::Remove(const char* name) {
    int place = PlaceOf(name ? name : "");
    if (place < 0) return false;
    RValueOwner oldName(m_members[place].name);
    RValueOwner oldValue(m_members[place].value);
    if (m_index) m_index->erase(TextOf(oldName.value));
    --m_count;
    std::memmove(m_members + place, m_members + place + 1, static_cast<size_t>(m_count - place) * sizeof(Member));
    for (; m_index && place < m_count; ++place) {
        m_index->find(TextOf(m_members[place].name))->second = place;
    }
    return true;
}

const char* KXObjectBase::NameAt(int place) const {
    bool inside = place >= 0 && place < m_count;
    return inside ? m_members[place].name.str->m_thing : nullptr;
}

const RValue* KXObjectBase::ValueAt(int place) const {
    bool inside = place >= 0 && place < m_count;
    return inside ? &m_members[place].value : nullptr;
}

int KXObjectBase::PlaceOf(std::string_view name) const {
    if (m_index) {
        auto found = m_index->find(name);
        return found == m_index->end() ? -1 : found->second;
    }
    for (int place = 0; place < m_count; ++place) {
        if (TextOf(m_members[place].name) == name) return place;
    }
    return -1;
}

/// Without an index a large struct is slow, not wrong.
void KXObjectBase::Index() {
    try {
        auto index = std::make_unique<Places>();
        for (int place = 0; place < m_count; ++place) {
            index->emplace(TextOf(m_members[place].name), place);
        }
        m_index = std::move(index);
    } catch (const std::bad_alloc&) {
        m_index.reset();
    }
}

void KXObjectBase::ReleaseMembers() {
    m_index.reset();
    Member* members = std::exchange(m_members, nullptr);
    int count = std::exchange(m_count, 0);
    m_allocated = 0;
    for (int place = 0; place < count; ++place) {
        FREE_RValue__Pre(&members[place].name);
        FREE_RValue__Pre(&members[place].value);
    }
    MemoryManager::Free(members);
}

void JS_GenericObjectConstructor(RValue&, CInstance*, CInstance*, int, RValue*) {}
