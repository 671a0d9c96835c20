#pragma once

#include "Files/Base/RValue.h"

#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

class CInstance;
class Collector;

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

    /// Members by their place, from 0; null beyond the last.
    int Count() const { return static_cast<int>(m_members.size()); }
    const char* NameAt(int place) const;
    const RValue* ValueAt(int place) const;

    unsigned int m_visited = 0;    ///< visit stamp; see g_comparisonSTRUCT_RValue
    const char* m_className = "";  ///< not owned

private:
    friend class Collector;

    struct Member {
        RValue name;
        RValue value;
    };

    KXObjectBase() = default;
    ~KXObjectBase();

    [[nodiscard]] int PlaceOf(std::string_view name) const;
    void Append(const char* name, const RValue& value);
    void Index();
    void ReleaseMembers();

    std::vector<Member> m_members;
    std::unique_ptr<std::unordered_map<std::string_view, int>> m_index;  // of a large struct's names

    bool m_reached = false;  // by the collection that is under way
    KXObjectBase* m_previous = nullptr;
    KXObjectBase* m_next = nullptr;
};

/// What makes a new struct an ordinary one. This host's are ordinary from the start.
void JS_GenericObjectConstructor(RValue& result, CInstance* self, CInstance* other, int argc, RValue* args);
