// Lines, names and values of INI documents.
#include "Files/Base/IniFile_Text.h"

#include "Files/Base/Limits.h"

#include <charconv>
#include <cstring>

namespace kx {
namespace {

// Text that a line cannot hold as it is stands between these, with some of its bytes as "%" and two hexadecimal digits.
constexpr std::string_view kEscapedStart = "@text@";
constexpr std::string_view kEscapedEnd = "$text$";

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

bool IsCommentStart(char c) {
    return c == ';' || c == '#';
}

bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

std::string_view WithoutBlanksBefore(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

std::string_view WithoutBlanksAround(std::string_view text) {
    text = WithoutBlanksBefore(text);
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

/// A line from its first character that counts.
std::string_view WithoutIndent(std::string_view line) {
    line = WithoutBlanksBefore(line);
    while (StartsWith(line, kByteOrderMark)) {
        line = WithoutBlanksBefore(line.substr(kByteOrderMark.size()));
    }
    return line;
}

/// The name ends at the first bracket that nothing but a comment follows, "[a] ; see [b]", or, where there is none,
/// at the last one: "[a[0]]", "[a] b". A header without its bracket is still one: the keys below it are its own.
size_t EndOfSectionName(std::string_view line) {
    for (size_t i = line.find(']'); i != std::string_view::npos; i = line.find(']', i + 1)) {
        std::string_view rest = WithoutBlanksBefore(line.substr(i + 1));
        if (rest.empty() || IsCommentStart(rest.front())) return i;
    }
    size_t last = line.rfind(']');
    return last == std::string_view::npos ? line.size() : last;
}

IniLineText ReadSectionLine(std::string_view line) {
    size_t end = EndOfSectionName(line);
    return {IniLineText::section, WithoutBlanksAround(line.substr(1, end - 1)), {}};
}

// --- the escaped form -----------------------------------------------------------------------------------------------

bool IsEscapedInside(char c) {
    auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || c == '%' || c == '=' || c == ']';
}

void AppendEscaped(std::string* out, std::string_view text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    out->append(kEscapedStart);
    for (char c : text) {
        if (!IsEscapedInside(c)) {
            out->push_back(c);
            continue;
        }
        auto byte = static_cast<unsigned char>(c);
        out->push_back('%');
        out->push_back(kDigits[byte >> 4]);
        out->push_back(kDigits[byte & 15]);
    }
    out->append(kEscapedEnd);
}

/// @return the byte that "%" and the two characters after it stand for; 0, which no text has, where they stand for
/// none.
char EscapedByte(std::string_view text, size_t percent) {
    unsigned int byte = 0;
    if (text.size() - percent < 3) return 0;
    const char* digits = text.data() + percent + 1;
    return std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2 ? static_cast<char>(byte) : '\0';
}

/// @return false where the text is no escaped form.
bool ReadEscaped(std::string_view written, char* out, size_t* length) {
    bool marked = written.size() >= kEscapedStart.size() + kEscapedEnd.size() && StartsWith(written, kEscapedStart) &&
                  written.substr(written.size() - kEscapedEnd.size()) == kEscapedEnd;
    if (!marked) return false;
    written.remove_prefix(kEscapedStart.size());
    written.remove_suffix(kEscapedEnd.size());
    char* at = out;
    for (size_t i = 0; i < written.size(); ++i) {
        char c = written[i];
        if (c == '%') {
            c = EscapedByte(written, i);
            if (c == 0) return false;
            i += 2;
        }
        *at++ = c;
    }
    *length = static_cast<size_t>(at - out);
    return true;
}

size_t Copy(std::string_view text, char* out) {
    if (!text.empty()) std::memcpy(out, text.data(), text.size());
    return text.size();
}

// --- what reads back as it is ---------------------------------------------------------------------------------------

bool HasLineBreak(std::string_view text) {
    return text.find('\n') != std::string_view::npos || text.find('\r') != std::string_view::npos;
}

bool NameIs(std::string_view written, std::string_view name) {
    std::string read(written.size(), 0);
    read.resize(ReadIniName(written, read.data()));
    return read == name;
}

bool ReadsBackAsHeader(std::string_view line, std::string_view name) {
    IniLineText read = ReadIniLine(line);
    return read.kind == IniLineText::section && NameIs(read.name, name);
}

bool ReadsBackAsKey(std::string_view line, std::string_view name) {
    IniLineText read = ReadIniLine(line);
    return read.kind == IniLineText::key && NameIs(read.name, name);
}

}  // namespace

bool EndsInBlankLine(std::string_view text) {
    std::string_view contents = WithoutLineEnd(text);
    return ReadIniLine(contents.substr(contents.rfind('\n') + 1)).kind == IniLineText::blank;
}

IniLineText ReadIniLine(std::string_view line) {
    line = WithoutIndent(line);
    if (line.empty()) return {IniLineText::blank, {}, {}};
    if (IsCommentStart(line.front())) return {IniLineText::comment, {}, {}};
    if (line.front() == '[') return ReadSectionLine(line);
    size_t equals = line.find('=');
    if (equals == std::string_view::npos) return {IniLineText::unreadable, {}, {}};
    return {IniLineText::key, WithoutBlanksAround(line.substr(0, equals)),
            WithoutBlanksAround(line.substr(equals + 1))};
}

size_t ReadIniName(std::string_view written, char* out) {
    size_t length;
    return ReadEscaped(written, out, &length) ? length : Copy(written, out);
}

size_t ReadIniValue(std::string_view written, char* out) {
    bool quoted = written.size() >= 2 && written.front() == '"' && written.back() == '"';
    if (quoted) return Copy(written.substr(1, written.size() - 2), out);
    return ReadIniName(written, out);
}

bool IsPlainIniValue(std::string_view value) {
    if (value.empty()) return true;
    if (HasLineBreak(value) || IsBlank(value.front()) || IsBlank(value.back())) return false;
    bool mayMeanAnother = value.front() == '"' || value.front() == kEscapedStart.front();
    if (!mayMeanAnother) return true;
    std::string read(value.size(), 0);
    read.resize(ReadIniValue(value, read.data()));
    return read == value;
}

void AppendIniHeader(std::string* out, std::string_view name) {
    size_t start = out->size();
    out->append("[").append(name).append("]");
    if (!HasLineBreak(name) && ReadsBackAsHeader(std::string_view(*out).substr(start), name)) return;
    out->resize(start + 1);
    AppendEscaped(out, name);
    out->append("]");
}

void AppendIniName(std::string* out, std::string_view name) {
    size_t start = out->size();
    out->append(name).append("=");
    bool plain = !HasLineBreak(name) && ReadsBackAsKey(std::string_view(*out).substr(start), name);
    out->pop_back();
    if (plain) return;
    out->resize(start);
    AppendEscaped(out, name);
}

void AppendIniValue(std::string* out, std::string_view value) {
    if (IsPlainIniValue(value)) {
        out->append(value);
    } else if (HasLineBreak(value)) {
        AppendEscaped(out, value);
    } else {
        out->append("\"").append(value).append("\"");
    }
}

IniKeyLayout LayoutOfIniKey(std::string_view line, const IniLineText& read) {
    auto nameStart = static_cast<size_t>(read.name.data() - line.data());
    size_t nameEnd = nameStart + read.name.size();
    size_t indentStart = nameStart;
    while (indentStart > 0 && IsBlank(line[indentStart - 1])) {
        --indentStart;
    }
    if (nameStart - indentStart > static_cast<size_t>(kMaxIniIndent)) indentStart = nameStart;
    bool spaced = IsBlank(line[nameEnd]);
    return {line.substr(indentStart, nameStart - indentStart), spaced ? " = " : "="};
}

}  // namespace kx
