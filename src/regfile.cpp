// SRegFile: the regedit text format, read and written over the registry store.
#include "vardo/regfile.h"

#include "os/os_registry.h"
#include "regvalue.h"
#include "utfcore.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace Vardo400 {

const char* const SRegFile::Header = "Windows Registry Editor Version 5.00";

SRegFileSink::~SRegFileSink() {}

namespace {

typedef std::vector<unsigned short> Units;

SWCharString ascii(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

SWCharString fromUnits(const unsigned short* p, size_t n)
{
    Units u(p, p + n);
    u.push_back(0);
    return SWCharString(u.data());
}

SWCharString lineError(size_t line, const char* reason)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "line %lu: ", static_cast<unsigned long>(line));
    return ascii(buf) + ascii(reason);
}

bool isBlank(unsigned short c) { return c == ' ' || c == '\t'; }

using regvalue::hexDigit;

bool equalsNoCaseAscii(const unsigned short* p, size_t n, const char* word)
{
    size_t len = std::strlen(word);
    if (n != len)
        return false;
    for (size_t i = 0; i < n; ++i) {
        unsigned short c = p[i];
        if (c >= 'a' && c <= 'z')
            c = static_cast<unsigned short>(c - 32);
        char w = word[i];
        if (w >= 'a' && w <= 'z')
            w = static_cast<char>(w - 32);
        if (c != static_cast<unsigned char>(w))
            return false;
    }
    return true;
}

bool startsNoCaseAscii(const unsigned short* p, size_t n, const char* word)
{
    size_t len = std::strlen(word);
    return n >= len && equalsNoCaseAscii(p, len, word);
}

struct Root {
    const char* longName;
    const char* shortName;
    RegKeyHandle handle;
};

const Root Roots[] = {
    {"HKEY_CLASSES_ROOT", "HKCR", RegClassesRoot},
    {"HKEY_CURRENT_USER", "HKCU", RegCurrentUser},
    {"HKEY_LOCAL_MACHINE", "HKLM", RegLocalMachine},
    {"HKEY_USERS", "HKU", RegUsers},
    {"HKEY_CURRENT_CONFIG", "HKCC", RegCurrentConfig},
};

// One line of the text with its number.
struct Line {
    const unsigned short* p;
    size_t n;
    size_t number;
};

void splitLines(const SWCharString& text, std::vector<Line>& lines)
{
    const unsigned short* p = text.data();
    size_t n = text.getLength();
    size_t start = 0;
    size_t number = 1;
    for (size_t i = 0; i <= n; ++i) {
        if (i == n || p[i] == '\r' || p[i] == '\n') {
            lines.push_back(Line{p + start, i - start, number++});
            if (i < n && p[i] == '\r' && i + 1 < n && p[i + 1] == '\n')
                ++i;
            start = i + 1;
        }
    }
}

void trim(const unsigned short*& p, size_t& n)
{
    while (n && isBlank(*p)) {
        ++p;
        --n;
    }
    while (n && isBlank(p[n - 1]))
        --n;
}

// A quoted string at p[0] == '"'. Returns the units consumed (0 when unterminated).
size_t parseQuoted(const unsigned short* p, size_t n, Units& out)
{
    out.clear();
    for (size_t i = 1; i < n; ++i) {
        unsigned short c = p[i];
        if (c == '"')
            return i + 1;
        if (c == '\\' && i + 1 < n && (p[i + 1] == '\\' || p[i + 1] == '"')) {
            out.push_back(p[++i]);
            continue;
        }
        out.push_back(c);
    }
    return 0;
}

void textBytes(const Units& u, std::vector<unsigned char>& bytes)
{
    bytes.clear();
    regvalue::appendTextBytes(u.data(), u.size(), bytes);
}

// "xx,xx,...", blanks allowed around each byte, a trailing comma allowed.
bool parseHexBytes(const Units& list, std::vector<unsigned char>& bytes)
{
    bytes.clear();
    size_t i = 0;
    size_t n = list.size();
    for (;;) {
        while (i < n && isBlank(list[i]))
            ++i;
        if (i == n)
            return true;
        int hi = hexDigit(list[i]);
        if (hi < 0)
            return false;
        ++i;
        int value = hi;
        if (i < n && hexDigit(list[i]) >= 0)
            value = value * 16 + hexDigit(list[i++]);
        bytes.push_back(static_cast<unsigned char>(value));
        while (i < n && isBlank(list[i]))
            ++i;
        if (i == n)
            return true;
        if (list[i] != ',')
            return false;
        ++i;
    }
}

