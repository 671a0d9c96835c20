// The event loop: kx.on_async and kx.await.
#include "Runner/Lua_Event.h"

#include "Files/Base/Limits.h"
#include "Files/Base/Number.h"
#include "Files/IO/LoadSave.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Runner/Interrupt.h"
#include "Runner/Lua_Proxy.h"
#include "Runner/Progress.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <list>
#include <optional>
#include <vector>

namespace kx {
namespace {

using Clock = std::chrono::steady_clock;

const char kEvents = 0;   // registry key of the Lua state's Events
const char kHandler = 0;  // registry key of the script's handler

/// An event as long as it is handled.
class EventOwner {
public:
    explicit EventOwner(const ASYNC_EVENT& event) : m_event(event) {}
    EventOwner(const EventOwner&) = delete;
    EventOwner& operator=(const EventOwner&) = delete;
    ~EventOwner() { LoadSave::ReleaseEvent(m_event); }

private:
    const ASYNC_EVENT& m_event;
};

/// What has come and has not been handled, and who waits.
class Events {
public:
    Events() = default;
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;
    ~Events() {
        for (const ASYNC_EVENT& event : m_come) {
            LoadSave::ReleaseEvent(event);
        }
    }

    /// Waits for the next event and keeps it.
    /// @param milliseconds  -1 for as long as it takes.
    /// @return false where none has come.
    bool Wait(int milliseconds) {
        Come next(1);  // room for it before there is an event that could be lost
        bool come = m_progress.WaitForEvent(milliseconds, &next.front());
        if (come) m_come.splice(m_come.end(), next);
        return come;
    }

    std::optional<ASYNC_EVENT> Take(int request) {
        auto place = Find(request);
        return place == m_come.end() ? std::nullopt : TakeAt(place);
    }

    /// Takes the oldest event that nobody awaits.
    std::optional<ASYNC_EVENT> TakeUnawaited() {
        for (auto event = m_come.begin(); event != m_come.end(); ++event) {
            bool awaited = std::count(m_awaited.begin(), m_awaited.end(), event->m_request) > 0;
            if (!awaited) return TakeAt(event);
        }
        return std::nullopt;
    }

    [[nodiscard]] bool WillCome(int request) { return Find(request) != m_come.end() || LoadSave::IsInFlight(request); }

    void BeginAwait(int request) { m_awaited.push_back(request); }
    void EndAwait() { m_awaited.pop_back(); }

    /// @return true where so many awaits are inside one another that no handler may add another one.
    [[nodiscard]] bool IsNestedDeep() const { return m_awaited.size() > kMaxNestedAwaits; }

private:
    using Come = std::list<ASYNC_EVENT>;

    Come::iterator Find(int request) {
        return std::find_if(m_come.begin(), m_come.end(),
                            [request](const ASYNC_EVENT& event) { return event.m_request == request; });
    }

    std::optional<ASYNC_EVENT> TakeAt(Come::iterator place) {
        ASYNC_EVENT event = *place;
        m_come.erase(place);
        return event;
    }

    Come m_come;  // in the order in which they came
    std::vector<int> m_awaited;
    EventProgress m_progress;
};

Events& EventsOf(lua_State* L) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kEvents);
    auto* events = static_cast<Events*>(lua_touserdata(L, -1));
    lua_pop(L, 1);
    return *events;
}

int Release(lua_State* L) {
    static_cast<Events*>(lua_touserdata(L, 1))->~Events();
    return 0;
}

RValue MapReference(int index) {
    return {{static_cast<double>(index)}, 0, VALUE_REAL | KIND_DS_MAP};
}

/// Hands the oldest event that nobody awaits to the handler.
/// @return false where there is none, or no handler.
bool HandleOne(lua_State* L, Events* events) {
    int top = lua_gettop(L);
    bool none = events->IsNestedDeep() || lua_rawgetp(L, LUA_REGISTRYINDEX, &kHandler) == LUA_TNIL;
    if (none) {
        lua_settop(L, top);
        return false;
    }
    std::optional<ASYNC_EVENT> event = events->TakeUnawaited();
    if (!event) {
        lua_settop(L, top);
        return false;
    }
    EventOwner owner(*event);
    if (event->m_map < 0) Raise(L, "not enough memory for the event of request %d", event->m_request);
    PushProxyOf(L, MapReference(event->m_map));
    lua_call(L, 1, 0);
    return true;
}

