// SCompression: compression of memory buffers and of whole files with zlib.
//
// Compressed buffers carry a 4-byte header of the original length, unsigned, most
// significant byte first, followed by a zlib stream (RFC 1950). This is the framing of
// Qt's qCompress, and Python writes the same bytes with
//     len(data).to_bytes(4, "big") + zlib.compress(data, level)
// (with the default memory level the two are identical byte for byte at levels 1 to 9;
// at level 0 both store the data, in blocks of different sizes).
// Compressed files are gzip files (RFC 1952), readable by gzip -d; decompress_file reads
// any gzip file, also one of several concatenated members.
//
// Nothing throws out of this class except std::bad_alloc from the SSimpleBuffer and
// string overloads when their target cannot grow: every failure is an ErrCode plus a
// trace line, and every buffer obtained on a failure path is freed.
// Thread-safety: all members are static and keep no state; calls may run concurrently.
#ifndef VARDO_SCOMPRESS_H
#define VARDO_SCOMPRESS_H

#include "vardodefs.h"
#include "sstring.h"

namespace Vardo400 {

class SSimpleBuffer;

class VARDO_API SCompression {
public:
    // ---- compression levels (zlib's 0..9; -1 asks zlib for its own default, 6) ----------
    static const int SC_NO_COMPRESSION = 0;
    static const int SC_BEST_SPEED = 1;
    static const int SC_BEST_COMPRESSION = 9;
    // The library's default is level 3, a deliberate trade of size for speed; it is not
    // zlib's "default" marker.
    static const int SC_DEFAULT_COMPRESSION = 3;
    // ---- strategies (compress_file) --------------------------------------------------
    static const int SC_DEFAULT_STRATEGY = 0;
    static const int SC_FILTERED = 1;
    static const int SC_HUFFMAN_ONLY = 2;
    // ---- memory levels (the last argument of compress_buffer) --------------------------
    static const int SC_DEFAULTZL_MEMORY_LEVEL = 8;
    static const int SC_EFFICIENT_MEMORY_LEVEL = 4;

    // The result of every operation.
    enum ErrCode {
        success = 0,           // Z_OK
        bufferTooSmall = -1,   // Z_BUF_ERROR: the output space was too small
        outOfMemory = -2,      // Z_MEM_ERROR, or a buffer could not be obtained
        zlibError = -3,        // any other failure: corrupt data, bad parameter, I/O error
        invalidArguments = -4  // null pointer, zero length, out-of-range argument
    };

    // ---- buffers ---------------------------------------------------------------------
    // Compresses length bytes at source into a new buffer: the 4-byte length header and
    // the zlib stream. On success *result is a buffer from alloc_buffer (free it with
    // free_buffer) and resultLength its size; on failure *result is untouched (a buffer
    // obtained meanwhile is freed) and resultLength is 0.
    //
    // level: 0..9, or -1 for zlib's default (6); anything else gives -3.
    // memoryLevel: zlib's memLevel (deflateInit2), 1..9: how much memory the compressor
    //   uses for its hash chains and symbol buffer (about 2^(memLevel+9) bytes each);
    //   8 (SC_DEFAULTZL_MEMORY_LEVEL) is zlib's own and is what zlib.compress, gzip and
    //   qCompress use; 4 (SC_EFFICIENT_MEMORY_LEVEL) halves the memory for slightly
    //   larger output. Both arguments reach zlib unchanged, so 0 or 10 (and the strategy
    //   constant SC_DEFAULT_STRATEGY, which is 0) give -3. The window is always 32 KiB and
    //   the strategy zlib's default.
    // The output is sized once, to the larger of length * 1.001 + 13 and zlib's bound for
    // these parameters, plus the header, so every valid call fits.
    // Errors: -4 (with an assertion "false") for a null source or result pointer, a zero
    // length, or a length above 0xFFFFFFFF (the header holds 32 bits); -2 when the output
    // cannot be allocated; -3 for refused parameters. A failure traces
    // "compression failed, error code: %d " with zlib's code.
    static ErrCode compress_buffer(const unsigned char* source, unsigned long length,
                                   unsigned char** result, unsigned long& resultLength,
                                   int level = SC_DEFAULT_COMPRESSION,
                                   int memoryLevel = SC_DEFAULTZL_MEMORY_LEVEL);
    // The same over the used bytes of a simple buffer and over the bytes of an ASCII
    // string; on success target holds the compressed bytes (its previous content is
    // replaced), on failure it is unchanged.
    static ErrCode compress_buffer(const SSimpleBuffer& source, SSimpleBuffer& target,
                                   int level = SC_DEFAULT_COMPRESSION,
                                   int memoryLevel = SC_DEFAULTZL_MEMORY_LEVEL);
    static ErrCode compress_buffer(const SAsciiString& source, SSimpleBuffer& target,
                                   int level = SC_DEFAULT_COMPRESSION,
                                   int memoryLevel = SC_DEFAULTZL_MEMORY_LEVEL);

