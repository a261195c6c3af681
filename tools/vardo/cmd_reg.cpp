// vardo reg: the registry for operators.
//   reg query KEY [VALUE]          the key's values and sub-keys, or one value
//   reg set KEY VALUE TYPE DATA    writes a value (creating the key)
//   reg delete KEY [VALUE]         deletes a value, or the key with everything below it
//   reg export KEY FILE            writes the tree to FILE in regedit format (UTF-16LE)
//   reg import FILE                applies a regedit file (UTF-16 with BOM, or UTF-8)
//   reg check                      checks the store (Linux) and says where it is
// KEY starts with a root: HKEY_LOCAL_MACHINE (HKLM), HKEY_CURRENT_USER (HKCU),
// HKEY_CLASSES_ROOT (HKCR), HKEY_USERS (HKU), HKEY_CURRENT_CONFIG (HKCC). VALUE "@" names
// the unnamed default value. Output is UTF-8.
// Exit codes: 0 done, 1 not found or failed, 2 usage, 3 the store is damaged.
#include "command.h"

#include "vardo/regfile.h"
#include "vardo/registry.h"
#include "vardo/strace.h"
#include "utfcore.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_tool::argToText;
using vardo_tool::utf8;

const char* const Usage =
    "usage: vardo reg query KEY [VALUE]\n"
    "       vardo reg set KEY VALUE TYPE DATA\n"
    "       vardo reg delete KEY [VALUE]\n"
    "       vardo reg export KEY FILE\n"
    "       vardo reg import FILE\n"
    "       vardo reg check\n"
    "TYPE: REG_SZ REG_EXPAND_SZ REG_DWORD REG_QWORD REG_BINARY REG_MULTI_SZ REG_NONE\n"
    "DATA: text; a number (decimal or 0x hex); hex bytes for REG_BINARY/REG_NONE;\n"
    "      strings separated by \\0 for REG_MULTI_SZ. VALUE @ is the default value.\n";

void out(const std::string& s) { std::fwrite(s.data(), 1, s.size(), stdout); }