void appendHex(SWCharString& s, unsigned int v, int digits)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "%0*x", digits, v);
    s += ascii(buf);
}

SWCharString quote(const SWCharString& s)
{
    Units u;
    u.push_back('"');
    for (const unsigned short* p = s.data(); *p; ++p) {
        if (*p == '\\' || *p == '"')
            u.push_back('\\');
        u.push_back(*p);
    }
    u.push_back('"');
    u.push_back(0);
    return SWCharString(u.data());
}

bool hasLineBreak(const SWCharString& s)
{
    for (const unsigned short* p = s.data(); *p; ++p)
        if (*p == '\r' || *p == '\n')
            return true;
    return false;
}

// REG_SZ bytes that a quoted string carries exactly: text without control characters
// (tab allowed) and one terminator.
bool isPlainString(const unsigned char* data, uint32_t size)
{
    if (size < 2 || size % 2 != 0)
        return false;
    uint32_t units = size / 2;
    if ((data[size - 2] | data[size - 1]) != 0)
        return false;
    for (uint32_t i = 0; i + 1 < units; ++i) {
        unsigned short c = static_cast<unsigned short>(data[2 * i] | (data[2 * i + 1] << 8));
        if (c < 0x20 && c != '\t')
            return false;
    }
    return true;
}

// Entries of a parsed file, kept so that an import changes nothing unless it all parses.
struct Entry {
    enum Kind { Key, DeleteKey, Value, DeleteValue } kind;
    SWCharString text;   // key path or value name
    uint32_t type;
    std::vector<unsigned char> data;
};

class Collector : public SRegFileSink {
public:
    std::vector<Entry> entries;
    bool onKey(const SWCharString& fullPath, bool bDelete) override
    {
        entries.push_back(Entry{bDelete ? Entry::DeleteKey : Entry::Key, fullPath, 0, {}});
        return true;
    }
    bool onValue(const SWCharString& name, uint32_t type, const unsigned char* data,
                 uint32_t size) override
    {
        entries.push_back(Entry{Entry::Value, name, type, std::vector<unsigned char>(data, data + size)});
        return true;
    }
    bool onDeleteValue(const SWCharString& name) override
    {
        entries.push_back(Entry{Entry::DeleteValue, name, 0, {}});
        return true;
    }
};

SWCharString codeText(int32_t code)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, " (error %ld)", static_cast<long>(code));
    return ascii(buf);
}

bool exportKey(RegKeyHandle root, const SWCharString& path, const SWCharString& display,
               SWCharString& text, SWCharString* error, int depth)
{
    if (depth > 512) {
        if (error)
            *error = ascii("key tree too deep: ") + display;
        return false;
    }
    if (hasLineBreak(display)) {
        if (error)
            *error = ascii("key name holds a line break: ") + display;
        return false;
    }
    os::RegKey h;
    int32_t rc = h.open(root, path.data(), os::RegKeyRead);
    if (rc != os::RegOk) {
        if (error)
            *error = (rc == os::RegFileNotFound ? ascii("key not found: ")
                                                : ascii("cannot open key: ")) +
                     display + (rc == os::RegFileNotFound ? SWCharString() : codeText(rc));
        return false;
    }
    text += SRegFile::FormatKey(display);
    for (uint32_t i = 0;; ++i) {
        SWCharString name;
        uint32_t type = 0, size = 0;
        rc = os::regEnumValue(h.get(), i, name, &type, 0, &size);
        if (rc == os::RegNoMoreItems)
            break;
        std::vector<unsigned char> data;
        if (rc == os::RegOk)
            rc = regvalue::readRaw(h.get(), name.data(), type, data);
        if (rc == os::RegFileNotFound)
            continue;
        if (rc != os::RegOk) {
            if (error)
                *error = ascii("cannot read a value of ") + display + codeText(rc);
            return false;
        }
        SWCharString line;
        if (!SRegFile::FormatValue(name, type, data.data(), static_cast<uint32_t>(data.size()), line)) {
            if (error)
                *error = ascii("value name holds a line break in ") + display;
            return false;
        }
        text += line;
    }
    text += ascii("\r\n");
    std::vector<SWCharString> subKeys;
    for (uint32_t i = 0;; ++i) {
        SWCharString name;
        rc = os::regEnumKey(h.get(), i, name);
        if (rc == os::RegNoMoreItems)
            break;
        if (rc != os::RegOk) {
            if (error)
                *error = ascii("cannot enumerate ") + display + codeText(rc);
            return false;
        }
        subKeys.push_back(name);
    }
    for (const SWCharString& name : subKeys) {
        SWCharString childPath = path;
        if (!childPath.isEmpty())
            childPath += ascii("\\");
        childPath += name;
        if (!exportKey(root, childPath, display + ascii("\\") + name, text, error, depth + 1))
            return false;
    }
    return true;
}

} // namespace

