// HTTP answers as they reach a request's callback.
#include "tests/Http_fixture.h"
#include "tests/support/Certificates.h"
#include "tests/support/Gzip.h"
#include "tests/support/Nginx.h"

namespace kx::test {
namespace {

class Http : public HttpTest {
protected:
    void TrustTheTests() { SetVariable("SSL_CERT_FILE", Certificates::Get().authority.certificate); }
};

// --- answers ---------------------------------------------------------------------------------------------------------

TEST_F(Http, AnAnswerComesWithItsStatusItsBodyAndItsHeader) {
    HttpServer server(Each(Answer("200 OK", "Content-Type: text/plain\r\nX-UPPER: Kept As It Is\r\n", "hello")));

    HttpResult result = Fetch(server.Url("/path?query=1"));

    ExpectAnswer(result, 200, "hello");
    EXPECT_EQ(result.url, server.Url("/path?query=1"));
    EXPECT_EQ(result.headers,
              (std::map<std::string, std::string>{
                  {"content-type", "text/plain"}, {"content-length", "5"}, {"x-upper", "Kept As It Is"}}));
}

TEST_F(Http, HeaderFieldsOfOneNameAreJoined) {
    HttpServer server(
        Each(Answer("200 OK", "Set-Cookie: a=1\r\nSET-COOKIE: b=2\r\nset-cookie:\t c=3 \r\nEmpty:\r\n", "")));

    HttpResult result = Fetch(server.Url());

    EXPECT_EQ(result.headers["set-cookie"], "a=1, b=2, c=3");
    EXPECT_EQ(result.headers.count("empty"), 1u);
    EXPECT_EQ(result.headers["empty"], "");
}

TEST_F(Http, AStatusThatTellsOfAnErrorIsAnAnswer) {
    for (const char* status : {"400 Bad Request", "404 Not Found", "418 I'm a teapot", "500 Oops", "503 "}) {
        SCOPED_TRACE(status);
        HttpServer server(Each(Answer(status, "", "why")));

        ExpectAnswer(Fetch(server.Url()), std::atoi(status), "why");
    }
}

TEST_F(Http, AnEmptyBodyIsAnAnswer) {
    HttpServer server(Each(Ok("")));

    ExpectAnswer(Fetch(server.Url()), 200, "");
}

TEST_F(Http, ABodyComesByteForByteHoweverItIsFramed) {
    const std::string body("a\0b\r\n\xff", 6);
    struct Case {
        const char* framing;
        std::string answer;
    };
    const Case cases[] = {
        {"length", "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\n" + body},
        {"chunks", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n" + body.substr(0, 2) + "\r\n4;x=y\r\n" +
                       body.substr(2) + "\r\n0\r\n\r\n"},
        {"chunks with a trailer",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n6\r\n" + body + "\r\n0\r\nX-Checksum: 1\r\n\r\n"},
        {"the end of the connection", "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body},
        {"the end of the connection, HTTP/1.0", "HTTP/1.0 200 OK\r\n\r\n" + body},
        {"lines that end with LF only", "HTTP/1.1 200 OK\nContent-Length: 6\n\n" + body},
        {"an interim answer before it",
         "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\n" + body},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.framing);
        HttpServer server(Once(each.answer));

        HttpResult result = Fetch(server.Url());

        ExpectAnswer(result, 200, body);
        EXPECT_EQ(result.headers.count("link"), 0u);  // the interim answer's
    }
}

TEST_F(Http, ALargeBodyComesWhole) {
    std::string body(5 << 20, '\0');
    for (size_t i = 0; i < body.size(); ++i) {
        body[i] = static_cast<char>(i * 31 + i / 251);
    }
    HttpServer server(Each(Ok(body)));

    HttpResult result = Fetch(server.Url());

    EXPECT_TRUE(result.body == body);  // not 5 MB of explanations
}

TEST_F(Http, AnAnswerToHeadHasNoBody) {
    HttpServer server(Each("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n"));

    HttpResult result = Fetch({server.Url(), "HEAD"});

    ExpectAnswer(result, 200, "");
    EXPECT_EQ(result.headers["content-length"], "1000");
    EXPECT_EQ(RequestLine(server.Requests()[0]), "HEAD / HTTP/1.1");
}

TEST_F(Http, OneMethodLeavesNothingToTheNext) {
    HttpServer server(Each([](const std::string& request) {
        bool head = request.rfind("HEAD", 0) == 0;
        return head ? "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n" : Ok(RequestLine(request) + BodyOf(request));
    }));

    for (int i = 0; i < 2; ++i) {
        ExpectAnswer(Fetch({server.Url(), "HEAD"}), 200, "");
        ExpectAnswer(Fetch({server.Url(), "POST", nullptr, "body"}), 200, "POST / HTTP/1.1body");
        ExpectAnswer(Fetch(server.Url()), 200, "GET / HTTP/1.1");
        ExpectAnswer(Fetch({server.Url(), "DELETE"}), 200, "DELETE / HTTP/1.1");
    }
}

TEST_F(Http, CompressedAnswersAreDecoded) {
    Nginx nginx("gzip on; gzip_min_length 1; gzip_types text/plain;");
    std::string text = "a text that is long enough to be compressed, ";
    text += text + text;
    WriteWholeFile(nginx.Folder() / "html" / "file.txt", text);

    HttpResult result = Fetch(nginx.Url("/file.txt"));

    ExpectAnswer(result, 200, text);
    EXPECT_EQ(result.headers["content-encoding"], "gzip");
}

TEST_F(Http, ACompressionThatWasAskedForIsLeftToWhoeverAsked) {
    HttpServer server(Each(Answer("200 OK", "Content-Encoding: br\r\n", "compressed")));

    ExpectAnswer(Fetch({server.Url(), "GET", "Accept-Encoding: br\r\n"}), 200, "compressed");
}

TEST_F(Http, ACompressedAnswerInSeveralPartsIsOneText) {
    HttpServer server(Each(Answer("200 OK", "Content-Encoding: X-GZip\r\n", Gzip("one, ") + Gzip("two"))));

    ExpectAnswer(Fetch(server.Url()), 200, "one, two");
}

TEST_F(Http, APartThatIsAskedForIsWhatComes) {
    Nginx nginx("gzip on; gzip_min_length 1;");
    WriteWholeFile(nginx.Folder() / "html" / "file", "0123456789");

    HttpResult result = Fetch({nginx.Url("/file"), "GET", "Range: bytes=2-4\r\n"});

    ExpectAnswer(result, 206, "234");
    EXPECT_EQ(result.headers["content-range"], "bytes 2-4/10");
}

TEST_F(Http, AnotherRequestTakesTheSameConnection) {
    HttpServer server(Each(Ok("hello")));

    for (int i = 0; i < 5; ++i) {
        ExpectAnswer(Fetch(server.Url()), 200, "hello");
    }

    EXPECT_EQ(server.Connections(), 1);
}

TEST_F(Http, AConnectionThatTheServerHasClosedMeanwhileIsReplaced) {
    for (bool reset : {false, true}) {
        HttpServer server([reset](HttpServer::Connection& connection) {
            connection.ReadRequest();
            connection.Send(Ok("hello"));
            if (!reset) return;
            connection.ReadRequest();  // which finds nobody
            connection.Reset();
        });
        for (int i = 0; i < 3; ++i) {
            ExpectAnswer(Fetch(server.Url()), 200, "hello");
        }
        EXPECT_EQ(server.Connections(), 3);
    }
}

TEST_F(Http, AnAnswerThatComesBeforeTheBodyIsSentIsTheAnswer) {
    HttpServer server([](HttpServer::Connection& connection) {
        connection.Send(Answer("413 Too Large", "Connection: close\r\n", "no"));
        connection.WaitForClose();
    });
    std::string body(20 << 20, 'x');

    ExpectAnswer(Wait(Post(server.Url(), body)), 413, "no");
}

TEST_F(Http, ACookieIsNotKept) {
    HttpServer server(Each(Answer("200 OK", "Set-Cookie: a=1; Path=/\r\n", "")));

    Fetch(server.Url());
    Fetch(server.Url());

    EXPECT_EQ(Fields(server.Requests()[1], "cookie"), Lines());
}

// --- TLS -------------------------------------------------------------------------------------------------------------

TEST_F(Http, OverTlsRequestsUseHttp2) {
    TrustTheTests();
    Nginx nginx(Nginx::Servers{{"ssl http2", Certificates::Get().good.Directives() +
                                                 "add_header X-Protocol $server_protocol; return 200 hello;"}});

    HttpResult result = Fetch(nginx.Url());

    ExpectAnswer(result, 200, "hello");
    EXPECT_EQ(result.headers["x-protocol"], "HTTP/2.0");
}

TEST_F(Http, OverTlsToAServerOfHttp1) {
    TrustTheTests();
    Nginx nginx(
        {{"ssl", Certificates::Get().good.Directives() + "add_header X-Protocol $server_protocol; return 200 hello;"}});

    HttpResult result = Fetch(nginx.Url());

    ExpectAnswer(result, 200, "hello");
    EXPECT_EQ(result.headers["x-protocol"], "HTTP/1.1");
}

TEST_F(Http, TheAuthorityIsTakenFromEitherVariable) {
    for (const char* name : {"SSL_CERT_FILE", "CURL_CA_BUNDLE"}) {
        SCOPED_TRACE(name);
        SetVariable("SSL_CERT_FILE", std::nullopt);
        SetVariable(name, Certificates::Get().authority.certificate);
        Nginx nginx(Nginx::Servers{{"ssl", Certificates::Get().good.Directives() + "return 200 hello;"}});

        ExpectAnswer(Fetch("https://localhost:" + std::to_string(nginx.Port()) + "/"), 200, "hello");

        LoadSave::Shutdown();
    }
}

TEST_F(Http, ABodyIsPostedOverHttp2) {
    TrustTheTests();
    Nginx nginx(
        {{"ssl http2", Certificates::Get().good.Directives() + "location / { proxy_pass http://127.0.0.1:PORT1; }"},
         {"", "client_body_in_single_buffer on; client_body_buffer_size 8m; client_max_body_size 8m;"
              "location / { proxy_pass http://127.0.0.1:PORT2; proxy_set_header X-Body $request_body; }"},
         {"", "large_client_header_buffers 4 64k; return 200 $http_x_body;"}});
    std::string body(10000, 'x');

    ExpectAnswer(Fetch({nginx.Url(), "POST", nullptr, body.c_str()}), 200, body);
}

}  // namespace
}  // namespace kx::test
