#pragma once

#include "Files/Base/RValue.h"

class CInstance;

/// Built-ins: the table that the interpreter calls through, and what a handler uses to read its arguments and to make
/// its result.

/// A built-in's handler. It fills the result; it does not check the count, which is the interpreter's to check.
typedef void (*TRoutine)(RValue& result, CInstance* self, CInstance* other, int argc, RValue* arg);

struct FunctionRecord {
    const char* name;
    TRoutine routine;
    int argc;   ///< arguments that scripts pass
    bool flag;  ///< as registered; this host does nothing with it
};

/// Makes a handler callable from scripts. A name that is there already gets the new handler.
/// @param name  copied.
/// @thread main thread, while no script runs
void Function_Add(const char* name, TRoutine routine, int argc, bool flag);

/// @return the record, which lives as long as the process; null where the name is unknown.
const FunctionRecord* Function_Find(const char* name);

/// The records in the order in which their names were first added, index from 0; null beyond the end.
int Function_Count();
const FunctionRecord* Function_At(int index);

/// The text of an argument.
/// @return a string's own text, which belongs to the argument; for a real, an integer and a bool the text that
///         STRING_RValue prints, which lives through the call; null for every other kind and a string with no text.
const char* KXGetString(const RValue* args, int index);

/// The number of an argument: numbers and bools by their value, a string that is wholly a number by its value, anything
/// else 0. The integer is cut toward zero and stops at the ends of its range; NaN is 0.
int KXGetInt32(const RValue* args, int index);
double KXGetReal(const RValue* args, int index);

/// Makes a value a string that holds a copy of a text; null makes the empty string. What it held is not released.
/// @throws std::bad_alloc
void KXCreateString(RValue* result, const char* text);

/// The same for a name, which is likely to come again: within a KXNames one copy serves all.
void KXSetString(RValue* value, const char* text);

/// While one lives, its thread's names are shared: the ten thousand members "x" of a document hold one text.
///
///     KXNames names;
///     …KXSetString for every member…
///
/// It keeps a short list of those that came last; one inside another is that other.
class KXNames {
public:
    KXNames();
    KXNames(const KXNames&) = delete;
    KXNames& operator=(const KXNames&) = delete;
    ~KXNames();

private:
    friend void KXSetString(RValue* value, const char* text);
    void Share(RValue* value, const char* text);

    static constexpr unsigned int kNames = 128;

    static thread_local KXNames* t_current;
    KXNames* m_outer;
    RValue m_names[kNames];  // each where its text's hash puts it; undefined where there is none
};
