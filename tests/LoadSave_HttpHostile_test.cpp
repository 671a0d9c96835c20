// HTTP answers that do not come, break off, break the protocol or never end: each is a failure, told once.
#include "tests/Http_fixture.h"
#include "tests/support/Certificates.h"
#include "tests/support/Gzip.h"
#include "tests/support/Nginx.h"

namespace kx::test {
namespace {

// Milliseconds, for limits that are to be reached: whatever happens before, and after the server has answered.
constexpr int kShort = 200;
constexpr int kLong = 1000;

class HostileHttp : public HttpTest {
protected:
    /// Changes an option for the requests that follow.
    static void Limit(int HttpOptions::*member, int value) {
        HttpOptions options;
        options.*member = value;
        EXPECT_EQ(LoadSave::SetHttpOptions(options), 0);
    }

    /// Expects the request to a server to fail.
    void ExpectFailureFrom(HttpServer::Handler handler, int status, const std::string& reason) {
        HttpServer server(std::move(handler));
        ExpectFailure(Fetch(server.Url()), status, reason);
    }

    /// Sends a text again and again until the client has gone.
    static HttpServer::Handler Endless(const std::string& begin, const std::string& part) {
        return [begin, part](HttpServer::Connection& connection) {
            connection.ReadRequest();
            bool there = connection.Send(begin);
            while (there) {
                there = connection.Send(part);
            }
        };
    }
};

std::string Repeated(const std::string& part, int times) {
    std::string text;
    for (int i = 0; i < times; ++i) {
        text += part;
    }
    return text;
}

std::string WithLength(const std::string& body, const std::string& length) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n" + body;
}

std::string Chunked(const std::string& chunks) {
    return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks;
}

std::string Encoded(const std::string& encoding, const std::string& body) {
    return Answer("200 OK", "Content-Encoding: " + encoding + "\r\n", body);
}

// --- what is no answer -----------------------------------------------------------------------------------------------

TEST_F(HostileHttp, AnswersThatBreakOffOrBreakTheProtocolFail) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    struct Case {
        const char* name;
        std::string answer;
        int status;
        const char* reason;
    };
    const Case cases[] = {
        // no status line
        {"nothing", "", 0, "Empty reply"},
        {"garbage", "garbage\r\n\r\n", 0, "HTTP/0.9"},
        {"bytes", std::string("\0\1\2\3\4\5\6\7", 8), 0, "HTTP/0.9"},
        {"a body alone", "<html></html>", 0, "HTTP/0.9"},
        {"fields alone", "Content-Length: 3\r\n\r\nabc", 0, "HTTP/0.9"},
        {"half a status line", "HTTP/1.", 0, "Empty reply"},
        {"an unknown version", "HTTP/7.3 200 OK\r\n\r\nabc", 0, "HTTP version"},
        {"no status", "HTTP/1.1 OK\r\n\r\nabc", 0, "HTTP version"},
        {"a short status", "HTTP/1.1 20 OK\r\n\r\nabc", 0, "response code"},
        {"a status below 100", "HTTP/1.1 099 OK\r\n\r\nabc", 0, "response code"},
        // a body that is not whole
        {"cut by its length", WithLength("abc", "10"), 200, "closed"},
        {"without any of it", WithLength("", "10"), 200, "closed"},
        {"a chunk cut", Chunked("5\r\nabc"), 200, "closed"},
        {"between chunks", Chunked("3\r\nabc\r\n"), 200, "closed"},
        {"within the last chunk", Chunked("3\r\nabc\r\n0\r\n"), 200, "closed"},
        // a framing that is none
        {"two lengths", ok + "Content-Length: 3\r\nContent-Length: 5\r\n\r\nabcde", 200,
         "two different Content-Lengths"},
        {"two lengths in one", WithLength("abcde", "3, 5"), 200, "Content-Length"},
        {"a negative length", WithLength("abc", "-3"), 200, "Content-Length"},
        {"a length with a sign", WithLength("abc", "+3"), 200, "Content-Length"},
        {"a length in letters", WithLength("abc", "three"), 200, "Content-Length"},
        {"a length in hexadecimal", WithLength("abc", "0x3"), 200, "Content-Length"},
        {"no length", WithLength("abc", ""), 200, "Content-Length"},
        {"an enormous length", WithLength("abc", "99999999999999999999999"), 200, "Content-Length"},
        {"a chunk without a size", Chunked("\r\nabc\r\n0\r\n\r\n"), 200, "chunked"},
        {"a chunk's size in words", Chunked("three\r\nabc\r\n0\r\n\r\n"), 200, "chunked"},
        {"a negative chunk", Chunked("-3\r\nabc\r\n0\r\n\r\n"), 200, "chunked"},
        {"an enormous chunk", Chunked("FFFFFFFFFFFFFFFFF\r\nabc\r\n0\r\n\r\n"), 200, "chunked"},
        {"a chunk longer than it says", Chunked("3\r\nabcdef\r\n0\r\n\r\n"), 200, "chunked"},
        {"gzip as a transfer encoding", ok + "Transfer-Encoding: gzip\r\n\r\n" + Gzip("hello"), 200,
         "Transfer-Encoding"},
        {"an unknown transfer encoding", ok + "Transfer-Encoding: rot13\r\n\r\nabc", 200, "Transfer-Encoding"},
        // a header that is none
        {"a zero byte in a field", ok + std::string("X: a\0b\r\n", 8) + "Content-Length: 3\r\n\r\nabc", 200, "header"},
        {"a line that is no field", ok + "no field\r\nContent-Length: 3\r\n\r\nabc", 200, "eader"},
        {"cut in the header", ok + "Content-Len", 200, "breaks off in its header"},
        {"cut after the status line", ok, 200, "breaks off in its header"},
        // a compression that is none
        {"no gzip", Encoded("gzip", "no gzip at all, in no way"), 200, "damaged"},
        {"an unknown encoding", Encoded("rot13", "abc"), 200, "not asked for"},
        {"gzip twice", Encoded("gzip, gzip", Gzip(Gzip("hello"))), 200, "not asked for"},
        {"gzip twice, in two lines", Encoded("gzip\r\nContent-Encoding: gzip", Gzip(Gzip("hello"))), 200,
         "not asked for"},
        {"a wrong checksum", Encoded("gzip", Gzip("hello", 1)), 200, "damaged"},
        {"a gzip cut in its text", Encoded("gzip", Gzip("hello").substr(0, 18)), 200, "breaks off"},
        {"a gzip cut in its header", Encoded("gzip", Gzip("hello").substr(0, 5)), 200, "breaks off"},
        {"a gzip cut in its checksum", Encoded("gzip", Gzip("hello").substr(0, Gzip("hello").size() - 1)), 200,
         "breaks off"},
        {"bytes after the gzip", Encoded("gzip", Gzip("hello") + "no gzip"), 200, "damaged"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);

        ExpectFailureFrom(Once(each.answer), each.status, each.reason);
    }
}

