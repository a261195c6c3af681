// Fuzzes the message writer (headers, MIME body, base64, text transforms) end to end:
// CSISMTPMail sends to a loopback sink server, and an independent reader of the received
// data checks it.
//
// Input: byte 0 (bit 0: ask for the UTF-8 subject form), then fields split at 0xFF bytes:
// subject, text, then pairs of attachment name and attachment bytes (at most 4). Text
// fields are widened byte by byte to UTF-16 (so every Latin-1 character, control
// characters included, can appear). Checked: the header section has only the writer's
// header lines, each once, none longer than 998 bytes; the subject decodes to the input;
// the text part is the text with every line break as CR LF; every attachment's base64
// (96-character lines) decodes to its bytes; dot-stuffing undone gives the message.
#include "fuzz_check.h"
#include "vardo/csismtpmail.h"

#include "smtp_peer.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;

namespace {

fuzz_smtp::Listener& listener()
{
    static fuzz_smtp::Listener l;
    return l;
}

SWCharString widen(const std::string& s)
{
    SWCharString r;
    for (unsigned char c : s)
        r += SWCharString::Char((unsigned short)c);
    return r;
}

std::string latin1ToUtf8(const std::string& s)
{
    std::string r;
    for (unsigned char c : s) {
        if (c < 0x80) {
            r += (char)c;
        } else {
            r += (char)(0xC0 | (c >> 6));
            r += (char)(0x80 | (c & 0x3F));
        }
    }
    return r;
}

std::string crlf(const std::string& s)
{
    std::string r;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\r' || s[i] == '\n') {
            if (s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n')
                ++i;
            r += "\r\n";
        } else {
            r += s[i];
        }
    }
    return r;
}

int b64value(char c)
{
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

std::string unbase64(const std::string& s)
{
    std::string out;
    uint32_t acc = 0;
    int bits = 0;
    for (char c : s) {
        if (c == '=')
            break;
        int v = b64value(c);
        FUZZ_CHECK(v >= 0);
        acc = (acc << 6) | (uint32_t)v;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += (char)((acc >> bits) & 0xFF);
        }
    }
    return out;
}

std::vector<std::string> splitLines(const std::string& s)
{
    std::vector<std::string> lines;
    size_t start = 0;
    for (;;) {
        size_t e = s.find("\r\n", start);
        if (e == std::string::npos) {
            lines.push_back(s.substr(start));
            return lines;
        }
        lines.push_back(s.substr(start, e - start));
        start = e + 2;
    }
}

