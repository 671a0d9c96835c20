#pragma once

#include <string>
#include <string_view>

/// The text of INI documents: what one line says, and how names and values are written so that they read back as they
/// were. docs/ini.md has the rules and their reasons.
///
/// Texts are bytes without a zero; nothing here asks for UTF-8. Blanks are spaces and tabs.
/// @thread any; no state.
namespace kx {

/// What stands in a line. The views point into it; names and values are still in their written form.
struct IniLineText {
    enum Kind { blank, comment, section, key, unreadable };

    Kind kind = unreadable;
    std::string_view name;   // of a section or a key
    std::string_view value;  // of a key
};

/// A line without the LF or CR LF at its end.
inline std::string_view WithoutLineEnd(std::string_view line) {
    if (line.empty() || line.back() != '\n') return line;
    line.remove_suffix(1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

/// Whether the last line of a text is a blank one, or there is none.
bool EndsInBlankLine(std::string_view text);

/// @param line  without its line end.
IniLineText ReadIniLine(std::string_view line);

/// Takes a written name or value back to the text that it stands for.
/// @param out  at least as many bytes as the written form has; not terminated.
/// @return the text's length.
size_t ReadIniName(std::string_view written, char* out);
size_t ReadIniValue(std::string_view written, char* out);

/// True for a value that is written as it is.
bool IsPlainIniValue(std::string_view value);

/// Appends "[name]", "name" or "value", as simple as it reads back.
void AppendIniHeader(std::string* out, std::string_view name);
void AppendIniName(std::string* out, std::string_view name);
void AppendIniValue(std::string* out, std::string_view value);

/// How the line of a key is laid out: blanks before its name, and around "=".
struct IniKeyLayout {
    std::string_view indent = "";
    std::string_view equals = "=";
};

/// The layout of a line that reads as a key. Runs of blanks around "=" count as one, an indent beyond kx::kMaxIniIndent
/// as none.
IniKeyLayout LayoutOfIniKey(std::string_view line, const IniLineText& read);

/// The mark that some editors put at the start of a file: U+FEFF in UTF-8. At the start of any line it counts as a
/// blank.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace kx
