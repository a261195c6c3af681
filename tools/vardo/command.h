// The vardo tool's subcommands register themselves here, one source file each.
#ifndef VARDO_TOOL_COMMAND_H
#define VARDO_TOOL_COMMAND_H

#include <vardo/sstring.h>

#include <string>
#include <vector>

namespace vardo_tool {

// A subcommand gets its own arguments (the words after its name) and returns the
// process exit code.
typedef int (*CommandFn)(const std::vector<std::string>& args);

struct Command {
    const char* name;
    const char* usage;   // one line, shown by "vardo help"
    CommandFn run;
};

// Adds a command; called from static initialisers of the command files.
bool registerCommand(const Command& c);

// A command-line word as text: UTF-8, else the process code page, else 7-bit with "?".
Vardo400::SWCharString argToText(const std::string& arg);
// Text as UTF-8 for the console.
std::string utf8(const Vardo400::SWCharString& s);
// A decimal number from minimum to maximum: an optional "-" and digits, nothing else (no
// blanks, no "+"). False for anything else.
bool parseNumber(const std::string& s, long minimum, long maximum, long& out);

} // namespace vardo_tool

#define VARDO_TOOL_COMMAND(id, name, usage, fn)                                           \
    static const bool vardo_tool_registered_##id =                                        \
        ::vardo_tool::registerCommand(::vardo_tool::Command{name, usage, fn})

#endif
