// Reading an archive's bytes.
#include "Files/IO/Archive_Bytes.h"

#include <cstring>

namespace kx {

int ArchiveBytes::Read(uint64_t offset, void* data, size_t size) const {
    bool inside = offset <= m_size && size <= m_size - offset;
    if (!inside) return ENODATA;
    if (size == 0) return 0;
    if (m_contents) {
        std::memcpy(data, m_contents->m_data + offset, size);
        return 0;
    }
    ssize_t count = ReadAllAt(m_file.Get(), static_cast<char*>(data), size, static_cast<off_t>(offset));
    if (count < 0) return errno;
    return static_cast<size_t>(count) == size ? 0 : ENODATA;  // cut by somebody else since
}

std::string FaultOfReading(int reason) {
    return std::string("cannot be read: ") + std::strerror(reason);
}

}  // namespace kx
