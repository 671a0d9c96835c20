// JSON texts, good and bad: which of them json_parse takes, and what it reads them as.
#include "Files/Base/Collector.h"
#include "Files/Function/Function_File.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Console.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kx::test {
namespace {

using namespace std::string_literals;

/// What becomes of a text, whatever it should be: a verdict that does not go with the case's name is how this module
/// differs. That a text is null is a verdict of its own: json_parse then fails as for a bad one.
enum Verdict { refused, accepted, isNull };

struct Case {
    std::string name;  ///< "y_…" is JSON, "n_…" is not, "i_…" may be read or not, and as this or that
    std::string text;
    Verdict verdict;
    std::string printed = "";  ///< the value as json_stringify writes it
};

using Cases = std::vector<Case>;

std::string Times(int count, const std::string& text) {
    std::string repeated;
    for (int i = 0; i < count; ++i) {
        repeated += text;
    }
    return repeated;
}

std::string Nested(int depth, const std::string& open, const std::string& inside, const std::string& close) {
    return Times(depth, open) + inside + Times(depth, close);
}

const Cases kStructure = {
    {"y_array_empty", "[]", accepted, "[ ]"},
    {"y_object_empty", "{}", accepted, "{ }"},
    {"y_array_of_all_kinds", R"([1,"a",true,null,{},[]])", accepted, R"([ 1.0, "a", 1.0, null, { }, [ ] ])"},
    {"y_number_alone", "42", accepted, "42.0"},
    {"y_number_alone_negative_with_exponent", "-1.5e3", accepted, "-1500.0"},
    {"y_string_alone", R"("a")", accepted, R"("a")"},
    {"y_space_all_kinds_mixed", " \t\r\n[ \t\r\n] \t\r\n", accepted, "[ ]"},
    {"y_space_everywhere", R"( [ 1 , { "a" : [ ] } ] )", accepted, R"([ 1.0, { "a": [ ] } ])"},
    {"y_space_much_of_it", "[" + Times(100000, " ") + "1]", accepted, "[ 1.0 ]"},

    {"n_empty", "", refused},
    {"n_only_spaces", "  ", refused},
    {"n_only_a_comma", ",", refused},
    {"n_array_of_a_bare_word", "[a]", refused},
    {"n_escaped_bracket", R"(\u005B])", refused},
    {"n_control_character", "[\x01]", refused},
    {"n_array_open", "[", refused},
    {"n_array_close", "]", refused},
    {"n_object_open", "{", refused},
    {"n_array_unclosed_after_value", "[1", refused},
    {"n_array_unclosed_after_comma", "[1,", refused},
    {"n_array_closed_as_object", "[1}", refused},
    {"n_object_closed_as_array", R"({"a":1])", refused},
    {"n_array_starts_with_comma", "[,1]", refused},
    {"n_array_two_commas", "[1,,2]", refused},
    {"n_array_space_for_comma", "[1 2]", refused},
    {"n_array_colon_for_comma", "[1:2]", refused},

    // One comma too many at the end is taken.
    {"n_array_trailing_comma", "[1,]", accepted, "[ 1.0 ]"},

    // What follows a whole value is not looked at.
    {"n_trailing_bracket", "[]]", accepted, "[ ]"},
    {"n_trailing_comma", "[],", accepted, "[ ]"},
    {"n_trailing_array", "[1][2]", accepted, "[ 1.0 ]"},
    {"n_trailing_digits", "1 2", accepted, "1.0"},
    {"n_trailing_letters_of_a_number", "0x10", accepted, "0.0"},
    {"n_trailing_hash", R"({"a":1}#)", accepted, R"({ "a": 1.0 })"},

    // Comments of both kinds are space.
    {"n_comment_before", "/* c */[]", accepted, "[ ]"},
    {"n_comment_inside_array", "[1,/* c */2]", accepted, "[ 1.0, 2.0 ]"},
    {"n_comment_inside_object", R"({"a":/* c */1/**/})", accepted, R"({ "a": 1.0 })"},
    {"n_comment_to_end_of_line", "// c\n[1// c\n]", accepted, "[ 1.0 ]"},
    {"n_comment_alone", "/* c */", refused},
    {"n_comment_of_half_a_mark", "[/ c /]", refused},
    {"n_comment_with_three_asterisks_last", "[/* c ***/1]", accepted, "[ 1.0 ]"},
    {"n_comment_with_two_asterisks_last", "[/* c **/1]", refused},  // where its end is not seen
    {"n_comment_with_hash", "# c\n[]", refused},

    // A text may end inside a comment, but not before its containers do.
    {"n_comment_last", "[]//", accepted, "[ ]"},
    {"n_comment_last_in_array", "[1,2/* 3]", refused},
    {"n_comment_last_in_object", R"({"a":"b"//})", refused},
    {"n_comment_last_after_inner_array", "[1,[2,3]//]", refused},
    {"n_comment_last_after_null", "[1,null/*", refused},
    {"n_comment_last_after_comma", "[1,/*", refused},

    // Only four characters are space.
    {"n_space_form_feed", "[\f]", refused},
    {"n_space_no_break", "[\xC2\xA0]", refused},
    {"n_byte_outside_of_a_string", "[\xFF]", refused},
    {"i_byte_order_mark", "\xEF\xBB\xBF[]", refused},

    // The text ends at its first zero byte, whatever follows.
    {"n_zero_byte_alone", "\0"s, refused},
    {"n_zero_byte_in_array", "[1,\0 2]"s, refused},
    {"n_zero_byte_before_garbage", "[1]\0]"s, accepted, "[ 1.0 ]"},
    {"n_two_byte_characters", "[\0]\0"s, refused},

    // 32 containers inside one another, and a value besides them only inside 31.
    {"y_nested_16_arrays", Nested(16, "[", "1", "]"), accepted, Nested(16, "[ ", "1.0", " ]")},
    {"i_nested_31_arrays_and_a_value", Nested(31, "[", "1", "]"), accepted, Nested(31, "[ ", "1.0", " ]")},
    {"i_nested_32_arrays_and_a_value", Nested(32, "[", "1", "]"), refused},
    {"i_nested_32_arrays", Nested(32, "[", "", "]"), accepted, Nested(31, "[ ", "[ ]", " ]")},
    {"i_nested_33_arrays", Nested(33, "[", "", "]"), refused},
    {"i_nested_31_objects", Nested(31, R"({"a":)", "1", "}"), accepted, Nested(31, R"({ "a": )", "1.0", " }")},
    {"n_nested_100000_arrays_unclosed", Times(100000, "["), refused},
    {"n_nested_100000_objects_unclosed", Times(100000, R"([{"":)"), refused},
    {"y_array_of_1000_arrays", "[[]" + Times(999, ",[]") + "]", accepted, "[ [ ]" + Times(999, ", [ ]") + " ]"},
};

const Cases kNumbers = {
    {"y_zero", "[0]", accepted, "[ 0.0 ]"},
    {"y_zero_negative", "[-0]", accepted, "[ 0.0 ]"},  // an integer, which has no such sign
    {"y_zero_negative_point_zero", "[-0.0]", accepted, "[ -0.0 ]"},
    {"y_negative", "[-1]", accepted, "[ -1.0 ]"},
    {"y_fraction", "[10.25]", accepted, "[ 10.25 ]"},
    {"y_fraction_negative", "[-0.5]", accepted, "[ -0.5 ]"},
    {"y_fraction_no_exact_double", "[0.1]", accepted, "[ 0.10000000000000001 ]"},
    {"y_exponent", "[1e5]", accepted, "[ 100000.0 ]"},
    {"y_exponent_capital", "[1E5]", accepted, "[ 100000.0 ]"},
    {"y_exponent_plus", "[1e+5]", accepted, "[ 100000.0 ]"},
    {"y_exponent_capital_plus", "[1E+5]", accepted, "[ 100000.0 ]"},
    {"y_exponent_minus", "[5e-1]", accepted, "[ 0.5 ]"},
    {"y_exponent_leading_zeros", "[1e005]", accepted, "[ 100000.0 ]"},
    {"y_exponent_of_zero", "[0e1]", accepted, "[ 0.0 ]"},
    {"y_exponent_of_negative_zero", "[-0e1]", accepted, "[ -0.0 ]"},
    {"y_exponent_of_negative_fraction", "[-12.5E-1]", accepted, "[ -1.25 ]"},
    {"y_largest_double", "[1.7976931348623157e308]", accepted, "[ 1.7976931348623157e+308 ]"},
    {"y_smallest_double", "[5e-324]", accepted, "[ 4.9406564584124654e-324 ]"},
    {"y_32_bits_most", "[2147483647]", accepted, "[ 2147483647.0 ]"},
    {"y_32_bits_least", "[-2147483648]", accepted, "[ -2147483648.0 ]"},

    // Integers outside of 32 bits stop at their ends, however long; with a point or an exponent they are read as such.
    {"i_32_bits_most_and_one", "[2147483648]", accepted, "[ 2147483647.0 ]"},
    {"i_32_bits_least_less_one", "[-2147483649]", accepted, "[ -2147483648.0 ]"},
    {"i_53_bits_and_one", "[9007199254740993]", accepted, "[ 2147483647.0 ]"},
    {"i_64_bits_most", "[9223372036854775807]", accepted, "[ 2147483647.0 ]"},
    {"i_64_bits_most_and_one", "[9223372036854775808]", accepted, "[ 2147483647.0 ]"},
    {"i_64_bits_least", "[-9223372036854775808]", accepted, "[ -2147483648.0 ]"},
    {"i_64_bits_least_less_one", "[-9223372036854775809]", accepted, "[ -2147483648.0 ]"},
    {"i_64_bits_unsigned_most_and_one", "[18446744073709551616]", accepted, "[ 2147483647.0 ]"},
    {"i_128_bits_and_one", "[340282366920938463463374607431768211457]", accepted, "[ 2147483647.0 ]"},
    {"i_1000_digits", "[" + Times(1000, "9") + "]", accepted, "[ 2147483647.0 ]"},
    {"i_32_bits_most_and_one_with_point", "[2147483648.0]", accepted, "[ 2147483648.0 ]"},
    {"i_53_bits_and_one_with_point", "[9007199254740993.0]", accepted, "[ 9007199254740992.0 ]"},
    {"i_fraction_1000_digits", "[0." + Times(1000, "3") + "]", accepted, "[ 0.33333333333333331 ]"},

    // Beyond a double is infinity or zero. The former is printed in a form that only this library reads.
    {"i_exponent_999", "[1e999]", accepted, "[ Infinity ]"},
    {"i_exponent_999_negative", "[-1e999]", accepted, "[ -Infinity ]"},
    {"i_exponent_minus_999", "[1e-999]", accepted, "[ 0.0 ]"},
    {"i_exponent_minus_999_negative", "[-1e-999]", accepted, "[ -0.0 ]"},
    {"i_exponent_20_digits", "[1e99999999999999999999]", accepted, "[ Infinity ]"},
    {"i_exponent_20_digits_minus", "[1e-99999999999999999999]", accepted, "[ 0.0 ]"},

    // Leading zeros are skipped, never octal.
    {"n_leading_zero", "[010]", accepted, "[ 10.0 ]"},
    {"n_leading_zero_negative", "[-010]", accepted, "[ -10.0 ]"},
    {"n_leading_zero_fraction", "[-007.5]", accepted, "[ -7.5 ]"},

    // Digits may lack after the point, and before it behind a minus.
    {"n_point_last", "[1.]", accepted, "[ 1.0 ]"},
    {"n_point_before_exponent", "[1.e5]", accepted, "[ 100000.0 ]"},
    {"n_point_first_negative", "[-.5]", accepted, "[ -0.5 ]"},
    {"n_point_first", "[.5]", refused},
    {"n_point_alone", "[.]", refused},

    // An exponent without digits is no exponent.
    {"n_exponent_empty", "[1e]", accepted, "[ 1.0 ]"},
    {"n_exponent_empty_plus", "[1e+]", accepted, "[ 1.0 ]"},
    {"n_exponent_empty_minus", "[0.5e-]", accepted, "[ 0.5 ]"},
    {"n_exponent_alone", "[e5]", refused},
    {"n_exponent_two_signs", "[1e+-5]", refused},
    {"n_exponent_two_marks", "[1eE5]", refused},
    {"n_exponent_fraction", "[1e5.5]", refused},

    // Words that stand for no finite number are read as what they say, in small letters too.
    {"n_word_nan", "[NaN]", accepted, "[ NaN ]"},
    {"n_word_nan_small", "[nan]", accepted, "[ NaN ]"},
    {"n_word_nan_negative", "[-NaN]", refused},
    {"n_word_infinity", "[Infinity]", accepted, "[ Infinity ]"},
    {"n_word_infinity_negative", "[-Infinity]", accepted, "[ -Infinity ]"},
    {"n_word_infinity_small", "[-infinity]", accepted, "[ -Infinity ]"},
    {"n_word_inf", "[Inf]", refused},

    {"n_minus_alone", "-", refused},
    {"n_minus_in_array", "[-]", refused},
    {"n_minus_two", "[--1]", refused},
    {"n_minus_space", "[- 1]", refused},
    {"n_minus_behind", "[1-]", refused},
    {"n_plus", "[+1]", refused},
    {"n_point_two", "[1.2.3]", refused},
    {"n_hexadecimal", "[0x10]", refused},
    {"n_underscore", "[1_000]", refused},
    {"n_letters", "[12a]", refused},
    {"n_full_width_digit", "[\xEF\xBC\x91]", refused},
    {"n_byte_after_digit", "[1\xE5]", refused},
};

const Cases kStrings = {
    {"y_empty", R"([""])", accepted, R"([ "" ])"},
    {"y_100000_letters", "[\"" + Times(100000, "x") + "\"]", accepted, "[ \"" + Times(100000, "x") + "\" ]"},
    {"y_escaped_quote", R"(["\""])", accepted, R"([ "\"" ])"},
    {"y_escaped_backslash", R"(["\\"])", accepted, R"([ "\\" ])"},
    {"y_escaped_slash", R"(["\/"])", accepted, R"([ "\/" ])"},
    {"y_escaped_backspace", R"(["\b"])", accepted, R"([ "\b" ])"},
    {"y_escaped_form_feed", R"(["\f"])", accepted, R"([ "\f" ])"},
    {"y_escaped_line_feed", R"(["\n"])", accepted, R"([ "\n" ])"},
    {"y_escaped_carriage_return", R"(["\r"])", accepted, R"([ "\r" ])"},
    {"y_escaped_tab", R"(["\t"])", accepted, R"([ "\t" ])"},
    {"y_escaped_all_in_a_row", R"(["\"\\\/\b\f\n\r\t\u0041"])", accepted, R"([ "\"\\\/\b\f\n\r\tA" ])"},
    {"y_escaped_backslash_before_letters", R"(["\\n\\u0041"])", accepted, R"([ "\\n\\u0041" ])"},
    {"y_code_letter", R"(["\u0041"])", accepted, R"([ "A" ])"},
    {"y_code_small_digits", R"(["\u00e9"])", accepted, "[ \"\xC3\xA9\" ]"},
    {"y_code_capital_digits", R"(["\u00E9"])", accepted, "[ \"\xC3\xA9\" ]"},
    {"y_code_three_bytes", R"(["\u20aC"])", accepted, "[ \"\xE2\x82\xAC\" ]"},
    {"y_code_quote", R"(["\u0022"])", accepted, R"([ "\"" ])"},
    {"y_code_control", R"(["\u0001\u001f"])", accepted, R"([ "\u0001\u001f" ])"},
    {"y_code_delete", R"(["\u007f"])", accepted, "[ \"\x7F\" ]"},
    {"y_code_noncharacter_ffff", R"(["\uffff"])", accepted, "[ \"\xEF\xBF\xBF\" ]"},
    {"y_pair", R"(["\uD834\uDD1E"])", accepted, "[ \"\xF0\x9D\x84\x9E\" ]"},
    {"y_pair_lowest", R"(["\ud800\udc00"])", accepted, "[ \"\xF0\x90\x80\x80\" ]"},
    {"y_pair_highest", R"(["\udbff\udfff"])", accepted, "[ \"\xF4\x8F\xBF\xBF\" ]"},
    {"y_raw_two_bytes", "[\"\xC3\xA9\"]", accepted, "[ \"\xC3\xA9\" ]"},
    {"y_raw_three_bytes", "[\"\xE2\x82\xAC\"]", accepted, "[ \"\xE2\x82\xAC\" ]"},
    {"y_raw_four_bytes", "[\"\xF0\x9D\x84\x9E\"]", accepted, "[ \"\xF0\x9D\x84\x9E\" ]"},
    {"y_raw_noncharacter_ffff", "[\"\xEF\xBF\xBF\"]", accepted, "[ \"\xEF\xBF\xBF\" ]"},
    {"y_raw_delete", "[\"\x7F\"]", accepted, "[ \"\x7F\" ]"},
    {"y_raw_comments", R"(["/* a */ // b"])", accepted, R"([ "\/* a *\/ \/\/ b" ])"},
    {"y_raw_brackets", R"(["]}[{,:"])", accepted, R"([ "]}[{,:" ])"},

    // Text ends at a zero character.
    {"y_code_zero", R"(["\u0000"])", accepted, R"([ "" ])"},
    {"y_code_zero_inside", R"(["a\u0000b"])", accepted, R"([ "a" ])"},

    // The text form of a 64-bit integer is that integer.
    {"y_text_form_small", R"(["@i64@10$i64$"])", accepted, "[ 16 ]"},
    {"y_text_form_large", R"(["@i64@7fffffffffffffff$i64$"])", accepted, R"([ "@i64@7fffffffffffffff$i64$" ])"},

    // A surrogate that is no half of a pair becomes U+FFFD.
    {"i_surrogate_high", R"(["\ud800"])", accepted, "[ \"\xEF\xBF\xBD\" ]"},
    {"i_surrogate_high_before_escape", R"(["\ud800\n"])", accepted, "[ \"\xEF\xBF\xBD\\n\" ]"},
    {"i_surrogate_high_before_code", R"(["\ud800\u005a"])", accepted, "[ \"\xEF\xBF\xBDZ\" ]"},
    {"i_surrogate_high_twice", R"(["\ud800\ud800"])", accepted, "[ \"\xEF\xBF\xBD\xEF\xBF\xBD\" ]"},
    {"i_surrogate_low", R"(["\udc00"])", accepted, "[ \"\xEF\xBF\xBD\" ]"},
    {"i_surrogate_low_before_pair", R"(["\udd1e\ud834\udd1e"])", accepted, "[ \"\xEF\xBF\xBD\xF0\x9D\x84\x9E\" ]"},
    {"i_surrogates_inverted", R"(["\udd1e\ud834"])", accepted, "[ \"\xEF\xBF\xBD\xEF\xBF\xBD\" ]"},

    // Bytes are taken as they are.
    {"i_bytes_continuation_alone", "[\"\x80\"]", accepted, "[ \"\x80\" ]"},
    {"i_bytes_ff", "[\"\xFF\"]", accepted, "[ \"\xFF\" ]"},
    {"i_bytes_two_cut_short", "[\"\xC3\"]", accepted, "[ \"\xC3\" ]"},
    {"i_bytes_overlong_slash", "[\"\xC0\xAF\"]", accepted, "[ \"\xC0\xAF\" ]"},
    {"i_bytes_overlong_zero", "[\"\xC0\x80\"]", accepted, "[ \"\xC0\x80\" ]"},
    {"i_bytes_surrogate", "[\"\xED\xA0\x80\"]", accepted, "[ \"\xED\xA0\x80\" ]"},
    {"i_bytes_beyond_10ffff", "[\"\xF4\x90\x80\x80\"]", accepted, "[ \"\xF4\x90\x80\x80\" ]"},

    // Control characters need no escape.
    {"n_raw_line_feed", "[\"a\nb\"]", accepted, R"([ "a\nb" ])"},
    {"n_raw_tab", "[\"a\tb\"]", accepted, R"([ "a\tb" ])"},
    {"n_raw_control_01", "[\"\x01\"]", accepted, R"([ "\u0001" ])"},
    {"n_raw_zero_byte", "[\"a\0b\"]"s, refused},  // where the text ends

    // Quotes may be single ones, at both ends.
    {"n_single_quotes", "['a']", accepted, R"([ "a" ])"},
    {"n_single_quote_first", R"(['a"])", refused},
    {"n_escaped_single_quote", R"(["\'"])", refused},

    {"n_escaped_letter", R"(["\a"])", refused},
    {"n_escaped_digit", R"(["\0"])", refused},
    {"n_escaped_hexadecimal", R"(["\x41"])", refused},
    {"n_escaped_line_end", "[\"\\\n\"]", refused},
    {"n_escaped_raw_character", "[\"\\\xC3\xA9\"]", refused},
    {"n_code_three_digits", R"(["\u123"])", refused},
    {"n_code_bad_digit", R"(["\u123g"])", refused},
    {"n_code_space", R"(["\u 041"])", refused},
    {"n_code_braces", R"(["\u{41}"])", refused},
    {"n_code_cut_short_in_pair_digits", R"(["\ud834\udd1"])", refused},
    {"n_code_bad_escape_in_pair", R"(["\ud834\x"])", refused},
    {"n_unclosed_letters", R"(["a)", refused},
    {"n_unclosed_escaped_quote", R"(["\"])", refused},
    {"n_unclosed_backslash", R"("\)", refused},
    {"n_unclosed_inside_pair", R"("\ud834\)", refused},
    {"n_unopened", R"([a"])", refused},
    {"n_letters_behind", R"(["a"b])", refused},
};

