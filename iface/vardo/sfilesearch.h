// SSFileSearch: the entries of one directory whose names match a wildcard pattern.
#ifndef VARDO_SFILESEARCH_H
#define VARDO_SFILESEARCH_H

#include "vardodefs.h"
#include "sdatetime.h"
#include "sstring.h"

#include <memory>

namespace Vardo400 {

// Enumerates a directory, one matching entry per call of next():
//
//   SSFileSearch search(dir, pattern);
//   while (search.next())
//       use(search.getName(), search.isDirectory());
//   if (search.failed()) ... search.getErrorText() ...
//
// Patterns: "*" matches any run of characters (also none), "?" exactly one; "*.*"
// matches every name, with or without a full stop, and a pattern ending in ".*" also
// matches the name without that extension ("log.*" matches "log"), as on Windows.
// Names compare without regard to case on Windows and exactly on Linux. The pattern is
// matched against the long name only (never an 8.3 short name). The entries "." and ".."
// are never reported. Order is the system's.
//
// Entries are described as the directory lists them: a symbolic link (Linux) or reparse
// point (Windows) reports isLink(), and isDirectory()/isFile() of what it points to.
//
// Thread-safety: one object belongs to one thread; distinct objects are independent.
// Never throws except std::bad_alloc; failures are kept for failed()/getErrorText().
class VARDO_API SSFileSearch {
public:
    // Opens dir for a search with the pattern "*.*" (every entry).
    explicit SSFileSearch(const SWCharString& dir);
    // Opens dir for a search with the given pattern.
    SSFileSearch(const SWCharString& dir, const SWCharString& pattern);
    ~SSFileSearch();
    SSFileSearch(const SSFileSearch&) = delete;
    SSFileSearch& operator=(const SSFileSearch&) = delete;

    // Moves to the next matching entry; false at the end or when reading fails.
    bool next();

    // The current entry (valid after next() returned true).
    const SWCharString& getName() const;
    // The directory, a separator and the name.
    SWCharString getPath() const;
    bool isDirectory() const;
    bool isFile() const;
    bool isLink() const;
    int64_t getSize() const;
    SDateTime getLastModified() const;
    // The FileProp attribute bits (Windows FILE_ATTRIBUTE_ values).
    uint32_t getAttributes() const;

    // True when the directory could not be opened or read.
    bool failed() const;
    // The failure's number: a Win32 error code when isWin32Error(), else a C run-time
    // error number (errno). 0 without a failure.
    int getErrorNumber() const;
    bool isWin32Error() const;
    // The system's text for the failure; empty without one.
    SWCharString getErrorText() const;

    // Whether name matches pattern by the rules above, with the platform's case rule or
    // with the one given.
    static bool Matches(const SWCharString& name, const SWCharString& pattern);
    static bool Matches(const SWCharString& name, const SWCharString& pattern, bool ignoreCase);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

} // namespace Vardo400

#endif