bool SRegFile::Decode(const unsigned char* bytes, size_t size, SWCharString& text)
{
    text.empty();
    Units u;
    if (size >= 2 && ((bytes[0] == 0xFF && bytes[1] == 0xFE) || (bytes[0] == 0xFE && bytes[1] == 0xFF))) {
        if (size % 2 != 0)
            return false;
        u.resize(size / 2 - 1);
        utf::bytesToUtf16(bytes + 2, u.size(), u.data(), bytes[0] == 0xFE);
    } else {
        const size_t bom = size >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF ? 3 : 0;
        if (!utf::utf8ToUtf16(bytes + bom, size - bom, u, utf::Policy::strict))
            return false;
    }
    if (std::find(u.begin(), u.end(), 0) != u.end())
        return false;
    u.push_back(0);
    text = SWCharString(u.data());
    return true;
}

bool SRegFile::Parse(const SWCharString& text, SRegFileSink& sink, SWCharString* error)
{
    std::vector<Line> lines;
    splitLines(text, lines);
    bool headerSeen = false;
    bool inKey = false;
    bool keyDeleted = false;
    Units name, value;
    std::vector<unsigned char> bytes;
    auto failAt = [&](size_t number, const char* reason) {
        if (error)
            *error = lineError(number, reason);
        return false;
    };
    for (size_t li = 0; li < lines.size(); ++li) {
        const unsigned short* p = lines[li].p;
        size_t n = lines[li].n;
        size_t number = lines[li].number;
        trim(p, n);
        if (!headerSeen) {
            if (n == 0)
                continue;
            if (!equalsNoCaseAscii(p, n, Header))
                return failAt(number, "not a regedit file: the first line must be "
                                      "\"Windows Registry Editor Version 5.00\"");
            headerSeen = true;
            continue;
        }
        if (n == 0 || p[0] == ';')
            continue;
        if (p[0] == '[') {
            if (p[n - 1] != ']')
                return failAt(number, "key line without closing bracket");
            bool bDelete = n > 2 && p[1] == '-';
            const unsigned short* k = p + (bDelete ? 2 : 1);
            size_t kn = n - (bDelete ? 3 : 2);
            SWCharString path = fromUnits(k, kn);
            RegKeyHandle root;
            SWCharString rest;
            if (kn == 0 || !SplitKeyPath(path, root, rest))
                return failAt(number, "key path does not start with a registry root");
            inKey = true;
            keyDeleted = bDelete;
            if (!sink.onKey(path, bDelete)) {
                if (error)
                    *error = lineError(number, "refused");
                return false;
            }
            continue;
        }
        if (p[0] != '"' && p[0] != '@')
            return failAt(number, "expected a key in brackets or a value");
        if (!inKey)
            return failAt(number, "value before the first key");
        size_t pos;
        if (p[0] == '@') {
            name.clear();
            pos = 1;
        } else {
            pos = parseQuoted(p, n, name);
            if (!pos)
                return failAt(number, "value name without closing quote");
        }
        while (pos < n && isBlank(p[pos]))
            ++pos;
        if (pos == n || p[pos] != '=')
            return failAt(number, "expected = after the value name");
        ++pos;
        while (pos < n && isBlank(p[pos]))
            ++pos;
        const unsigned short* d = p + pos;
        size_t dn = n - pos;
        SWCharString valueName = fromUnits(name.data(), name.size());
        bool bDeleteValue = false;
        uint32_t type = 0;
        if (dn > 0 && d[0] == '"') {
            size_t used = parseQuoted(d, dn, value);
            if (!used)
                return failAt(number, "string without closing quote");
            if (used != dn)
                return failAt(number, "text after the closing quote");
            type = RegTypeString;
            textBytes(value, bytes);
        } else if (dn == 1 && d[0] == '-') {
            bDeleteValue = true;
        } else if (startsNoCaseAscii(d, dn, "dword:")) {
            size_t digits = dn - 6;
            if (digits == 0 || digits > 8)
                return failAt(number, "dword needs 1 to 8 hex digits");
            uint32_t v = 0;
            for (size_t i = 6; i < dn; ++i) {
                int h = hexDigit(d[i]);
                if (h < 0)
                    return failAt(number, "dword needs 1 to 8 hex digits");
                v = v * 16 + static_cast<uint32_t>(h);
            }
            type = RegTypeDword;
            bytes.assign(4, 0);
            for (int i = 0; i < 4; ++i)
                bytes[i] = static_cast<unsigned char>(v >> (8 * i));
        } else if (startsNoCaseAscii(d, dn, "hex")) {
            size_t i = 3;
            type = RegTypeBinary;
            if (i < dn && d[i] == '(') {
                ++i;
                size_t digits = 0;
                uint32_t t = 0;
                while (i < dn && hexDigit(d[i]) >= 0) {
                    t = t * 16 + static_cast<uint32_t>(hexDigit(d[i]));
                    ++i;
                    if (++digits > 8)
                        return failAt(number, "type number too long");
                }
                if (digits == 0 || i == dn || d[i] != ')')
                    return failAt(number, "bad hex(type)");
                ++i;
                type = t;
            }
            if (i == dn || d[i] != ':')
                return failAt(number, "expected : after hex");
            ++i;
            value.assign(d + i, d + dn);
            // Continuation lines: a list ending in a backslash goes on below.
            while (!value.empty() && value.back() == '\\') {
                value.pop_back();
                if (li + 1 >= lines.size())
                    return failAt(number, "continuation at the end of the file");
                ++li;
                const unsigned short* q = lines[li].p;
                size_t qn = lines[li].n;
                trim(q, qn);
                value.insert(value.end(), q, q + qn);
            }
            if (!parseHexBytes(value, bytes))
                return failAt(lines[li].number, "bad hex byte list");
        } else {
            return failAt(number, "unknown value data");
        }
        if (keyDeleted)
            continue;   // values of a key being deleted mean nothing, as in regedit
        bool ok = bDeleteValue ? sink.onDeleteValue(valueName)
                               : sink.onValue(valueName, type, bytes.data(),
                                              static_cast<uint32_t>(bytes.size()));
        if (!ok) {
            if (error)
                *error = lineError(number, "refused");
            return false;
        }
    }
    if (!headerSeen) {
        if (error)
            *error = ascii("not a regedit file: no \"Windows Registry Editor Version 5.00\" line");
        return false;
    }
    return true;
}

