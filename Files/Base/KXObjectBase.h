#pragma once

#include "Files/Base/RValue.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>

class CInstance;
class Collector;
struct json_object;

/// A struct: named values in the order in which they were added.
///
/// Values refer to a struct without counting. The Collector owns every struct and frees those that nothing leads to any
/// more; until it runs, every struct that was ever handed out is there.
/// @thread script thread
class KXObjectBase {
public:
    /// @return a new, empty struct, which the Collector owns. The parameters are reserved.
    /// @throws std::bad_alloc
    static KXObjectBase* Alloc(unsigned int, int, int, bool);

    KXObjectBase(const KXObjectBase&) = delete;
    KXObjectBase& operator=(const KXObjectBase&) = delete;

    /// Adds a member, or replaces its value; a member keeps its place.
    /// @param name   copied; null is the empty name.
    /// @param value  shared, not copied: the caller still owns its own reference.
    /// @param flags  reserved, 0.
    /// @throws std::bad_alloc; the struct is then as it was.
    void Add(const char* name, RValue& value, int flags);

    /// @return the member's value, which belongs to the struct; null where there is none.
    const RValue* Get(const char* name) const;

    /// @return false where there is none.
    bool Remove(const char* name);

    int Count() const { return m_count - m_gaps; }

    /// Members by their place, from 0 to below Places(). A member that was removed may leave a gap, where both are
    /// null; the places are the same until a member comes or goes.
    int Places() const { return m_count; }
    const char* NameAt(int place) const;
    const RValue* ValueAt(int place) const;

    uint64_t m_changes = 0;        ///< another one as soon as a member has come or gone
    unsigned int m_visited = 0;    ///< visit stamp; see g_comparisonSTRUCT_RValue
    const char* m_className = "";  ///< not owned

private:
    friend class Collector;

    struct Member {
        RValue name;
        RValue value;
    };

    /// Ordered, not hashed: names may be anyone's, a server's too, and chosen to share a bucket.
    using NameIndex = std::map<std::string_view, int>;

    KXObjectBase() = default;
    ~KXObjectBase();

    [[nodiscard]] int PlaceOf(std::string_view name) const;
    [[nodiscard]] bool IsMember(int place) const {
        return place >= 0 && place < m_count && m_members[place].name.kind != VALUE_UNDEFINED;
    }
    void Reserve(int count);
    void CloseGaps();
    void Index();
    void ReleaseMembers();

    Member* m_members = nullptr;  // m_count of them, host memory
    int m_count = 0;              // places
    int m_gaps = 0;               // whose name is undefined
    int m_allocated = 0;
    std::unique_ptr<NameIndex> m_index;  // of a large struct's names

    bool m_reached = false;  // by the collection that is under way
    KXObjectBase* m_previous = nullptr;
    KXObjectBase* m_next = nullptr;
};

/// What makes a new struct an ordinary one. This host's are ordinary from the start.
void JS_GenericObjectConstructor(RValue& result, CInstance* self, CInstance* other, int argc, RValue* args);

/// @return a new JSON object with the struct's members in their order, each as EncodeValue makes it; the caller owns
/// it.
/// @throws KXRecursionLimit, std::bad_alloc
json_object* EncodeObject(KXObjectBase* obj);
