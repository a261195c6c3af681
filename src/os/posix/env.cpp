// Environment variables on Linux: bytes, taken as UTF-8.
#include "os/os_env.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace Vardo400 {
namespace os {

static bool toBytes(const SWCharString& s, std::vector<char>& out)
{
    unsigned int bound = s.getNBytesForUTF8();
    out.assign(static_cast<size_t>(bound) + 1, 0);
    unsigned int n = s.toUTF8(reinterpret_cast<unsigned char*>(out.data()), bound);
    if (n == 0xFFFFFFFFu || n > bound)
        return false;
    out.resize(n + 1);
    out[n] = 0;
    return true;
}

static SWCharString fromBytes(const char* s)
{
    SWCharString out;
    if (out.fromUTF8(reinterpret_cast<const unsigned char*>(s)))
        return out;
    // Not UTF-8: keep every byte as one unit (Latin-1) rather than lose the value.
    out.empty();
    out.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return out;
}

bool envGet(const SWCharString& name, SWCharString& value)
{
    std::vector<char> n;
    if (!toBytes(name, n))
        return false;
    const char* v = std::getenv(n.data());
    if (!v)
        return false;
    value = fromBytes(v);
    return true;
}

bool envSet(const SWCharString& name, const SWCharString* value)
{
    std::vector<char> n;
    if (!toBytes(name, n))
        return false;
    if (!value)
        return unsetenv(n.data()) == 0;
    std::vector<char> v;
    if (!toBytes(*value, v))
        return false;
    return setenv(n.data(), v.data(), 1) == 0;
}

} // namespace os
} // namespace Vardo400
