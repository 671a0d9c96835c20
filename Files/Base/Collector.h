#pragma once

#include "Files/Base/RValue.h"

/// Owns every struct and array, and frees what nothing leads to any more.
///
/// Arrays count their references and go with the last one; structs do not, and neither does anything that holds itself
/// in a circle. A collection follows the values in maps, lists and grids, the values that an embedder has named as
/// roots, and the arrays that anything outside structs, arrays and containers still counts a reference to. Structs that
/// it does not reach are freed, arrays emptied.
///
///     RValue kept{};                      // an embedder's own
///     Collector::AddRoot(&kept);
///     …json_parse into kept…
///     Collector::SafePoint();             // between calls, where no built-in is running
///     Collector::RemoveRoot(&kept);
///
/// Wrong: collecting while a struct is held by a plain variable only.
/// @thread script thread
class Collector {
public:
    /// Names a value as one that an embedder holds, where it stands: what it holds later counts too.
    /// @throws std::bad_alloc
    static void AddRoot(const RValue* value);
    static void RemoveRoot(const RValue* value);

    /// Frees what cannot be reached. Without the memory for its own work it frees nothing.
    static void Collect();

    /// @return true when there are more than twice as many structs and arrays as the last collection left, or twice the
    ///         bytes of host memory, and so many that it is worth one.
    static bool IsDue();

    /// For a host between two calls: collects when that is due, and renumbers the visit stamps long before their
    /// counter could wrap.
    static void SafePoint();

    struct Statistics {
        long long structs;  ///< alive now
        long long arrays;
    };
    static Statistics Stats();

    // For structs and arrays themselves.
    static void Adopt(KXObjectBase* object);
    static void Adopt(RefDynamicArrayOfRValue* array);
    static void Forget(RefDynamicArrayOfRValue* array);

private:
    class Walk;

    template <class Object>
    static void Link(Object** first, Object* object);
    template <class Object>
    static void Unlink(Object** first, Object* object);
    static void Free(KXObjectBase* object);
};
