// Script errors and the debug console.
#include "Files/Code/Code_Error.h"

#include "tests/support/Console.h"
#include "tests/support/Folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace kx::test {
namespace {

TEST(ScriptError, StaysPendingUntilItIsTaken) {
    KXError("file %s has %d lines", "x", 7);

    std::string text;
    EXPECT_TRUE(KXTakeError(&text));
    EXPECT_EQ(text, "file x has 7 lines");

    text = "untouched";
    EXPECT_FALSE(KXTakeError(&text));
    EXPECT_EQ(text, "untouched");
}

TEST(ScriptError, TheFirstOneCounts) {
    KXError("first");
    KXError("second");

    EXPECT_EQ(TakeError(), "first");
    EXPECT_EQ(TakeError(), "");
}

TEST(ScriptError, MayBeOfAnyLength) {
    std::string longText(100000, 'x');

    KXError("%s", longText.c_str());

    EXPECT_EQ(TakeError(), longText);
}

TEST(ScriptError, BelongsToTheThreadThatRaisedIt) {
    std::string there;
    std::thread([&] {
        KXError("there");
        EXPECT_EQ(TakeError(), "there");
        KXError("left behind");
    }).join();

    EXPECT_EQ(TakeError(), "");
}

std::string g_handled;

TEST(ScriptError, GoesToTheHandlerWhereThereIsOne) {
    KXErrorHandler before = KXSetErrorHandler([](const char* text) { g_handled += text; });
    EXPECT_EQ(before, nullptr);

    KXError("one %d;", 1);
    KXError("two;");

    EXPECT_EQ(g_handled, "one 1;two;");
    EXPECT_NE(KXSetErrorHandler(nullptr), nullptr);
    EXPECT_EQ(TakeError(), "");  // nothing was kept beside
    KXError("pending again");
    EXPECT_EQ(TakeError(), "pending again");
}

/// Standard error in a file, as long as it lives.
class StandardErrorFile {
public:
    StandardErrorFile() : m_saved(::dup(STDERR_FILENO)) {
        int file = ::open((m_folder.Path() / "errors").c_str(), O_CREAT | O_WRONLY, 0600);
        ::dup2(file, STDERR_FILENO);
        ::close(file);
    }
    StandardErrorFile(const StandardErrorFile&) = delete;
    StandardErrorFile& operator=(const StandardErrorFile&) = delete;
    ~StandardErrorFile() {
        ::dup2(m_saved, STDERR_FILENO);
        ::close(m_saved);
    }

    std::string Contents() { return ReadWholeFile(m_folder.Path() / "errors"); }

private:
    TemporaryFolder m_folder;
    int m_saved;
};

TEST(Console, WritesToStandardErrorAtOnceAndWholeLines) {
    StandardErrorFile errors;

    dbg_csol->Output("a line with %d\n", 5);
    EXPECT_EQ(errors.Contents(), "a line with 5\n");

    dbg_csol->Output("half a line, ");
    EXPECT_EQ(errors.Contents(), "a line with 5\n");
    dbg_csol->Output("the rest\nand more");
    EXPECT_EQ(errors.Contents(), "a line with 5\nhalf a line, the rest\n");
    dbg_csol->Output("\n");
    EXPECT_EQ(errors.Contents(), "a line with 5\nhalf a line, the rest\nand more\n");
}

TEST(Console, LetsNoNameDriveTheTerminal) {
    StandardErrorFile errors;

    dbg_csol->Output("name: %s\n", "\x1b[2Jcleared\r\x07\x7f\tand \xC3\xA4\xC2\x9B"
                                   "31m\xC2\xA0\xC2.");

    EXPECT_EQ(errors.Contents(), "name: ?[2Jcleared???\tand \xC3\xA4?31m\xC2\xA0\xC2.\n");
}

TEST(Console, CanBeReplaced) {
    CapturingConsole console;

    dbg_csol->Output("to the %s\n", "test");

    EXPECT_EQ(console.Take(), "to the test\n");
}

}  // namespace
}  // namespace kx::test
