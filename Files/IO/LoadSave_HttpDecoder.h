#pragma once

#include <string_view>
#include <zlib.h>

namespace kx {

/// Decompresses a gzip body (RFC 1952) as it comes in.
///
/// The library's own decoder is not used: it takes a body that breaks off for a whole one.
class GzipDecoder {
public:
    GzipDecoder() = default;
    GzipDecoder(const GzipDecoder&) = delete;
    GzipDecoder& operator=(const GzipDecoder&) = delete;
    ~GzipDecoder() { Reset(); }

    /// Forgets everything, for a new body.
    void Reset();

    /// @param take  called with what comes out, part by part; false from it stops.
    /// @return false where it stopped, and where the data is no gzip or damaged.
    /// @throws std::bad_alloc
    template <class Take>
    bool Decode(std::string_view data, Take take) {
        Feed(data);
        for (;;) {
            std::string_view part;
            if (!NextPart(&part)) return false;
            if (part.empty()) return true;
            if (!take(part)) return false;
        }
    }

    /// @return true where nothing has come, or all of it.
    [[nodiscard]] bool IsWhole() const { return !m_open || m_ended; }

private:
    void Feed(std::string_view data);
    bool NextPart(std::string_view* part);

    static constexpr size_t kPart = 32 << 10;

    z_stream m_stream{};
    bool m_open = false;
    bool m_ended = false;  // with the last byte that has come
    unsigned char m_part[kPart];
};

}  // namespace kx