    // Decompresses a buffer in the format above into a new buffer of exactly the length
    // the header records (*result from alloc_buffer, to be freed with free_buffer;
    // a recorded length of 0 gives a valid one-byte block and resultLength 0).
    // Errors: -4 (with an assertion "false") for a null pointer or a length below 4 (no
    // room for the header); -1 when the stream holds more than the header records;
    // -3 when the stream is corrupt, ends early, is followed by stray bytes, or yields
    // fewer bytes than recorded; -2 when the output cannot be allocated.
    // A header claim is checked before anything is allocated: deflate cannot expand
    // more than 1032:1 (a 258-byte match in 2 bits), so a header recording more than
    // 1032 times the stream's size is refused with -3 without allocating: a 4 GB claim
    // on a 30-byte buffer costs nothing. A failure traces
    // "decompression failed, error code: %d" and leaves *result untouched, resultLength 0.
    static ErrCode decompress_buffer(const unsigned char* source, unsigned long length,
                                     unsigned char** result, unsigned long& resultLength);
    // The same over simple buffers and into the bytes of an ASCII string (the bytes are
    // taken as they are; data holding a zero byte, which a string cannot hold, gives -3
    // rather than a string cut short). On failure the target is unchanged.
    static ErrCode decompress_buffer(const SSimpleBuffer& source, SSimpleBuffer& target);
    static ErrCode decompress_buffer(const SSimpleBuffer& source, SAsciiString& target);

    // ---- files -----------------------------------------------------------------------
    // Compresses the file source into the gzip file target (created or truncated; owner
    // read and write). The gzip path is text in the process code page (UTF-8 bytes are
    // accepted where the code page cannot read it). level: 0..9 or -1 (zlib's 6);
    // strategy: SC_DEFAULT_STRATEGY, SC_FILTERED, SC_HUFFMAN_ONLY, or zlib's 3 (run
    // lengths) and 4 (fixed codes). The file is streamed in pieces of 16384 bytes.
    // With removeSource the source is deleted after the gzip file is complete; when that
    // fails it is traced ("SCompress::Compress_file: failed to remove the source file %s.")
    // and the result is still 0: the data is safe in both files.
    // Results: 0; -4 for an empty path, a level or strategy out of range, or a target
    // that names the source; -3 when the source cannot be opened ("Failed to open the
    // file %s for read."), the target cannot be opened ("Failed to open a gz file %s for
    // write."), or reading or writing fails ("file read error.", also for a failure zlib
    // reports when it closes the file, such as a full disk); -2 when memory runs out.
    // On every failure after the target was opened the partial target is deleted, so no
    // incomplete gzip file is left looking complete.
    static ErrCode compress_file(const SWCharString& source, const SAnsiString& target,
                                 int level = SC_DEFAULT_COMPRESSION,
                                 int strategy = SC_DEFAULT_STRATEGY, bool removeSource = false);
    // Decompresses the gzip file source (all its members) into the file target (created
    // or truncated; owner read and write), in pieces of 16384 bytes. A file that is not
    // gzip (zlib would copy it through unchanged), an empty file, a truncated or corrupt
    // file (a bad CRC or length is reported by zlib when the file is closed) all fail:
    // "file read error." and -3, and the partial target is deleted. Bytes after the last
    // complete member that do not start another member are ignored, as gzip does.
    // Results: 0; -4 for an empty path or a target that names the source; -3 when the
    // source cannot be opened ("Failed to open the file %s for read."), the target
    // cannot be opened ("Failed to open the file %s for write."), or the data is bad;
    // -2 when memory runs out. With removeSource the gzip file is deleted after success;
    // a failed removal is traced ("SCompress::Compress_file: failed to remove the source
    // file") and the result is still 0.
    static ErrCode decompress_file(const SAnsiString& source, const SWCharString& target,
                                   bool removeSource = false);

    // ---- helpers ---------------------------------------------------------------------
    // zlib's CRC-32 of length bytes at data continuing from crc (start with 0); a null
    // data pointer gives 0, zlib's initial value.
    static unsigned long crc32(unsigned long crc, const unsigned char* data, unsigned long length);
    // A block of size bytes (at least one) from SSimpleBuffer::alloc, or null when memory
    // is exhausted or size is negative.
    static unsigned char* alloc_buffer(long size);
    // Frees a block from alloc_buffer (or the result of this class) and sets the pointer
    // to null. A null pointer is left alone.
    static void free_buffer(unsigned char*& buffer);
};

} // namespace Vardo400

#endif
