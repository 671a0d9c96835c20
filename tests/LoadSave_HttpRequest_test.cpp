// HTTP requests as servers find them.
#include "Files/Base/Limits.h"
#include "tests/Http_fixture.h"

#include <climits>

namespace kx::test {
namespace {

class HttpRequests : public HttpTest {
protected:
    /// Makes a request to a server that answers with "done".
    /// @return what the server was sent.
    std::string Sent(HttpAsk ask) {
        HttpServer server(Each(Ok("done")));
        ask.url = server.Url(ask.url.empty() ? "/" : ask.url);
        ExpectAnswer(Fetch(ask), 200, "done");
        Lines requests = server.Requests();
        EXPECT_EQ(requests.size(), 1u);
        return requests.empty() ? "" : requests[0];
    }
};

TEST_F(HttpRequests, AGetAsksForThePathAndTheQueryAndHasNoBody) {
    std::string request = Sent({"/a/b%20c?x=1&y=%C3%A4#fragment"});

    EXPECT_EQ(RequestLine(request), "GET /a/b%20c?x=1&y=%C3%A4 HTTP/1.1");
    EXPECT_EQ(Fields(request, "host").size(), 1u);
    EXPECT_EQ(Fields(request, "content-length"), Lines());
    EXPECT_EQ(Fields(request, "content-type"), Lines());
    EXPECT_EQ(BodyOf(request), "");
}

TEST_F(HttpRequests, AUrlWithoutAPathAsksForTheRoot) {
    HttpServer server(Each(Ok("")));

    Fetch(server.Url(""));
    Fetch(server.Url("?x=1"));

    EXPECT_EQ(RequestLine(server.Requests()[0]), "GET / HTTP/1.1");
    EXPECT_EQ(RequestLine(server.Requests()[1]), "GET /?x=1 HTTP/1.1");
}

TEST_F(HttpRequests, APostedTextIsAForm) {
    HttpServer server(Each(Ok("done")));

    ExpectAnswer(Wait(Post(server.Url(), "a=1&b=2")), 200, "done");

    std::string request = server.Requests()[0];
    EXPECT_EQ(RequestLine(request), "POST / HTTP/1.1");
    EXPECT_EQ(Fields(request, "content-type"), Lines{"Content-Type: application/x-www-form-urlencoded"});
    EXPECT_EQ(Fields(request, "content-length"), Lines{"Content-Length: 7"});
    EXPECT_EQ(BodyOf(request), "a=1&b=2");
}

TEST_F(HttpRequests, APostWithoutABodySaysSo) {
    HttpServer server(Each(Ok("done")));

    Wait(Post(server.Url(), ""));
    Wait(Start({server.Url(), "POST"}));

    for (const std::string& request : server.Requests()) {
        EXPECT_EQ(Fields(request, "content-length"), Lines{"Content-Length: 0"});
    }
}

TEST_F(HttpRequests, AnyWordIsAMethod) {
    for (const char* method : {"GET", "POST", "PUT", "DELETE", "PATCH", "OPTIONS", "PROPFIND", "get", "X-1_a!"}) {
        for (const char* body : {static_cast<const char*>(nullptr), "body"}) {
            SCOPED_TRACE(method);

            std::string request = Sent({"", method, nullptr, body});

            EXPECT_EQ(RequestLine(request), std::string(method) + " / HTTP/1.1");
            EXPECT_EQ(BodyOf(request), body ? body : "");
        }
    }
}

TEST_F(HttpRequests, TheBodysLengthIsThatOfTheBytesThatAreSent) {
    struct Case {
        const char* headers;
        const char* body;
        int length;
        Lines fields;  // those that frame the body
        const char* sent;
    };
    const Lines none;
    const Lines five = {"Content-Length: 5"};
    const Case cases[] = {
        // as many as there are
        {nullptr, "hello", -1, five, "hello"},
        {nullptr, "hello", 5, five, "hello"},
        {nullptr, "hello", 3, {"Content-Length: 3"}, "hel"},
        {nullptr, "hello", 0, {"Content-Length: 0"}, ""},
        {nullptr, "", -1, {"Content-Length: 0"}, ""},
        // the line shortens
        {"Content-Length: 2\r\n", "hello", -1, {"Content-Length: 2"}, "he"},
        {"Content-Length: 2\r\n", "hello", 5, {"Content-Length: 2"}, "he"},
        {"Content-Length: 0\r\n", "hello", -1, {"Content-Length: 0"}, ""},
        {"Content-Length: 5\r\n", "hello", -1, five, "hello"},
        {"X: y\r\nContent-Length: 2\r\nY: z\r\n", "hello", -1, {"Content-Length: 2"}, "he"},
        // and never lengthens, nor says what is not so
        {"Content-Length: 6\r\n", "hello", -1, five, "hello"},
        {"Content-Length: 4\r\n", "hello", 3, {"Content-Length: 3"}, "hel"},
        {"Content-Length: -1\r\n", "hello", -1, five, "hello"},
        {"Content-Length: 99999999999999999999\r\n", "hello", -1, five, "hello"},
        {"Content-Length: \r\n", "hello", -1, five, "hello"},
        {"Content-Length: two\r\n", "hello", -1, five, "hello"},
        {"Content-Length: 2x\r\n", "hello", -1, five, "hello"},
        // another spelling does neither
        {"content-length: 2\r\n", "hello", -1, five, "hello"},
        {"CONTENT-LENGTH: 9\r\n", "hello", -1, five, "hello"},
        {"content-length: 5\r\n", "hello", -1, five, "hello"},
        // there is one framing
        {"Transfer-Encoding: chunked\r\n", "hello", -1, five, "hello"},
        {"transfer-encoding: chunked\r\nContent-Length: 2\r\n", "hello", -1, {"Content-Length: 2"}, "he"},
        // no body
        {nullptr, nullptr, -1, {"Content-Length: 0"}, ""},
        {nullptr, nullptr, 7, {"Content-Length: 0"}, ""},
        {"Content-Length: 7\r\n", nullptr, -1, {"Content-Length: 0"}, ""},
        {"Content-Length: 7\r\n", nullptr, 7, {"Content-Length: 0"}, ""},
        {"Transfer-Encoding: chunked\r\n", nullptr, -1, {"Content-Length: 0"}, ""},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);

        std::string request = Sent({"", "POST", cases[i].headers, cases[i].body, cases[i].length});

        EXPECT_EQ(Fields(request, "content-length"), cases[i].fields);
        EXPECT_EQ(Fields(request, "transfer-encoding"), none);
        EXPECT_EQ(BodyOf(request), cases[i].sent);
    }
}

TEST_F(HttpRequests, ABodyOfBytesIsSentAsItIs) {
    const std::string body("a\0b\r\n\r\nc\xff", 9);

    EXPECT_EQ(BodyOf(Sent({"", "PUT", nullptr, body.data(), static_cast<int>(body.size())})), body);
}

TEST_F(HttpRequests, WhatIsGivenIsCopied) {
    HttpServer server(Each([](const std::string& request) {
        return Ok(RequestLine(request) + Fields(request, "x-name")[0] + BodyOf(request));
    }));
    std::string url = server.Url("/here");
    std::string method = "PUT";
    std::string headers = "X-Name: value\r\n";
    std::string body = "body";

    int id = Start({url, method, headers.c_str(), body.c_str()});
    for (std::string* each : {&url, &method, &headers, &body}) {
        std::fill(each->begin(), each->end(), '#');
    }

    ExpectAnswer(Wait(id), 200, "PUT /here HTTP/1.1X-Name: valuebody");
}

TEST_F(HttpRequests, ALargeBodyIsSentAtOnce) {
    std::string body(2 << 20, 'x');

    std::string request = Sent({"", "POST", nullptr, body.c_str()});

    EXPECT_EQ(Fields(request, "expect"), Lines());  // which would ask whether the body may come
    EXPECT_TRUE(BodyOf(request) == body);
}

TEST_F(HttpRequests, HeaderLinesAreSentAsTheyAre) {
    struct Case {
        const char* headers;
        const char* name;
        Lines sent;
    };
    const Case cases[] = {
        {"X-Name: value\r\n", "x-name", {"X-Name: value"}},
        {"X-Name: value", "x-name", {"X-Name: value"}},
        {"x-nAmE:value\r\n", "x-name", {"x-nAmE: value"}},
        {"X-Name: a\r\nX-Name: b\r\n", "x-name", {"X-Name: a", "X-Name: b"}},
        {"X-Name: a: b; c=\"d\"\r\n", "x-name", {"X-Name: a: b; c=\"d\""}},
        {"X-Name: \xc3\xa4\r\n", "x-name", {"X-Name: \xc3\xa4"}},
        {"X-Empty: \r\n", "x-empty", {"X-Empty:"}},
        {"X-Empty:\r\n", "x-empty", {"X-Empty:"}},
        {"User-Agent: me\r\n", "user-agent", {"User-Agent: me"}},
        {"Accept: text/html\r\n", "accept", {"Accept: text/html"}},
        {"Content-Type: text/csv\r\n", "content-type", {"Content-Type: text/csv"}},
        {"Content-Type: \r\n", "content-type", {"Content-Type:"}},
        {"Authorization: Bearer x\r\n", "authorization", {"Authorization: Bearer x"}},
        {"Host: other.test\r\n", "host", {"Host: other.test"}},
        {"", "content-type", {}},
        {nullptr, "content-type", {}},
        {nullptr, "accept-encoding", {"Accept-Encoding: gzip"}},
        {"Accept-Encoding: br\r\n", "accept-encoding", {"Accept-Encoding: br"}},
        {"Range: bytes=0-1\r\n", "accept-encoding", {}},  // a part of what is compressed is no use
        {nullptr, "expect", {}},
        {nullptr, "te", {}},
        {nullptr, "authorization", {}},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.headers ? each.headers : "none");

        EXPECT_EQ(Fields(Sent({"", "POST", each.headers, "body"}), each.name), each.sent);
    }
}

