// Child processes of the test binary: posix_spawn/waitpid/kill on Linux,
// CreateProcessW/WaitForSingleObject/TerminateProcess on Windows.
#include "child_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#if defined(_WIN32)
#  include <windows.h>
#else
#  include <csignal>
#  include <spawn.h>
#  include <sys/wait.h>
#  include <unistd.h>
extern char** environ;
#endif

namespace vardo_test {

namespace {

typedef std::vector<std::pair<std::string, std::string>> Variables;

const char kRoleVariable[] = "VARDO_CHILD_ROLE";

#if defined(_WIN32)
std::wstring widen(const std::string& s)
{
    std::wstring w(s.size(), L'\0');   // never more UTF-16 units than UTF-8 bytes
    w.resize(MultiByteToWideChar(CP_UTF8, 0, s.data(), (int)s.size(), &w[0], (int)w.size()));
    return w;
}

std::string narrow(const std::wstring& w)
{
    std::string s(w.size() * 3, '\0');   // at most three UTF-8 bytes per UTF-16 unit
    s.resize(WideCharToMultiByte(CP_UTF8, 0, w.data(), (int)w.size(), &s[0], (int)s.size(), nullptr, nullptr));
    return s;
}
#endif

// Names compare without case, as Windows does (harmless for the tests' own names on Linux).
bool sameName(const std::string& a, const std::string& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return std::toupper((unsigned char)x) == std::toupper((unsigned char)y); });
}

// The current environment without the names that extraEnv or the role override, then those.
std::vector<std::string> childEnvironment(const std::string& gtestFilter, const Variables& extraEnv)
{
    Variables env = extraEnv;
    auto overridden = [&](const std::string& name) {
        return std::any_of(env.begin(), env.end(), [&](const Variables::value_type& kv) { return sameName(kv.first, name); });
    };
    if (!overridden(kRoleVariable))
        env.emplace_back(kRoleVariable, gtestFilter);
    std::vector<std::string> current, entries;
#if defined(_WIN32)
    if (wchar_t* block = GetEnvironmentStringsW()) {
        for (const wchar_t* p = block; *p; p += wcslen(p) + 1)
            current.push_back(narrow(p));
        FreeEnvironmentStringsW(block);
    }
#else
    for (char** e = environ; e && *e; ++e)
        current.emplace_back(*e);
#endif
    for (const std::string& e : current) {
        // From the second character: Windows keeps "=C:=C:\dir" entries.
        if (!overridden(e.substr(0, e.find('=', 1))))
            entries.push_back(e);
    }
    for (const auto& kv : env)
        entries.push_back(kv.first + "=" + kv.second);
    return entries;
}

} // namespace

ChildProcess::ChildProcess(ChildProcess&& o) noexcept
{
    *this = std::move(o);
}

// A swap: the process this object held goes to o, whose destruction ends it.
ChildProcess& ChildProcess::operator=(ChildProcess&& o) noexcept
{
    std::swap(m_started, o.m_started);
    std::swap(m_reaped, o.m_reaped);
    std::swap(m_exitCode, o.m_exitCode);
    std::swap(m_id, o.m_id);
    std::swap(m_handle, o.m_handle);
    return *this;
}

ChildProcess::~ChildProcess()
{
    kill(*this);
#if defined(_WIN32)
    if (m_handle)
        CloseHandle(m_handle);
#endif
}

#if defined(_WIN32)

std::string selfPath()
{
    std::wstring buffer(32768, L'\0');
    buffer.resize(GetModuleFileNameW(nullptr, &buffer[0], (DWORD)buffer.size()));
    return narrow(buffer);
}

ChildProcess spawnSelf(const std::string& gtestFilter, const Variables& extraEnv)
{
    ChildProcess child;
    std::wstring block;
    for (const std::string& e : childEnvironment(gtestFilter, extraEnv)) {
        block += widen(e);
        block.push_back(L'\0');
    }
    block.push_back(L'\0');

    // Neither argument can hold a quote or end in a backslash: plain quotes suffice.
    std::wstring exe = widen(selfPath());
    std::wstring commandLine = L"\"" + exe + L"\" \"--gtest_filter=" + widen(gtestFilter) + L"\"";
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi;
    if (!CreateProcessW(exe.c_str(), &commandLine[0], nullptr, nullptr, FALSE,
                        CREATE_UNICODE_ENVIRONMENT, &block[0], nullptr, &si, &pi)) {
        ADD_FAILURE() << "CreateProcessW failed: " << GetLastError();
        return child;
    }
    CloseHandle(pi.hThread);
    child.m_started = true;
    child.m_handle = pi.hProcess;
    child.m_id = pi.dwProcessId;
    return child;
}

const char* childArg(const char* name)
{
    static std::mutex lock;
    static std::map<std::string, std::string> values;
    const wchar_t* v = _wgetenv(widen(name).c_str());
    if (!v)
        return nullptr;
    std::lock_guard<std::mutex> guard(lock);
    return (values[name] = narrow(v)).c_str();
}

#else

std::string selfPath()
{
    std::string path(4096, '\0');
    ssize_t n = readlink("/proc/self/exe", &path[0], path.size() - 1);
    path.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return path;
}

ChildProcess spawnSelf(const std::string& gtestFilter, const Variables& extraEnv)
{
    ChildProcess child;
    std::vector<std::string> entries = childEnvironment(gtestFilter, extraEnv);
    std::vector<char*> envp;
    for (std::string& s : entries)
        envp.push_back(&s[0]);
    envp.push_back(nullptr);

    std::string exe = selfPath();
    std::string filter = "--gtest_filter=" + gtestFilter;
    char* argv[] = {&exe[0], &filter[0], nullptr};
    pid_t pid = 0;
    int rc = posix_spawn(&pid, exe.c_str(), nullptr, nullptr, argv, envp.data());
    if (rc != 0) {
        ADD_FAILURE() << "posix_spawn failed: " << std::strerror(rc);
        return child;
    }
    child.m_started = true;
    child.m_id = pid;
    return child;
}

const char* childArg(const char* name)
{
    return std::getenv(name);
}

#endif

int wait(ChildProcess& child)
{
    if (!child.m_started)
        return -1;
    if (!child.m_reaped) {
#if defined(_WIN32)
        WaitForSingleObject(child.m_handle, INFINITE);
        DWORD code = 0;
        GetExitCodeProcess(child.m_handle, &code);
        child.m_exitCode = (int)code;
#else
        int status = 0;
        pid_t r;
        do {
            r = waitpid(static_cast<pid_t>(child.m_id), &status, 0);
        } while (r < 0 && errno == EINTR);
        child.m_exitCode = r < 0 ? -1
                           : WIFEXITED(status) ? WEXITSTATUS(status)
                           : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
#endif
        child.m_reaped = true;
    }
    return child.m_exitCode;
}

void kill(ChildProcess& child)
{
    if (!child.running())
        return;
#if defined(_WIN32)
    TerminateProcess(child.m_handle, 137);
#else
    ::kill(static_cast<pid_t>(child.m_id), SIGKILL);
#endif
    wait(child);
}

bool isChild()
{
    return childArg(kRoleVariable) != nullptr;
}

} // namespace vardo_test
