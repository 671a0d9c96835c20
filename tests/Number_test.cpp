// Numbers to and from text.
#include "Files/Base/Number.h"

#include "tests/support/CommaLocale.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <memory>

namespace kx::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Reads from memory that ends with the text, so that a look beyond it is found out.
int Parse(const std::string& text, double* value) {
    std::unique_ptr<char[]> exact(new char[text.size()]);
    std::copy(text.begin(), text.end(), exact.get());
    return ParseReal(std::string_view(exact.get(), text.size()), value);
}

struct Reading {
    std::string text;
    int length;
    double value;
};

void ExpectReadings(const std::vector<Reading>& readings) {
    for (const Reading& each : readings) {
        SCOPED_TRACE(each.text.substr(0, 40));
        double value = 42;
        EXPECT_EQ(Parse(each.text, &value), each.length);
        EXPECT_EQ(value, each.length ? each.value : 42);
    }
}

std::string Printed(int (*print)(char*, double), double value) {
    char text[kNumberText];
    int length = print(text, value);
    EXPECT_EQ(static_cast<size_t>(length), std::string(text).size());
    return text;
}

const std::vector<Reading> kNumbers = {
    {"0", 1, 0},
    {"12", 2, 12},
    {"-12", 3, -12},
    {"+12", 3, 12},
    {"1.5", 3, 1.5},
    {".5", 2, 0.5},
    {"5.", 2, 5},
    {"-.5", 3, -0.5},
    {"1e3", 3, 1000},
    {"1E+3", 4, 1000},
    {"1e-3", 4, 0.001},
    {"1e", 1, 1},
    {"1e+", 1, 1},
    {"1.2.3", 3, 1.2},
    {"1,5", 1, 1},
    {"12abc", 2, 12},
    {"0x10", 1, 0},
    {"1 2", 1, 1},
    {"007", 3, 7},
    {"0.1", 3, 0.1},
    {"9007199254740993", 16, 9007199254740992.0},
    {"1.7976931348623157e308", 22, 1.7976931348623157e308},
};

TEST(Number, ReadsTheLongestNumberAtTheStart) {
    ExpectReadings(kNumbers);
}

TEST(Number, ReadsNothingWhereThereIsNoNumber) {
    ExpectReadings({{"", 0, 0},
                    {" 1", 0, 0},
                    {"-", 0, 0},
                    {"+", 0, 0},
                    {".", 0, 0},
                    {"-.", 0, 0},
                    {"e5", 0, 0},
                    {"+-5", 0, 0},
                    {"--5", 0, 0},
                    {"inf", 0, 0},
                    {"-inf", 0, 0},
                    {"nan", 0, 0},
                    {"infinity", 0, 0},
                    {",5", 0, 0},
                    {"x", 0, 0}});
}

TEST(Number, BeyondTheRangeOfADoubleIsInfinityOrZero) {
    std::string zeros(400, '0');
    std::string nines(400, '9');
    ExpectReadings({
        {"1e999", 5, kInfinity},
        {"-1e999", 6, -kInfinity},
        {"1e-999", 6, 0},
        {"1e99999999999999999999", 22, kInfinity},
        {"1e-99999999999999999999", 23, 0},
        {nines, 400, kInfinity},
        {"0." + zeros + "1", 403, 0},
        {"0." + zeros + "1e999", 407, kInfinity},  // 1e598
        {"0." + zeros + "1e+999", 408, kInfinity},
        {"0." + zeros + "1e20", 406, 0},  // 1e-381
        {nines + "e-999", 405, 0},        // 1e-599
        {nines + "e-1", 403, kInfinity},
        {"0e999", 5, 0},
    });
}

TEST(Number, ATinyNegativeNumberIsANegativeZero) {
    double value = 1;
    Parse("-1e-999", &value);
    EXPECT_TRUE(std::signbit(value));
}

TEST(Number, PrintsIntegralRealsAsIntegers) {
    struct Case {
        double value;
        const char* text;
    };
    const Case cases[] = {
        {0, "0"},
        {-0.0, "0"},
        {1, "1"},
        {-7, "-7"},
        {999999999999999, "999999999999999"},
        {1e15, "1e+15"},
        {-1e15, "-1e+15"},
        {1e15 - 1, "999999999999999"},
        {1e300, "1e+300"},
        {0.1, "0.1"},
        {-2.5, "-2.5"},
        {1.0 / 3, "0.3333333333333333"},
        {5e-324, "5e-324"},
        {1.7976931348623157e308, "1.7976931348623157e+308"},
        {-1.7976931348623157e308, "-1.7976931348623157e+308"},
        {kInfinity, "inf"},
        {-kInfinity, "-inf"},
        {NAN, "nan"},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(Printed(PrintReal, each.value), each.text);
    }
}

