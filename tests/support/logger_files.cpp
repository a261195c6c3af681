// Helpers for the logger's tests.
#include "logger_files.h"

#include <algorithm>
#include <fstream>

namespace fs = std::filesystem;

namespace vardo_test {

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
        if (Vardo400::SLogger::Terminate() || Vardo400::SLogger::GetCmdLine().isEmpty())
            break;
}

} // namespace vardo_test
