// SRegText: the text form of registry value types and data.
#include "vardo/regfile.h"

#include "regvalue.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace Vardo400 {

namespace {

const char* const TypeNames[] = {
    "REG_NONE",          "REG_SZ",   "REG_EXPAND_SZ",      "REG_BINARY",
    "REG_DWORD",         "REG_DWORD_BIG_ENDIAN",           "REG_LINK",
    "REG_MULTI_SZ",      "REG_RESOURCE_LIST",              "REG_FULL_RESOURCE_DESCRIPTOR",
    "REG_RESOURCE_REQUIREMENTS_LIST",                      "REG_QWORD"};

// The types a text can be written as.
const uint32_t WritableTypes[] = {RegTypeNone,  RegTypeString,      RegTypeExpandString,
                                  RegTypeBinary, RegTypeDword,      RegTypeMultiString,
                                  RegTypeQword};

SWCharString ascii(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

using regvalue::hexDigit;

// Decimal digits, or "0x" and hex digits; nothing else, at most max.
bool parseNumber(const unsigned short* p, size_t n, unsigned long long max, unsigned long long& v)
{
    bool hex = n > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X');
    size_t i = hex ? 2 : 0;
    if (i == n)
        return false;
    unsigned base = hex ? 16 : 10;
    v = 0;
    for (; i < n; ++i) {
        int d = hex ? hexDigit(p[i]) : (p[i] >= '0' && p[i] <= '9' ? p[i] - '0' : -1);
        if (d < 0 || v > (max - static_cast<unsigned>(d)) / base)
            return false;
        v = v * base + static_cast<unsigned>(d);
    }
    return true;
}

void appendBytes(SSimpleBuffer& data, const std::vector<unsigned char>& bytes)
{
    data.append(bytes.data(), bytes.size());
}

} // namespace

const char* SRegText::TypeName(uint32_t type)
{
    return type < sizeof TypeNames / sizeof TypeNames[0] ? TypeNames[type] : 0;
}

SWCharString SRegText::TypeText(uint32_t type)
{
    const char* name = TypeName(type);
    if (name)
        return ascii(name);
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%lX", static_cast<unsigned long>(type));
    return ascii(buf);
}

bool SRegText::ParseType(const SWCharString& name, uint32_t& type)
{
    const unsigned short* p = name.data();
    size_t n = name.getLength();
    for (uint32_t t : WritableTypes) {
        const char* w = TypeNames[t];
        size_t i = 0;
        for (; i < n && w[i]; ++i) {
            unsigned short c = p[i];
            if (c >= 'a' && c <= 'z')
                c = static_cast<unsigned short>(c - 32);
            if (c != static_cast<unsigned char>(w[i]))
                break;
        }
        if (i == n && !w[i]) {
            type = t;
            return true;
        }
    }
    return false;
}

bool SRegText::ParseData(uint32_t type, const SWCharString& text, SSimpleBuffer& data)
{
    data.clear();
    const unsigned short* p = text.data();
    size_t n = text.getLength();
    std::vector<unsigned char> bytes;
    switch (type) {
    case RegTypeString:
    case RegTypeExpandString:
        regvalue::appendTextBytes(p, n, bytes);
        appendBytes(data, bytes);
        return true;
    case RegTypeDword:
    case RegTypeQword: {
        unsigned long long v = 0;
        if (!parseNumber(p, n, type == RegTypeDword ? 0xFFFFFFFFull : ~0ull, v))
            return false;
        for (int i = 0; i < (type == RegTypeDword ? 4 : 8); ++i)
            data.append(static_cast<unsigned char>(v >> (8 * i)));
        return true;
    }
    case RegTypeMultiString: {
        // Strings separated by the two characters \0; the list ends with an empty string.
        size_t start = 0;
        for (size_t i = 0; n && i <= n; ++i) {
            if (i == n || (p[i] == '\\' && i + 1 < n && p[i + 1] == '0')) {
                regvalue::appendTextBytes(p + start, i - start, bytes);
                start = i + 2;
                ++i;
            }
        }
        bytes.push_back(0);
        bytes.push_back(0);
        appendBytes(data, bytes);
        return true;
    }
    default: {
        std::vector<int> digits;
        for (size_t i = 0; i < n; ++i) {
            if (p[i] == ',' || p[i] == ' ')
                continue;
            int d = hexDigit(p[i]);
            if (d < 0)
                return false;
            digits.push_back(d);
        }
        if (digits.size() % 2)
            return false;
        for (size_t i = 0; i < digits.size(); i += 2)
            data.append(static_cast<unsigned char>(digits[i] * 16 + digits[i + 1]));
        return true;
    }
    }
}

SWCharString SRegText::FormatData(uint32_t type, const unsigned char* data, uint32_t size)
{
    char buf[32];
    switch (type) {
    case RegTypeString:
    case RegTypeExpandString:
        return regvalue::textFromBytes(data, size);
    case RegTypeDword:
        if (size == 4) {
            std::snprintf(buf, sizeof buf, "0x%x",
                          static_cast<unsigned>(data[0] | (data[1] << 8) | (data[2] << 16)) |
                              (static_cast<unsigned>(data[3]) << 24));
            return ascii(buf);
        }
        break;
    case RegTypeQword:
        if (size == 8) {
            unsigned long long v = 0;
            for (int i = 7; i >= 0; --i)
                v = (v << 8) | data[i];
            std::snprintf(buf, sizeof buf, "0x%llx", v);
            return ascii(buf);
        }
        break;
    case RegTypeMultiString: {
        SWCharString s;
        bool first = true;
        for (uint32_t at = 0; at + 1 < size;) {
            SWCharString one = regvalue::textFromBytes(data + at, size - at);
            uint32_t units = one.getLength();
            if (at + 2 * units + 1 >= size)
                break;   // no terminator: not a whole string
            if (units == 0)
                break;   // the closing empty string
            if (!first)
                s += ascii("\\0");
            s += one;
            first = false;
            at += 2 * (units + 1);
        }
        return s;
    }
    default:
        break;
    }
    SWCharString hex;
    for (uint32_t i = 0; i < size; ++i) {
        std::snprintf(buf, sizeof buf, "%02X", data[i]);
        hex += ascii(buf);
    }
    return hex;
}

} // namespace Vardo400
