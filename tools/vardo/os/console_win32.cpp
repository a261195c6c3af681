// The tool's few console questions on Windows: a console handle answers GetConsoleMode.
#include "../progress.h"

#include <windows.h>

namespace vardo_tool {

bool stderrIsTerminal()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

} // namespace vardo_tool
