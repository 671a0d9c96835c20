// CSV files and the grids that they become.
#include "Files/Base/Limits.h"
#include "tests/Csv_fixture.h"
#include "tests/support/FaultySystemCalls.h"
#include "tests/support/MemoryArea.h"

#include <cerrno>
#include <random>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

constexpr char kMark[] = "\xEF\xBB\xBF";  // UTF-8's byte order mark

class Csv : public CsvTest {
protected:
    struct Case {
        std::string text;
        Rows rows;
    };

    /// Loads each text. All rows of a table have the same number of cells.
    template <size_t count>
    void ExpectTables(const Case (&cases)[count]) {
        for (const Case& each : cases) {
            SCOPED_TRACE(::testing::PrintToString(each.text));
            int index = LoadText(each.text);
            EXPECT_EQ(m_console.Take(), "");
            const CDS_Grid& grid = GridOf(index);
            EXPECT_EQ(static_cast<size_t>(grid.m_height), each.rows.size());
            EXPECT_EQ(static_cast<size_t>(grid.m_width), each.rows.empty() ? 0 : each.rows[0].size());
            EXPECT_EQ(Take(index), each.rows);
        }
    }
};

// --- what becomes what -----------------------------------------------------------------------------------------------

TEST_F(Csv, LinesAreRowsAndCommasEndCells) {
    ExpectTables({{"a,b\n", {{"a", "b"}}},
                  {"a,b", {{"a", "b"}}},
                  {"a,b\r\n", {{"a", "b"}}},
                  {"a,b\nc,d", {{"a", "b"}, {"c", "d"}}},
                  {"a,b\r\nc,d\n", {{"a", "b"}, {"c", "d"}}},
                  {"", {}},
                  {kMark, {}},
                  {"\n", {{""}}},
                  {"\r\n", {{""}}},
                  {"\n\n", {{""}, {""}}},
                  {"\na", {{""}, {"a"}}},
                  {"a\n\nb\n", {{"a"}, {""}, {"b"}}},
                  {"a,b\n\nc,d\n", {{"a", "b"}, {"", ""}, {"c", "d"}}},
                  {"a,", {{"a", ""}}},
                  {"a,\n", {{"a", ""}}},
                  {"a,\r\n", {{"a", ""}}},
                  {",", {{"", ""}}},
                  {",,\n", {{"", "", ""}}},
                  {",a", {{"", "a"}}},
                  {"a\n,\n", {{"a", ""}, {"", ""}}},
                  {"1,-2.50,1e9,true\n", {{"1", "-2.50", "1e9", "true"}}}});
}

TEST_F(Csv, QuotesHoldSeparatorsAndLineEndsAsTheyAre) {
    ExpectTables({{"\"a\"", {{"a"}}},
                  {"\"\"", {{""}}},
                  {"\"\"\n", {{""}}},
                  {"\"\",\"\"\r\n\"\",\"\"", {{"", ""}, {"", ""}}},
                  {"\"a,b\",c\n", {{"a,b", "c"}}},
                  {"\"a\nb\"\nc", {{"a\nb"}, {"c"}}},
                  {"\"a\r\nb\"\r\nc", {{"a\r\nb"}, {"c"}}},
                  {"\"a\rb\"", {{"a\rb"}}},
                  {"\"a\r\"\n", {{"a\r"}}},
                  {"\"\n\"", {{"\n"}}},
                  {"\",\",\",\"", {{",", ","}}},
                  {"\"a\"\"b\"", {{"a\"b"}}},
                  {"\"\"\"\"", {{"\""}}},
                  {"\"\"\"a\"\"\",\"\"\"\"\"\"\n", {{"\"a\"", "\"\""}}},
                  {"\"a\"\",\"\"b\"", {{"a\",\"b"}}},
                  {"x,\"a\"\ny,\"b\"\n", {{"x", "a"}, {"y", "b"}}}});
}

