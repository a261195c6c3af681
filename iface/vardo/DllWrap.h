// CSharedLibrary: dynamic libraries loaded at run time, and CSharedLibraryException.
#ifndef VARDO_DLLWRAP_H
#define VARDO_DLLWRAP_H

#include "vardodefs.h"
#include "sstring.h"
#include "sexception.h"

namespace Vardo400 {

// Thrown when a library cannot be loaded or an entry point cannot be found. Carries the
// library's name as the caller gave it, the entry point (for SymbolNotFound) and the
// system's reason text.
class VARDO_API CSharedLibraryException : public SException {
public:
    enum ErrorCodes {
        LoadFailed = 1,      // the library could not be loaded
        SymbolNotFound = 2,  // the library has no entry point of that name
        NotLoaded = 3        // an entry point was asked of an object that holds no library
    };

    CSharedLibraryException(ErrorCodes code, const SWCharString& libraryName,
                            const SWCharString& reason,
                            const SWCharString& entryPoint = SWCharString());
    ~CSharedLibraryException() override;

    ErrorCodes ErrCode() const { return m_eCode; }
    const SWCharString& getLibraryName() const { return m_libraryName; }
    const SWCharString& getEntryPoint() const { return m_entryPoint; }
    const SWCharString& getReason() const { return m_reason; }

    // By code: "Unable to load the shared library %1.",
    // "Unable to find the entry point %2 in the shared library %1." or
    // "The shared library %1 is not loaded." (%1 the library, %2 the entry point).
    SWCharString toString() const override;
    // toString(), ":", the reason text.
    SWCharString summary() const override;

private:
    ErrorCodes m_eCode;
    SWCharString m_libraryName;
    SWCharString m_reason;
    SWCharString m_entryPoint;
};

// One dynamic library, loaded by name and freed by the destructor.
//
// Names: a name whose last component (after the last '/' or '\\') carries no library
// extension (".dll", ".so" or ".so." followed by a version, letters in any case) gets
// the platform's extension appended (".dll" on Windows, ".so" on Linux). A name without
// a directory is looked up the platform's way (Windows: the program's folder, the
// system folders, PATH; Linux: the dynamic linker's search path). On Linux, when such a
// plain name fails and does not start with "lib", "lib" + name is tried as well
// ("crypto" finds "libcrypto.so"); the error reported is the first attempt's.
// Linux binds all symbols at load (RTLD_NOW); the library stays private to its users
// (RTLD_LOCAL).
//
// Thread-safety: entry points of a loaded library may be resolved from many threads at
// once; load() and unload() need exclusive access. Not copyable; movable.
class VARDO_API CSharedLibrary {
public:
    // Holds no library.
    CSharedLibrary();
    // Loads name; throws CSharedLibraryException (LoadFailed) when it cannot.
    explicit CSharedLibrary(const SWCharString& name);
    CSharedLibrary(CSharedLibrary&& other) noexcept;
    CSharedLibrary& operator=(CSharedLibrary&& other) noexcept;
    CSharedLibrary(const CSharedLibrary&) = delete;
    CSharedLibrary& operator=(const CSharedLibrary&) = delete;
    // Frees the library.
    ~CSharedLibrary();

    // Frees the library held, then loads name. Throws CSharedLibraryException
    // (LoadFailed) and then holds none.
    void load(const SWCharString& name);
    // Frees the library held (no effect when none). Entry points taken from it become
    // invalid.
    void unload();
    bool isLoaded() const { return m_pHandle != 0; }
    // The name given to load(), empty when none is held.
    const SWCharString& getName() const { return m_name; }

    // The address of the named entry point (function or data). Throws
    // CSharedLibraryException: SymbolNotFound when absent, NotLoaded without a library.
    void* getProcAddress(const char* entryPoint) const;
    // As getProcAddress, but null instead of an exception.
    void* findProcAddress(const char* entryPoint) const;
    // Typed form: stores the entry point in fn (a function pointer type); false, with fn
    // null, when absent.
    template <class Fn>
    bool resolve(const char* entryPoint, Fn& fn) const
    {
        void* p = findProcAddress(entryPoint);
        fn = reinterpret_cast<Fn>(p);
        return p != 0;
    }

    // The library name of a library file: the last path component (after the last '/'
    // or '\\'), less a trailing library extension: ".dll" or ".so", or ".so." and the
    // version behind it, letters in any case. The same on every platform; nothing else
    // is removed. "C:\\plugins\\log_xn_system.dll" and "/opt/log_xn_system.so" give
    // "log_xn_system", "libm.so.6" gives "libm", "notes.txt" stays "notes.txt".
    static SWCharString FileName2DllName(const SWCharString& fileName);

private:
    void* m_pHandle;
    SWCharString m_name;
};

} // namespace Vardo400

#endif
