// The servers that other tests send requests to.
#include "tests/support/HttpServer.h"

#include "tests/support/Certificates.h"
#include "tests/support/Nginx.h"

#include <gtest/gtest.h>

namespace kx::test {
namespace {

TEST(HttpServer, AnswersAsItsHandlerDoesAndRemembersTheRequest) {
    HttpServer server([](HttpServer::Connection& connection) {
        connection.ReadRequest();
        connection.Send("an answer");
    });
    const std::string request = "POST / HTTP/1.1\r\ncontent-length: 3\r\n\r\nabc";

    EXPECT_EQ(Exchange(server.Port(), request), "an answer");

    EXPECT_EQ(server.Requests(), std::vector<std::string>{request});
    EXPECT_EQ(server.Connections(), 1);
}

TEST(HttpServer, ReadsOneRequestAfterAnother) {
    HttpServer server([](HttpServer::Connection& connection) {
        for (std::string request = connection.ReadRequest(); !request.empty(); request = connection.ReadRequest()) {
            connection.Send(request == "GET /last\r\n\r\n" ? "the last" : "one, ");
            if (request == "GET /last\r\n\r\n") return;
        }
    });

    EXPECT_EQ(Exchange(server.Port(), "GET /\r\n\r\nGET /\r\n\r\nGET /last\r\n\r\n"), "one, one, the last");
}

TEST(HttpServer, EndsWhileItsHandlersWait) {
    std::atomic<int> waiting{0};
    std::thread silent;
    {
        HttpServer server([&waiting](HttpServer::Connection& connection) {
            ++waiting;
            connection.WaitForClose();
        });
        silent = std::thread([port = server.Port()] { Exchange(port, "hello"); });
        while (waiting == 0) {
            std::this_thread::yield();
        }
    }
    silent.join();

    EXPECT_EQ(waiting, 1);
}

TEST(Nginx, ServesWhatItIsTold) {
    Nginx nginx(Nginx::Servers{{"", "location / { return 200 'port PORT1'; }"}, {"", "location / { return 404; }"}});

    std::string first = Exchange(nginx.Port(0), "GET / HTTP/1.0\r\n\r\n");
    std::string second = Exchange(nginx.Port(1), "GET / HTTP/1.0\r\n\r\n");

    EXPECT_NE(first.find("\r\n\r\nport " + std::to_string(nginx.Port(1))), std::string::npos) << first;
    EXPECT_EQ(second.rfind("HTTP/1.1 404 ", 0), 0u) << second;
}

TEST(Certificates, EachBelongsToItsKey) {
    const Certificates& certificates = Certificates::Get();
    Nginx::Servers servers;
    for (const Certificate* each : {&certificates.authority, &certificates.good, &certificates.expired,
                                    &certificates.otherHost, &certificates.selfSigned, &certificates.strange}) {
        servers.push_back({"ssl", each->Directives()});
    }
    servers.push_back({"", "return 200 hello;"});

    Nginx nginx(servers);  // which does not start with a certificate that does not fit its key

    std::string answer = Exchange(nginx.Port(servers.size() - 1), "GET / HTTP/1.0\r\n\r\n");
    EXPECT_NE(answer.find("hello"), std::string::npos) << answer;
}

}  // namespace
}  // namespace kx::test
