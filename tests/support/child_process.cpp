// Child processes of the test binary: posix_spawn/waitpid/kill on Linux,
// CreateProcessW/WaitForSingleObject/TerminateProcess on Windows.
#include "child_process.h"

#include <gtest/gtest.h>

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
#  include <sys/types.h>
#  include <sys/wait.h>
#  include <unistd.h>
extern char** environ;
#endif

namespace vardo_test {

namespace {

const char kRoleVariable[] = "VARDO_CHILD_ROLE";

bool hasVariable(const std::vector<std::pair<std::string, std::string>>& env, const std::string& name)
{
    for (const auto& kv : env)
        if (kv.first == name)
            return true;
    return false;
}

#if defined(_WIN32)
std::wstring widen(const std::string& s)
{
    if (s.empty())
        return std::wstring();
    int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), (int)s.size(), nullptr, 0);
    std::wstring w(n, L'\0');
    MultiByteToWideChar(CP_UTF8, 0, s.data(), (int)s.size(), &w[0], n);
    return w;
}

std::string narrow(const std::wstring& w)
{
    if (w.empty())
        return std::string();
    int n = WideCharToMultiByte(CP_UTF8, 0, w.data(), (int)w.size(), nullptr, 0, nullptr, nullptr);
    std::string s(n, '\0');
    WideCharToMultiByte(CP_UTF8, 0, w.data(), (int)w.size(), &s[0], n, nullptr, nullptr);
    return s;
}

// One argument quoted for CommandLineToArgvW's rules.
std::wstring quoteArgument(const std::wstring& a)
{
    std::wstring q = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : a) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        // Backslashes before a quote are doubled and the quote escaped; elsewhere literal.
        q.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        q.push_back(c);
    }
    q.append(backslashes * 2, L'\\');
    q.push_back(L'"');
    return q;
}
#endif

} // namespace

ChildProcess::ChildProcess(ChildProcess&& o) noexcept
    : m_started(o.m_started), m_reaped(o.m_reaped), m_exitCode(o.m_exitCode), m_id(o.m_id),
      m_handle(o.m_handle)
{
    o.m_started = false;
    o.m_handle = nullptr;
}

ChildProcess& ChildProcess::operator=(ChildProcess&& o) noexcept
{
    if (this != &o) {
        if (running())
            kill(*this);
#if defined(_WIN32)
        if (m_handle)
            CloseHandle(m_handle);
#endif
        m_started = o.m_started;
        m_reaped = o.m_reaped;
        m_exitCode = o.m_exitCode;
        m_id = o.m_id;
        m_handle = o.m_handle;
        o.m_started = false;
        o.m_handle = nullptr;
    }
    return *this;
}

ChildProcess::~ChildProcess()
{
    if (running())
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
    DWORD n = GetModuleFileNameW(nullptr, &buffer[0], (DWORD)buffer.size());
    buffer.resize(n);
    return narrow(buffer);
}

ChildProcess spawnSelf(const std::string& gtestFilter,
                       const std::vector<std::pair<std::string, std::string>>& extraEnv)
{
    ChildProcess child;
    std::vector<std::pair<std::string, std::string>> env = extraEnv;
    if (!hasVariable(env, kRoleVariable))
        env.emplace_back(kRoleVariable, gtestFilter);

    // The current environment without the overridden names, then the extra variables.
    std::wstring block;
    if (wchar_t* current = GetEnvironmentStringsW()) {
        for (const wchar_t* p = current; *p; p += wcslen(p) + 1) {
            std::wstring entry(p);
            size_t eq = entry.find(L'=', 1);
            std::wstring name = entry.substr(0, eq);
            bool overridden = false;
            for (const auto& kv : env)
                if (_wcsicmp(widen(kv.first).c_str(), name.c_str()) == 0)
                    overridden = true;
            if (!overridden) {
                block += entry;
                block.push_back(L'\0');
            }
        }
        FreeEnvironmentStringsW(current);
    }
    for (const auto& kv : env) {
        block += widen(kv.first) + L"=" + widen(kv.second);
        block.push_back(L'\0');
    }
    block.push_back(L'\0');

    std::wstring exe = widen(selfPath());
    std::wstring commandLine = quoteArgument(exe) + L" " + quoteArgument(widen("--gtest_filter=" + gtestFilter));
    STARTUPINFOW si;
    ZeroMemory(&si, sizeof si);
    si.cb = sizeof si;
    PROCESS_INFORMATION pi;
    ZeroMemory(&pi, sizeof pi);
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

int wait(ChildProcess& child)
{
    if (!child.m_started)
        return -1;
    if (child.m_reaped)
        return child.m_exitCode;
    WaitForSingleObject(child.m_handle, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(child.m_handle, &code);
    child.m_exitCode = (int)code;
    child.m_reaped = true;
    return child.m_exitCode;
}

void kill(ChildProcess& child)
{
    if (!child.running())
        return;
    TerminateProcess(child.m_handle, 137);
    wait(child);
}

const char* childArg(const char* name)
{
    static std::mutex lock;
    static std::map<std::string, std::string> values;
    const wchar_t* v = _wgetenv(widen(name).c_str());
    if (!v)
        return nullptr;
    std::lock_guard<std::mutex> guard(lock);
    std::string& slot = values[name];
    slot = narrow(v);
    return slot.c_str();
}

#else

std::string selfPath()
{
    std::string path(4096, '\0');
    ssize_t n = readlink("/proc/self/exe", &path[0], path.size() - 1);
    path.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return path;
}

ChildProcess spawnSelf(const std::string& gtestFilter,
                       const std::vector<std::pair<std::string, std::string>>& extraEnv)
{
    ChildProcess child;
    std::vector<std::pair<std::string, std::string>> env = extraEnv;
    if (!hasVariable(env, kRoleVariable))
        env.emplace_back(kRoleVariable, gtestFilter);

    std::vector<std::string> entries;
    for (char** e = environ; e && *e; ++e) {
        const char* eq = std::strchr(*e, '=');
        std::string name = eq ? std::string(*e, static_cast<size_t>(eq - *e)) : std::string(*e);
        if (!hasVariable(env, name))
            entries.emplace_back(*e);
    }
    for (const auto& kv : env)
        entries.push_back(kv.first + "=" + kv.second);
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

int wait(ChildProcess& child)
{
    if (!child.m_started)
        return -1;
    if (child.m_reaped)
        return child.m_exitCode;
    int status = 0;
    pid_t r;
    do {
        r = waitpid(static_cast<pid_t>(child.m_id), &status, 0);
    } while (r < 0 && errno == EINTR);
    if (r < 0)
        child.m_exitCode = -1;
    else if (WIFEXITED(status))
        child.m_exitCode = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        child.m_exitCode = 128 + WTERMSIG(status);
    else
        child.m_exitCode = -1;
    child.m_reaped = true;
    return child.m_exitCode;
}

void kill(ChildProcess& child)
{
    if (!child.running())
        return;
    ::kill(static_cast<pid_t>(child.m_id), SIGKILL);
    wait(child);
}

const char* childArg(const char* name)
{
    return std::getenv(name);
}

#endif

bool isChild()
{
    return childArg(kRoleVariable) != nullptr;
}

} // namespace vardo_test
