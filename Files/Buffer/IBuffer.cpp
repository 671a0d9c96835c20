// Growable blocks of bytes.
#include "Files/Buffer/IBuffer.h"

#include "Files/Base/Limits.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

constexpr int kFirstBytes = 256;

unsigned int WithTerminator(int size) {
    return static_cast<unsigned int>(size) + 1;
}

}  // namespace

IBuffer::IBuffer(int size, eBuffer_Format format, int alignment)
    : m_data(static_cast<char*>(MemoryManager::Alloc(WithTerminator(size), __FILE__, __LINE__, true))), m_size(size),
      m_allocated(size), m_position(0), m_refCount(0), m_format(format), m_alignment(alignment) {}

IBuffer::~IBuffer() {
    MemoryManager::Free(m_data);
}

int IBuffer::Seek(eBuffer_Seek origin, int offset) {
    long long base = origin == eBuffer_Relative ? m_position : origin == eBuffer_End ? m_size : 0;
    m_position = static_cast<int>(std::clamp<long long>(base + offset, 0, INT_MAX));
    return m_position;
}

bool IBuffer::Write(const void* data, int size) {
    long long end = static_cast<long long>(m_position) + size;
    if (end > kx::kMaxFileBytes || !Reserve(static_cast<int>(end))) return false;
    if (m_position > m_size) std::memset(m_data + m_size, 0, static_cast<size_t>(m_position - m_size));
    std::memcpy(m_data + m_position, data, static_cast<size_t>(size));
    m_position = static_cast<int>(end);
    if (m_position > m_size) {
        m_size = m_position;
        m_data[m_size] = 0;
    }
    return true;
}

void IBuffer::Truncate(int size) {
    if (size < 0 || size >= m_size) return;
    m_size = size;
    m_data[m_size] = 0;
}

int IBuffer::CopyMemoryToBuffer(IBuffer* buffer, const unsigned char* data, int length, int from, int count, int offset,
                                bool grow, bool /*reserved1*/, bool /*reserved2*/) {
    bool inside = data && from >= 0 && from < length && offset >= 0;
    if (!inside) return offset;
    int all = length - from;
    int wanted = count < 0 || count > all ? all : count;
    bool fits = grow || static_cast<long long>(offset) + wanted <= buffer->m_size;
    if (!fits) return offset;

    int position = buffer->m_position;
    buffer->m_position = offset;
    bool written = false;
    try {
        written = buffer->Write(data + from, wanted);
    } catch (...) {
        buffer->m_position = position;
        throw;
    }
    buffer->m_position = position;
    return written ? offset + wanted : offset;
}

bool IBuffer::Reserve(int size) {
    if (size <= m_allocated) return true;
    if (m_format != eBuffer_Format_Grow) return false;
    long long doubled = std::clamp<long long>(m_allocated * 2LL, kFirstBytes, kx::kMaxFileBytes);
    int grown = static_cast<int>(std::max<long long>(doubled, size));
    m_data = static_cast<char*>(MemoryManager::ReAlloc(m_data, WithTerminator(grown), __FILE__, __LINE__, false));
    m_allocated = grown;
    return true;
}
