// A made-up save as JSON text.
#include "bench/SaveText.h"

#include <cstdio>
#include <random>

namespace kx::bench {
namespace {

const char* const kNames[] = {"Sword of Dawn",  "Caf\u00e9 \\\"Zum Löwen\\\"",      "healing potion",
                              "路の地図 (map)", "line one\\nline two\\tend",        "C:\\\\games\\\\save",
                              "torch",          "\\u00dcberraschung \\ud83d\\ude00"};

class Writer {
public:
    explicit Writer(size_t bytes) : m_bytes(bytes) { m_text.reserve(bytes + 4096); }

    std::string Write() {
        m_text = "{\"version\":3,\"player\":{\"name\":\"Ada\",\"id\":\"@i64@20000000000001$i64$\"},\"entities\":[";
        for (int i = 0; m_text.size() < m_bytes; ++i) {
            if (i > 0) m_text += ",";
            Entity(i);
        }
        m_text += "]}";
        return m_text;
    }

private:
    void Entity(int i) {
        Add("\n{\"id\":%d,\"kind\":\"enemy_%d\",\"position\":{\"x\":%.17g,\"y\":%.17g,\"z\":%.3f},", i, i % 40, Real(),
            Real(), Real());
        Add("\"alive\":%s,\"target\":null,\"health\":%d.5,\"name\":\"%s %d\",", i % 3 ? "true" : "false", i % 100,
            kNames[m_random() % 8], i);
        m_text += "\"path\":[";
        for (int k = 0; k < 8; ++k) {
            Add("%s%.6f", k ? "," : "", Real());
        }
        m_text += "],\"inventory\":[";
        for (int k = 0; k < 3; ++k) {
            Add("%s{\"item\":\"%s\",\"count\":%d,\"tags\":[\"a%d\",\"b\"]}", k ? "," : "", kNames[(i + k) % 8], k + 1,
                k);
        }
        m_text += "]}";
    }

    template <class... Arguments>
    void Add(const char* format, Arguments... arguments) {
        char piece[512];
        std::snprintf(piece, sizeof piece, format, arguments...);
        m_text += piece;
    }

    double Real() { return static_cast<double>(m_random()) / 1e6; }

    size_t m_bytes;
    std::string m_text;
    std::mt19937 m_random{1};
};

}  // namespace

std::string SaveText(size_t bytes) {
    return Writer(bytes).Write();
}

}  // namespace kx::bench
