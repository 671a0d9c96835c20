// Grids.
#include "Files/Code/Code_Function.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Files/Support/Support_Data_Structures_Store.h"

#include <utility>

CDS_Grid::CDS_Grid(int width, int height) : m_width(width), m_height(height), m_serial(NewDsSerial()) {
    if (width < 0 || height < 0) throw std::bad_alloc();
    long long count = static_cast<long long>(width) * height;
    m_cells = kx::AllocZeroed<RValue>(count);
    m_cellCount = static_cast<size_t>(count);
}

CDS_Grid::CDS_Grid(kx::TextRows texts)
    : m_width(texts.Width()), m_height(texts.Height()), m_serial(NewDsSerial()), m_texts(std::move(texts)) {}

CDS_Grid::~CDS_Grid() {
    for (size_t i = 0; i < m_cellCount; ++i) {
        FREE_RValue__Pre(&m_cells[i]);
    }
    MemoryManager::Free(m_cells);
    for (auto& cell : m_changed) {
        FREE_RValue__Pre(&cell.second);
    }
}

bool CDS_Grid::HasCell(int column, int row) const {
    return column >= 0 && column < m_width && row >= 0 && row < m_height;
}

uint64_t CDS_Grid::IndexOf(int column, int row) const {
    return static_cast<uint64_t>(row) * static_cast<uint64_t>(m_width) + static_cast<uint64_t>(column);
}

bool CDS_Grid::Get(int column, int row, RValue* copy) const {
    if (!HasCell(column, row)) return false;
    uint64_t index = IndexOf(column, row);
    if (m_cells) {
        COPY_RValue(copy, &m_cells[index]);
        return true;
    }
    auto changed = m_changed.find(index);
    if (changed != m_changed.end()) {
        COPY_RValue(copy, &changed->second);
    } else {
        KXCreateString(copy, m_texts.At(column, row));
    }
    return true;
}

bool CDS_Grid::Set(int column, int row, const RValue* value) {
    if (!HasCell(column, row)) return false;
    uint64_t index = IndexOf(column, row);
    kx::ReplaceValue(m_cells ? &m_cells[index] : &m_changed[index], value);
    return true;
}
