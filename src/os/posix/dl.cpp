// Dynamic libraries on Linux: dlopen with every symbol bound at load.
#include "os/os_dl.h"

#include <dlfcn.h>

#include <cstring>
#include <vector>

namespace Vardo400 {
namespace os {

const char* dlExtension() { return ".so"; }
const char* dlPrefix() { return "lib"; }

static SWCharString fromBytes(const char* s)
{
    SWCharString out;
    if (!s)
        return out;
    if (out.fromUTF8(reinterpret_cast<const unsigned char*>(s)))
        return out;
    out.empty();
    out.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return out;
}

void* dlOpen(const SWCharString& file, OsError& err)
{
    unsigned int bound = file.getNBytesForUTF8();
    std::vector<unsigned char> path(static_cast<size_t>(bound) + 1, 0);
    unsigned int n = file.toUTF8(path.data(), bound);
    if (n == 0xFFFFFFFFu || n > bound) {
        err.kind = OsError::loader;
        err.text = fromBytes("the library name is not valid text");
        return 0;
    }
    path[n] = 0;
    dlerror();  // clear a stale message
    void* h = ::dlopen(reinterpret_cast<const char*>(path.data()), RTLD_NOW | RTLD_LOCAL);
    if (!h) {
        const char* e = dlerror();
        err.kind = OsError::loader;
        err.text = fromBytes(e ? e : "dlopen failed");
    }
    return h;
}

void* dlSymbol(void* handle, const char* name)
{
    return ::dlsym(handle, name);
}

void dlClose(void* handle)
{
    ::dlclose(handle);
}

SWCharString dlOwnDirectory()
{
    Dl_info info;
    if (!::dladdr(reinterpret_cast<void*>(&dlOwnDirectory), &info) || !info.dli_fname)
        return SWCharString();
    const char* slash = std::strrchr(info.dli_fname, '/');
    if (!slash)
        return SWCharString();
    std::vector<char> dir(info.dli_fname, slash + 1);
    dir.push_back(0);
    return fromBytes(dir.data());
}

} // namespace os
} // namespace Vardo400
