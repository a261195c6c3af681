#include "locale_support.h"

#include <clocale>
#include <cstdlib>
#include <string>

namespace vardo_test {

static bool generate(const std::string& name)
{
#if defined(_WIN32)
    (void)name;
    return false;
#else
    // "zh_CN.GBK" -> localedef -i zh_CN -f GBK DIR/zh_CN.GBK
    size_t dot = name.find('.');
    if (dot == std::string::npos)
        return false;
    const std::string dir = "/tmp/vardo-test-locales";
    const std::string cmd = "mkdir -p " + dir + " && localedef -i " + name.substr(0, dot) + " -f " +
                            name.substr(dot + 1) + " " + dir + "/" + name + " >/dev/null 2>&1";
    if (std::system(cmd.c_str()) != 0 && std::system(("test -d " + dir + "/" + name).c_str()) != 0)
        return false;
    setenv("LOCPATH", dir.c_str(), 1);
    return true;
#endif
}

#if defined(_WIN32)
// The Windows C run-time names locales by language and code page.
static const char* windowsName(const std::string& name)
{
    if (name.compare(0, 5, "zh_CN") == 0)
        return ".936";
    if (name.compare(0, 5, "de_DE") == 0)
        return "German_Germany.1252";
    return nullptr;
}
#endif

ScopedLocale::ScopedLocale(const char* name) : m_ok(false)
{
    if (std::setlocale(LC_ALL, name)) {
        m_ok = true;
        return;
    }
#if defined(_WIN32)
    const char* alt = windowsName(name);
    if (alt && std::setlocale(LC_ALL, alt)) {
        m_ok = true;
        return;
    }
#endif
    if (generate(name) && std::setlocale(LC_ALL, name))
        m_ok = true;
}

ScopedLocale::~ScopedLocale() { std::setlocale(LC_ALL, "C"); }

} // namespace vardo_test
