// The free path-text helpers of sfilesys.h: they work on the text alone, with the
// separator their caller names.
#include "vardo/sfilesys.h"

#include "dirwalk.h"

namespace Vardo400 {

using detail::endsWithSep;
using detail::isSep;

namespace {

bool isDriveLetter(unsigned short c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

} // namespace

void AppendSlashToDir(SWCharString& dir, unsigned short separator)
{
    const unsigned int n = dir.getLength();
    if (n == 0 || dir.data()[n - 1] != separator)
        dir += SWChar(separator);
}

void StripSlashOffDirBegin(SWCharString& dir, unsigned short separator)
{
    if (dir.getLength() > 0 && dir.data()[0] == separator)
        dir.deleteChars(0u, 1u);
}

void StripSlashOffDirEnd(SWCharString& dir, unsigned short separator)
{
    const unsigned int n = dir.getLength();
    if (n > 0 && dir.data()[n - 1] == separator)
        dir.deleteChars(n - 1, 1u);
}

void UnifyAllSlashes(SWCharString& path, unsigned short separator)
{
    const unsigned int n = path.getLength();
    for (unsigned int i = 0; i < n; ++i) {
        const unsigned short c = path.data()[i];
        if ((c == '/' || c == '\\') && c != separator)
            path.setAt(i, SWChar(separator));
    }
}

SWCharString GetBottomLevelDir(const SWCharString& path, unsigned short separator)
{
    const unsigned short* s = path.data();
    unsigned int end = path.getLength();
    while (end > 0 && s[end - 1] == separator)
        --end;
    unsigned int start = end;
    while (start > 0 && s[start - 1] != separator)
        --start;
    return path.mid(start, end - start);
}

SWCharString GetParentLevelDir(const SWCharString& path, unsigned short separator)
{
    const unsigned short* s = path.data();
    unsigned int end = path.getLength();
    while (end > 0 && s[end - 1] == separator)
        --end;
    while (end > 0 && s[end - 1] != separator)
        --end;
    if (end == 0)
        return SWCharString();
    // Drop the separators before the last component, but keep a root separator.
    unsigned int cut = end;
    while (cut > 1 && s[cut - 1] == separator)
        --cut;
    if (cut == 1 && s[0] == separator)
        return path.left(1);
    return path.left(cut);
}

bool IsAbsolutePath(const SWCharString& path)
{
    const unsigned int n = path.getLength();
    const unsigned short* s = path.data();
    if (n == 0)
        return false;
    if (s[0] == '\\' || s[0] == '/')
        return true;
    return n >= 2 && isDriveLetter(s[0]) && s[1] == ':';
}

namespace {

// Positions of the parts of a path, as the C run-time's splitpath finds them.
struct PathParts {
    unsigned int driveEnd = 0;   // drive is [0, driveEnd)
    unsigned int dirEnd = 0;     // directory is [driveEnd, dirEnd)
    unsigned int nameEnd = 0;    // name is [dirEnd, nameEnd), extension [nameEnd, length)
};

PathParts splitParts(const unsigned short* s, unsigned int n, unsigned short separator)
{
    PathParts parts;
    if (separator == '\\' && n >= 2 && s[1] == ':')
        parts.driveEnd = 2;
    parts.dirEnd = parts.driveEnd;
    for (unsigned int i = parts.driveEnd; i < n; ++i)
        if (isSep(s[i], separator))
            parts.dirEnd = i + 1;
    parts.nameEnd = n;
    for (unsigned int i = n; i > parts.dirEnd; --i) {
        if (s[i - 1] == '.') {
            parts.nameEnd = i - 1;
            break;
        }
    }
    return parts;
}

bool copyPart(const unsigned short* from, unsigned int n, unsigned short* buffer,
              unsigned int size)
{
    if (!buffer || size == 0)
        return true;
    const unsigned int take = n < size ? n : size - 1;
    for (unsigned int i = 0; i < take; ++i)
        buffer[i] = from[i];
    buffer[take] = 0;
    return take == n;
}

} // namespace

bool SplitPath(const unsigned short* path, unsigned short* drive, unsigned int driveSize,
               unsigned short* dir, unsigned int dirSize, unsigned short* name,
               unsigned int nameSize, unsigned short* ext, unsigned int extSize,
               unsigned short separator)
{
    static const unsigned short kEmpty[] = {0};
    const unsigned short* s = path ? path : kEmpty;
    unsigned int n = 0;
    while (s[n])
        ++n;
    const PathParts p = splitParts(s, n, separator);
    bool ok = copyPart(s, p.driveEnd, drive, driveSize);
    ok = copyPart(s + p.driveEnd, p.dirEnd - p.driveEnd, dir, dirSize) && ok;
    ok = copyPart(s + p.dirEnd, p.nameEnd - p.dirEnd, name, nameSize) && ok;
    ok = copyPart(s + p.nameEnd, n - p.nameEnd, ext, extSize) && ok;
    return ok;
}

void SplitPathEx(const SWCharString& path, SWCharString& driveAndDir, SWCharString& name,
                 SWCharString& ext, unsigned short separator)
{
    const PathParts p = splitParts(path.data(), path.getLength(), separator);
    driveAndDir = path.left(p.dirEnd);
    name = path.mid(p.dirEnd, p.nameEnd - p.dirEnd);
    ext = path.mid(p.nameEnd);
}

SWCharString MakePath(const unsigned short* drive, const unsigned short* dir,
                      const unsigned short* name, const unsigned short* ext)
{
    SWCharString path;
    if (drive && drive[0]) {
        path += drive;
        if (drive[1] == 0)
            path += SWChar((unsigned short)':');
    }
    if (dir && dir[0]) {
        path += dir;
        if (!endsWithSep(path))
            path += SWChar(os::fsSeparator());
    }
    if (name)
        path += name;
    if (ext && ext[0]) {
        if (ext[0] != '.')
            path += SWChar((unsigned short)'.');
        path += ext;
    }
    return path;
}

} // namespace Vardo400
