// Random scripts, with a model of the areas beside them that works out what each call must do.
#include "Files/Function/Function_File.h"
#include "proof/Model_Run.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <vector>

namespace {

constexpr size_t kCalls = 2'000;  // of one script
constexpr size_t kScripts = 500;
constexpr size_t kShortScripts = 10;
constexpr unsigned int kShortSeed = 20'261'122;  // a test goes the same way each time
constexpr int kMostFailures = 3;

/// Takes `--seed N` out of the arguments.
std::optional<unsigned int> TakeSeed(std::vector<char*>* arguments) {
    for (size_t i = 1; i + 1 < arguments->size(); ++i) {
        if (std::strcmp((*arguments)[i], "--seed") != 0) continue;
        unsigned int seed = 0;
        const char* text = (*arguments)[i + 1];
        std::from_chars(text, text + std::strlen(text), seed);
        auto first = arguments->begin() + static_cast<std::ptrdiff_t>(i);
        arguments->erase(first, first + 2);
        return seed;
    }
    return std::nullopt;
}

}  // namespace

int main(int count, char** values) {
    std::vector<char*> arguments(values, values + count);
    std::optional<unsigned int> asked = TakeSeed(&arguments);
    kx::proof::Options options = kx::proof::ReadOptions(
        static_cast<int>(arguments.size()), arguments.data(),
        "Plays random scripts and compares every answer, and the save area, with a model. --seed N plays that one.");
    kx::proof::WorkInMemory();
    InitFileFunctions();

    unsigned int seed = options.isShort ? kShortSeed : std::random_device()();
    if (asked) seed = *asked;
    size_t scripts = options.isShort ? kShortScripts : kScripts;
    if (asked) scripts = 1;
    std::printf("model: seed %u, and those after it\n", seed);
    kx::proof::Campaign campaign("model");
    int failures = 0;
    for (size_t i = 0; i < scripts && failures < kMostFailures; ++i) {
        if (!kx::proof::PlayBesideModel(seed + static_cast<unsigned int>(i), kCalls, &campaign)) ++failures;
    }
    campaign.Check(!::testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed(), "a result was of another kind");
    return campaign.End(failures ? 0 : scripts * kCalls);
}
