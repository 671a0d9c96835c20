// Decompressing gzip bodies.
#include "Files/IO/LoadSave_HttpDecoder.h"

#include <new>

namespace kx {
namespace {

constexpr int kGzip = 16 + MAX_WBITS;

}  // namespace

void GzipDecoder::Reset() {
    if (m_open) inflateEnd(&m_stream);
    m_stream = z_stream{};
    m_open = false;
    m_ended = false;
}

void GzipDecoder::Feed(std::string_view data) {
    if (!m_open && inflateInit2(&m_stream, kGzip) != Z_OK) throw std::bad_alloc();
    m_open = true;
    m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    m_stream.avail_in = static_cast<uInt>(data.size());
}

/// @param part  empty where all that has come is decoded.
bool GzipDecoder::NextPart(std::string_view* part) {
    *part = {};
    for (;;) {
        if (m_ended && m_stream.avail_in == 0) return true;
        if (m_ended && inflateReset(&m_stream) != Z_OK) return false;  // several may stand one after another
        m_ended = false;
        m_stream.next_out = m_part;
        m_stream.avail_out = kPart;
        int result = inflate(&m_stream, Z_NO_FLUSH);
        if (result == Z_MEM_ERROR) throw std::bad_alloc();
        m_ended = result == Z_STREAM_END;
        bool starved = result == Z_BUF_ERROR;  // it wants more than has come
        if (!m_ended && !starved && result != Z_OK) return false;
        size_t made = kPart - m_stream.avail_out;
        if (made > 0) {
            *part = {reinterpret_cast<char*>(m_part), made};
            return true;
        }
        if (!m_ended) return true;  // with room left it stops for no other reason than that it has read everything
    }
}

}  // namespace kx