TEST(Number, WhatIsPrintedReadsBackTheSame) {
    double number = 1;
    for (int i = 0; i < 2000; ++i) {
        number = std::fmod(number * 1103515245.7 + 12345.1, 1e18) * (i % 2 ? 1e-9 : -1e-3);
        double read = 0;
        std::string text = Printed(PrintReal, number);
        EXPECT_EQ(Parse(text, &read), static_cast<int>(text.size()));
        EXPECT_EQ(read, number);
    }
}

TEST(Number, PrintsSixDigitsLikePrintf) {
    for (double value : {0.0, -0.0, 1.0, 1.5, 100000.0, 999999.0, 999999.5, 1000000.0, 1234567.0, 0.1, 0.0001, 0.00001,
                         1.0 / 3, 2e300, -5e-324, 123456789.0, 1e15, 1e16, 100.25}) {
        char expected[64];
        std::snprintf(expected, sizeof expected, "%g", value);
        EXPECT_EQ(Printed(PrintRealG, value), expected);
    }
    EXPECT_EQ(Printed(PrintRealG, kInfinity), "inf");
    EXPECT_EQ(Printed(PrintRealG, NAN), "nan");
}

TEST(Number, PrintsIntegersToTheirEnds) {
    char text[kNumberText];
    PrintInteger(text, LLONG_MIN);
    EXPECT_STREQ(text, "-9223372036854775808");
    PrintInteger(text, LLONG_MAX);
    EXPECT_STREQ(text, "9223372036854775807");
}

TEST(Number, KnowsNoDecimalComma) {
    CommaLocale locale;

    ExpectReadings(kNumbers);
    EXPECT_EQ(Printed(PrintReal, 1.5), "1.5");
    EXPECT_EQ(Printed(PrintRealG, 1.5), "1.5");
}

TEST(Numbers, PrintWithTwoDecimals) {
    struct Case {
        double value;
        const char* text;
    };
    const Case cases[] = {
        {0, "0.00"},  {-0.0, "-0.00"},     {2.675, "2.67"}, {-1.005, "-1.00"}, {1e15, "1000000000000000.00"},
        {NAN, "nan"}, {-kInfinity, "-inf"}};
    for (const Case& each : cases) {
        char text[kFixedText];
        EXPECT_EQ(PrintRealFixed(text, sizeof text, each.value, 2), static_cast<int>(std::strlen(each.text)));
        EXPECT_STREQ(text, each.text);
    }
}

TEST(Numbers, PrintWithSixDecimals) {
    char text[kFixedText];
    EXPECT_EQ(PrintRealFixed(text, sizeof text, 1.0 / 3, 6), 8);
    EXPECT_STREQ(text, "0.333333");
    EXPECT_EQ(PrintRealFixed(text, sizeof text, -1.7e308, 6), 317);
}

TEST(Numbers, ReadAsTheCLibraryReadsThemInAnyLocale) {
    struct Case {
        const char* text;
        double value;
    };
    const Case cases[] = {
        {"1.5", 1.5}, {" \t\n1.5x", 1.5},     {"1,5", 1},   {"0x10", 16}, {"infinity", kInfinity}, {"", 0},
        {"text", 0},  {"-1e999", -kInfinity}, {"+.5", 0.5},
    };
    auto check = [&] {
        for (const Case& each : cases) {
            EXPECT_EQ(ReadReal(each.text), each.value) << each.text;
        }
    };
    check();
    CommaLocale locale;
    check();
}

TEST(Numbers, WithTwoDecimalsAreCutWhereTheirRoomEnds) {
    char longest[kFixedText];
    EXPECT_EQ(PrintRealFixed(longest, sizeof longest, -1.7e308, 2), 313);
    char text[5];
    EXPECT_EQ(PrintRealFixed(text, sizeof text, 123456, 2), 4);
    EXPECT_STREQ(text, "1234");
}

}  // namespace
}  // namespace kx::test
