// SSFileSearch: directory enumeration through the platform layer, wildcard matching here.
#include "vardo/sfilesearch.h"

#include "os/os_fs.h"

namespace Vardo400 {

namespace {

unsigned short fold(unsigned short c, bool ignoreCase)
{
    if (!ignoreCase)
        return c;
    if (c < 0x80)
        return (c >= 'a' && c <= 'z') ? (unsigned short)(c - 32) : c;
    return (unsigned short)SWChar(c).toUpper();
}

// "*" any run, "?" one unit. Greedy with one backtracking point: O(name x pattern).
bool globMatch(const unsigned short* n, size_t nn, const unsigned short* p, size_t pn,
               bool ignoreCase)
{
    size_t i = 0, j = 0;
    size_t starP = (size_t)-1, starN = 0;
    while (i < nn) {
        if (j < pn && p[j] == '*') {
            starP = j++;
            starN = i;
        } else if (j < pn && (p[j] == '?' || fold(p[j], ignoreCase) == fold(n[i], ignoreCase))) {
            ++i;
            ++j;
        } else if (starP != (size_t)-1) {
            j = starP + 1;
            i = ++starN;
        } else {
            return false;
        }
    }
    while (j < pn && p[j] == '*')
        ++j;
    return j == pn;
}

bool isDots(const SWCharString& name)
{
    const unsigned int n = name.getLength();
    const unsigned short* s = name.data();
    return (n == 1 && s[0] == '.') || (n == 2 && s[0] == '.' && s[1] == '.');
}

} // namespace

struct SSFileSearch::Impl {
    SWCharString m_dir;
    SWCharString m_pattern;
    os::FsDirHandle m_dirHandle;
    os::FsDirEntry m_entry;
    os::FsError m_error;
    bool m_bHaveEntry = false;
};

SSFileSearch::SSFileSearch(const SWCharString& dir) : m_pImpl(std::make_unique<Impl>())
{
    static const unsigned short kAll[] = {'*', '.', '*', 0};
    m_pImpl->m_dir = dir;
    m_pImpl->m_pattern = kAll;
    m_pImpl->m_dirHandle = os::fsOpenDirectory(dir, m_pImpl->m_error);
}

SSFileSearch::SSFileSearch(const SWCharString& dir, const SWCharString& pattern)
    : m_pImpl(std::make_unique<Impl>())
{
    m_pImpl->m_dir = dir;
    m_pImpl->m_pattern = pattern;
    m_pImpl->m_dirHandle = os::fsOpenDirectory(dir, m_pImpl->m_error);
}

SSFileSearch::~SSFileSearch() = default;

bool SSFileSearch::next()
{
    Impl& d = *m_pImpl;
    d.m_bHaveEntry = false;
    if (!d.m_dirHandle)
        return false;
    while (os::fsReadDirectory(*d.m_dirHandle, d.m_entry, d.m_error)) {
        if (isDots(d.m_entry.name) || !Matches(d.m_entry.name, d.m_pattern))
            continue;
        d.m_bHaveEntry = true;
        return true;
    }
    // At the end (or after a failure) the directory is released at once.
    d.m_dirHandle.reset();
    return false;
}

const SWCharString& SSFileSearch::getName() const
{
    return m_pImpl->m_entry.name;
}

SWCharString SSFileSearch::getPath() const
{
    SWCharString path = m_pImpl->m_dir;
    const unsigned short sep = os::fsSeparator();
    const unsigned int n = path.getLength();
    if (n > 0 && path.data()[n - 1] != sep && !(sep == '\\' && path.data()[n - 1] == '/'))
        path += SWChar(sep);
    path += m_pImpl->m_entry.name;
    return path;
}

bool SSFileSearch::isDirectory() const { return m_pImpl->m_entry.info.isDir; }
bool SSFileSearch::isFile() const { return m_pImpl->m_entry.info.isFile; }
bool SSFileSearch::isLink() const { return m_pImpl->m_entry.info.isLink; }
int64_t SSFileSearch::getSize() const { return m_pImpl->m_entry.info.size; }

SDateTime SSFileSearch::getLastModified() const
{
    if (!m_pImpl->m_bHaveEntry)
        return SDateTime();
    return SDateTime::fromUnixMillis(m_pImpl->m_entry.info.mtimeMs);
}

uint32_t SSFileSearch::getAttributes() const { return m_pImpl->m_entry.info.attributes; }

bool SSFileSearch::failed() const { return m_pImpl->m_error.isSet(); }

int SSFileSearch::getErrorNumber() const { return m_pImpl->m_error.number; }

bool SSFileSearch::isWin32Error() const
{
    return m_pImpl->m_error.kind == os::FsError::win32;
}

SWCharString SSFileSearch::getErrorText() const
{
    return os::fsErrorText(m_pImpl->m_error);
}

bool SSFileSearch::Matches(const SWCharString& name, const SWCharString& pattern)
{
    return Matches(name, pattern, os::fsIgnoresCase());
}

bool SSFileSearch::Matches(const SWCharString& name, const SWCharString& pattern, bool ignoreCase)
{
    const unsigned short* p = pattern.data();
    const size_t pn = pattern.getLength();
    const unsigned short* n = name.data();
    const size_t nn = name.getLength();
    if (pn == 3 && p[0] == '*' && p[1] == '.' && p[2] == '*')
        return true;
    if (globMatch(n, nn, p, pn, ignoreCase))
        return true;
    // "name.*" also stands for "name" without an extension.
    if (pn >= 2 && p[pn - 2] == '.' && p[pn - 1] == '*')
        return globMatch(n, nn, p, pn - 2, ignoreCase);
    return false;
}

} // namespace Vardo400
