// vardo demo: a short tour of what the library offers, each line computed live.
#include "command.h"

#include <vardo/vardo.h>

#include <cstdio>
#include <string>

using namespace Vardo400;
using vardo_tool::utf8;

namespace {

SWCharString T(const char* s) { return vardo_tool::argToText(s); }

void heading(const char* title) { std::printf("\n== %s\n", title); }

void strings()
{
    heading("strings");
    SWCharString a = T("Grüße aus Köln");
    SWCharString b(a);
    std::printf("copy shares the buffer: %s (count %d)\n", a.data() == b.data() ? "yes" : "no", a.getRefCount());
    b += T("!");
    std::printf("a write copies first: \"%s\" / \"%s\"\n", utf8(a).c_str(), utf8(b).c_str());
    SWCharString up(a);
    up.toUpper();
    std::printf("toUpper (C locale, ASCII only): %s\n", utf8(up).c_str());
    std::printf("\"b\" < \"aa\" by length first: %s; compare(\"b\", \"aa\") by collation: %d\n",
                T("b") < T("aa") ? "true" : "false", T("b").compare(T("aa")) > 0 ? 1 : -1);
    SWCharString blank = T(" \t padded\xe3\x80\x80");
    blank.trim();
    std::printf("trim (U+3000 is white space): \"%s\"\n", utf8(blank).c_str());
    std::printf("is_alpha(U+00E9)=%d is_space(U+0085)=%d is_punct(U+00BF)=%d is_digit(U+0660)=%d\n",
                is_alpha(0xE9), is_space(0x85), is_punct(0xBF), is_digit(0x660));
    SResString msg("%2 before %1");
    msg << "first" << "second";
    std::printf("SResString: %s\n", utf8(msg.format()).c_str());
}

class Ticker : public TerminatingThread {
public:
    Ticker() : TerminatingThread("ticker"), m_nTicks(0) {}
    void run() override
    {
        do {
            ++m_nTicks;
        } while (!sleep_with_stop_alarm(20));
    }
    SInterlockedInt32s m_nTicks;
};

void threads()
{
    heading("synchronisation and threads");
    std::printf("processors: %d\n", static_cast<int>(SSystem::GetNumberOfProcessors()));
    CRWLock lock;
    {
        CReadLocker r1(&lock);
        CReadLocker r2(&lock);
        std::printf("two readers hold the lock together\n");
    }
    {
        CWriteLocker w(&lock);
        std::printf("a writer holds it alone\n");
    }
    SSemaphore sem(0);
    try {
        sem.wait(0);
    } catch (const SSemaphoreWaitTimeout& e) {
        std::printf("semaphore wait(0) on count 0: %s\n", utf8(e.toString()).c_str());
    }
    Etc1001204::JTCHandleT<Ticker> t(new Ticker());
    t->start();
    CSIProcess::MilliSleep(100);
    t->stop();
    t->join();
    std::printf("terminating thread stopped after %ld ticks\n", static_cast<long>(t->m_nTicks.read()));
}

void files()
{
    heading("files and time");
    std::printf("now (UTC): %s\n", utf8(SDateTime::now().format(T("yyyy-MM-dd@HH:mm:ss.SS"), false)).c_str());
    SWCharString tmp = SFileSys::getTempDirname();
    int64_t avail = 0, total = 0, freeBytes = 0;
    try {
        SFileSys::diskUsageInfo(tmp, avail, total, freeBytes);
        std::printf("temporary folder %s: %lld MB free of %lld MB\n", utf8(tmp).c_str(),
                    static_cast<long long>(freeBytes >> 20), static_cast<long long>(total >> 20));
    } catch (const SException& e) {
        std::printf("disk usage: %s\n", utf8(e.summary()).c_str());
    }
    std::printf("a unique name there: %s\n",
                utf8(SFileSys::getUniqueFilename(tmp, T("demo_"), T(".txt"), false)).c_str());
}

int demo(const std::vector<std::string>&)
{
    std::printf("%s %s (%s)\n", LibraryName(), LibraryVersion(), LibraryPlatform());
    strings();
    threads();
    files();
    return 0;
}

} // namespace

VARDO_TOOL_COMMAND(demo, "demo", "demo          a short tour of what the library offers", demo);
