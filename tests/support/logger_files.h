// Helpers for the logger's tests: log files read back as lines, the logger brought up
// and down.
#ifndef VARDO_TEST_LOGGER_FILES_H
#define VARDO_TEST_LOGGER_FILES_H

#include <vardo/slogger.h>

#include "text.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace vardo_test {

inline std::string pathU8(const std::filesystem::path& p)
{
    auto s = p.u8string();
    return std::string(s.begin(), s.end());
}

// The file cut at "\n"; each line keeps its "\r". A last piece without "\n" is kept too.
inline std::vector<std::string> readLines(const std::filesystem::path& p)
{
    std::ifstream in(p, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);)
        lines.push_back(l);
    return lines;
}

// Names (no folder) of the folder's regular files, sorted.
inline std::vector<std::string> listFiles(const std::filesystem::path& dir)
{
    std::vector<std::string> names;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
        if (it->is_regular_file())
            names.push_back(pathU8(it->path().filename()));
    std::sort(names.begin(), names.end());
    return names;
}

// Calls SLogger::Terminate until the logger is gone.
inline void terminateLogger()
{
    for (int i = 0; i < 1000; ++i)
        if (Vardo400::SLogger::Terminate() || Vardo400::SLogger::GetCmdLine().isEmpty())
            break;
}

// Initializes the logger with the command line (UTF-8); false when Initialize failed.
inline bool initLogger(const std::string& cmdLine, bool reload = false)
{
    return Vardo400::SLogger::Initialize(Vardo400::CParamLineArgs(W(cmdLine)), reload);
}

} // namespace vardo_test

#endif
