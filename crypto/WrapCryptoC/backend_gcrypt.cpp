// WrapCryptoC primitives over libgcrypt (the Windows build).
#include "backend.h"

#include <gcrypt.h>

#include <mutex>
#include <new>

namespace wcc {

bool backendInit()
{
    static std::once_flag once;
    static bool ok = false;
    std::call_once(once, [] {
        if (!gcry_check_version(GCRYPT_VERSION))
            return;
        // Nothing here needs locked-away memory; the objects wipe their own secrets.
        gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        ok = true;
    });
    return ok;
}

struct Sha1 {
    gcry_md_hd_t md;
};

Sha1* sha1New()
{
    if (!backendInit())
        return nullptr;
    gcry_md_hd_t md = nullptr;
    if (gcry_md_open(&md, GCRY_MD_SHA1, 0) != 0)
        return nullptr;
    Sha1* h = new (std::nothrow) Sha1{md};
    if (!h)
        gcry_md_close(md);
    return h;
}

void sha1Free(Sha1* h)
{
    if (h) {
        gcry_md_close(h->md);
        delete h;
    }
}

bool sha1Reset(Sha1* h)
{
    gcry_md_reset(h->md);
    return true;
}

bool sha1Update(Sha1* h, const unsigned char* data, size_t n)
{
    if (n)
        gcry_md_write(h->md, data, n);
    return true;
}

bool sha1Final(Sha1* h, unsigned char digest[20])
{
    const unsigned char* d = gcry_md_read(h->md, GCRY_MD_SHA1);
    if (!d)
        return false;
    for (int i = 0; i < 20; ++i)
        digest[i] = d[i];
    return true;
}

struct Des3 {
    gcry_cipher_hd_t cipher;
    bool encrypt;
};

Des3* des3New(const unsigned char key[24], const unsigned char iv[8], bool encrypt)
{
    if (!backendInit())
        return nullptr;
    gcry_cipher_hd_t c = nullptr;
    if (gcry_cipher_open(&c, GCRY_CIPHER_3DES, GCRY_CIPHER_MODE_CBC, 0) != 0)
        return nullptr;
    // A key derived from a pass phrase may contain a weak DES sub-key; the other
    // implementations accept it, so this one must too.
    gcry_cipher_ctl(c, GCRYCTL_SET_ALLOW_WEAK_KEY, nullptr, 1);
    gcry_error_t e = gcry_cipher_setkey(c, key, 24);
    if ((e != 0 && gcry_err_code(e) != GPG_ERR_WEAK_KEY) || gcry_cipher_setiv(c, iv, 8) != 0) {
        gcry_cipher_close(c);
        return nullptr;
    }
    Des3* h = new (std::nothrow) Des3{c, encrypt};
    if (!h)
        gcry_cipher_close(c);
    return h;
}

void des3Free(Des3* h)
{
    if (h) {
        gcry_cipher_close(h->cipher);  // wipes the key schedule
        delete h;
    }
}

bool des3Blocks(Des3* h, const unsigned char* in, unsigned char* out, size_t n)
{
    if (n == 0)
        return true;
    gcry_error_t e = h->encrypt ? gcry_cipher_encrypt(h->cipher, out, n, in, n)
                                : gcry_cipher_decrypt(h->cipher, out, n, in, n);
    return e == 0;
}

void wipe(void* p, size_t n)
{
    volatile unsigned char* v = static_cast<volatile unsigned char*>(p);
    while (n--)
        *v++ = 0;
}

} // namespace wcc
