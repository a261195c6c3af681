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

ScopedLocale::ScopedLocale(const char* name) : m_ok(false)
{
    if (std::setlocale(LC_ALL, name)) {
        m_ok = true;
        return;
    }
    if (generate(name) && std::setlocale(LC_ALL, name))
        m_ok = true;
}

ScopedLocale::~ScopedLocale() { std::setlocale(LC_ALL, "C"); }

} // namespace vardo_test
