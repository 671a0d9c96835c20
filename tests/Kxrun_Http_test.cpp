// kxrun and requests: events, when a script ends, buffers, and what a terminal shows of long transfers.
#include "tests/Kxrun_Http_fixture.h"

namespace kx::test {
namespace {

TEST_F(KxrunHttp, AwaitGivesAnEventAsATable) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        local id = http_get(url .. '/a')
        local event = kx.await(id)
        print(type(event), event.id == id, event.url == url .. '/a', event.result, event.http_status, event.status)
        print(type(event.response_headers), event.response_headers['x-path'])
    )");

    EXPECT_EQ(outcome.out, "table\ttrue\ttrue\tanswer to /a\t200.0\t0.0\ntable\t/a\n") << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(KxrunHttp, TheHandlerGetsEveryEventThatNobodyAwaits) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        local ids, seen = {}, 0
        kx.on_async(function(event)
          assert(kx.type(event) == 'map' and ids[event.id])
          assert(kx.map(event.response_headers)['x-path'] == '/' .. ids[event.id])
          seen = seen + 1
          if seen == 9 then print('all but one') end
        end)
        for i = 1, 10 do ids[http_get(url .. '/' .. i)] = i end
        for id, i in pairs(ids) do
          if i == 5 then assert(kx.await(id).result == 'answer to /5') end
        end
        print(kx.await(http_get(url .. '/awaited')).result)
    )");

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.out.find("all but one\n"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("answer to /awaited\n"), std::string::npos) << outcome.out;
}

TEST_F(KxrunHttp, AnEventMayBeAwaitedAfterItHasCome) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        local ids = {}
        for i = 1, 5 do ids[i] = http_get(url .. '/' .. i) end
        for i = 5, 1, -1 do print(kx.await(ids[i]).result) end
    )");

    EXPECT_EQ(outcome.out, "answer to /5\nanswer to /4\nanswer to /3\nanswer to /2\nanswer to /1\n") << outcome.errors;
}

TEST_F(KxrunHttp, AHandlerMayAwaitToo) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        kx.on_async(function(event)
          if event.result == 'answer to /first' then print(kx.await(http_get(url .. '/inner')).result) end
        end)
        http_get(url .. '/first')
        print(kx.await(http_get(url .. '/outer')).result)
    )");

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.out.find("answer to /inner\n"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("answer to /outer\n"), std::string::npos) << outcome.out;
}

TEST_F(KxrunHttp, HandlersThatAllAwaitDoNotRunOutOfStack) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        local done = 0
        kx.on_async(function(event)
          assert(kx.await(http_get(url .. '/inner')).result == 'answer to /inner')
          done = done + 1
          if done == 300 then print('all of them') end
        end)
        for i = 1, 300 do http_get(url .. '/' .. i) end
    )");

    EXPECT_EQ(outcome.out, "all of them\n") << outcome.errors.substr(0, 2000);
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KxrunHttp, AFinaliserMayAwaitAndExit) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        setmetatable({}, {__gc = function()
          print(kx.await(http_get(url .. '/late')).result)
          kx.exit(3)
        end})
        for i = 1, 1000 do http_get(url .. '/' .. i) end
        while true do kx.map(kx.map()) end  -- makes garbage, in the middle of the host's own work
    )");

    EXPECT_EQ(outcome.status, 3) << outcome.errors.substr(0, 2000);
    EXPECT_EQ(outcome.out, "answer to /late\n");
}

TEST_F(KxrunHttp, ACoroutineMayAwait) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        local get = coroutine.wrap(function(path) while true do
          path = coroutine.yield(kx.await(http_get(url .. path)).result)
        end end)
        print(get('/a'), get('/b'))
    )");

    EXPECT_EQ(outcome.out, "answer to /a\tanswer to /b\n") << outcome.errors;
}

TEST_F(KxrunHttp, AwaitGivesNilAndWhyWhereNothingWillCome) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        local id = http_get(url .. '/')
        kx.await(id)
        print(kx.await(id))                 -- it has had its event
        print(kx.await(-1))                 -- what a refused URL gives
        print(kx.await(12345))
        print(pcall(kx.await))
        print(pcall(kx.await, 1, -1))
    )");

    std::string none = "nil\tno such request is in flight\n";
    EXPECT_EQ(outcome.out, none + none + none +
                               "false\tbad argument #1 to '?' (number expected, got no value)\n"
                               "false\tbad argument #2 to '?' (seconds are 0 or more)\n")
        << outcome.errors;
}

TEST_F(KxrunHttp, AnAwaitThatTimesOutLeavesTheEventToTheHandler) {
    Gate timedOut;
    HttpServer server([&](HttpServer::Connection& connection) {
        std::string request = connection.ReadRequest();
        if (RequestLine(request).find("/slow") != std::string::npos) {
            timedOut.Wait();
        } else {
            timedOut.Open();
        }
        connection.Send(Answer("200 OK", "", "here"));
    });

    Outcome outcome = RunWith(server, R"(
        kx.on_async(function(event) print('handler', event.id) end)
        local slow = http_get(url .. '/slow')
        print(slow, kx.await(slow, 0.05))
        http_get(url .. '/go_on')
    )");

    EXPECT_EQ(outcome.out.substr(0, outcome.out.find('\n')), "1.0\tnil\ttimeout") << outcome.errors;
    EXPECT_NE(outcome.out.find("handler\t1.0\n"), std::string::npos) << outcome.out;
}