TEST_F(HostileHttp, AnswersThatAreOnlyOddAreAnswers) {
    struct Case {
        const char* name;
        std::string answer;
        int status;
        const char* body;
    };
    const Case cases[] = {
        {"no reason", "HTTP/1.1 200\r\nContent-Length: 3\r\n\r\nabc", 200, "abc"},
        {"a status of its own", "HTTP/1.1 999 Odd\r\nContent-Length: 3\r\n\r\nabc", 999, "abc"},
        {"no body is allowed", "HTTP/1.1 204 No Content\r\nContent-Length: 3\r\n\r\nabc", 204, ""},
        {"no body is allowed but chunks", "HTTP/1.1 204 x\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n",
         204, ""},
        {"more than its length", WithLength("abcdef", "3"), 200, "abc"},
        {"one length twice", "HTTP/1.1 200 OK\r\nContent-Length: 3\r\nContent-Length: 3\r\n\r\nabc", 200, "abc"},
        {"a length and chunks",
         "HTTP/1.1 200 OK\r\nContent-Length: 100\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", 200,
         "abc"},
        {"gzip without a byte", Encoded("gzip", ""), 200, ""},
        {"gzip of nothing", Encoded("gzip", Gzip("")), 200, ""},
        {"not encoded", Encoded("identity", "abc"), 200, "abc"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        HttpServer server(Once(each.answer));

        ExpectAnswer(Fetch(server.Url()), each.status, each.body);
    }
}

TEST_F(HostileHttp, WhatFollowsAnAnswerIsNotTheAnswerToTheNextRequest) {
    HttpServer server(Each(Ok("first") + Ok("smuggled")));

    for (int i = 0; i < 3; ++i) {
        ExpectAnswer(Fetch(server.Url()), 200, "first");
    }
}

TEST_F(HostileHttp, AFoldedFieldIsOneLine) {
    HttpServer server(Once("HTTP/1.1 200 OK\r\nX-Folded: a\r\n b\r\n\t c\r\nContent-Length: 0\r\n\r\n"));

    HttpResult result = Fetch(server.Url());

    ExpectAnswer(result, 200, "");
    EXPECT_EQ(result.headers["x-folded"], "a b c");
}

TEST_F(HostileHttp, AResetInTheMiddleFails) {
    HttpServer server([](HttpServer::Connection& connection) {
        connection.ReadRequest();
        connection.Send(WithLength("abc", "10"));
        connection.Reset();
    });

    HttpResult result = Fetch(server.Url());

    EXPECT_FALSE(result.answered);
    EXPECT_NE(Reason(result.id), "");
}

TEST_F(HostileHttp, AServerThatClosesEveryConnectionAtOnceFails) {
    for (bool reset : {false, true}) {
        HttpServer server([reset](HttpServer::Connection& connection) {
            if (reset) connection.Reset();
        });

        HttpResult result = Fetch(server.Url());

        EXPECT_FALSE(result.answered);
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(Reason(result.id), "");
    }
}

TEST_F(HostileHttp, AFailureKeepsTheHeaderThatHasCome) {
    HttpServer server(Once("HTTP/1.1 503 Later\r\nRetry-After: 5\r\nContent-Length: 10\r\n\r\nabc"));

    HttpResult result = Fetch(server.Url());

    ExpectFailure(result, 503, "closed");
    EXPECT_EQ(result.headers["retry-after"], "5");
}

TEST_F(HostileHttp, AFailureHasNoStatusOfTheRequestBefore) {
    Loopback nobody(Loopback::refusing);
    HttpServer server(Each(Ok("hello")));
    HttpServer broken(Once(""));
    for (const std::string& url : {"http://127.0.0.1:" + std::to_string(nobody.Port()) + "/", broken.Url()}) {
        ExpectAnswer(Fetch(server.Url()), 200, "hello");

        HttpResult result = Fetch(url);

        EXPECT_FALSE(result.answered);
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.headers.empty());
        EXPECT_NE(Reason(result.id), "");
    }
}