TEST_F(Csv, QuotesElsewhereStandForThemselves) {
    ExpectTables({{"\"a\"b", {{"ab"}}},
                  {"\"a\" \"b\"", {{"a \"b\""}}},
                  {"\"a\"b\"", {{"ab\""}}},
                  {"\"a\"b\"\"c\n", {{"ab\"\"c"}}},
                  {"\"a\" ,b\n", {{"a ", "b"}}},
                  {"\"a,\"b,c\n", {{"a,b", "c"}}},
                  {"\"a\"b,\"c\"d\n\"e\"", {{"ab", "cd"}, {"e", ""}}},
                  {"\"\"a", {{"a"}}},
                  {"a\"b", {{"a\"b"}}},
                  {"a\"", {{"a\""}}},
                  {"a\"\"b", {{"a\"\"b"}}},
                  {"a\"b,c\"d\n", {{"a\"b", "c\"d"}}},
                  {"a\"b\nc\"d\n", {{"a\"b"}, {"c\"d"}}},
                  {" \"a\",b\n", {{" \"a\"", "b"}}},
                  {"5'11\",5\"\n", {{"5'11\"", "5\""}}}});
}

TEST_F(Csv, ACarriageReturnAloneIsText) {
    ExpectTables({{"a\rb\n", {{"a\rb"}}},
                  {"a\r", {{"a\r"}}},
                  {"\r", {{"\r"}}},
                  {"a\r\r\n", {{"a\r"}}},
                  {"a\r,b\n", {{"a\r", "b"}}},
                  {"a,\r", {{"a", "\r"}}},
                  {"\r\r\n\n", {{"\r"}, {""}}},
                  {"\"a\"\r", {{"a\r"}}},
                  {"\"a\"\rb\r\n", {{"a\rb"}}},
                  {"\"a\"\r\n", {{"a"}}}});
}

TEST_F(Csv, OnlyTheFirstByteOrderMarkIsSkippedAndBytesAreKept) {
    const std::string mark = kMark;
    ExpectTables({{mark + "a", {{"a"}}},
                  {mark + "\"a,b\"", {{"a,b"}}},
                  {mark + "\n", {{""}}},
                  {mark + mark, {{mark}}},
                  {"a\n" + mark + "b", {{"a"}, {mark + "b"}}},
                  {"\"" + mark + "\"", {{mark}}},
                  {"\xEF\xBB", {{"\xEF\xBB"}}},
                  {"\xEF\xBB,a", {{"\xEF\xBB", "a"}}},
                  {"\xFF\xFE,\x80", {{"\xFF\xFE", "\x80"}}},
                  {"\x01\x1B,\x7F", {{"\x01\x1B", "\x7F"}}},
                  {" a , b ", {{" a ", " b "}}},
                  {"a;b\tc|d", {{"a;b\tc|d"}}},
                  {"\xC3\xA4,\xE2\x82\xAC", {{"\xC3\xA4", "\xE2\x82\xAC"}}}});
}

TEST_F(Csv, ShorterRowsAreFilledWithEmptyCells) {
    ExpectTables({{"a\nb,c,d\ne,f\n", {{"a", "", ""}, {"b", "c", "d"}, {"e", "f", ""}}},
                  {"a,b,c\nd", {{"a", "b", "c"}, {"d", "", ""}}},
                  {"a\n,,\n", {{"a", "", ""}, {"", "", ""}}},
                  {"\n\na,b", {{"", ""}, {"", ""}, {"a", "b"}}}});
}

/// A table as RFC 4180 writes it; with quotes also where none are needed, and either line end.
std::string Written(const Rows& rows, std::mt19937& random) {
    std::string text;
    if (random() % 4 == 0 || (!rows.empty() && rows[0][0].rfind(kMark, 0) == 0)) text = kMark;
    for (const auto& row : rows) {
        for (const std::string& cell : row) {
            bool needed = cell.find_first_of(",\"\r\n") != std::string::npos || (row.size() == 1 && cell.empty());
            bool quoted = needed || random() % 5 == 0;
            if (quoted) text += '"';
            for (char each : cell) {
                text += each;
                if (each == '"') text += '"';
            }
            if (quoted) text += '"';
            text += ',';
        }
        text.pop_back();
        text += random() % 3 == 0 ? "\r\n" : "\n";
    }
    if (!rows.empty() && random() % 2 == 0) {
        text.pop_back();
        if (text.back() == '\r') text.pop_back();
    }
    return text;
}

