// SCrypt: the encrypted-buffer format over the WrapCryptoC provider, and
// StrongEncryptionException.
#include "vardo/scrypt.h"

#include "vardo/DllWrap.h"
#include "vardo/codesetconverter.h"
#include "vardo/cs_wrapper.h"
#include "vardo/strace.h"

#include "os/os_dl.h"
#include "os/os_random.h"

#include "wrapcryptoc.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

namespace Vardo400 {

namespace {

const char kLibraryName[] = "WrapCryptoC";
const unsigned char kVersionMarker[4] = {0, 0, 0, 1};
// Error code of the provider's final decrypt step when the padding is not valid.
const int kPaddingError = 524;

bool tracing() { return ShouldTrace(0, __FILE__); }

void traceText(const char* text)
{
    if (tracing())
        STrace(text);
}

void traceCode(const char* format, int code)
{
    if (tracing())
        STrace(format, STraceParameter(code));
}

// Overwrites secrets in a way the compiler keeps.
void wipe(void* p, size_t n)
{
    volatile unsigned char* v = static_cast<volatile unsigned char*>(p);
    while (n--)
        *v++ = 0;
}

// Equality without an early exit.
bool sameBytes(const unsigned char* a, const unsigned char* b, size_t n)
{
    unsigned char diff = 0;
    for (size_t i = 0; i < n; ++i)
        diff |= static_cast<unsigned char>(a[i] ^ b[i]);
    return diff == 0;
}

} // namespace

// ---- the provider's entry-point table ----------------------------------------------------

class CryptoCLib : public CRefCount {
public:
    CryptoCLib() {}

    // Loads the provider and resolves every name in order; false (traced) when anything
    // is missing.
    bool Init();

    CSharedLibrary m_library;
    B_CreateAlgorithmObject_t B_CreateAlgorithmObject = nullptr;
    B_DestroyAlgorithmObject_t B_DestroyAlgorithmObject = nullptr;
    B_SetAlgorithmInfo_t B_SetAlgorithmInfo = nullptr;
    B_DigestInit_t B_DigestInit = nullptr;
    B_DigestUpdate_t B_DigestUpdate = nullptr;
    B_DigestFinal_t B_DigestFinal = nullptr;
    B_INFO_TYPE AI_SHA1 = nullptr;
    B_INFO_TYPE AI_SHA1Random = nullptr;
    const B_ALGORITHM_METHOD* AM_SHA = nullptr;
    const B_ALGORITHM_METHOD* AM_SHA_RANDOM = nullptr;
    B_RandomInit_t B_RandomInit = nullptr;
    B_RandomUpdate_t B_RandomUpdate = nullptr;
    B_GenerateRandomBytes_t B_GenerateRandomBytes = nullptr;
    B_CreateKeyObject_t B_CreateKeyObject = nullptr;
    B_SetKeyInfo_t B_SetKeyInfo = nullptr;
    B_DestroyKeyObject_t B_DestroyKeyObject = nullptr;
    B_CipherInit_t B_EncryptInit = nullptr;
    B_CipherUpdate_t B_EncryptUpdate = nullptr;
    B_CipherFinal_t B_EncryptFinal = nullptr;
    B_CipherInit_t B_DecryptInit = nullptr;
    B_CipherUpdate_t B_DecryptUpdate = nullptr;
    B_CipherFinal_t B_DecryptFinal = nullptr;
    B_INFO_TYPE KI_DES24Strong = nullptr;
    B_INFO_TYPE AI_DES_EDE3_CBCPadIV8 = nullptr;
    const B_ALGORITHM_METHOD* AM_DES_EDE3_CBC_ENCRYPT = nullptr;
    const B_ALGORITHM_METHOD* AM_DES_EDE3_CBC_DECRYPT = nullptr;

