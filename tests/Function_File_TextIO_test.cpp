// Text files: reading and writing.
#include "tests/Function_File_Text_fixture.h"
#include "tests/support/CommaLocale.h"

#include <cmath>

namespace kx::test {
namespace {

constexpr char kNotReading[] = "File is not opened for reading.";
constexpr char kNotWriting[] = "File not opened for writing.";

const char* const kReaders[] = {"file_text_eof", "file_text_eoln", "file_text_read_string", "file_text_readln",
                                "file_text_read_real"};

class TextInput : public TextFiles {
protected:
    /// Opens a text; it is number 1.
    void Given(const std::string& text) { ASSERT_EQ(Call("file_text_open_from_string", {text}).Real(), 1); }

    static std::string ReadString() { return Call("file_text_read_string", {1}).Text(); }
    static std::string ReadLn() { return Call("file_text_readln", {1}).Text(); }
    static double ReadReal() { return Call("file_text_read_real", {1}).Real(); }
    static bool Eof() { return Call("file_text_eof", {1}).Real() == 1; }
    static bool Eoln() { return Call("file_text_eoln", {1}).Real() == 1; }
};

class TextOutput : public TextFiles {
protected:
    void SetUp() override {
        TextFiles::SetUp();
        ASSERT_EQ(Call("file_text_open_write", {"out.txt"}).Real(), 1);
    }

