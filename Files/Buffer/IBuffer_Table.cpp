// The table that scripts find buffers in, and their users.
#include "Files/Buffer/Buffer_Standard.h"
#include "Files/Code/Code_Error.h"
#include "Files/Support/Support_Data_Structures_Table.h"

#include <memory>

namespace {

DS_Table<IBuffer> g_buffers;

}  // namespace

int CreateBuffer(int size, eBuffer_Format format, int alignment) {
    auto buffer = std::make_unique<Buffer_Standard>(size, format, alignment);
    DS_AutoMutex lock;
    int index = kx::FindFreeIndex(g_buffers);
    buffer->m_serial = NewDsSerial();
    g_buffers.arr[index] = buffer.release();
    return index;
}

void FreeBuffer(int index) {
    DS_AutoMutex lock;
    IBuffer* buffer = kx::TakeOut(g_buffers, index);
    if (buffer && buffer->m_refCount > 0) {
        buffer->m_orphaned = true;
    } else {
        delete buffer;
    }
}

IBuffer* GetIBuffer(int index) {
    DS_AutoMutex lock;
    return index >= 1 && index < g_buffers.length ? g_buffers.arr[index] : nullptr;
}

void IBuffer::AddRefCount() {
    DS_AutoMutex lock;
    ++m_refCount;
}

void IBuffer::DecRefCount() {
    DS_AutoMutex lock;
    --m_refCount;
    if (m_refCount < 0) dbg_csol->Output("Decrementing buffer ref count to less than zero\n");
    if (m_orphaned && m_refCount <= 0) delete this;
}
