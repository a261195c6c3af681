// DirReader and walkDirectory: the one place that skips "." and ".." and that decides
// what a walk follows.
#include "dirwalk.h"

#include "vardo/sfilesearch.h"

#include <cstring>

namespace Vardo400 {
namespace detail {

namespace {

bool isDots(const SWCharString& name)
{
    const unsigned int n = name.getLength();
    const unsigned short* s = name.data();
    return (n == 1 && s[0] == '.') || (n == 2 && s[0] == '.' && s[1] == '.');
}

SWCharString relativeJoin(const SWCharString& relative, const SWCharString& name)
{
    return relative.isEmpty() ? name : joinPath(relative, name);
}

bool walkLevel(const SWCharString& dir, const SWCharString& relative, const SWCharString& pattern,
               bool followLink, DirVisitor& visitor)
{
    DirReader reader(dir, pattern, followLink);
    while (reader.next()) {
        WalkEntry entry{reader.entry(), reader.path(), relativeJoin(relative, reader.entry().name)};
        const DirVisitor::Step step = visitor.visit(entry);
        if (step == DirVisitor::stop)
            return false;
        if (step != DirVisitor::descend || !entry.isRealDirectory())
            continue;
        // Below the top no link is followed, not even one that replaced this directory
        // after it was listed.
        if (!walkLevel(entry.path, entry.relative, pattern, false, visitor))
            return false;
        if (!visitor.leave(entry.path, entry.relative))
            return false;
    }
    if (reader.failed()) {
        visitor.readFailed(dir, relative, reader.error());
        if (!visitor.goesOnPastFailures())
            return false;
    }
    return true;
}

} // namespace

SWCharString withSep(const SWCharString& dir)
{
    SWCharString r = dir;
    if (!endsWithSep(r))
        r += SWChar(os::fsSeparator());
    return r;
}

SWCharString joinPath(const SWCharString& dir, const SWCharString& name)
{
    SWCharString r = dir;
    if (!r.isEmpty() && !endsWithSep(r))
        r += SWChar(os::fsSeparator());
    r += name;
    return r;
}

SWCharString asciiText(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

void WalkFailure::record(const os::OsError& err, const SWCharString& name,
                         const SWCharString& second)
{
    if (m_bFailed)
        return;
    m_bFailed = true;
    m_error = err;
    m_name = name;
    m_second = second;
}

DirReader::DirReader(const SWCharString& dir, const SWCharString& pattern, bool followLink)
    : m_dir(dir), m_pattern(pattern)
{
    m_handle = os::fsOpenDirectory(dir, followLink, m_error);
}

bool DirReader::next()
{
    m_bHaveEntry = false;
    if (!m_handle)
        return false;
    while (os::fsReadDirectory(*m_handle, m_entry, m_error)) {
        if (isDots(m_entry.name))
            continue;
        if (!SSFileSearch::Matches(m_entry.name, m_pattern))
            continue;
        m_bHaveEntry = true;
        return true;
    }
    // At the end (or after a failure) the directory is released at once.
    m_handle.reset();
    return false;
}

bool walkDirectory(const SWCharString& dir, const SWCharString& pattern, DirVisitor& visitor)
{
    return walkLevel(dir, SWCharString(), pattern, true, visitor);
}

} // namespace detail
} // namespace Vardo400
