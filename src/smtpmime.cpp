// Base64, SMTP text and header words for the mail writer.
#include "smtpmime.h"

#include <cstdint>

namespace Vardo400 {
namespace mime {

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Encodes n bytes at the end of out (which grows by the encoded size).
void encodeInto(std::string& out, const unsigned char* p, size_t n)
{
    size_t at = out.size();
    out.resize(at + (n + 2) / 3 * 4);
    char* q = &out[at];
    size_t i = 0;
    for (; i + 3 <= n; i += 3) {
        uint32_t v = ((uint32_t)p[i] << 16) | ((uint32_t)p[i + 1] << 8) | p[i + 2];
        q[0] = kAlphabet[v >> 18];
        q[1] = kAlphabet[(v >> 12) & 63];
        q[2] = kAlphabet[(v >> 6) & 63];
        q[3] = kAlphabet[v & 63];
        q += 4;
    }
    if (i < n) {
        uint32_t v = (uint32_t)p[i] << 16;
        if (i + 1 < n)
            v |= (uint32_t)p[i + 1] << 8;
        q[0] = kAlphabet[v >> 18];
        q[1] = kAlphabet[(v >> 12) & 63];
        q[2] = i + 1 < n ? kAlphabet[(v >> 6) & 63] : '=';
        q[3] = '=';
    }
}

} // namespace

std::string Base64(const void* data, size_t size)
{
    std::string out;
    out.reserve((size + 2) / 3 * 4);
    encodeInto(out, static_cast<const unsigned char*>(data), size);
    return out;
}

void Base64Lines::add(const void* data, size_t size)
{
    const unsigned char* p = static_cast<const unsigned char*>(data);
    // Top up a partial line first, then whole lines straight from the input.
    if (m_nPending) {
        size_t take = sizeof m_pending - m_nPending;
        if (take > size)
            take = size;
        for (size_t i = 0; i < take; ++i)
            m_pending[m_nPending + i] = p[i];
        m_nPending += take;
        p += take;
        size -= take;
        if (m_nPending < sizeof m_pending)
            return;
        encodeInto(m_out, m_pending, sizeof m_pending);
        m_out += "\r\n";
        m_nPending = 0;
    }
    if (size >= sizeof m_pending) {
        // Whole lines: 96 characters and CR LF each, written in place.
        size_t lines = size / sizeof m_pending;
        size_t at = m_out.size();
        m_out.resize(at + lines * 98);
        char* q = &m_out[at];
        for (size_t l = 0; l < lines; ++l) {
            for (size_t i = 0; i < sizeof m_pending; i += 3) {
                uint32_t v = ((uint32_t)p[i] << 16) | ((uint32_t)p[i + 1] << 8) | p[i + 2];
                q[0] = kAlphabet[v >> 18];
                q[1] = kAlphabet[(v >> 12) & 63];
                q[2] = kAlphabet[(v >> 6) & 63];
                q[3] = kAlphabet[v & 63];
                q += 4;
            }
            q[0] = '\r';
            q[1] = '\n';
            q += 2;
            p += sizeof m_pending;
        }
        size -= lines * sizeof m_pending;
    }
    for (size_t i = 0; i < size; ++i)
        m_pending[i] = p[i];
    m_nPending = size;
}

void Base64Lines::finish()
{
    if (m_nPending) {
        encodeInto(m_out, m_pending, m_nPending);
        m_out += "\r\n";
        m_nPending = 0;
    }
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
