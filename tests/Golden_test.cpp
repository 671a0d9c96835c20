// Saves go from one machine to another: what is read and written here is the same on every target, byte for byte. What
// is expected stands in tests/golden, made once and never by the test.
#include "Files/Base/Json.h"
#include "Files/Base/Number.h"
#include "tests/Csv_fixture.h"
#include "tests/Data_Structures_fixture.h"
#include "tests/Function_File_fixture.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace kx::test {
namespace {

std::string GoldenText(const char* name) {
    return ReadWholeFile(std::filesystem::path(KXGOLDEN) / name);
}

void ExpectGolden(const std::string& text, const char* name) {
    std::string expected = GoldenText(name);
    ASSERT_NE(expected, "") << "no expectations in " << name;
    EXPECT_EQ(text, expected);
}

// --- numbers ---------------------------------------------------------------------------------------------------------

std::string BitsOf(double real) {
    unsigned long long bits = 0;
    std::memcpy(&bits, &real, sizeof bits);
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", bits);
    return text;
}

double RealOf(uint64_t bits) {
    double real = 0;
    std::memcpy(&real, &bits, sizeof real);
    return real;
}

const double kAwkward[] = {
    0.0,
    -0.0,
    1,
    -1,
    0.1,
    -0.1,
    0.3,
    1.0 / 3,
    0.5,
    1.5,
    2.675,
    1.005,
    0.0000005,
    0.0000015,
    0.0000025,
    1e-4,
    1e-5,
    1e-7,
    123456,
    1234567,
    123456.5,
    999999.5,
    9999995,
    123456789.125,
    INT_MAX,
    INT_MAX + 1.0,
    INT_MIN,
    INT_MIN - 1.0,
    UINT_MAX,
    UINT_MAX + 1.0,
    999999999999999,
    999999999999999.9,
    1e15,
    -1e15,
    1e16,
    9007199254740991,
    9007199254740992,
    9007199254740994,
    9223372036854775808.0,
    18446744073709551616.0,
    1e21,
    1e22,
    1e23,
    1e300,
    -1e300,
    DBL_EPSILON,
    DBL_MAX,
    -DBL_MAX,
    DBL_MIN,
    2.2250738585072011e-308,
    DBL_TRUE_MIN,
    -DBL_TRUE_MIN,
    4 * DBL_TRUE_MIN,
    INFINITY,
    -INFINITY,
    NAN,
};

/// The awkward numbers, and ones of every size.
std::vector<double> Reals() {
    std::vector<double> reals(std::begin(kAwkward), std::end(kAwkward));
    uint64_t state = 1;
    for (int i = 0; i < 200; ++i) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        double real = RealOf(state ^ (state >> 29));
        if (std::isfinite(real)) reals.push_back(real);
    }
    return reals;
}

std::string JsonOf(RValue value) {
    JsonTree tree(EncodeValue(&value));
    return PrintJson(tree.Get());
}

std::string FormsOf(double real) {
    char brief[kNumberText], six[kNumberText], fixed[kFixedText];
    PrintReal(brief, real);
    PrintRealG(six, real);
    PrintRealFixed(fixed, sizeof fixed, real, 6);
    return std::string(brief) + " " + six + " " + fixed + " " + JsonOf(Real(real)) + " " + BitsOf(ReadReal(brief));
}

/// Bits; the short form, "%g", "%f", JSON; bits that the short form is read as.
TEST(Golden, NumbersHaveTheirTexts) {
    std::string text;
    for (double real : Reals()) {
        text += BitsOf(real) + " " + FormsOf(real) + "\n";
    }

    ExpectGolden(text, "numbers.txt");
}

