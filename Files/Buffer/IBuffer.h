#pragma once

#include <cstdint>

/// Growable blocks of bytes with a position: what virtual files keep their contents in, and what scripts know by an
/// index in a table.

enum eBuffer_Format {
    eBuffer_Format_Fixed = 0,  ///< never changes its size
    eBuffer_Format_Grow = 1,   ///< grows as it is written
};

enum eBuffer_Seek {
    eBuffer_Start = 0,
    eBuffer_Relative = 1,
    eBuffer_End = 2,
};

/// One buffer. The data belongs to it and moves when it grows; a zero byte always follows the last byte.
/// @thread one at a time
class IBuffer {
public:
    /// @param size       bytes, all zero at first.
    /// @param alignment  bytes between the positions of values that are written one after another; 1 packs them.
    /// @throws std::bad_alloc
    IBuffer(int size, eBuffer_Format format, int alignment);
    IBuffer(const IBuffer&) = delete;
    IBuffer& operator=(const IBuffer&) = delete;
    virtual ~IBuffer();

    /// Moves the position. It may lie beyond the end, where nothing is read and a write fills the gap with zero bytes;
    /// it is never below 0, and an offset that would leave the int range stops at its end.
    /// @return the new position.
    virtual int Seek(eBuffer_Seek origin, int offset);

    /// Writes bytes at the position and moves it past them.
    /// @return false where the buffer cannot hold them; nothing is written then.
    /// @throws std::bad_alloc; the buffer is then as it was.
    bool Write(const void* data, int size);

    /// Cuts the contents down; the position stays.
    void Truncate(int size);

    /// Copies bytes into a buffer; its position stays.
    /// @param length  bytes at `data`, which may be null for none.
    /// @param from    the first of them to copy.
    /// @param count   how many; -1 for all that follow, which is also the most.
    /// @param offset  where in the buffer they go; a gap before it is filled with zero bytes.
    /// @param grow    whether the buffer may grow for them, where its format allows it.
    /// @return the offset after the copied bytes; `offset` itself where nothing was copied, because there is nothing or
    ///         the buffer cannot hold it.
    /// @throws std::bad_alloc; the buffer is then as it was.
    static int CopyMemoryToBuffer(IBuffer* buffer, const unsigned char* data, int length, int from, int count,
                                  int offset, bool grow, bool reserved1, bool reserved2);

    /// Counts the users besides the script. A buffer that FreeBuffer has taken out of the table is freed when the last
    /// one has gone. A count below 0 is a line on dbg_csol.
    /// @thread any
    void AddRefCount();
    void DecRefCount();

    char* m_data;
    int m_size;       ///< bytes of contents
    int m_allocated;  ///< bytes that fit before the data has to move
    int m_position;
    int m_refCount;
    eBuffer_Format m_format;
    int m_alignment;

    uint64_t m_serial = 0;    ///< of one in the table; see NewDsSerial
    bool m_orphaned = false;  ///< freed by its owner while it had users

private:
    bool Reserve(int size);
};

// The table that scripts find buffers in. Requests in flight write into buffers: whoever touches one of the table holds
// DS_AutoMutex as long as that takes.

/// Makes a buffer.
/// @return its index, 1 or above.
/// @throws std::bad_alloc
int CreateBuffer(int size, eBuffer_Format format, int alignment);

/// Frees a buffer; one that has users as soon as they are done. Nothing happens for an index that names none.
void FreeBuffer(int index);

/// @return the buffer, which belongs to the table; null for an index that names none.
IBuffer* GetIBuffer(int index);
