// Fuzzes SCompression::decompress_buffer (and, for inputs flagged by their first byte,
// compress_buffer) against zlib's inflate as the model.
//
// Input: first byte even: the rest is a compressed buffer (4-byte length header, zlib
// stream). Checked: no crash, leak or out-of-bounds access; success exactly when the
// header's length equals what one complete stream, with nothing after it, inflates to;
// then the same bytes; a failure leaves no result; the simple-buffer form agrees.
// First byte odd: the second and third bytes pick the level (-1..9) and memory level
// (1..9), the rest is data to compress; it must compress and come back unchanged.
#include "fuzz_check.h"
#include "vardo/scompress.h"
#include "vardo/simplebuffer.h"

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace Vardo400;

namespace {

// What one zlib stream at data inflates to; false when it is not exactly one complete
// stream. Stops (false) once the output passes limit.
bool model(const uint8_t* data, size_t size, size_t limit, std::vector<unsigned char>& out)
{
    z_stream s;
    std::memset(&s, 0, sizeof s);
    if (inflateInit(&s) != Z_OK)
        return false;
    s.next_in = const_cast<Bytef*>(data);
    s.avail_in = static_cast<uInt>(size);
    unsigned char piece[65536];
    int rc = Z_OK;
    while (rc == Z_OK) {
        s.next_out = piece;
        s.avail_out = sizeof piece;
        rc = inflate(&s, Z_NO_FLUSH);
        out.insert(out.end(), piece, piece + (sizeof piece - s.avail_out));
        if (out.size() > limit || (rc == Z_BUF_ERROR && s.avail_in == 0))
            break;
        if (rc == Z_BUF_ERROR)
            rc = Z_OK;
    }
    const bool whole = rc == Z_STREAM_END && s.avail_in == 0;
    inflateEnd(&s);
    return whole;
}

void fuzzDecompress(const uint8_t* data, size_t size)
{
    unsigned char* result = nullptr;
    unsigned long length = 12345;
    SCompression::ErrCode rc = SCompression::decompress_buffer(size ? data : nullptr,
                                                               static_cast<unsigned long>(size), &result, length);
    if (size < 4) {
        FUZZ_CHECK(rc == SCompression::invalidArguments && !result && length == 0);
        return;
    }
    const uint32_t claimed = (uint32_t(data[0]) << 24) | (uint32_t(data[1]) << 16) | (uint32_t(data[2]) << 8) | data[3];
    std::vector<unsigned char> expected;
    const bool valid = model(data + 4, size - 4, claimed, expected) && expected.size() == claimed;
    if (valid) {
        FUZZ_CHECK(rc == SCompression::success);
        FUZZ_CHECK(result != nullptr && length == claimed);
        FUZZ_CHECK(length == 0 || std::memcmp(result, expected.data(), length) == 0);
    } else {
        FUZZ_CHECK(rc == SCompression::bufferTooSmall || rc == SCompression::zlibError);
        FUZZ_CHECK(result == nullptr && length == 0);
    }
    SSimpleBuffer in(data, size), out("keep", 4);
    FUZZ_CHECK(SCompression::decompress_buffer(in, out) == rc);
    if (rc == SCompression::success)
        FUZZ_CHECK(out.size() == length && (length == 0 || std::memcmp(out.data(), result, length) == 0));
    else
        FUZZ_CHECK(out == SSimpleBuffer("keep", 4));
    SCompression::free_buffer(result);
}

void fuzzRoundTrip(const uint8_t* data, size_t size)
{
    if (size < 3)
        return;
    const int level = data[1] % 11 - 1;
    const int memLevel = data[2] % 9 + 1;
    data += 3;
    size -= 3;
    unsigned char* packed = nullptr;
    unsigned long packedLength = 0;
    SCompression::ErrCode rc = SCompression::compress_buffer(size ? data : nullptr, static_cast<unsigned long>(size),
                                                             &packed, packedLength, level, memLevel);
    if (size == 0) {
        FUZZ_CHECK(rc == SCompression::invalidArguments && !packed);
        return;
    }
    FUZZ_CHECK(rc == SCompression::success && packedLength >= 4 + 8);
    FUZZ_CHECK(packed[0] == ((size >> 24) & 0xFF) && packed[1] == ((size >> 16) & 0xFF) &&
          packed[2] == ((size >> 8) & 0xFF) && packed[3] == (size & 0xFF));
    unsigned char* back = nullptr;
    unsigned long backLength = 0;
    FUZZ_CHECK(SCompression::decompress_buffer(packed, packedLength, &back, backLength) == SCompression::success);
    FUZZ_CHECK(backLength == size && std::memcmp(back, data, size) == 0);
    SCompression::free_buffer(back);
    SCompression::free_buffer(packed);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 0 && (data[0] & 1))
        fuzzRoundTrip(data, size);
    else
        fuzzDecompress(size ? data + 1 : data, size ? size - 1 : 0);
    return 0;
}