SWCharString SRegFile::FormatKey(const SWCharString& fullPath, bool bDelete)
{
    SWCharString s = ascii(bDelete ? "[-" : "[");
    s += fullPath;
    s += ascii("]\r\n");
    return s;
}

bool SRegFile::FormatValue(const SWCharString& name, uint32_t type, const unsigned char* data,
                           uint32_t size, SWCharString& text)
{
    text.empty();
    if (hasLineBreak(name))
        return false;
    SWCharString s = name.isEmpty() ? ascii("@") : quote(name);
    s += ascii("=");
    if (type == RegTypeString && isPlainString(data, size)) {
        Units u;
        for (uint32_t i = 0; i + 2 < size; i += 2)
            u.push_back(static_cast<unsigned short>(data[i] | (data[i + 1] << 8)));
        u.push_back(0);
        s += quote(SWCharString(u.data()));
    } else if (type == RegTypeDword && size == 4) {
        s += ascii("dword:");
        appendHex(s, static_cast<unsigned int>(data[0] | (data[1] << 8) | (data[2] << 16)) |
                         (static_cast<unsigned int>(data[3]) << 24),
                  8);
    } else {
        if (type == RegTypeBinary) {
            s += ascii("hex:");
        } else {
            s += ascii("hex(");
            appendHex(s, type, 1);
            s += ascii("):");
        }
        // Wrapped as regedit wraps: lines of at most 80 columns, continued with ",\".
        size_t column = s.getLength();
        for (uint32_t i = 0; i < size; ++i) {
            appendHex(s, data[i], 2);
            column += 2;
            if (i + 1 < size) {
                s += ascii(",");
                ++column;
                if (column >= 77) {
                    s += ascii("\\\r\n  ");
                    column = 2;
                }
            }
        }
    }
    s += ascii("\r\n");
    text = s;
    return true;
}

