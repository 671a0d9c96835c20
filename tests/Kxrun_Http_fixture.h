#pragma once

#include "tests/Http_answers.h"
#include "tests/Kxrun_fixture.h"

#include <csignal>
#include <future>

namespace kx::test {

/// What one thread waits at until another opens it.
class Gate {
public:
    void Open() { m_opened.set_value(); }
    void Wait() { m_open.wait(); }

private:
    std::promise<void> m_opened;
    std::shared_future<void> m_open = m_opened.get_future().share();
};

inline void AnswerWithPath(HttpServer::Connection& connection) {
    for (std::string request = connection.ReadRequest(); !request.empty(); request = connection.ReadRequest()) {
        std::string path = RequestLine(request);
        path = path.substr(path.find(' ') + 1);
        path = path.substr(0, path.find(' '));
        std::string status = path == "/missing" ? "404 Not Found" : "200 OK";
        if (!connection.Send(Answer(status, "X-Path: " + path + "\r\n", "answer to " + path))) return;
    }
}

/// Reads requests and never answers.
inline void BeSilent(HttpServer::Connection& connection) {
    connection.ReadRequest();
    connection.WaitForClose();
}

class KxrunHttp : public KxrunTest {
protected:
    Outcome RunWith(const HttpServer& server, const std::string& code) {
        return RunScript("local url = ...\n" + code, {server.Url("")});
    }

    /// Starts a script that is not waited for.
    pid_t BeginWith(const HttpServer& server, const std::string& code) {
        WriteWholeFile(Bundle() / "game.lua", "local url = ...\n" + code);
        return Begin(InAreas({(Bundle() / "game.lua").string(), server.Url("")}));
    }

    /// What a script ends with that is interrupted in a loop.
    int StatusAfterCtrlC(const std::string& loop) {
        Gate running;
        HttpServer server([&](HttpServer::Connection& connection) {
            connection.ReadRequest();
            running.Open();
            connection.WaitForClose();
        });
        pid_t child = BeginWith(server, "http_get(url) " + loop);
        running.Wait();
        ::kill(child, SIGINT);
        return Finish(child).status;
    }
};

}  // namespace kx::test
