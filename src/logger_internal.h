// Pieces of the logger shared by its source files. Not installed.
#ifndef VARDO_LOGGER_INTERNAL_H
#define VARDO_LOGGER_INTERNAL_H

#include "vardo/sstring.h"
#include "os/os_logappend.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Vardo400 {
namespace logger_detail {

// The last component of a path (after the last '/' or '\\') without its extension.
SWCharString baseName(const SWCharString& path);
// The running program's base name; empty when unknown.
SWCharString executableBaseName();

// What became of one line given to appendLine.
enum AppendResult {
    appendWritten = 0,       // appended (after a rotation when one was due)
    appendOverSize = 1,      // appended to the full file: no backup name was free
    appendFailed = 2         // not written (no open within the attempts, a write error)
};

// The system's form of the log names one thread writes to, kept from line to line: a
// thread writes to at most the four logs of a logger, so four slots almost always hold
// them. A slot keeps its name (a shared buffer that cannot change under it), so the same
// buffer means the same name.
class PathCache {
public:
    const os::AppendPath& get(const SWCharString& name);

private:
    SWCharString m_names[4];
    os::AppendPath m_paths[4];
    unsigned int m_next = 0;
};

// Appends line (bytes, line end included) to the file fullName (path: its system form) as one locked write,
// creating the file when missing. When the file has reached maxSize it is first renamed
// to a free backup name STEM_bakN.EXT. With header, an empty file gets headerLine in
// front of the line, in the same write. Never throws.
AppendResult appendLine(const SWCharString& fullName, const os::AppendPath& path,
                        const char* line, size_t lineSize,
                        const char* headerLine, uint32_t maxSize);

} // namespace logger_detail
} // namespace Vardo400

#endif
