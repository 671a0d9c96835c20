// INI documents as text: what has not changed as it was, the rest anew.
#include "Files/Base/IniFile.h"
#include "Files/Base/Limits.h"
#include "Files/Code/Code_Error.h"
#include "Files/IO/LoadSave.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

using kx::IniKeyLayout;

namespace {

/// Builds a document's text in host memory, line after line.
class TextWriter {
public:
    TextWriter(int size, const char* lineEnd, bool mark, bool anew) : m_lineEnd(lineEnd), m_anew(anew) {
        Grow(static_cast<size_t>(size) + static_cast<size_t>(size) / 4);  // changed values tend to be longer
        if (mark) Append(kx::kByteOrderMark);
        m_start = m_size;
    }

    void Add(const IniLine& line) {
        bool isGone = line.kind == IniLine::header && line.section->m_isGone;
        if (isGone) return;
        bool asItWas = line.text && !line.rewritten && !(m_anew && line.kind == IniLine::key);
        if (asItWas) {
            StartLine();
            Append(TextOf(line));
            if (line.kind == IniLine::key) Model(line);
        } else if (line.kind == IniLine::header) {
            AddHeader(*line.section);
        } else if (line.owner->m_pLine == &line) {
            AddKey(line);
        }
    }

    /// The last line has an end where the whole text is made anew.
    void Finish() {
        if (m_anew) StartLine();
    }

    [[nodiscard]] bool IsTooLarge() const { return m_size > static_cast<size_t>(kx::kMaxFileBytes); }
    [[nodiscard]] std::string_view Text() const { return {m_out.text, m_size}; }

    /// The text without the lines that hold zero bytes, terminated.
    char* TakeWithoutZeroBytes() {
        RemoveLinesWithZeroBytes();
        m_out.text[m_size] = 0;
        return m_out.Release();
    }

private:
    static std::string_view TextOf(const IniLine& line) { return {line.text, static_cast<size_t>(line.length)}; }

    [[nodiscard]] std::string_view Written() const { return Text().substr(m_start); }

    void Append(std::string_view text) {
        if (text.size() > m_room - m_size) Grow(text.size());
        std::memcpy(m_out.text + m_size, text.data(), text.size());
        m_size += text.size();
    }

    /// Makes room for more, and for a terminator.
    void Grow(size_t more) {
        constexpr size_t kMost = UINT_MAX - 1;
        if (more > kMost - m_size) throw std::bad_alloc();
        size_t room = std::max(m_size + more, m_room > kMost / 2 ? kMost : m_room * 2);
        auto size = static_cast<unsigned int>(room + 1);
        m_out.text = static_cast<char*>(MemoryManager::ReAlloc(m_out.text, size, __FILE__, __LINE__, false));
        m_room = room;
    }

    void AppendValue(std::string_view value) {
        if (kx::IsPlainIniValue(value)) {
            Append(value);
        } else {
            AppendWritten(kx::AppendIniValue, value);
        }
    }

    /// Appends a name or a value in the form that it has in a line.
    void AppendWritten(void (*append)(std::string*, std::string_view), std::string_view text) {
        m_written.clear();
        append(&m_written, text);
        Append(m_written);
    }

    /// Ends the line before, which was the file's last and may have had no end. A CR there was part of the text.
    void StartLine() {
        std::string_view written = Written();
        if (written.empty() || written.back() == '\n') return;
        Append(written.back() == '\r' ? "\r\n" : m_lineEnd);
    }

    void AddHeader(const Section& section) {
        StartLine();
        if (!kx::EndsInBlankLine(Written())) Append(m_lineEnd);
        AppendWritten(kx::AppendIniHeader, section.m_pName);
        Append(m_lineEnd);
    }

    void AddKey(const IniLine& line) {
        StartLine();
        if (line.text && !m_anew) {
            AddKeyInItsPlace(line);
            Model(line);
            return;
        }
        const IniKeyLayout& layout = Layout();
        Append(layout.indent);
        AppendWritten(kx::AppendIniName, line.owner->m_pKey);
        Append(layout.equals);
        AppendValue(line.owner->m_pValue);
        Append(m_lineEnd);
    }

    /// Another value in a line that stays as it is before and after it.
    void AddKeyInItsPlace(const IniLine& line) {
        std::string_view text = TextOf(line);
        Append(text.substr(0, line.owner->m_valueAt));
        AppendValue(line.owner->m_pValue);
        Append(text.substr(kx::WithoutLineEnd(text).size()));
    }

    /// The lines of new keys look like the key before them.
    void Model(const IniLine& line) { m_model = &line; }

    const IniKeyLayout& Layout() {
        if (!m_model) return m_layout;
        std::string_view contents = kx::WithoutLineEnd(TextOf(*m_model));
        m_layout = kx::LayoutOfIniKey(contents, kx::ReadIniLine(contents));
        m_model = nullptr;
        return m_layout;
    }

    void RemoveLinesWithZeroBytes() {
        std::string_view text = Text();
        char* end = m_out.text;
        size_t from = 0;
        for (size_t zero = text.find('\0'); zero != std::string::npos; zero = text.find('\0', from)) {
            size_t lineStart = text.rfind('\n', zero) + 1;
            end = Move(end, text.substr(from, lineStart - from));
            from = std::min(text.find('\n', zero), text.size() - 1) + 1;
        }
        if (from > 0) m_size = static_cast<size_t>(Move(end, text.substr(from)) - m_out.text);
    }

    static char* Move(char* to, std::string_view text) {
        std::memmove(to, text.data(), text.size());
        return to + text.size();
    }

    const char* m_lineEnd;
    bool m_anew;
    const IniLine* m_model = nullptr;  // the last key's line that was loaded, until its layout is known
    IniKeyLayout m_layout;
    HostText m_out{nullptr};
    size_t m_size = 0;
    size_t m_room = 0;      // a terminator fits besides
    size_t m_start = 0;     // after a byte order mark
    std::string m_written;  // what AppendWritten works in
};

}  // namespace

char* IniFile::WriteIniFile() {
    TextWriter writer(m_Size, m_lineEnd, m_hasMark, m_anew);
    for (const IniLine* line = m_pFirstLine; line && !writer.IsTooLarge(); line = line->next) {
        writer.Add(*line);
    }
    writer.Finish();
    if (writer.IsTooLarge()) {
        const char* name = m_pFileName ? m_pFileName : "INI text";
        dbg_csol->Output("Failed to write file: %s (%s)\n", name, std::strerror(EFBIG));
        return nullptr;
    }
    if (m_pFileName && m_Changed && Save(writer.Text())) m_Changed = false;
    return writer.TakeWithoutZeroBytes();
}

bool IniFile::Save(std::string_view text) {
    if (m_unread) {
        const char* reason = m_unread == EXDEV ? "its name was refused" : "it could not be read, and would be lost";
        dbg_csol->Output("Failed to write file: %s (%s)\n", m_pFileName, reason);
        return false;
    }
    return LoadSave::WriteFile(m_pFileName, text.data(), static_cast<int>(text.size()), nullptr) == 1;
}