// --- what never ends -------------------------------------------------------------------------------------------------

TEST_F(HostileHttp, ABodyBeyondTheLimitFails) {
    Limit(&HttpOptions::responseBytes, 1 << 20);
    const std::string most(1 << 20, 'x');
    const std::string part(10000, 'x');
    constexpr char kReason[] = "longer than 1048576 bytes";
    {
        HttpServer server(Once(Ok(most)));
        HttpResult result = Fetch(server.Url());
        EXPECT_TRUE(result.answered);
        EXPECT_EQ(result.body.size(), most.size());
    }
    ExpectFailureFrom(Once(Ok(most + "x")), 200, kReason);
    ExpectFailureFrom(Endless("HTTP/1.1 200 OK\r\nContent-Length: 1000000000000\r\n\r\n", part), 200, kReason);
    ExpectFailureFrom(Endless("HTTP/1.1 200 OK\r\n\r\n", part), 200, kReason);
    ExpectFailureFrom(Endless(Chunked(""), "2710\r\n" + part + "\r\n"), 200, kReason);
}

TEST_F(HostileHttp, AFewCompressedBytesThatBecomeTooManyFail) {
    Limit(&HttpOptions::responseBytes, 1 << 20);
    Nginx nginx("gzip on; gzip_comp_level 9;");
    WriteWholeFile(nginx.Folder() / "html" / "file", std::string(1 << 20, '\0'));
    WriteWholeFile(nginx.Folder() / "html" / "bomb", std::string((1 << 20) + 1, '\0'));

    EXPECT_EQ(Fetch(nginx.Url("/file")).body.size(), 1u << 20);
    ExpectFailure(Fetch(nginx.Url("/bomb")), 200, "longer than 1048576 bytes");
}