TEST_F(HttpRequests, ANameAndAPasswordInTheUrlAreBasicAuthorization) {
    HttpServer server(Each(Ok("")));
    std::string place = "127.0.0.1:" + std::to_string(server.Port()) + "/";

    Fetch("http://user:pass@" + place);
    Fetch("http://us%40er:p%3Ass@" + place);
    Fetch("http://" + place);

    std::vector<std::string> requests = server.Requests();
    EXPECT_EQ(Fields(requests[0], "authorization"), Lines{"Authorization: Basic dXNlcjpwYXNz"});
    EXPECT_EQ(Fields(requests[1], "authorization"), Lines{"Authorization: Basic dXNAZXI6cDpzcw=="});
    EXPECT_EQ(Fields(requests[2], "authorization"), Lines());
}

TEST_F(HttpRequests, AProxyOfTheEnvironmentIsAsked) {
    HttpServer proxy(Each(Ok("from the proxy")));
    SetVariable("no_proxy", std::nullopt);
    SetVariable("http_proxy", proxy.Url(""));

    ExpectAnswer(Fetch("http://nowhere.test/path"), 200, "from the proxy");

    EXPECT_EQ(RequestLine(proxy.Requests()[0]), "GET http://nowhere.test/path HTTP/1.1");
}

TEST_F(HttpRequests, WhatIsNoRequestFails) {
    HttpServer server(Each(Ok("")));
    const std::string url = server.Url();
    const std::string longUrl = url + std::string(kMaxHttpUrl, 'x');
    const std::string longHeaders = "X: " + std::string(kMaxHttpRequestHeaderBytes, 'x');
    struct Case {
        HttpAsk ask;
        const char* reason;
    };
    const Case cases[] = {
        {{""}, "neither http nor https"},
        {{"ftp://127.0.0.1/"}, "neither http nor https"},
        {{"file:///etc/passwd"}, "neither http nor https"},
        {{"HTTP://127.0.0.1/"}, "neither http nor https"},
        {{"127.0.0.1"}, "neither http nor https"},
        {{url + "a b"}, "holds a space"},
        {{url + "a\nb"}, "control character"},
        {{url + "a\x01"}, "control character"},
        {{url + "a\x7f"}, "control character"},
        {{longUrl}, "too long"},
        {{"http://"}, "bad/illegal"},
        {{"http://:80/"}, "bad/illegal"},
        {{"http://127.0.0.1:99999/"}, "bad/illegal"},
        {{"http://127.0.0.1:port/"}, "bad/illegal"},
        {{"http://[::1/"}, "bad/illegal"},
        {{url, ""}, "the method is none"},
        {{url, "GET POST"}, "the method is none"},
        {{url, "GET\r\nX: y"}, "the method is none"},
        {{url, "GET\t"}, "the method is none"},
        {{url, "(GET)"}, "the method is none"},
        {{url, "CONNECT"}, "CONNECT"},
        {{url, "GET", "no colon\r\n"}, "header line"},
        {{url, "GET", ": no name\r\n"}, "header line"},
        {{url, "GET", "two words: x\r\n"}, "header line"},
        {{url, "GET", "Name : x\r\n"}, "header line"},
        {{url, "GET", "X: a\nY: b\r\n"}, "header line"},
        {{url, "GET", "X: a\rb\r\n"}, "header line"},
        {{url, "GET", "X: a\x01\r\n"}, "header line"},
        {{url, "GET", "X: a\r\n folded\r\n"}, "header line"},
        {{url, "GET", "X: a\r\n\r\nGET / HTTP/1.1\r\n"}, "header line"},
        {{url, "GET", longHeaders.c_str()}, "too long"},
        {{url, "POST", nullptr, "body", -2}, "length"},
        {{url, "POST", nullptr, "body", INT_MIN}, "length"},
        {{url, "POST", nullptr, nullptr, -2}, "length"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.ask.url.substr(0, 100) + " " + each.ask.method + " " +
                     std::string(each.ask.headers ? each.ask.headers : "").substr(0, 100));

        ExpectFailure(Fetch(each.ask), 0, each.reason);
    }
    EXPECT_EQ(server.Connections(), 0);
}

