// INI documents of any kind, changed in any way: what they hold is what was set, and what nobody touched stays.
#include "tests/IniFile_fixture.h"

#include "tests/support/CommaLocale.h"

#include <algorithm>
#include <random>
#include <string_view>

namespace kx::test {
namespace {

using namespace std::string_literals;

using Texts = std::vector<std::string>;

class Random {
public:
    explicit Random(unsigned int seed) : m_engine(seed) {}

    size_t Below(size_t limit) { return m_engine() % limit; }
    bool OneIn(size_t count) { return Below(count) == 0; }
    const std::string& Of(const Texts& texts) { return texts[Below(texts.size())]; }

    std::string Several(const Texts& pieces, size_t most) {
        std::string text;
        for (size_t left = Below(most + 1); left > 0; --left) {
            text += Of(pieces);
        }
        return text;
    }

    /// Any bytes but a line feed and the ones that are left out.
    std::string Bytes(size_t most, std::string_view leftOut) {
        std::string text;
        for (size_t left = Below(most + 1); left > 0; --left) {
            auto c = static_cast<char>(Below(256));
            if (c != '\n' && leftOut.find(c) == std::string_view::npos) text += c;
        }
        return text;
    }

private:
    std::mt19937 m_engine;
};

const std::string kZero(1, '\0');
const Texts kBlanks = {"", "", "", " ", "\t", "  ", " \t"};
const Texts kAwkward = {" ",  "\t", "\"",   "=",   ";", "#",   "[",    "]",    "%",    "%0A",      "@text@", "$text$",
                        "\n", "\r", "\r\n", kMark, "a", "\\n", "\x01", "\xFF", "\x7F", "\xC3\xA9", "b c"};

/// Names that people write as they are, of keys and of sections.
const Texts kPlainNames = {"a",    "b",     "Key", "key",    "two words", "a.b",  "a:b", "",   "\xD0\xBA\xD0\xBB",
                           "x;y#", "\"q\"", "%41", "@text@", "a[0]",      "\xFF", "'",   "{}", "a\rb"};

/// Names that only the escaped form holds.
const Texts kHiddenNames = {" a", "a ", "a\nb", "\r", "];", "@text@x$text$", "\t", "a] # [b"};

const Texts kNewNames = {"new", "new key", "n=", "[n]", ";n", kMark + "n"s, " n", "n\n", "@text@n$text$", "n%", "]"};

// --- what a document should be --------------------------------------------------------------------------------------

struct ModelLine {
    enum Kind { kept, header, key };

    Kind kind = kept;
    std::string text;  // without its line end
    std::string end;
    std::string section;  // of a header or a key
    std::string name;     // of a key
    std::string value;
    size_t valueAt = 0;
    bool set = false;  // has another value now

    [[nodiscard]] bool IsKey(const std::string& inSection, const std::string& named) const {
        return kind == key && section == inSection && name == named;
    }
};

/// True for the line of the file that became of a line.
bool Matches(const ModelLine& line, const std::string& text, const std::string& end) {
    bool gotAnEnd = line.end.empty() && !end.empty();
    if (line.end != end && !gotAnEnd) return false;
    if (!line.set) return line.text == text;
    return text.compare(0, line.valueAt, line.text, 0, line.valueAt) == 0;
}

/// The lines of a document, those that it should still have, and what they and the changes since should come to.
class Model {
public:
    std::string mark;
    std::vector<ModelLine> lines;

    [[nodiscard]] std::string Text() const {
        std::string text = mark;
        for (const ModelLine& line : lines) {
            text += line.text + line.end;
        }
        return text;
    }

    [[nodiscard]] const IniContents& Contents() const { return m_contents; }

    void Read() {
        m_contents.clear();
        m_newKeys.clear();
        m_newSections.clear();
        for (const ModelLine& line : lines) {
            if (line.kind == ModelLine::kept) continue;
            IniKeys& keys = SectionNamed(line.section);
            if (line.kind == ModelLine::key) ValueNamed(&keys, line.name) = line.value;
        }
    }

