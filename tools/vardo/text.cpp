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

} // namespace vardo_tool
