// vardo demo: a short tour of what the library offers, each line computed live.
#include "command.h"

#include <vardo/vardo.h>

#include <algorithm>
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

std::string hex(const char* bytes, unsigned n)
{
    std::string out;
    char b[4];
    for (unsigned i = 0; i < n; ++i) {
        std::snprintf(b, sizeof b, "%s%02X", i ? " " : "", static_cast<unsigned char>(bytes[i]));
        out += b;
    }
    return out;
}

void conversions()
{
    heading("conversions and code pages");
    SWCharString text = T("€ 5 für Ωmega 😀");
    std::printf("text: %s (%u UTF-16 units)\n", utf8(text).c_str(), text.getLength());
    std::printf("as UTF-8: %u bytes\n", text.getNBytesForUTF8());
    const MBCSCodesetConverter::ExplicitCodeset sets[] = {
        MBCSCodesetConverter::USASCIICodeset, MBCSCodesetConverter::ISO88591Codeset,
        MBCSCodesetConverter::Windows1252Codeset};
    for (MBCSCodesetConverter::ExplicitCodeset cs : sets) {
        char buf[64] = {0};
        unsigned n = MBCSCodesetConverter::TToExplicitCodeset(T("€ für"), cs, buf, sizeof buf);
        std::printf("\"€ für\" in %s: %s\n", MBCSCodesetConverter::getCodesetName(cs),
                    hex(buf, n ? n - 1 : 0).c_str());
    }
    const char bad[] = "ok \xC0\xAE bytes";
    std::printf("overlong UTF-8 \"C0 AE\" read through code set 1: \"%s\"\n",
                utf8(MBCSCodesetConverter::ExplicitCodesetToT(bad, MBCSCodesetConverter::UTF8Codeset))
                    .c_str());
}

void numbers()
{
    heading("locale-neutral numbers");
    double d = 0;
    bool ok = NeutralString::ToNumber(T("-1234.5e-1"), d);
    std::printf("ToNumber(\"-1234.5e-1\") -> %s %s\n", ok ? "true" : "false",
                utf8(NeutralString::FromNumber(d)).c_str());
    int i = 0;
    std::printf("ToNumber(\"12,5\") as int -> %s (a comma is never a decimal point)\n",
                NeutralString::ToNumber(T("12,5"), i) ? "true" : "false");
    long long big = 0;
    NeutralString::ToNumber(T("9223372036854775807"), big);
    std::printf("FromNumber(long long max) -> %s\n", utf8(NeutralString::FromNumber(big)).c_str());
}

void words()
{
    heading("word splitting");
    SIArray<SWCharString> w;
    SStringHelper::makeWords(T("copy \"My Documents\" backup;daily"), w, T(" ;"), true, false);
    std::printf("makeWords with quotes:");
    for (const SWCharString& x : w)
        std::printf(" [%s]", utf8(x).c_str());
    std::printf("\n");
    w.clear();
    SStringHelper::makeWords(T("a,b,,c"), w, T(","), false, true);
    std::printf("keeping separators:");
    for (const SWCharString& x : w)
        std::printf(" [%s]", utf8(x).c_str());
    std::printf("\n");
}

void commandLines()
{
    heading("command lines");
    CParamLineArgs args(T("server.exe -trace -logFile \"C:\\Logs\\my server.log\" --PORT 8080"));
    SWCharString v;
    std::printf("program: %s\n", utf8(args.GetProgramName()).c_str());
    bool found = args.Lookup(T("port"), v);
    std::printf("Lookup(\"port\") ignores case: %s = %s\n", found ? "found" : "missing", utf8(v).c_str());
    std::printf("Lookup(\"logfile\"): %s\n", args.Lookup(T("logfile"), v) ? utf8(v).c_str() : "missing");
    std::printf("GetCmdLine: %s\n", utf8(args.GetCmdLine()).c_str());
}

void configFiles()
{
    heading("configuration files");
    ConfigFileReader cfg;
    cfg.initializeFromText(T("; comment\n[server]\nport=8080\nname = main\n[server]\nport=9090\n[mail]\nhost=localhost\n"));
    SIArray<SWCharString> sections;
    cfg.getSections(sections);
    std::printf("sections in file order:");
    for (const SWCharString& x : sections)
        std::printf(" %s", utf8(x).c_str());
    std::printf("\n");
    std::printf("server/port (the last section of a name decides): %s\n",
                utf8(cfg.getValue(T("server"), T("port"), T("none"))).c_str());
    std::printf("server/name (not in the last [server]): %s\n",
                utf8(cfg.getValue(T("server"), T("name"), T("none"))).c_str());
}

// The registry tour writes only into a store of its own in a scratch folder.
void registry(const SWCharString& scratch)
{
    heading("registry (a scratch store, not the machine's)");
    SWCharString home = scratch + T("/registry");
    SFileSys::makeDirectories(home);
    SEnv::set(T("NEBU_REGISTRYHOME"), home);
    Registry key(T("Demo"));
    key.WriteValue(T("Greeting"), T("hello"));
    key.WriteValue(T("Count"), 42ul);
    std::printf("wrote Greeting and Count below the company key; read back: %s, %s\n",
                utf8(key.ReadValue(T("Greeting"))).c_str(), utf8(key.ReadValue(T("Count"))).c_str());
    std::printf("a missing value reads as empty text: \"%s\"\n", utf8(key.ReadValue(T("Missing"))).c_str());
    key.DeleteKeyRecursive();
}

void lockFiles(const SWCharString& scratch)
{
    heading("lock files");
    SWCharString path = scratch + T("/demo.lock");
    SFileLock first(path, 300, 50, true);
    SFileLock second(path, 300, 2, false);
    int taken = first.lock();
    int refused = second.lock();
    std::printf("first lock: %d; second, 2 polls while held: %d (gave up)\n", taken, refused);
    int released = first.unlock();
    int retaken = second.lock();
    std::printf("first unlock: %d; second lock now: %d\n", released, retaken);
    second.unlock();
}