    void Set(const std::string& section, const std::string& name, const std::string& value) {
        if (!Has(section)) {
            m_contents.insert(section.empty() ? m_contents.begin() : m_contents.end(), {section, {}});
            if (!section.empty()) m_newSections.push_back(section);
        }
        ValueNamed(&SectionNamed(section), name) = value;
        auto isLine = [&](const ModelLine& line) { return line.IsKey(section, name); };
        auto last = std::find_if(lines.rbegin(), lines.rend(), isLine);
        std::pair<std::string, std::string> key(section, name);
        if (last != lines.rend()) {
            last->set = true;
            last->value = value;
        } else if (std::find(m_newKeys.begin(), m_newKeys.end(), key) == m_newKeys.end()) {
            m_newKeys.push_back(key);
        }
    }

    void Delete(const std::string& section, const std::string& name) {
        if (!Has(section)) return;
        Remove(&SectionNamed(section), name);
        RemoveLines([&](const ModelLine& line) { return line.IsKey(section, name); });
        auto isNew = [&](const auto& key) { return key.first == section && key.second == name; };
        m_newKeys.erase(std::remove_if(m_newKeys.begin(), m_newKeys.end(), isNew), m_newKeys.end());
        bool vanishes = section.empty() && SectionNamed("").empty() && !HasHeader("");
        if (vanishes) Remove(&m_contents, "");
    }

    void Delete(const std::string& section) {
        Remove(&m_contents, section);
        RemoveLines([&](const ModelLine& line) { return line.kind != ModelLine::kept && line.section == section; });
        auto isNew = [&](const auto& key) { return key.first == section; };
        m_newKeys.erase(std::remove_if(m_newKeys.begin(), m_newKeys.end(), isNew), m_newKeys.end());
        m_newSections.erase(std::remove(m_newSections.begin(), m_newSections.end(), section), m_newSections.end());
    }

    /// Goes through a file that was written: every line that is left stands there, in its order, with new ones in
    /// between, where they belong. The file's lines are the model's from then on.
    void Follow(const std::string& file) {
        ASSERT_EQ(file.compare(0, mark.size(), mark), 0);
        std::vector<ModelLine> before = std::move(lines);
        lines.clear();
        auto left = before.begin();
        std::string section;
        for (size_t at = mark.size(); at < file.size();) {
            ModelLine line = LineAt(file, &at);
            bool stays = left != before.end() && Matches(*left, line.text, line.end);
            if (stays) {
                left->text = line.text;
                left->end = line.end;
                left->set = false;
                line = *left++;
            } else {
                RecogniseNew(&line, section);
            }
            if (line.kind == ModelLine::header) section = line.section;
            ASSERT_TRUE(line.kind != ModelLine::key || line.section == section) << line.text;
            lines.push_back(line);
        }
        ASSERT_TRUE(left == before.end()) << "lost: " << left->text;
        ASSERT_TRUE(m_newKeys.empty() && m_newSections.empty());
    }

private:
    [[nodiscard]] bool Has(const std::string& section) const {
        return std::any_of(m_contents.begin(), m_contents.end(),
                           [&](const auto& each) { return each.first == section; });
    }

    [[nodiscard]] bool HasHeader(const std::string& section) const {
        return std::any_of(lines.begin(), lines.end(), [&](const ModelLine& line) {
            return line.kind == ModelLine::header && line.section == section;
        });
    }

    template <class Named>
    static typename Named::value_type::second_type& ValueNamed(Named* all, const std::string& name) {
        for (auto& each : *all) {
            if (each.first == name) return each.second;
        }
        all->push_back({name, {}});
        return all->back().second;
    }

    IniKeys& SectionNamed(const std::string& name) { return ValueNamed(&m_contents, name); }

    template <class Named>
    static void Remove(Named* all, const std::string& name) {
        auto isMeant = [&](const auto& each) { return each.first == name; };
        all->erase(std::remove_if(all->begin(), all->end(), isMeant), all->end());
    }

    template <class IsMeant>
    void RemoveLines(IsMeant isMeant) {
        lines.erase(std::remove_if(lines.begin(), lines.end(), isMeant), lines.end());
    }

