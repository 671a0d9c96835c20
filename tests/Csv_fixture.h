#pragma once

#include "Files/Support/Support_Data_Structures.h"
#include "Files/Support/Support_File.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/Console.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace kx::test {

using Rows = std::vector<std::vector<std::string>>;

inline std::string CellOf(const CDS_Grid& grid, int column, int row) {
    RValueOwner cell;
    EXPECT_TRUE(grid.Get(column, row, &cell.value));
    EXPECT_EQ(cell.value.kind, VALUE_STRING) << column << "," << row;
    bool hasText = cell.value.kind == VALUE_STRING && cell.value.str && cell.value.str->m_thing;
    return hasText ? cell.value.str->m_thing : "";
}

/// Areas, a console that is watched, and no host memory that is left behind.
class CsvTest : public AreasTest {
protected:
    void SetUp() override {
        AreasTest::SetUp();
        m_blocks = MemoryManager::Stats().blocks;
    }

    void TearDown() override {
        EXPECT_EQ(MemoryManager::Stats().blocks, m_blocks);
        AreasTest::TearDown();
    }

    static int LoadName(std::string name) { return LoadCSV(name.data()); }

    int LoadText(const std::string& text) {
        WriteWholeFile(Save("table.csv"), text);
        return LoadName("table.csv");
    }

    /// The grid of an index; a test that has none ends here.
    static CDS_Grid& GridOf(int index) {
        CDS_Grid* grid = index >= 1 && index < thegrids.length ? thegrids.arr[index] : nullptr;
        if (!grid) throw std::runtime_error("no grid " + std::to_string(index));
        return *grid;
    }

    /// All cells of a grid, which is freed.
    static Rows Take(int index) {
        const CDS_Grid& grid = GridOf(index);
        Rows rows(static_cast<size_t>(grid.m_height));
        for (int row = 0; row < grid.m_height; ++row) {
            for (int column = 0; column < grid.m_width; ++column) {
                rows[static_cast<size_t>(row)].push_back(CellOf(grid, column, row));
            }
        }
        FreeDsGrid(index);
        return rows;
    }

    CapturingConsole m_console;

private:
    long long m_blocks = 0;
};

}  // namespace kx::test