TEST_F(HostileHttp, BytesThatBecomeNothingCountAllTheSame) {
    struct Case {
        const char* name;
        std::string begin;
        std::string part;
    };
    const std::string gzip = "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n\r\n\x1f\x8b\x08";
    const Case cases[] = {
        {"an endless name in a gzip", gzip + std::string("\x08\0\0\0\0\0\xff", 7), std::string(10000, 'x')},
        {"endless empty blocks", gzip + std::string("\0\0\0\0\0\0\xff", 7),
         Repeated(std::string("\0\0\0\xff\xff", 5), 2000)},
        {"endless gzips of nothing", gzip + Gzip("").substr(3), Repeated(Gzip(""), 500)},
    };
    HttpOptions options;
    options.responseBytes = 1 << 20;
    options.total = 5 * kLong;  // or it would never end
    ASSERT_EQ(LoadSave::SetHttpOptions(options), 0);
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);

        ExpectFailureFrom(Endless(each.begin, each.part), 200, "longer than 1048576 bytes");
    }
}

TEST_F(HostileHttp, AHeaderBeyondTheLimitFails) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string line = "X: " + std::string(10000, 'x') + "\r\n";
    ExpectFailureFrom(Endless(ok, "X: y\r\n"), 200, "too many fields");
    ExpectFailureFrom(Endless(ok, line), 200, "the header is too long");
    ExpectFailureFrom(Endless(ok + "X: ", "yyyyyyyyyyyyyyyy"), 200, "too long");
    ExpectFailureFrom(Endless(ok + "X: y\r\n", " folded\r\n"), 200, "too many fields");
    ExpectFailureFrom(Once(ok + Repeated("X: y\r\n", 10000) + "Content-Length: 0\r\n\r\n"), 200, "too many fields");
    ExpectFailureFrom(Endless("", "HTTP/1.1 100 Continue\r\n\r\n"), 100, "too many fields");
    ExpectFailureFrom(Endless(Chunked("0\r\n"), "X: y\r\n"), 200, "too many fields");
}

TEST_F(HostileHttp, AHeaderWithinTheLimitIsAnAnswer) {
    HttpServer server(Once("HTTP/1.1 200 OK\r\n" + Repeated("X: y\r\n", 1990) + "Content-Length: 0\r\n\r\n"));

    HttpResult result = Fetch(server.Url());

    ExpectAnswer(result, 200, "");
    EXPECT_EQ(result.headers["x"].size(), 1990 * 3 - 2u);
}

TEST_F(HostileHttp, RedirectsAndInterimAnswersCountTowardsTheHeadersLimit) {
    const std::string fields = Repeated("X: y\r\n", 300);
    HttpServer server(Each(Answer("302 Found", "Location: /\r\n" + fields, "")));

    ExpectFailure(Fetch(server.Url()), 302, "too many fields");
}

// --- what does not get on --------------------------------------------------------------------------------------------

