// Structs: members in their order, with an index over many.
#include "Files/Base/KXObjectBase.h"

#include "Files/Base/Collector.h"
#include "Files/Code/Code_Function.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
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
    ++m_changes;
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
    Member& member = m_members[place];
    if (m_index) m_index->erase(TextOf(member.name));
    RValueOwner oldName(std::exchange(member.name, g_undefined));
    RValueOwner oldValue(std::exchange(member.value, g_undefined));
    ++m_changes;
    ++m_gaps;
    if (!m_index || m_gaps > m_count / 2) CloseGaps();
    return true;
}

/// A few members move up at once; many do so once there are as many gaps.
void KXObjectBase::CloseGaps() {
    auto isGap = [](const Member& member) { return member.name.kind == VALUE_UNDEFINED; };
    Member* end = std::remove_if(m_members, m_members + m_count, isGap);
    m_count = static_cast<int>(end - m_members);
    m_gaps = 0;
    if (m_index) Index();
}

const char* KXObjectBase::NameAt(int place) const {
    return IsMember(place) ? m_members[place].name.str->m_thing : nullptr;
}

const RValue* KXObjectBase::ValueAt(int place) const {
    return IsMember(place) ? &m_members[place].value : nullptr;
}

int KXObjectBase::PlaceOf(std::string_view name) const {
    if (m_index) {
        auto found = m_index->find(name);
        return found == m_index->end() ? -1 : found->second;
    }
    for (int place = 0; place < m_count; ++place) {
        if (IsMember(place) && TextOf(m_members[place].name) == name) return place;
    }
    return -1;
}

/// Without an index a large struct is slow, not wrong.
void KXObjectBase::Index() {
    try {
        auto index = std::make_unique<NameIndex>();
        for (int place = 0; place < m_count; ++place) {
            if (IsMember(place)) index->emplace(TextOf(m_members[place].name), place);
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
    m_gaps = 0;
    for (int place = 0; place < count; ++place) {
        FREE_RValue__Pre(&members[place].name);
        FREE_RValue__Pre(&members[place].value);
    }
    MemoryManager::Free(members);
}

void JS_GenericObjectConstructor(RValue&, CInstance*, CInstance*, int, RValue*) {}
