#pragma once

/// Growable blocks of bytes with a position: what virtual files keep their contents in.

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

    char* m_data;
    int m_size;       ///< bytes of contents
    int m_allocated;  ///< bytes that fit before the data has to move
    int m_position;
    int m_refCount;
    eBuffer_Format m_format;
    int m_alignment;

private:
    bool Reserve(int size);
};
