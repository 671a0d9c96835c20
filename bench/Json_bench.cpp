// JSON: what the containers cost beside json-c's own work.
#include "Files/Base/RValue.h"
#include "Files/Code/Code_Function.h"
#include "Files/Function/Function_File.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"
#include "bench/Comparison.h"
#include "bench/SaveText.h"

#include <benchmark/benchmark.h>
#include <json-c/json.h>

namespace kx::bench {
namespace {

const std::string& Save() {
    static const std::string text = SaveText(kSaveBytes);
    return text;
}

RValue CallOne(const char* name, const RValue& argument) {
    const FunctionRecord* record = Function_Find(name);
    RValue result{};
    RValue copy = argument;
    record->routine(result, nullptr, nullptr, 1, &copy);
    return result;
}

RValue Decode() {
    RValueOwner text;
    KXCreateString(&text.value, Save().c_str());
    RValue map = CallOne("json_decode", text.value);
    map.kind |= KIND_DS_MAP;
    return map;
}

/// Values in all maps and lists.
double CountValues() {
    long long count = 0;
    for (int i = 1; i < themaps.length; ++i) {
        if (themaps.arr[i]) count += themaps.arr[i]->Count();
    }
    for (int i = 1; i < thelists.length; ++i) {
        if (thelists.arr[i]) count += thelists.arr[i]->m_count;
    }
    return static_cast<double>(count);
}

void Json_DecodeOurs(benchmark::State& state) {
    InitFileFunctions();
    RValueOwner text;
    KXCreateString(&text.value, Save().c_str());
    double bytes = 0;
    for (auto _ : state) {
        auto before = MemoryManager::Stats().bytes;
        RValue map = CallOne("json_decode", text.value);
        state.PauseTiming();
        bytes = static_cast<double>(MemoryManager::Stats().bytes - before) / CountValues();
        map.kind |= KIND_DS_MAP;
        FreeDsTree(&map);
        state.ResumeTiming();
    }
    state.counters["host bytes/value"] = bytes;
}

void Json_DecodeTheirs(benchmark::State& state) {
    for (auto _ : state) {
        json_object* tree = json_tokener_parse(Save().c_str());
        state.PauseTiming();
        json_object_put(tree);
        state.ResumeTiming();
    }
}

void Json_DecodeTheirsWithRelease(benchmark::State& state) {
    for (auto _ : state) {
        json_object_put(json_tokener_parse(Save().c_str()));
    }
}

void Json_EncodeOurs(benchmark::State& state) {
    InitFileFunctions();
    RValue map = Decode();
    for (auto _ : state) {
        RValueOwner text(CallOne("json_encode", map));
        benchmark::DoNotOptimize(text.value.str);
    }
    FreeDsTree(&map);
}

json_object* Copy(json_object* value) {
    switch (json_object_get_type(value)) {
    case json_type_object: {
        json_object* object = json_object_new_object();
        for (lh_entry* e = lh_table_head(json_object_get_object(value)); e; e = lh_entry_next(e)) {
            json_object_object_add(object, static_cast<const char*>(lh_entry_k(e)),
                                   Copy(static_cast<json_object*>(lh_entry_v(e))));
        }
        return object;
    }
    case json_type_array: {
        json_object* array = json_object_new_array();
        for (size_t i = 0; i < json_object_array_length(value); ++i) {
            json_object_array_add(array, Copy(json_object_array_get_idx(value, i)));
        }
        return array;
    }
    case json_type_string: return json_object_new_string(json_object_get_string(value));
    case json_type_null: return nullptr;
    default: return json_object_new_double(json_object_get_double(value));
    }
}

/// The same tree, numbers as doubles, built and printed.
void Json_EncodeTheirs(benchmark::State& state) {
    json_object* source = json_tokener_parse(Save().c_str());
    for (auto _ : state) {
        json_object* tree = Copy(source);
        benchmark::DoNotOptimize(json_object_to_json_string(tree));
        json_object_put(tree);
    }
    json_object_put(source);
}

BENCHMARK(Json_DecodeTheirs)->Unit(benchmark::kMillisecond);
BENCHMARK(Json_DecodeTheirsWithRelease)->Unit(benchmark::kMillisecond);
BENCHMARK(Json_DecodeOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(Json_EncodeTheirs)->Unit(benchmark::kMillisecond);
BENCHMARK(Json_EncodeOurs)->Unit(benchmark::kMillisecond);

const bool g_decoded =
    Compare({"json_decode of a 5 MB save / json_tokener_parse", "Json_DecodeOurs", "Json_DecodeTheirs", 1.6});
const bool g_released = Compare({"the same / json_tokener_parse and json_object_put, as it releases too",
                                 "Json_DecodeOurs", "Json_DecodeTheirsWithRelease", 0});
const bool g_encoded =
    Compare({"json_encode of it / the same tree built and printed", "Json_EncodeOurs", "Json_EncodeTheirs", 1.6});

}  // namespace
}  // namespace kx::bench
