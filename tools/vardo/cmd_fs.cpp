// vardo fs: unique names, disk usage, tree sizes and copies through SFileSys.
#include "command.h"
#include "progress.h"

#include "vardo/sfile.h"
#include "vardo/sfilesys.h"

#include <cstdio>
#include <string>

using namespace Vardo400;

namespace {

using vardo_tool::argToText;
using vardo_tool::utf8;

int usage()
{
    std::fprintf(stderr,
                 "usage: vardo fs unique [--create] [--dir] DIR [PREFIX] [EXT]\n"
                 "       vardo fs df PATH\n"
                 "       vardo fs du PATH\n"
                 "       vardo fs copy [--overwrite] SOURCE TARGET\n");
    return 2;
}

int unique(std::vector<std::string> args)
{
    bool create = false, directory = false;
    while (!args.empty() && args[0].size() > 2 && args[0].compare(0, 2, "--") == 0) {
        if (args[0] == "--create")
            create = true;
        else if (args[0] == "--dir")
            directory = true;
        else
            return usage();
        args.erase(args.begin());
    }
    if (args.empty() || args.size() > 3 || (directory && args.size() > 2))
        return usage();
    const SWCharString dir = argToText(args[0]);
    const SWCharString prefix = args.size() > 1 ? argToText(args[1]) : SWCharString();
    const SWCharString ext = args.size() > 2 ? argToText(args[2]) : SWCharString();
    const SWCharString name = directory ? SFileSys::getUniqueDirname(dir, prefix, create)
                                        : SFileSys::getUniqueFilename(dir, prefix, ext, create);
    std::printf("%s\n", utf8(name).c_str());
    return 0;
}

int df(const std::vector<std::string>& args)
{
    if (args.size() != 1)
        return usage();
    int64_t available = 0, total = 0, freeBytes = 0;
    SFileSys::diskUsageInfo(argToText(args[0]), available, total, freeBytes);
    std::printf("available %lld\ntotal %lld\nfree %lld\n", (long long)available, (long long)total,
                (long long)freeBytes);
    return 0;
}

int du(const std::vector<std::string>& args)
{
    if (args.size() != 1)
        return usage();
    const SWCharString path = argToText(args[0]);
    const int64_t bytes = SFileSys::rsizeEx(path);
    if (SFileSys::isDir(path))
        std::printf("bytes %lld\nfiles %u\nentries %u\n", (long long)bytes,
                    SFileSys::countFiles(path), SFileSys::countAll(path));
    else
        std::printf("bytes %lld\nfiles 1\nentries 1\n", (long long)bytes);
    return 0;
}

int copy(std::vector<std::string> args)
{
    bool overwrite = false;
    if (!args.empty() && args[0] == "--overwrite") {
        overwrite = true;
        args.erase(args.begin());
    }
    if (args.size() != 2)
        return usage();
    const SWCharString source = argToText(args[0]), target = argToText(args[1]);
    {
        // Measures what has arrived at the target: a tree is summed again on every redraw,
        // which only a terminal ever asks for.
        const bool tree = SFileSys::isDir(source);
        auto measure = [tree](const SWCharString& path) -> int64_t {
            try {
                return tree ? SFileSys::rsizeEx(path) : SFileSys::sizeEx(path);
            } catch (const SException&) {
                return -1;
            }
        };
        vardo_tool::Progress progress("copying " + args[0], vardo_tool::stderrIsTerminal() ? measure(source) : 0,
                          [&] { return measure(target); });
        SFileSys::copyFile(source, target, overwrite);
    }
    std::printf("copied %s to %s\n", args[0].c_str(), args[1].c_str());
    return 0;
}

int runFs(const std::vector<std::string>& args)
{
    if (args.empty())
        return usage();
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    try {
        if (args[0] == "unique")
            return unique(rest);
        if (args[0] == "df")
            return df(rest);
        if (args[0] == "du")
            return du(rest);
        if (args[0] == "copy")
            return copy(rest);
    } catch (const SFileSysException& e) {
        std::fprintf(stderr, "vardo fs: %s\n", utf8(e.summary()).c_str());
        return 1;
    } catch (const SFileException& e) {
        std::fprintf(stderr, "vardo fs: %s\n", utf8(e.toString()).c_str());
        return 1;
    }
    return usage();
}

} // namespace

VARDO_TOOL_COMMAND(fs, "fs",
                   "fs unique|df|du|copy ...   unique names, disk usage, tree size, copies",
                   runFs);
