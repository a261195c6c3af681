// Registry values above the platform layer, shared by Registry, SRegFile and SRegText: the
// one loop that reads a value whatever its size, and the REG_SZ byte form of text.
#ifndef VARDO_REGVALUE_H
#define VARDO_REGVALUE_H

#include "vardo/sstring.h"
#include "os/os_registry.h"

#include <cstring>
#include <vector>

namespace Vardo400 {
namespace regvalue {

// How often a value that keeps growing between two reads is asked for again.
const int ReadAttempts = 8;

// Reads one value through query(type, data, size), which answers as regQueryValue does
// (regEnumValue for one index answers the same way): first into first (firstSize bytes,
// not null), then, while the store says more data is needed, into grown at the size it
// reports. On RegOk bytes and size name the value's data and retried tells whether it
// came from grown. RegMoreData when the value was still growing at the last attempt.
template <class Query>
int32_t readWithRetry(const Query& query, uint32_t& type, unsigned char* first, uint32_t firstSize,
                      std::vector<unsigned char>& grown, const unsigned char*& bytes,
                      uint32_t& size, bool& retried)
{
    retried = false;
    bytes = first;
    size = firstSize;
    int32_t rc = query(&type, first, &size);
    for (int attempt = 0; rc == os::RegMoreData && attempt < ReadAttempts; ++attempt) {
        grown.resize(size ? size : 1);
        size = static_cast<uint32_t>(grown.size());
        bytes = grown.data();
        retried = true;
        rc = query(&type, grown.data(), &size);
    }
    return rc;
}

// A value's type and exact bytes through an open key.
int32_t readRaw(RegKeyHandle key, const unsigned short* name, uint32_t& type,
                std::vector<unsigned char>& data);

// The value of a hex digit, -1 for any other unit.
inline int hexDigit(unsigned short c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Whether the host stores a unit low byte first, as REG_SZ bytes are (then a value's
// bytes copied into units are already its text).
inline bool hostLittleEndian()
{
    const uint16_t one = 1;
    unsigned char low = 0;
    std::memcpy(&low, &one, 1);
    return low == 1;
}

// Text as REG_SZ bytes: UTF-16LE units and a terminator, appended to out.
void appendTextBytes(const unsigned short* text, size_t units, std::vector<unsigned char>& out);
// REG_SZ bytes as text, up to the first zero unit (a value may lack its terminator).
SWCharString textFromBytes(const unsigned char* data, uint32_t size);
// The same into out, reusing the room out has when it is its only owner.
void assignTextFromBytes(const unsigned char* data, uint32_t size, SWCharString& out);
// v as unsigned decimal text into out, reusing its room likewise.
void assignDecimal(uint64_t v, SWCharString& out);

} // namespace regvalue
} // namespace Vardo400

#endif
