#include "locale_support.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>

namespace vardo_test {

// The name under which the platform can have the locale after all, or null.
static const char* fallbackName(const char* name)
{
#if defined(_WIN32)
    // The Windows C run-time names locales by language and code page.
    if (std::strncmp(name, "zh_CN", 5) == 0)
        return ".936";
    if (std::strncmp(name, "de_DE", 5) == 0)
        return "German_Germany.1252";
    return nullptr;
#else
    // "zh_CN.GBK" -> localedef -i zh_CN -f GBK DIR/zh_CN.GBK, found there through LOCPATH.
    const std::string full(name), dir = "/tmp/vardo-test-locales";
    const size_t dot = full.find('.');
    if (dot == std::string::npos)
        return nullptr;
    const std::string cmd = "mkdir -p " + dir + " && localedef -i " + full.substr(0, dot) + " -f " +
                            full.substr(dot + 1) + " " + dir + "/" + full + " >/dev/null 2>&1";
    if (std::system(cmd.c_str()) != 0 && std::system(("test -d " + dir + "/" + full).c_str()) != 0)
        return nullptr;
    setenv("LOCPATH", dir.c_str(), 1);
    return name;
#endif
}

ScopedLocale::ScopedLocale(const char* name) : m_ok(std::setlocale(LC_ALL, name) != nullptr)
{
    const char* alt = m_ok ? nullptr : fallbackName(name);
    if (alt)
        m_ok = std::setlocale(LC_ALL, alt) != nullptr;
}

ScopedLocale::~ScopedLocale() { std::setlocale(LC_ALL, "C"); }

} // namespace vardo_test