/// One step of the loop: an event is handled, or waited for.
/// @return false where none was there and none has come.
bool Step(lua_State* L, Events* events, int milliseconds) {
    bool stepped = HandleOne(L, events) || events->Wait(milliseconds);
    Interruptible::Check(L);
    return stepped;
}

// --- kx.await -------------------------------------------------------------------------------------------------------

class Await {
public:
    Await(Events* events, int request) : m_events(*events) { m_events.BeginAwait(request); }
    Await(const Await&) = delete;
    Await& operator=(const Await&) = delete;
    ~Await() { m_events.EndAwait(); }

private:
    Events& m_events;
};

/// When the wait is over; nothing for as long as it takes.
std::optional<Clock::time_point> CheckDeadline(lua_State* L, int index) {
    constexpr double kLongest = 1e9;
    double seconds = luaL_optnumber(L, index, HUGE_VAL);
    luaL_argcheck(L, seconds >= 0, index, "seconds are 0 or more");
    if (seconds > kLongest) return std::nullopt;
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

int MillisecondsUntil(const std::optional<Clock::time_point>& deadline) {
    constexpr std::chrono::milliseconds kLongest{1000 * 1000};
    if (!deadline) return -1;
    auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), kLongest).count());
}

int PushNothing(lua_State* L, const char* why) {
    lua_pushnil(L);
    lua_pushstring(L, why);
    return 2;
}

/// Pushes a map as a plain table, an empty one for a map that is not there.
void PushFields(lua_State* L, int map) {
    PushProxyOf(L, MapReference(map));
    if (lua_isnil(L, -1)) {
        lua_newtable(L);
    } else {
        PushTableOf(L, lua_gettop(L));
    }
    lua_remove(L, -2);
}

/// Pushes an event as a plain table, the header fields a table in it.
int PushAwaited(lua_State* L, const ASYNC_EVENT& event) {
    EventOwner owner(event);
    if (event.m_map < 0) return PushNothing(L, "not enough memory for the event");
    PushFields(L, event.m_map);
    PushFields(L, event.m_headers);
    lua_setfield(L, -2, "response_headers");
    return 1;
}

/// kx.await(id [, seconds]): the event of a request; nil, and why, where it does not come.
int AwaitEvent(lua_State* L) {
    int request = ToInt32(luaL_checknumber(L, 1));
    std::optional<Clock::time_point> deadline = CheckDeadline(L, 2);
    lua_settop(L, 2);
    Events& events = EventsOf(L);
    Await await(&events, request);
    for (int left = -1;;) {
        if (std::optional<ASYNC_EVENT> event = events.Take(request)) return PushAwaited(L, *event);
        if (!events.WillCome(request)) return PushNothing(L, "no such request is in flight");
        if (left == 0) return PushNothing(L, "timeout");
        left = MillisecondsUntil(deadline);
        bool stepped = Step(L, &events, left);
        while (stepped && left == 0 && events.Wait(0)) {
            // what has come in time counts, however much of it there is
        }
    }
}

/// kx.on_async(function): what is called with every event that nobody awaits; nil for nothing.
int OnAsync(lua_State* L) {
    lua_settop(L, 1);
    if (!lua_isnil(L, 1)) luaL_checktype(L, 1, LUA_TFUNCTION);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &kHandler);
    return 0;
}

int Run(lua_State* L) {
    Events& events = EventsOf(L);
    while (Step(L, &events, -1) || LoadSave::RequestsInFlight() > 0) {
    }
    return 0;
}

int RunReady(lua_State* L) {
    Events& events = EventsOf(L);
    while (Step(L, &events, 0)) {
    }
    return 0;
}

}  // namespace

void OpenEvents(lua_State* L) {
    new (lua_newuserdatauv(L, sizeof(Events), 0)) Events;
    lua_newtable(L);
    lua_pushcfunction(L, Release);
    lua_setfield(L, -2, "__gc");
    lua_setmetatable(L, -2);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &kEvents);
    const luaL_Reg functions[] = {{"on_async", Guarded<OnAsync>}, {"await", Guarded<AwaitEvent>}, {nullptr, nullptr}};
    luaL_setfuncs(L, functions, 0);
}

int RunEvents(lua_State* L) {
    return Guarded<Run>(L);
}

int RunReadyEvents(lua_State* L) {
    return Guarded<RunReady>(L);
}

}  // namespace kx