const Cases kObjects = {
    {"y_member", R"({"a":1})", accepted, R"({ "a": 1.0 })"},
    {"y_two_members", R"({"a":1,"b":"c"})", accepted, R"({ "a": 1.0, "b": "c" })"},
    {"y_all_kinds", R"({"a":null,"b":true,"c":[]})", accepted, R"({ "a": null, "b": 1.0, "c": [ ] })"},
    {"y_nested", R"({"a":{"b":[{"c":1}]}})", accepted, R"({ "a": { "b": [ { "c": 1.0 } ] } })"},
    {"y_space_around_all_parts", "{\n\"a\"\t:\r1 , \"b\" : 2 }", accepted, R"({ "a": 1.0, "b": 2.0 })"},
    {"y_name_empty", R"({"":1})", accepted, R"({ "": 1.0 })"},
    {"y_name_escaped", R"({"\u0061\n\"":1})", accepted, R"({ "a\n\"": 1.0 })"},
    {"y_name_raw", "{\"\xC3\xA9\":1}", accepted, "{ \"\xC3\xA9\": 1.0 }"},
    {"y_name_10000_letters", "{\"" + Times(10000, "x") + "\":1}", accepted, "{ \"" + Times(10000, "x") + "\": 1.0 }"},
    {"y_name_zero_inside", R"({"a\u0000b":1})", accepted, R"({ "a": 1.0 })"},  // where text ends
    {"i_name_bytes", "{\"\xFF\":1}", accepted, "{ \"\xFF\": 1.0 }"},
    {"i_name_surrogate", R"({"\udc00":1})", accepted, "{ \"\xEF\xBF\xBD\": 1.0 }"},

    // Of members with the same name the last one is left.
    {"y_same_name", R"({"a":1,"a":2})", accepted, R"({ "a": 2.0 })"},
    {"y_same_name_escaped", R"({"a":1,"\u0061":2})", accepted, R"({ "a": 2.0 })"},
    {"y_same_name_of_containers", R"({"a":{"b":1},"a":[2]})", accepted, R"({ "a": [ 2.0 ] })"},
    {"y_same_name_to_the_zero", R"({"a\u0000b":1,"a\u0000c":2})", accepted, R"({ "a": 2.0 })"},

    // As in arrays and strings.
    {"n_trailing_comma", R"({"a":1,})", accepted, R"({ "a": 1.0 })"},
    {"n_name_in_single_quotes", "{'a':1}", accepted, R"({ "a": 1.0 })"},

    {"n_two_commas", R"({"a":1,,"b":2})", refused},
    {"n_comma_first", R"({,"a":1})", refused},
    {"n_comma_for_colon", R"({"a",1})", refused},
    {"n_comma_missing", R"({"a":1 "b":2})", refused},
    {"n_colon_missing", R"({"a" 1})", refused},
    {"n_name_alone", R"({"a"})", refused},
    {"n_name_missing", "{:1}", refused},
    {"n_value_missing", R"({"a":})", refused},
    {"n_name_unquoted", "{a:1}", refused},
    {"n_name_number", "{1:1}", refused},
    {"n_name_null", "{null:1}", refused},
    {"n_name_unclosed", R"({"a:1})", refused},
    {"n_name_mixed_quotes", R"({"a':1})", refused},
    {"n_unclosed_after_value", R"({"a":1)", refused},
    {"n_unclosed_after_comma", R"({"a":1,)", refused},
    {"n_unclosed_after_colon", R"({"a":)", refused},
};