constexpr const char* kReadings[] = {
    "0",
    "-0",
    "+0",
    "00012",
    "1.",
    ".5",
    "-.5e1",
    ".",
    "-",
    "",
    "e5",
    "1e",
    "1e+",
    "1e5",
    "1E-5",
    "1e400",
    "-1e400",
    "1e-400",
    "4.9e-324",
    "2.4703282292062327e-324",
    "2.4703282292062328e-324",
    "2.2250738585072011e-308",
    "2.2250738585072012e-308",
    "1.7976931348623157e308",
    "1.7976931348623158e308",
    "1.7976931348623159e308",
    "9007199254740993",
    "9007199254740992.999999999999999999999999999999",
    "9007199254740993.00000000000000000001",
    "0.1",
    "0.1000000000000000055511151231257827021181583404541015625",
    "8.5e22",
    "1e23",
    "123abc",
    "1.5.5",
    "0x10",
    "0x1.8p1",
    "0x",
    "-0x.8p-1",
    "inf",
    "-infinity",
    "nan",
    "nan(1)",
    " 12",
    "\t-3",
    "1,5",
    "1_000",
    "17976931348623158079372897140530341507993413271003782693617377898044496829276475094664901797758720709633028641"
    "6"
    "69288791094655554785194040263065748867150582068190890200070838367627385484581771153176447573027006985557136695"
    "9"
    "622842914819860834936475292719074168444365510704342711559699508093042880",
};

TEST(Golden, NumbersReadAsTheSameBits) {
    std::string text;
    for (const char* each : kReadings) {
        double parsed = -1;
        int length = ParseReal(each, &parsed);
        text += std::string("[") + each + "] " + std::to_string(length) + " " + BitsOf(parsed) + " " +
                BitsOf(ReadReal(each)) + "\n";
    }

    ExpectGolden(text, "readings.txt");
}

TEST(Golden, IntegersOf64BitsHaveTheirJson) {
    const int64_t kExact = 1LL << 53;
    std::string text;
    for (int64_t number : {int64_t{0}, int64_t{-1}, int64_t{INT_MAX} - 1, int64_t{INT_MAX}, int64_t{INT_MIN},
                           int64_t{INT_MIN} + 1, int64_t{UINT_MAX}, kExact, kExact + 1, -kExact, -kExact - 1, INT64_MAX,
                           INT64_MAX - 511, INT64_MAX - 1023, INT64_MIN, INT64_MIN + 1}) {
        text += std::to_string(number) + " " + JsonOf(Int64(number)) + "\n";
    }

    ExpectGolden(text, "integers.txt");
}

// --- maps ------------------------------------------------------------------------------------------------------------

std::string WalkOf(const CDS_Map& map) {
    std::string text;
    ForEachEntry(map, [&](const MapStore& entry) {
        text +=
            std::to_string(entry.key.kind & KIND_MASK) + " " + Printed(entry.key) + " = " + Printed(entry.value) + "\n";
    });
    return text;
}

std::vector<Value> Keys() {
    std::vector<Value> keys = {"",
                               "a",
                               "A",
                               "ab",
                               "ba",
                               "gr\xC3\xB6\xC3\x9F"
                               "e",
                               "\xF0\x9F\x8E\xAE",
                               "\xFF",
                               " ",
                               std::string(300, 'x')};
    for (int i = 0; i < 40; ++i) {
        keys.emplace_back("key" + std::to_string(i));
    }
    for (double real : kAwkward) {
        keys.emplace_back(real);
    }
    for (int32_t number : {0, 1, -1, 77, INT32_MAX, INT32_MIN}) {
        keys.emplace_back(Int32(number));
    }
    for (int64_t number : {int64_t{0}, int64_t{78}, int64_t{1} << 53, (int64_t{1} << 53) + 1, INT64_MAX, INT64_MIN}) {
        keys.emplace_back(Int64(number));
    }
    keys.emplace_back(Bool(true));
    keys.emplace_back(Bool(false));
    keys.emplace_back(g_undefined);
    return keys;
}

/// As it grew, after every third key is gone, and after those are back.
TEST_F(DataStructuresTest, GoldenWalkOfAMap) {
    CDS_Map map;
    std::vector<Value> keys = Keys();
    std::string text;
    auto forEveryThird = [&](auto change) {
        for (size_t i = 0; i < keys.size(); i += 3) {
            change(i);
        }
        text += "-- " + std::to_string(map.Count()) + "\n" + WalkOf(map);
    };

    for (size_t i = 0; i < keys.size(); ++i) {
        Set(map, keys[i], static_cast<int>(i));
        if (i == 4 || i == 20) text += "-- " + std::to_string(map.Count()) + "\n" + WalkOf(map);
    }
    forEveryThird([](size_t) {});
    forEveryThird([&](size_t i) { map.Delete(&keys[i].Get()); });
    forEveryThird([&](size_t i) { Set(map, keys[i], static_cast<int>(1000 + i)); });

    ExpectGolden(text, "walk.txt");
}

