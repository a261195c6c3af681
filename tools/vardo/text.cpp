// Text at the tool's edges: command-line words in, console lines out, both UTF-8.
#include "command.h"

namespace vardo_tool {

using Vardo400::SWCharString;

SWCharString argToText(const std::string& arg)
{
    SWCharString s;
    if (arg.empty() || s.fromUTF8(reinterpret_cast<const unsigned char*>(arg.c_str())))
        return s;
    if (s.fromMBCS(arg.c_str()))
        return s;
    s.empty();
    for (unsigned char c : arg)
        s += Vardo400::SWChar(static_cast<unsigned short>(c < 0x80 ? c : '?'));
    return s;
}

std::string utf8(const SWCharString& s)
{
    std::string out(s.getNBytesForUTF8() + 1, '\0');
    const unsigned int n = s.toUTF8(reinterpret_cast<unsigned char*>(&out[0]), static_cast<unsigned int>(out.size()));
    if (n == 0xFFFFFFFFu)
        return std::string();
    out.resize(n);
    return out;
}

bool parseNumber(const std::string& s, long minimum, long maximum, long& out)
{
    size_t i = !s.empty() && s[0] == '-' ? 1 : 0;
    if (i == s.size() || s.size() - i > 18)
        return false;
    long long v = 0;
    for (; i < s.size(); ++i) {
        if (s[i] < '0' || s[i] > '9')
            return false;
        v = v * 10 + (s[i] - '0');
    }
    if (s[0] == '-')
        v = -v;
    if (v < minimum || v > maximum)
        return false;
    out = static_cast<long>(v);
    return true;
}

} // namespace vardo_tool
