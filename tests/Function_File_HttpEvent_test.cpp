// The events of the HTTP built-ins' requests: texts, buffers, files.
#include "tests/Function_File_Http_fixture.h"
#include "tests/support/Loopback.h"
#include "tests/support/Nginx.h"

namespace kx::test {
namespace {

// --- events of texts -------------------------------------------------------------------------------------------------

TEST_F(HttpBuiltIns, AnEmptyAnswerCountsAsFailed) {
    HttpServer server(Each(Ok("")));

    ExpectText(Await(Call("http_get", {server.Url()})), 200, "", -1);

    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(HttpBuiltIns, AZeroByteEndsTheText) {
    HttpServer server(Each(Ok(std::string("0123456789\0rest", 15))));

    ExpectText(Await(Call("http_get", {server.Url()})), 200, "0123456789", 0);
}

TEST_F(HttpBuiltIns, AnErrorsTextIsAResult) {
    HttpServer server(Each(Answer("404 Not Found", "", "no such page")));

    ExpectText(Await(Call("http_get", {server.Url()})), 404, "no such page", 0);
}

TEST_F(HttpBuiltIns, ATransferThatFailsHasNoResult) {
    HttpServer server(Once("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc"));

    Value id = Call("http_get", {server.Url()});
    ExpectText(Await(id), 200, "", -1);

    std::string begin = "HTTP request " + std::to_string(static_cast<int>(id.Real())) + " failed: ";
    EXPECT_EQ(m_console.Take().rfind(begin, 0), 0u);
    EXPECT_EQ(TakeError(), "");
}

TEST_F(HttpBuiltIns, TheResponsesHeadersAreInAMapOfTheirOwn) {
    HttpServer server(Each(Answer("200 OK", "X-Name: value\r\nX-Name: more\r\n", "")));
    Call("http_get", {server.Url()});
    ASYNC_EVENT event{};
    ASSERT_TRUE(LoadSave::NextEvent(30 * 1000, &event));

    {
        DS_AutoMutex lock;
        Value name("x-name");
        const RValue* value = themaps.arr[event.m_headers]->Find(&name.Get());
        ASSERT_NE(value, nullptr);
        EXPECT_STREQ(KXGetString(value, 0), "value, more");
    }
    LoadSave::ReleaseEvent(event);
}

// --- buffers ---------------------------------------------------------------------------------------------------------

TEST_F(HttpBuiltIns, AnEmptyBufferTakesTheAnswer) {
    const std::string bytes("a\0b\r\n\xff", 6);
    HttpServer server(Each(Ok(bytes)));
    int buffer = Buffer("");

    Event event = Await(Call("http_request", {server.Url(), "GET", -1, buffer}));

    EXPECT_EQ(Names(event), (Lines{"contentLength", "http_status", "id", "response_headers", "result", "sizeDownloaded",
                                   "status", "url"}));
    EXPECT_EQ(Number(event, "contentLength"), 6);
    EXPECT_EQ(Number(event, "sizeDownloaded"), 6);
    EXPECT_EQ(Number(event, "result"), 6);
    EXPECT_EQ(Number(event, "http_status"), 200);
    EXPECT_EQ(Number(event, "status"), 0);
    EXPECT_EQ(Contents(buffer), bytes);
    EXPECT_EQ(GetIBuffer(buffer)->m_position, 6);
    EXPECT_EQ(GetIBuffer(buffer)->m_refCount, 0);
    EXPECT_EQ(Fields(server.Requests()[0], "content-length"), Lines());
}

TEST_F(HttpBuiltIns, AnAnswerGoesWhereTheBufferStands) {
    HttpServer server(Each(Ok("hello")));
    int buffer = Buffer("");
    GetIBuffer(buffer)->Seek(eBuffer_Start, 3);

    Event event = Await(Call("http_request", {server.Url(), "GET", -1, buffer}));

    EXPECT_EQ(Contents(buffer), std::string("\0\0\0hello", 8));
    EXPECT_EQ(Number(event, "result"), 8);
    EXPECT_EQ(Number(event, "contentLength"), 5);
}

TEST_F(HttpBuiltIns, ABufferOfFixedSizeStaysEmpty) {
    HttpServer server(Each(Ok("hello")));
    int buffer = CreateBuffer(0, eBuffer_Format_Fixed, 1);

    Event event = Await(Call("http_request", {server.Url(), "GET", -1, buffer}));

    EXPECT_EQ(Contents(buffer), "");
    EXPECT_EQ(Number(event, "result"), 0);
    EXPECT_EQ(Number(event, "sizeDownloaded"), 5);
    FreeBuffer(buffer);
}

TEST_F(HttpBuiltIns, ABufferIsAsItWasWhereNothingComes) {
    for (const std::string& answer : {std::string(), Ok("")}) {
        HttpServer server(Once(answer));
        int buffer = Buffer("");

        Event event = Await(Call("http_request", {server.Url(), "GET", -1, buffer}));

        EXPECT_EQ(Number(event, "status"), -1);
        EXPECT_EQ(Number(event, "result"), 0);
        EXPECT_EQ(Number(event, "contentLength"), 0);
        EXPECT_EQ(Contents(buffer), "");
        EXPECT_EQ(GetIBuffer(buffer)->m_refCount, 0);
    }
}

TEST_F(HttpBuiltIns, ABufferMayBeFreedWhileItsAnswerIsOnItsWay) {
    GatedServer server(Ok("hello"));
    int buffer = Buffer("");

    Value id = Call("http_request", {server.Url(), "GET", -1, buffer});
    FreeBuffer(buffer);
    EXPECT_EQ(GetIBuffer(buffer), nullptr);
    server.Open();
    Event event = Await(id);

    EXPECT_EQ(Number(event, "status"), 0);
    EXPECT_EQ(Number(event, "sizeDownloaded"), 5);
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(HttpBuiltIns, ABufferThatTakesTwoAnswersTakesThemOneAfterTheOther) {
    HttpServer server(Each(Ok("hello")));
    int buffer = Buffer("");

    Call("http_request", {server.Url(), "GET", -1, buffer});
    Call("http_request", {server.Url(), "GET", -1, buffer});
    ASYNC_EVENT event{};
    while (LoadSave::NextEvent(30 * 1000, &event)) {
        LoadSave::ReleaseEvent(event);
    }

    // The second request has found the buffer empty, or has posted the first one's answer.
    std::string contents = Contents(buffer);
    EXPECT_TRUE(contents == "hellohello" || (contents == "hello" && BodyOf(server.Requests()[1]) == "hello"));
    EXPECT_EQ(GetIBuffer(buffer)->m_refCount, 0);
}

TEST_F(HttpBuiltIns, AtTheEndNoBufferIsHeld) {
    HttpServer server(Silent);
    int buffer = Buffer("");
    Call("http_request", {server.Url(), "GET", -1, buffer});
    EXPECT_EQ(GetIBuffer(buffer)->m_refCount, 1);

    LoadSave::Shutdown();

    EXPECT_EQ(GetIBuffer(buffer)->m_refCount, 0);
}

// --- files -----------------------------------------------------------------------------------------------------------

TEST_F(HttpBuiltIns, AFileIsWrittenUnderItsNameInTheSaveArea) {
    const std::string bytes("a\0b\r\n\xff", 6);
    HttpServer server(Each(Ok(bytes)));

    Event event = Await(Call("http_get_file", {server.Url(), "folder/of/folders/file.bin"}));

    EXPECT_EQ(Names(event), (Lines{"http_status", "id", "response_headers", "result", "status", "url"}));
    ExpectText(event, 200, Save("folder/of/folders/file.bin").string(), 0);
    EXPECT_EQ(ReadWholeFile(Save("folder/of/folders/file.bin")), bytes);
}

TEST_F(HttpBuiltIns, AnEmptyAnswerIsAnEmptyFile) {
    HttpServer server(Each(Ok("")));
    WriteWholeFile(Save("file"), "old");

    ExpectText(Await(Call("http_get_file", {server.Url(), "file"})), 200, Save("file").string(), 0);

    EXPECT_EQ(ReadWholeFile(Save("file")), "");
}

TEST_F(HttpBuiltIns, ADownloadThatFailsLeavesTheFile) {
    HttpOptions options;
    options.responseBytes = 100;
    Loopback nobody(Loopback::refusing);
    struct Case {
        const char* name;
        HttpServer::Handler handler;
        int status;
    };
    const Case cases[] = {
        {"cut short", Once("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc"), 200},
        {"no answer", Once(""), 0},
        {"reset", [](HttpServer::Connection& connection) { connection.Reset(); }, 0},
        {"too large", Once(Ok(std::string(101, 'x'))), 200},
    };
    WriteWholeFile(Save("file"), "old");
    ASSERT_EQ(LoadSave::SetHttpOptions(options), 0);
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        HttpServer server(each.handler);

        ExpectText(Await(Call("http_get_file", {server.Url(), "file"})), each.status, Save("file").string(), -1);
        ExpectText(Await(Call("http_get_file", {server.Url(), "new"})), each.status, Save("new").string(), -1);

        EXPECT_EQ(NamesIn(Save()), Lines{"file"});
        EXPECT_EQ(ReadWholeFile(Save("file")), "old");
    }
    ASSERT_EQ(LoadSave::SetHttpOptions(HttpOptions()), 0);
}

TEST_F(HttpBuiltIns, ANameThatIsRefusedIsAFailedDownload) {
    HttpServer server(Each(Ok("hello")));
    for (const char* name : {"../outside", "", "/etc/kxfiles", "a/../../outside"}) {
        SCOPED_TRACE(name);

        ExpectText(Await(Call("http_get_file", {server.Url(), name})), 200, "", -1);
    }
    EXPECT_EQ(Number(Await(Call("http_get_file", {server.Url(), Value()})), "status"), -1);
}

TEST_F(HttpBuiltIns, ADownloadOntoAFolderFails) {
    HttpServer server(Each(Ok("hello")));
    WriteWholeFile(Save("folder/file"), "old");

    ExpectText(Await(Call("http_get_file", {server.Url(), "folder"})), 200, Save("folder").string(), -1);

    EXPECT_EQ(ReadWholeFile(Save("folder/file")), "old");
}

TEST_F(HttpBuiltIns, AFileThatIsShippedIsNotChanged) {
    HttpServer server(Each(Ok("new")));
    WriteWholeFile(Bundle("file"), "shipped");

    Await(Call("http_get_file", {server.Url(), "file"}));

    EXPECT_EQ(ReadWholeFile(Bundle("file")), "shipped");
    EXPECT_EQ(ReadWholeFile(Save("file")), "new");
}

TEST_F(HttpBuiltIns, AtTheEndAnUnfinishedDownloadIsGivenUp) {
    HttpServer server(Silent);
    WriteWholeFile(Save("file"), "old");
    Call("http_get_file", {server.Url(), "file"});

    LoadSave::Shutdown();

    EXPECT_EQ(ReadWholeFile(Save("file")), "old");
}

TEST_F(HttpBuiltIns, DownloadsAreWrittenWhileTheScriptWritesFiles) {
    constexpr int kFiles = 100;
    LoadSave::SetDurability(Durability::none);
    HttpServer server(Each([](const std::string& request) { return Ok(RequestLine(request)); }));
    for (int i = 0; i < kFiles; ++i) {
        std::string name = std::to_string(i);
        Call("http_get_file", {server.Url("/" + name), "folder/downloaded/" + name});
        Value file = Call("file_text_open_write", {"folder/written/" + name});
        Call("file_text_write_string", {file, name});
        Call("file_text_close", {file});
    }

    ASYNC_EVENT event{};
    while (LoadSave::NextEvent(30 * 1000, &event)) {
        LoadSave::ReleaseEvent(event);
    }

    for (int i = 0; i < kFiles; ++i) {
        std::string name = std::to_string(i);
        EXPECT_EQ(ReadWholeFile(Save("folder/downloaded/" + name)), "GET /" + name + " HTTP/1.1");
        EXPECT_EQ(ReadWholeFile(Save("folder/written/" + name)), name);
    }
}

// --- many ------------------------------------------------------------------------------------------------------------

TEST_F(HttpBuiltIns, TenThousandRequestsHaveAnEventEach) {
    constexpr int kRequests = 10000;
    constexpr int kBurst = 500;
    Nginx nginx("location /yes { return 200 yes; } location /no { return 404 no; }");
    HttpServer broken([](HttpServer::Connection& connection) { connection.Reset(); });
    const std::string urls[] = {nginx.Url("/yes"), nginx.Url("/no"), nginx.Url("/yes"), broken.Url()};
    std::map<int, int> httpStatus;
    std::map<int, int> events;
    for (int i = 0; i < kRequests; ++i) {
        const std::string& url = urls[i % 20 == 0 ? 3 : i % 3];
        Value id = i % 5 == 0 ? Call("http_request", {url, "POST", -1, "body"}) : Call("http_get", {url});
        httpStatus[static_cast<int>(id.Real())] = i % 20 == 0 ? 0 : i % 3 == 1 ? 404 : 200;

        ASYNC_EVENT event{};
        bool drains = i % kBurst == kBurst - 1;
        while (drains && LoadSave::NextEvent(30 * 1000, &event)) {
            DS_AutoMutex lock;
            Value name("http_status");
            EXPECT_EQ(themaps.arr[event.m_map]->Find(&name.Get())->real, httpStatus[event.m_request]);
            ++events[event.m_request];
            LoadSave::ReleaseEvent(event);
        }
    }

    EXPECT_EQ(events.size(), static_cast<size_t>(kRequests));
    for (const auto& [id, count] : events) {
        EXPECT_EQ(count, 1) << id;
    }
    std::string console = m_console.Take();
    EXPECT_EQ(std::count(console.begin(), console.end(), '\n'), kRequests / 20);
}

}  // namespace
}  // namespace kx::test