TEST_F(HostileHttp, AServerThatSaysNothingOrTooLittleFails) {
    struct Case {
        const char* said;
        int status;
    };
    const Case cases[] = {{"", 0},
                          {"HT", 0},
                          {"HTTP/1.1 200 OK\r\n", 200},
                          {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n", 200},
                          {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nab", 200}};
    Limit(&HttpOptions::stall, kLong);
    std::vector<std::unique_ptr<HttpServer>> servers;
    std::vector<int> ids;
    for (const Case& each : cases) {
        servers.push_back(std::make_unique<HttpServer>([&each](HttpServer::Connection& connection) {
            connection.ReadRequest();
            connection.Send(each.said);
            connection.WaitForClose();
        }));
        ids.push_back(Get(servers.back()->Url()));
    }

    WaitForAll();

    for (size_t i = 0; i < ids.size(); ++i) {
        SCOPED_TRACE(cases[i].said);
        ExpectFailure(Result(ids[i]), cases[i].status, "fallen silent");
    }
}

TEST_F(HostileHttp, AChunkThatNeverBeginsIsNoProgress) {
    Limit(&HttpOptions::stall, kLong);

    ExpectFailureFrom(Endless(Chunked("3;"), std::string(10000, 'x')), 200, "fallen silent");
}

TEST_F(HostileHttp, AServerThatDoesNotTakeTheBodyFails) {
    Limit(&HttpOptions::stall, kShort);
    Loopback port;  // whose connections nobody reads
    std::string body(20 << 20, 'x');

    ExpectFailure(Wait(Post("http://127.0.0.1:" + std::to_string(port.Port()) + "/", body)), 0, "fallen silent");
}

TEST_F(HostileHttp, ARequestThatTakesTooLongInAllFails) {
    HttpServer server(Silent);

    ExpectFailure(Wait(Get(server.Url(), kShort)), 0, "not done within");
    Limit(&HttpOptions::total, kShort);
    ExpectFailure(Fetch(server.Url()), 0, "not done within");
}

TEST_F(HostileHttp, AConnectionThatIsNotMadeInTimeFails) {
    Limit(&HttpOptions::connect, kShort);
    Loopback port;  // where nobody answers the TLS handshake

    ExpectFailure(Fetch("https://127.0.0.1:" + std::to_string(port.Port()) + "/"), 0, "no connection in time");
}

TEST_F(HostileHttp, RequestsThatWaitForTheFirstOnesConnectionDoNotWaitLonger) {
    constexpr int kRequests = 16;
    HttpServer silent(Silent);
    int later = Get(silent.Url(), kRequests / 2 * kShort);
    Limit(&HttpOptions::connect, kShort);
    Loopback port;  // where nobody answers the TLS handshake
    std::string url = "https://127.0.0.1:" + std::to_string(port.Port()) + "/";
    std::vector<int> ids;
    for (int i = 0; i < kRequests; ++i) {
        ids.push_back(Get(url));
    }

    ExpectFailure(Wait(later), 0, "not done within");

    for (int id : ids) {  // they have all ended before: none had a turn of its own at waiting
        ExpectFailure(Result(id), 0, "no connection in time");
        EXPECT_EQ(Result(id).events, 1);
    }
}

TEST_F(HostileHttp, AfterAStallTheNextRequestHasItsTurn) {
    HttpOptions options;
    options.stall = kShort;
    options.connectionsPerHost = 1;
    ASSERT_EQ(LoadSave::SetHttpOptions(options), 0);
    HttpServer server(Silent);
    std::vector<int> ids = {Get(server.Url()), Get(server.Url()), Get(server.Url())};

    for (int id : ids) {
        ExpectFailure(Wait(id), 0, "silent");
    }
}

TEST_F(HostileHttp, AfterAFailureTheServerIsAskedAgain) {
    Limit(&HttpOptions::stall, kShort);
    std::atomic<int> connections{0};
    HttpServer server([&connections](HttpServer::Connection& connection) {
        connection.ReadRequest();
        if (++connections > 1) connection.Send(Ok("hello"));
        connection.WaitForClose();
    });

    ExpectFailure(Fetch(server.Url()), 0, "fallen silent");
    Limit(&HttpOptions::stall, 0);
    ExpectAnswer(Fetch(server.Url()), 200, "hello");
}

// --- who is not there ------------------------------------------------------------------------------------------------

TEST_F(HostileHttp, ARefusedConnectionFails) {
    Loopback nobody(Loopback::refusing);

    ExpectFailure(Fetch("http://127.0.0.1:" + std::to_string(nobody.Port()) + "/"), 0, "onnect");
}

TEST_F(HostileHttp, ANameThatCannotBeFails) {
    // Longer than the domain name system's names: no server is asked.
    ExpectFailure(Fetch("http://" + std::string(64, 'x') + "/"), 0, "resolve");
}

TEST_F(HostileHttp, CertificatesThatProveNothingFail) {
    const Certificates& certificates = Certificates::Get();
    SetVariable("SSL_CERT_FILE", certificates.authority.certificate);
    struct Case {
        const char* name;
        std::string directives;
        const char* reason;
    };
    const Case cases[] = {
        {"expired", certificates.expired.Directives(), "expired"},
        {"for another host", certificates.otherHost.Directives(), "127.0.0.1"},
        {"by itself", certificates.selfSigned.Directives(), "self-signed"},
        {"by a stranger", certificates.strange.Directives(), "issuer"},
        {"an old protocol", certificates.good.Directives() + "ssl_protocols TLSv1; ssl_ciphers ALL:@SECLEVEL=0;",
         "protocol version"},
        {"a protocol that is not so old",
         certificates.good.Directives() + "ssl_protocols TLSv1.1; ssl_ciphers ALL:@SECLEVEL=0;", "protocol version"},
    };
    Nginx::Servers servers{{"ssl", certificates.good.Directives() + "return 200 hello;"}};
    for (const Case& each : cases) {
        servers.push_back({"ssl", each.directives + "return 200 hello;"});
    }
    Nginx nginx(servers);

    ExpectAnswer(Fetch(nginx.Url("/", 0)), 200, "hello");
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].name);

        ExpectFailure(Fetch(nginx.Url("/", i + 1)), 0, cases[i].reason);
    }
}

