// The HTTP built-ins: which requests they start.
#include "tests/Function_File_Http_fixture.h"
#include "tests/RValue_fixture.h"
#include "tests/support/ExpectedLeak.h"
#include "tests/support/Loopback.h"

namespace kx::test {
namespace {

// --- starting --------------------------------------------------------------------------------------------------------

TEST_F(HttpBuiltIns, GetGivesAnIdAndAnEventWithTheText) {
    HttpServer server(Each(Answer("200 OK", "X-Name: value\r\n", "hello")));

    Value id = Call("http_get", {server.Url("/path")});
    Event event = Await(id);

    EXPECT_EQ(Names(event), (Lines{"http_status", "id", "response_headers", "result", "status", "url"}));
    EXPECT_EQ(TextOf(event, "url"), server.Url("/path"));
    ExpectText(event, 200, "hello", 0);
    EXPECT_EQ(RequestLine(server.Requests()[0]), "GET /path HTTP/1.1");
}

TEST_F(HttpBuiltIns, PostStringSendsTheText) {
    HttpServer server(Each(Ok("done")));

    Event event = Await(Call("http_post_string", {server.Url(), "a=1&b=2"}));

    ExpectText(event, 200, "done", 0);
    EXPECT_EQ(RequestLine(server.Requests()[0]), "POST / HTTP/1.1");
    EXPECT_EQ(BodyOf(server.Requests()[0]), "a=1&b=2");
}

TEST_F(HttpBuiltIns, RequestSendsTheMethodTheHeadersAndTheText) {
    HttpServer server(Each(Ok("done")));
    int map = Map({{"X-Name", "value"}, {"X-Number", 12.5}, {"Content-Type", "text/x"}, {"X-Empty", ""}, {7, 8}});

    ExpectText(Await(Call("http_request", {server.Url(), "PUT", map, "body"})), 200, "done", 0);

    std::string request = server.Requests()[0];
    EXPECT_EQ(RequestLine(request), "PUT / HTTP/1.1");
    EXPECT_EQ(Fields(request, "x-name"), Lines{"X-Name: value"});
    EXPECT_EQ(Fields(request, "x-number"), Lines{"X-Number: 12.5"});
    EXPECT_EQ(Fields(request, "content-type"), Lines{"Content-Type: text/x"});
    EXPECT_EQ(Fields(request, "x-empty"), Lines{"X-Empty:"});
    EXPECT_EQ(Fields(request, "7"), Lines{"7: 8"});
    EXPECT_EQ(BodyOf(request), "body");
}

TEST_F(HttpBuiltIns, AUrlIsOneByItsSchemeInLowerCase) {
    for (const Value& url :
         {Value("HTTP://127.0.0.1/"), Value("Https://127.0.0.1/"), Value("ftp://127.0.0.1/"), Value("http:/127.0.0.1/"),
          Value(" http://127.0.0.1/"), Value("127.0.0.1"), Value(""), Value(), Value(12)}) {
        g_fHttpOutput = false;
        EXPECT_EQ(Call("http_get", {url}).Real(), -1);
        EXPECT_TRUE(g_fHttpOutput);  // all the same
        g_fHttpOutput = false;
        EXPECT_EQ(Call("http_post_string", {url, "body"}).Real(), -1);
        EXPECT_TRUE(g_fHttpOutput);
        g_fHttpOutput = false;
        EXPECT_EQ(Call("http_get_file", {url, "folder/file"}).Real(), -1);
        EXPECT_TRUE(g_fHttpOutput);
        g_fHttpOutput = false;
        ExpectedLeak headers;
        ++m_leftBehind;
        EXPECT_EQ(Call("http_request", {url, "GET", -1, "body"}).Real(), -1);
        EXPECT_TRUE(g_fHttpOutput);
    }

    EXPECT_EQ(LoadSave::RequestsInFlight(), 0);
    EXPECT_EQ(m_console.Take(), "");
    EXPECT_EQ(TakeError(), "");
    EXPECT_FALSE(std::filesystem::exists(Save("folder")));
}

TEST_F(HttpBuiltIns, AnyUrlThatBeginsWithTheSchemeIsOne) {
    Loopback nobody(Loopback::refusing);
    std::string place = "127.0.0.1:" + std::to_string(nobody.Port());
    for (const std::string& url : {"https://" + place, "https://" + place + "/a b", std::string("https://"),
                                   std::string("http://"), "http://" + place}) {
        SCOPED_TRACE(url);

        ExpectText(Await(Call("http_get", {url})), 0, "", -1);
    }
}

TEST_F(HttpBuiltIns, TwoRequestsInARowHaveConsecutiveIds) {
    HttpServer server(Each(Ok("hello")));

    Value first = Call("http_get", {server.Url()});
    Value second = Call("http_post_string", {server.Url(), ""});
    Value third = Call("http_get_file", {server.Url(), "file"});
    Value fourth = Call("http_request", {server.Url(), "GET", -1, ""});

    EXPECT_EQ(second.Real(), first.Real() + 1);
    EXPECT_EQ(third.Real(), first.Real() + 2);
    EXPECT_EQ(fourth.Real(), first.Real() + 3);
}

TEST_F(HttpBuiltIns, AnEventsIdIsWhatTheStartingBuiltInReturned) {
    HttpServer server(Each(Ok("hello")));
    int buffer = Buffer("");

    // Await compares the two.
    Await(Call("http_get", {server.Url()}));
    Await(Call("http_post_string", {server.Url(), ""}));
    Await(Call("http_get_file", {server.Url(), "file"}));
    Await(Call("http_request", {server.Url(), "GET", -1, ""}));
    Await(Call("http_request", {server.Url(), "GET", -1, buffer}));
}

TEST_F(HttpBuiltIns, CrossOriginIsNothing) {
    EXPECT_EQ(Call("http_get_request_crossorigin").Text(), "");
    EXPECT_EQ(Call("http_set_request_crossorigin", {"use-credentials"}).Real(), kUnset);
    EXPECT_EQ(Call("http_get_request_crossorigin").Text(), "");
}

// --- headers and bodies ----------------------------------------------------------------------------------------------

TEST_F(HttpBuiltIns, AContentLengthShortensABufferBodyAndNeverLengthensIt) {
    const std::string bytes = std::string(10, 'a') + std::string(90, 'b');
    struct Case {
        Value length;
        size_t sent;
    };
    const Case cases[] = {{"10", 10}, {10, 10},    {"500", 100}, {500, 100}, {"100", 100},
                          {"0", 0},   {"10x", 10}, {" 10", 10},  {"+10", 10}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.sent);
        int map = Map({{"Content-Length", each.length}, {"X-Name", "value"}});

        std::string request = Sent(map, Buffer(bytes));

        EXPECT_EQ(Fields(request, "content-length"), Lines{"Content-Length: " + std::to_string(each.sent)});
        EXPECT_EQ(Fields(request, "x-name"), Lines{"X-Name: value"});
        EXPECT_EQ(BodyOf(request), bytes.substr(0, each.sent));
    }
}

TEST_F(HttpBuiltIns, AContentLengthThatIsNoneFailsOrSaysNothing) {
    HttpServer server(Each(Ok("done")));
    int buffer = Buffer("hello");

    Event event = Await(Call("http_request", {server.Url(), "POST", Map({{"Content-Length", "-5"}}), buffer}));
    ExpectText(event, 0, "", -1);

    EXPECT_EQ(BodyOf(Sent(Map({{"Content-Length", "-1"}}), buffer)), "hello");
    EXPECT_EQ(BodyOf(Sent(Map({{"Content-Length", "none"}}), buffer)), "");
}

TEST_F(HttpBuiltIns, AContentLengthInAnotherSpellingDoesNotAffectTheBody) {
    for (const char* name : {"content-length", "CONTENT-LENGTH", "Content-length"}) {
        for (const char* length : {"2", "5", "500"}) {
            SCOPED_TRACE(std::string(name) + length);

            std::string request = Sent(Map({{name, length}}), Buffer("hello"));

            EXPECT_EQ(BodyOf(request), "hello");
            Lines fields = Fields(request, "content-length");
            ASSERT_EQ(fields.size(), 1u);
            EXPECT_EQ(fields[0].substr(fields[0].find(':')), ": 5");
        }
    }
}

TEST_F(HttpBuiltIns, AStringBodyIsSentWholeUnlessItsContentLengthIsShorter) {
    struct Case {
        const char* length;
        const char* sent;
    };
    for (const Case& each : {Case{"5", "hello"}, {"500", "hello"}, {"3", "hel"}, {"0", ""}}) {
        SCOPED_TRACE(each.length);

        std::string request = Sent(Map({{"Content-Length", each.length}}), "hello");

        EXPECT_EQ(BodyOf(request), each.sent);
        EXPECT_EQ(Fields(request, "content-length"),
                  Lines{"Content-Length: " + std::to_string(std::string(each.sent).size())});
    }
}

TEST_F(HttpBuiltIns, AnEmptyMapAndAnIndexThatNamesNoneGiveNoHeaders) {
    int freed = Map({{"X-Name", "value"}});
    FreeDsMap(freed);
    auto header = [](const std::string& request) {
        std::string head = request.substr(0, request.find("\r\n\r\n"));
        return head.erase(head.find("Host: "), std::string("Host: 127.0.0.1:").size() + 5);  // but the port
    };
    std::string without = header(Sent(-1, "body"));
    EXPECT_EQ(without.find("X-"), std::string::npos);

    for (int map : {Map({}), -2, 0, freed, mapnumb, mapnumb + 1, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(map);
        EXPECT_EQ(header(Sent(map, "body")), without);
    }
}

TEST_F(HttpBuiltIns, ABufferThatIsNoneIsNoBody) {
    for (int buffer : {-1, 0, 99999, INT_MIN}) {
        SCOPED_TRACE(buffer);
        std::string request = Sent(-1, buffer);

        EXPECT_EQ(Fields(request, "content-length"), Lines{"Content-Length: 0"});
        EXPECT_EQ(BodyOf(request), "");
    }
    EXPECT_EQ(BodyOf(Sent(Map({{"Content-Length", "7"}}), -1)), "");
}

TEST_F(HttpBuiltIns, AStringWithoutATextIsNoBody) {
    for (const Value& body : {Value(Other(VALUE_STRING, 0)), Value(Textless())}) {
        std::string request = Sent(-1, body);

        EXPECT_EQ(Fields(request, "content-length"), Lines{"Content-Length: 0"});
        EXPECT_EQ(BodyOf(request), "");
    }
}

TEST_F(HttpBuiltIns, ABuffersBytesAreSentWhateverTheyAre) {
    const std::string bytes("a\0b\r\n\xff", 6);
    int buffer = Buffer(bytes);

    EXPECT_EQ(BodyOf(Sent(-1, buffer)), bytes);

    EXPECT_EQ(Contents(buffer), bytes);
}

TEST_F(HttpBuiltIns, ALineBreakInAHeaderIsRefused) {
    HttpServer server(Each(Ok("")));
    for (const char* bad : {"a\r\nX-Evil: 1", "a\nb", "a\rb", "\n", "a\r\n\r\nGET / HTTP/1.1"}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(Call("http_request", {server.Url(), "GET", Map({{"X-Good", "1"}, {"X-Bad", bad}}), ""}).Real(), -1);
        EXPECT_NE(m_console.Take().find("http_request: a header holds a line break: X-Bad\n"), std::string::npos);

        EXPECT_EQ(Call("http_request", {server.Url(), "GET", Map({{bad, "value"}}), ""}).Real(), -1);
        EXPECT_NE(m_console.Take().find("http_request: a header holds a line break: "), std::string::npos);
    }
    EXPECT_EQ(LoadSave::RequestsInFlight(), 0);
    EXPECT_EQ(server.Connections(), 0);
}

TEST_F(HttpBuiltIns, AHeaderThatIsNoneIsAFailedTransfer) {
    HttpServer server(Each(Ok("")));
    for (const Value& name : {Value("two words"), Value(""), Value()}) {
        ExpectText(Await(Call("http_request", {server.Url(), "GET", Map({{name, "value"}}), ""})), 0, "", -1);
    }
    EXPECT_EQ(server.Connections(), 0);
}

TEST_F(HttpBuiltIns, WhatARequestWasMadeOfMayGoAtOnce) {
    GatedServer server(Ok("done"));
    int map = Map({{"X-Name", "value"}});
    int buffer = Buffer("body");

    Value id = Call("http_request", {server.Url(), "POST", map, buffer});
    FreeDsMap(map);
    FreeBuffer(buffer);
    server.Open();

    ExpectText(Await(id), 200, "done", 0);
    EXPECT_EQ(Fields(server.Requests()[0], "x-name"), Lines{"X-Name: value"});
    EXPECT_EQ(BodyOf(server.Requests()[0]), "body");
}

}  // namespace
}  // namespace kx::test
