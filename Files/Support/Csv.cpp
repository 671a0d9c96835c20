// Reading CSV.
#include "Files/Support/Csv.h"

#include "Files/Base/Limits.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kx {

void TextRows::Reserve(size_t texts, size_t rows) {
    m_starts.reserve(texts);
    m_rows.reserve(rows + 1);
}

void TextRows::EndRow() {
    auto end = static_cast<uint32_t>(m_starts.size());
    m_width = std::max(m_width, static_cast<int>(end - m_rows.back()));
    m_rows.push_back(end);
}

const char* TextRows::At(int column, int row) const {
    auto index = static_cast<size_t>(row);
    uint64_t text = static_cast<uint64_t>(m_rows[index]) + static_cast<uint64_t>(column);
    return text < m_rows[index + 1] ? m_text->m_data + m_starts[static_cast<size_t>(text)] : "";
}

namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

/// Splits the text where it stands: cells end with a zero byte in the place of what separates them.
class Scanner {
public:
    Scanner(char* origin, char* begin, char* end, TextRows* rows)
        : m_origin(origin), m_at(begin), m_end(end), m_rows(rows) {}

    /// @return the number of the line whose quotes are never closed; 0 for none.
    size_t Run() {
        while (m_at < m_end) {
            m_lineEnd = Find('\n', m_end);
            if (m_quote < m_at) m_quote = Find('"', m_end);
            if (m_quote >= m_lineEnd) {
                SplitPlainLine();
            } else if (!SplitQuotedRow()) {
                return m_line;
            }
            m_rows->EndRow();
        }
        return 0;
    }

private:
    /// @return where a character is between here and an end; the end where it is not.
    char* Find(char c, char* end) const {
        auto* found = static_cast<char*>(std::memchr(m_at, c, static_cast<size_t>(end - m_at)));
        return found ? found : end;
    }

    /// Before a line feed a carriage return belongs to it.
    char* WithoutLineEnd(char* stop) const {
        bool carriageReturn = stop == m_lineEnd && stop < m_end && stop > m_at && stop[-1] == '\r';
        return carriageReturn ? stop - 1 : stop;
    }

    void AddText() { m_rows->AddText(static_cast<size_t>(m_at - m_origin)); }

    void GoPast(char* separator) {
        m_at = std::min(separator + 1, m_end);
        if (separator == m_lineEnd) ++m_line;
    }

    void SplitPlainLine() {
        char* stop = WithoutLineEnd(m_lineEnd);
        for (;;) {
            AddText();
            char* comma = Find(',', stop);
            *comma = 0;  // at the very end the buffer has a zero byte of its own
            if (comma == stop) break;
            m_at = comma + 1;
        }
        GoPast(m_lineEnd);
    }

    /// Splits a row with quotes, which may go over several lines.
    /// @return false where they are never closed.
    bool SplitQuotedRow() {
        for (;;) {
            AddText();
            char* text = m_at;  // where the cell's next byte goes
            bool quoted = m_at < m_end && *m_at == '"';
            if (quoted && !TakeQuoted(&text)) return false;
            char* separator = Find(',', m_lineEnd);
            Move(&text, WithoutLineEnd(separator));
            *text = 0;
            GoPast(separator);
            if (separator == m_lineEnd) return true;
        }
    }

    /// Takes a cell's text from its opening quote through the closing one.
    bool TakeQuoted(char** text) {
        size_t lines = 0;
        for (++m_at;; ++m_at) {
            char* quote = Find('"', m_end);
            if (quote == m_end) return false;
            lines += static_cast<size_t>(std::count(m_at, quote, '\n'));
            bool twice = quote + 1 < m_end && quote[1] == '"';
            Move(text, twice ? quote + 1 : quote);
            m_at = quote + 1;
            if (!twice) break;
        }
        m_line += lines;
        if (m_lineEnd < m_at) m_lineEnd = Find('\n', m_end);
        return true;
    }

    /// Moves what stands before an end to where a cell's text goes on.
    void Move(char** text, const char* end) {
        auto size = static_cast<size_t>(end - m_at);
        if (*text != m_at) std::memmove(*text, m_at, size);
        *text += size;
    }

    char* m_origin;
    char* m_at;
    char* m_end;
    char* m_lineEnd = nullptr;  // the next one, or the end
    char* m_quote = nullptr;    // likewise
    size_t m_line = 1;
    TextRows* m_rows;
};

std::string InLine(const char* what, size_t line) {
    return what + std::to_string(line);
}

}  // namespace

bool ReadCsv(std::unique_ptr<Buffer_Standard> text, TextRows* rows, std::string* fault) {
    char* origin = text->m_data;
    char* end = origin + text->m_size;
    if (text->m_size > kMaxCsvBytes) {
        *fault = "more than " + std::to_string(kMaxCsvBytes) + " bytes";
        return false;
    }
    if (auto* zero = static_cast<char*>(std::memchr(origin, 0, static_cast<size_t>(text->m_size)))) {
        *fault = InLine("a zero byte in line ", 1 + static_cast<size_t>(std::count(origin, zero, '\n')));
        return false;
    }
    bool marked = std::string_view(origin, static_cast<size_t>(text->m_size)).substr(0, 3) == kByteOrderMark;
    auto lines = static_cast<size_t>(std::count(origin, end, '\n')) + 1;
    auto commas = static_cast<size_t>(std::count(origin, end, ','));
    TextRows read(std::move(text));
    read.Reserve(commas + lines, lines);  // what is quoted is none; room that is not used takes no memory
    if (size_t line = Scanner(origin, marked ? origin + 3 : origin, end, &read).Run()) {
        *fault = InLine("the quotes of line ", line) + " are never closed";
        return false;
    }
    uint64_t cells = static_cast<uint64_t>(read.Width()) * static_cast<uint64_t>(read.Height());
    uint64_t most = static_cast<uint64_t>(end - origin) + kMaxFilledCells;
    if (cells > most) {
        *fault = "its shorter rows would be filled up to more than " + std::to_string(most) + " cells";
        return false;
    }
    *rows = std::move(read);
    return true;
}

}  // namespace kx
