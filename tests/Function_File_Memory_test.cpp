// Built-ins where memory runs out: an error, nothing left behind, no slot that is half taken, no file that loses.
#include "Files/Base/IniFile.h"
#include "Files/Run/Run_Command.h"
#include "tests/Function_File_fixture.h"
#include "tests/Http_answers.h"
#include "tests/RValue_fixture.h"
#include "tests/support/FailingMalloc.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/Variable.h"

#include <algorithm>
#include <functional>
#include <new>

namespace kx::test {
namespace {

/// A call whose arguments are made before memory runs out.
struct Prepared {
    Prepared(const char* name, std::vector<Value> given) : record(Function_Find(name)), arguments(std::move(given)) {
        for (Value& argument : arguments) {
            plain.push_back(argument.Get());
        }
    }

    /// @return false where there is no memory for it.
    bool Run(RValue* result) {
        try {
            record->routine(*result, nullptr, nullptr, record->argc, plain.data());
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    const FunctionRecord* record;
    std::vector<Value> arguments;
    std::vector<RValue> plain;
};

class BuiltInMemory : public BuiltInsTest, public ::testing::WithParamInterface<FailingMalloc::Mode> {
protected:
    /// One allocation more succeeds in each round, until all do.
    /// @param undo  ends what the call made.
    void FailEach(
        const char* name, const std::vector<Value>& arguments, const std::function<void()>& undo = [] {}) {
        SCOPED_TRACE(name);
        Prepared call(name, arguments);
        RValueOwner first;
        ASSERT_TRUE(call.Run(&first.value));  // what the first success leaves behind for good
        undo();
        bool failed = true;
        int rounds = 0;
        for (; failed; ++rounds) {
            SCOPED_TRACE(rounds);
            m_console.Take();
            long long live = FailingMalloc::Live();
            int descriptors = OpenDescriptors();
            {
                RValueOwner result;
                FailingMalloc::Arm(rounds, GetParam(), m_scope);
                bool done = call.Run(&result.value);
                failed = FailingMalloc::Disarm();
                EXPECT_TRUE(done || failed);
                undo();
            }
            m_console.Take();
            TakeError();
            ASSERT_EQ(FailingMalloc::Live(), live);
            ASSERT_EQ(OpenDescriptors(), descriptors);
        }
        EXPECT_GT(rounds, 1);
    }

    FailingMalloc::Scope m_scope = FailingMalloc::library;
};

TEST_P(BuiltInMemory, PartsOfFileNamesAreReleased) {
    WriteWholeFile(Save("a name that needs a block of its own.txt"), "x");
    std::string name = "some/folder/a name that needs a block of its own.txt";
    for (const char* part : {"filename_name", "filename_path", "filename_dir", "filename_ext"}) {
        FailEach(part, {name});
    }
    FailEach("filename_drive", {"\\\\server\\a share with a longer name\\file"});
    FailEach("filename_path", {"a name that needs a block of its own.txt"});
    FailEach("filename_dir", {"a name that needs a block of its own.txt"});
    FailEach("filename_path", {"C:file"});
    FailEach("filename_change_ext", {name, ".bak"});
    FailEach("filename_change_ext", {"no dot", "bak"});
}

TEST_P(BuiltInMemory, ParametersAndVariablesAreReleased) {
    char parameter[] = "a parameter that needs a block of its own";
    char* parameters[] = {parameter};
    Variable variable("KX_TEST_VARIABLE", "a value that needs a block of its own");
    ASSERT_EQ(SetParameters(1, parameters), 0);

    FailEach("parameter_string", {0});
    FailEach("environment_get_variable", {"KX_TEST_VARIABLE"});

    SetParameters(0, nullptr);
}

TEST_P(BuiltInMemory, ATextThatIsNotReadAsAFileTakesNoSlot) {
    FailEach("file_text_open_from_string", {std::string(2000, 't')}, [] {
        int open = static_cast<int>(std::count(std::begin(filestatus), std::end(filestatus), FILE_READING));
        if (open) Call("file_text_close", {1});
        EXPECT_TRUE(
            std::all_of(std::begin(textfiles), std::end(textfiles), [](const StFile& slot) { return !slot.hF; }));
    });
}

TEST_P(BuiltInMemory, ASearchKeepsNoNamesThatNobodyAsksFor) {
    for (const char* name : {"one name that is longer than short", "two names that are longer than short", "three"}) {
        WriteWholeFile(Save(name), "");
    }
    FailEach("file_find_first", {"*", 0}, [] {
        Call("file_find_close");
        EXPECT_EQ(g_kxFindData.m_files, nullptr);
    });
}

TEST_P(BuiltInMemory, AnIniTextThatIsNotReadIsNotOpen) {
    FailEach("ini_open_from_string", {"[section]\nkey=a value\n"}, [] {
        if (!g_IniFile) return;
        EXPECT_NE(g_IniFile->GetKey("section", "key"), nullptr);
        MemoryManager::Free(KXTRQ_ini_close());
    });
}

TEST_P(BuiltInMemory, AnIniDefaultIsReleased) {
    Call("ini_open_from_string", {""});
    FailEach("ini_read_string", {"section", "key", "a default that is longer than sixteen characters"});
    MemoryManager::Free(KXTRQ_ini_close());
}

TEST_P(BuiltInMemory, KeysThatAreNoTextsAreReleased) {
    RValueOwner text(Text("{}"));
    double map = Call("json_decode", {Value("{}")}).Real();
    RValueOwner key(Array());
    Push(&key.value, Text("an element that is longer than sixteen characters"));
    themaps.arr[static_cast<int>(map)]->Set(&key.value, &text.value);

    FailEach("json_encode", {map});
}

TEST_P(BuiltInMemory, ANumberThatIsNoJsonIsReleased) {
    m_scope = FailingMalloc::ours;  // for a member's name json-c itself follows a null pointer
    FailEach("json_decode", {12.5}, [] { FreeDsMap(1); });
}

/// The name that an earlier open left in the slot is there once.
TEST_F(BuiltInsTest, AnOpenWithoutMemoryLeavesASlotThatCanBeOpened) {
    WriteWholeFile(Save("save.bin"), "old");
    EXPECT_EQ(Call("file_bin_open", {"missing/..", 0}).Real(), -1);  // its name stays
    Prepared open("file_bin_open", {"save.bin", 0});
    for (int skipped = 0; skipped < 40; ++skipped) {
        RValueOwner result;
        FailingMalloc::Arm(skipped, FailingMalloc::from_then_on, FailingMalloc::ours);
        bool done = open.Run(&result.value) && result.value.real > 0;
        FailingMalloc::Disarm();
        if (done) Call("file_bin_close", {result.value.real});
    }
    Value file = Call("file_bin_open", {"save.bin", 0});
    EXPECT_EQ(Call("file_bin_size", {file}).Real(), 3);
    Call("file_bin_close", {file});
    m_console.Take();
}

/// An empty copy would hide what the bundle ships.
TEST_F(BuiltInsTest, AppendingWithoutMemoryHidesNoShippedFile) {
    std::string shipped(5000, 's');
    WriteWholeFile(Bundle("log.txt"), shipped);
    Prepared append("file_text_open_append", {"log.txt"});
    bool failed = true;
    for (int skipped = 0; failed; ++skipped) {
        for (FailingMalloc::Mode mode : {FailingMalloc::once, FailingMalloc::from_then_on}) {
            RValueOwner result;
            FailingMalloc::Arm(skipped, mode, FailingMalloc::library);
            bool opened = append.Run(&result.value) && result.value.real > 0;
            failed = FailingMalloc::Disarm();
            if (opened) Call("file_text_close", {result.value.real});
            LoadSave::Shutdown();
            bool saved = std::filesystem::exists(Save("log.txt"));
            ASSERT_TRUE(!saved || ReadWholeFile(Save("log.txt")) == shipped) << skipped;
            std::filesystem::remove(Save("log.txt"));
        }
    }
    m_console.Take();
}

/// One that does not fit keeps no other from being written.
TEST_F(BuiltInsTest, TheEndWithoutMemoryWritesWhatItCan) {
    for (const char* name : {"first.txt", "second.txt"}) {
        Value file = Call("file_text_open_write", {name});
        Call("file_text_write_string", {file, name});
    }
    FailingMalloc::Arm(0, FailingMalloc::once, FailingMalloc::ours);
    LoadSave::Shutdown();
    EXPECT_TRUE(FailingMalloc::Disarm());

    EXPECT_NE(TakeError(), "");
    int written = std::filesystem::exists(Save("first.txt")) && ReadWholeFile(Save("first.txt")) == "first.txt";
    written += std::filesystem::exists(Save("second.txt")) && ReadWholeFile(Save("second.txt")) == "second.txt";
    EXPECT_EQ(written, 1);
    Call("file_text_close", {1});
    Call("file_text_close", {2});
}

TEST_F(BuiltInsTest, ARedirectThatCannotBeFollowedIsReleased) {
    ServerProcess server(Each([](const std::string& request) {
        bool first = request.find(" /moved ") != std::string::npos;
        return first ? RedirectTo("/where-a-longer-path-leads-to") : Ok("there");
    }));
    Variable noProxy("no_proxy", "*");
    Value url(server.Url("/moved"));
    long long live = -1;
    bool failed = true;
    for (int skipped = -2; failed || skipped < 1; ++skipped) {  // the first two leave behind what comes once
        SCOPED_TRACE(skipped);
        if (skipped >= 0) {
            FailingMalloc::Arm(skipped, FailingMalloc::once, FailingMalloc::ours, FailingMalloc::others);
        }
        double id = Call("http_get", {url}).Real();
        ASYNC_EVENT event{};
        ASSERT_TRUE(LoadSave::NextEvent(30 * 1000, &event));
        EXPECT_EQ(event.m_request, id);
        failed = FailingMalloc::Disarm();
        LoadSave::ReleaseEvent(event);
        LoadSave::Shutdown();
        m_console.Take();
        if (skipped > 0) {
            ASSERT_EQ(FailingMalloc::Live(), live);
        }
        live = FailingMalloc::Live();
    }
}

TEST(ErrorMemory, AnErrorIsRaisedWithoutMemoryForItsText) {
    std::string name(5000, 'n');
    FailingMalloc::Arm(0, FailingMalloc::from_then_on, FailingMalloc::ours);
    KXError("no such file: %s", name.c_str());
    EXPECT_TRUE(FailingMalloc::Disarm());

    EXPECT_EQ(TakeError(), "out of memory");
}

TEST(ErrorMemory, AMessageWithoutMemoryIsItsFormat) {
    std::string name(5000, 'n');
    ::testing::internal::CaptureStderr();
    FailingMalloc::Arm(0, FailingMalloc::from_then_on, FailingMalloc::ours);
    dbg_csol->Output("no such file: %s\n", name.c_str());
    FailingMalloc::Disarm();

    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "no such file: %s\n");
}

INSTANTIATE_TEST_SUITE_P(Modes, BuiltInMemory, ::testing::Values(FailingMalloc::once, FailingMalloc::from_then_on));

}  // namespace
}  // namespace kx::test