    static ModelLine LineAt(const std::string& file, size_t* at) {
        ModelLine line;
        size_t lineFeed = file.find('\n', *at);
        line.text = file.substr(*at, lineFeed == std::string::npos ? lineFeed : lineFeed - *at);
        *at = lineFeed == std::string::npos ? file.size() : lineFeed + 1;
        if (lineFeed == std::string::npos) return line;
        line.end = "\n";
        if (line.text.empty() || line.text.back() != '\r') return line;
        line.text.pop_back();
        line.end = "\r\n";
        return line;
    }

    /// What a new line has to be: a blank one, a new section's, or that of the section's next new key.
    void RecogniseNew(ModelLine* line, const std::string& section) {
        if (line->text.empty()) {
            EXPECT_FALSE(m_newSections.empty()) << "a blank line and no new section";
        } else if (IniLineText read = ReadIniLine(line->text); read.kind == IniLineText::section) {
            // One that was deleted before is where it was.
            std::string name(read.name.size(), 0);
            name.resize(ReadIniName(read.name, name.data()));
            auto meant = std::find(m_newSections.begin(), m_newSections.end(), name);
            ASSERT_NE(meant, m_newSections.end()) << line->text;
            line->kind = ModelLine::header;
            line->section = *meant;
            m_newSections.erase(meant);
        } else {
            auto isMeant = [&](const auto& key) { return key.first == section; };
            auto key = std::find_if(m_newKeys.begin(), m_newKeys.end(), isMeant);
            ASSERT_NE(key, m_newKeys.end()) << line->text;
            line->kind = ModelLine::key;
            line->section = section;
            line->name = key->second;
            line->value = ValueNamed(&SectionNamed(section), key->second);
            line->valueAt = std::min(line->text.find_first_not_of(" \t", line->text.find('=') + 1), line->text.size());
            m_newKeys.erase(key);
        }
    }

    IniContents m_contents;
    std::vector<std::pair<std::string, std::string>> m_newKeys;  // in the order of their coming
    Texts m_newSections;
};

// --- files that somebody may have written ---------------------------------------------------------------------------

/// Writes files line by line, and knows what each line says.
class Author {
public:
    Author(Random* random, bool zeros) : m_random(*random), m_zeros(zeros) {}

    Model Write() {
        m_marked = m_random.OneIn(4);
        m_lineEnds = m_random.Below(3);
        Model model;
        if (m_marked) model.mark = kMark;
        for (size_t left = m_random.Below(25); left > 0; --left) {
            ModelLine line = Line();
            line.end = LineEnd();
            model.lines.push_back(line);
        }
        if (!model.lines.empty() && m_random.OneIn(3)) TakeLineEnd(&model);
        model.Read();
        return model;
    }

private:
    ModelLine Line() {
        switch (m_random.Below(10)) {
        case 0: return Kept(Indent());
        case 1: return Kept(Indent() + (m_random.OneIn(2) ? ";" : "#") + Bytes("") + ".");
        case 2: return Kept(Junk());
        case 3:
        case 4: return Header();
        default: return Key();
        }
    }

    static ModelLine Kept(const std::string& text) {
        ModelLine line;
        line.text = text;
        return line;
    }

    std::string Junk() {
        switch (m_random.Below(m_zeros ? 3 : 1)) {
        case 0: return Indent() + "junk" + Bytes("=") + ".";
        case 1: return "k=" + Bytes("") + kZero + ".";
        default: return "[" + kZero + "]";
        }
    }

    ModelLine Header() {
        ModelLine line;
        line.kind = ModelLine::header;
        line.section = m_section = Name();
        std::string written = Written(line.section);
        line.text = Indent() + "[" + Blanks() + written + Blanks();
        bool bracketless = m_random.OneIn(10) && written.find(']') == std::string::npos;
        if (bracketless) return line;
        line.text += "]" + Blanks();
        if (m_random.OneIn(4))
            line.text += "; see [a]";
        else if (m_random.OneIn(8))
            line.text += "junk";
        return line;
    }

    ModelLine Key() {
        ModelLine line;
        line.kind = ModelLine::key;
        line.section = m_section;
        line.name = Name();
        line.text = Indent() + Written(line.name) + Blanks() + "=" + Blanks();
        std::string written = Value(&line.value);
        if (written.empty()) line.text += Blanks();
        line.valueAt = line.text.size();
        if (!written.empty()) line.text += written + Blanks();
        return line;
    }

