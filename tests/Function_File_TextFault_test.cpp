// Text files while system calls fail: what the bundle ships is never hidden by less.
#include "tests/Function_File_Text_fixture.h"
#include "tests/support/OrdinaryUser.h"

namespace kx::test {
namespace {

const std::string kShipped(5000, 's');

class TextFileFaults : public TextFiles {
protected:
    void SetUp() override {
        TextFiles::SetUp();
        WriteWholeFile(Bundle("log.txt"), kShipped);
    }

    /// What a script finds under the name.
    std::string Found() {
        bool saved = std::filesystem::exists(Save("log.txt"));
        return saved ? ReadWholeFile(Save("log.txt")) : kShipped;
    }

    void StartAgain() {
        std::filesystem::remove(Save("log.txt"));
        TakeError();
        m_console.Take();
    }
};

TEST_F(TextFileFaults, AppendingToWhatCannotBeReadHidesNoShippedFile) {
    {
        FaultySystemCalls faults;
        faults.FailFrom("read", 1, EIO);
        EXPECT_EQ(Call("file_text_open_append", {"log.txt"}).Real(), -1);
    }
    EXPECT_FALSE(std::filesystem::exists(Save("log.txt")));
}

TEST_F(TextFileFaults, AppendingHidesNoShippedFileThatALookMissed) {
    bool reached = true;
    for (int number = 1; reached; ++number) {
        StartAgain();
        {
            FaultySystemCalls faults;
            faults.FailAt(number, EIO, FaultySystemCalls::Extent::once);
            Value file = Call("file_text_open_append", {"log.txt"});
            if (file.Real() > 0) Call("file_text_write_string", {file, "more"});
            if (file.Real() > 0) Call("file_text_close", {file});
            reached = static_cast<int>(faults.Calls().size()) >= number;
        }
        std::string found = Found();
        EXPECT_TRUE(found == kShipped || found == kShipped + "more") << number << ": " << found.substr(0, 40);
    }
}

TEST_F(TextFileFaults, OpeningToWriteFailsWhereALookAtTheBundleDoes) {
    bool reached = true;
    for (int number = 1; reached; ++number) {
        StartAgain();
        FaultySystemCalls faults;
        faults.FailAt(number, EIO, FaultySystemCalls::Extent::once);
        _KXFILE* file = LoadSave::fopen("log.txt", "rw");
        reached = static_cast<int>(faults.Calls().size()) >= number;
        EXPECT_TRUE(!file || file->pBuff->m_size == static_cast<int>(kShipped.size())) << number;
        LoadSave::fclose(file);
    }
    EXPECT_EQ(Found(), kShipped);
}

TEST_F(TextFileFaults, ASaveIsMadeWhereTheBundleCannotBeLookedAt) {
    std::filesystem::create_directory(Bundle("closed"));
    OrdinaryUser user(Save().parent_path());
    std::filesystem::permissions(Bundle("closed"), std::filesystem::perms::none);

    Value file = Call("file_text_open_write", {"closed/log.txt"});
    EXPECT_FALSE(std::filesystem::exists(Save("closed/log.txt")));  // empty, it could hide what is shipped
    Call("file_text_write_string", {file, "saved"});
    Call("file_text_close", {file});

    std::filesystem::permissions(Bundle("closed"), std::filesystem::perms::owner_all);
    EXPECT_EQ(ReadWholeFile(Save("closed/log.txt")), "saved");
}

TEST_F(TextFileFaults, ALookThatFailsIsSaid) {
    FaultySystemCalls faults;
    faults.FailFrom("openat2", 1, EMFILE);

    EXPECT_EQ(Call("file_exists", {"log.txt"}).Real(), 0);

    EXPECT_NE(m_console.Take().find("Cannot look for a file in the bundle area: log.txt"), std::string::npos);
}

}  // namespace
}  // namespace kx::test