TEST_F(HostileHttp, AnAuthorityThatNobodyTrustsFails) {
    Nginx nginx(Nginx::Servers{{"ssl", Certificates::Get().good.Directives() + "return 200 hello;"}});

    ExpectFailure(Fetch(nginx.Url()), 0, "issuer");
}

TEST_F(HostileHttp, TlsToAServerWithoutItFails) {
    Nginx nginx("return 200 hello;");

    ExpectFailure(Fetch("https://127.0.0.1:" + std::to_string(nginx.Port()) + "/"), 0, "SSL");
}

TEST_F(HostileHttp, AServerOfTlsAnswersTextWithARefusal) {
    Nginx nginx(Nginx::Servers{{"ssl", Certificates::Get().good.Directives() + "return 200 hello;"}});

    HttpResult result = Fetch("http://127.0.0.1:" + std::to_string(nginx.Port()) + "/");

    EXPECT_EQ(result.status, 400);
    EXPECT_NE(result.body.find("HTTPS port"), std::string::npos);
}

TEST_F(HostileHttp, AServerThatClosesWhileABodyIsSentOverTlsEndsTheRequestOnly) {
    SetVariable("SSL_CERT_FILE", Certificates::Get().authority.certificate);
    Nginx nginx(Nginx::Servers{
        {"ssl", Certificates::Get().good.Directives() + "client_max_body_size 1k; lingering_close off; return 444;"}});
    std::string body(20 << 20, 'x');

    HttpResult result = Wait(Post(nginx.Url(), body));

    EXPECT_FALSE(result.answered);
    EXPECT_NE(Reason(result.id), "");
}

TEST_F(HostileHttp, AnAnswerOverTlsThatBreaksOffFails) {
    SetVariable("SSL_CERT_FILE", Certificates::Get().authority.certificate);
    for (const char* protocol : {"ssl", "ssl http2"}) {
        SCOPED_TRACE(protocol);
        HttpServer server(Once(WithLength("abc", "10")));
        std::string pass = "location / { proxy_pass " + server.Url() + "; proxy_buffering off; }";
        Nginx nginx(Nginx::Servers{{protocol, Certificates::Get().good.Directives() + pass}});

        ExpectFailure(Fetch(nginx.Url()), 200, "closed");
    }
}

}  // namespace
}  // namespace kx::test
