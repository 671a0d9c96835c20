// INI files as people and programs write them: what of each is read, and that nothing of it is lost.
#include "Files/Base/Json.h"
#include "tests/IniFile_fixture.h"

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

/// The files of tests/ini without their ".ini"; each has its reading beside it: NAME.json.
std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const fs::directory_entry& each : fs::directory_iterator(KXINI)) {
        if (each.path().extension() == ".ini") names.push_back(each.path().stem());
    }
    std::sort(names.begin(), names.end());
    return names;
}

fs::path FileOf(const std::string& name, const char* extension) {
    return fs::path(KXINI) / (name + extension);
}

IniContents ReadingIn(const fs::path& path) {
    JsonTree tree;
    EXPECT_EQ(ParseJson(ReadWholeFile(path).c_str(), &tree), JsonVerdict::read);
    IniContents contents;
    json_object_object_foreach(tree.Get(), section, keys) {
        contents.push_back({section, {}});
        json_object_object_foreach(keys, key, value) {
            contents.back().second.emplace_back(key, json_object_get_string(value));
        }
    }
    return contents;
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        lines.push_back(text.substr(at, end - at));
        at = end;
    }
    return lines;
}

class IniCorpus : public IniFilesTest, public ::testing::WithParamInterface<std::string> {
protected:
    void SetUp() override {
        IniFilesTest::SetUp();
        m_text = ReadWholeFile(FileOf(GetParam(), ".ini"));
        m_reading = ReadingIn(FileOf(GetParam(), ".json"));
        WriteWholeFile(Save("a.ini"), m_text);
        ASSERT_FALSE(m_reading.empty());
    }

    std::string m_text;
    IniContents m_reading;
};

TEST_P(IniCorpus, ReadsAsExpected) {
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");

    EXPECT_EQ(ContentsOf(*ini), m_reading);
    for (const auto& [section, keys] : m_reading) {
        for (const auto& [key, value] : keys) {
            EXPECT_EQ(ValueOf(ini.get(), section.c_str(), key.c_str()), value);
        }
    }
}

TEST_P(IniCorpus, RendersAsItWas) {
    EXPECT_EQ(WrittenText(OpenIni("a.ini").get()), m_text);
}

TEST_P(IniCorpus, ChangesOneLineForOneKey) {
    std::vector<std::string> before = LinesOf(m_text);
    for (const auto& [section, keys] : m_reading) {
        for (const auto& [key, value] : keys) {
            SCOPED_TRACE(section + ": " + key);
            std::unique_ptr<IniFile> ini = OpenIni("a.ini");
            ini->Abandon();
            ini->SetKey(section.c_str(), key.c_str(), "changed");
            std::vector<std::string> after = LinesOf(WrittenText(ini.get()));

            ASSERT_EQ(after.size(), before.size());
            size_t changed = 0;
            for (size_t i = 0; i < after.size(); ++i) {
                changed += after[i] != before[i];
            }
            EXPECT_EQ(changed, 1u);
        }
    }
}

TEST_P(IniCorpus, IsWrittenWithTheChangeAndReadsBack) {
    std::string section = m_reading.back().first;
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");
    ini->SetKey(section.c_str(), "a key of ours", "first\nsecond");
    ini->SetKey("a section of ours", "key", " value ");
    WrittenText(ini.get());

    m_reading.back().second.emplace_back("a key of ours", "first\nsecond");
    m_reading.push_back({"a section of ours", {{"key", " value "}}});
    ini = OpenIni("a.ini");
    EXPECT_EQ(ContentsOf(*ini), m_reading);
    std::vector<std::string> lines = LinesOf(m_text);
    std::vector<std::string> now = LinesOf(ReadWholeFile(Save("a.ini")));
    auto at = now.begin();
    for (const std::string& line : lines) {
        at = std::find_if(at, now.end(),
                          [&](const std::string& each) { return each.compare(0, line.size(), line) == 0; });
        ASSERT_NE(at++, now.end()) << "lost: " << line;
    }
}

TEST_P(IniCorpus, KeepsEverythingElseWhenAllKeysAreDeleted) {
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");
    for (const auto& [section, keys] : m_reading) {
        ini->DeleteSection(section.c_str());
    }
    WrittenText(ini.get());
    EXPECT_EQ(ini->m_pFirst, nullptr);

    std::string left;
    for (const std::string& line : LinesOf(m_text)) {
        IniLineText::Kind kind = ReadIniLine(WithoutLineEnd(line)).kind;
        if (kind != IniLineText::section && kind != IniLineText::key) left += line;
    }
    EXPECT_EQ(ReadWholeFile(Save("a.ini")), left);
}

INSTANTIATE_TEST_SUITE_P(Ini, IniCorpus, ::testing::ValuesIn(Names()), [](const auto& name) { return name.param; });

TEST(IniCorpusFiles, KeepTheirLineEnds) {
    EXPECT_GE(Names().size(), 10u);
    for (const char* name : {"windows_editor", "windows_driver", "game_settings"}) {
        std::string text = ReadWholeFile(FileOf(name, ".ini"));
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), std::count(text.begin(), text.end(), '\r')) << name;
    }
    EXPECT_EQ(ReadWholeFile(FileOf("windows_editor", ".ini")).substr(0, 3), kMark);
}

}  // namespace
}  // namespace kx::test
