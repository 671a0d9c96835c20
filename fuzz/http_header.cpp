// Headers and bodies of HTTP answers, and header lines of requests, all of any bytes.
#include "Files/Base/Limits.h"
#include "Files/IO/LoadSave_HttpDecoder.h"
#include "Files/IO/LoadSave_HttpField.h"
#include "fuzz/Host.h"

#include <algorithm>
#include <cstdint>

namespace kx::fuzz {
namespace {

constexpr size_t kMostDecoded = 256 << 10;

bool IsControl(char c) {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F;
}

bool IsTrimmed(const std::string& value) {
    auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    return value.empty() || (!isBlank(value.front()) && !isBlank(value.back()));
}

bool IsSameFields(const HttpFields& a, const HttpFields& b) {
    auto same = [](const HttpField& x, const HttpField& y) { return x.name == y.name && x.value == y.value; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

/// What a script gives for a request: no line can smuggle in another one.
void CheckFields(const std::string& lines) {
    HttpFields fields{{"before", "it"}};
    if (!ReadHttpFields(lines, &fields)) {
        Require(IsSameFields(fields, {{"before", "it"}}), "what is refused sets nothing", lines);
        return;
    }
    std::string written;
    for (const HttpField& field : fields) {
        Require(IsHttpToken(field.name), "a field's name is a token", field.name);
        bool clean = std::none_of(field.value.begin(), field.value.end(), IsControl);
        Require(clean && IsTrimmed(field.value), "a value is one line without its blanks", field.value);
        Require(FindHttpField(fields, field.name), "a field is found by its name", field.name);
        written.append(field.name).append(": ").append(field.value).append("\r\n");
    }
    HttpFields again;
    Require(ReadHttpFields(written, &again) && IsSameFields(fields, again), "what is written reads back the same",
            lines + "\n" + written);
}

void CheckAnswer(const HttpAnswer& answer, const std::string& text) {
    size_t bytes = 0;
    answer.ForEachField([&](const HttpField& field) {
        bytes += field.name.size() + field.value.size();
        bool oneLine = (field.name + field.value).find('\n') == std::string::npos;
        bool lower = std::none_of(field.name.begin(), field.name.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
        Require(oneLine && lower, "a field is one line, its name in lower case", text);
    });
    Require(bytes <= text.size(), "fields are no more than what came", text);
    Require(answer.Location().empty() || text.find(answer.Location()) != std::string::npos,
            "a redirect leads where the answer says", text);
}

/// What a server answers, line by line, each through its line feed.
void CheckAnswerLines(const std::string& text) {
    HttpAnswer answer;
    answer.Reset();
    size_t taken = 0;
    while (taken < text.size()) {
        size_t end = std::min(text.find('\n', taken), text.size() - 1) + 1;
        const char* fault = answer.Take(std::string_view(text).substr(taken, end - taken));
        taken = end;
        Require(answer.Bytes() == static_cast<int>(taken), "every byte counts", text);
        if (fault) return;
    }
    CheckAnswer(answer, text);
}

struct Body {
    std::string bytes;
    bool ok;
    bool whole;
};

Body Decode(std::string_view packed, size_t step) {
    static GzipDecoder decoder;  // a large one
    decoder.Reset();
    Body body{{}, true, false};
    auto take = [&](std::string_view part) {
        Require(!part.empty(), "parts hold something");
        body.bytes += part;
        return body.bytes.size() <= kMostDecoded;
    };
    for (size_t i = 0; body.ok && i < packed.size(); i += step) {
        body.ok = decoder.Decode(packed.substr(i, step), take);
    }
    body.whole = decoder.IsWhole();
    decoder.Reset();
    return body;
}

/// A body is the same however it is cut on its way.
void CheckBody(std::string_view packed, size_t step) {
    Body atOnce = Decode(packed, packed.size() + 1);
    Body inSteps = Decode(packed, step);
    if (atOnce.bytes.size() > kMostDecoded) return;
    Require(atOnce.ok == inSteps.ok, "a body is damaged or not, however it is cut");
    if (!atOnce.ok) return;
    Require(atOnce.whole == inSteps.whole && atOnce.bytes == inSteps.bytes, "a body is the same, however it is cut");
}

}  // namespace
}  // namespace kx::fuzz

/// The first byte says what the others are: "f" fields of a request, "a" an answer, a number the steps of a body.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    kx::fuzz::Round round;
    std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0]) {
    case 'f': kx::fuzz::CheckFields(rest); break;
    case 'a': kx::fuzz::CheckAnswerLines(rest); break;
    default: kx::fuzz::CheckBody(rest, data[0] % 32 + 1u); break;
    }
    return 0;
}