TEST_F(KxrunHttp, AnAwaitTimesOutThoughOtherEventsKeepComing) {
    Gate over;
    HttpServer server([&](HttpServer::Connection& connection) {
        for (std::string request = connection.ReadRequest(); !request.empty(); request = connection.ReadRequest()) {
            if (RequestLine(request).find("/slow") != std::string::npos) over.Wait();
            if (RequestLine(request).find("/over") != std::string::npos) over.Open();
            connection.Send(Answer("200 OK", "", "here"));
        }
    });

    Outcome outcome = RunWith(server, R"(
        local busy = true
        kx.on_async(function() if busy then http_get(url .. '/next') end end)
        http_get(url .. '/next')
        print(kx.await(http_get(url .. '/slow'), 0.05))
        busy = false
        http_get(url .. '/over')
    )");

    EXPECT_EQ(outcome.out, "nil\ttimeout\n") << outcome.errors;
}

TEST_F(KxrunHttp, AScriptEndsWhenNoRequestIsInFlight) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        local left = 3
        kx.on_async(function(event)
          left = left - 1
          print(left)
          if left > 0 then http_get(url .. '/again') end
        end)
        http_get(url .. '/first')
    )");

    EXPECT_EQ(outcome.out, "2\n1\n0\n") << outcome.errors;
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(KxrunHttp, ADownloadIsWholeWhenTheScriptEndsThoughNobodyHandlesItsEvent) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, "http_get_file(url .. '/banner', 'news/banner.txt')");

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(ReadWholeFile(Save() / "news/banner.txt"), "answer to /banner");
}

TEST_F(KxrunHttp, AnErrorInAHandlerEndsTheScript) {
    HttpServer server(AnswerWithPath);
    WriteWholeFile(Save() / "save.txt", "old");

    Outcome outcome = RunWith(server, R"(
        local file = file_text_open_write('save.txt')
        kx.on_async(function() error('in the handler') end)
        for i = 1, 3 do http_get(url .. '/') end
    )");

    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("game.lua:4: in the handler\nstack traceback:"), std::string::npos) << outcome.errors;
    EXPECT_EQ(ReadWholeFile(Save() / "save.txt"), "old");
}

TEST_F(KxrunHttp, AnEventsMapsAreFreedAfterItsHandler) {
    HttpServer server(AnswerWithPath);

    Outcome outcome = RunWith(server, R"(
        local kept, headers
        kx.on_async(function(event) kept, headers = event, kx.map(event.response_headers) end)
        http_get(url .. '/')
        kx.await(http_get(url .. '/other'))
        while not kept do kx.await(http_get(url .. '/other')) end
        print(pcall(function() return kept.id end))
        print(pcall(function() return headers.x end))
    )");

    EXPECT_NE(outcome.out.find("has been freed"), std::string::npos) << outcome.out << outcome.errors;
    EXPECT_EQ(outcome.out.find("true"), std::string::npos) << outcome.out;
}

TEST_F(KxrunHttp, BuffersTakeAnswersAndGiveBodies) {
    HttpServer server([](HttpServer::Connection& connection) {
        std::string request = connection.ReadRequest();
        connection.Send(Answer("200 OK", "", std::string("got\0", 4) + BodyOf(request)));
    });

    Outcome outcome = RunWith(server, R"(
        local target = kx.buffer()
        local event = kx.await(http_request(url .. '/', 'POST', kx.map(), target))
        print(event.status, event.contentLength, event.sizeDownloaded, event.result, #target)
        print(kx.bytes(target) == 'got\0', kx.type(target))
        local body = kx.buffer('one\0two')
        local answer = kx.buffer()
        event = kx.await(http_request(url .. '/', 'PUT', kx.map{['Content-Type'] = 'text/plain'}, body))
        print(event.status, event.result)  -- a text ends at its first zero byte
        kx.destroy(body)
        print(select(2, pcall(kx.bytes, body)):match('kx.buffer.*'))
    )");

    EXPECT_EQ(outcome.out, "0.0\t4.0\t4.0\t4.0\t4\n"
                           "true\tbuffer\n"
                           "0.0\tgot\n"
                           "kx.buffer 2 has been freed\n")
        << outcome.errors;
    EXPECT_EQ(BodyOf(server.Requests()[1]), std::string("one\0two", 7));
}

TEST_F(KxrunHttp, ATerminalShowsHowFarALongTransferIs) {
    Gate seen;
    HttpServer server([&](HttpServer::Connection& connection) {
        connection.ReadRequest();
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 4000000\r\n\r\n" + std::string(1000000, 'x'));
        seen.Wait();
        connection.Send(std::string(3000000, 'x'));
        connection.WaitForClose();
    });
    WriteWholeFile(Bundle() / "game.lua", "kx.on_async(function(e) print('done', #e.result) end) http_get(...)");

    Terminal terminal(*this, {(Bundle() / "game.lua").string(), server.Url()});
    std::string shown = terminal.ReadUntil(" left");
    seen.Open();
    std::string after = terminal.ReadUntil("");

    EXPECT_NE(shown.find("kxrun: 1 request, 1.0 MB of 4.0 MB, "), std::string::npos) << shown;
    EXPECT_NE(after.find("done\t4000000"), std::string::npos) << after;
}

TEST_F(KxrunHttp, APromptHandlesEventsBetweenItsLines) {
    HttpServer server(AnswerWithPath);
    std::string line = "kx.on_async(function(e) print('event', e.result) end) http_get('" + server.Url("/a") + "')\n";
    WriteWholeFile(Folder("in"), line + "kx.await(http_get('" + server.Url("/b") + "')).status\nkx.exit(3)\n");

    Outcome outcome = Run({"-i"});

    EXPECT_EQ(outcome.status, 3);
    EXPECT_NE(outcome.out.find("0.0\n"), std::string::npos) << outcome.out << outcome.errors;
}

}  // namespace
}  // namespace kx::test