TEST_F(HttpRequests, TheLongestUrlAndHeaderAreSent) {
    HttpServer server(Each(Ok("done")));
    std::string url = server.Url();
    url += std::string(static_cast<size_t>(kMaxHttpUrl) - url.size(), 'x');
    std::string headers = "X: " + std::string(static_cast<size_t>(kMaxHttpRequestHeaderBytes) - 5, 'x') + "\r\n";

    ExpectAnswer(Fetch({url}), 200, "done");
    ExpectAnswer(Fetch({server.Url(), "GET", headers.c_str()}), 200, "done");
}

TEST_F(HttpRequests, NullTextsFailAndCrashNothing) {
    int id = g_HTTP_ID;
    auto ignore = [](HTTP_REQ_CONTEXT*, void*, int*) { return EVENT_OTHER_WEB_ASYNC; };

    LoadSave::HTTP_Get(nullptr, -1, ignore, nullptr, nullptr);
    LoadSave::HTTP_Post(nullptr, nullptr, ignore, nullptr, nullptr);
    LoadSave::HTTP_Request(nullptr, nullptr, nullptr, nullptr, ignore, nullptr, nullptr, -1);

    for (int i = 0; i < 3; ++i) {
        ASYNC_EVENT event{};
        ASSERT_TRUE(LoadSave::NextEvent(30000, &event));
        EXPECT_EQ(event.m_request, id + i);
        EXPECT_EQ(event.m_map, -1);  // the callback has stored none
        LoadSave::ReleaseEvent(event);
    }
    std::string console = m_console.Take();
    EXPECT_EQ(std::count(console.begin(), console.end(), '\n'), 3);
}

}  // namespace
}  // namespace kx::test
