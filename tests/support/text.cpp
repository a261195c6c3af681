#include "text.h"

#include <cstdio>

namespace vardo_test {

using Vardo400::SWCharString;

SWCharString W(const std::string& utf8)
{
    static const uint32_t least[] = {0, 0x80, 0x800, 0x10000};
    std::u16string out;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8.data());
    const size_t n = utf8.size();
    for (size_t i = 0; i < n;) {
        const unsigned b = p[i];
        const int extra = b < 0x80 ? 0 : b < 0xC2 ? -1 : b < 0xE0 ? 1 : b < 0xF0 ? 2 : b < 0xF5 ? 3 : -1;
        uint32_t c = extra > 0 ? b & (0x3F >> extra) : b;
        bool ok = extra >= 0;
        for (int k = 1; ok && k <= extra; ++k) {
            ok = i + k < n && (p[i + k] & 0xC0) == 0x80;
            if (ok)
                c = (c << 6) | (p[i + k] & 0x3F);
        }
        if (!ok || c < least[extra] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
            out.push_back(u'\uFFFD'); // one per byte
            ++i;
            continue;
        }
        if (c >= 0x10000) {
            out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
            c = 0xDC00 + ((c - 0x10000) & 0x3FF);
        }
        out.push_back(static_cast<char16_t>(c));
        i += static_cast<size_t>(extra) + 1;
    }
    return SWCharString(units(out.c_str()));
}

SWCharString W(const char* utf8) { return W(std::string(utf8 ? utf8 : "")); }

SWCharString W(const char16_t* s) { return SWCharString(units(s)); }

std::string U(const Vardo400::SString_t<unsigned short, 1>& s)
{
    static const unsigned char lead[] = {0, 0xC0, 0xE0, 0xF0};
    std::string out;
    const unsigned short* p = s.data();
    const unsigned n = s.getLength();
    for (unsigned i = 0; i < n; ++i) {
        uint32_t c = p[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n && p[i + 1] >= 0xDC00 && p[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (p[++i] - 0xDC00);
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04X", static_cast<unsigned>(c));
            out += buf;
            continue;
        }
        const int extra = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        out += static_cast<char>(lead[extra] | (c >> (6 * extra)));
        for (int k = extra - 1; k >= 0; --k)
            out += static_cast<char>(0x80 | ((c >> (6 * k)) & 0x3F));
    }
    return out;
}

std::string ascii(const Vardo400::SString_t<unsigned short, 1>& s)
{
    std::string out;
    for (unsigned i = 0; i < s.getLength(); ++i)
        out += s.data()[i] < 0x80 ? static_cast<char>(s.data()[i]) : '?';
    return out;
}

} // namespace vardo_test