const Cases kLiterals = {
    {"y_true", "[true]", accepted, "[ 1.0 ]"},
    {"y_false", "[false]", accepted, "[ 0.0 ]"},
    {"y_null", "[null]", accepted, "[ null ]"},
    {"y_true_alone", "true", accepted, "1.0"},
    {"y_false_alone", " false\n", accepted, "0.0"},
    {"y_null_alone", "null", isNull},

    // Capitals make no difference.
    {"n_capital_true", "[True]", accepted, "[ 1.0 ]"},
    {"n_capitals_true", "[TRUE]", accepted, "[ 1.0 ]"},
    {"n_capitals_mixed_false", "[fALSE]", accepted, "[ 0.0 ]"},
    {"n_capital_null", "[Null]", accepted, "[ null ]"},
    {"n_capitals_null_alone", "NULL", isNull},

    // What follows is not looked at either.
    {"n_longer_true_alone", "truex", accepted, "1.0"},
    {"n_longer_null_alone", "nullx", isNull},

    {"n_longer_true", "[truee]", refused},
    {"n_shorter_true", "[tru]", refused},
    {"n_shorter_true_alone", "tru", refused},
    {"n_two_together", "[truefalse]", refused},
    {"n_word_undefined", "[undefined]", refused},
};

/// What a text was read into is gone once nothing holds it any more.
class JsonSuite : public ::testing::Test {
protected:
    void SetUp() override {
        InitFileFunctions();
        Collector::Collect();
        m_blocks = MemoryManager::Stats().blocks;
    }

