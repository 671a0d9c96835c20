#pragma once

#include "Files/Buffer/IBuffer.h"
#include "tests/Function_File_fixture.h"
#include "tests/Http_answers.h"
#include "tests/support/Variable.h"

#include <future>
#include <map>
#include <string>
#include <vector>

namespace kx::test {

/// An event as a script finds it.
using Event = std::map<std::string, Value>;

class HttpBuiltIns : public BuiltInsTest {
protected:
    void SetUp() override {
        BuiltInsTest::SetUp();
        m_blocks = MemoryManager::Stats().blocks;
        m_descriptors = OpenDescriptors();
    }

    void TearDown() override {
        LoadSave::Shutdown();
        for (int map : m_maps) {
            FreeDsMap(map);
        }
        for (int buffer : m_buffers) {
            FreeBuffer(buffer);
        }
        EXPECT_EQ(MemoryManager::Stats().blocks, m_blocks + m_leftBehind);
        EXPECT_EQ(OpenDescriptors(), m_descriptors);
        BuiltInsTest::TearDown();
    }

    /// A header map.
    int Map(const std::vector<std::pair<Value, Value>>& entries) {
        DS_AutoMutex lock;
        int index = FindFreeDsMapIndex();
        themaps.arr[index] = new CDS_Map;
        for (const auto& [name, value] : entries) {
            themaps.arr[index]->Set(&Value(name).Get(), &Value(value).Get());
        }
        m_maps.push_back(index);
        return index;
    }

    /// A buffer that holds a text.
    int Buffer(const std::string& text) {
        int index = CreateBuffer(0, eBuffer_Format_Grow, 1);
        DS_AutoMutex lock;
        GetIBuffer(index)->Write(text.data(), static_cast<int>(text.size()));
        m_buffers.push_back(index);
        return index;
    }

    static std::string Contents(int buffer) {
        DS_AutoMutex lock;
        const IBuffer* found = GetIBuffer(buffer);
        return {found->m_data, static_cast<size_t>(found->m_size)};
    }

    /// The next event, which is expected to be this request's.
    Event Await(const Value& request) {
        Event entries;
        ASYNC_EVENT event{};
        bool taken = LoadSave::NextEvent(30 * 1000, &event);
        EXPECT_TRUE(taken);
        if (!taken) return entries;
        EXPECT_EQ(event.m_type, EVENT_OTHER_WEB_ASYNC);
        EXPECT_EQ(event.m_request, request.Real());
        {
            DS_AutoMutex lock;
            ForEachEntry(*themaps.arr[event.m_map], [&entries](const MapStore& entry) {
                RValue copy{};
                COPY_RValue(&copy, &entry.value);
                entries.emplace(KXGetString(&entry.key, 0), Value(copy));
            });
        }
        EXPECT_EQ(Number(entries, "id"), request.Real());
        EXPECT_EQ(Number(entries, "response_headers"), event.m_headers);
        LoadSave::ReleaseEvent(event);
        return entries;
    }

    static double Number(const Event& event, const char* name) {
        auto entry = event.find(name);
        EXPECT_NE(entry, event.end()) << name;
        return entry == event.end() ? kUnset : entry->second.Real();
    }

    static std::string TextOf(const Event& event, const char* name) {
        auto entry = event.find(name);
        EXPECT_NE(entry, event.end()) << name;
        return entry == event.end() ? "" : entry->second.Text();
    }

    static Lines Names(const Event& event) {
        Lines names;
        for (const auto& entry : event) {
            names.push_back(entry.first);
        }
        return names;
    }

    static void ExpectText(const Event& event, double httpStatus, const std::string& result, double status) {
        EXPECT_EQ(Number(event, "http_status"), httpStatus);
        EXPECT_EQ(TextOf(event, "result"), result);
        EXPECT_EQ(Number(event, "status"), status);
    }

    /// Makes a request with a header map and a body to a server that answers.
    /// @return what the server was sent.
    std::string Sent(int map, const Value& body) {
        HttpServer server(Each(Ok("done")));
        Event event = Await(Call("http_request", {server.Url(), "POST", map, body}));
        EXPECT_EQ(Number(event, "http_status"), 200);
        Lines requests = server.Requests();
        EXPECT_EQ(requests.size(), 1u);
        return requests.empty() ? "" : requests[0];
    }

    int m_leftBehind = 0;  // blocks that a test leaves, as it has to be

private:
    Variable m_noProxy{"no_proxy", "*"};
    long long m_blocks = 0;
    int m_descriptors = 0;
    std::vector<int> m_maps, m_buffers;
};

/// A server that answers when it is told to.
class GatedServer {
public:
    explicit GatedServer(const std::string& answer)
        : m_server([this, answer](HttpServer::Connection& connection) {
              connection.ReadRequest();
              m_opened.wait();
              connection.Send(answer);
          }) {}
    GatedServer(const GatedServer&) = delete;
    GatedServer& operator=(const GatedServer&) = delete;

    [[nodiscard]] std::string Url() const { return m_server.Url(); }
    [[nodiscard]] Lines Requests() const { return m_server.Requests(); }
    void Open() { m_gate.set_value(); }

private:
    std::promise<void> m_gate;
    std::shared_future<void> m_opened = m_gate.get_future().share();
    HttpServer m_server;
};

}  // namespace kx::test
