// Header fields of HTTP messages.
#include "Files/IO/LoadSave_HttpField.h"

#include "Files/Base/Limits.h"

#include <algorithm>

namespace kx {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kBlanks = " \t";
constexpr size_t kUsualBytes = 512;  // of an answer's fields

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return Lower(c); });
    return lower;
}

bool IsTokenCharacter(char c) {
    bool letterOrDigit = (c >= '0' && c <= '9') || (Lower(c) >= 'a' && Lower(c) <= 'z');
    return letterOrDigit || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool IsValueCharacter(char c) {
    return c == '\t' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
}

std::string_view Trim(std::string_view text) {
    size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// Splits a line at its colon.
/// @return false where it has none, or nothing before it.
bool Split(std::string_view line, std::string_view* name, std::string_view* value) {
    size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    *name = line.substr(0, colon);
    *value = Trim(line.substr(colon + 1));
    return true;
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

/// Takes the first of lines that end with a line feed, without its end.
std::string_view TakeLine(std::string_view* lines) {
    std::string_view line = lines->substr(0, lines->find('\n'));
    lines->remove_prefix(line.size() + 1);
    return line;
}

bool IsNumber(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

bool IsHttpToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), IsTokenCharacter);
}

bool IsSameHttpName(std::string_view a, std::string_view b) {
    auto same = [](char x, char y) { return Lower(x) == Lower(y); };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

const HttpField* FindHttpField(const HttpFields& fields, std::string_view name) {
    for (const HttpField& field : fields) {
        if (IsSameHttpName(field.name, name)) return &field;
    }
    return nullptr;
}

bool ReadHttpFields(std::string_view lines, HttpFields* fields) {
    HttpFields read;
    while (!lines.empty()) {
        size_t end = lines.find(kLineEnd);
        std::string_view line = lines.substr(0, end);
        std::string_view name;
        std::string_view value;
        bool valid = Split(line, &name, &value) && IsHttpToken(name) &&
                     std::all_of(value.begin(), value.end(), IsValueCharacter);
        if (!valid) return false;
        read.push_back({std::string(name), std::string(value)});
        lines = end == std::string_view::npos ? std::string_view() : lines.substr(end + kLineEnd.size());
    }
    *fields = std::move(read);
    return true;
}

bool GoesToAnotherOrigin(const HttpField& field) {
    constexpr std::string_view kAccept = "Accept";
    if (IsSameHttpName(std::string_view(field.name).substr(0, kAccept.size()), kAccept)) return true;
    for (const char* name : {"Content-Type", "User-Agent", "Range"}) {
        if (IsSameHttpName(field.name, name)) return true;
    }
    return false;
}

void HttpAnswer::Reset() {
    Begin();
    m_count = 0;
    m_bytes = 0;
}

void HttpAnswer::Begin() {
    m_fields.clear();
    m_location.clear();
    m_encoding.clear();
    m_length.clear();
    m_complete = false;
}

const char* HttpAnswer::Take(std::string_view line) {
    if (line.size() > static_cast<size_t>(kMaxHttpHeaderBytes - m_bytes)) return "the header is too long";
    m_bytes += static_cast<int>(line.size());
    if (++m_count > kMaxHttpHeaders) return "the header has too many fields";

    line = line.substr(0, line.find_last_not_of(kLineEnd) + 1);
    bool begins = line.substr(0, 5) == "HTTP/" && (m_complete || m_fields.empty());
    if (begins) {
        Begin();
        return nullptr;
    }
    if (m_complete) return nullptr;
    if (line.empty()) {
        m_complete = true;
        return nullptr;
    }
    if (m_fields.empty()) m_fields.reserve(kUsualBytes);
    m_fields.append(line).append("\n");
    return CheckField(line);
}

const char* HttpAnswer::CheckField(std::string_view line) {
    constexpr std::string_view kFirstLetters = "clt";
    if (kFirstLetters.find(Lower(line.front())) == std::string_view::npos) return nullptr;  // most of them
    std::string_view name;
    std::string_view value;
    if (!Split(line, &name, &value)) return nullptr;
    if (IsSameHttpName(name, "Location") && m_location.empty()) m_location = value;
    bool framesOddly = IsSameHttpName(name, "Transfer-Encoding") && !IsSameHttpName(value, "chunked");
    if (framesOddly) return "the Transfer-Encoding is not chunked";
    if (IsSameHttpName(name, "Content-Encoding")) m_encoding += (m_encoding.empty() ? "" : ", ") + Lower(value);
    if (!IsSameHttpName(name, "Content-Length")) return nullptr;
    constexpr size_t kMostDigits = 18;  // of a number that 64 bits hold
    if (!IsNumber(value) || value.size() > kMostDigits) return "the Content-Length is no number";
    if (!m_length.empty() && m_length != value) return "two different Content-Lengths";
    m_length = value;
    return nullptr;
}

/// What says nothing is left out.
bool HttpAnswer::TakeField(std::string_view* lines, HttpField* field) {
    std::string_view name;
    std::string_view value;
    bool found = false;
    while (!found && !lines->empty()) {
        std::string_view line = TakeLine(lines);
        found = Split(line, &name, &value);
    }
    if (!found) return false;
    field->name = Lower(Trim(name));
    field->value = value;
    while (!lines->empty() && IsBlank(lines->front())) {
        field->value.append(" ").append(Trim(TakeLine(lines)));  // a folded line
    }
    return true;
}

}  // namespace kx
