// vardo net check HOST PORT [SECONDS]: whether a TCP connection to HOST:PORT can be made
// within SECONDS (default 10), and how long it took.
// Output: "reachable HOST PORT <ms> ms" or "unreachable HOST PORT after <ms> ms" (or
// "unreachable HOST PORT: the name does not resolve"). Exit codes: 0 reachable,
// 1 unreachable, 2 usage.
#include "command.h"

#include "vardo/csisocket.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

using namespace Vardo400;

namespace {

using vardo_tool::parseNumber;

const char kUsage[] = "usage: vardo net check HOST PORT [SECONDS]\n";


int runNet(const std::vector<std::string>& args)
{
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    long port = 0, seconds = 10;
    if (args.size() < 3 || args.size() > 4 || args[0] != "check" || !parseNumber(args[2], 1, 65535, port) ||
        (args.size() == 4 && !parseNumber(args[3], 0, 32767, seconds))) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const std::string& host = args[1];
    SWCharString hostText = vardo_tool::argToText(host);
    CSISocket::initialize();
    SWCharString canonical;
    if (!CSISocket::isValidIPAddrString(hostText, nullptr) && !CSISocket::gethostbyname(hostText, canonical)) {
        std::printf("unreachable %s %ld: the name does not resolve\n", host.c_str(), port);
        CSISocket::uninitialize();
        return 1;
    }
    SIArray<CSISocket::ServerToPing> servers;
    servers.push_back(CSISocket::ServerToPing(hostText, (int)port));
    auto start = std::chrono::steady_clock::now();
    int found = CSISocket::ping(servers, (short)seconds);
    long long ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    CSISocket::uninitialize();
    if (found == 0) {
        std::printf("reachable %s %ld %lld ms\n", host.c_str(), port, ms);
        return 0;
    }
    std::printf("unreachable %s %ld after %lld ms\n", host.c_str(), port, ms);
    return 1;
}

} // namespace

VARDO_TOOL_COMMAND(net, "net", "net check HOST PORT [SECONDS]   whether a TCP connection can be made, and how fast",
                   runNet);