    const std::string& Name() { return m_random.Of(m_random.OneIn(5) ? kHiddenNames : kPlainNames); }

    std::string Written(const std::string& name) {
        bool hidden = std::find(kHiddenNames.begin(), kHiddenNames.end(), name) != kHiddenNames.end();
        return hidden || m_random.OneIn(10) ? Escaped(name) : name;
    }

    /// @param value  set to what is meant.
    std::string Value(std::string* value) {
        switch (m_random.Below(7)) {
        case 0: return "";
        case 1: return *value = std::to_string(m_random.Below(2000)) + ".5";
        case 2: return *value = "v" + m_random.Bytes(8, kZero) + "v";
        case 3: return *value = m_random.OneIn(2) ? "\"" : "\"half;";
        case 4: return "\"" + (*value = m_random.Bytes(8, kZero)) + "\"";
        case 5: return Escaped(*value = m_random.Several(kAwkward, 4));
        default: return *value = m_random.Of({"C:\\new\\table", "#ff8800", "a ; b # c", "=", "@text@%zz$text$"});
        }
    }

    std::string Escaped(const std::string& text) {
        std::string written = "@text@";
        for (char c : text) {
            auto byte = static_cast<unsigned char>(c);
            bool needed = byte < 0x20 || c == '%' || c == '=' || c == ']';
            if (!needed && !m_random.OneIn(4)) {
                written += c;
                continue;
            }
            const char* digits = m_random.OneIn(2) ? "0123456789abcdef" : "0123456789ABCDEF";
            written += {'%', digits[byte >> 4], digits[byte & 15]};
        }
        return written + "$text$";
    }

    /// For what has no meaning.
    std::string Bytes(const std::string& leftOut) { return m_random.Bytes(8, m_zeros ? leftOut : leftOut + kZero); }

    std::string Blanks() { return m_random.Of(kBlanks); }

    std::string Indent() { return m_marked && m_random.OneIn(10) ? Blanks() + kMark + Blanks() : Blanks(); }

    std::string LineEnd() {
        bool windows = m_lineEnds == 2 ? m_random.OneIn(2) : m_lineEnds == 1;
        return windows ? "\r\n" : "\n";
    }

    void TakeLineEnd(Model* model) {
        ModelLine& last = model->lines.back();
        last.end.clear();
        if (last.kind == ModelLine::kept && m_random.OneIn(2)) last.text += '\r';
        if (last.text.empty()) model->lines.pop_back();
    }

    Random& m_random;
    bool m_zeros;
    bool m_marked = false;
    size_t m_lineEnds = 0;  // LF, CR LF or both
    std::string m_section;
};

// --- changes --------------------------------------------------------------------------------------------------------

/// A name that the document has, or one that it may have.
template <class Named>
std::string AnyName(Random* random, const Named& all) {
    if (!all.empty() && !random->OneIn(3)) return all[random->Below(all.size())].first;
    if (random->OneIn(3)) return random->Several(kAwkward, 3);
    return random->Of(random->OneIn(2) ? kNewNames : kPlainNames);
}

void Change(Random* random, IniFile* ini, Model* model) {
    std::string section = AnyName(random, model->Contents());
    IniKeys keys;
    for (const auto& each : model->Contents()) {
        if (each.first == section) keys = each.second;
    }
    std::string key = AnyName(random, keys);
    std::string value = random->Several(kAwkward, 5);
    switch (random->Below(8)) {
    case 0:
        ini->DeleteSection(section.c_str());
        model->Delete(section);
        return;
    case 1:
    case 2:
        ini->DeleteKey(section.c_str(), key.c_str());
        model->Delete(section, key);
        return;
    default: ini->SetKey(section.c_str(), key.c_str(), value.c_str()); model->Set(section, key, value);
    }
}

void ExpectHolds(IniFile* ini, const IniContents& contents) {
    ASSERT_EQ(ContentsOf(*ini), contents);
    for (const auto& [section, keys] : contents) {
        const Section* found = ini->GetSection(section.c_str());
        ASSERT_TRUE(found && found->m_pName == section);
        for (const auto& [key, value] : keys) {
            ASSERT_EQ(ValueOf(ini, section.c_str(), key.c_str()), value);
        }
        ASSERT_EQ(ini->GetKey(section.c_str(), "no such key"), nullptr);
    }
    ASSERT_EQ(ini->GetSection("no such section"), nullptr);
}

std::string WithoutLinesOfZeros(const std::string& file) {
    std::string text;
    for (size_t at = 0; at < file.size();) {
        size_t end = std::min(file.find('\n', at), file.size() - 1) + 1;
        std::string line = file.substr(at, end - at);
        if (line.find('\0') == std::string::npos) text += line;
        at = end;
    }
    return text;
}

class IniProperties : public IniFilesTest {
protected:
    enum Place { disk, memory };

