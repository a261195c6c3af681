#include "vardo_gtest.h"

#include <cstdio>

namespace Vardo400 {

void PrintTo(const SString_t<unsigned short, 1>& s, std::ostream* os)
{
    *os << '"';
    const unsigned short* p = s.data();
    for (unsigned int i = 0; i < s.getLength(); ++i) {
        unsigned long c = p[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.getLength() && p[i + 1] >= 0xDC00 && p[i + 1] <= 0xDFFF) {
            c = ((c - 0xD800) << 10) + (p[i + 1] - 0xDC00) + 0x10000;
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            char b[12];
            std::snprintf(b, sizeof b, "\\u%04lX", c);
            *os << b;
            continue;
        }
        if (c < 0x80) {
            *os << static_cast<char>(c);
        } else if (c < 0x800) {
            *os << static_cast<char>(0xC0 | (c >> 6)) << static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            *os << static_cast<char>(0xE0 | (c >> 12)) << static_cast<char>(0x80 | ((c >> 6) & 0x3F))
                << static_cast<char>(0x80 | (c & 0x3F));
        } else {
            *os << static_cast<char>(0xF0 | (c >> 18)) << static_cast<char>(0x80 | ((c >> 12) & 0x3F))
                << static_cast<char>(0x80 | ((c >> 6) & 0x3F)) << static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    *os << '"';
}

void PrintTo(const SString_t<char, 0>& s, std::ostream* os) { *os << '"' << s.data() << '"'; }
void PrintTo(const SString_t<char, 1>& s, std::ostream* os) { *os << '"' << s.data() << '"'; }

} // namespace Vardo400
