// Helpers for the logger's tests.
#include "logger_files.h"

#include <vardo/slogger.h>

#include <algorithm>
#include <fstream>

namespace fs = std::filesystem;
using namespace Vardo400;

namespace vardo_test {

std::string pathU8(const fs::path& p)
{
    auto s = p.u8string();
    return std::string(s.begin(), s.end());
}

std::vector<std::string> readLines(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);)
        lines.push_back(l);
    return lines;
}

std::vector<std::string> listFiles(const fs::path& dir)
{
    std::vector<std::string> names;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
        if (it->is_regular_file())
            names.push_back(pathU8(it->path().filename()));
    std::sort(names.begin(), names.end());
    return names;
}

void terminateLogger()
{
    for (int i = 0; i < 1000; ++i)
        if (SLogger::Terminate() || SLogger::GetCmdLine().isEmpty())
            break;
}

bool initLogger(const std::string& cmdLine, bool reload)
{
    return SLogger::Initialize(CParamLineArgs(W(cmdLine)), reload);
}

} // namespace vardo_test
