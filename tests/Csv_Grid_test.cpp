// Grids of a file's texts: their cells, and tables that are large or have an unusual shape.
#include "Files/Base/Collector.h"
#include "Files/Base/KXObjectBase.h"
#include "Files/Base/Limits.h"
#include "tests/Csv_fixture.h"
#include "tests/RValue_fixture.h"

#include <algorithm>

namespace kx::test {
namespace {

class CsvGrid : public CsvTest {
protected:
    /// Loads a text and frees nothing.
    CDS_Grid& Load(const std::string& text) {
        m_index = LoadText(text);
        EXPECT_EQ(m_console.Take(), "");
        return GridOf(m_index);
    }

    void TearDown() override {
        FreeDsGrid(m_index);
        CsvTest::TearDown();
    }

    int m_index = -1;
};

std::string Repeated(const std::string& part, int count) {
    std::string text;
    text.reserve(part.size() * static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        text += part;
    }
    return text;
}

// --- cells -----------------------------------------------------------------------------------------------------------

TEST_F(CsvGrid, ACellThatWasAskedForIsTheCallers) {
    RValueOwner first;
    RValueOwner second;
    RValueOwner empty;
    CDS_Grid& grid = Load("text,\nrow\n");

    ASSERT_TRUE(grid.Get(0, 0, &first.value));
    ASSERT_TRUE(grid.Get(0, 0, &second.value));
    ASSERT_TRUE(grid.Get(1, 1, &empty.value));
    FREE_RValue__Pre(&second.value);
    FreeDsGrid(m_index);

    EXPECT_EQ(Printed(first.value), "text");
    EXPECT_EQ(first.value.str->m_size, 4);
    EXPECT_EQ(first.value.str->m_refCount, 1);
    EXPECT_EQ(empty.value.kind, VALUE_STRING);
    EXPECT_EQ(Printed(empty.value), "");
}

TEST_F(CsvGrid, ACellThatIsNotThereIsNotGiven) {
    CDS_Grid& grid = Load("a,b\nc\n");
    RValue untouched = Real(7);
    for (auto [column, row] : {std::pair(2, 0), {0, 2}, {-1, 0}, {0, -1}, {1 << 30, 1 << 30}}) {
        EXPECT_FALSE(grid.Get(column, row, &untouched));
        EXPECT_FALSE(grid.Set(column, row, &untouched));
    }
    EXPECT_EQ(untouched.real, 7);
    EXPECT_EQ(Take(m_index), (Rows{{"a", "b"}, {"c", ""}}));

    CDS_Grid& empty = Load("");
    EXPECT_FALSE(empty.Get(0, 0, &untouched));
    EXPECT_FALSE(empty.Set(0, 0, &untouched));
}

TEST_F(CsvGrid, SettingReplacesOneCellAndNoOther) {
    const std::string text = "a,b,c\nd,\"e\"\"\"\n,,\n";
    const Rows before{{"a", "b", "c"}, {"d", "e\"", ""}, {"", "", ""}};
    RValueOwner longer(Text("much longer than what was there"));
    RValueOwner shorter(Text(""));
    for (const RValueOwner* value : {&longer, &shorter}) {
        for (int i = 0; i < 9; ++i) {
            SCOPED_TRACE(i);
            Rows after = before;
            after[static_cast<size_t>(i / 3)][static_cast<size_t>(i % 3)] = Printed(value->value);
            EXPECT_TRUE(Load(text).Set(i % 3, i / 3, &value->value));
            EXPECT_EQ(Take(m_index), after);
        }
    }
    EXPECT_EQ(longer.value.str->m_refCount, 1);
}

TEST_F(CsvGrid, ACellThatWasSetHoldsAReferenceUntilTheNext) {
    RValueOwner text(Text("shared"));
    CDS_Grid& grid = Load("a,b\n");

    EXPECT_TRUE(grid.Set(1, 0, &text.value));
    EXPECT_TRUE(grid.Set(1, 0, &text.value));
    EXPECT_EQ(text.value.str->m_refCount, 2);
    RValueOwner copy;
    EXPECT_TRUE(grid.Get(1, 0, &copy.value));
    EXPECT_EQ(copy.value.str, text.value.str);

    RValue number = Real(2.5);
    EXPECT_TRUE(grid.Set(1, 0, &number));
    EXPECT_EQ(text.value.str->m_refCount, 2);
    RValue cell{};
    EXPECT_TRUE(grid.Get(1, 0, &cell));
    EXPECT_EQ(cell.kind, VALUE_REAL);
    EXPECT_EQ(cell.real, 2.5);
    EXPECT_TRUE(grid.Set(0, 0, &text.value));
    FreeDsGrid(m_index);
    EXPECT_EQ(text.value.str->m_refCount, 2);
}

TEST_F(CsvGrid, ACellMayBeSetToAnotherOfItsOwn) {
    CDS_Grid& grid = Load("a,b\nc,d\n");
    for (auto [column, row] : {std::pair(0, 0), {1, 0}, {1, 1}}) {
        RValueOwner other;
        ASSERT_TRUE(grid.Get(0, 1, &other.value));
        EXPECT_TRUE(grid.Set(column, row, &other.value));
    }
    EXPECT_EQ(Take(m_index), (Rows{{"c", "c"}, {"c", "c"}}));
}

TEST_F(CsvGrid, AStructThatACellWasSetToIsKeptAsLongAsTheCell) {
    Collector::Collect();
    const long long before = Collector::Stats().structs;
    CDS_Grid& grid = Load("a,b\nc\n");
    for (int column : {0, 1}) {
        RValue object{};
        object.obj = KXObjectBase::Alloc(0, VALUE_UNSET, 0, false);
        object.kind = VALUE_OBJECT;
        EXPECT_TRUE(grid.Set(column, 1, &object));
    }
    Collector::Collect();
    EXPECT_EQ(Collector::Stats().structs - before, 2);

    RValue number = Real(1);
    EXPECT_TRUE(grid.Set(1, 1, &number));
    Collector::Collect();
    EXPECT_EQ(Collector::Stats().structs - before, 1);

    FreeDsGrid(m_index);
    Collector::Collect();
    EXPECT_EQ(Collector::Stats().structs - before, 0);
}

TEST_F(CsvGrid, AnIndexIsUsedAgainAndNothingIsLeft) {
    int first = LoadText("a,b\n\"c\"\n");
    FreeDsGrid(first);
    for (int i = 0; i < 200; ++i) {
        int index = LoadText(i % 3 == 0 ? "\"never closed" : "a,b\n\"c\"\n");
        EXPECT_EQ(index, i % 3 == 0 ? -1 : first);
        FreeDsGrid(index);
    }
    EXPECT_EQ(thegrids.arr[first], nullptr);
}

// --- large tables: a reader that goes over what it has read again and again would take hours ------------------------

constexpr int kLarge = 10 << 20;

TEST_F(CsvGrid, MillionsOfQuotesAreOneCell) {
    std::string cell = CellOf(Load(std::string(kLarge, '"')), 0, 0);
    EXPECT_EQ(cell.size(), kLarge / 2 - 1);
    EXPECT_EQ(cell.find_first_not_of('"'), std::string::npos);

    EXPECT_EQ(LoadText(std::string(kLarge + 1, '"')), -1);
    EXPECT_EQ(m_console.Take(), "Failed to load CSV file: table.csv (the quotes of line 1 are never closed)\n");
    FreeDsGrid(m_index);
    m_index = -1;

    cell = CellOf(Load("a" + std::string(kLarge, '"')), 0, 0);
    EXPECT_EQ(cell.size(), kLarge + 1);
}

TEST_F(CsvGrid, MillionsOfCommasAreOneRow) {
    CDS_Grid& grid = Load(std::string(kLarge, ',') + "end");

    EXPECT_EQ(grid.m_height, 1);
    ASSERT_EQ(grid.m_width, kLarge + 1);
    EXPECT_EQ(CellOf(grid, kLarge, 0), "end");
    for (int column = 0; column < kLarge; column += 100) {
        ASSERT_EQ(CellOf(grid, column, 0), "");
    }
}

TEST_F(CsvGrid, MillionsOfLineBreaksAreRows) {
    CDS_Grid& grid = Load(std::string(kLarge, '\n') + "end");

    EXPECT_EQ(grid.m_width, 1);
    ASSERT_EQ(grid.m_height, kLarge + 1);
    EXPECT_EQ(CellOf(grid, 0, kLarge), "end");
    for (int row = 0; row < kLarge; row += 100) {
        ASSERT_EQ(CellOf(grid, 0, row), "");
    }
}

TEST_F(CsvGrid, MillionsOfCarriageReturnsAreOneCell) {
    EXPECT_EQ(CellOf(Load(std::string(kLarge, '\r')), 0, 0), std::string(kLarge, '\r'));
}

TEST_F(CsvGrid, MillionsOfQuotesInBareCellsOpenNothing) {
    CDS_Grid& grid = Load(Repeated("a\",", kLarge / 3));

    ASSERT_EQ(grid.m_width, kLarge / 3 + 1);
    for (int column = 0; column < kLarge / 3; column += 100) {
        ASSERT_EQ(CellOf(grid, column, 0), "a\"");
    }
}

TEST_F(CsvGrid, ACellMayHaveAHundredMegabytes) {
    const std::string large(100 << 20, 'x');

    EXPECT_TRUE(CellOf(Load("a," + large + "\n"), 1, 0) == large);
    FreeDsGrid(m_index);
    EXPECT_TRUE(CellOf(Load("b,\"" + large + "\"\"\"\n"), 1, 0) == large + "\"");
    EXPECT_EQ(CellOf(GridOf(m_index), 0, 0), "b");
}

TEST_F(CsvGrid, EveryCellOfAMillionIsFoundAndSet) {
    constexpr int kCells = 1000000;
    std::string text;
    for (int i = 0; i < kCells; ++i) {
        text += i % 10 == 0 ? '"' + std::to_string(i) + '"' : std::to_string(i);
        text += ',';
    }
    CDS_Grid& grid = Load(text);

    ASSERT_EQ(grid.m_width, kCells + 1);
    for (int i = 0; i < kCells; ++i) {
        ASSERT_EQ(CellOf(grid, i, 0), std::to_string(i));
        RValue number = Real(i);
        ASSERT_TRUE(grid.Set(i, 0, &number));
    }
    for (int i = 0; i < kCells; ++i) {
        RValue cell{};
        ASSERT_TRUE(grid.Get(i, 0, &cell));
        ASSERT_EQ(cell.kind, VALUE_REAL);
        ASSERT_EQ(cell.real, i);
    }
    EXPECT_EQ(CellOf(grid, kCells, 0), "");
}

TEST_F(CsvGrid, CellsThatFillUpShortRowsTakeNoRoom) {
    constexpr int kSide = 2000;
    long long before = MemoryManager::Stats().bytes;
    CDS_Grid& grid = Load(Repeated("a\n", kSide / 2) + Repeated(",", kSide - 1) + "end\n" + Repeated("b\n", kSide / 2));

    EXPECT_LT(MemoryManager::Stats().bytes - before, 1 << 20);  // for 4,000,000 cells
    EXPECT_EQ(grid.m_width, kSide);
    ASSERT_EQ(grid.m_height, kSide + 1);
    EXPECT_EQ(CellOf(grid, kSide - 1, kSide / 2), "end");
    RValue number = Real(1);
    for (int row = 0; row <= kSide; row += kSide / 2) {
        EXPECT_TRUE(grid.Set(kSide - 2, row, &number));
    }
    for (int row = 0; row < kSide; ++row) {
        if (row == kSide / 2) continue;
        ASSERT_EQ(CellOf(grid, 0, row), row < kSide / 2 ? "a" : "b");
        ASSERT_EQ(CellOf(grid, kSide - 1, row), "");
    }
    EXPECT_LT(MemoryManager::Stats().bytes - before, 1 << 20);
}

TEST_F(CsvGrid, AFewBytesAreNoGridThatNeverEnds) {
    const std::string text = Repeated("a\n", 6000) + Repeated(",", 5999) + "\n";
    WriteWholeFile(Save("table.csv"), text);

    EXPECT_EQ(LoadName("table.csv"), -1);
    EXPECT_EQ(m_console.Take(),
              "Failed to load CSV file: table.csv (its shorter rows would be filled up to more than " +
                  std::to_string(text.size() + kMaxFilledCells) + " cells)\n");
}

}  // namespace
}  // namespace kx::test
