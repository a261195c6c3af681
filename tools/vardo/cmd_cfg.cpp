// vardo cfg FILE [SECTION [KEY]]: what a ConfigFileReader makes of a configuration file.
//   FILE                 every section name, one per line, in file order
//   FILE SECTION         the keys of the section, one per line, in key order
//   FILE SECTION KEY     the value (the last section of that name decides)
// Output is UTF-8. Exit codes: 0 found, 1 file unreadable or section/key missing,
// 2 usage.
#include "command.h"

#include "vardo/configfilereader.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_tool::argToText;
using vardo_tool::utf8;

// An argument as text: UTF-8 when it is valid UTF-8, else the process code page.
void printLine(const SWCharString& text)
{
    std::string s = utf8(text);
    s += '\n';
    std::fwrite(s.data(), 1, s.size(), stdout);
}

int runCfg(const std::vector<std::string>& args)
{
    if (args.empty() || args.size() > 3) {
        std::fprintf(stderr, "usage: vardo cfg FILE [SECTION [KEY]]\n");
        return 2;
    }
    const std::string& file = args[0];
    ConfigFileReader reader;
    if (!reader.initialize(argToText(file))) {
        std::fprintf(stderr, "vardo cfg: cannot read '%s' (missing, unreadable or empty)\n",
                     file.c_str());
        return 1;
    }

    if (args.size() == 1) {
        SIArray<SWCharString> sections;
        reader.getSections(sections);
        for (const SWCharString& s : sections)
            printLine(s);
        return 0;
    }

    const SWCharString section = argToText(args[1]);
    SIArray<SWCharString> keys;
    if (!reader.enumerateSection(section, keys)) {
        std::fprintf(stderr, "vardo cfg: no section '%s' in '%s'\n", args[1].c_str(), file.c_str());
        return 1;
    }
    if (args.size() == 2) {
        for (const SWCharString& k : keys)
            printLine(k);
        return 0;
    }

    // Two different defaults tell an empty value from a missing key.
    const SWCharString key = argToText(args[2]);
    const SWCharString first = reader.getValue(section, key, SWCharString());
    if (first.isEmpty()) {
        const SWCharString marker(SWCharString::Char(static_cast<unsigned short>(1)));
        if (reader.getValue(section, key, marker) == marker) {
            std::fprintf(stderr, "vardo cfg: no key '%s' in section '%s' of '%s'\n",
                         args[2].c_str(), args[1].c_str(), file.c_str());
            return 1;
        }
    }
    printLine(first);
    return 0;
}

} // namespace

VARDO_TOOL_COMMAND(cfg, "cfg", "cfg FILE [SECTION [KEY]]   print a configuration file's sections, a section's keys, or a value", runCfg);
