// Structs: members in their order, with an index over many.
#include "Files/Base/KXObjectBase.h"

#include "Files/Base/Collector.h"
#include "Files/Code/Code_Function.h"

namespace {

/// Up to here looking through the names is as fast as an index.
constexpr size_t kUnindexedMembers = 16;

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
    RValue copy;
    COPY_RValue(&copy, &value);  // it may be one of those that move
    int place = PlaceOf(name);
    if (place >= 0) {
        RValue old = m_members[static_cast<size_t>(place)].value;
        m_members[static_cast<size_t>(place)].value = copy;
        FREE_RValue__Pre(&old);
        return;
    }
    try {
        Append(name, copy);
    } catch (...) {
        FREE_RValue__Pre(&copy);
        throw;
    }
    if (!m_index && m_members.size() > kUnindexedMembers) Index();
}

/// @throws std::bad_alloc; the struct is then as it was.
void KXObjectBase::Append(const char* name, const RValue& value) {
    Member member{};
    m_members.push_back(member);
    try {
        KXCreateString(&member.name, name);
        if (m_index) m_index->emplace(TextOf(member.name), Count() - 1);
    } catch (...) {
        m_members.pop_back();
        FREE_RValue__Pre(&member.name);
        throw;
    }
    member.value = value;
    m_members.back() = member;
}

const RValue* KXObjectBase::Get(const char* name) const {
    return ValueAt(PlaceOf(name ? name : ""));
}

bool KXObjectBase::Remove(const char* name) {
    int place = PlaceOf(name ? name : "");
    if (place < 0) return false;
    auto at = m_members.begin() + place;
    Member old = *at;
    if (m_index) m_index->erase(TextOf(old.name));
    m_members.erase(at);
    for (; m_index && place < Count(); ++place) {
        m_index->find(TextOf(m_members[static_cast<size_t>(place)].name))->second = place;
    }
    FREE_RValue__Pre(&old.name);
    FREE_RValue__Pre(&old.value);
    return true;
}

const char* KXObjectBase::NameAt(int place) const {
    bool inside = place >= 0 && place < Count();
    return inside ? m_members[static_cast<size_t>(place)].name.str->m_thing : nullptr;
}

const RValue* KXObjectBase::ValueAt(int place) const {
    bool inside = place >= 0 && place < Count();
    return inside ? &m_members[static_cast<size_t>(place)].value : nullptr;
}

int KXObjectBase::PlaceOf(std::string_view name) const {
    if (m_index) {
        auto found = m_index->find(name);
        return found == m_index->end() ? -1 : found->second;
    }
    for (int place = 0; place < Count(); ++place) {
        if (TextOf(m_members[static_cast<size_t>(place)].name) == name) return place;
    }
    return -1;
}

/// Without an index a large struct is slow, not wrong.
void KXObjectBase::Index() {
    try {
        auto index = std::make_unique<std::unordered_map<std::string_view, int>>();
        for (int place = 0; place < Count(); ++place) {
            index->emplace(TextOf(m_members[static_cast<size_t>(place)].name), place);
        }
        m_index = std::move(index);
    } catch (const std::bad_alloc&) {
        m_index.reset();
    }
}

void KXObjectBase::ReleaseMembers() {
    m_index.reset();
    std::vector<Member> members;
    members.swap(m_members);
    for (Member& member : members) {
        FREE_RValue__Pre(&member.name);
        FREE_RValue__Pre(&member.value);
    }
}

void JS_GenericObjectConstructor(RValue&, CInstance*, CInstance*, int, RValue*) {}