    /// A document is opened, changed, written and opened again, a few times over.
    void RunDocument(Place place, unsigned int seed) {
        Random random(seed);
        Model model = Author(&random, place == disk).Write();
        std::string file = model.Text();
        if (place == disk) WriteWholeFile(Save("a.ini"), file);
        for (size_t sessions = 1 + random.Below(3); sessions > 0; --sessions) {
            std::unique_ptr<IniFile> ini = Open(place, file);
            ASSERT_NO_FATAL_FAILURE(ExpectHolds(ini.get(), model.Contents()));
            for (size_t changes = random.Below(8); changes > 0; --changes) {
                Change(&random, ini.get(), &model);
            }
            ASSERT_NO_FATAL_FAILURE(ExpectHolds(ini.get(), model.Contents()));
            std::string text = WrittenText(ini.get());
            file = place == disk ? ReadWholeFile(Save("a.ini")) : text;
            ASSERT_EQ(text, WithoutLinesOfZeros(file));
            ASSERT_NO_FATAL_FAILURE(model.Follow(file)) << file;
            model.Read();
        }
        ASSERT_NO_FATAL_FAILURE(ExpectHolds(Open(place, file).get(), model.Contents()));
    }

    void RunDocuments(Place place, unsigned int first, unsigned int count) {
        for (unsigned int seed = first; seed < first + count && !HasFailure(); ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            RunDocument(place, seed);
        }
    }

    static std::unique_ptr<IniFile> Open(Place place, const std::string& file) {
        if (place == disk) return OpenIni("a.ini");
        auto ini = std::make_unique<IniFile>(nullptr, false);  // not for a text: keeps its lines
        ini->SetText(file.c_str());
        return ini;
    }

    /// A text is changed, rendered and read again.
    static void RunText(unsigned int seed) {
        Random random(seed);
        Model model = Author(&random, false).Write();
        IniFile ini;
        ini.SetText(model.Text().c_str());
        ASSERT_NO_FATAL_FAILURE(ExpectHolds(&ini, model.Contents()));
        for (size_t changes = random.Below(8); changes > 0; --changes) {
            Change(&random, &ini, &model);
        }
        std::string rendered = WrittenText(&ini);

        IniFile again;
        again.SetText(rendered.c_str());
        IniContents expected = model.Contents();
        IniContents contents = ContentsOf(again);
        for (IniContents* each : {&expected, &contents}) {  // a key's place is that of its last line now
            for (auto& section : *each) {
                std::sort(section.second.begin(), section.second.end());
            }
            std::sort(each->begin(), each->end());
        }
        ASSERT_EQ(contents, expected) << rendered;
        size_t at = 0;
        for (const ModelLine& line : model.lines) {
            if (line.kind == ModelLine::key) continue;
            at = rendered.find(line.text + line.end, at);
            ASSERT_NE(at, std::string::npos) << "lost: " << line.text << "\nin: " << rendered;
            at += line.text.size() + line.end.size();
        }
    }
};

TEST_F(IniProperties, DocumentsHoldWhatWasSetAndKeepEveryLineThatNobodyTouched) {
    RunDocuments(memory, 1, 5000);
}

TEST_F(IniProperties, FilesDoAsWell) {
    RunDocuments(disk, 10001, 250);
}

TEST_F(IniProperties, NoLocaleChangesADocument) {
    CommaLocale locale;

    RunDocuments(memory, 20001, 500);
}

TEST_F(IniProperties, TextsHoldWhatWasSetAndKeepEveryLineThatIsNoKey) {
    for (unsigned int seed = 40001; seed < 43001 && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RunText(seed);
    }
}

}  // namespace
}  // namespace kx::test