void err(const std::string& s)
{
    std::string line = "vardo reg: " + s + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

// The library reports failed writes through its assertion entry point; show them.
void showAssertion(const char*, int, const char* expression, const SWCharString& message)
{
    err(message.isEmpty() ? std::string(expression) : utf8(message));
}

const char* typeName(unsigned long type)
{
    switch (type) {
    case 0: return "REG_NONE";
    case 1: return "REG_SZ";
    case 2: return "REG_EXPAND_SZ";
    case 3: return "REG_BINARY";
    case 4: return "REG_DWORD";
    case 5: return "REG_DWORD_BIG_ENDIAN";
    case 6: return "REG_LINK";
    case 7: return "REG_MULTI_SZ";
    case 8: return "REG_RESOURCE_LIST";
    case 9: return "REG_FULL_RESOURCE_DESCRIPTOR";
    case 10: return "REG_RESOURCE_REQUIREMENTS_LIST";
    case 11: return "REG_QWORD";
    default: return 0;
    }
}

bool parseType(const std::string& s, unsigned long& type)
{
    std::string u;
    for (char c : s)
        u += static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    const unsigned long known[] = {0, 1, 2, 3, 4, 7, 11};
    for (unsigned long t : known)
        if (u == typeName(t)) {
            type = t;
            return true;
        }
    return false;
}

bool parseNumber(const std::string& s, unsigned long long max, unsigned long long& v)
{
    if (s.empty() || s[0] == '-' || s[0] == '+')
        return false;
    errno = 0;
    char* end = 0;
    bool hex = s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
    v = std::strtoull(hex ? s.c_str() + 2 : s.c_str(), &end, hex ? 16 : 10);
    return errno == 0 && end && *end == 0 && v <= max && end != s.c_str() + (hex ? 2 : 0);
}

void appendText(const SWCharString& t, std::vector<unsigned char>& data)
{
    // UTF-16LE with its terminating zero unit.
    const size_t at = data.size();
    data.resize(at + 2 * (t.getLength() + 1), 0);
    Vardo400::utf::utf16ToBytes(t.data(), t.getLength(), data.data() + at, false);
}

bool buildData(unsigned long type, const std::string& text, std::vector<unsigned char>& data)
{
    data.clear();
    switch (type) {
    case 1:
    case 2:
        appendText(argToText(text), data);
        return true;
    case 4:
    case 11: {
        unsigned long long v;
        if (!parseNumber(text, type == 4 ? 0xFFFFFFFFull : ~0ull, v))
            return false;
        for (int i = 0; i < (type == 4 ? 4 : 8); ++i)
            data.push_back(static_cast<unsigned char>(v >> (8 * i)));
        return true;
    }
    case 7: {
        size_t start = 0;
        if (!text.empty()) {
            for (;;) {
                size_t sep = text.find("\\0", start);
                appendText(argToText(text.substr(start, sep == std::string::npos ? std::string::npos
                                                                                 : sep - start)),
                           data);
                if (sep == std::string::npos)
                    break;
                start = sep + 2;
            }
        }
        data.push_back(0);
        data.push_back(0);
        return true;
    }
    default: {
        std::string digits;
        for (char c : text) {
            if (c == ',' || c == ' ')
                continue;
            if (!std::isxdigit(static_cast<unsigned char>(c)))
                return false;
            digits += c;
        }
        if (digits.size() % 2)
            return false;
        for (size_t i = 0; i < digits.size(); i += 2)
            data.push_back(static_cast<unsigned char>(std::strtoul(digits.substr(i, 2).c_str(), 0, 16)));
        return true;
    }
    }
}

std::string showData(unsigned long type, const std::vector<unsigned char>& d)
{
    auto unitAt = [&](size_t i) { return static_cast<unsigned short>(d[i] | (d[i + 1] << 8)); };
    char buf[32];
    switch (type) {
    case 1:
    case 2: {
        std::vector<unsigned short> u;
        for (size_t i = 0; i + 1 < d.size() && unitAt(i); i += 2)
            u.push_back(unitAt(i));
        u.push_back(0);
        return utf8(SWCharString(u.data()));
    }
    case 4:
        if (d.size() == 4) {
            std::snprintf(buf, sizeof buf, "0x%x",
                          static_cast<unsigned>(d[0] | (d[1] << 8) | (d[2] << 16)) |
                              (static_cast<unsigned>(d[3]) << 24));
            return buf;
        }
        break;
    case 11:
        if (d.size() == 8) {
            unsigned long long v = 0;
            for (int i = 7; i >= 0; --i)
                v = (v << 8) | d[i];
            std::snprintf(buf, sizeof buf, "0x%llx", v);
            return buf;
        }
        break;
    case 7: {
        std::string s;
        std::vector<unsigned short> u;
        bool first = true;
        for (size_t i = 0; i + 1 < d.size(); i += 2) {
            unsigned short c = unitAt(i);
            if (c) {
                u.push_back(c);
                continue;
            }
            if (u.empty())
                break;   // the closing empty string
            u.push_back(0);
            s += (first ? "" : "\\0") + utf8(SWCharString(u.data()));
            first = false;
            u.clear();
        }
        return s;
    }
    default:
        break;
    }
    std::string hex;
    for (unsigned char c : d) {
        std::snprintf(buf, sizeof buf, "%02X", c);
        hex += buf;
    }
    return hex;
}

bool readRaw(Registry& reg, const SWCharString& name, unsigned long& type,
             std::vector<unsigned char>& data)
{
    uint32_t size = 0;
    if (!reg.ReadValueRaw(name, type, 0, size) && size == 0) {
        // Either missing or an empty value: ask with a buffer to tell them apart.
        unsigned char none = 0;
        uint32_t zero = 0;
        if (!reg.ReadValueRaw(name, type, &none, zero))
            return false;
        data.clear();
        return true;
    }
    for (int attempt = 0; attempt < 8; ++attempt) {
        data.resize(size ? size : 1);
        uint32_t have = static_cast<uint32_t>(data.size());
        if (reg.ReadValueRaw(name, type, data.data(), have)) {
            data.resize(have);
            return true;
        }
        if (have <= data.size())
            return false;
        size = have;
    }
    return false;
}

std::string valueLine(Registry& reg, const SWCharStringCI& name)
{
    unsigned long type = 0;
    std::vector<unsigned char> data;
    if (!readRaw(reg, name, type, data))
        return std::string();
    char buf[32];
    const char* tn = typeName(type);
    if (!tn) {
        std::snprintf(buf, sizeof buf, "0x%lX", type);
        tn = buf;
    }
    return "    " + (name.isEmpty() ? std::string("(Default)") : utf8(name)) + "    " + tn + "    " +
           showData(type, data) + "\n";
}

SWCharString valueName(const std::string& arg)
{
    return arg == "@" ? SWCharString() : argToText(arg);
}

bool openKeyArg(const std::string& arg, RegKeyHandle& root, SWCharString& path,
                SWCharString& display)
{
    SWCharString full = argToText(arg);
    if (!SRegFile::SplitKeyPath(full, root, path)) {
        err("KEY must start with HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT, "
            "HKEY_USERS or HKEY_CURRENT_CONFIG (or HKLM, HKCU, HKCR, HKU, HKCC): " + arg);
        return false;
    }
    display = SRegFile::RootName(root);
    if (!path.isEmpty())
        display += argToText("\\") + path;
    return true;
}

int query(const std::vector<std::string>& a)
{
    RegKeyHandle root;
    SWCharString path, display;
    if (!openKeyArg(a[1], root, path, display))
        return 2;
    Registry reg(path, SWCharString(), root);
    if (!reg.KeyExists()) {
        err("key not found: " + utf8(display));
        return 1;
    }
    if (a.size() == 3) {
        std::string line = valueLine(reg, valueName(a[2]));
        if (line.empty()) {
            err("value not found: " + a[2] + " in " + utf8(display));
            return 1;
        }
        out(utf8(display) + "\n" + line);
        return 0;
    }
    std::string text = utf8(display) + "\n";
    for (Registry::ValueIterator it = reg.EnumValues(); it; ++it)
        text += valueLine(reg, it.GetName());
    std::string keys;
    for (Registry::KeyIterator it = reg.EnumSubKeys(); it; ++it)
        keys += utf8(display) + "\\" + utf8(it.GetKey()) + "\n";
    if (!keys.empty())
        text += "\n" + keys;
    out(text);
    return 0;
}

int set(const std::vector<std::string>& a)
{
    RegKeyHandle root;
    SWCharString path, display;
    if (!openKeyArg(a[1], root, path, display))
        return 2;
    unsigned long type;
    if (!parseType(a[3], type)) {
        err("unknown TYPE " + a[3]);
        return 2;
    }
    std::vector<unsigned char> data;
    if (!buildData(type, a[4], data)) {
        err("DATA does not fit " + a[3] + ": " + a[4]);
        return 2;
    }
    Registry reg(path, SWCharString(), root);
    static const unsigned char none = 0;
    if (!reg.WriteValueRaw(valueName(a[2]), type, data.empty() ? &none : data.data(),
                           static_cast<uint32_t>(data.size()))) {
        err("cannot write " + a[2] + " in " + utf8(display));
        return 1;
    }
    return 0;
}

int remove(const std::vector<std::string>& a)
{
    RegKeyHandle root;
    SWCharString path, display;
    if (!openKeyArg(a[1], root, path, display))
        return 2;
    Registry reg(path, SWCharString(), root);
    if (!reg.KeyExists()) {
        err("key not found: " + utf8(display));
        return 1;
    }
    if (a.size() == 3) {
        if (!reg.DeleteValue(valueName(a[2]))) {
            err("cannot delete value " + a[2] + " (missing?) in " + utf8(display));
            return 1;
        }
        return 0;
    }
    if (path.isEmpty()) {
        err("a registry root cannot be deleted");
        return 1;
    }
    if (!reg.DeleteKeyRecursive()) {
        err("cannot delete " + utf8(display));
        return 1;
    }
    return 0;
}

int exportTree(const std::vector<std::string>& a)
{
    SWCharString text, error;
    if (!SRegFile::Export(argToText(a[1]), text, &error)) {
        err(utf8(error));
        return 1;
    }
    // UTF-16LE behind its byte-order mark.
    std::string bytes(2 + 2 * static_cast<size_t>(text.getLength()), '\0');
    bytes[0] = '\xFF';
    bytes[1] = '\xFE';
    Vardo400::utf::utf16ToBytes(text.data(), text.getLength(), reinterpret_cast<unsigned char*>(&bytes[2]), false);
    FILE* f = std::fopen(a[2].c_str(), "wb");
    if (!f) {
        err("cannot write " + a[2] + ": " + std::strerror(errno));
        return 1;
    }
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = std::fclose(f) == 0 && ok;
    if (!ok) {
        err("cannot write " + a[2]);
        return 1;
    }
    return 0;
}

int importFile(const std::vector<std::string>& a)
{
    FILE* f = std::fopen(a[1].c_str(), "rb");
    if (!f) {
        err("cannot read " + a[1] + ": " + std::strerror(errno));
        return 1;
    }
    std::string bytes;
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0)
        bytes.append(buf, n);
    bool readError = std::ferror(f) != 0;
    std::fclose(f);
    if (readError) {
        err("cannot read " + a[1]);
        return 1;
    }
    SWCharString error;
    if (!SRegFile::Import(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), &error)) {
        err(a[1] + ": " + utf8(error));
        return 1;
    }
    return 0;
}

