// Registry values above the platform layer: the raw read and the REG_SZ byte form.
#include "regvalue.h"
#include "utfcore.h"

#include <cstring>
#include <new>

namespace Vardo400 {
namespace regvalue {

int32_t readRaw(RegKeyHandle key, const unsigned short* name, uint32_t& type,
                std::vector<unsigned char>& data)
{
    unsigned char first[256];
    const unsigned char* bytes = 0;
    uint32_t size = 0;
    bool retried = false;
    int32_t rc = readWithRetry(
        [&](uint32_t* t, unsigned char* d, uint32_t* s) { return os::regQueryValue(key, name, t, d, s); },
        type, first, sizeof first, data, bytes, size, retried);
    if (rc != os::RegOk)
        return rc;
    if (retried)
        data.resize(size);
    else
        data.assign(bytes, bytes + size);
    return rc;
}

void appendTextBytes(const unsigned short* text, size_t units, std::vector<unsigned char>& out)
{
    const size_t at = out.size();
    out.resize(at + 2 * (units + 1), 0);   // the terminating unit stays zero
    utf::utf16ToBytes(text, units, out.data() + at, false);
}

void assignTextFromBytes(const unsigned char* data, uint32_t size, SWCharString& out)
{
    const uint32_t units = size / 2;
    utf::TempArray<unsigned short> tmp;
    unsigned short* p = tmp.allocate(static_cast<size_t>(units) + 1);
    if (!p)
        throw std::bad_alloc();
    // On a little-endian host the value's UTF-16LE bytes are already its units.
    if (hostLittleEndian())
        std::memcpy(p, data, static_cast<size_t>(units) * 2);
    else
        utf::bytesToUtf16(data, units, p, false);
    p[units] = 0;
    out = p;   // up to the first zero unit: the value's own terminator, else the one above
}

SWCharString textFromBytes(const unsigned char* data, uint32_t size)
{
    SWCharString r;
    assignTextFromBytes(data, size, r);
    return r;
}

void assignDecimal(uint64_t v, SWCharString& out)
{
    unsigned short digits[24];
    unsigned short* p = digits + 23;
    *p = 0;
    do {
        *--p = static_cast<unsigned short>('0' + v % 10);
        v /= 10;
    } while (v);
    out = p;
}

} // namespace regvalue
} // namespace Vardo400
