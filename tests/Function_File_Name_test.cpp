// File names: the six built-ins that take them apart.
#include "tests/Function_File_fixture.h"

#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace kx::test {
namespace {

class FileNameBuiltIns : public BuiltInsTest {
protected:
    void SetUp() override {
        BuiltInsTest::SetUp();
        WriteWholeFile(Save("saved.ini"), "");
        WriteWholeFile(Bundle("shipped.ini"), "");
        WriteWholeFile(Save("both.ini"), "");
        WriteWholeFile(Bundle("both.ini"), "");
    }
};

TEST_F(FileNameBuiltIns, GiveTheirParts) {
    std::string save = Save().string();
    std::string bundle = Bundle().string();
    struct Case {
        const char* builtIn;
        std::vector<Value> arguments;
        std::string result;
    };
    const Case cases[] = {
        {"filename_name", {"C:/games/data/save.ini"}, "save.ini"},
        {"filename_name", {"data\\save.ini"}, "save.ini"},
        {"filename_name", {"folder/"}, ""},
        {"filename_name", {""}, ""},
        {"filename_name", {12.5}, "12.5"},

        {"filename_drive", {"C:/games/data/save.ini"}, "C:"},
        {"filename_drive", {"\\\\server\\share\\save.ini"}, "\\\\server\\share"},
        {"filename_drive", {"/games/save.ini"}, ""},
        {"filename_drive", {""}, ""},

        {"filename_ext", {"C:/games.old/save.ini"}, ".ini"},
        {"filename_ext", {"games.old/save"}, ""},
        {"filename_ext", {"archive.tar.gz"}, ".gz"},
        {"filename_ext", {"ends with."}, "."},
        {"filename_ext", {""}, ""},

        {"filename_dir", {"C:/games/data/save.ini"}, "C:/games/data"},
        {"filename_dir", {"data\\save.ini"}, "data"},
        {"filename_dir", {"data//save.ini"}, "data/"},  // one separator, not all
        {"filename_dir", {"/save.ini"}, "/"},           // never the only character
        {"filename_dir", {"\\save.ini"}, "\\"},
        {"filename_dir", {"missing.ini"}, ""},
        {"filename_dir", {""}, ""},
        {"filename_dir", {"saved.ini"}, save},
        {"filename_dir", {"shipped.ini"}, bundle},
        {"filename_dir", {"both.ini"}, save},
        {"filename_dir", {"x/saved.ini"}, "x"},

        {"filename_path", {"C:/games/data/save.ini"}, "C:/games/data/"},
        {"filename_path", {"data\\save.ini"}, "data\\"},
        {"filename_path", {"/save.ini"}, "/"},
        {"filename_path", {"missing.ini"}, ""},
        {"filename_path", {""}, ""},
        {"filename_path", {"saved.ini"}, save + "/"},
        {"filename_path", {"shipped.ini"}, bundle + "/"},
        {"filename_path", {"both.ini"}, save + "/"},

        {"filename_change_ext", {"a.txt", ".dat"}, "a.dat"},
        {"filename_change_ext", {"a.txt", "dat"}, "adat"},
        {"filename_change_ext", {"a", "dat"}, "a.dat"},
        {"filename_change_ext", {"a", ".dat"}, "a.dat"},
        {"filename_change_ext", {"a", ""}, "a"},
        {"filename_change_ext", {"a.txt", ""}, "a"},
        {"filename_change_ext", {"my.dir/file", ".txt"}, "my.txt"},  // the folder's dot is the last one
        {"filename_change_ext", {"archive.tar.gz", ".xz"}, "archive.tar.xz"},
        {"filename_change_ext", {".hidden", ".txt"}, ".txt"},
        {"filename_change_ext", {"", "dat"}, ".dat"},
        {"filename_change_ext", {"", ""}, ""},
        {"filename_change_ext", {"a%s", "%d"}, "a%s.%d"},
        {"filename_change_ext", {"a.txt", Value()}, "a"},
        {"filename_change_ext", {"a", Value()}, "a"},
    };
    long long blocks = MemoryManager::Stats().blocks;
    for (const Case& each : cases) {
        SCOPED_TRACE(std::string(each.builtIn) + ", expected: " + each.result);
        EXPECT_EQ(Call(each.builtIn, each.arguments).Text(), each.result);
    }
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
    EXPECT_EQ(TakeError(), "");
}

TEST_F(FileNameBuiltIns, OfNoNameGiveNoText) {
    struct Case {
        const char* builtIn;
        std::vector<Value> arguments;
        const char* error;
    };
    const Case cases[] = {{"filename_name", {Value()}, ""},
                          {"filename_drive", {Value()}, ""},
                          {"filename_ext", {Value()}, ""},
                          {"filename_change_ext", {Value(), ".txt"}, ""},
                          {"filename_dir", {Value()}, "null string passed to filename_dir"},
                          {"filename_path", {Value()}, "null string passed to filename_path"}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.builtIn);

        Value result = Call(each.builtIn, each.arguments);

        EXPECT_EQ(result.Kind(), VALUE_STRING);
        EXPECT_EQ(result.Get().str, nullptr);
        EXPECT_EQ(TakeError(), each.error);
    }
}

TEST_F(FileNameBuiltIns, TakeNamesOfAnyLength) {
    std::string folder(100000, 'd');
    std::string name = folder + "/file." + std::string(100000, 'e');

    EXPECT_EQ(Call("filename_dir", {name}).Text(), folder);
    EXPECT_EQ(Call("filename_path", {name}).Text(), folder + "/");
    EXPECT_EQ(Call("filename_change_ext", {name, ".x"}).Text(), folder + "/file.x");
    EXPECT_EQ(Call("filename_path", {folder}).Text(), "");
}

/// A text of a length that takes no memory: one page of letters, seen again and again.
class EndlessText {
public:
    explicit EndlessText(size_t length) : m_size(length + kPiece) {
        int letters = ::memfd_create("letters", MFD_CLOEXEC);
        std::string piece(kPiece, 'a');
        bool filled = ::write(letters, piece.data(), piece.size()) == static_cast<ssize_t>(kPiece);
        void* room = ::mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        m_text = static_cast<char*>(room);
        for (size_t at = 0; filled && at + kPiece < m_size; at += kPiece) {  // zero bytes follow the last piece
            ::mmap(m_text + at, kPiece, PROT_READ, MAP_SHARED | MAP_FIXED, letters, 0);
        }
        ::close(letters);
    }
    EndlessText(const EndlessText&) = delete;
    EndlessText& operator=(const EndlessText&) = delete;
    ~EndlessText() { ::munmap(m_text, m_size); }

    const char* Get() const { return m_text; }

private:
    static constexpr size_t kPiece = 4 << 20;

    size_t m_size;
    char* m_text;
};

TEST_F(FileNameBuiltIns, ANameThatWouldBeLongerThanATextCanBeIsAnError) {
    if constexpr (sizeof(void*) > 4) {  // elsewhere there is no room for one
        EndlessText text(2147483647);
        _RefThing<char const*> record{text.Get(), 3, 2147483647};
        RValue name{};
        name.str = &record;
        name.kind = VALUE_STRING;

        Value result = Call("filename_change_ext", {Value(name), Value(name)});

        EXPECT_EQ(TakeError(), "File name too long.");
        EXPECT_EQ(result.Get().str, nullptr);
    }
}

}  // namespace
}  // namespace kx::test