    void TearDown() override { ExpectNothingLeft(); }

    void ExpectNothingLeft() const {
        Collector::Collect();
        EXPECT_EQ(MemoryManager::Stats().blocks, m_blocks);
    }

private:
    long long m_blocks = 0;
};

void ExpectVerdicts(const Cases& cases) {
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);

        Value read = Call("json_parse", {each.text});

        EXPECT_EQ(TakeError(), each.verdict == accepted ? "" : "JSON parse error");
        if (each.verdict == accepted) {
            EXPECT_EQ(Call("json_stringify", {read}).Text(), each.printed);
        } else {
            EXPECT_EQ(read.Kind(), VALUE_UNDEFINED);
        }
    }
}

TEST_F(JsonSuite, Structure) {
    ExpectVerdicts(kStructure);
}

TEST_F(JsonSuite, Numbers) {
    ExpectVerdicts(kNumbers);
}

TEST_F(JsonSuite, Strings) {
    ExpectVerdicts(kStrings);
}

TEST_F(JsonSuite, Objects) {
    ExpectVerdicts(kObjects);
}

TEST_F(JsonSuite, Literals) {
    ExpectVerdicts(kLiterals);
}

/// Prints and frees what was made at an index; empty where nothing was.
std::string TakePrinted(double index, unsigned int mark) {
    if (index < 0) return "";
    RValue reference{{index}, 0, VALUE_REAL | mark};
    std::string printed = Call("json_stringify", {Value(reference)}).Text();
    FreeDsTree(&reference);
    return printed;
}

