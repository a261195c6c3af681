// WrapCryptoC primitives over OpenSSL's libcrypto (EVP).
#include "backend.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <climits>
#include <new>

namespace wcc {

// The algorithms are fetched once: an EVP_sha1()-style handle would make every init look
// the implementation up again, a large share of the cost of a small buffer.
const EVP_MD* sha1Md()
{
    static const EVP_MD* md = EVP_MD_fetch(nullptr, "SHA1", nullptr);
    return md ? md : EVP_sha1();
}

const EVP_CIPHER* des3Cipher()
{
    static const EVP_CIPHER* c = EVP_CIPHER_fetch(nullptr, "DES-EDE3-CBC", nullptr);
    return c ? c : EVP_des_ede3_cbc();
}

bool backendInit() { return true; }

struct Sha1 {
    EVP_MD_CTX* ctx;
};

Sha1* sha1New()
{
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    if (!ctx)
        return nullptr;
    Sha1* h = new (std::nothrow) Sha1{ctx};
    if (!h)
        EVP_MD_CTX_free(ctx);
    return h;
}

void sha1Free(Sha1* h)
{
    if (h) {
        EVP_MD_CTX_free(h->ctx);
        delete h;
    }
}

bool sha1Reset(Sha1* h) { return EVP_DigestInit_ex(h->ctx, sha1Md(), nullptr) == 1; }

bool sha1Update(Sha1* h, const unsigned char* data, size_t n)
{
    return n == 0 || EVP_DigestUpdate(h->ctx, data, n) == 1;
}

bool sha1Final(Sha1* h, unsigned char digest[20])
{
    unsigned int len = 0;
    return EVP_DigestFinal_ex(h->ctx, digest, &len) == 1 && len == 20;
}

struct Des3 {
    EVP_CIPHER_CTX* ctx;
};

Des3* des3New(const unsigned char key[24], const unsigned char iv[8], bool encrypt)
{
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    if (!ctx)
        return nullptr;
    if (EVP_CipherInit_ex(ctx, des3Cipher(), nullptr, key, iv, encrypt ? 1 : 0) != 1 ||
        EVP_CIPHER_CTX_set_padding(ctx, 0) != 1) {
        EVP_CIPHER_CTX_free(ctx);
        return nullptr;
    }
    Des3* h = new (std::nothrow) Des3{ctx};
    if (!h)
        EVP_CIPHER_CTX_free(ctx);
    return h;
}

void des3Free(Des3* h)
{
    if (h) {
        EVP_CIPHER_CTX_free(h->ctx);  // clears the key schedule
        delete h;
    }
}

bool des3Blocks(Des3* h, const unsigned char* in, unsigned char* out, size_t n)
{
    // EVP counts in int: feed large inputs in pieces of whole blocks.
    const size_t piece = (static_cast<size_t>(INT_MAX) / 8) * 8;
    while (n > 0) {
        size_t now = n < piece ? n : piece;
        int outl = 0;
        if (EVP_CipherUpdate(h->ctx, out, &outl, in, static_cast<int>(now)) != 1 ||
            static_cast<size_t>(outl) != now)
            return false;
        in += now;
        out += now;
        n -= now;
    }
    return true;
}

void wipe(void* p, size_t n)
{
    if (p && n)
        OPENSSL_cleanse(p, n);
}

} // namespace wcc
