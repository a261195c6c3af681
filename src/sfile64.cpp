// SFile's 64-bit positions and size.
#include "vardo/sfile.h"

#include "vardo/strace.h"

#include "os/os_file.h"

namespace Vardo400 {

int64_t SFile::seekEx(int origin, int64_t offset) const
{
    VARDO_ASSERT(m_fd != -1);
    if (!m_bIsOpened)
        throwNotOpened(SFileException::seekError);
    os::OsError err;
    int64_t r = os::fileSeek(m_fd, offset, origin, err);
    if (r == -1)
        throwFromErrno(SFileException::seekError, err.crtNumber());
    return r;
}

int64_t SFile::getPositionEx() const
{
    return seekEx(seekCurrent, 0);
}

int64_t SFile::sizeEx() const
{
    int64_t position = getPositionEx();
    seekEx(seekBegin, 0);
    int64_t end = seekEx(seekEnd, 0);
    seekEx(seekBegin, position);
    return end;
}

} // namespace Vardo400