bool SRegFile::SplitKeyPath(const SWCharString& fullPath, RegKeyHandle& root, SWCharString& path)
{
    const unsigned short* p = fullPath.data();
    size_t n = fullPath.getLength();
    size_t end = 0;
    while (end < n && p[end] != '\\')
        ++end;
    for (const Root& r : Roots) {
        if (equalsNoCaseAscii(p, end, r.longName) || equalsNoCaseAscii(p, end, r.shortName)) {
            root = r.handle;
            size_t start = end < n ? end + 1 : n;
            size_t stop = n;
            while (stop > start && p[stop - 1] == '\\')
                --stop;
            path = fromUnits(p + start, stop - start);
            return true;
        }
    }
    return false;
}

SWCharString SRegFile::RootName(RegKeyHandle root)
{
    for (const Root& r : Roots)
        if (r.handle == root)
            return ascii(r.longName);
    return SWCharString();
}

bool SRegFile::Export(const SWCharString& fullPath, SWCharString& text, SWCharString* error)
{
    text.empty();
    RegKeyHandle root;
    SWCharString path;
    if (!SplitKeyPath(fullPath, root, path)) {
        if (error)
            *error = ascii("key path does not start with a registry root: ") + fullPath;
        return false;
    }
    SWCharString display = RootName(root);
    if (!path.isEmpty())
        display += ascii("\\") + path;
    SWCharString body = ascii(Header) + ascii("\r\n\r\n");
    if (!exportKey(root, path, display, body, error, 0))
        return false;
    text = body;
    return true;
}

bool SRegFile::Import(const unsigned char* bytes, size_t size, SWCharString* error)
{
    SWCharString text;
    if (!Decode(bytes, size, text)) {
        if (error)
            *error = ascii("not UTF-8 or UTF-16 text (or it holds a NUL character)");
        return false;
    }
    Collector c;
    if (!Parse(text, c, error))
        return false;
    os::RegKey current;
    SWCharString currentPath;
    for (const Entry& e : c.entries) {
        int32_t rc = os::RegOk;
        switch (e.kind) {
        case Entry::Key:
        case Entry::DeleteKey: {
            current.reset();
            currentPath = e.text;
            RegKeyHandle root;
            SWCharString path;
            SplitKeyPath(e.text, root, path);
            if (e.kind == Entry::DeleteKey) {
                if (path.isEmpty()) {
                    if (error)
                        *error = ascii("a registry root cannot be deleted: ") + e.text;
                    return false;
                }
                Registry key(path, SWCharString(), root);
                if (key.KeyExists() && !key.DeleteKeyRecursive()) {
                    if (error)
                        *error = ascii("cannot delete key ") + e.text;
                    return false;
                }
                break;
            }
            rc = current.open(root, path.data(), os::RegKeyWrite, true);
            if (rc != os::RegOk) {
                if (error)
                    *error = ascii("cannot create key ") + e.text + codeText(rc);
                return false;
            }
            break;
        }
        case Entry::Value: {
            static const unsigned char none = 0;
            rc = os::regSetValue(current.get(), e.text.data(), e.type,
                                 e.data.empty() ? &none : e.data.data(),
                                 static_cast<uint32_t>(e.data.size()));
            if (rc != os::RegOk) {
                if (error)
                    *error = ascii("cannot write a value of ") + currentPath + codeText(rc);
                return false;
            }
            break;
        }
        case Entry::DeleteValue:
            rc = os::regDeleteValue(current.get(), e.text.data());
            if (rc != os::RegOk && rc != os::RegFileNotFound) {
                if (error)
                    *error = ascii("cannot delete a value of ") + currentPath + codeText(rc);
                return false;
            }
            break;
        }
    }
    return true;
}

} // namespace Vardo400
