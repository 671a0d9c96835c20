// INI documents as scripts and compiled code use them.
#include "Files/Base/IniFile.h"
#include "Files/Base/KXObjectBase.h"
#include "tests/Function_File_fixture.h"
#include "tests/RValue_fixture.h"
#include "tests/support/CommaLocale.h"

#include <cmath>
#include <cstring>
#include <string>

namespace kx::test {
namespace {

constexpr char kReadError[] = "Trying to read from undefined INI file";
constexpr char kWriteError[] = "Trying to write to undefined INI file";
constexpr char kChangeError[] = "Trying to change undefined INI file";

class Ini : public BuiltInsTest {
protected:
    void TearDown() override {
        MemoryManager::Free(KXTRQ_ini_close());
        BuiltInsTest::TearDown();
    }

    std::string Saved(const char* name) { return ReadWholeFile(Save(name)); }
};

std::string Read(const char* section, const char* key, const Value& absent = "absent") {
    return Call("ini_read_string", {section, key, absent}).Text();
}

double ReadNumber(const char* section, const char* key, double absent = -1) {
    return Call("ini_read_real", {section, key, absent}).Real();
}

std::string Close() {
    return Call("ini_close").Text();
}

bool IsUnset(Value result) {
    return result.Kind() == VALUE_REAL && result.Real() == kUnset;
}

// --- opening and closing -------------------------------------------------------------------------------------------

TEST_F(Ini, AFileIsReadFromTheSaveAreaElseFromTheBundle) {
    WriteWholeFile(Bundle("shipped.ini"), "[a]\nk=shipped\n");
    WriteWholeFile(Bundle("both.ini"), "[a]\nk=shipped\n");
    WriteWholeFile(Save("both.ini"), "[a]\nk=saved\n");

    EXPECT_TRUE(IsUnset(Call("ini_open", {"shipped.ini"})));
    EXPECT_EQ(Read("a", "k"), "shipped");
    Call("ini_open", {"both.ini"});
    EXPECT_EQ(Read("a", "k"), "saved");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(Ini, AMissingFileIsAnEmptyDocumentThatIsWrittenWhenItHasChanged) {
    Call("ini_open", {"deep/new.ini"});
    EXPECT_EQ(Close(), "");
    EXPECT_FALSE(std::filesystem::exists(Save("deep")));

    Call("ini_open", {"deep/new.ini"});
    EXPECT_TRUE(IsUnset(Call("ini_write_string", {"a", "k", "v"})));
    EXPECT_EQ(Close(), "[a]\nk=v\n");
    EXPECT_EQ(Saved("deep/new.ini"), "[a]\nk=v\n");
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(Ini, AChangedFileOfTheBundleIsWrittenToTheSaveArea) {
    WriteWholeFile(Bundle("settings.ini"), "; shipped\n[a]\nk=1\n");

    Call("ini_open", {"settings.ini"});
    Call("ini_write_string", {"a", "k", "2"});
    Close();

    EXPECT_EQ(Saved("settings.ini"), "; shipped\n[a]\nk=2\n");
    EXPECT_EQ(ReadWholeFile(Bundle("settings.ini")), "; shipped\n[a]\nk=1\n");
}

TEST_F(Ini, AnEmptyOrMissingNameDoesNothingAtAll) {
    Call("ini_open", {"open.ini"});
    Call("ini_write_string", {"a", "k", "unsaved"});

    for (const Value& name : {Value(""), Value(g_undefined), Value(Other(VALUE_STRING, 0))}) {
        EXPECT_TRUE(IsUnset(Call("ini_open", {name})));
        EXPECT_EQ(Read("a", "k"), "unsaved");
        EXPECT_FALSE(std::filesystem::exists(Save("open.ini")));
    }
    KXTRQ_ini_open(nullptr);
    KXTRQ_ini_open("");
    EXPECT_EQ(Read("a", "k"), "unsaved");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(Ini, OpeningAnotherDocumentWritesTheOpenOneBackFirst) {
    Call("ini_open", {"first.ini"});
    Call("ini_write_string", {"a", "k", "1"});

    Call("ini_open", {"second.ini"});

    EXPECT_EQ(Saved("first.ini"), "[a]\nk=1\n");
    EXPECT_EQ(Call("ini_section_exists", {"a"}).Real(), 0);
}

TEST_F(Ini, OpeningAFileAgainSeesWhatWasChanged) {
    Call("ini_open", {"settings.ini"});
    Call("ini_write_string", {"a", "k", "1"});

    Call("ini_open", {"settings.ini"});

    EXPECT_EQ(Read("a", "k"), "1");
}

TEST_F(Ini, ATextIsADocumentWithoutAFile) {
    EXPECT_TRUE(IsUnset(Call("ini_open_from_string", {"[a]\nk=1\n"})));
    EXPECT_EQ(Read("a", "k"), "1");
    Call("ini_write_string", {"a", "new", "2"});
    EXPECT_EQ(Close(), "[a]\nk=1\nnew=2\n");
    EXPECT_EQ(NamesIn(Save()), std::vector<std::string>{});
}

TEST_F(Ini, ATextIsRenderedAnewWhenItIsClosed) {
    Call("ini_open_from_string", {"; kept\n[a]\n  k  =  \"1\"\nk = 2"});
    EXPECT_EQ(Close(), "; kept\n[a]\nk=2\n");
}

TEST_F(Ini, OpeningATextWritesTheOpenDocumentBackFirst) {
    for (const Value& text : {Value("[b]"), Value(""), Value(g_undefined)}) {
        std::filesystem::remove(Save("first.ini"));
        Call("ini_open", {"first.ini"});
        Call("ini_write_string", {"a", "k", "1"});

        Call("ini_open_from_string", {text});

        EXPECT_EQ(Saved("first.ini"), "[a]\nk=1\n");
        EXPECT_EQ(Call("ini_section_exists", {"a"}).Real(), 0);
    }
}

TEST_F(Ini, AnEmptyTextAndWhatIsNoTextAreEmptyDocuments) {
    for (const Value& text : {Value(""), Value(g_undefined), Value(Other(VALUE_STRING, 0))}) {
        Call("ini_open_from_string", {text});
        ASSERT_NE(g_IniFile, nullptr);
        EXPECT_EQ(g_IniFile->m_pFirst, nullptr);
        EXPECT_EQ(Close(), "");
    }
    KXTRQ_ini_open_from_string(nullptr);
    ASSERT_NE(g_IniFile, nullptr);
    EXPECT_EQ(Close(), "");
}

TEST_F(Ini, ClosingTwiceGivesAnEmptyTextAndDoesNothing) {
    Call("ini_open", {"settings.ini"});
    Call("ini_write_string", {"a", "k", "1"});
    EXPECT_EQ(Close(), "[a]\nk=1\n");
    std::filesystem::remove(Save("settings.ini"));

    EXPECT_EQ(Close(), "");

    EXPECT_FALSE(std::filesystem::exists(Save("settings.ini")));
    EXPECT_EQ(TakeError(), "");
}

TEST_F(Ini, CompiledCodeOwnsTheTextOfAClosedDocument) {
    long long blocks = MemoryManager::Stats().blocks;
    KXTRQ_ini_open("settings.ini");
    KXTRQ_ini_write_real("a", "k", 1.5);

    char* text = KXTRQ_ini_close();

    EXPECT_STREQ(text, "[a]\nk=1.500000\n");
    EXPECT_EQ(KXTRQ_ini_close(), nullptr);
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks + 1);
    MemoryManager::Free(text);
}

TEST_F(Ini, NothingClosesTheDocumentAtTheEnd) {
    Call("ini_open", {"settings.ini"});
    Call("ini_write_string", {"a", "k", "1"});

    FINALIZE_Function_File();
    InitFileFunctions();

    EXPECT_EQ(Read("a", "k"), "1");
    EXPECT_FALSE(std::filesystem::exists(Save("settings.ini")));
}

TEST_F(Ini, AFailedWriteKeepsTheFileAndIsNoScriptError) {
    WriteWholeFile(Save("settings.ini"), "[a]\nk=old\n");
    Call("ini_open", {"settings.ini"});
    Call("ini_write_string", {"a", "k", "new"});
    {
        FaultySystemCalls faults;
        faults.FailFrom("write", 1, ENOSPC);
        EXPECT_EQ(Close(), "[a]\nk=new\n");
    }
    EXPECT_EQ(Saved("settings.ini"), "[a]\nk=old\n");
    EXPECT_EQ(m_console.Take(), "Failed to write file: settings.ini (No space left on device)\n");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(Ini, ANameThatLeadsOutsideIsAnEmptyDocumentThatIsWrittenNowhere) {
    for (const char* name : {"../outside", "/etc/passwd", "a/../../outside", "C:\\..\\..\\outside", "\x01"}) {
        SCOPED_TRACE(name);
        Call("ini_open", {name});
        EXPECT_EQ(g_IniFile->m_pFirst, nullptr);
        Call("ini_write_string", {"a", "k", "1"});
        EXPECT_EQ(Close(), "[a]\nk=1\n");
        EXPECT_NE(m_console.Take().find("Failed to write file: "), std::string::npos);
        EXPECT_EQ(TakeError(), "");
    }
    EXPECT_EQ(NamesIn(Save()), std::vector<std::string>{});
}

// --- no document ---------------------------------------------------------------------------------------------------

TEST_F(Ini, WithNoDocumentEveryCallSaysSo) {
    struct Case {
        const char* name;
        std::vector<Value> arguments;
        const char* error;
    };
    const Case cases[] = {
        {"ini_read_string", {"a", "k", "default"}, kReadError},
        {"ini_write_string", {"a", "k", "v"}, kWriteError},
        {"ini_write_real", {"a", "k", 1}, kWriteError},
        {"ini_key_exists", {"a", "k"}, kReadError},
        {"ini_section_exists", {"a"}, kReadError},
        {"ini_key_delete", {"a", "k"}, kChangeError},
        {"ini_section_delete", {"a"}, kChangeError},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_TRUE(IsUnset(Call(each.name, each.arguments)));
        EXPECT_EQ(TakeError(), each.error);
    }
}

TEST_F(Ini, WithNoDocumentReadingANumberStillGivesItsDefault) {
    EXPECT_EQ(ReadNumber("a", "k", 2.5), 2.5);
    EXPECT_EQ(TakeError(), kReadError);

    EXPECT_EQ(KXTRQ_ini_read_real("a", "k", 7), 7);
    EXPECT_EQ(TakeError(), kReadError);
    KXTRQ_ini_write_real("a", "k", 7);
    EXPECT_EQ(TakeError(), kWriteError);
}

TEST_F(Ini, WithNoDocumentReadingATextLooksAtNoArgument) {
    Value result(kUnset);

    F_IniReadString(result.Get(), nullptr, nullptr, 3, nullptr);

    EXPECT_EQ(TakeError(), kReadError);
    EXPECT_TRUE(IsUnset(result));
}

// --- texts ---------------------------------------------------------------------------------------------------------

TEST_F(Ini, AMissingKeyReadsAsItsDefaultInPrintedForm) {
    RValue array = Array();
    Push(&array, Real(1));
    Push(&array, Text("two"));
    struct Case {
        Value absent;
        std::string text;
    };
    const Case cases[] = {
        {5, "5"},
        {0.1, "0.1"},
        {"text", "text"},
        {"", ""},
        {std::string(1000, 'x'), std::string(1000, 'x')},
        {g_undefined, "undefined"},
        {Bool(true), "true"},
        {Int64(INT64_MAX), "9223372036854775807"},
        {array, "[ 1,two ]"},
        {Other(VALUE_VEC3, 1), ""},
    };
    Call("ini_open_from_string", {"[a]\nother=1\n"});
    for (const Case& each : cases) {
        EXPECT_EQ(Read("a", "k", each.absent), each.text);
        EXPECT_EQ(Read("no section", "other", each.absent), each.text);
    }
}

TEST_F(Ini, ADefaultThatCannotBePrintedLeaksNothing) {
    RValue arrays[2] = {Array(), Array()};
    for (int i = 0; i < 2; ++i) {
        RValue other = arrays[1 - i];
        ++other.arr->m_refCount;
        Push(&arrays[i], other);
    }
    Value circle(arrays[0]);
    Call("ini_open_from_string", {""});
    std::vector<Value> arguments = {"a", "k", circle};
    long long blocks = MemoryManager::Stats().blocks;

    EXPECT_THROW(Call("ini_read_string", arguments), KXRecursionLimit);
    ResetVisits();

    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
    arrays[0].arr->m_elements[0] = g_undefined;
    --arrays[1].arr->m_refCount;
    FREE_RValue__Pre(&arrays[1]);
}

TEST_F(Ini, AKeyReadsAsItsTextWhateverTheDefaultIs) {
    Call("ini_open_from_string", {"[a]\nk=007\nempty=\n"});
    EXPECT_EQ(Read("a", "k", 5), "007");
    EXPECT_EQ(Read("a", "empty", "default"), "");
}

TEST_F(Ini, NamesAreNumbersAndTextsButNothingElse) {
    Call("ini_open_from_string", {""});
    Call("ini_write_string", {1, 2.5, 3});
    EXPECT_EQ(Read("1", "2.5"), "3");

    Call("ini_write_string", {g_undefined, "k", "v"});
    Call("ini_write_string", {"s", g_undefined, "v"});
    Call("ini_write_string", {"s", "k", g_undefined});
    EXPECT_EQ(Call("ini_key_exists", {g_undefined, "k"}).Real(), 0);
    EXPECT_EQ(Call("ini_section_exists", {g_undefined}).Real(), 0);
    Call("ini_key_delete", {g_undefined, g_undefined});
    Call("ini_section_delete", {g_undefined});

    EXPECT_EQ(Close(), "[1]\n2.5=3\n\n[s]\nk=\n");
    EXPECT_EQ(TakeError(), "");
}

// --- numbers -------------------------------------------------------------------------------------------------------

struct NumberCase {
    const char* text;
    double value;
};

TEST_F(Ini, ANumberIsTheLongestOneAtTheStartOfTheText) {
    const NumberCase cases[] = {
        {"1.5", 1.5},
        {"3,25", 3},
        {"-2e3x", -2000},
        {"", 0},
        {"text", 0},
        {"  7", 7},
        {"\t+8", 8},
        {"0x10", 16},
        {"inf", HUGE_VAL},
        {"1e999", HUGE_VAL},
        {"1e-999", 0},
        {".5", 0.5},
        {"5.", 5},
        {"- 1", 0},
        {"1.500000", 1.5},
        {"1 000", 1},
        {"1_000", 1},
        {"0x1p-2", 0.25},
        {"9007199254740993", 9007199254740992},
    };
    auto check = [&] {
        Call("ini_open_from_string", {""});
        for (const NumberCase& each : cases) {
            SCOPED_TRACE(each.text);
            Call("ini_write_string", {"a", "k", each.text});
            EXPECT_EQ(ReadNumber("a", "k"), each.value);
            EXPECT_EQ(KXTRQ_ini_read_real("a", "k", -1), each.value);
        }
        Call("ini_write_string", {"a", "k", "nan"});
        EXPECT_TRUE(std::isnan(ReadNumber("a", "k")));
    };
    check();
    CommaLocale locale;
    check();
}

TEST_F(Ini, AMissingKeyReadsAsItsDefaultNumber) {
    Call("ini_open_from_string", {"[a]\n"});
    EXPECT_EQ(ReadNumber("a", "k", 2.5), 2.5);
    EXPECT_EQ(ReadNumber("b", "k", -1), -1);
    EXPECT_EQ(Call("ini_read_real", {"a", "k", "3.5"}).Real(), 3.5);
    EXPECT_EQ(Call("ini_read_real", {"a", "k", g_undefined}).Real(), 0);
    EXPECT_EQ(TakeError(), "");
}

TEST_F(Ini, ANumberIsWrittenWithSixDecimalsAndNoExponent) {
    const NumberCase cases[] = {
        {"0.100000", 0.1},
        {"1.500000", 1.5},
        {"2.000000", 2},
        {"-0.000000", -0.0},
        {"0.000001", 1e-6},
        {"0.000000", 1e-9},
        {"inf", HUGE_VAL},
        {"-inf", -HUGE_VAL},
        {"nan", NAN},
        {"1000000000000000000000.000000", 1e21},
        {"123456789.125000", 123456789.125},
        {"0.333333", 1.0 / 3},
    };
    auto check = [&] {
        Call("ini_open_from_string", {""});
        for (const NumberCase& each : cases) {
            EXPECT_TRUE(IsUnset(Call("ini_write_real", {"a", "k", each.value})));
            EXPECT_EQ(Read("a", "k"), each.text);
            KXTRQ_ini_write_real("a", "k", each.value);
            EXPECT_EQ(Read("a", "k"), each.text);
        }
    };
    check();
    CommaLocale locale;
    check();
}

TEST_F(Ini, ANumberIsCutAt255Characters) {
    Call("ini_open_from_string", {""});
    char expected[400];
    std::snprintf(expected, sizeof expected, "%f", -1e300);

    Call("ini_write_real", {"a", "k", -1e300});

    EXPECT_EQ(Read("a", "k"), std::string(expected, 255));
}

TEST_F(Ini, TheTolerantReaderTakesCommasForPoints) {
    const NumberCase cases[] = {
        {"3,25", 3.25}, {"3.25", 3.25}, {"1,2,3", 1.2}, {",5", 0.5}, {"", 0}, {"x", 0}, {" 4", 4}, {"-1,5e2", -150},
    };
    auto check = [&] {
        for (const NumberCase& each : cases) {
            EXPECT_EQ(MyStrToFloat(each.text), each.value) << each.text;
        }
    };
    check();
    CommaLocale locale;
    check();
}

TEST_F(Ini, TheTolerantReaderReadsAtMost63Characters) {
    std::string digits(63, '1');
    EXPECT_EQ(MyStrToFloat(digits.c_str()), 1.1111111111111111e62);
    EXPECT_EQ(MyStrToFloat((digits + "1").c_str()), 0);
    EXPECT_EQ(MyStrToFloat(std::string(100000, ',').c_str()), 0);
    EXPECT_EQ(MyStrToFloat(nullptr), 0);
}

// --- keys and sections ---------------------------------------------------------------------------------------------

TEST_F(Ini, KeysAndSectionsAreThereOrNot) {
    Call("ini_open_from_string", {"[a]\nk=\n[empty]\n"});
    EXPECT_EQ(Call("ini_key_exists", {"a", "k"}).Real(), 1);
    EXPECT_EQ(Call("ini_key_exists", {"a", "K"}).Real(), 0);
    EXPECT_EQ(Call("ini_key_exists", {"b", "k"}).Real(), 0);
    EXPECT_EQ(Call("ini_section_exists", {"a"}).Real(), 1);
    EXPECT_EQ(Call("ini_section_exists", {"empty"}).Real(), 1);
    EXPECT_EQ(Call("ini_section_exists", {"A"}).Real(), 0);
    EXPECT_EQ(Call("ini_section_exists", {""}).Real(), 0);
}

TEST_F(Ini, DeletingTakesAwayAKeyOrASectionAndIsNoErrorForWhatIsAbsent) {
    Call("ini_open_from_string", {"[a]\nk=1\nl=2\n[b]\nm=3\n"});

    EXPECT_TRUE(IsUnset(Call("ini_key_delete", {"a", "k"})));
    EXPECT_TRUE(IsUnset(Call("ini_section_delete", {"b"})));
    Call("ini_key_delete", {"a", "absent"});
    Call("ini_key_delete", {"absent", "k"});
    Call("ini_section_delete", {"absent"});

    EXPECT_EQ(Call("ini_key_exists", {"a", "k"}).Real(), 0);
    EXPECT_EQ(Call("ini_section_exists", {"b"}).Real(), 0);
    EXPECT_EQ(Close(), "[a]\nl=2\n");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(Ini, DeletingWhatIsAbsentChangesNothing) {
    WriteWholeFile(Bundle("settings.ini"), "[a]\nk=1\n");
    Call("ini_open", {"settings.ini"});

    Call("ini_key_delete", {"a", "absent"});
    Call("ini_section_delete", {"absent"});
    Close();

    EXPECT_FALSE(std::filesystem::exists(Save("settings.ini")));
}

}  // namespace
}  // namespace kx::test
