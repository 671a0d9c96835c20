// INI documents where memory runs out: at every allocation an error or a document that is whole, and no file that
// loses.
#include "Files/Base/IniFile.h"
#include "tests/support/Areas.h"
#include "tests/support/Console.h"
#include "tests/support/FailingMalloc.h"

#include <functional>
#include <memory>
#include <new>

namespace kx::test {
namespace {

const std::string kFile = "; comment\n[a]\nk=1\nk=2\n[b]\nl=@text@%0A$text$\n";
const std::string kChanged = "; comment\n[a]\nk=1\nk=new\nm=3\n[b]\nl=@text@%0A$text$\n\n[c]\nn=4\n";

class IniMemory : public AreasTest, public ::testing::WithParamInterface<FailingMalloc::Mode> {
protected:
    /// In each round one allocation more succeeds, until all do.
    /// @param work   true where it did everything that it was to do.
    /// @param check  looks at what each round has left, with all the memory there is.
    void FailEach(
        const std::function<bool()>& work, const std::function<void()>& check = [] {}) {
        ASSERT_TRUE(work());  // what the first success leaves behind for good
        check();
        bool failed = true;
        for (int round = 0; failed; ++round) {
            SCOPED_TRACE(round);
            m_console.Take();
            long long live = FailingMalloc::Live();
            FailingMalloc::Arm(round, GetParam(), FailingMalloc::library);
            bool done = false;
            try {
                done = work();
            } catch (const std::bad_alloc&) {
                done = false;
            }
            failed = FailingMalloc::Disarm();
            m_console.Take();
            ASSERT_EQ(FailingMalloc::Live(), live);
            check();
            if (!failed) {
                EXPECT_TRUE(done);
            }
        }
    }

    CapturingConsole m_console;
};

std::unique_ptr<IniFile> Open(std::string name) {
    return std::make_unique<IniFile>(name.data(), false);
}

void Change(IniFile* file) {
    file->SetKey("a", "k", "new");
    file->SetKey("a", "m", "3");
    file->SetKey("c", "n", "4");
}

TEST_P(IniMemory, AFileThatDoesNotFitIsNeverWritten) {
    WriteWholeFile(Save("settings.ini"), kFile);
    bool loaded = false;
    auto work = [&] {
        loaded = false;
        std::unique_ptr<IniFile> file = Open("settings.ini");
        loaded = file->GetKey("b", "l") != nullptr;
        Change(file.get());
        MemoryManager::Free(file->WriteIniFile());
        return loaded && !file->m_Changed;
    };
    FailEach(work, [&] {
        std::string now = ReadWholeFile(Save("settings.ini"));
        EXPECT_TRUE(now == kFile || (loaded && now == kChanged)) << now;
        WriteWholeFile(Save("settings.ini"), kFile);
    });
}

TEST_P(IniMemory, AFailedChangeLeavesTheDocumentAsItWas) {
    FailEach([&] {
        IniFile text;
        text.SetText("[a]\nk=1\n");
        try {
            text.SetKey("b", "l", "2");
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(text.GetSection("b"), nullptr);
            EXPECT_EQ(text.m_pFirst->m_pNext, nullptr);
        }
        try {
            text.SetKey("a", "k", "another");
        } catch (const std::bad_alloc&) {
            EXPECT_STREQ(text.GetKey("a", "k")->m_pValue, "1");
        }
        text.DeleteSection("a");
        return text.GetKey("b", "l") != nullptr;
    });
}

TEST_P(IniMemory, ATextThatDoesNotFitIsAnEmptyDocument) {
    FailEach([&] {
        IniFile text;
        try {
            text.SetText(kFile.c_str());
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(text.m_pFirst, nullptr);
            EXPECT_EQ(text.m_pFileBuffer, nullptr);
            return false;
        }
        return text.GetKey("b", "l") != nullptr;
    });
}

INSTANTIATE_TEST_SUITE_P(Modes, IniMemory, ::testing::Values(FailingMalloc::once, FailingMalloc::from_then_on));

}  // namespace
}  // namespace kx::test