    std::string Written() {
        Call("file_text_close", {1});
        return ReadWholeFile(Save("out.txt"));
    }
};

// --- ids -----------------------------------------------------------------------------------------------------------

TEST_F(TextInput, NeedsANumberThatIsOpenForReading) {
    Given("text");
    Call("file_text_open_write", {"out.txt"});  // number 2

    const Value numbers[] = {0, 2, 3, 32, -1, Value(NAN), INFINITY, Value(), "text", 1e18};
    for (const char* reader : kReaders) {
        for (const Value& number : numbers) {
            SCOPED_TRACE(reader);

            Value result = Call(reader, {number});

            EXPECT_EQ(TakeError(), kNotReading);
            EXPECT_EQ(result.Real(), kUnset);
        }
    }
}

TEST_F(TextOutput, NeedsANumberThatIsOpenForWriting) {
    Call("file_text_open_from_string", {"text"});  // number 2

    const Value numbers[] = {0, 2, 3, 32, -1, Value(NAN), Value(-INFINITY), Value(), "text"};
    for (const Value& number : numbers) {
        EXPECT_EQ(Call("file_text_write_string", {number, "x"}).Real(), kUnset);
        EXPECT_EQ(TakeError(), kNotWriting);
        EXPECT_EQ(Call("file_text_write_real", {number, 1}).Real(), kUnset);
        EXPECT_EQ(TakeError(), kNotWriting);
        EXPECT_EQ(Call("file_text_writeln", {number}).Real(), kUnset);
        EXPECT_EQ(TakeError(), kNotWriting);
    }
    EXPECT_EQ(Written(), "");
}

TEST_F(TextInput, ANumberMayBeATextOrHaveAFraction) {
    Given("text");

    EXPECT_EQ(Call("file_text_read_string", {"1"}).Text(), "text");
    EXPECT_EQ(Call("file_text_eof", {1.99}).Real(), 1);
}

TEST_F(TextInput, IsOverAfterTheClose) {
    Given("text");
    Call("file_text_close", {1});

    Call("file_text_eof", {1});

    EXPECT_EQ(TakeError(), kNotReading);
}

// --- lines ---------------------------------------------------------------------------------------------------------

TEST_F(TextInput, ReadStringStopsBeforeTheLineEnd) {
    for (const char* lineEnd : {"\n", "\r\n", "\r"}) {
        Given(std::string("one") + lineEnd + "two");

        EXPECT_EQ(ReadString(), "one");
        EXPECT_EQ(ReadString(), "");
        EXPECT_EQ(ReadString(), "");
        EXPECT_TRUE(Eoln());
        EXPECT_FALSE(Eof());
        Call("file_text_close", {1});
    }
}

TEST_F(TextInput, ReadLnGivesWhatItPassesOver) {
    Given("one\ntwo\r\nthree\n\nlast");

    EXPECT_EQ(ReadLn(), "one\n");
    EXPECT_EQ(ReadLn(), "two\r\n");
    EXPECT_EQ(ReadString(), "three");
    EXPECT_EQ(ReadLn(), "\n");
    EXPECT_EQ(ReadLn(), "\n");
    EXPECT_EQ(ReadLn(), "last");
    EXPECT_TRUE(Eof());
}

TEST_F(TextInput, ReadLnDoesNotEndALineAtACarriageReturn) {
    Given("one\rstill one\ntwo");

    EXPECT_EQ(ReadLn(), "one\rstill one\n");
}

TEST_F(TextInput, ReadingAtTheEndGivesTheEmptyString) {
    Given("x");
    EXPECT_EQ(ReadString(), "x");

    EXPECT_EQ(ReadString(), "");
    EXPECT_EQ(ReadLn(), "");
    EXPECT_EQ(ReadReal(), 0);
    EXPECT_EQ(TakeError(), "");
}

TEST_F(TextInput, LinesOfEveryLengthAreWhole) {
    const int lengths[] = {0,    1,    1022, 1023, 1024, 1025, 1535, 1536, 1537, 2046,
                           2047, 2048, 2049, 2303, 2304, 2305, 3071, 3072, 5000, 1000000};
    for (int length : lengths) {
        SCOPED_TRACE(length);
        std::string line(static_cast<size_t>(length), 'x');

        Given(line + "\nnext");
        EXPECT_EQ(ReadString(), line);
        EXPECT_EQ(ReadLn(), "\n");
        EXPECT_EQ(ReadString(), "next");
        Call("file_text_close", {1});

        Given(line + "\nnext");
        EXPECT_EQ(ReadLn(), line + "\n");
        EXPECT_EQ(ReadLn(), "next");
        Call("file_text_close", {1});

        Given(line);
        EXPECT_EQ(ReadLn(), line);
        Call("file_text_close", {1});
    }
}

TEST_F(TextInput, AZeroByteEndsTheTextOfALineButNotTheLine) {
    WriteWholeFile(Save("zero.txt"), std::string("ab\0cd\nnext\n", 11));
    Call("file_text_open_read", {"zero.txt"});

    EXPECT_EQ(ReadLn(), "ab");
    EXPECT_EQ(ReadString(), "next");
}

TEST_F(TextInput, TheEndOfALineIsBeforeItsEndCharactersAndAtTheEndOfTheFile) {
    struct Case {
        const char* text;
        bool eoln, eof;
    };
    const Case cases[] = {
        {"", true, true}, {"x", false, false}, {"\n", true, false}, {"\r", true, false}, {" ", false, false}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.text);
        Given(each.text);

        EXPECT_EQ(Eoln(), each.eoln);
        EXPECT_EQ(Eof(), each.eof);
        Call("file_text_close", {1});
    }
}

TEST_F(TextInput, ReadingLeavesNoMemoryBehind) {
    Given(std::string(5000, 'x') + "\n" + std::string(5000, 'y'));
    long long before = MemoryManager::Stats().blocks;

    ReadString();
    ReadLn();
    ReadLn();

    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

// --- numbers -------------------------------------------------------------------------------------------------------

TEST_F(TextInput, ReadRealTakesTheNumberAtThePosition) {
    struct Case {
        const char* text;
        double number;
        const char* rest;  // of the line
    };
    const Case cases[] = {
        {"12", 12, ""},
        {"-1.5 x", -1.5, " x"},
        {"+3", 3, ""},
        {"  \t\r\n 7,8", 7, ",8"},
        {"1e3", 1000, ""},
        {".5", 0.5, ""},
        {"5.", 5, ""},
        {"0x10", 0, "x10"},
        {"inf", 0, "inf"},
        {"nan", 0, "nan"},
        {"abc", 0, "abc"},
        {"  abc", 0, "abc"},
        {"-", 0, "-"},
        {"1e999", INFINITY, ""},
        {"-1e999", -INFINITY, ""},
        {"1e-999", 0, ""},
        {"1.2.3", 1.2, ".3"},
        {"1-2", 1, "-2"},
        {"", 0, ""},
        {"\n\n", 0, ""},
        {"1e", 1, "e"},
        {"+-5", 0, "+-5"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.text);
        Given(each.text);

        EXPECT_EQ(ReadReal(), each.number);
        EXPECT_EQ(ReadString(), each.rest);
        Call("file_text_close", {1});
    }
}

TEST_F(TextInput, NumbersOnSeveralLinesAreReadOneAfterAnother) {
    Given("1 2\n3\r\n\r\n4");

    for (double number : {1.0, 2.0, 3.0, 4.0}) {
        EXPECT_EQ(ReadReal(), number);
    }
    EXPECT_TRUE(Eof());
}

// --- writing -------------------------------------------------------------------------------------------------------

TEST_F(TextOutput, WritesTextsAsTheyAre) {
    Call("file_text_write_string", {1, "one"});
    Call("file_text_write_string", {1, " two\r\n\ttabs and \xC3\xA9"});
    Call("file_text_write_string", {1, ""});

    EXPECT_EQ(Written(), "one two\r\n\ttabs and \xC3\xA9");
}

TEST_F(TextOutput, WritesALineFeed) {
    Call("file_text_write_string", {1, "one"});
    Call("file_text_writeln", {1});
    Call("file_text_writeln", {1});

    EXPECT_EQ(Written(), "one\n\n");
}

TEST_F(TextOutput, WritesNumbersWithSixDigitsAndABlank) {
    struct Case {
        double number;
        const char* text;
    };
    const Case cases[] = {{1.5, "1.5 "},        {0, "0 "},           {-0.0, "-0 "},
                          {100000, "100000 "},  {1000000, "1e+06 "}, {1234567, "1.23457e+06 "},
                          {0.1, "0.1 "},        {0.00001, "1e-05 "}, {1.0 / 3, "0.333333 "},
                          {1e300, "1e+300 "},   {INFINITY, "inf "},  {-INFINITY, "-inf "},
                          {123456.5, "123456 "}};
    std::string expected;
    for (const Case& each : cases) {
        Call("file_text_write_real", {1, each.number});
        expected += each.text;
    }

    EXPECT_EQ(Written(), expected);
}

TEST_F(TextOutput, NumbersWrittenOneAfterAnotherAreReadBack) {
    Call("file_text_write_real", {1, 1.5});
    Call("file_text_write_real", {1, -2});
    Call("file_text_write_real", {1, "3"});  // a text that is a number
    Written();

    Call("file_text_open_read", {"out.txt"});

    for (double number : {1.5, -2.0, 3.0}) {
        EXPECT_EQ(Call("file_text_read_real", {1}).Real(), number);
    }
}

TEST_F(TextOutput, KnowsNoDecimalComma) {
    CommaLocale locale;

    Call("file_text_write_real", {1, 1.5});
    Call("file_text_write_string", {1, 2.5});

    EXPECT_EQ(Written(), "1.5 2.5");
    Call("file_text_open_read", {"out.txt"});
    EXPECT_EQ(Call("file_text_read_real", {1}).Real(), 1.5);
    EXPECT_EQ(Call("file_text_read_real", {1}).Real(), 2.5);
}

TEST_F(TextOutput, WritesNothingWhereThereIsNoText) {
    Call("file_text_write_string", {1, Value()});
    Call("file_text_write_string", {1, RValue{{0}, 0, VALUE_STRING}});

    EXPECT_EQ(TakeError(), "");
    EXPECT_EQ(Written(), "");
}

TEST_F(TextOutput, WritesNumbersAndBoolsAsTexts) {
    Call("file_text_write_string", {1, 12});
    Call("file_text_write_string", {1, RValue{{1.0}, 0, VALUE_BOOL}});

    EXPECT_EQ(Written(), "12true");
}

TEST_F(TextOutput, SetsNoResult) {
    EXPECT_EQ(Call("file_text_write_string", {1, "x"}).Real(), kUnset);
    EXPECT_EQ(Call("file_text_write_real", {1, 1}).Real(), kUnset);
    EXPECT_EQ(Call("file_text_writeln", {1}).Real(), kUnset);
}

}  // namespace
}  // namespace kx::test
