#pragma once

#include "Files/Buffer/Buffer_Standard.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kx {

/// Rows of texts that share one block of memory, the file's own, with four bytes more for each text.
class TextRows {
public:
    TextRows() = default;

    /// @param text  becomes the block; its bytes are changed.
    explicit TextRows(std::unique_ptr<Buffer_Standard> text) : m_text(std::move(text)) {}

    /// Makes room for so many texts and rows in all.
    /// @throws std::bad_alloc
    void Reserve(size_t texts, size_t rows);

    /// Adds a text at the end of the last row: the block from `start` to the next zero byte.
    void AddText(size_t start) { m_starts.push_back(static_cast<uint32_t>(start)); }

    /// Ends the row that the texts were added to.
    void EndRow();

    [[nodiscard]] int Width() const { return m_width; }  ///< texts in the longest row
    [[nodiscard]] int Height() const { return static_cast<int>(m_rows.size()) - 1; }

    /// @return a text; an empty one where the row is shorter than that.
    /// @param row  one that is there.
    [[nodiscard]] const char* At(int column, int row) const;

private:
    std::unique_ptr<Buffer_Standard> m_text;
    std::vector<uint32_t> m_starts;
    std::vector<uint32_t> m_rows{0};  // index of each row's first text, and of the one after the last
    int m_width = 0;
};

/// Reads CSV text (RFC 4180), as LoadCSV does.
/// @param text   what a file holds.
/// @param fault  set to what is wrong with it, and in which line.
/// @return false then.
/// @throws std::bad_alloc
/// @thread any
[[nodiscard]] bool ReadCsv(std::unique_ptr<Buffer_Standard> text, TextRows* rows, std::string* fault);

}  // namespace kx
