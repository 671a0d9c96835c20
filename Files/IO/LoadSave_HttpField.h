#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Header fields of HTTP messages (RFC 9110, section 5).
namespace kx {

struct HttpField {
    std::string name;
    std::string value;
};
using HttpFields = std::vector<HttpField>;

/// @return true for a method, and for a field's name.
bool IsHttpToken(std::string_view text);

/// Names are the same in capitals and in small letters.
bool IsSameHttpName(std::string_view a, std::string_view b);

/// @return the field of a name; null where there is none.
const HttpField* FindHttpField(const HttpFields& fields, std::string_view name);

/// Reads lines "Name: value\r\n"; the last line's end may be missing.
/// @return false where one is no field: it holds control characters, or its name is none. Nothing is set then.
bool ReadHttpFields(std::string_view lines, HttpFields* fields);

/// @return true where a field may be sent to an origin that a redirect has led to: it can hold neither key nor cookie.
bool GoesToAnotherOrigin(const HttpField& field);

/// The header of an answer, line by line as it comes in.
class HttpAnswer {
public:
    /// Forgets everything, for a new request.
    void Reset();

    /// Takes a line with its end: a status line, which begins a new answer, a field, the empty line after the last
    /// one. What comes then, the trailer, is counted and passed over.
    /// @return null, or what is wrong with it.
    /// @throws std::bad_alloc
    const char* Take(std::string_view line);

    /// @return true once the empty line has come.
    [[nodiscard]] bool IsComplete() const { return m_complete; }

    /// Where a redirect leads; empty where the answer does not say.
    [[nodiscard]] const std::string& Location() const { return m_location; }

    /// The codings of the body; empty for none.
    [[nodiscard]] const std::string& Encoding() const { return m_encoding; }

    /// Bytes of all lines since the reset.
    [[nodiscard]] int Bytes() const { return m_bytes; }

    /// Calls back for each field in its order, with its name in lower case; those of one name may come apart.
    /// @throws std::bad_alloc
    template <class Visit>
    void ForEachField(Visit visit) const {
        std::string_view rest = m_fields;
        HttpField field;
        while (TakeField(&rest, &field)) {
            visit(field);
        }
    }

private:
    void Begin();
    const char* CheckField(std::string_view line);
    static bool TakeField(std::string_view* lines, HttpField* field);

    std::string m_fields;  // lines that end with a line feed
    std::string m_location;
    std::string m_encoding;
    std::string m_length;  // the Content-Length
    bool m_complete = false;
    int m_count = 0;
    int m_bytes = 0;
};

}  // namespace kx
