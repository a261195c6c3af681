// SCrypt: encryption of byte buffers with a key made from a pass phrase, with a salted
// digest that detects wrong keys and damaged buffers; StrongEncryptionException, the
// exception that callers building on it throw for a failed status.
//
// The cryptography is done by the crypto provider "WrapCryptoC", a shared library loaded
// at run time (it lies beside this library). Without it every operation returns
// notInitialized and the load failure is traced.
//
// Encrypted-buffer format, version 1 (what encrypt writes; offsets in bytes):
//    0   4  the bytes 00 00 00 01
//    4   8  random initialisation vector, also the digest salt
//   12  20  SHA-1 of the salt followed by the plaintext
//   32   -  Triple-DES (DES-EDE3) CBC ciphertext of the plaintext, padded to whole 8-byte
//           blocks (n bytes of value n, 1 <= n <= 8)
// Version 0 (written by earlier releases, still decrypted) has no marker: IV at 0, digest
// at 8, ciphertext at 28. The two cannot be confused: a version 1 buffer is a multiple of
// 8 bytes long, a version 0 buffer 4 more than one.
//
// What the format does not protect (read this before storing anything with it):
//  - The digest of salt and plaintext is stored in clear and is keyless. Anyone holding a
//    buffer can test guesses of a low-entropy plaintext (a PIN, a yes/no, a short
//    password) offline, without the key. Anyone who knows the plaintext can change the
//    first block through the IV and write a matching digest: the digest is an integrity
//    check against accidents and wrong keys, not a MAC.
//  - The key is one unsalted SHA-1 of the pass phrase (bytes 20-23 zero): a weak pass
//    phrase falls to a dictionary attack, and equal pass phrases give equal keys.
//  - Triple-DES has 64-bit blocks: do not encrypt many gigabytes under one key.
// Use it to read and write data in this format; do not choose it for new secrets.
//
// Thread-safety: the provider is loaded once per process (guarded); after that every
// operation may run on any thread at once. The Key and ByteStr objects passed in are
// not synchronised.
#ifndef VARDO_SCRYPT_H
#define VARDO_SCRYPT_H

#include "vardodefs.h"
#include "sstring.h"
#include "sexception.h"
#include "simplebuffer.h"
#include "containers.h"
#include "refcount.h"

namespace Vardo400 {

class CryptoCLib;

// A buffer of bytes as the encryption calls take it.
typedef SIArray<unsigned char> SByteArray;

class VARDO_API SCrypt {
public:
    enum {
        KEY_SIZE = 24,        // bytes of a Triple-DES key
        SALT_SIZE = 8,        // bytes of the IV / digest salt
        DIGEST_SIZE = 20,     // bytes of a SHA-1 digest
        BLOCK_SIZE = 8,       // cipher block
        HEADER_SIZE_V0 = 28,  // header of a version 0 buffer
        HEADER_SIZE = 32,     // header of a version 1 buffer
        CURRENT_VERSION = 1
    };

    // Result of every operation.
    enum Status {
        success = 0,
        notInitialized = 1,   // the provider is not loaded, or one of its calls failed
        keySpaceTooSmall = 2, // the space given for a key is smaller than KEY_SIZE
        blankKey = 3,         // the key is 24 zero bytes (or the provider refused it)
        invalidBuffer = 4,    // the buffer does not have the encrypted-buffer form, or the
                              // output space is too small
        digestMismatch = 5    // decrypted, but the digest differs: wrong key or damaged
    };

    // The 24 key bytes. A new key is blank (all zero). The destructor and clear() wipe it.
    struct VARDO_API Key {
        unsigned char m_bytes[KEY_SIZE];
        Key();
        Key(const Key& other);
        Key& operator=(const Key& other);
        ~Key();
        // True when all 24 bytes are zero.
        bool isBlank() const;
        void clear();
    };

    // A byte pointer and a length; it does not own the bytes. As an output argument it
    // gives the space (pointer and size) and receives the length written.
    struct ByteStr {
        unsigned char* m_pData;
        uint32_t m_nLength;
        ByteStr() : m_pData(0), m_nLength(0) {}
        ByteStr(unsigned char* data, uint32_t length) : m_pData(data), m_nLength(length) {}
    };

    // With bInit true the provider is loaded now (Init()); else on the first Init().
    explicit SCrypt(bool bInit = true);
    SCrypt(const SCrypt& other);
    SCrypt& operator=(const SCrypt& other);
    ~SCrypt();

    // Loads the provider when no earlier call in this process has tried. Returns whether
    // it is ready. A failed load is traced and not retried in this process.
    bool Init();
    // Loads "WrapCryptoC" and resolves its entry points (each group traced). Asserts
    // "m_bCryptoCLibInitialized == false" before and "m_bCryptoCLibInitialized == true"
    // after. Use Init(), which calls this once.
    bool LoadCryptoC();
    // Whether the provider is loaded.
    bool isInitialized() const;

    // ---- keys and digests --------------------------------------------------------------
    // key = SHA-1 of the pass phrase as UTF-8 (no terminator) in bytes 0-19, zeros in
    // 20-23. notInitialized without the provider (asserting "Crypto not initialized").
    Status makeKey(const SWCharString& passPhrase, Key& key) const;
    // The same into the caller's space (keySpaceTooSmall below KEY_SIZE bytes); its
    // length becomes KEY_SIZE.
    Status makeKey(const SWCharString& passPhrase, ByteStr& keySpace) const;
    // A fresh random key (the provider's SHA-1 generator seeded from the system's
    // cryptographic random source).
    Status randomKey(Key& key) const;
    // digest = SHA-1(salt[0..7] || data[0..length-1]). Zeroed first; on failure asserts
    // "Error occuring while generating digest" and returns notInitialized.
    Status makeDigest(const unsigned char* data, uint32_t length, const unsigned char* salt,
                      unsigned char* digest) const;

