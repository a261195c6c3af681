// Helpers for the logger's tests.
#include "logger_files.h"

#include <vardo/slogger.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>

namespace fs = std::filesystem;
using namespace Vardo400;

namespace vardo_test {

std::string pathU8(const fs::path& p)
{
    auto s = p.u8string();
    return std::string(s.begin(), s.end());
}

fs::path makeScratchDir(const std::string& prefix)
{
    std::random_device rd;
    for (int i = 0; i < 100; ++i) {
        fs::path p = fs::temp_directory_path() / (prefix + std::to_string(rd()));
        std::error_code ec;
        if (fs::create_directory(p, ec))
            return p;
    }
    return fs::path();
}

std::string readFile(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> readLines(const fs::path& p)
{
    std::string all = readFile(p);
    std::vector<std::string> lines;
    size_t at = 0;
    while (at < all.size()) {
        size_t end = all.find('\n', at);
        if (end == std::string::npos) {
            lines.push_back(all.substr(at));
            break;
        }
        lines.push_back(all.substr(at, end - at));
        at = end + 1;
    }
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
