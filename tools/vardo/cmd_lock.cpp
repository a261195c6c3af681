// vardo lock FILE [options]: takes a lock file the way the suite's processes do
// (SFileLock), holds it, releases it, and shows every return code.
//   --hold SECONDS    keep the lock this long before releasing it (default 0)
//   --attempts N      attempts of 100 ms each before giving up (default 50, 1..65535)
//   --stale N         polls that must see the same lock file before it counts as
//                     abandoned and is removed (default 300, about 30 s; 1..65535)
//   --keep            do not release: leave the lock file in place
//   --release         only release: remove FILE whoever created it (breaks a lock)
// Output: "lock: <code> <meaning>" and "unlock: <code> <meaning>"; a directory at FILE is
// reported at once as "lock: 6 could not create the lock file: the path is a directory".
// Exit codes: 0 the lock was taken (and released), 1 it was not (or the release failed),
// 2 usage.
#include "command.h"

#include "vardo/sfilelock.h"
#include "vardo/sfilesys.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

using namespace Vardo400;

namespace {

using vardo_tool::parseNumber;

using vardo_tool::argToText;
using vardo_tool::utf8;

const char kUsage[] =
    "usage: vardo lock FILE [--hold SECONDS] [--attempts N] [--stale N] [--keep | --release]\n";

const char* meaning(SFileLock::ErrorCodes code)
{
    switch (code) {
    case SFileLock::success: return "success";
    case SFileLock::gaveUp: return "gave up: every attempt found the lock held";
    case SFileLock::systemError: return "system error: the lock file could not be examined or deleted";
    case SFileLock::staleLockRemoved: return "success after removing a stale lock file";
    case SFileLock::notOwner: return "not released: the lock file is gone or belongs to another holder";
    case SFileLock::createFailed: return "could not create the lock file";
    }
    return "unknown";
}


int runLock(const std::vector<std::string>& args)
{
    std::string file;
    long hold = 0, attempts = 50, stale = 300;
    bool keep = false, releaseOnly = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        bool hasValue = i + 1 < args.size();
        if (a == "--hold" && hasValue && parseNumber(args[i + 1], 0, 86400 * 365, hold)) {
            ++i;
        } else if (a == "--attempts" && hasValue && parseNumber(args[i + 1], 0, 65535, attempts)) {
            ++i;
        } else if (a == "--stale" && hasValue && parseNumber(args[i + 1], 0, 65535, stale)) {
            ++i;
        } else if (a == "--keep") {
            keep = true;
        } else if (a == "--release") {
            releaseOnly = true;
        } else if (a.compare(0, 2, "--") != 0 && file.empty()) {
            file = a;
        } else {
            std::fputs(kUsage, stderr);
            return 2;
        }
    }
    if (file.empty() || (keep && releaseOnly)) {
        std::fputs(kUsage, stderr);
        return 2;
    }

    SFileLock lock(argToText(file), static_cast<uint16_t>(stale), static_cast<uint16_t>(attempts), false);
    if (!releaseOnly) {
        SFileLock::ErrorCodes rc = lock.lock();
        // A directory in the way is the one cause of a failed create worth naming.
        const bool directory = rc == SFileLock::createFailed && SFileSys::isDir(argToText(file));
        std::printf("lock: %d %s%s\n", static_cast<int>(rc), meaning(rc),
                    directory ? ": the path is a directory" : "");
        std::fflush(stdout);
        if (rc != SFileLock::success && rc != SFileLock::staleLockRemoved)
            return 1;
        if (hold > 0)
            std::this_thread::sleep_for(std::chrono::seconds(hold));
        if (keep)
            return 0;
    }
    SFileLock::ErrorCodes rc = lock.unlock();
    std::printf("unlock: %d %s\n", static_cast<int>(rc), meaning(rc));
    return rc == SFileLock::success ? 0 : 1;
}

} // namespace

VARDO_TOOL_COMMAND(lock, "lock",
                   "lock FILE [--hold S] [--attempts N] [--stale N] [--keep|--release]   takes and releases a lock file",
                   runLock);