    // Method chooser lists, each ending with a null entry.
    const B_ALGORITHM_METHOD* m_encryptChooser[2] = {nullptr, nullptr};
    const B_ALGORITHM_METHOD* m_decryptChooser[2] = {nullptr, nullptr};
    const B_ALGORITHM_METHOD* m_digestChooser[2] = {nullptr, nullptr};
    const B_ALGORITHM_METHOD* m_randomChooser[2] = {nullptr, nullptr};

protected:
    ~CryptoCLib() override {}

private:
    template <class T>
    bool find(const char* name, T& target)
    {
        void* p = m_library.findProcAddress(name);
        if (!p) {
            if (tracing())
                STrace("Unable to load WrapCryptoC functions: %1", STraceParameter(name));
            return false;
        }
        target = reinterpret_cast<T>(p);
        return true;
    }
};

bool CryptoCLib::Init()
{
    traceText("CryptoCLib::Init BEGIN");
    SWCharString name;
    name.concatFromAscii(kLibraryName, sizeof(kLibraryName) - 1);
    // The provider lies beside this library: look there first, then where the system
    // looks (a sanitizer's or a loader's own dlopen does not search beside us).
    SWCharString beside = os::dlOwnDirectory();
    if (!beside.isEmpty()) {
        beside.concatFromAscii(os::dlPrefix(), static_cast<unsigned int>(std::strlen(os::dlPrefix())));
        beside += name;
        try {
            m_library.load(beside);
        } catch (const CSharedLibraryException&) {
        }
    }
    if (!m_library.isLoaded()) {
        try {
            m_library.load(name);
        } catch (const CSharedLibraryException& e) {
            if (tracing())
                STrace("Unable to load WrapCryptoC shared library: %1", STraceParameter(e.summary()));
            return false;
        }
    }
    traceText("CryptoCLib::Init Loaded library");

    if (!(find("B_CreateAlgorithmObject", B_CreateAlgorithmObject) &&
          find("B_DestroyAlgorithmObject", B_DestroyAlgorithmObject) &&
          find("B_SetAlgorithmInfo", B_SetAlgorithmInfo)))
        return false;
    traceText("CryptoCLib::Init Loaded general functions");

    if (!(find("B_DigestInit", B_DigestInit) && find("B_DigestUpdate", B_DigestUpdate) &&
          find("B_DigestFinal", B_DigestFinal) && find("AI_SHA1", AI_SHA1) &&
          find("AI_SHA1Random", AI_SHA1Random) && find("AM_SHA", AM_SHA) &&
          find("AM_SHA_RANDOM", AM_SHA_RANDOM)))
        return false;
    traceText("CryptoCLib::Init Loaded SHA-1 functions");

    if (!(find("B_RandomInit", B_RandomInit) && find("B_RandomUpdate", B_RandomUpdate) &&
          find("B_GenerateRandomBytes", B_GenerateRandomBytes)))
        return false;
    traceText("CryptoCLib::Init Loaded SHA-1 random number functions");

    if (!(find("B_CreateKeyObject", B_CreateKeyObject) && find("B_SetKeyInfo", B_SetKeyInfo) &&
          find("B_DestroyKeyObject", B_DestroyKeyObject)))
        return false;
    traceText("CryptoCLib::Init Loaded key functions");

    if (!(find("B_EncryptInit", B_EncryptInit) && find("B_EncryptUpdate", B_EncryptUpdate) &&
          find("B_EncryptFinal", B_EncryptFinal)))
        return false;
    traceText("CryptoCLib::Init Loaded encryption functions");

    if (!(find("B_DecryptInit", B_DecryptInit) && find("B_DecryptUpdate", B_DecryptUpdate) &&
          find("B_DecryptFinal", B_DecryptFinal) && find("KI_DES24Strong", KI_DES24Strong) &&
          find("AI_DES_EDE3_CBCPadIV8", AI_DES_EDE3_CBCPadIV8) &&
          find("AM_DES_EDE3_CBC_ENCRYPT", AM_DES_EDE3_CBC_ENCRYPT) &&
          find("AM_DES_EDE3_CBC_DECRYPT", AM_DES_EDE3_CBC_DECRYPT)))
        return false;
    traceText("CryptoCLib::Init Loaded decryption functions");

    m_encryptChooser[0] = AM_DES_EDE3_CBC_ENCRYPT;
    m_decryptChooser[0] = AM_DES_EDE3_CBC_DECRYPT;
    m_digestChooser[0] = AM_SHA;
    m_randomChooser[0] = AM_SHA_RANDOM;
    traceText("CryptoCLib::Init END");
    return true;
}

namespace {

// The process-wide table: loaded once, under the lock, and kept to the end.
struct CryptoState {
    CS_Wrapper m_lock;
    CryptoCLib* m_pLib = nullptr;     // one reference held here for the process
    bool m_bTried = false;
    std::atomic<bool> m_bCryptoCLibInitialized{false};
};

CryptoState& state()
{
    // Never destroyed: objects may still use the provider while statics are torn down.
    static CryptoState* s = new CryptoState();
    return *s;
}

class Locker {
public:
    explicit Locker(CS_Wrapper& cs) : m_cs(cs) { m_cs.Lock(); }
    ~Locker() { m_cs.Unlock(); }
private:
    CS_Wrapper& m_cs;
};

// A provider algorithm object, destroyed on every path.
class AlgorithmObj {
public:
    explicit AlgorithmObj(const CryptoCLib& lib) : m_lib(lib) {}
    ~AlgorithmObj() { if (m_obj) m_lib.B_DestroyAlgorithmObject(&m_obj); }
    int create() { return m_lib.B_CreateAlgorithmObject(&m_obj); }
    B_ALGORITHM_OBJ get() const { return m_obj; }
private:
    const CryptoCLib& m_lib;
    B_ALGORITHM_OBJ m_obj = nullptr;
};

// A provider key object; the provider wipes the key when it is destroyed.
class KeyObj {
public:
    explicit KeyObj(const CryptoCLib& lib) : m_lib(lib) {}
    ~KeyObj() { if (m_obj) m_lib.B_DestroyKeyObject(&m_obj); }
    int create() { return m_lib.B_CreateKeyObject(&m_obj); }
    B_KEY_OBJ get() const { return m_obj; }
private:
    const CryptoCLib& m_lib;
    B_KEY_OBJ m_obj = nullptr;
};

// A 24-byte Triple-DES key object; the provider's error code, 0 on success.
int makeKeyObject(const CryptoCLib& lib, KeyObj& keyObj, const SCrypt::Key& key, bool traceFailures)
{
    int rc = keyObj.create();
    if (rc != 0) {
        if (traceFailures)
            traceCode("B_CreateKeyObject failed with error code %1", rc);
        return rc;
    }
    rc = lib.B_SetKeyInfo(keyObj.get(), lib.KI_DES24Strong, const_cast<POINTER>(key.m_bytes));
    if (rc != 0 && traceFailures)
        traceCode("B_SetKeyInfo failed with error code %1", rc);
    return rc;
}

// SHA-1 of salt and data through the provider.
bool digest(const CryptoCLib& lib, const unsigned char* salt, const unsigned char* data, uint32_t length,
            unsigned char* out)
{
    AlgorithmObj alg(lib);
    unsigned int len = 0;
    return alg.create() == 0 && lib.B_SetAlgorithmInfo(alg.get(), lib.AI_SHA1, nullptr) == 0 &&
           lib.B_DigestInit(alg.get(), nullptr, lib.m_digestChooser, nullptr) == 0 &&
           lib.B_DigestUpdate(alg.get(), salt, SCrypt::SALT_SIZE, nullptr) == 0 &&
           lib.B_DigestUpdate(alg.get(), data, length, nullptr) == 0 &&
           lib.B_DigestFinal(alg.get(), out, &len, SCrypt::DIGEST_SIZE, nullptr) == 0 &&
           len == SCrypt::DIGEST_SIZE;
}

// Owned scratch space that is wiped before it is freed.
class SecretBuffer {
public:
    SecretBuffer() {}
    ~SecretBuffer() { wipeAll(); }
    void wipeAll() { if (m_buf.size()) wipe(m_buf.data(), m_buf.size()); }
    SSimpleBuffer& get() { return m_buf; }
private:
    SecretBuffer(const SecretBuffer&) = delete;
    SecretBuffer& operator=(const SecretBuffer&) = delete;
    SSimpleBuffer m_buf;
};

void wipeAndClear(SSimpleBuffer& b)
{
    if (b.size())
        wipe(b.data(), b.size());
    b.clear();
}

int hexValue(unsigned short c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace

// ---- SCrypt::Key ---------------------------------------------------------------------------

SCrypt::Key::Key() { std::memset(m_bytes, 0, sizeof(m_bytes)); }
SCrypt::Key::Key(const Key& other) { std::memcpy(m_bytes, other.m_bytes, sizeof(m_bytes)); }
SCrypt::Key& SCrypt::Key::operator=(const Key& other)
{
    if (this != &other)
        std::memcpy(m_bytes, other.m_bytes, sizeof(m_bytes));
    return *this;
}
SCrypt::Key::~Key() { clear(); }

bool SCrypt::Key::isBlank() const
{
    unsigned char any = 0;
    for (unsigned char b : m_bytes)
        any |= b;
    return any == 0;
}

void SCrypt::Key::clear() { wipe(m_bytes, sizeof(m_bytes)); }

// ---- SCrypt: loading ------------------------------------------------------------------------

SCrypt::SCrypt(bool bInit)
{
    if (bInit)
        Init();
}

SCrypt::SCrypt(const SCrypt& other) : m_pLib(other.m_pLib) {}

SCrypt& SCrypt::operator=(const SCrypt& other)
{
    m_pLib = other.m_pLib;
    return *this;
}

SCrypt::~SCrypt() {}

bool SCrypt::Init()
{
    CryptoState& s = state();
    Locker lock(s.m_lock);
    if (!s.m_bTried) {
        s.m_bTried = true;
        LoadCryptoC();
    }
    if (s.m_pLib && !m_pLib)
        m_pLib = CSmartRefCountPtr<CryptoCLib>(s.m_pLib, true);
    return !m_pLib.isNull();
}

bool SCrypt::LoadCryptoC()
{
    CryptoState& s = state();
    Locker lock(s.m_lock);
    if (s.m_bCryptoCLibInitialized)
        VARDO_ASSERT_TEXT("m_bCryptoCLibInitialized == false");
    if (!s.m_bCryptoCLibInitialized) {
        CSmartRefCountPtr<CryptoCLib> lib(new CryptoCLib());
        if (lib->Init()) {
            s.m_pLib = lib.detach();
            s.m_bCryptoCLibInitialized = true;
        } else {
            traceText("Unable to create CryptoC library.");
        }
    }
    if (!s.m_bCryptoCLibInitialized)
        VARDO_ASSERT_TEXT("m_bCryptoCLibInitialized == true");
    if (s.m_pLib && !m_pLib)
        m_pLib = CSmartRefCountPtr<CryptoCLib>(s.m_pLib, true);
    return s.m_bCryptoCLibInitialized;
}

bool SCrypt::isInitialized() const { return !m_pLib.isNull(); }

// ---- keys and digests ------------------------------------------------------------------------

SCrypt::Status SCrypt::makeKey(const SWCharString& passPhrase, Key& key) const
{
    if (!m_pLib) {
        VARDO_ASSERT_TEXT("Crypto not initialized");
        return notInitialized;
    }
    SecretBuffer bytes;
    unsigned int n = MBCSCodesetConverter::TToExplicitCodeset(passPhrase, MBCSCodesetConverter::UTF8Codeset,
                                                              bytes.get());
    if (n == 0)
        return notInitialized;
    key.clear();
    // The key is SHA-1 of the bytes alone, without a salt.
    AlgorithmObj alg(*m_pLib);
    unsigned int len = 0;
    unsigned char d[DIGEST_SIZE];
    bool ok = alg.create() == 0 && m_pLib->B_SetAlgorithmInfo(alg.get(), m_pLib->AI_SHA1, nullptr) == 0 &&
              m_pLib->B_DigestInit(alg.get(), nullptr, m_pLib->m_digestChooser, nullptr) == 0 &&
              m_pLib->B_DigestUpdate(alg.get(), bytes.get().data(), n - 1, nullptr) == 0 &&
              m_pLib->B_DigestFinal(alg.get(), d, &len, DIGEST_SIZE, nullptr) == 0 && len == DIGEST_SIZE;
    if (ok)
        std::memcpy(key.m_bytes, d, DIGEST_SIZE);
    wipe(d, sizeof(d));
    return ok ? success : notInitialized;
}

SCrypt::Status SCrypt::makeKey(const SWCharString& passPhrase, ByteStr& keySpace) const
{
    if (!m_pLib) {
        VARDO_ASSERT_TEXT("Crypto not initialized");
        return notInitialized;
    }
    if (!keySpace.m_pData || keySpace.m_nLength < KEY_SIZE)
        return keySpaceTooSmall;
    Key key;
    Status st = makeKey(passPhrase, key);
    if (st == success) {
        std::memcpy(keySpace.m_pData, key.m_bytes, KEY_SIZE);
        keySpace.m_nLength = KEY_SIZE;
    }
    return st;
}

SCrypt::Status SCrypt::randomKey(Key& key) const
{
    if (!m_pLib)
        return notInitialized;
    const CryptoCLib& lib = *m_pLib;
    unsigned char seed[32];
    if (!os::randomBytes(seed, sizeof(seed)))
        return notInitialized;
    AlgorithmObj alg(lib);
    Key fresh;
    bool ok = alg.create() == 0 && lib.B_SetAlgorithmInfo(alg.get(), lib.AI_SHA1Random, nullptr) == 0 &&
              lib.B_RandomInit(alg.get(), lib.m_randomChooser, nullptr) == 0 &&
              lib.B_RandomUpdate(alg.get(), seed, sizeof(seed), nullptr) == 0 &&
              lib.B_GenerateRandomBytes(alg.get(), fresh.m_bytes, KEY_SIZE, nullptr) == 0;
    wipe(seed, sizeof(seed));
    if (!ok || fresh.isBlank())
        return notInitialized;
    key = fresh;
    return success;
}

SCrypt::Status SCrypt::makeDigest(const unsigned char* data, uint32_t length, const unsigned char* salt,
                                  unsigned char* out) const
{
    if (out)
        std::memset(out, 0, DIGEST_SIZE);
    if (!m_pLib) {
        VARDO_ASSERT_TEXT("Crypto not initialized");
        return notInitialized;
    }
    if (!out || !salt || (length && !data) || !digest(*m_pLib, salt, data, length, out)) {
        VARDO_ASSERT_TEXT("Error occuring while generating digest");
        if (out)
            std::memset(out, 0, DIGEST_SIZE);
        return notInitialized;
    }
    return success;
}

// ---- sizes and versions ------------------------------------------------------------------------

uint32_t SCrypt::getEncryptedLength(uint32_t plainLength)
{
    uint64_t n = HEADER_SIZE + (static_cast<uint64_t>(plainLength) / BLOCK_SIZE + 1) * BLOCK_SIZE;
    return n > 0xFFFFFFFFu ? 0 : static_cast<uint32_t>(n);
}

int SCrypt::getHeaderVersion(const unsigned char* data, uint32_t length)
{
    if (!data)
        return -1;
    if (length % BLOCK_SIZE == 0 && length >= HEADER_SIZE + BLOCK_SIZE &&
        std::memcmp(data, kVersionMarker, sizeof(kVersionMarker)) == 0)
        return 1;
    if (length % BLOCK_SIZE == HEADER_SIZE_V0 % BLOCK_SIZE && length >= HEADER_SIZE_V0 + BLOCK_SIZE)
        return 0;
    return -1;
}

// ---- byte strings --------------------------------------------------------------------------------

SCrypt::Status SCrypt::encrypt(const ByteStr& plain, const Key& key, ByteStr& encrypted, int& version) const
{
    if (!m_pLib)
        return notInitialized;
    if (key.isBlank())
        return blankKey;
    const uint32_t need = getEncryptedLength(plain.m_nLength);
    if (need == 0 || !encrypted.m_pData || encrypted.m_nLength < need || (plain.m_nLength && !plain.m_pData))
        return invalidBuffer;
    const CryptoCLib& lib = *m_pLib;

    KeyObj keyObj(lib);
    int rc = makeKeyObject(lib, keyObj, key, true);
    if (rc != 0)
        return notInitialized;

    unsigned char* out = encrypted.m_pData;
    std::memcpy(out, kVersionMarker, sizeof(kVersionMarker));
    version = CURRENT_VERSION;
    unsigned char* salt = out + 4;
    if (!os::randomBytes(salt, SALT_SIZE)) {
        traceText("Unable to get random bytes for the initialisation vector");
        return notInitialized;
    }
    if (!digest(lib, salt, plain.m_pData, plain.m_nLength, salt + SALT_SIZE)) {
        VARDO_ASSERT_TEXT("Error occuring while generating digest");
        return notInitialized;
    }

    AlgorithmObj alg(lib);
    if ((rc = alg.create()) != 0) {
        traceCode("B_CreateAlgorithmObject failed with error code %1", rc);
        return notInitialized;
    }
    if ((rc = lib.B_SetAlgorithmInfo(alg.get(), lib.AI_DES_EDE3_CBCPadIV8, salt)) != 0) {
        traceCode("B_SetAlgorithmInfo failed with error code %1", rc);
        return notInitialized;
    }
    if ((rc = lib.B_EncryptInit(alg.get(), keyObj.get(), lib.m_encryptChooser, nullptr)) != 0) {
        traceCode("B_EncryptInit failed with error code %1", rc);
        return notInitialized;
    }
    const uint32_t crypttext_noheader_size = need - HEADER_SIZE;
    unsigned int encDataLenUpdate = 0, encDataLenFinal = 0;
    if ((rc = lib.B_EncryptUpdate(alg.get(), out + HEADER_SIZE, &encDataLenUpdate, crypttext_noheader_size,
                                  plain.m_pData, plain.m_nLength, nullptr, nullptr)) != 0) {
        traceCode("B_EncryptUpdate failed with error code %1", rc);
        return notInitialized;
    }
    if ((rc = lib.B_EncryptFinal(alg.get(), out + HEADER_SIZE + encDataLenUpdate, &encDataLenFinal,
                                 crypttext_noheader_size - encDataLenUpdate, nullptr, nullptr)) != 0) {
        traceCode("B_EncryptFinal failed with error code %1", rc);
        return notInitialized;
    }
    if (static_cast<uint64_t>(encDataLenUpdate) + encDataLenFinal != crypttext_noheader_size) {
        VARDO_ASSERT_TEXT("encDataLenUpdate + encDataLenFinal == crypttext_noheader_size");
        return notInitialized;
    }
    encrypted.m_nLength = need;
    return success;
}

SCrypt::Status SCrypt::decrypt(const ByteStr& encrypted, const Key& key, ByteStr& plain, int headerVersion) const
{
    if (!m_pLib)
        return notInitialized;
    if (key.isBlank())
        return blankKey;
    if (headerVersion != 0 && headerVersion != 1)
        return invalidBuffer;
    if (tracing())
        STrace("Decoding as header version %1", STraceParameter(headerVersion));

    const uint32_t headerSize = headerVersion == 1 ? HEADER_SIZE : HEADER_SIZE_V0;
    const unsigned char* in = encrypted.m_pData;
    if (!in || encrypted.m_nLength < headerSize + BLOCK_SIZE ||
        (encrypted.m_nLength - headerSize) % BLOCK_SIZE != 0 ||
        (headerVersion == 1 && std::memcmp(in, kVersionMarker, sizeof(kVersionMarker)) != 0))
        return invalidBuffer;
    const uint32_t cipherLength = encrypted.m_nLength - headerSize;
    if (!plain.m_pData || plain.m_nLength < cipherLength)
        return invalidBuffer;
    const CryptoCLib& lib = *m_pLib;
    // Nothing half-decrypted is left behind when a step fails.
    struct WipeUnlessDone {
        ByteStr& out;
        uint32_t room;
        bool done = false;
        ~WipeUnlessDone() { if (!done) wipe(out.m_pData, room); }
    } guard{plain, plain.m_nLength};

    KeyObj keyObj(lib);
    if (makeKeyObject(lib, keyObj, key, true) != 0)
        return blankKey;
    const unsigned char* salt = in + (headerSize - HEADER_SIZE_V0);
    const unsigned char* storedDigest = salt + SALT_SIZE;

    AlgorithmObj alg(lib);
    int rc;
    if ((rc = alg.create()) != 0) {
        traceCode("B_CreateAlgorithmObject failed with error code %1", rc);
        return notInitialized;
    }
    if ((rc = lib.B_SetAlgorithmInfo(alg.get(), lib.AI_DES_EDE3_CBCPadIV8, const_cast<POINTER>(salt))) != 0) {
        traceCode("B_SetAlgorithmInfo failed with error code %1", rc);
        return notInitialized;
    }
    if ((rc = lib.B_DecryptInit(alg.get(), keyObj.get(), lib.m_decryptChooser, nullptr)) != 0) {
        traceCode("B_DecryptInit failed with error code %1", rc);
        return notInitialized;
    }
    unsigned int lenUpdate = 0, lenFinal = 0;
    if ((rc = lib.B_DecryptUpdate(alg.get(), plain.m_pData, &lenUpdate, plain.m_nLength, in + headerSize,
                                  cipherLength, nullptr, nullptr)) != 0) {
        traceCode("B_DecryptUpdate failed with error code %1", rc);
        return notInitialized;
    }
    rc = lib.B_DecryptFinal(alg.get(), plain.m_pData + lenUpdate, &lenFinal, plain.m_nLength - lenUpdate,
                            nullptr, nullptr);
    // The last block's padding is not valid, almost always because the key is wrong:
    // go on with what the update step gave, so the digest check reports it as such.
    const bool paddingRefused = rc == kPaddingError;
    if (paddingRefused) {
        traceCode("B_DecryptFinal failed with error code %1 - use workaround", rc);
        lenFinal = 0;
    } else if (rc != 0) {
        traceCode("B_DecryptFinal failed with error code %1", rc);
        return notInitialized;
    }
    const uint32_t plainLength = lenUpdate + lenFinal;
    unsigned char d[DIGEST_SIZE];
    if (!digest(lib, salt, plain.m_pData, plainLength, d)) {
        VARDO_ASSERT_TEXT("Error occuring while generating digest");
        return notInitialized;
    }
    if (!sameBytes(d, storedDigest, DIGEST_SIZE)) {
        traceText("Digest comparsion failed! Probably a wrong key.");
        return digestMismatch;
    }
    if (paddingRefused) {
        // The blocks before the last one match the digest, so the buffer was changed in
        // its last block: a buffer changed anywhere is never reported intact.
        traceText("Digest matches without the last block, whose padding is damaged: buffer modified.");
        return digestMismatch;
    }
    guard.done = true;
    // Beyond the plaintext nothing of the last block stays in the caller's space.
    if (plain.m_nLength > plainLength)
        wipe(plain.m_pData + plainLength, plain.m_nLength - plainLength);
    plain.m_nLength = plainLength;
    return success;
}

SCrypt::Status SCrypt::decrypt(const ByteStr& encrypted, const Key& key, ByteStr& plain) const
{
    if (!m_pLib)
        return notInitialized;
    if (key.isBlank())
        return blankKey;
    int version = getHeaderVersion(encrypted.m_pData, encrypted.m_nLength);
    if (version < 0)
        return invalidBuffer;
    return decrypt(encrypted, key, plain, version);
}

// ---- owned buffers ---------------------------------------------------------------------------------

SCrypt::Status SCrypt::encrypt(const SSimpleBuffer& plain, const Key& key, SSimpleBuffer& encrypted) const
{
    encrypted.clear();
    if (!m_pLib)
        return notInitialized;
    if (key.isBlank())
        return blankKey;
    if (plain.size() > 0xFFFFFFFFu || getEncryptedLength(static_cast<uint32_t>(plain.size())) == 0)
        return invalidBuffer;
    const uint32_t need = getEncryptedLength(static_cast<uint32_t>(plain.size()));
    encrypted.resize(need);
    ByteStr in(const_cast<unsigned char*>(plain.data()), static_cast<uint32_t>(plain.size()));
    ByteStr out(encrypted.data(), need);
    int version = 0;
    Status st = encrypt(in, key, out, version);
    if (st != success)
        encrypted.clear();
    else
        encrypted.resize(out.m_nLength);
    return st;
}

SCrypt::Status SCrypt::decrypt(const SSimpleBuffer& encrypted, const Key& key, SSimpleBuffer& plain,
                               int* version) const
{
    wipeAndClear(plain);
    if (!m_pLib)
        return notInitialized;
    if (key.isBlank())
        return blankKey;
    if (encrypted.size() > 0xFFFFFFFFu)
        return invalidBuffer;
    ByteStr in(const_cast<unsigned char*>(encrypted.data()), static_cast<uint32_t>(encrypted.size()));
    int v = getHeaderVersion(in.m_pData, in.m_nLength);
    if (v < 0)
        return invalidBuffer;
    if (version)
        *version = v;
    plain.resize(in.m_nLength - (v == 1 ? HEADER_SIZE : HEADER_SIZE_V0));
    ByteStr out(plain.data(), static_cast<uint32_t>(plain.size()));
    Status st = decrypt(in, key, out, v);
    if (st == success)
        plain.resize(out.m_nLength);
    else
        plain.clear();
    return st;
}

SCrypt::Status SCrypt::encrypt(const SByteArray& plain, const Key& key, SByteArray& encrypted) const
{
    SSimpleBuffer in, out;
    fromSByteArray(plain, in);
    Status st = encrypt(in, key, out);
    wipeAndClear(in);
    toSByteArray(toByteStr(out), encrypted);
    return st;
}

SCrypt::Status SCrypt::decrypt(const SByteArray& encrypted, const Key& key, SByteArray& plain) const
{
    SSimpleBuffer in;
    SecretBuffer out;
    fromSByteArray(encrypted, in);
    Status st = decrypt(in, key, out.get());
    if (!plain.empty())
        wipe(plain.data(), plain.size());
    toSByteArray(toByteStr(out.get()), plain);
    return st;
}

SCrypt::Status SCrypt::encrypt(const SWCharString& plainText, const Key& key, SSimpleBuffer& encrypted) const
{
    encrypted.clear();
    SecretBuffer bytes;
    if (!toSSimpleBuffer(plainText, bytes.get()))
        return invalidBuffer;
    return encrypt(bytes.get(), key, encrypted);
}

SCrypt::Status SCrypt::decrypt(const SSimpleBuffer& encrypted, const Key& key, SWCharString& plainText) const
{
    plainText.empty();
    SecretBuffer bytes;
    int version = 0;
    Status st = decrypt(encrypted, key, bytes.get(), &version);
    if (st == success)
        plainText = fromSSimpleBuffer(bytes.get(), version);
    return st;
}

SCrypt::Status SCrypt::encrypt(const SWCharString& plainText, const Key& key, SWCharString& encryptedText) const
{
    encryptedText.empty();
    SSimpleBuffer bytes;
    Status st = encrypt(plainText, key, bytes);
    if (st == success)
        encryptedText = toText(toByteStr(bytes));
    return st;
}

SCrypt::Status SCrypt::decrypt(const SWCharString& encryptedText, const Key& key, SWCharString& plainText) const
{
    plainText.empty();
    if (!m_pLib)
        return notInitialized;
    if (key.isBlank())
        return blankKey;
    SSimpleBuffer bytes;
    if (!toBinary(encryptedText, bytes))
        return invalidBuffer;
    return decrypt(bytes, key, plainText);
}

// ---- conversions ------------------------------------------------------------------------------------

bool SCrypt::toSSimpleBuffer(const SWCharString& text, SSimpleBuffer& bytes)
{
    wipeAndClear(bytes);
    unsigned int n = MBCSCodesetConverter::TToExplicitCodeset(text, MBCSCodesetConverter::UTF8Codeset, bytes);
    if (n == 0) {
        bytes.clear();
        return false;
    }
    bytes.resize(n - 1);  // drop the terminator
    return true;
}

SWCharString SCrypt::fromSSimpleBuffer(const SSimpleBuffer& bytes, int version)
{
    SWCharString text;
    if (bytes.isEmpty())
        return text;
    if (version != 0) {
        VARDO_ASSERT(version == 1);
        unsigned int n = bytes.size() > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned int>(bytes.size());
        MBCSCodesetConverter::ExplicitCodesetToT(reinterpret_cast<const char*>(bytes.data()), n,
                                                 MBCSCodesetConverter::UTF8Codeset, text);
        return text;
    }
    // Version 0 stored 8-bit characters: each byte is one unit, up to the first 0 byte.
    size_t n = 0;
    while (n < bytes.size() && bytes.data()[n] != 0)
        ++n;
    if (n > 0xFFFFFFFEu)
        n = 0xFFFFFFFEu;
    text.setBufferSize(static_cast<unsigned int>(n));
    for (size_t i = 0; i < n; ++i)
        text += SWChar(static_cast<unsigned short>(bytes.data()[i]));
    return text;
}

SWCharString SCrypt::toText(const ByteStr& bytes)
{
    SWCharString text;
    if (!bytes.m_pData || bytes.m_nLength == 0)
        return text;
    if (bytes.m_nLength > 0x7FFFFFFEu)
        throw std::bad_alloc();
    static const char digits[] = "0123456789ABCDEF";
    text.setBufferSize(bytes.m_nLength * 2);
    for (uint32_t i = 0; i < bytes.m_nLength; ++i) {
        text += SWChar(static_cast<unsigned short>(digits[bytes.m_pData[i] >> 4]));
        text += SWChar(static_cast<unsigned short>(digits[bytes.m_pData[i] & 15]));
    }
    return text;
}

bool SCrypt::toText(const ByteStr& bytes, unsigned short* text, unsigned int cCharTextMax, unsigned int& cCharText)
{
    uint64_t needed = bytes.m_pData ? static_cast<uint64_t>(bytes.m_nLength) * 2 : 0;
    cCharText = needed > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned int>(needed);
    if (needed > cCharTextMax || (needed && !text)) {
        VARDO_ASSERT(cCharText <= cCharTextMax);
        return false;
    }
    static const char digits[] = "0123456789ABCDEF";
    for (uint32_t i = 0; i < bytes.m_nLength && bytes.m_pData; ++i) {
        text[2 * i] = static_cast<unsigned short>(digits[bytes.m_pData[i] >> 4]);
        text[2 * i + 1] = static_cast<unsigned short>(digits[bytes.m_pData[i] & 15]);
    }
    return true;
}

bool SCrypt::toBinary(const SWCharString& text, SSimpleBuffer& bytes)
{
    bytes.clear();
    unsigned int n = text.getLength();
    if (n % 2 != 0)
        return false;
    const unsigned short* p = text.data();
    bytes.reserve(n / 2);
    for (unsigned int i = 0; i < n; i += 2) {
        int hi = hexValue(p[i]), lo = hexValue(p[i + 1]);
        if (hi < 0 || lo < 0) {
            bytes.clear();
            return false;
        }
        bytes.append(static_cast<unsigned char>(hi * 16 + lo));
    }
    return true;
}

SCrypt::ByteStr SCrypt::toByteStr(const SSimpleBuffer& buffer)
{
    uint32_t n = buffer.size() > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(buffer.size());
    return ByteStr(const_cast<unsigned char*>(buffer.data()), n);
}

SCrypt::ByteStr SCrypt::toByteStr(const SByteArray& bytes)
{
    uint32_t n = bytes.size() > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(bytes.size());
    return ByteStr(bytes.empty() ? nullptr : const_cast<unsigned char*>(bytes.data()), n);
}

void SCrypt::toSByteArray(const ByteStr& bytes, SByteArray& out)
{
    if (bytes.m_pData)
        out.assign(bytes.m_pData, bytes.m_pData + bytes.m_nLength);
    else
        out.clear();
}

void SCrypt::fromSByteArray(const SByteArray& bytes, SSimpleBuffer& out)
{
    out.clear();
    if (!bytes.empty())
        out.append(bytes.data(), bytes.size());
}

// ---- StrongEncryptionException ----------------------------------------------------------------------

StrongEncryptionException::StrongEncryptionException(SCrypt::Status status) : m_nErrorCode(status) {}
StrongEncryptionException::StrongEncryptionException(const StrongEncryptionException& other)
    : SException(other), m_nErrorCode(other.m_nErrorCode)
{
}
StrongEncryptionException::~StrongEncryptionException() {}

const char* StrongEncryptionException::ReasonText(int status)
{
    switch (status) {
    case SCrypt::notInitialized: return "Encryption library cannot be initialized correctly.";
    case SCrypt::keySpaceTooSmall: return "The space passed in to make a key is too small.";
    case SCrypt::blankKey: return "Encryption/Decryption key passed in is blank.";
    case SCrypt::invalidBuffer: return "The buffer passed in for encryption/decryption does not look valid.";
    case SCrypt::digestMismatch:
        return "Checksum does not match after decryption(buffer modified or wrong key used).";
    default: return "Unknown error.";
    }
}

SWCharString StrongEncryptionException::GetReason() const
{
    const char* text = ReasonText(m_nErrorCode);
    SWCharString s;
    s.concatFromAscii(text, static_cast<unsigned int>(std::strlen(text)));
    return s;
}

SWCharString StrongEncryptionException::toString() const { return GetReason(); }

SWCharString StrongEncryptionException::summary() const
{
    SWCharString s = toString();
    char tail[32];
    int n = std::snprintf(tail, sizeof(tail), ":status %d", m_nErrorCode);
    s.concatFromAscii(tail, static_cast<unsigned int>(n));
    return s;
}

} // namespace Vardo400
