// Base64, SMTP text and header words for the mail writer.
#include "smtpmime.h"

#include <cstdint>
#include <cstring>

namespace Vardo400 {
namespace mime {

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Two base64 characters for every 12-bit value: one lookup for half of a 3-byte group.
struct PairTable {
    char pairs[4096][2];
    PairTable()
    {
        for (unsigned v = 0; v < 4096; ++v) {
            pairs[v][0] = kAlphabet[v >> 6];
            pairs[v][1] = kAlphabet[v & 63];
        }
    }
};

const PairTable& pairTable()
{
    static const PairTable table;
    return table;
}

// Whole 3-byte groups: n is a multiple of 3.
inline char* encodeGroups(const unsigned char* p, size_t n, char* q, const PairTable& t)
{
    for (size_t i = 0; i < n; i += 3) {
        uint32_t v = ((uint32_t)p[i] << 16) | ((uint32_t)p[i + 1] << 8) | p[i + 2];
        std::memcpy(q, t.pairs[v >> 12], 2);
        std::memcpy(q + 2, t.pairs[v & 0xFFF], 2);
        q += 4;
    }
    return q;
}

// Encodes n bytes (with padding) into q; returns the end.
char* encodeInto(const unsigned char* p, size_t n, char* q)
{
    size_t whole = n / 3 * 3;
    q = encodeGroups(p, whole, q, pairTable());
    if (whole < n) {
        size_t i = whole;
        uint32_t v = (uint32_t)p[i] << 16;
        if (i + 1 < n)
            v |= (uint32_t)p[i + 1] << 8;
        q[0] = kAlphabet[v >> 18];
        q[1] = kAlphabet[(v >> 12) & 63];
        q[2] = i + 1 < n ? kAlphabet[(v >> 6) & 63] : '=';
        q[3] = '=';
        q += 4;
    }
    return q;
}

} // namespace

std::string Base64(const void* data, size_t size)
{
    std::string out((size + 2) / 3 * 4, '\0');
    if (size)
        encodeInto(static_cast<const unsigned char*>(data), size, &out[0]);
    return out;
}

size_t Base64LinesInto(const void* data, size_t size, char* out)
{
    const unsigned char* p = static_cast<const unsigned char*>(data);
    const PairTable& t = pairTable();
    char* q = out;
    size_t lines = size / kLineInput;
    for (size_t l = 0; l < lines; ++l) {
        // Six bytes into eight characters at a time: one load, four lookups.
        for (size_t i = 0; i < kLineInput; i += 6) {
            const unsigned char* b = p + i;
            uint64_t v = ((uint64_t)b[0] << 40) | ((uint64_t)b[1] << 32) | ((uint64_t)b[2] << 24) |
                         ((uint64_t)b[3] << 16) | ((uint64_t)b[4] << 8) | b[5];
            std::memcpy(q, t.pairs[v >> 36], 2);
            std::memcpy(q + 2, t.pairs[(v >> 24) & 0xFFF], 2);
            std::memcpy(q + 4, t.pairs[(v >> 12) & 0xFFF], 2);
            std::memcpy(q + 6, t.pairs[v & 0xFFF], 2);
            q += 8;
        }
        q[0] = '\r';
        q[1] = '\n';
        q += 2;
        p += kLineInput;
    }
    size_t rest = size - lines * kLineInput;
    if (rest) {
        q = encodeInto(p, rest, q);
        q[0] = '\r';
        q[1] = '\n';
        q += 2;
    }
    return (size_t)(q - out);
}

std::string SmtpText(const std::string& text)
{
    std::string out;
    out.reserve(text.size() + text.size() / 16 + 2);
    bool lineStart = true;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '\r' || c == '\n') {
            if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n')
                ++i;
            out += "\r\n";
            lineStart = true;
            continue;
        }
        if (lineStart && c == '.')
            out += '.';
        out += c;
        lineStart = false;
    }
    return out;
}

bool IsPrintableAscii(const std::string& s)
{
    for (unsigned char c : s)
        if (c < 0x20 || c > 0x7E)
            return false;
    return true;
}

std::string EncodedWords(const std::string& utf8)
{
    // 75 characters: "=?UTF-8?B?" (10) + 60 base64 characters (45 bytes) + "?=" (2).
    const size_t maxBytes = 45;
    std::string out;
    size_t i = 0;
    if (utf8.empty())
        return "=?UTF-8?B?" "?=";
    while (i < utf8.size()) {
        size_t end = i + maxBytes < utf8.size() ? i + maxBytes : utf8.size();
        // Never split a character: back up over continuation bytes.
        if (end < utf8.size()) {
            size_t e = end;
            while (e > i && ((unsigned char)utf8[e] & 0xC0) == 0x80)
                --e;
            if (e > i)
                end = e;
        }
        if (!out.empty())
            out += "\r\n ";
        out += "=?UTF-8?B?";
        out += Base64(utf8.data() + i, end - i);
        out += "?=";
        i = end;
    }
    return out;
}

std::string Parameter(const char* name, const std::string& utf8)
{
    // The quoted form only where every reader gets the same text back: no quotes or
    // backslashes, no blank at either end, nothing that looks like an encoded word.
    bool plain = IsPrintableAscii(utf8) && utf8.find_first_of("\"\\") == std::string::npos &&
                 utf8.find("=?") == std::string::npos &&
                 (utf8.empty() || (utf8.front() != ' ' && utf8.back() != ' '));
    std::string out = name;
    if (plain) {
        out += "=\"";
        out += utf8;
        out += '"';
        return out;
    }
    static const char hex[] = "0123456789ABCDEF";
    out += "*=UTF-8''";
    for (unsigned char c : utf8) {
        bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '-' || c == '.' || c == '_' || c == '~';
        if (keep) {
            out += (char)c;
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

} // namespace mime
} // namespace Vardo400
