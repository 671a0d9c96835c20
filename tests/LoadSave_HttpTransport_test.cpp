// HTTP requests from their start to the end of their events: many at a time, options, events, the shutdown.
#include "tests/Http_fixture.h"
#include "tests/support/Nginx.h"

#include <cerrno>
#include <csignal>
#include <set>

namespace kx::test {
namespace {

class HttpRequestsInFlight : public HttpTest {
protected:
    /// Starts as many requests as there are to be, none of which is answered.
    std::vector<int> StartUnanswered(const HttpServer& server, int count) {
        std::vector<int> ids;
        for (int i = 0; i < count; ++i) {
            ids.push_back(Get(server.Url()));
        }
        return ids;
    }
};

// --- many ------------------------------------------------------------------------------------------------------------

TEST_F(HttpRequestsInFlight, AThousandAtOnceAreAnsweredOnceEachOverSixteenConnections) {
    Nginx nginx("add_header X-Connection $connection; location / { return 200 $request_uri; }");
    constexpr int kRequests = 1000;
    std::vector<int> ids;
    for (int i = 0; i < kRequests; ++i) {
        ids.push_back(Get(nginx.Url("/" + std::to_string(i))));
    }

    WaitForAll();

    std::set<std::string> connections;
    for (int i = 0; i < kRequests; ++i) {
        HttpResult result = Wait(ids[static_cast<size_t>(i)]);
        EXPECT_EQ(result.status, 200);
        EXPECT_EQ(result.body, "/" + std::to_string(i));
        connections.insert(result.headers["x-connection"]);
    }
    EXPECT_LE(connections.size(), 16u);
}

TEST_F(HttpRequestsInFlight, ASlowServerHoldsUpItsOwnRequestsOnly) {
    HttpServer silent(Silent);
    HttpServer server(Each(Ok("hello")));
    StartUnanswered(silent, 100);

    ExpectAnswer(Fetch(server.Url()), 200, "hello");

    EXPECT_EQ(LoadSave::RequestsInFlight(), 100);
    LoadSave::Shutdown();
    m_console.Take();
}

TEST_F(HttpRequestsInFlight, AsManyConnectionsAsTheOptionSays) {
    HttpOptions options;
    options.connectionsPerHost = 2;
    ASSERT_EQ(LoadSave::SetHttpOptions(options), 0);
    HttpServer server(Each(Ok("hello")));
    for (int i = 0; i < 50; ++i) {
        Get(server.Url());
    }

    WaitForAll();

    EXPECT_LE(server.Connections(), 2);
    EXPECT_EQ(server.Requests().size(), 50u);
}

TEST_F(HttpRequestsInFlight, EachRequestHasTheNextId) {
    HttpServer server(Each(Ok("")));
    int first = g_HTTP_ID;

    EXPECT_EQ(Get(server.Url()), first);
    EXPECT_EQ(Get("no URL"), first + 1);
    EXPECT_EQ(Post(server.Url(), ""), first + 2);
    EXPECT_EQ(Start({server.Url()}), first + 3);
    EXPECT_EQ(g_HTTP_ID, first + 4);
    EXPECT_EQ(LoadSave::RequestsInFlight(), 4);

    WaitForAll();
    m_console.Take();
}

TEST_F(HttpRequestsInFlight, TheListHoldsTheRequestsInFlightTheNewestFirst) {
    HttpServer server(Silent);
    std::vector<int> ids = StartUnanswered(server, 3);

    std::vector<int> listed;
    for (HTTP_REQ_CONTEXT* each = g_pHttpHead; each; each = each->m_next) {
        EXPECT_STREQ(each->m_url, server.Url().c_str());
        listed.push_back(each->m_id);
    }

    EXPECT_EQ(listed, std::vector<int>(ids.rbegin(), ids.rend()));
    LoadSave::Shutdown();
    m_console.Take();
}

TEST_F(HttpRequestsInFlight, ARequestIsInFlightUntilItsEventIsTaken) {
    HttpServer server(Each(Ok("hello")));
    std::vector<int> ids = {Get(server.Url()), Get(server.Url()), Get(server.Url()), Get(server.Url())};
    for (int id : ids) {
        EXPECT_TRUE(LoadSave::IsInFlight(id)) << id;
    }
    EXPECT_FALSE(LoadSave::IsInFlight(ids.front() - 1));
    EXPECT_FALSE(LoadSave::IsInFlight(ids.back() + 1));

    for (int id : {ids[2], ids[0], ids[3], ids[1]}) {
        Wait(id);
        EXPECT_FALSE(LoadSave::IsInFlight(id)) << id;
    }
}

TEST_F(HttpRequestsInFlight, AThreadThatHoldsTheLockOverContainersMayWait) {
    HttpServer server(Each(Ok("hello")));
    DS_AutoMutex outer;
    DS_AutoMutex inner;

    ExpectAnswer(Fetch(server.Url()), 200, "hello");
    Get(server.Url());
    LoadSave::Shutdown();  // its callback needs the lock too

    m_console.Take();
    EXPECT_EQ(LoadSave::RequestsInFlight(), 0);
}

TEST_F(HttpRequestsInFlight, AListThatWasClearedIsNotMissed) {
    HttpServer server(Each(Ok("")));
    Get(server.Url());
    Get(server.Url());
    g_pHttpHead = nullptr;
    Get(server.Url());

    WaitForAll();

    EXPECT_EQ(g_pHttpHead, nullptr);
}

TEST_F(HttpRequestsInFlight, ProgressTellsHowFarRequestsAre) {
    HttpServer server([](HttpServer::Connection& connection) {
        connection.ReadRequest();
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789");
        connection.WaitForClose();
    });
    long long before = LoadSave::Progress().ever;
    EXPECT_EQ(LoadSave::Progress().requests, 0);

    Get(server.Url());
    HttpProgress progress = LoadSave::Progress();
    while (progress.received == 0 || progress.expected <= 0) {
        std::this_thread::yield();
        progress = LoadSave::Progress();
    }

    EXPECT_EQ(progress.requests, 1);
    EXPECT_EQ(progress.received, 10);
    EXPECT_EQ(progress.expected, 100);
    EXPECT_EQ(progress.ever, before + 10);
    LoadSave::Shutdown();
    EXPECT_EQ(LoadSave::Progress().requests, 0);
    EXPECT_EQ(LoadSave::Progress().received, 0);
    EXPECT_EQ(LoadSave::Progress().ever, before + 10);
    m_console.Take();
}

// --- options ---------------------------------------------------------------------------------------------------------

TEST_F(HttpRequestsInFlight, OptionsThatMakeNoSenseAreRefused) {
    using Member = int HttpOptions::*;
    for (Member member : {&HttpOptions::connect, &HttpOptions::stall, &HttpOptions::total, &HttpOptions::responseBytes,
                          &HttpOptions::redirects, &HttpOptions::connectionsPerHost}) {
        HttpOptions options;
        options.*member = -1;
        EXPECT_EQ(LoadSave::SetHttpOptions(options), EINVAL);
        options.*member = 0;
        EXPECT_EQ(LoadSave::SetHttpOptions(options), member == &HttpOptions::connectionsPerHost ? EINVAL : 0);
        EXPECT_EQ(LoadSave::SetHttpOptions(HttpOptions()), 0);
    }
}

TEST_F(HttpRequestsInFlight, OptionsAreForTheRequestsThatFollow) {
    std::mutex gate;
    HttpServer server([&gate](HttpServer::Connection& connection) {
        connection.ReadRequest();
        std::lock_guard<std::mutex> lock(gate);
        connection.Send(Ok("hello"));
    });
    HttpOptions small;
    small.responseBytes = 4;

    gate.lock();
    int before = Get(server.Url());
    ASSERT_EQ(LoadSave::SetHttpOptions(small), 0);
    int after = Get(server.Url());
    gate.unlock();

    EXPECT_TRUE(Wait(before).answered);
    ExpectFailure(Wait(after), 200, "longer than 4 bytes");
}

// --- events ----------------------------------------------------------------------------------------------------------

TEST_F(HttpRequestsInFlight, NoEventComesWhereNoRequestIsInFlight) {
    ASYNC_EVENT event{};

    EXPECT_FALSE(LoadSave::NextEvent(0, &event));
    EXPECT_FALSE(LoadSave::NextEvent(-1, &event));
}

TEST_F(HttpRequestsInFlight, NoEventComesInNoTime) {
    HttpServer server(Silent);
    StartUnanswered(server, 1);
    ASYNC_EVENT event{};

    EXPECT_FALSE(LoadSave::NextEvent(0, &event));
    EXPECT_FALSE(LoadSave::NextEvent(1, &event));

    LoadSave::Shutdown();
    m_console.Take();
}

TEST_F(HttpRequestsInFlight, AnInterruptWakesWhoeverWaitsForAnEvent) {
    HttpServer server(Silent);
    StartUnanswered(server, 1);
    ASYNC_EVENT event{};

    LoadSave::InterruptEvents();
    EXPECT_FALSE(LoadSave::NextEvent(-1, &event));

    std::thread interrupting([] { LoadSave::InterruptEvents(); });
    EXPECT_FALSE(LoadSave::NextEvent(-1, &event));
    interrupting.join();

    std::signal(SIGUSR1, [](int) { LoadSave::InterruptEvents(); });
    std::raise(SIGUSR1);
    EXPECT_FALSE(LoadSave::NextEvent(-1, &event));
    std::signal(SIGUSR1, SIG_DFL);

    LoadSave::Shutdown();
    m_console.Take();
}

TEST_F(HttpRequestsInFlight, AnInterruptIsForOneNextEventOnly) {
    HttpServer server(Each(Ok("hello")));
    ASYNC_EVENT event{};

    LoadSave::InterruptEvents();
    EXPECT_FALSE(LoadSave::NextEvent(-1, &event));  // with nothing in flight

    ExpectAnswer(Fetch(server.Url()), 200, "hello");
}

TEST_F(HttpRequestsInFlight, AReleasedEventLeavesMapsThatAreNotItsOwn) {
    HttpServer server(Each(Ok("hello")));
    Get(server.Url());
    ASYNC_EVENT event{};
    ASSERT_TRUE(LoadSave::NextEvent(30000, &event));
    FreeDsMap(event.m_map);
    FreeDsMap(event.m_headers);
    int first = CreateDsMap(0);
    int second = CreateDsMap(0);
    ASSERT_EQ((std::set<int>{first, second}), (std::set<int>{event.m_map, event.m_headers}));  // as if they were

    LoadSave::ReleaseEvent(event);
    LoadSave::ReleaseEvent(event);

    EXPECT_NE(themaps.arr[first], nullptr);
    EXPECT_NE(themaps.arr[second], nullptr);
    FreeDsMap(first);
    FreeDsMap(second);
}

TEST_F(HttpRequestsInFlight, EventsComeInTheOrderInWhichRequestsEnd) {
    std::mutex gate;
    HttpServer slow([&gate](HttpServer::Connection& connection) {
        connection.ReadRequest();
        std::lock_guard<std::mutex> lock(gate);
        connection.Send(Ok("slow"));
    });
    HttpServer fast(Each(Ok("fast")));
    std::vector<int> order;
    auto take = [&order] {
        ASYNC_EVENT event{};
        if (LoadSave::NextEvent(30000, &event)) order.push_back(event.m_request);
        LoadSave::ReleaseEvent(event);
    };

    gate.lock();
    int first = Get(slow.Url());
    int second = Get(fast.Url());
    take();
    gate.unlock();
    take();

    EXPECT_EQ(order, (std::vector<int>{second, first}));
}

TEST_F(HttpRequestsInFlight, AnEventIsOfTheTypeAndTheMapThatTheCallbackGives) {
    auto complete = [](HTTP_REQ_CONTEXT*, void*, int* map) {
        EXPECT_EQ(*map, -1);
        *map = CreateDsMap(1, "key", 12.0, nullptr);
        return 7;
    };
    HttpServer server(Each(Ok("")));
    LoadSave::HTTP_Get(server.Url().c_str(), -1, complete, nullptr, nullptr);
    ASYNC_EVENT event{};
    ASSERT_TRUE(LoadSave::NextEvent(30000, &event));

    EXPECT_EQ(event.m_type, 7);
    {
        DS_AutoMutex lock;
        RValue key{};
        KXCreateString(&key, "key");
        EXPECT_EQ(themaps.arr[event.m_map]->Find(&key)->real, 12);
        FREE_RValue__Pre(&key);
    }
    LoadSave::ReleaseEvent(event);
}

TEST_F(HttpRequestsInFlight, AnEventOwnsItsTwoMaps) {
    HttpServer server(Each(Ok("hello")));
    int before = LiveMaps();
    Get(server.Url());
    ASYNC_EVENT event{};
    ASSERT_TRUE(LoadSave::NextEvent(30000, &event));

    EXPECT_EQ(LiveMaps(), before + 2);
    LoadSave::ReleaseEvent(event);

    EXPECT_EQ(LiveMaps(), before);
}

// --- the end ---------------------------------------------------------------------------------------------------------

TEST_F(HttpRequestsInFlight, ShutdownEndsWhatIsInFlightAsFailures) {
    HttpServer server(Silent);
    std::vector<int> ids = StartUnanswered(server, 100);

    LoadSave::Shutdown();

    for (int id : ids) {
        HttpResult result = Result(id);
        EXPECT_EQ(result.completions, 1);
        EXPECT_EQ(result.cleanups, 1);
        EXPECT_FALSE(result.answered);
        EXPECT_EQ(result.status, 0);
    }
    std::string console = m_console.Take();
    EXPECT_EQ(std::count(console.begin(), console.end(), '\n'), 100);
    ASYNC_EVENT event{};
    EXPECT_FALSE(LoadSave::NextEvent(-1, &event));
}

TEST_F(HttpRequestsInFlight, ShutdownFreesEventsThatNobodyHasTaken) {
    HttpServer server(Each(Ok("hello")));
    int before = LiveMaps();
    for (int i = 0; i < 20; ++i) {
        Get(server.Url());
    }
    ASSERT_TRUE(TakeEvent());

    LoadSave::Shutdown();

    EXPECT_EQ(LiveMaps(), before);
    EXPECT_EQ(LoadSave::RequestsInFlight(), 0);
    m_console.Take();
}

TEST_F(HttpRequestsInFlight, AfterShutdownRequestsStartAnew) {
    HttpServer server(Each(Ok("hello")));
    for (int i = 0; i < 5; ++i) {
        ExpectAnswer(Fetch(server.Url()), 200, "hello");
        LoadSave::Shutdown();
        LoadSave::Shutdown();
    }
    EXPECT_EQ(server.Connections(), 5);
}

}  // namespace
}  // namespace kx::test
