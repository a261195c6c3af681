// SSFileSearch: directory enumeration through the library's directory reader (dirwalk.h),
// wildcard matching here.
#include "vardo/sfilesearch.h"

#include "dirwalk.h"

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

const unsigned short kAll[] = {'*', '.', '*', 0};

} // namespace

struct SSFileSearch::Impl {
    Impl(const SWCharString& dir, const SWCharString& pattern) : m_reader(dir, pattern, true) {}
    detail::DirReader m_reader;
};

SSFileSearch::SSFileSearch(const SWCharString& dir)
    : m_pImpl(std::make_unique<Impl>(dir, SWCharString(kAll)))
{
}

SSFileSearch::SSFileSearch(const SWCharString& dir, const SWCharString& pattern)
    : m_pImpl(std::make_unique<Impl>(dir, pattern))
{
}

SSFileSearch::~SSFileSearch() = default;

bool SSFileSearch::next()
{
    return m_pImpl->m_reader.next();
}

const SWCharString& SSFileSearch::getName() const
{
    return m_pImpl->m_reader.entry().name;
}

SWCharString SSFileSearch::getPath() const
{
    return m_pImpl->m_reader.path();
}

bool SSFileSearch::isDirectory() const { return m_pImpl->m_reader.entry().info.isDir; }
bool SSFileSearch::isFile() const { return m_pImpl->m_reader.entry().info.isFile; }
bool SSFileSearch::isLink() const { return m_pImpl->m_reader.entry().info.isLink; }
int64_t SSFileSearch::getSize() const { return m_pImpl->m_reader.entry().info.size; }

SDateTime SSFileSearch::getLastModified() const
{
    if (!m_pImpl->m_reader.haveEntry())
        return SDateTime();
    return SDateTime::fromUnixMillis(m_pImpl->m_reader.entry().info.mtimeMs);
}

uint32_t SSFileSearch::getAttributes() const { return m_pImpl->m_reader.entry().info.attributes; }

bool SSFileSearch::failed() const { return m_pImpl->m_reader.failed(); }

int SSFileSearch::getErrorNumber() const { return m_pImpl->m_reader.error().number; }

bool SSFileSearch::isWin32Error() const
{
    return m_pImpl->m_reader.error().kind == os::OsError::win32;
}

SWCharString SSFileSearch::getErrorText() const
{
    return os::errorText(m_pImpl->m_reader.error());
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
