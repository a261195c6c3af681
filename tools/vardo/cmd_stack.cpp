// vardo stack [--skip N]: a live stack walk of the tool itself, as the library renders
// it in assertion reports (SStackWalk): per frame the address, module, symbol with its
// displacement and, where the binary carries line information, the source line.
// Exit codes: 0 walked, 1 the stack could not be captured, 2 usage.
#include "command.h"

#include "vardo/sstackwalk.h"

#include <cstdio>
#include <cstdlib>
#include <string>

using namespace Vardo400;

namespace {

const char kUsage[] =
    "usage: vardo stack [--skip N]\n"
    "  Prints the call stack of this command, innermost frame first, as the library's\n"
    "  assertion reports show it. --skip N leaves out N frames from the top (0..511).\n";

int runStack(const std::vector<std::string>& args)
{
    long skip = 0;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--help" || args[i] == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (args[i] == "--skip" && i + 1 < args.size()) {
            long n = 0;
            if (!vardo_tool::parseNumber(args[i + 1], 0, 511, n)) {
                std::fprintf(stderr, "vardo stack: --skip wants a number from 0 to 511\n");
                return 2;
            }
            skip = static_cast<int>(n);
            ++i;
            continue;
        }
        std::fputs(kUsage, stderr);
        return 2;
    }
    SStackWalk walker;
    SWCharString text;
    if (!SStackWalk::StackWalkAll(text, static_cast<int>(skip))) {
        std::fprintf(stderr, "vardo stack: the stack could not be captured\n");
        return 1;
    }
    std::string out = vardo_tool::utf8(text);
    std::fputs(out.c_str(), stdout);
    std::fputc('\n', stdout);
    return 0;
}

} // namespace

VARDO_TOOL_COMMAND(stack, "stack", "stack [--skip N]   prints a live stack walk of the tool itself", runStack);
