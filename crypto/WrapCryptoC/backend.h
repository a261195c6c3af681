// The primitives WrapCryptoC needs from the platform's crypto library: SHA-1 and raw
// Triple-DES CBC over whole blocks. Padding, buffering and the object model live above
// this, written once.
#ifndef WRAPCRYPTOC_BACKEND_H
#define WRAPCRYPTOC_BACKEND_H

#include <cstddef>

namespace wcc {

// Prepares the library once; false when it cannot be used.
bool backendInit();

struct Sha1;
// A SHA-1 context, or null; sha1Reset starts each computation.
Sha1* sha1New();
void sha1Free(Sha1* h);
// Starts over.
bool sha1Reset(Sha1* h);
bool sha1Update(Sha1* h, const unsigned char* data, size_t n);
// Writes the 20 digest bytes; the context must be reset before it is used again.
bool sha1Final(Sha1* h, unsigned char digest[20]);

struct Des3;
// Triple-DES CBC without padding, keyed and with its IV set; null on failure. The key
// schedule is wiped by des3Free.
Des3* des3New(const unsigned char key[24], const unsigned char iv[8], bool encrypt);
void des3Free(Des3* h);
// n is a multiple of 8; in and out do not overlap (or are equal).
bool des3Blocks(Des3* h, const unsigned char* in, unsigned char* out, size_t n);

// Overwrites n bytes with zeros in a way the compiler keeps.
void wipe(void* p, size_t n);

} // namespace wcc

#endif