int runReg(const std::vector<std::string>& a)
{
    const std::string cmd = a.empty() ? std::string() : a[0];
    size_t n = a.size();
    bool ok = (cmd == "query" && (n == 2 || n == 3)) || (cmd == "set" && n == 5) ||
              (cmd == "delete" && (n == 2 || n == 3)) || (cmd == "export" && n == 3) ||
              (cmd == "import" && n == 2) || (cmd == "check" && n == 1);
    if (!ok) {
        std::fputs(Usage, stderr);
        return 2;
    }
    SWCharString detail;
    SRegistryStore::Status status = SRegistryStore::Check(&detail);
    std::string where = utf8(SRegistryStore::GetPath());
    if (status == SRegistryStore::StoreDamaged) {
        err("the registry store is damaged: " + utf8(detail));
        err("restore " + where + " from a backup or move it aside (a new store is then created)");
        return 3;
    }
    if (cmd == "check") {
        if (status == SRegistryStore::StoreUnreadable) {
            err("the registry store cannot be read: " + utf8(detail));
            return 1;
        }
        out(where.empty() ? std::string("the system registry\n")
                          : where + (status == SRegistryStore::StoreMissing ? ": not created yet\n"
                                                                             : ": ok\n"));
        return 0;
    }
    SetAssertObserver(showAssertion);
    if (cmd == "query")
        return query(a);
    if (cmd == "set")
        return set(a);
    if (cmd == "delete")
        return remove(a);
    if (cmd == "export")
        return exportTree(a);
    return importFile(a);
}

} // namespace

VARDO_TOOL_COMMAND(reg, "reg",
                   "reg query|set|delete|export|import|check ...   registry values and regedit files",
                   runReg);