void compression()
{
    heading("compression");
    SAsciiString text;
    for (int i = 0; i < 200; ++i)
        text += "the same line again and again; ";
    SSimpleBuffer packed;
    int rc = SCompression::compress_buffer(text, packed, 9);
    std::printf("%u bytes of repeated text -> %u bytes at level 9 (code %d); header (big-endian length): %s\n",
                text.getLength(), static_cast<unsigned>(packed.size()), rc,
                hex(reinterpret_cast<const char*>(packed.data()), 4).c_str());
    SAsciiString back;
    rc = SCompression::decompress_buffer(packed, back);
    std::printf("decompressed: code %d, %s\n", rc, back == text ? "identical" : "DIFFERENT");
    unsigned char claim[] = {0xFF, 0xFF, 0xFF, 0xFF, 0x78, 0x9C, 0x03, 0x00, 0x00, 0x00, 0x00, 0x01};
    SSimpleBuffer bogus(claim, sizeof claim);
    SSimpleBuffer none;
    std::printf("a 4 GB claim on a %u-byte buffer: code %d, nothing allocated\n", static_cast<unsigned>(sizeof claim),
                SCompression::decompress_buffer(bogus, none));
}

void encryption()
{
    heading("encryption (through the WrapCryptoC provider)");
    SCrypt crypt;
    if (!crypt.Init()) {
        std::printf("the provider is not available: %s\n", StrongEncryptionException::ReasonText(1));
        return;
    }
    SCrypt::Key key;
    crypt.makeKey(T("correct horse battery staple"), key);
    SSimpleBuffer sealed;
    crypt.encrypt(T("Grüße, secret text"), key, sealed);
    std::printf("18 characters -> %u bytes, format version %d\n", static_cast<unsigned>(sealed.size()),
                SCrypt::getHeaderVersion(sealed.data(), static_cast<uint32_t>(sealed.size())));
    SWCharString opened;
    int status = crypt.decrypt(sealed, key, opened);
    std::printf("decrypted with the right key: status %d \"%s\"\n", status, utf8(opened).c_str());
    SCrypt::Key wrong;
    crypt.makeKey(T("wrong"), wrong);
    status = crypt.decrypt(sealed, wrong, opened);
    std::printf("with a wrong key: status %d (%s)\n", status, StrongEncryptionException::ReasonText(status));
}

void logging(const SWCharString& scratch)
{
    heading("logger, trace and stack walk");
    SWCharString logFile = scratch + T("/demo.log");
    CParamLineArgs args(T("vardo -trace -logFile \"") + logFile + T("\""));
    SLogger::Initialize(args, false);
    std::printf("options in effect: %s\n", utf8(SLogger::GetCmdLine()).c_str());
    STrace("demo trace with %s and %d", T("text"), 42);
    VARDO_ASSERT_TEXT("a failed check is reported and the program goes on");
    SLogger::Terminate();
    SFile f(logFile);
    f.open(SFile::readOnly, 0, SFile::denyNothing);
    int n = 0;
    while (!f.eof()) {
        SWCharString line = f.readLine();
        if (n++ < 3)
            std::printf("  %s\n", utf8(line).c_str());
    }
    std::printf("%d lines in the main log\n", n);
    SWCharString walk;
    SStackWalk::StackWalkAll(walk, 0);
    // Frames without line information follow one another on one line: cut at the next "0x".
    std::string frames = utf8(walk);
    size_t next = frames.find("0x", 2);
    std::printf("innermost frame of a live stack walk: %s\n", frames.substr(0, std::min(next, frames.find('\n'))).c_str());
}

void network()
{
    heading("sockets");
    if (!CSISocket::initialize()) {
        std::printf("sockets are not available here\n");
        return;
    }
    unsigned long address = 0;
    std::printf("isValidIPAddrString(\"127.0.0.1\"): %s; (\"127.0.0.256\"): %s\n",
                CSISocket::isValidIPAddrString(T("127.0.0.1"), &address) ? "true" : "false",
                CSISocket::isValidIPAddrString(T("127.0.0.256"), nullptr) ? "true" : "false");
    std::printf("localhost resolves: %s\n", CSISocket::gethostbyname(T("localhost"), address) ? "yes" : "no");
    // Port 1 on loopback has no listener here: the refusal carries Winsock's number on
    // every platform.
    CSITcpSocket closed(SAnsiString("127.0.0.1"), 1);
    bool opened = closed.TcpOpen();
    std::printf("connect to 127.0.0.1:1: %s, %s\n", opened ? "open" : "refused", utf8(CSISocket::getLastErrorStr()).c_str());
    closed.AbortSocket();
    CSISocket::uninitialize();
}

int demo(const std::vector<std::string>&)
{
    std::printf("%s %s (%s)\n", LibraryName(), LibraryVersion(), LibraryPlatform());
    strings();
    conversions();
    numbers();
    words();
    commandLines();
    configFiles();
    threads();
    files();
    network();
    try {
        SWCharString scratch = SFileSys::getUniqueDirname(SFileSys::getTempDirname(), T("vardo_demo_"), true);
        registry(scratch);
        lockFiles(scratch);
        compression();
        encryption();
        logging(scratch);
        SFileSys::rremove(scratch);
    } catch (const SException& e) {
        std::printf("scratch folder: %s\n", utf8(e.summary()).c_str());
    }
    return 0;
}

} // namespace

VARDO_TOOL_COMMAND(demo, "demo", "demo          a short tour of what the library offers", demo);