// --- JSON ------------------------------------------------------------------------------------------------------------

class GoldenFiles : public BuiltInsTest {};

/// What a decoded document holds, in the order of its walks, each level indented.
std::string TreeOf(const RValue& value, const std::string& indent) {
    std::string text;
    bool isContainer = (value.kind & (KIND_DS_MAP | KIND_DS_LIST)) != 0;
    int index = isContainer ? static_cast<int>(value.real) : 0;
    if (value.kind & KIND_DS_MAP) {
        text = "map\n";
        ForEachEntry(*themaps.arr[index], [&](const MapStore& entry) {
            text += indent + Printed(entry.key) + ": " + TreeOf(entry.value, indent + "  ");
        });
        return text;
    }
    if (value.kind & KIND_DS_LIST) {
        const CDS_List& list = *thelists.arr[index];
        text = "list\n";
        for (int i = 0; i < list.m_count; ++i) {
            text += indent + "- " + TreeOf(*list.Get(i), indent + "  ");
        }
        return text;
    }
    return std::to_string(value.kind) + " " + Printed(value) + "\n";
}

TEST_F(GoldenFiles, AJsonDocumentIsReadAndWrittenBack) {
    std::string document = GoldenText("document.json");

    Value map = Call("json_decode", {document});
    std::string text = TreeOf(MapReference(static_cast<int>(map.Real())), "") + "\n";
    text += "json_encode: " + Call("json_encode", {map}).Text() + "\n";
    text += "json_stringify: " + Call("json_stringify", {Call("json_parse", {document})}).Text() + "\n";

    ExpectGolden(text, "document.txt");
    EXPECT_EQ(TakeError(), "");
}

// --- INI -------------------------------------------------------------------------------------------------------------

TEST_F(GoldenFiles, AnIniDocumentIsReadChangedAndWritten) {
    WriteWholeFile(Save("a.ini"), GoldenText("settings.ini"));
    Call("ini_open", {"a.ini"});
    std::string text;
    for (const char* section : {"", "plain", "quoted", "odd", "twice",
                                "gr\xC3\xB6\xC3\x9F"
                                "e"}) {
        for (const char* key : {"a", "b", "c", "d", "e", "f", "g", "h", "with space", "A"}) {
            text += std::string(section) + "." + key + ": " + Call("ini_read_string", {section, key, "-"}).Text() +
                    " " + BitsOf(Call("ini_read_real", {section, key, -1}).Real()) + "\n";
        }
    }
    for (size_t i = 0; i < std::size(kAwkward); ++i) {
        Call("ini_write_real", {"reals", "r" + std::to_string(i), kAwkward[i]});
    }
    Call("ini_write_string", {"plain", "a", "changed"});
    Call("ini_write_string", {"plain", "new", " kept blanks "});
    Call("ini_write_string", {"quoted", "a", "with \"quotes\" ; and # marks"});
    Call("ini_key_delete", {"plain", "b"});
    Call("ini_section_delete", {"twice"});
    Call("ini_close");
    text += "-- written\n" + ReadWholeFile(Save("a.ini"));

    ExpectGolden(text, "settings.txt");
    EXPECT_EQ(TakeError(), "");
}

// --- CSV -------------------------------------------------------------------------------------------------------------

class GoldenTables : public CsvTest {};

TEST_F(GoldenTables, CsvTextBecomesCells) {
    std::string text;
    for (const auto& row : Take(LoadText(GoldenText("table.csv")))) {
        for (const std::string& cell : row) {
            text += "[" + cell + "]";
        }
        text += "\n";
    }

    ExpectGolden(text, "table.txt");
    EXPECT_EQ(m_console.Take(), "");
}

}  // namespace
}  // namespace kx::test