TEST_F(Csv, WhatIsWrittenAsRfc4180SaysIsReadAsItWas) {
    const std::string parts[] = {"a", "1", ",", "\"", "\n", "\r", "\r\n", " ", "\xC3\xA4", kMark, "word", "\"\""};
    std::mt19937 random(4180);
    for (int i = 0; i < 2000; ++i) {
        Rows rows(random() % 8);
        size_t width = 1 + random() % 6;
        for (auto& row : rows) {
            row.resize(width);
            for (std::string& cell : row) {
                for (auto length = random() % 5; length > 0; --length) {
                    cell += parts[random() % std::size(parts)];
                }
            }
        }
        std::string text = Written(rows, random);
        ASSERT_EQ(Take(LoadText(text)), rows) << i << ": " << ::testing::PrintToString(text);
    }
    EXPECT_EQ(m_console.Take(), "");
}

// --- what is no table ------------------------------------------------------------------------------------------------

TEST_F(Csv, WhatIsNoTableIsRefusedWithItsLine) {
    const std::string zero(1, '\0');
    struct Fault {
        std::string text;
        const char* why;
    };
    const Fault faults[] = {
        {"\"", "the quotes of line 1 are never closed"},
        {"\"a", "the quotes of line 1 are never closed"},
        {"\"a\"\"", "the quotes of line 1 are never closed"},
        {"a,\"b\nc\nd\n", "the quotes of line 1 are never closed"},
        {"a\nb,\"c\nd\n", "the quotes of line 2 are never closed"},
        {"a\r\nb\rc,\"d\n", "the quotes of line 2 are never closed"},
        {"\"a\nb\"\n\"c", "the quotes of line 3 are never closed"},
        {"\"a\r\nb\",\"c\n\n\n", "the quotes of line 2 are never closed"},
        {"a\"b\n\n\"c", "the quotes of line 3 are never closed"},
        {zero, "a zero byte in line 1"},
        {"a,b" + zero + "\n", "a zero byte in line 1"},
        {"a\nb\n" + zero, "a zero byte in line 3"},
        {"a\r\n\"b" + zero + "\"\n", "a zero byte in line 2"},
        {"\"a\nb" + zero + "\"\n", "a zero byte in line 2"},
        {std::string(100000, '\n') + zero, "a zero byte in line 100001"},
    };
    for (const Fault& each : faults) {
        SCOPED_TRACE(::testing::PrintToString(each.text.substr(0, 100)));
        EXPECT_EQ(LoadText(each.text), -1);
        EXPECT_EQ(m_console.Take(), "Failed to load CSV file: table.csv (" + std::string(each.why) + ")\n");
    }
}

TEST_F(Csv, WhatCannotBeReadIsRefused) {
    fs::create_directory(Save("folder"));
    fs::create_directory(Bundle("shipped"));
    WriteWholeFile(Save("large.csv"), "");
    fs::resize_file(Save("large.csv"), 3ull << 30);  // takes no room
    ASSERT_EQ(::mkfifo(Save("pipe").c_str(), 0600), 0);
    fs::create_symlink("../outside", Save("link"));
    struct Fault {
        const char* name;
        int reason;
    };
    for (const Fault& each : {Fault{"missing.csv", ENOENT}, Fault{"missing/missing.csv", ENOENT},
                              Fault{"folder", EISDIR}, Fault{"shipped", EISDIR}}) {
        EXPECT_EQ(LoadName(each.name), -1);
        EXPECT_EQ(m_console.Take(), "Failed to load CSV file: " + std::string(each.name) + " (" +
                                        std::generic_category().message(each.reason) + ")\n");
    }
    EXPECT_EQ(LoadName("large.csv"), -1);
    std::string said = m_console.Take();
    EXPECT_NE(said.find("Failed to load CSV file: large.csv (File too large)\n"), std::string::npos) << said;
    for (const char* name : {"", "pipe", "link", "../outside", "/etc/passwd", "a\nb"}) {
        EXPECT_EQ(LoadName(name), -1) << name;
        EXPECT_NE(m_console.Take(), "") << name;
    }
    EXPECT_EQ(LoadCSV(nullptr), -1);
}

