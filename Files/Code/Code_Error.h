#pragma once

#include <string>

/// Errors and messages.
///
/// KXError raises a script error: the built-in that called it goes on to its return, and the script sees the error
/// then. dbg_csol takes messages that do not stop a script.

/// Raises a script error with a printf-style text; where there is no memory for it, with the text "out of memory". It
/// throws nothing.
/// @thread any; without a handler the error is pending on the thread that raised it.
void KXError(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Called with the text of each error as it is raised, on the raising thread. It must not throw.
typedef void (*KXErrorHandler)(const char* text);

/// @param handler  null for the default: the first error stays pending until it is taken, later ones are dropped.
/// @return the handler before, null for the default.
/// @thread while no script runs
KXErrorHandler KXSetErrorHandler(KXErrorHandler handler);

/// Takes and clears this thread's pending error.
/// @param text  set to the first error raised since the last take; untouched where there is none.
/// @return true where there was one.
bool KXTakeError(std::string* text);

/// Where messages go. Virtual operations in this order.
struct tagIConsole {
    virtual ~tagIConsole() = default;
    virtual void Create() {}

    /// Writes a printf-style text, which ends with a line feed. It must not throw: the default one writes the bare
    /// format where there is no memory for the text.
    /// @thread any
    virtual void Output(const char* format, ...) __attribute__((format(printf, 2, 3))) = 0;
};
typedef tagIConsole IConsole;

/// The console in use; never null. An embedder may point it at one of its own, which has to live as long.
/// The default one writes to standard error at once, whole lines at a time, control characters shown as "?".
extern IConsole* dbg_csol;
