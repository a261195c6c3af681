// vardo: the operator's command-line tool over the Vardo400 library.
#include "command.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace vardo_tool {

static std::vector<Command>& commands()
{
    static std::vector<Command> all;
    return all;
}

bool registerCommand(const Command& c)
{
    commands().push_back(c);
    return true;
}

} // namespace vardo_tool

using namespace vardo_tool;

static int usage(FILE* out)
{
    std::vector<Command> all = commands();
    std::sort(all.begin(), all.end(),
              [](const Command& a, const Command& b) { return std::strcmp(a.name, b.name) < 0; });
    std::fprintf(out, "usage: vardo COMMAND [ARGS...]\n\ncommands:\n");
    for (const Command& c : all)
        std::fprintf(out, "  %s\n", c.usage);
    std::fprintf(out, "  help\n");
    return out == stdout ? 0 : 2;
}

int main(int argc, char** argv)
{
    if (argc < 2)
        return usage(stderr);
    std::string name = argv[1];
    if (name == "help" || name == "--help" || name == "-h")
        return usage(stdout);
    std::vector<std::string> args(argv + 2, argv + argc);
    for (const Command& c : commands())
        if (name == c.name)
            return c.run(args);
    std::fprintf(stderr, "vardo: unknown command '%s'\n", name.c_str());
    return usage(stderr);
}
