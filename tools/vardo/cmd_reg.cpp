// vardo reg: the registry for operators.
//   reg query KEY [VALUE]          the key's values and sub-keys, or one value
//   reg set KEY VALUE TYPE DATA    writes a value (creating the key)
//   reg delete KEY [VALUE]         deletes a value, or the key with everything below it
//   reg export KEY FILE            writes the tree to FILE in regedit format (UTF-16LE)
//   reg import FILE                applies a regedit file (UTF-16 with BOM, or UTF-8)
//   reg check                      checks the stores (Linux) and says where they are: the
//                                  machine store, then HKEY_CURRENT_USER's own store
// KEY starts with a root: HKEY_LOCAL_MACHINE (HKLM), HKEY_CURRENT_USER (HKCU),
// HKEY_CLASSES_ROOT (HKCR), HKEY_USERS (HKU), HKEY_CURRENT_CONFIG (HKCC). VALUE "@" names
// the unnamed default value. Output is UTF-8.
// Exit codes: 0 done, 1 not found or failed, 2 usage, 3 the store is damaged.
#include "command.h"

#include "vardo/regfile.h"
#include "vardo/registry.h"
#include "vardo/strace.h"
#include "utfcore.h"

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

std::string valueLine(Registry& reg, const SWCharStringCI& name)
{
    unsigned long type = 0;
    SSimpleBuffer data;
    if (!reg.ReadValueRaw(name, type, data))
        return std::string();
    return "    " + (name.isEmpty() ? std::string("(Default)") : utf8(name)) + "    " +
           utf8(SRegText::TypeText(static_cast<uint32_t>(type))) + "    " +
           utf8(SRegText::FormatData(static_cast<uint32_t>(type), data.data(),
                                     static_cast<uint32_t>(data.size()))) +
           "\n";
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

// The key that arg names, which must exist: 0, else the exit code (the reason is shown).
int existingKey(const std::string& arg, Registry& reg, SWCharString& path, SWCharString& display)
{
    RegKeyHandle root;
    if (!openKeyArg(arg, root, path, display))
        return 2;
    reg = Registry(path, SWCharString(), root);
    if (!reg.KeyExists()) {
        err("key not found: " + utf8(display));
        return 1;
    }
    return 0;
}

int query(const std::vector<std::string>& a)
{
    Registry reg;
    SWCharString path, display;
    if (int code = existingKey(a[1], reg, path, display))
        return code;
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
    uint32_t type;
    if (!SRegText::ParseType(argToText(a[3]), type)) {
        err("unknown TYPE " + a[3]);
        return 2;
    }
    SSimpleBuffer data;
    if (!SRegText::ParseData(type, argToText(a[4]), data)) {
        err("DATA does not fit " + a[3] + ": " + a[4]);
        return 2;
    }
    Registry reg(path, SWCharString(), root);
    static const unsigned char none = 0;
    if (!reg.WriteValueRaw(valueName(a[2]), type, data.isEmpty() ? &none : data.data(),
                           static_cast<uint32_t>(data.size()))) {
        err("cannot write " + a[2] + " in " + utf8(display));
        return 1;
    }
    return 0;
}

int remove(const std::vector<std::string>& a)
{
    Registry reg;
    SWCharString path, display;
    if (int code = existingKey(a[1], reg, path, display))
        return code;
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
    // The machine store, then the user's own store for HKEY_CURRENT_USER.
    const RegKeyHandle roots[] = {RegLocalMachine, RegCurrentUser};
    std::string report;
    for (RegKeyHandle root : roots) {
        SWCharString detail;
        SRegistryStore::Status status = SRegistryStore::CheckRoot(root, &detail);
        std::string where = utf8(SRegistryStore::GetRootPath(root));
        if (status == SRegistryStore::StoreDamaged) {
            err("the registry store is damaged: " + utf8(detail));
            err("restore " + where + " from a backup or move it aside (a new store is then created)");
            return 3;
        }
        if (cmd != "check")
            continue;
        if (status == SRegistryStore::StoreUnreadable) {
            err("the registry store cannot be read: " + utf8(detail));
            return 1;
        }
        if (where.empty()) {
            report = "the system registry\n";
            break;
        }
        report += where + (status == SRegistryStore::StoreMissing ? ": not created yet\n" : ": ok\n");
    }
    if (cmd == "check") {
        out(report);
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
