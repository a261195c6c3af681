// The library's one directory walker, and the path-text rules the file-system sources
// share. Not installed.
//
// Every walk over a directory (SSFileSearch, and SFileSys's recursive removal, sizes,
// counts, copies, permissions, content removal and listings) reads entries through
// DirReader, which leaves out "." and "..", and recurses through walkDirectory, which
// states the link rule once: a symbolic link (Linux) or reparse point (Windows) is
// reported as an entry but never walked into, and a sub-directory is opened without
// following a link, so a link swapped in after its entry was read is not followed
// either. A recursive removal therefore never reaches outside its tree.
#ifndef VARDO_DIRWALK_H
#define VARDO_DIRWALK_H

#include "os/os_fs.h"
#include "vardo/sstring.h"

namespace Vardo400 {
namespace detail {

// ---- path text ------------------------------------------------------------------------

// The separators of a path: the given one, and "/" as well where that is the backslash.
inline bool isSep(unsigned short c, unsigned short separator)
{
    return c == separator || (separator == '\\' && c == '/');
}
inline bool isSep(unsigned short c)
{
    return isSep(c, os::fsSeparator());
}
inline bool endsWithSep(const SWCharString& s)
{
    const unsigned int n = s.getLength();
    return n > 0 && isSep(s.data()[n - 1]);
}
// dir followed by the platform's separator unless it ends with one.
SWCharString withSep(const SWCharString& dir);
// dir, a separator where needed, and name.
SWCharString joinPath(const SWCharString& dir, const SWCharString& name);
// 7-bit text to SWCharString.
SWCharString asciiText(const char* s);

// ---- reading one directory ----------------------------------------------------------------

class DirReader {
public:
    // Opens dir; entries are those whose names match pattern (SSFileSearch::Matches;
    // "*.*" is every entry). followLink false refuses a link at dir itself.
    DirReader(const SWCharString& dir, const SWCharString& pattern, bool followLink);
    DirReader(const DirReader&) = delete;
    DirReader& operator=(const DirReader&) = delete;

    // The next entry other than "." and ".."; false at the end or on failure. The
    // directory is released as soon as it is read to the end.
    bool next();

    const SWCharString& dir() const { return m_dir; }
    const os::FsDirEntry& entry() const { return m_entry; }
    bool haveEntry() const { return m_bHaveEntry; }
    // dir, a separator and the entry's name.
    SWCharString path() const { return joinPath(m_dir, m_entry.name); }
    bool failed() const { return m_error.isSet(); }
    const os::OsError& error() const { return m_error; }

private:
    SWCharString m_dir;
    SWCharString m_pattern;
    os::FsDirHandle m_handle;
    os::FsDirEntry m_entry;
    os::OsError m_error;
    bool m_bHaveEntry = false;
};

// ---- walking a tree -------------------------------------------------------------------------

// One entry met by a walk.
struct WalkEntry {
    const os::FsDirEntry& raw;
    SWCharString path;       // the walked directory's path joined with the name
    SWCharString relative;   // the same below the top of the walk ("sub/name")

    const SWCharString& name() const { return raw.name; }
    const os::FsInfo& info() const { return raw.info; }
    bool isLink() const { return raw.info.isLink; }
    // A directory of its own, one a walk may enter (never a link to one).
    bool isRealDirectory() const { return raw.info.isDir && !raw.info.isLink; }
};

// The first failure of a walk: later ones are not recorded over it.
struct WalkFailure {
    bool m_bFailed = false;
    os::OsError m_error;
    SWCharString m_name;
    SWCharString m_second;

    void record(const os::OsError& err, const SWCharString& name,
                const SWCharString& second = SWCharString());
};

class DirVisitor {
public:
    enum Step { goOn, descend, stop };
    virtual ~DirVisitor() = default;

    // An entry of a directory being walked. descend walks into it afterwards, and is
    // honoured only for a real directory; stop ends the walk.
    virtual Step visit(const WalkEntry& entry) = 0;
    // After the entries of a directory this visitor descended into; false ends the walk.
    virtual bool leave(const SWCharString& dir, const SWCharString& relative) { return true; }
    // A directory could not be opened or read to the end. The default records the first
    // failure; the walk then ends unless goesOnPastFailures().
    virtual void readFailed(const SWCharString& dir, const SWCharString& relative,
                            const os::OsError& err)
    {
        failure.record(err, dir);
    }
    virtual bool goesOnPastFailures() const { return false; }

    WalkFailure failure;
};

// Walks dir (a link at dir itself is followed: the caller named it) depth first, entries
// filtered by pattern at every level. Returns false when the visitor or a failure ended
// the walk.
bool walkDirectory(const SWCharString& dir, const SWCharString& pattern, DirVisitor& visitor);

} // namespace detail
} // namespace Vardo400

#endif
