// Script errors, pending until the interpreter takes them, and the debug console.
#include "Files/Code/Code_Error.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <mutex>
#include <unistd.h>
#include <utility>

namespace {

/// In the place of a text that there is no memory for: short enough to need none.
constexpr char kNoMemory[] = "out of memory";

KXErrorHandler g_handler = nullptr;

thread_local bool t_raised = false;  // apart from the text: asked after every call of a built-in
thread_local std::string t_text;

/// @return false where there is no memory for the text.
bool Format(std::string* text, const char* format, va_list arguments) noexcept {
    va_list again;
    va_copy(again, arguments);
    int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    try {
        text->assign(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    } catch (const std::exception&) {  // or no text is that long
        return false;
    }
    if (length > 0) std::vsnprintf(text->data(), text->size() + 1, format, arguments);
    return true;
}

/// Messages quote names that scripts and archives made up: nothing of them may drive the terminal.
void ShowControlCharacters(std::string* text) {
    for (size_t i = 0; i < text->size(); ++i) {
        char& c = (*text)[i];
        bool control = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
        if (control && c != '\n' && c != '\t') c = '?';
        auto next = static_cast<unsigned char>(i + 1 < text->size() ? (*text)[i + 1] : 0);
        bool upper = c == '\xC2' && next >= 0x80 && next < 0xA0;  // U+0080 to U+009F
        if (upper) text->replace(i, 2, "?");
    }
}

class StandardErrorConsole : public IConsole {
public:
    void Output(const char* format, ...) override __attribute__((format(printf, 2, 3))) {
        va_list arguments;
        va_start(arguments, format);
        std::string text;
        bool formatted = Format(&text, format, arguments);
        va_end(arguments);
        ShowControlCharacters(&text);

        std::lock_guard<std::mutex> lock(m_mutex);
        if (!formatted || !Keep(text)) {
            WriteOut(std::exchange(m_pending, std::string()));
            WriteOut(formatted ? text.c_str() : format);  // better than nothing
            return;
        }
        size_t end = m_pending.rfind('\n');
        if (end == std::string::npos) return;
        WriteOut(std::string_view(m_pending).substr(0, end + 1));
        m_pending.erase(0, end + 1);
    }

private:
    /// @return false where there is no memory for it.
    bool Keep(const std::string& text) noexcept {
        try {
            m_pending += text;
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }

    static void WriteOut(std::string_view text) {
        while (!text.empty()) {
            ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return;  // nobody is left to be told
            text.remove_prefix(static_cast<size_t>(written));
        }
    }

    std::mutex m_mutex;
    std::string m_pending;  // the start of a line
};

}  // namespace

IConsole* dbg_csol = new StandardErrorConsole;  // outlives every static object that may report something

void KXError(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text;
    bool formatted = Format(&text, format, arguments);
    va_end(arguments);
    if (!formatted) text = kNoMemory;

    if (g_handler) {
        g_handler(text.c_str());
    } else if (!t_raised) {
        t_raised = true;
        t_text = std::move(text);
    }
}

KXErrorHandler KXSetErrorHandler(KXErrorHandler handler) {
    return std::exchange(g_handler, handler);
}

bool KXTakeError(std::string* text) {
    if (!t_raised) return false;
    t_raised = false;
    *text = std::exchange(t_text, std::string());
    return true;
}
