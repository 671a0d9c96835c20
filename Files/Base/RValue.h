#pragma once

#include <cstdint>

/// Script values.
///
/// Every value that crosses between scripts and built-ins is an RValue: 16 bytes, the payload first, then flags and
/// kind. Plain kinds are copied as they are. Strings and arrays are shared: the payload points to a record with a
/// reference count, which is changed under the RValue mutex only.
///
///     RValue v{};                       // the real 0
///     KXCreateString(&v, "text");       // now a string, one reference
///     RValue w{};
///     COPY_RValue(&w, &v);              // two references to one text
///     FREE_RValue__Pre(&v);             // v owns nothing any more; its kind is still the string's
///     FREE_RValue__Pre(&w);             // the text is gone
///
/// Writing a new payload over a value that owns something leaks it: release it first.

struct RefDynamicArrayOfRValue;
class KXObjectBase;

/// A shared record and the number of values that hold it.
/// For strings: `m_thing` is host memory (or null), `m_size` its length in bytes without the terminator.
template <class T>
struct _RefThing {
    T m_thing;
    int m_refCount;
    int m_size;
};

/// What a VALUE_PTR value may own.
class COwnedObject {
public:
    virtual ~COwnedObject() = default;
};

enum : unsigned int {
    VALUE_REAL = 0,
    VALUE_STRING = 1,
    VALUE_ARRAY = 2,
    VALUE_PTR = 3,
    VALUE_VEC3 = 4,
    VALUE_UNDEFINED = 5,
    VALUE_OBJECT = 6,
    VALUE_INT32 = 7,
    VALUE_VEC4 = 8,
    VALUE_VEC44 = 9,
    VALUE_INT64 = 10,
    VALUE_ACCESSOR = 11,
    VALUE_NULL = 12,
    VALUE_BOOL = 13,
    VALUE_ITERATOR = 14,
    VALUE_REF = 15,
    VALUE_UNSET = 0xFFFFFF,

    KIND_MASK = 0xFFFFFF,       ///< the kind proper; the bits above it are marks
    KIND_DS_MAP = 0x80000000,   ///< with VALUE_REAL: the payload is a ds_map's index
    KIND_DS_LIST = 0x40000000,  ///< with VALUE_REAL: the payload is a ds_list's index
};

/// Bit of `flags`: a VALUE_PTR value that owns its object.
constexpr unsigned int VALUE_FLAG_OWNED = 8;

struct RValue {
    union {
        double real;  ///< VALUE_REAL, and VALUE_BOOL: true when not 0.0
        int32_t i32;
        int64_t i64;
        void* ptr;
        _RefThing<char const*>* str;
        RefDynamicArrayOfRValue* arr;
        KXObjectBase* obj;
        COwnedObject* owned;
    };
    unsigned int flags;
    unsigned int kind;
};
static_assert(sizeof(RValue) == 16, "scripts, host and module agree on 16 bytes");

/// Releases what a value owns; its kind stays. A string's payload pointer becomes null, an array's stays as it is.
/// Null-safe in the payload. The module defines it, so that another host gets it with the module.
/// @thread any
void FREE_RValue__Pre(RValue* v);

/// Makes `dest` share what `source` holds: one more reference, never a copy of a text or of elements. What `dest` held
/// before is not released. A VALUE_PTR copy does not own the object, whatever the source does.
/// @thread any
void COPY_RValue(RValue* dest, const RValue* source);

/// Appends a value's printed form to a growable text.
///
/// Reals print as integers where they are integral below 1e15, else in the fewest digits that read back the same;
/// strings as they are; bools `true` and `false`; undefined `undefined`; a null pointer `null`; arrays `[ 1,2 ]` and
/// structs `{ a : 1, b : 2 }`, in which one that holds itself directly stands as `null`. Kinds without a text print
/// nothing.
/// @param pos     where to write in the text; moved to the new terminator.
/// @param buffer  the text, host memory; replaced when it has to grow.
/// @param size    bytes allocated at `buffer`.
/// @throws KXRecursionLimit for longer circles and for containers nested deeper than kx::kMaxNesting; std::bad_alloc.
/// @thread script thread
void STRING_RValue(char** pos, char** buffer, int* size, const RValue* v);

/// The undefined value. Never written. The module defines it.
extern RValue g_undefined;

/// A value that is released when it goes out of scope; the real 0 at first.
struct RValueOwner {
    RValueOwner() = default;
    explicit RValueOwner(const RValue& owned) : value(owned) {}
    RValueOwner(const RValueOwner&) = delete;
    RValueOwner& operator=(const RValueOwner&) = delete;
    ~RValueOwner() { FREE_RValue__Pre(&value); }

    RValue value{};
};

/// The visit stamps of the walks over containers: a counter common to all, and the stamp from which a container counts
/// as being walked already, for maps and structs and for lists and arrays.
extern unsigned int g_countSTRING_RValue;
extern unsigned int g_comparisonSTRUCT_RValue;
extern unsigned int g_comparisonARRAY_RValue;

/// One container's turn in a walk, from its first element to after its last. A walk leaves out a container whose turn
/// it is already.
///
///     if (Visit::IsUnderWay(list->m_visited, g_comparisonARRAY_RValue)) return;
///     Visit visit(&list->m_visited, &g_comparisonARRAY_RValue);
///     …its elements…
///
/// A container that holds itself is found out at once. A longer circle within one family is not: each turn raises the
/// threshold past the older stamps. It ends where containers are nested too deep.
/// @thread one walk at a time
class Visit {
public:
    static bool IsUnderWay(unsigned int stamp, unsigned int threshold) { return stamp >= threshold; }

    /// @param threshold  of the container's family.
    Visit(unsigned int* stamp, unsigned int* threshold) : m_threshold(threshold) {
        *threshold = *stamp = ++g_countSTRING_RValue;
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;
    ~Visit() { *m_threshold = ++g_countSTRING_RValue; }

private:
    unsigned int* m_threshold;
};

/// Raises the counter and both thresholds past every stamp, so that a walk that an exception cut short leaves no
/// container marked. Whoever catches such an exception calls it.
/// @thread script thread
void ResetVisits();

/// Thrown where containers are nested too deep to follow. A script error by the time that a script sees it.
struct KXRecursionLimit {};

/// The one lock over the reference counts of strings and arrays. Recursive.
/// @thread any
void LOCK_RVALUE_MUTEX();
void UNLOCK_RVALUE_MUTEX();
