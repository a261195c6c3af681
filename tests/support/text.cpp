#include "text.h"

#include <cstdio>
#include <cstring>

namespace vardo_test {

using Vardo400::SWCharString;

SWCharString W(const std::string& utf8)
{
    std::u16string out;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8.data());
    const size_t n = utf8.size();
    for (size_t i = 0; i < n;) {
        const unsigned b = p[i];
        int extra;
        uint32_t c;
        if (b < 0x80) {
            extra = 0;
            c = b;
        } else if (b >= 0xC2 && b <= 0xDF) {
            extra = 1;
            c = b & 0x1F;
        } else if (b >= 0xE0 && b <= 0xEF) {
            extra = 2;
            c = b & 0x0F;
        } else if (b >= 0xF0 && b <= 0xF4) {
            extra = 3;
            c = b & 0x07;
        } else {
            out.push_back(u'\uFFFD');
            ++i;
            continue;
        }
        bool ok = true;
        for (int k = 1; ok && k <= extra; ++k) {
            if (i + k >= n || (p[i + k] & 0xC0) != 0x80)
                ok = false;
            else
                c = (c << 6) | (p[i + k] & 0x3F);
        }
        static const uint32_t least[] = {0, 0x80, 0x800, 0x10000};
        if (ok && (c < least[extra] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)))
            ok = false;
        if (!ok) {
            out.push_back(u'\uFFFD');
            ++i;
            continue;
        }
        if (c >= 0x10000) {
            out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(c));
        }
        i += static_cast<size_t>(extra) + 1;
    }
    return SWCharString(units(out.c_str()));
}

SWCharString W(const char* utf8) { return W(std::string(utf8 ? utf8 : "")); }

SWCharString W(const char16_t* s) { return SWCharString(units(s)); }

std::string U(const Vardo400::SString_t<unsigned short, 1>& s)
{
    std::string out;
    const unsigned short* p = s.data();
    const unsigned n = s.getLength();
    for (unsigned i = 0; i < n; ++i) {
        uint32_t c = p[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n && p[i + 1] >= 0xDC00 && p[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (p[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04X", static_cast<unsigned>(c));
            out += buf;
            continue;
        }
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
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