TEST_F(Csv, AFileMayBeAsLargeAsTheLimit) {
    std::string text(kMaxCsvBytes, 'x');
    int index = LoadText(text);
    EXPECT_EQ(GridOf(index).m_width, 1);
    EXPECT_EQ(GridOf(index).m_height, 1);
    FreeDsGrid(index);

    EXPECT_EQ(LoadText(text + "\n"), -1);
    EXPECT_EQ(m_console.Take(),
              "Failed to load CSV file: table.csv (more than " + std::to_string(kMaxCsvBytes) + " bytes)\n");
}

// --- where it is read from -------------------------------------------------------------------------------------------

TEST_F(Csv, TheSaveAreaComesBeforeTheBundle) {
    WriteWholeFile(Bundle("data/both.csv"), "shipped");
    WriteWholeFile(Bundle("data/shipped.csv"), "shipped");
    WriteWholeFile(Save("data/both.csv"), "saved");
    WriteWholeFile(Save("data/saved.csv"), "saved");

    for (const std::string& name : {std::string("data/both.csv"), std::string("data\\both.csv"),
                                    std::string("data/saved.csv"), Save("data/both.csv").string()}) {
        EXPECT_EQ(Take(LoadName(name)), (Rows{{"saved"}})) << name;
    }
    for (const std::string& name : {std::string("data/shipped.csv"), Bundle("data/both.csv").string()}) {
        EXPECT_EQ(Take(LoadName(name)), (Rows{{"shipped"}})) << name;
    }
}

TEST_F(Csv, ABundleThatOnlyTheHostCanReadIsReadToo) {
    MemoryBundle bundle(Files{{"data/table.csv", "a,\"b\"\n"}});

    EXPECT_EQ(Take(LoadName("data/table.csv")), (Rows{{"a", "b"}}));
}

TEST_F(Csv, ACallThatFailsGivesNoTableOrTheWholeOne) {
    const Rows whole{{"a", "b"}, {"c", "d"}};
    WriteWholeFile(Save("table.csv"), "a,b\nc,d\n");
    WriteWholeFile(Bundle("table.csv"), "another,table\n");
    int refused = 0;
    for (int reason : {EIO, EACCES, EMFILE, ENOMEM}) {
        bool failed = true;
        for (int number = 1; failed; ++number) {
            SCOPED_TRACE(std::to_string(reason) + " at " + std::to_string(number));
            FaultySystemCalls faults;
            faults.FailAt(number, reason, FaultySystemCalls::Extent::once);
            int index = LoadName("table.csv");
            std::string said = m_console.Take();
            failed = faults.Calls().size() >= static_cast<size_t>(number);
            if (index >= 0) {
                EXPECT_EQ(Take(index), whole);
                continue;
            }
            ++refused;
            EXPECT_NE(said.find("Failed to load CSV file: table.csv ("), std::string::npos) << said;
            EXPECT_NE(said.find(std::generic_category().message(reason)), std::string::npos) << said;
        }
    }
    EXPECT_GT(refused, 0);
}

TEST_F(Csv, ShortAndInterruptedReadsGiveTheWholeTable) {
    std::string text;
    Rows rows;
    for (int i = 0; i < 500; ++i) {
        rows.push_back({std::to_string(i), "a \"line\"\n" + std::to_string(i)});
        text += std::to_string(i) + ",\"a \"\"line\"\"\n" + std::to_string(i) + "\"\r\n";
    }
    WriteWholeFile(Save("table.csv"), text);
    for (size_t most : {1, 7, 4096}) {
        FaultySystemCalls faults;
        faults.FallShort(most);
        faults.InterruptEach();
        EXPECT_EQ(Take(LoadName("table.csv")), rows) << most;
    }
}

TEST_F(Csv, TablesAreLoadedOnManyThreads) {
    for (int i = 0; i < 4; ++i) {
        WriteWholeFile(Save("table" + std::to_string(i)), std::to_string(i) + "\n\"" + std::to_string(i) + "\"\n");
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const std::string text = std::to_string(i);
            for (int k = 0; k < 100; ++k) {
                int index = LoadName("table" + text);
                DS_AutoMutex lock;
                ASSERT_EQ(Take(index), (Rows{{text}, {text}}));
            }
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
}

}  // namespace
}  // namespace kx::test