    // ---- sizes and versions --------------------------------------------------------------
    // Bytes of the encrypted buffer for plainLength bytes: 32 + the length rounded up to
    // the next multiple of 8 (a whole extra block when it is one already). 0 when that
    // would not fit 32 bits.
    static uint32_t getEncryptedLength(uint32_t plainLength);
    // 1 or 0 when the bytes have the form of a version 1 or 0 buffer (length and marker),
    // -1 when neither.
    static int getHeaderVersion(const unsigned char* data, uint32_t length);

    // ---- byte strings (the caller gives the space) -----------------------------------------
    // encrypted must give at least getEncryptedLength(plain length) bytes (else
    // invalidBuffer); on success its length is set to the bytes written and version to 1.
    // Errors: notInitialized, blankKey, invalidBuffer.
    Status encrypt(const ByteStr& plain, const Key& key, ByteStr& encrypted, int& version) const;
    // Decrypts a buffer of the given header version (0 or 1; any other decrypts nothing
    // and gives invalidBuffer). plain must give room for the ciphertext's length (the
    // buffer less its header); on success its length is set to the plaintext's. On any
    // failure the space given is wiped. Errors: notInitialized, blankKey (also when the
    // provider refuses the key), invalidBuffer, digestMismatch (also when the last
    // block's padding is damaged, whatever the digest says: such a buffer was changed).
    Status decrypt(const ByteStr& encrypted, const Key& key, ByteStr& plain, int headerVersion) const;
    // The same with the version taken from the buffer (getHeaderVersion).
    Status decrypt(const ByteStr& encrypted, const Key& key, ByteStr& plain) const;

    // ---- owned buffers -------------------------------------------------------------------
    // The output is replaced (emptied on failure). version, when given, receives the
    // header version of the buffer decrypted.
    Status encrypt(const SSimpleBuffer& plain, const Key& key, SSimpleBuffer& encrypted) const;
    Status decrypt(const SSimpleBuffer& encrypted, const Key& key, SSimpleBuffer& plain,
                   int* version = 0) const;
    Status encrypt(const SByteArray& plain, const Key& key, SByteArray& encrypted) const;
    Status decrypt(const SByteArray& encrypted, const Key& key, SByteArray& plain) const;
    // Binary form: text in (as UTF-8), encrypted bytes out, and back.
    Status encrypt(const SWCharString& plainText, const Key& key, SSimpleBuffer& encrypted) const;
    Status decrypt(const SSimpleBuffer& encrypted, const Key& key, SWCharString& plainText) const;
    // Text form: text in, the encrypted bytes as text (toText) out, and back. A text that
    // is not in that form gives invalidBuffer.
    Status encrypt(const SWCharString& plainText, const Key& key, SWCharString& encryptedText) const;
    Status decrypt(const SWCharString& encryptedText, const Key& key, SWCharString& plainText) const;

    // ---- conversions between the forms ---------------------------------------------------
    // Text to UTF-8 bytes (no terminator) in bytes. False only when memory runs out.
    static bool toSSimpleBuffer(const SWCharString& text, SSimpleBuffer& bytes);
    // Decrypted bytes back to text, up to the first 0 byte: version 1 (any non-zero; the
    // assertion "version == 1" when it is not 1) as UTF-8 (MBCSCodesetConverter codeset
    // 1, malformed bytes become "?"); version 0 as 8-bit characters, each byte one unit.
    static SWCharString fromSSimpleBuffer(const SSimpleBuffer& bytes, int version);
    // Text form of bytes: two upper-case hexadecimal digits a byte.
    static SWCharString toText(const ByteStr& bytes);
    // The same into text of cCharTextMax units; cCharText gets the units needed (no
    // terminator is written or counted). When they do not fit, asserts
    // "cCharText <= cCharTextMax", writes nothing and returns false.
    static bool toText(const ByteStr& bytes, unsigned short* text, unsigned int cCharTextMax,
                       unsigned int& cCharText);
    // Back from the text form (either case). False, bytes emptied, for an odd length or a
    // character that is not a hexadecimal digit.
    static bool toBinary(const SWCharString& text, SSimpleBuffer& bytes);
    // Views of a buffer's bytes (valid while the buffer is unchanged).
    static ByteStr toByteStr(const SSimpleBuffer& buffer);
    static ByteStr toByteStr(const SByteArray& bytes);
    static void toSByteArray(const ByteStr& bytes, SByteArray& out);
    static void fromSByteArray(const SByteArray& bytes, SSimpleBuffer& out);

private:
    CSmartRefCountPtr<CryptoCLib> m_pLib;
};

// The exception that callers building on SCrypt throw for a failed status.
class VARDO_API StrongEncryptionException : public SException {
public:
    explicit StrongEncryptionException(SCrypt::Status status);
    StrongEncryptionException(const StrongEncryptionException& other);
    ~StrongEncryptionException() override;

    // The status it was built from.
    int GetErrorCode() const { return m_nErrorCode; }
    // The status's text: 1 "Encryption library cannot be initialized correctly.",
    // 2 "The space passed in to make a key is too small.", 3 "Encryption/Decryption key
    // passed in is blank.", 4 "The buffer passed in for encryption/decryption does not
    // look valid.", 5 "Checksum does not match after decryption(buffer modified or wrong
    // key used).", any other "Unknown error.".
    SWCharString GetReason() const;
    // GetReason().
    SWCharString toString() const override;
    // toString(), ":", "status " and the code.
    SWCharString summary() const override;

    // The text for a status, as GetReason() gives it.
    static const char* ReasonText(int status);

private:
    int m_nErrorCode;
};

} // namespace Vardo400

#endif
