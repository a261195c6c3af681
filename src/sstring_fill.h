// Building a string's units in place, for the library's own conversions: they know the
// most units a result can take, so they write straight into the string's buffer instead
// of converting into a temporary and copying it over.
#ifndef VARDO_SSTRING_FILL_H
#define VARDO_SSTRING_FILL_H

#include "vardo/sstring.h"
#include "vardo/strace.h"

#include <cstddef>
#include <cstdint>

namespace Vardo400 {
namespace sstringfill {

// Reaches the protected buffer pointer of a string.
template <class CharT, int Fixed>
struct BufferAccess : SString_t<CharT, Fixed> {
    typedef SString_t<CharT, Fixed> S;
    static typename S::Buffer* get(const S& s) { return s.*(&BufferAccess::m_pBuffer); }
};

// Ends a fill: n units were written into b (SIZE_MAX for a failed conversion).
template <class CharT, int Fixed>
bool finish(SString_t<CharT, Fixed>& s, typename SString_t<CharT, Fixed>::Buffer* b, size_t n,
            size_t room)
{
    if (n == SIZE_MAX || n > room) {
        s.empty();
        return false;
    }
    b->data()[n] = 0;
    b->m_length = static_cast<uint32_t>(n);
    return true;
}

// Replaces the content of s by what fill(data) writes into a fresh buffer with room for
// room units (plus terminator); fill returns the units written or SIZE_MAX for failure,
// which leaves s empty and returns false. The source may lie inside s itself.
template <class CharT, int Fixed, class Fill>
bool fillFresh(SString_t<CharT, Fixed>& s, size_t room, Fill fill)
{
    if (!room) {
        s.empty();
        return true;
    }
    if (room >= 0xFFFFFFF0u) {
        // No string can hold that much; the conversion cannot succeed.
        VARDO_ASSERT_TEXT("room < 0xFFFFFFF0");
        s.empty();
        return false;
    }
    SString_t<CharT, Fixed> fresh;
    fresh.setBufferSize(static_cast<unsigned int>(room));
    typename SString_t<CharT, Fixed>::Buffer* b = BufferAccess<CharT, Fixed>::get(fresh);
    if (!finish(fresh, b, fill(b->data()), room)) {
        s.empty();
        return false;
    }
    if (b->m_length)
        s = static_cast<SString_t<CharT, Fixed>&&>(fresh);
    else
        s.empty();
    return true;
}

// The same into the buffer s already has when it is s's alone and big enough, as a
// loop converting entry after entry into one string wants. The source must not lie
// inside s.
template <class CharT, int Fixed, class Fill>
bool fillReusing(SString_t<CharT, Fixed>& s, size_t room, Fill fill)
{
    if (!room || room >= 0xFFFFFFF0u)
        return fillFresh(s, room, fill);
    s.setBufferSize(static_cast<unsigned int>(room));
    typename SString_t<CharT, Fixed>::Buffer* b = BufferAccess<CharT, Fixed>::get(s);
    return finish(s, b, fill(b->data()), room);
}

} // namespace sstringfill
} // namespace Vardo400

#endif
