// INI documents as text: what has not changed as it was, the rest anew.
#include "Files/Base/IniFile.h"
#include "Files/Base/Limits.h"
#include "Files/Code/Code_Error.h"
#include "Files/IO/LoadSave.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

using kx::IniKeyLayout;
using kx::IniLineText;

namespace {

/// Builds a document's text, line after line.
class TextWriter {
public:
    TextWriter(size_t size, const char* lineEnd, bool mark, bool anew) : m_lineEnd(lineEnd), m_anew(anew) {
        m_out.reserve(size);
        if (mark) m_out.append(kx::kByteOrderMark);
        m_start = m_out.size();
    }

    void Add(const IniLine& line) {
        bool isGone = line.kind == IniLine::header && line.section->m_isGone;
        if (isGone) return;
        bool asItWas = line.text && !line.rewritten && !(m_anew && line.kind == IniLine::key);
        if (asItWas) {
            StartLine();
            m_out.append(line.text, static_cast<size_t>(line.length));
            if (line.kind == IniLine::key) Model(line);
        } else if (line.kind == IniLine::header) {
            AddHeader(*line.section);
        } else if (line.owner->m_pLine == &line) {
            AddKey(line);
        }
    }

    [[nodiscard]] bool IsTooLarge() const { return m_out.size() > static_cast<size_t>(kx::kMaxFileBytes); }

    std::string Take() {
        if (m_anew) StartLine();
        return std::move(m_out);
    }

private:
    [[nodiscard]] std::string_view Written() const { return std::string_view(m_out).substr(m_start); }

    /// Ends the line before, which was the file's last and may have had no end. A CR there was part of the text.
    void StartLine() {
        std::string_view written = Written();
        if (written.empty() || written.back() == '\n') return;
        m_out.append(written.back() == '\r' ? "\r\n" : m_lineEnd);
    }

    void AddHeader(const Section& section) {
        StartLine();
        if (!kx::EndsInBlankLine(Written())) m_out.append(m_lineEnd);
        kx::AppendIniHeader(&m_out, section.m_pName);
        m_out.append(m_lineEnd);
    }

    void AddKey(const IniLine& line) {
        StartLine();
        if (line.text && !m_anew) {
            AddKeyInItsPlace(line);
            Model(line);
            return;
        }
        const IniKeyLayout& layout = Layout();
        m_out.append(layout.indent);
        kx::AppendIniName(&m_out, line.owner->m_pKey);
        m_out.append(layout.equals);
        kx::AppendIniValue(&m_out, line.owner->m_pValue);
        m_out.append(m_lineEnd);
    }

    /// Another value in a line that stays as it is before and after it.
    void AddKeyInItsPlace(const IniLine& line) {
        std::string_view text(line.text, static_cast<size_t>(line.length));
        std::string_view contents = kx::WithoutLineEnd(text);
        std::string_view value = kx::ReadIniLine(contents).value;
        m_out.append(contents.substr(0, static_cast<size_t>(value.data() - contents.data())));
        kx::AppendIniValue(&m_out, line.owner->m_pValue);
        m_out.append(text.substr(contents.size()));
    }

    /// The lines of new keys look like the key before them.
    void Model(const IniLine& line) { m_model = &line; }

    const IniKeyLayout& Layout() {
        if (!m_model) return m_layout;
        std::string_view contents = kx::WithoutLineEnd({m_model->text, static_cast<size_t>(m_model->length)});
        m_layout = kx::LayoutOfIniKey(contents, kx::ReadIniLine(contents));
        m_model = nullptr;
        return m_layout;
    }

    const char* m_lineEnd;
    bool m_anew;
    const IniLine* m_model = nullptr;  // the last key's line that was loaded, until its layout is known
    IniKeyLayout m_layout;
    std::string m_out;
    size_t m_start = 0;  // after a byte order mark
};

/// A copy in host memory, without the lines that a text cannot hold.
char* WithoutZeroBytes(const std::string& text) {
    auto room = static_cast<unsigned int>(text.size() + 1);
    auto* copy = static_cast<char*>(MemoryManager::Alloc(room, __FILE__, __LINE__, false));
    char* end = copy;
    size_t from = 0;
    for (size_t zero = text.find('\0'); zero != std::string::npos; zero = text.find('\0', from)) {
        size_t lineStart = text.rfind('\n', zero) + 1;
        if (lineStart > from) end = std::copy(text.data() + from, text.data() + lineStart, end);
        from = std::min(text.find('\n', zero), text.size() - 1) + 1;
    }
    end = std::copy(text.data() + from, text.data() + text.size(), end);
    *end = 0;
    return copy;
}

}  // namespace

char* IniFile::WriteIniFile() {
    std::string text = Render();
    if (text.size() > static_cast<size_t>(kx::kMaxFileBytes)) {
        dbg_csol->Output("Failed to write file: %s (%s)\n", m_pFileName ? m_pFileName : "INI text",
                         std::strerror(EFBIG));
        return nullptr;
    }
    if (m_pFileName && m_Changed && Save(text)) m_Changed = false;
    return WithoutZeroBytes(text);
}

std::string IniFile::Render() const {
    TextWriter writer(static_cast<size_t>(m_Size), m_lineEnd, m_hasMark, m_anew);
    for (const IniLine* line = m_pFirstLine; line && !writer.IsTooLarge(); line = line->next) {
        writer.Add(*line);
    }
    return writer.Take();
}

bool IniFile::Save(const std::string& text) {
    if (m_unread) {
        const char* reason = m_unread == EXDEV ? "its name was refused" : "it could not be read, and would be lost";
        dbg_csol->Output("Failed to write file: %s (%s)\n", m_pFileName, reason);
        return false;
    }
    return LoadSave::WriteFile(m_pFileName, text.data(), static_cast<int>(text.size()), nullptr) == 1;
}
