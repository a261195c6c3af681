// The tool's few console questions on Linux.
#include "../progress.h"

#include <unistd.h>

namespace vardo_tool {

bool stderrIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

} // namespace vardo_tool
