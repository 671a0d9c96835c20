// Any text as JSON for json_parse: what it reads, json_stringify writes so that it reads back the same.
#include "Files/Base/Collector.h"
#include "fuzz/Host.h"
#include "fuzz/Values.h"

#include <cstdint>

namespace kx::fuzz {
namespace {

BuiltIn g_parse("json_parse");
BuiltIn g_stringify("json_stringify");

void Check(const std::string& text) {
    RValueOwner argument(Text(text));
    RValueOwner value;
    if (!g_parse.Call({argument.value}, &value)) {
        Require(value.value.kind == VALUE_UNDEFINED, "what is no JSON is undefined", text);
        return;
    }
    RValueOwner written;
    Require(g_stringify.Call({value.value}, &written), "what was read can be written", text);
    RValueOwner again;
    Require(g_parse.Call({written.value}, &again), "what is written can be read", TextOf(written.value));
    Require(IsSame(value.value, again.value), "what is written reads back the same",
            text + "\n" + TextOf(written.value));
}

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    kx::fuzz::Check(std::string(reinterpret_cast<const char*>(data), size).c_str());
    Collector::Collect();
    return 0;
}
