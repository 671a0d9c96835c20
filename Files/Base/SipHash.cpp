// A keyed hash of texts.
#include "Files/Base/SipHash.h"

#include <chrono>
#include <cstring>
#include <sys/random.h>

namespace kx {
namespace {

struct Key {
    uint64_t words[2];
};

Key RandomKey() {
    Key key;
    if (::getrandom(&key, sizeof key, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof key)) return key;
    // Too early after the start of the system: what is left is the clock, and where the process was loaded.
    key.words[0] = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    key.words[1] = reinterpret_cast<uintptr_t>(&RandomKey) ^ reinterpret_cast<uintptr_t>(&key);
    return key;
}

class State {
public:
    State(uint64_t key0, uint64_t key1)
        : m_v0(key0 ^ 0x736f6d6570736575), m_v1(key1 ^ 0x646f72616e646f6d), m_v2(key0 ^ 0x6c7967656e657261),
          m_v3(key1 ^ 0x7465646279746573) {}

    void Add(uint64_t word) {
        m_v3 ^= word;
        Round();
        m_v0 ^= word;
    }

    uint64_t Finish() {
        m_v2 ^= 0xff;
        Round();
        Round();
        Round();
        return m_v0 ^ m_v1 ^ m_v2 ^ m_v3;
    }

private:
    static uint64_t Rotated(uint64_t x, int bits) { return x << bits | x >> (64 - bits); }

    void Round() {
        m_v0 += m_v1;
        m_v1 = Rotated(m_v1, 13) ^ m_v0;
        m_v0 = Rotated(m_v0, 32);
        m_v2 += m_v3;
        m_v3 = Rotated(m_v3, 16) ^ m_v2;
        m_v0 += m_v3;
        m_v3 = Rotated(m_v3, 21) ^ m_v0;
        m_v2 += m_v1;
        m_v1 = Rotated(m_v1, 17) ^ m_v2;
        m_v2 = Rotated(m_v2, 32);
    }

    uint64_t m_v0, m_v1, m_v2, m_v3;
};

/// Up to eight bytes as a little-endian word; this host runs on little-endian machines only.
uint64_t Word(const char* bytes, size_t count) {
    uint64_t word = 0;
    std::memcpy(&word, bytes, count);
    return word;
}

}  // namespace

uint64_t SipHash13(uint64_t key0, uint64_t key1, std::string_view text) {
    State state(key0, key1);
    const char* at = text.data();
    size_t left = text.size();
    for (; left >= 8; left -= 8, at += 8) {
        uint64_t word;
        std::memcpy(&word, at, 8);
        state.Add(word);
    }
    state.Add(Word(at, left) | static_cast<uint64_t>(text.size()) << 56);
    return state.Finish();
}

uint64_t KeyedHash(std::string_view text) {
    static const Key key = RandomKey();
    return SipHash13(key.words[0], key.words[1], text);
}

}  // namespace kx
