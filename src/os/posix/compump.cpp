// Linux has no COM and no window messages. The pump thread keeps the same life cycle:
// it signals that it runs, then waits until the quit message is posted to it, so owners
// start and stop it exactly as on Windows.
#include "os/os_compump.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <thread>

namespace Vardo400 {
namespace os {

namespace {

// The "message queues": identifiers of pump threads that run, and those told to quit.
struct PumpRegistry {
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::set<uint32_t> m_running;
    std::set<uint32_t> m_quit;
};

PumpRegistry& registry()
{
    static PumpRegistry r;
    return r;
}

struct ThreadStart {
    NativeThreadEntry m_entry;
    void* m_arg;
    std::mutex m_mutex;
    std::condition_variable m_started;
    bool m_bHaveId = false;
    uint32_t m_threadId = 0;
};

} // namespace

void* startNativeThread(NativeThreadEntry entry, void* arg, uint32_t* threadId)
{
    ThreadStart start;
    start.m_entry = entry;
    start.m_arg = arg;
    std::unique_ptr<std::thread> t;
    try {
        t.reset(new std::thread([&start]() {
            NativeThreadEntry e;
            void* a;
            {
                std::lock_guard<std::mutex> g(start.m_mutex);
                e = start.m_entry;
                a = start.m_arg;
                start.m_threadId = currentThreadId();
                start.m_bHaveId = true;
                start.m_started.notify_all();
            }
            // start lives on the creator's stack: not touched after this point.
            e(a);
        }));
    } catch (...) {
        return nullptr;
    }
    {
        std::unique_lock<std::mutex> g(start.m_mutex);
        start.m_started.wait(g, [&start] { return start.m_bHaveId; });
        if (threadId)
            *threadId = start.m_threadId;
    }
    // A std::thread holds no descriptor, so there is nothing a child could inherit.
    return t.release();
}

void joinNativeThread(void* thread)
{
    std::unique_ptr<std::thread> t(static_cast<std::thread*>(thread));
    if (t && t->joinable())
        t->join();
}

bool runMessagePump(SyncHandle ready)
{
    PumpRegistry& r = registry();
    const uint32_t self = currentThreadId();
    {
        std::lock_guard<std::mutex> g(r.m_mutex);
        r.m_running.insert(self);
    }
    setEvent(ready);
    std::unique_lock<std::mutex> g(r.m_mutex);
    r.m_changed.wait(g, [&] { return r.m_quit.count(self) != 0; });
    r.m_quit.erase(self);
    r.m_running.erase(self);
    return true;
}

bool postPumpQuit(uint32_t threadId)
{
    PumpRegistry& r = registry();
    std::lock_guard<std::mutex> g(r.m_mutex);
    if (!r.m_running.count(threadId))
        return false;
    r.m_quit.insert(threadId);
    r.m_changed.notify_all();
    return true;
}

} // namespace os
} // namespace Vardo400