// Undoes dot-stuffing and removes the final "\r\n.\r\n".
std::string unstuff(const std::string& data)
{
    FUZZ_CHECK(data.size() >= 5 && data.compare(data.size() - 5, 5, "\r\n.\r\n") == 0);
    std::string body = data.substr(0, data.size() - 3);   // keep the CR LF before "."
    std::string out;
    bool lineStart = true;
    for (size_t i = 0; i < body.size(); ++i) {
        if (lineStart && body[i] == '.') {
            FUZZ_CHECK(i + 1 < body.size() && body[i + 1] == '.');
            ++i;
        }
        out += body[i];
        lineStart = body[i] == '\n';
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > 100000)
        return 0;
    std::vector<std::string> fields(1);
    for (size_t i = 1; i < size; ++i) {
        if (data[i] == 0xFF)
            fields.emplace_back();
        else
            fields.back() += (char)data[i];
    }
    while (fields.size() < 2)
        fields.emplace_back();
    // The library's texts end at a zero unit: zero bytes are left out of the text fields.
    auto noZero = [](std::string s) {
        s.erase(std::remove(s.begin(), s.end(), '\0'), s.end());
        return s;
    };
    std::string subject = noZero(fields[0]), text = noZero(fields[1]);
    std::vector<std::pair<std::string, std::string>> atts;
    for (size_t i = 2; i + 1 < fields.size() && atts.size() < 4; i += 2)
        atts.push_back({noZero(fields[i]), fields[i + 1]});

    char dir[] = "/tmp/fuzz_mime_XXXXXX";
    if (!mkdtemp(dir))
        return 0;
    std::string received;
    std::thread server([&received] {
        int fd = listener().accept(5000);
        if (fd >= 0)
            received = fuzz_smtp::sink(fd);
    });
    CSISMTPMail mail(widen("from@fuzz.test"), widen("127.0.0.1"), listener().port(), widen(""));
    mail.AddToAddress(widen("to@fuzz.test"), widen(""));
    mail.SetSubject(widen(subject));
    mail.SetMessage(widen(text));
    std::vector<std::string> paths;
    for (size_t i = 0; i < atts.size(); ++i) {
        std::string path = std::string(dir) + "/a" + std::to_string(i);
        FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(atts[i].second.data(), 1, atts[i].second.size(), f);
        std::fclose(f);
        paths.push_back(path);
        mail.AddAttachment(widen(path), widen(atts[i].first), widen("application/octet-stream"));
    }
    bool sent = false;
    try {
        sent = mail.SendSMTPMessage((data[0] & 1) != 0);
    } catch (const CSISMTPMailException&) {
    }
    server.join();
    for (const std::string& p : paths)
        std::remove(p.c_str());
    rmdir(dir);
    FUZZ_CHECK(sent);

    std::string message = unstuff(received);
    size_t headerEnd = message.find("\r\n\r\n");
    FUZZ_CHECK(headerEnd != std::string::npos);
    std::map<std::string, int> seen;
    std::string current, subjectHeader, contentType;
    for (const std::string& line : splitLines(message.substr(0, headerEnd))) {
        FUZZ_CHECK(line.size() <= 998);
        if (!line.empty() && (line[0] == ' ' || line[0] == '\t')) {
            FUZZ_CHECK(!current.empty());
            if (current == "Subject")
                subjectHeader += line.substr(1);
            if (current == "Content-Type")
                contentType += line;
            continue;
        }
        size_t colon = line.find(": ");
        FUZZ_CHECK(colon != std::string::npos);
        current = line.substr(0, colon);
        FUZZ_CHECK(current == "Message-ID" || current == "Date" || current == "From" || current == "To" ||
              current == "Subject" || current == "Mime-Version" || current == "Content-Type");
        FUZZ_CHECK(++seen[current] == 1);
        if (current == "Subject")
            subjectHeader = line.substr(colon + 2);
        if (current == "Content-Type")
            contentType = line;
    }
    FUZZ_CHECK(seen.size() == 7);

    // Subject: plain, or encoded words that decode to the text.
    std::string subjectUtf8 = latin1ToUtf8(subject);
    if (subjectHeader.compare(0, 10, "=?UTF-8?B?") == 0) {
        std::string decoded;
        size_t p = 0;
        while (p < subjectHeader.size()) {
            FUZZ_CHECK(subjectHeader.compare(p, 10, "=?UTF-8?B?") == 0);
            size_t end = subjectHeader.find("?=", p + 10);
            FUZZ_CHECK(end != std::string::npos && end - p <= 75);
            decoded += unbase64(subjectHeader.substr(p + 10, end - p - 10));
            p = end + 2;
            while (p < subjectHeader.size() && subjectHeader[p] == ' ')
                ++p;
        }
        FUZZ_CHECK(decoded == subjectUtf8);
    } else {
        FUZZ_CHECK(!(data[0] & 1));
        FUZZ_CHECK(subjectHeader == subjectUtf8);
    }

    size_t b = contentType.find("boundary=\"");
    FUZZ_CHECK(b != std::string::npos);
    std::string boundary = contentType.substr(b + 10, contentType.find('"', b + 10) - b - 10);
    std::string delimiter = "\r\n--" + boundary;
    std::vector<std::string> parts;
    size_t pos = headerEnd + 2;
    for (;;) {
        size_t next = message.find(delimiter, pos);
        FUZZ_CHECK(next != std::string::npos);
        parts.push_back(message.substr(pos, next - pos));
        pos = next + delimiter.size();
        if (message.compare(pos, 2, "--") == 0)
            break;
        FUZZ_CHECK(message.compare(pos, 2, "\r\n") == 0);
        pos += 2;
    }
    FUZZ_CHECK(parts.size() == atts.size() + 2);
    std::string textPart = parts[1];
    size_t textStart = textPart.find("\r\n\r\n");
    FUZZ_CHECK(textStart != std::string::npos);
    FUZZ_CHECK(textPart.substr(textStart + 4) == crlf(latin1ToUtf8(text)));
    for (size_t i = 0; i < atts.size(); ++i) {
        const std::string& part = parts[i + 2];
        size_t bodyStart = part.find("\r\n\r\n");
        FUZZ_CHECK(bodyStart != std::string::npos);
        FUZZ_CHECK(part.find("Content-Transfer-Encoding: base64\r\n") < bodyStart);
        std::string encoded;
        std::vector<std::string> lines = splitLines(part.substr(bodyStart + 4));
        for (size_t k = 0; k < lines.size(); ++k) {
            FUZZ_CHECK(lines[k].size() <= 96);
            if (k + 2 < lines.size())
                FUZZ_CHECK(lines[k].size() == 96);
            encoded += lines[k];
        }
        FUZZ_CHECK(unbase64(encoded) == atts[i].second);
    }
    return 0;
}
