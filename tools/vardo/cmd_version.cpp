// vardo version: which library the tool runs with.
#include "command.h"

#include "vardo/version.h"

#include <cstdio>

static int runVersion(const std::vector<std::string>& args)
{
    if (!args.empty()) {
        std::fprintf(stderr, "usage: vardo version\n");
        return 2;
    }
    std::printf("%s %s (%s)\n", Vardo400::LibraryName(), Vardo400::LibraryVersion(),
                Vardo400::LibraryPlatform());
    return 0;
}

VARDO_TOOL_COMMAND(version, "version", "version   prints the library's name, version and platform",
                   runVersion);
