// Any bytes as CSV: the cells are those that a reader finds which takes one character after the other, and they read
// back the same once they are written.
#include "Files/Support/Csv.h"
#include "Files/Base/Limits.h"
#include "fuzz/Host.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace kx::fuzz {
namespace {

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

/// RFC 4180, one character after the other.
class PlainReader {
public:
    explicit PlainReader(std::string_view text) : m_rest(text) {}

    /// @return nothing where quotes are never closed.
    std::optional<Rows> Read() {
        if (m_rest.substr(0, 3) == "\xEF\xBB\xBF") m_rest.remove_prefix(3);
        while (!m_rest.empty()) {
            m_rows.emplace_back();
            while (TakeCell()) {
            }
            if (m_open) return std::nullopt;
        }
        return std::move(m_rows);
    }

private:
    /// @return whether another cell of the row follows.
    bool TakeCell() {
        std::string cell;
        if (!m_rest.empty() && m_rest[0] == '"') TakeQuoted(&cell);
        while (!m_rest.empty()) {
            char c = m_rest[0];
            bool lineEnd = c == '\n' || m_rest.substr(0, 2) == "\r\n";
            if (c == ',' || lineEnd) {
                m_rows.back().push_back(cell);
                m_rest.remove_prefix(c == '\r' ? 2 : 1);
                return c == ',';
            }
            cell += c;
            m_rest.remove_prefix(1);
        }
        m_rows.back().push_back(cell);
        return false;
    }

    void TakeQuoted(std::string* cell) {
        m_open = true;
        m_rest.remove_prefix(1);
        while (m_open && !m_rest.empty()) {
            bool twice = m_rest.substr(0, 2) == "\"\"";
            m_open = m_rest[0] != '"' || twice;
            if (m_open) *cell += m_rest[0];
            m_rest.remove_prefix(twice ? 2 : 1);
        }
    }

    std::string_view m_rest;
    Rows m_rows;
    bool m_open = false;
};

/// @return false, with `read` as it was, for what is no CSV.
bool Read(const std::string& text, TextRows* read) {
    auto buffer = std::make_unique<Buffer_Standard>(0, eBuffer_Format_Grow, 1);
    buffer->Write(text.data(), static_cast<int>(text.size()));
    std::string fault;
    bool done = ReadCsv(std::move(buffer), read, &fault);
    Require(done == fault.empty(), "what cannot be read has a reason", text);
    return done;
}

/// Whether a row is that and, where others are longer, filled up with empty cells.
bool IsRow(const TextRows& read, int row, const Row& expected) {
    auto count = static_cast<int>(expected.size());
    for (int column = 0; column < count; ++column) {
        if (read.At(column, row) != expected[static_cast<size_t>(column)]) return false;
    }
    return count <= read.Width() && (count == read.Width() || !*read.At(read.Width() - 1, row));
}

bool AreRows(const TextRows& read, const Rows& expected) {
    if (read.Height() != static_cast<int>(expected.size())) return false;
    size_t width = 0;
    for (int row = 0; row < read.Height(); ++row) {
        const Row& cells = expected[static_cast<size_t>(row)];
        width = std::max(width, cells.size());
        if (!IsRow(read, row, cells)) return false;
    }
    return read.Width() == static_cast<int>(width);
}

std::string Write(const Rows& rows) {
    std::string text;
    for (const Row& row : rows) {
        for (const std::string& cell : row) {
            if (&cell != &row.front()) text += ',';
            text += '"';
            for (char c : cell) {
                text.append(c == '"' ? 2 : 1, c);
            }
            text += '"';
        }
        text += '\n';
    }
    return text;
}

void Check(const std::string& text) {
    TextRows rows;
    bool read = Read(text, &rows);
    bool hasZero = text.find('\0') != std::string::npos;
    std::optional<Rows> expected = hasZero ? std::nullopt : PlainReader(text).Read();
    Require(read == expected.has_value(), "what is CSV is read, and nothing else", text);
    if (!read) return;
    Require(AreRows(rows, *expected), "the cells are those of the text", text);
    TextRows again;
    Require(Read(Write(*expected), &again) && AreRows(again, *expected), "written cells read back the same", text);
}

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    kx::fuzz::Check(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
