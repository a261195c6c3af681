// CSharedLibrary: library names and errors here; loading in the platform layer.
#include "vardo/DllWrap.h"
#include "vardo/sresstring.h"

#include "os/os_dl.h"

#include <cstdio>

#include <cstring>
#include <utility>

namespace Vardo400 {

namespace {

SWCharString asciiText(const char* s)
{
    SWCharString out;
    if (s)
        out.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return out;
}

inline unsigned short lowerAscii(unsigned short c) { return (c >= 'A' && c <= 'Z') ? c + ('a' - 'A') : c; }

// Offset of the last path component.
unsigned int lastComponent(const SWCharString& s)
{
    const unsigned short* p = s.data();
    unsigned int start = 0;
    for (unsigned int i = 0; i < s.getLength(); ++i)
        if (p[i] == '/' || p[i] == '\\')
            start = i + 1;
    return start;
}

bool matchesAt(const SWCharString& s, unsigned int at, const char* ascii)
{
    size_t n = std::strlen(ascii);
    if (at > s.getLength() || n > s.getLength() - at)
        return false;
    const unsigned short* p = s.data() + at;
    for (size_t i = 0; i < n; ++i)
        if (lowerAscii(p[i]) != static_cast<unsigned char>(ascii[i]))
            return false;
    return true;
}

// Where the library extension of the last component starts, or the length when there
// is none: ".dll" or ".so" at the end, or the first ".so." (a versioned file name).
unsigned int extensionStart(const SWCharString& s)
{
    unsigned int start = lastComponent(s);
    unsigned int len = s.getLength();
    if (len - start > 4 && matchesAt(s, len - 4, ".dll"))
        return len - 4;
    if (len - start > 3 && matchesAt(s, len - 3, ".so"))
        return len - 3;
    for (unsigned int i = start + 1; i + 4 <= len; ++i)
        if (matchesAt(s, i, ".so."))
            return i;
    return len;
}

} // namespace

// ---- CSharedLibraryException -------------------------------------------------------------

CSharedLibraryException::CSharedLibraryException(ErrorCodes code, const SWCharString& libraryName,
                                                 const SWCharString& reason,
                                                 const SWCharString& entryPoint)
    : m_eCode(code), m_libraryName(libraryName), m_reason(reason), m_entryPoint(entryPoint)
{
}

CSharedLibraryException::~CSharedLibraryException() {}

SWCharString CSharedLibraryException::toString() const
{
    const char* text;
    switch (m_eCode) {
    case LoadFailed: text = "Unable to load the shared library %1."; break;
    case SymbolNotFound: text = "Unable to find the entry point %2 in the shared library %1."; break;
    case NotLoaded: text = "The shared library %1 is not loaded."; break;
    default: text = "Unknown shared library error (%1)."; break;
    }
    SResString message(text);
    message << m_libraryName << m_entryPoint;
    return message.format();
}

SWCharString CSharedLibraryException::summary() const
{
    SWCharString s = toString();
    s += SWCharString(static_cast<unsigned short>(':'));
    s += m_reason;
    return s;
}

// ---- CSharedLibrary ----------------------------------------------------------------------

CSharedLibrary::CSharedLibrary() : m_pHandle(0) {}

CSharedLibrary::CSharedLibrary(const SWCharString& name) : m_pHandle(0)
{
    load(name);
}

CSharedLibrary::CSharedLibrary(CSharedLibrary&& other) noexcept
    : m_pHandle(other.m_pHandle), m_name(std::move(other.m_name))
{
    other.m_pHandle = 0;
}

CSharedLibrary& CSharedLibrary::operator=(CSharedLibrary&& other) noexcept
{
    if (this != &other) {
        unload();
        m_pHandle = other.m_pHandle;
        m_name = std::move(other.m_name);
        other.m_pHandle = 0;
    }
    return *this;
}

CSharedLibrary::~CSharedLibrary()
{
    unload();
}

void CSharedLibrary::load(const SWCharString& name)
{
    unload();
    SWCharString file(name);
    if (extensionStart(file) == file.getLength())
        file += asciiText(os::dlExtension());

    os::OsError err;
    void* handle = name.isEmpty() ? 0 : os::dlOpen(file, err);
    if (!handle && !name.isEmpty()) {
        const char* prefix = os::dlPrefix();
        if (*prefix && lastComponent(file) == 0 && !matchesAt(file, 0, prefix)) {
            SWCharString other;
            os::OsError ignored;
            other = asciiText(prefix);
            other += file;
            handle = os::dlOpen(other, ignored);
        }
    }
    if (!handle) {
        SWCharString reason = os::errorText(err);
        if (err.kind == os::OsError::win32) {
            char number[32];
            std::snprintf(number, sizeof number, " (error %d)", err.number);
            reason += asciiText(number);
        }
        if (name.isEmpty())
            reason = asciiText("empty library name");
        throw CSharedLibraryException(CSharedLibraryException::LoadFailed, name, reason);
    }
    m_pHandle = handle;
    m_name = name;
}

void CSharedLibrary::unload()
{
    if (m_pHandle) {
        os::dlClose(m_pHandle);
        m_pHandle = 0;
    }
    m_name.empty();
}

void* CSharedLibrary::findProcAddress(const char* entryPoint) const
{
    if (!m_pHandle || !entryPoint || !*entryPoint)
        return 0;
    return os::dlSymbol(m_pHandle, entryPoint);
}

void* CSharedLibrary::getProcAddress(const char* entryPoint) const
{
    if (!m_pHandle)
        throw CSharedLibraryException(CSharedLibraryException::NotLoaded, m_name,
                                      asciiText("no library loaded"), asciiText(entryPoint));
    void* p = findProcAddress(entryPoint);
    if (!p)
        throw CSharedLibraryException(CSharedLibraryException::SymbolNotFound, m_name,
                                      asciiText("no such entry point"), asciiText(entryPoint));
    return p;
}

SWCharString CSharedLibrary::FileName2DllName(const SWCharString& fileName)
{
    unsigned int start = lastComponent(fileName);
    unsigned int end = extensionStart(fileName);
    return fileName.mid(start, end - start);
}

} // namespace Vardo400
