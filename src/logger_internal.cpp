// InternalLogger: the built-in file logger, and the file-name helpers of the logger.
#include "vardo/slogger.h"
#include "vardo/csiprocess.h"
#include "vardo/registry.h"
#include "vardo/sdatetime.h"
#include "vardo/sfilesys.h"

#include "logger_internal.h"
#include "os/os_exepath.h"
#include "os/os_logappend.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

namespace Vardo400 {

namespace logger_detail {

SWCharString baseName(const SWCharString& path)
{
    const unsigned short* p = path.data();
    unsigned int n = path.getLength();
    unsigned int start = 0;
    for (unsigned int i = 0; i < n; ++i)
        if (p[i] == '/' || p[i] == '\\')
            start = i + 1;
    unsigned int end = n;
    for (unsigned int i = n; i > start; --i)
        if (p[i - 1] == '.') {
            end = i - 1;
            break;
        }
    return path.mid(start, end - start);
}

SWCharString executableBaseName()
{
    return baseName(os::executablePath());
}

} // namespace logger_detail

namespace {

const uint32_t kDefaultMaxFileSize = 500000;
const char kHeader[] = "Timestamp\tProcessID\tThreadID\tMessage\r\n";

SWCharString ascii(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

// Parses an unsigned 32-bit decimal number, nothing else around it.
bool parseSize(const SWCharString& value, uint32_t& out)
{
    const unsigned short* p = value.data();
    unsigned int n = value.getLength();
    if (n == 0 || n > 10)
        return false;
    uint64_t v = 0;
    for (unsigned int i = 0; i < n; ++i) {
        if (p[i] < '0' || p[i] > '9')
            return false;
        v = v * 10 + (p[i] - '0');
    }
    if (v > 0xFFFFFFFFull)
        return false;
    out = static_cast<uint32_t>(v);
    return true;
}

SWCharString stripTrailingSlash(const SWCharString& dir)
{
    unsigned int n = dir.getLength();
    if (n > 1 && (dir.data()[n - 1] == '\\' || dir.data()[n - 1] == '/'))
        return dir.left(n - 1);
    return dir;
}

void appendUtf8(std::string& out, const SWCharString& s)
{
    unsigned int room = s.getNBytesForUTF8();
    if (room == 0 || room == 0xFFFFFFFFu)
        return;
    size_t at = out.size();
    out.resize(at + room + 1);
    unsigned int n = s.toUTF8(reinterpret_cast<unsigned char*>(&out[at]), room);
    out.resize(n == 0xFFFFFFFFu ? at : at + n);
}

// As appendUtf8; plain ASCII, what nearly every trace is, is tested and then narrowed in
// two plain loops without early exits, skipping the conversion's length pass.
void appendMessage(std::string& out, const SWCharString& s)
{
    const unsigned short* p = s.data();
    const unsigned int n = s.getLength();
    unsigned int high = 0;
    for (unsigned int i = 0; i < n; ++i)
        high |= p[i];
    if (high >= 0x80) {
        appendUtf8(out, s);
        return;
    }
    char chunk[256];
    for (unsigned int done = 0; done < n;) {
        const unsigned int k =
            n - done < sizeof chunk ? n - done : static_cast<unsigned int>(sizeof chunk);
        for (unsigned int i = 0; i < k; ++i)
            chunk[i] = static_cast<char>(p[done + i]);
        out.append(chunk, k);
        done += k;
    }
}

void appendDecimal(std::string& out, unsigned long long v)
{
    char buf[24];
    char* p = buf + sizeof buf;
    do {
        *--p = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v);
    out.append(p, static_cast<size_t>(buf + sizeof buf - p));
}

// "PID\tTID": asked of the system once per thread (and again in a forked child).
struct Ids {
    uint32_t generation = 0;
    char text[24] = {0};
    size_t length = 0;
};

void appendIds(std::string& out, Ids& ids)
{
    const uint32_t generation = os::processGeneration();
    if (ids.generation != generation) {
        std::string t;
        appendDecimal(t, CSIProcess::GetCurrentProcessId());
        t += '\t';
        appendDecimal(t, CSIProcess::GetCurrentThreadId());
        ids.length = t.size() < sizeof ids.text ? t.size() : sizeof ids.text - 1;
        std::memcpy(ids.text, t.data(), ids.length);
        ids.generation = generation;
    }
    out.append(ids.text, ids.length);
}

// "Sun Nov 22 17:04:05 2026": the C library's asctime form of the UTC second, built
// here because asctime and gmtime share static buffers between threads. The text of the
// last second is kept per thread, since most lines share their second with the one before.
struct Stamp {
    int64_t second = -1;
    char text[32] = {0};
    size_t length = 0;
};

void appendUtcStamp(std::string& out, Stamp& last)
{
    // The stamp shows whole seconds: the C library's seconds clock, what asctime(gmtime(
    // time())) shows, costs less than the millisecond clock.
    const int64_t second = static_cast<int64_t>(std::time(nullptr));
    if (second != last.second) {
        const SDateTime now = SDateTime::fromUnixMillis(second * 1000);
        static const char* const days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
        static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
        int y = 0, mo = 1, d = 1, h = 0, mi = 0, s = 0, ms = 0, dow = 1;
        now.getFields(y, mo, d, h, mi, s, ms, dow, false);
        int n = std::snprintf(last.text, sizeof last.text, "%.3s %.3s%3d %.2d:%.2d:%.2d %d",
                              days[(dow + 6) % 7], months[(mo + 11) % 12], d, h, mi, s, y);
        const size_t length = n < 0 ? 0 : static_cast<size_t>(n);
        last.length = length < sizeof last.text ? length : sizeof last.text - 1;
        last.second = second;
    }
    out.append(last.text, last.length);
}

// What a thread keeps from line to line, in one place so that a line finds it with one
// look-up of the thread's storage.
struct LineState {
    std::string line;
    Stamp stamp;
    Ids ids;
    logger_detail::PathCache paths;
};

} // namespace

InternalLogger::InternalLogger()
    : m_bInitialized(false), m_bInitializeRan(false), m_nMaxFileSize(kDefaultMaxFileSize)
{
}

InternalLogger::~InternalLogger() {}

bool InternalLogger::Load(const SWCharString&)
{
    return true;
}

bool InternalLogger::Initialize(const CParamLineArgs& args)
{
    if (m_bInitializeRan)
        return true;
    m_bInitializeRan = true;

    SWCharString file;
    if (!args.Lookup(ascii("logFile"), file) || file.isEmpty()) {
        SWCharString stem = logger_detail::baseName(args.GetProgramName());
        if (stem.isEmpty())
            stem = ascii("quorvane");
        char pid[16];
        std::snprintf(pid, sizeof pid, "%u", CSIProcess::GetCurrentProcessId());
        file = stem + ascii("_") + SDateTime::now().format(ascii("yyyyMMdd_HHmmss"), false) +
               ascii("_") + ascii(pid) + ascii(".log");
    }
    SetParam(ascii("logFile"), file);

    bool usable = true;
    SWCharString dir;
    if (!args.Lookup(ascii("loggingPath"), dir) || dir.isEmpty())
        dir = CompanyRegistry(ascii("Logging")).ReadValue(ascii("loggingPath"));
    if (!dir.isEmpty()) {
        try {
            SFileSys::makeDirectories(dir);
        } catch (...) {
            usable = false;
        }
        if (!usable) {
            std::string shown;
            appendUtf8(shown, dir);
            std::fprintf(stderr,
                         "WARNING: The internal logger could not be initialized.\n"
                         "         The specified path %s is not accessible or does not exist.\n",
                         shown.c_str());
        }
    }
    SetParam(ascii("loggingPath"), dir);

    SWCharString size;
    if (!args.Lookup(ascii("maxLogFileSize"), size) || size.isEmpty())
        size = CompanyRegistry(ascii("Logging")).ReadValue(ascii("MaxLogFileSize"));
    if (!size.isEmpty())
        SetParam(ascii("maxLogFileSize"), size);

    m_bInitialized = usable;
    return m_bInitialized;
}

bool InternalLogger::IsActive()
{
    return m_bInitialized;
}

bool InternalLogger::GetParamList(SIArray<SWCharString>& names)
{
    names.push_back(ascii("logFile"));
    names.push_back(ascii("maxLogFileSize"));
    names.push_back(ascii("loggingPath"));
    return true;
}

bool InternalLogger::SetParam(const SWCharString& name, const SWCharString& value)
{
    if (name == ascii("logFile")) {
        m_paths[0] = value;
        // The other three logs: the same folder and stem, their own extensions.
        SWCharString stem = value;
        const unsigned short* p = value.data();
        for (unsigned int i = value.getLength(); i > 0; --i) {
            if (p[i - 1] == '/' || p[i - 1] == '\\')
                break;
            if (p[i - 1] == '.') {
                stem = value.left(i - 1);
                break;
            }
        }
        m_paths[1] = value.isEmpty() ? value : stem + ascii(".req");
        m_paths[2] = value.isEmpty() ? value : stem + ascii(".wrn");
        m_paths[3] = value.isEmpty() ? value : stem + ascii(".sdk");
        joinPaths();
        return true;
    }
    if (name == ascii("maxLogFileSize"))
        return parseSize(value, m_nMaxFileSize);
    if (name == ascii("loggingPath")) {
        m_loggingPath = stripTrailingSlash(value);
        joinPaths();
        return true;
    }
    return false;
}

bool InternalLogger::GetParam(const SWCharString& name, SWCharString& value)
{
    if (name == ascii("logFile")) {
        for (int i = 0; i < 4; ++i)
            if (m_paths[i].isEmpty())
                return false;
        value = m_paths[0];
        return true;
    }
    if (name == ascii("maxLogFileSize")) {
        char buf[16];
        std::snprintf(buf, sizeof buf, "%u", m_nMaxFileSize);
        value = ascii(buf);
        return true;
    }
    if (name == ascii("loggingPath") && !m_loggingPath.isEmpty()) {
        value = m_loggingPath;
        return true;
    }
    return false;
}

SWCharString InternalLogger::GetFullPath(int type) const
{
    return type < 0 || type > 3 ? SWCharString() : m_fullPaths[type];
}

void InternalLogger::joinPaths()
{
    for (int type = 0; type < 4; ++type)
        m_fullPaths[type] = joinPath(type);
}

SWCharString InternalLogger::joinPath(int type) const
{
    if (m_paths[type].isEmpty())
        return SWCharString();
    // A full path names its file wherever the logging folder is.
    if (m_loggingPath.isEmpty() || SFileSys::isFullPath(m_paths[type]))
        return m_paths[type];
    SWCharString full = m_loggingPath;
    AppendSlashToDir(full, SFileSys::getSeparator());
    return full + m_paths[type];
}

bool InternalLogger::Trace(int type, const SWCharString& message)
{
    if (!m_bInitialized || type < 0 || type > 3)
        return false;
    if (m_paths[type].isEmpty() || m_nMaxFileSize == 0)
        return false;
    try {
        // One buffer per thread, reused line after line.
        thread_local LineState tls;
        LineState& state = tls;
        std::string& line = state.line;
        line.clear();
        char buf[64];
        if (type == 1) {
            const SDateTime now = SDateTime::now();
            int y = 0, mo = 1, d = 1, h = 0, mi = 0, s = 0, ms = 0;
            now.getFields(y, mo, d, h, mi, s, ms, true);
            const long long since2000 = now.toUnixMillis() - 946684800000LL;
            std::snprintf(buf, sizeof buf, "%04d-%02d-%02d\t%02d:%02d:%02d\t%lld\t", y, mo, d, h,
                          mi, s, since2000);
            line += buf;
        } else {
            line += '[';
            appendUtcStamp(line, state.stamp);
            line += "]\t";
            appendIds(line, state.ids);
            line += '\t';
            if (type == 2)
                line += "WARNING\t";
            else if (type == 3)
                line += "SDKREQ\t";
        }
        appendMessage(line, message);
        line += "\r\n";
        const SWCharString& name = m_fullPaths[type];
        logger_detail::AppendResult r =
            logger_detail::appendLine(name, state.paths.get(name), line.data(), line.size(),
                                      type == 0 ? kHeader : nullptr, m_nMaxFileSize);
        return r != logger_detail::appendFailed;
    } catch (...) {
        return false;
    }
}

bool InternalLogger::Log(SLogger::loglevel, SLogger::logcategory, unsigned long,
                         const SIArray<SWCharString>&)
{
    return true;
}

} // namespace Vardo400
