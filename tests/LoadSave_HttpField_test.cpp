// Header fields of HTTP messages, and gzip bodies: what is read of them, piece by piece.
#include "Files/Base/Limits.h"
#include "Files/IO/LoadSave_HttpDecoder.h"
#include "Files/IO/LoadSave_HttpField.h"
#include "tests/support/Gzip.h"

#include <gtest/gtest.h>

namespace kx::test {
namespace {

std::string Text(const HttpFields& fields) {
    std::string text;
    for (const HttpField& field : fields) {
        text += "[" + field.name + "|" + field.value + "]";
    }
    return text;
}

TEST(HttpFields, AreReadLineByLine) {
    struct Case {
        const char* lines;
        const char* fields;
    };
    const Case cases[] = {
        {"", ""},
        {"A: 1\r\n", "[A|1]"},
        {"A: 1\r\nB: 2\r\n", "[A|1][B|2]"},
        {"A: 1\r\nB: 2", "[A|1][B|2]"},
        {"A:1\r\n", "[A|1]"},
        {"A: \t 1 \t\r\n", "[A|1]"},
        {"A:\r\n", "[A|]"},
        {"A: x: y\r\n", "[A|x: y]"},
        {"x-!#$%&'*+.^_`|~9: 1\r\n", "[x-!#$%&'*+.^_`|~9|1]"},
        {"A: \xC3\xA4\r\n", "[A|\xC3\xA4]"},
        {"A: a\tb\r\n", "[A|a\tb]"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.lines);
        HttpFields fields;
        EXPECT_TRUE(ReadHttpFields(c.lines, &fields));
        EXPECT_EQ(Text(fields), c.fields);
    }
}

TEST(HttpFields, WhatIsNoneSetsNothing) {
    for (const char* lines : {"A", "A\r\n", ": 1\r\n", "A b: 1\r\n", "A : 1\r\n", " A: 1\r\n", "A: 1\r\n\r\n",
                              "A: 1\rB: 2\r\n", "A: 1\nB: 2\r\n", "A: \x01\r\n", "A: \x7F\r\n", "\xC3\xA4: 1\r\n"}) {
        SCOPED_TRACE(lines);
        HttpFields fields{{"before", ""}};
        EXPECT_FALSE(ReadHttpFields(lines, &fields));
        EXPECT_EQ(Text(fields), "[before|]");
    }
}

TEST(HttpFields, NeitherNamesNorValuesHoldAZeroByte) {
    HttpFields fields;

    EXPECT_FALSE(IsHttpToken(std::string_view("A\0B", 3)));
    EXPECT_FALSE(ReadHttpFields(std::string_view("A\0B: 1\r\n", 8), &fields));
    EXPECT_FALSE(ReadHttpFields(std::string_view("A: 1\0\r\n", 7), &fields));
}

TEST(HttpFields, OnlyHarmlessOnesGoToAnotherOrigin) {
    for (const char* name :
         {"Accept", "accept", "Accept-Language", "ACCEPT-ENCODING", "content-type", "User-Agent", "Range"}) {
        EXPECT_TRUE(GoesToAnotherOrigin({name, ""})) << name;
    }
    for (const char* name : {"Authorization", "Cookie", "X-Api-Key", "Proxy-Authorization", "Host", "Content-Types",
                             "Referer", "Origin", "If-Range", "X-Accept", ""}) {
        EXPECT_FALSE(GoesToAnotherOrigin({name, ""})) << name;
    }
}

std::string FieldsOf(const HttpAnswer& answer) {
    HttpFields fields;
    answer.ForEachField([&](const HttpField& field) { fields.push_back(field); });
    return Text(fields);
}

TEST(HttpAnswers, AreReadUpToTheEmptyLine) {
    HttpAnswer answer;
    for (const char* line : {"HTTP/1.1 200 OK\r\n", "Server: x\r\n", "no field\r\n", "lost\r\n", "X-Long: a\r\n",
                             "  b\r\n", "\tc\r\n", "Location: /a\r\n", "Content-Encoding: GZIP\r\n"}) {
        EXPECT_EQ(answer.Take(line), nullptr);
    }
    EXPECT_FALSE(answer.IsComplete());
    EXPECT_EQ(answer.Take("\r\n"), nullptr);
    EXPECT_EQ(answer.Take("Trailer: 1\r\n"), nullptr);

    EXPECT_TRUE(answer.IsComplete());
    EXPECT_EQ(FieldsOf(answer), "[server|x][x-long|a b c][location|/a][content-encoding|GZIP]");
    EXPECT_EQ(answer.Location(), "/a");
    EXPECT_EQ(answer.Encoding(), "gzip");
}

TEST(HttpAnswers, ALaterOneTakesThePlaceOfTheOneBefore) {
    HttpAnswer answer;
    for (const char* line : {"HTTP/1.1 103 Early Hints\r\n", "Link: x\r\n", "Content-Length: 1\r\n", "\r\n"}) {
        EXPECT_EQ(answer.Take(line), nullptr);
    }
    EXPECT_EQ(answer.Take("HTTP/1.1 200 OK\r\n"), nullptr);
    EXPECT_FALSE(answer.IsComplete());
    EXPECT_EQ(answer.Take("Content-Length: 2\r\n"), nullptr);

    EXPECT_EQ(FieldsOf(answer), "[content-length|2]");
}

TEST(HttpAnswers, AFieldMayBeginLikeAStatusLine) {
    HttpAnswer answer;
    for (const char* line : {"HTTP/1.1 200 OK\r\n", "Content-Length: 1\r\n", "HTTP/x: 2\r\n", "\r\n"}) {
        EXPECT_EQ(answer.Take(line), nullptr);
    }

    EXPECT_EQ(FieldsOf(answer), "[content-length|1][http/x|2]");
}

TEST(HttpAnswers, OfTwoLocationsTheFirstCounts) {
    HttpAnswer answer;
    for (const char* line : {"HTTP/1.1 302 Found\r\n", "Location: /a\r\n", "location: /b\r\n", "\r\n"}) {
        EXPECT_EQ(answer.Take(line), nullptr);
    }

    EXPECT_EQ(answer.Location(), "/a");
}

TEST(HttpAnswers, WhatFramesTheBodyHasToBeClear) {
    struct Case {
        std::vector<const char*> lines;
        const char* fault;
    };
    const Case cases[] = {
        {{"Content-Length: 5\r\n", "content-length: 5\r\n"}, nullptr},
        {{"Content-Length: 5\r\n", "Content-Length: 6\r\n"}, "two different Content-Lengths"},
        {{"Content-Length: 5, 5\r\n"}, "the Content-Length is no number"},
        {{"Content-Length: -1\r\n"}, "the Content-Length is no number"},
        {{"Content-Length: +1\r\n"}, "the Content-Length is no number"},
        {{"Content-Length: 0x10\r\n"}, "the Content-Length is no number"},
        {{"Content-Length:\r\n"}, "the Content-Length is no number"},
        {{"Content-Length: 1000000000000000000000\r\n"}, "the Content-Length is no number"},
        {{"Transfer-Encoding: Chunked\r\n"}, nullptr},
        {{"Transfer-Encoding: gzip, chunked\r\n"}, "the Transfer-Encoding is not chunked"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.lines.back());
        HttpAnswer answer;
        const char* fault = answer.Take("HTTP/1.1 200 OK\r\n");
        for (const char* line : c.lines) {
            EXPECT_EQ(fault, nullptr);
            fault = answer.Take(line);
        }
        EXPECT_STREQ(fault, c.fault);
    }
}

TEST(HttpAnswers, TheirHeaderHasLimitsOverAllAnswersToARequest) {
    HttpAnswer many;
    int lines = 0;
    while (!many.Take(lines % 2 ? "\r\n" : "HTTP/1.1 100 Continue\r\n") && lines < 10 * kMaxHttpHeaders) {
        ++lines;
    }
    EXPECT_EQ(lines, kMaxHttpHeaders);

    HttpAnswer large;
    EXPECT_EQ(large.Take("X: " + std::string(kMaxHttpHeaderBytes - 5, 'x') + "\r\n"), nullptr);
    EXPECT_STREQ(large.Take("\r\n"), "the header is too long");
    large.Reset();
    EXPECT_EQ(large.Take("\r\n"), nullptr);
}

TEST(HttpDecoder, GivesTheSameInWhateverPiecesItComes) {
    std::string text;
    for (int i = 0; i < 6000; ++i) {
        text += std::to_string(i * i);
    }
    std::string two = Gzip(text) + Gzip("and more");
    for (size_t piece : {size_t{1}, size_t{7}, size_t{4096}, two.size()}) {
        GzipDecoder decoder;
        std::string decoded;
        for (size_t at = 0; at < two.size(); at += piece) {
            EXPECT_TRUE(decoder.Decode(std::string_view(two).substr(at, piece), [&](std::string_view part) {
                decoded += part;
                return true;
            }));
        }
        EXPECT_TRUE(decoder.IsWhole());
        EXPECT_EQ(decoded, text + "and more") << piece;
    }
}

TEST(HttpDecoder, IsWholeOnlyAtTheEnd) {
    std::string gzip = Gzip("some text");
    auto take = [](std::string_view) { return true; };
    for (size_t cut = 1; cut < gzip.size(); ++cut) {
        GzipDecoder decoder;
        EXPECT_TRUE(decoder.Decode(gzip.substr(0, cut), take));
        EXPECT_FALSE(decoder.IsWhole()) << cut;
    }
    GzipDecoder none;
    EXPECT_TRUE(none.IsWhole());
}

TEST(HttpDecoder, RefusesWhatIsDamagedAndStopsWhereItIsTold) {
    auto take = [](std::string_view) { return true; };
    std::string gzip = Gzip("some text");
    std::string wrongSum = gzip;
    wrongSum[gzip.size() - 8] ^= 1;
    for (const std::string& data : {std::string("no gzip"), wrongSum, gzip + "garbage"}) {
        GzipDecoder decoder;
        EXPECT_FALSE(decoder.Decode(data, take));
    }
    GzipDecoder stopped;
    EXPECT_FALSE(stopped.Decode(gzip, [](std::string_view) { return false; }));
}

}  // namespace
}  // namespace kx::test
