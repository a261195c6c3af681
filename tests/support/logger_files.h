// Helpers for the logger's tests: log files read back as lines, the logger brought up
// and down.
#ifndef VARDO_TEST_LOGGER_FILES_H
#define VARDO_TEST_LOGGER_FILES_H

#include <vardo/slogger.h>

#include "text.h"

#include <filesystem>
#include <string>
#include <vector>

namespace vardo_test {

// UTF-8 as text and back (text.h); U8 is U under the name these tests use.
inline std::string U8(const Vardo400::SWCharString& s) { return U(s); }
inline std::string pathU8(const std::filesystem::path& p)
{
    auto s = p.u8string();
    return std::string(s.begin(), s.end());
}

// The file cut at "\n"; each line keeps its "\r". A last piece without "\n" is kept too.
std::vector<std::string> readLines(const std::filesystem::path& p);
// Names (no folder) of the folder's regular files, sorted.
std::vector<std::string> listFiles(const std::filesystem::path& dir);
// Calls SLogger::Terminate until the logger is gone.
void terminateLogger();
// Initializes the logger with the command line (UTF-8); false when Initialize failed.
inline bool initLogger(const std::string& cmdLine, bool reload = false)
{
    return Vardo400::SLogger::Initialize(Vardo400::CParamLineArgs(W(cmdLine)), reload);
}

} // namespace vardo_test

#endif