/// A map has an order of its own: texts that have the same characters count as equal.
void ExpectSameMembers(std::string map, std::string printed) {
    std::sort(map.begin(), map.end());
    std::sort(printed.begin(), printed.end());
    EXPECT_EQ(map, printed);
}

void ExpectMapsAndLists(const Case& each) {
    std::string text = each.text;
    bool isObject = each.printed.substr(0, 1) == "{";
    bool isArray = each.printed.substr(0, 1) == "[";
    bool isFilledArray = isArray && each.printed != "[ ]";

    std::string map = TakePrinted(JSONToDSMap(text.data(), -1), KIND_DS_MAP);
    std::string list = TakePrinted(JSONToDSList(text.data(), nullptr, -1), KIND_DS_LIST);
    std::string decoded = TakePrinted(Call("json_decode", {each.text}).Real(), KIND_DS_MAP);

    ExpectSameMembers(map, isObject ? each.printed : each.verdict == refused ? "" : "{ }");
    EXPECT_EQ(list, isFilledArray ? each.printed : "");
    // Wrapping makes other texts of all that is not plainly an object or array: good ones for bad ones, too.
    bool isPlain = each.name[0] == 'y' && (isObject || isArray);
    if (isPlain) ExpectSameMembers(decoded, isObject ? each.printed : R"({ "default": )" + each.printed + " }");
}

TEST_F(JsonSuite, MapsAndListsAreMadeOfTheSameTextsAndLeaveNothingBehind) {
    for (const Cases* cases : {&kStructure, &kNumbers, &kStrings, &kObjects, &kLiterals}) {
        for (const Case& each : *cases) {
            SCOPED_TRACE(each.name);
            ExpectMapsAndLists(each);
            EXPECT_EQ(TakeError(), "");
            ExpectNothingLeft();
        }
    }
}

}  // namespace
}  // namespace kx::test
