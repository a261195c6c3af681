// Pieces of the logger shared by its source files. Not installed.
#ifndef VARDO_LOGGER_INTERNAL_H
#define VARDO_LOGGER_INTERNAL_H

#include "vardo/sstring.h"

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

// Appends line (bytes, line end included) to the file fullName as one locked write,
// creating the file when missing. When the file has reached maxSize it is first renamed
// to a free backup name STEM_bakN.EXT. With header, an empty file gets headerLine in
// front of the line, in the same write. Never throws.
AppendResult appendLine(const SWCharString& fullName, const char* line, size_t lineSize,
                        const char* headerLine, uint32_t maxSize);

} // namespace logger_detail
} // namespace Vardo400

#endif
