// WrapCryptoC: the Crypto-C object model (algorithm and key objects, choosers, streaming
// init/update/final with block padding) over the primitives of backend.h.
#define WRAPCRYPTOC_BUILDING
#include "wrapcryptoc.h"

#include "backend.h"

#include <cstring>
#include <new>

extern "C" {
const B_INFO_TYPE_DESCRIPTOR AI_SHA1 = {1, "AI_SHA1"};
const B_INFO_TYPE_DESCRIPTOR AI_SHA1Random = {2, "AI_SHA1Random"};
const B_INFO_TYPE_DESCRIPTOR AI_DES_EDE3_CBCPadIV8 = {3, "AI_DES_EDE3_CBCPadIV8"};
const B_INFO_TYPE_DESCRIPTOR KI_DES24Strong = {4, "KI_DES24Strong"};
const B_ALGORITHM_METHOD AM_SHA = {1, "AM_SHA"};
const B_ALGORITHM_METHOD AM_SHA_RANDOM = {2, "AM_SHA_RANDOM"};
const B_ALGORITHM_METHOD AM_DES_EDE3_CBC_ENCRYPT = {3, "AM_DES_EDE3_CBC_ENCRYPT"};
const B_ALGORITHM_METHOD AM_DES_EDE3_CBC_DECRYPT = {4, "AM_DES_EDE3_CBC_DECRYPT"};
}

namespace {

const unsigned int kBlock = 8;
// Tags that tell a live object from a stray pointer of another kind.
const unsigned int kAlgorithmTag = 0x57434141u;  // "WCAA"
const unsigned int kKeyTag = 0x5743414bu;        // "WCAK"

struct KeyObject {
    unsigned int tag = kKeyTag;
    bool set = false;
    unsigned char key[24] = {};
};

enum class Kind { none, sha1, random, des3 };
enum class State { idle, digesting, seeded, encrypting, decrypting };

struct AlgorithmObject {
    unsigned int tag = kAlgorithmTag;
    Kind kind = Kind::none;
    State state = State::idle;
    unsigned char iv[kBlock] = {};
    wcc::Sha1* sha1 = nullptr;
    wcc::Des3* des3 = nullptr;
    // Cipher: bytes kept between calls (a partial block; when decrypting, up to one
    // whole block held back for the final padding check).
    unsigned char kept[kBlock] = {};
    unsigned int nKept = 0;
    // Random generator: the seed state and a block counter.
    unsigned char seed[20] = {};
    unsigned int counter = 0;
    bool seeded = false;
    // Digest: finished, to be restarted before the next update.
    bool restart = false;

    ~AlgorithmObject() { clearCipher(); wcc::sha1Free(sha1); wcc::wipe(seed, sizeof(seed)); wcc::wipe(iv, sizeof(iv)); }
    void clearCipher()
    {
        wcc::des3Free(des3);
        des3 = nullptr;
        wcc::wipe(kept, sizeof(kept));
        nKept = 0;
    }
};

AlgorithmObject* algorithm(B_ALGORITHM_OBJ p)
{
    AlgorithmObject* a = static_cast<AlgorithmObject*>(p);
    return (a && a->tag == kAlgorithmTag) ? a : nullptr;
}

KeyObject* keyObject(B_KEY_OBJ p)
{
    KeyObject* k = static_cast<KeyObject*>(p);
    return (k && k->tag == kKeyTag) ? k : nullptr;
}

bool chooserHas(B_ALGORITHM_CHOOSER chooser, const B_ALGORITHM_METHOD* method)
{
    if (!chooser)
        return false;
    for (; *chooser; ++chooser)
        if (*chooser == method || (*chooser)->id == method->id)
            return true;
    return false;
}

int cipherInit(B_ALGORITHM_OBJ obj, B_KEY_OBJ keyObj, B_ALGORITHM_CHOOSER chooser, bool encrypt)
{
    AlgorithmObject* a = algorithm(obj);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->kind == Kind::none)
        return BE_ALGORITHM_NOT_SET;
    if (a->kind != Kind::des3)
        return BE_WRONG_ALGORITHM_INFO;
    KeyObject* k = keyObject(keyObj);
    if (!k)
        return BE_KEY_OBJ;
    if (!k->set)
        return BE_KEY_NOT_SET;
    if (!chooserHas(chooser, encrypt ? &AM_DES_EDE3_CBC_ENCRYPT : &AM_DES_EDE3_CBC_DECRYPT))
        return BE_METHOD_NOT_IN_CHOOSER;
    a->clearCipher();
    a->des3 = wcc::des3New(k->key, a->iv, encrypt);
    if (!a->des3) {
        a->state = State::idle;
        return BE_HARDWARE;
    }
    a->state = encrypt ? State::encrypting : State::decrypting;
    return 0;
}

int cipherUpdate(B_ALGORITHM_OBJ obj, unsigned char* out, unsigned int* outLen, unsigned int maxOut,
                 const unsigned char* in, unsigned int inLen, bool encrypt)
{
    AlgorithmObject* a = algorithm(obj);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->state != (encrypt ? State::encrypting : State::decrypting))
        return BE_ALGORITHM_NOT_INITIALIZED;
    if (!outLen || (inLen && !in))
        return BE_ALGORITHM_INFO;
    *outLen = 0;
    // Whole blocks this call writes; decrypting keeps the last whole block back.
    unsigned long long total = static_cast<unsigned long long>(a->nKept) + inLen;
    unsigned long long write = (total / kBlock) * kBlock;
    if (!encrypt && write > 0 && write == total)
        write -= kBlock;
    if (write > maxOut)
        return BE_OUTPUT_LEN;
    if (write > 0 && !out)
        return BE_OUTPUT_LEN;

    unsigned long long done = 0;
    // First complete the kept partial block.
    if (a->nKept > 0 && write > 0) {
        unsigned int take = kBlock - a->nKept;
        if (take)
            std::memcpy(a->kept + a->nKept, in, take);
        if (!wcc::des3Blocks(a->des3, a->kept, out, kBlock))
            return BE_HARDWARE;
        in += take;
        inLen -= take;
        a->nKept = 0;
        done = kBlock;
    }
    // Then whole blocks straight from the input.
    unsigned long long direct = write - done;
    if (direct > 0) {
        if (!wcc::des3Blocks(a->des3, in, out + done, static_cast<size_t>(direct)))
            return BE_HARDWARE;
        in += direct;
        inLen -= static_cast<unsigned int>(direct);
    }
    // Keep the rest (less than a block, or exactly one held back when decrypting).
    if (inLen > 0) {
        std::memcpy(a->kept + a->nKept, in, inLen);
        a->nKept += inLen;
    }
    *outLen = static_cast<unsigned int>(write);
    return 0;
}

} // namespace

extern "C" {

int WRAPCRYPTOC_CALL B_CreateAlgorithmObject(B_ALGORITHM_OBJ* algorithmObject)
{
    if (!algorithmObject)
        return BE_ALGORITHM_OBJ;
    *algorithmObject = new (std::nothrow) AlgorithmObject();
    return *algorithmObject ? 0 : BE_ALLOC;
}

void WRAPCRYPTOC_CALL B_DestroyAlgorithmObject(B_ALGORITHM_OBJ* algorithmObject)
{
    if (!algorithmObject)
        return;
    AlgorithmObject* a = algorithm(*algorithmObject);
    if (a) {
        a->tag = 0;
        delete a;
    }
    *algorithmObject = nullptr;
}

int WRAPCRYPTOC_CALL B_SetAlgorithmInfo(B_ALGORITHM_OBJ algorithmObject, B_INFO_TYPE infoType, POINTER info)
{
    AlgorithmObject* a = algorithm(algorithmObject);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->kind != Kind::none)
        return BE_ALGORITHM_ALREADY_SET;
    if (!infoType)
        return BE_ALGORITHM_INFO;
    switch (infoType->id) {
    case 1:
        a->sha1 = wcc::sha1New();
        if (!a->sha1)
            return BE_HARDWARE;
        a->kind = Kind::sha1;
        return 0;
    case 2:
        a->sha1 = wcc::sha1New();
        if (!a->sha1)
            return BE_HARDWARE;
        a->kind = Kind::random;
        return 0;
    case 3:
        if (!info)
            return BE_ALGORITHM_INFO;
        std::memcpy(a->iv, info, kBlock);
        a->kind = Kind::des3;
        return 0;
    default:
        return BE_WRONG_ALGORITHM_INFO;
    }
}

int WRAPCRYPTOC_CALL B_DigestInit(B_ALGORITHM_OBJ digester, B_KEY_OBJ, B_ALGORITHM_CHOOSER chooser,
                                  A_SURRENDER_CTX*)
{
    AlgorithmObject* a = algorithm(digester);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->kind == Kind::none)
        return BE_ALGORITHM_NOT_SET;
    if (a->kind != Kind::sha1)
        return BE_WRONG_ALGORITHM_INFO;
    if (!chooserHas(chooser, &AM_SHA))
        return BE_METHOD_NOT_IN_CHOOSER;
    if (!wcc::sha1Reset(a->sha1))
        return BE_HARDWARE;
    a->restart = false;
    a->state = State::digesting;
    return 0;
}

int WRAPCRYPTOC_CALL B_DigestUpdate(B_ALGORITHM_OBJ digester, const unsigned char* input, unsigned int inputLen,
                                    A_SURRENDER_CTX*)
{
    AlgorithmObject* a = algorithm(digester);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->state != State::digesting)
        return BE_ALGORITHM_NOT_INITIALIZED;
    if (inputLen && !input)
        return BE_ALGORITHM_INFO;
    if (a->restart) {
        if (!wcc::sha1Reset(a->sha1))
            return BE_HARDWARE;
        a->restart = false;
    }
    return wcc::sha1Update(a->sha1, input, inputLen) ? 0 : BE_HARDWARE;
}

int WRAPCRYPTOC_CALL B_DigestFinal(B_ALGORITHM_OBJ digester, unsigned char* digest, unsigned int* digestLen,
                                   unsigned int maxDigestLen, A_SURRENDER_CTX*)
{
    AlgorithmObject* a = algorithm(digester);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->state != State::digesting)
        return BE_ALGORITHM_NOT_INITIALIZED;
    if (!digest || !digestLen || maxDigestLen < 20)
        return BE_OUTPUT_LEN;
    if (a->restart) {
        if (!wcc::sha1Reset(a->sha1))
            return BE_HARDWARE;
        a->restart = false;
    }
    a->state = State::idle;
    if (!wcc::sha1Final(a->sha1, digest))
        return BE_HARDWARE;
    *digestLen = 20;
    // Ready for the next digest without another init; the context restarts on first use.
    a->restart = true;
    a->state = State::digesting;
    return 0;
}

int WRAPCRYPTOC_CALL B_RandomInit(B_ALGORITHM_OBJ randomAlgorithm, B_ALGORITHM_CHOOSER chooser, A_SURRENDER_CTX*)
{
    AlgorithmObject* a = algorithm(randomAlgorithm);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->kind == Kind::none)
        return BE_ALGORITHM_NOT_SET;
    if (a->kind != Kind::random)
        return BE_WRONG_ALGORITHM_INFO;
    if (!chooserHas(chooser, &AM_SHA_RANDOM))
        return BE_METHOD_NOT_IN_CHOOSER;
    wcc::wipe(a->seed, sizeof(a->seed));
    a->counter = 0;
    a->seeded = false;
    a->state = State::seeded;
    return 0;
}

// The generator: seed' = SHA-1(seed || input) for each update; output block i is
// SHA-1(seed || i) with i big-endian and counted across calls.
int WRAPCRYPTOC_CALL B_RandomUpdate(B_ALGORITHM_OBJ randomAlgorithm, const unsigned char* input,
                                    unsigned int inputLen, A_SURRENDER_CTX*)
{
    AlgorithmObject* a = algorithm(randomAlgorithm);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->state != State::seeded)
        return BE_RANDOM_NOT_INITIALIZED;
    if (inputLen && !input)
        return BE_ALGORITHM_INFO;
    if (!wcc::sha1Reset(a->sha1) || !wcc::sha1Update(a->sha1, a->seed, sizeof(a->seed)) ||
        !wcc::sha1Update(a->sha1, input, inputLen) || !wcc::sha1Final(a->sha1, a->seed))
        return BE_HARDWARE;
    a->seeded = true;
    return 0;
}

int WRAPCRYPTOC_CALL B_GenerateRandomBytes(B_ALGORITHM_OBJ randomAlgorithm, unsigned char* output,
                                           unsigned int outputLen, A_SURRENDER_CTX*)
{
    AlgorithmObject* a = algorithm(randomAlgorithm);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->state != State::seeded || !a->seeded)
        return BE_RANDOM_NOT_INITIALIZED;
    if (outputLen && !output)
        return BE_OUTPUT_LEN;
    unsigned char block[20];
    while (outputLen > 0) {
        unsigned char n[4] = {static_cast<unsigned char>(a->counter >> 24), static_cast<unsigned char>(a->counter >> 16),
                              static_cast<unsigned char>(a->counter >> 8), static_cast<unsigned char>(a->counter)};
        ++a->counter;
        if (!wcc::sha1Reset(a->sha1) || !wcc::sha1Update(a->sha1, a->seed, sizeof(a->seed)) ||
            !wcc::sha1Update(a->sha1, n, 4) || !wcc::sha1Final(a->sha1, block)) {
            wcc::wipe(block, sizeof(block));
            return BE_HARDWARE;
        }
        unsigned int take = outputLen < 20 ? outputLen : 20;
        std::memcpy(output, block, take);
        output += take;
        outputLen -= take;
    }
    wcc::wipe(block, sizeof(block));
    return 0;
}

int WRAPCRYPTOC_CALL B_CreateKeyObject(B_KEY_OBJ* keyObject)
{
    if (!keyObject)
        return BE_KEY_OBJ;
    *keyObject = new (std::nothrow) KeyObject();
    return *keyObject ? 0 : BE_ALLOC;
}

int WRAPCRYPTOC_CALL B_SetKeyInfo(B_KEY_OBJ keyObj, B_INFO_TYPE infoType, POINTER info)
{
    KeyObject* k = keyObject(keyObj);
    if (!k)
        return BE_KEY_OBJ;
    if (k->set)
        return BE_KEY_ALREADY_SET;
    if (infoType != &KI_DES24Strong && (!infoType || infoType->id != KI_DES24Strong.id))
        return BE_KEY_INFO;
    if (!info)
        return BE_KEY_INFO;
    std::memcpy(k->key, info, sizeof(k->key));
    k->set = true;
    return 0;
}

void WRAPCRYPTOC_CALL B_DestroyKeyObject(B_KEY_OBJ* keyObj)
{
    if (!keyObj)
        return;
    KeyObject* k = keyObject(*keyObj);
    if (k) {
        wcc::wipe(k->key, sizeof(k->key));
        k->tag = 0;
        delete k;
    }
    *keyObj = nullptr;
}

int WRAPCRYPTOC_CALL B_EncryptInit(B_ALGORITHM_OBJ obj, B_KEY_OBJ keyObj, B_ALGORITHM_CHOOSER chooser,
                                   A_SURRENDER_CTX*)
{
    return cipherInit(obj, keyObj, chooser, true);
}

int WRAPCRYPTOC_CALL B_EncryptUpdate(B_ALGORITHM_OBJ obj, unsigned char* partOut, unsigned int* partOutLen,
                                     unsigned int maxPartOutLen, const unsigned char* partIn, unsigned int partInLen,
                                     B_ALGORITHM_OBJ, A_SURRENDER_CTX*)
{
    return cipherUpdate(obj, partOut, partOutLen, maxPartOutLen, partIn, partInLen, true);
}

int WRAPCRYPTOC_CALL B_EncryptFinal(B_ALGORITHM_OBJ obj, unsigned char* partOut, unsigned int* partOutLen,
                                    unsigned int maxPartOutLen, B_ALGORITHM_OBJ, A_SURRENDER_CTX*)
{
    AlgorithmObject* a = algorithm(obj);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->state != State::encrypting)
        return BE_ALGORITHM_NOT_INITIALIZED;
    if (!partOutLen || !partOut || maxPartOutLen < kBlock)
        return BE_OUTPUT_LEN;
    unsigned char pad = static_cast<unsigned char>(kBlock - a->nKept);
    for (unsigned int i = a->nKept; i < kBlock; ++i)
        a->kept[i] = pad;
    bool ok = wcc::des3Blocks(a->des3, a->kept, partOut, kBlock);
    a->clearCipher();
    a->state = State::idle;
    if (!ok)
        return BE_HARDWARE;
    *partOutLen = kBlock;
    return 0;
}

int WRAPCRYPTOC_CALL B_DecryptInit(B_ALGORITHM_OBJ obj, B_KEY_OBJ keyObj, B_ALGORITHM_CHOOSER chooser,
                                   A_SURRENDER_CTX*)
{
    return cipherInit(obj, keyObj, chooser, false);
}

int WRAPCRYPTOC_CALL B_DecryptUpdate(B_ALGORITHM_OBJ obj, unsigned char* partOut, unsigned int* partOutLen,
                                     unsigned int maxPartOutLen, const unsigned char* partIn, unsigned int partInLen,
                                     B_ALGORITHM_OBJ, A_SURRENDER_CTX*)
{
    return cipherUpdate(obj, partOut, partOutLen, maxPartOutLen, partIn, partInLen, false);
}

int WRAPCRYPTOC_CALL B_DecryptFinal(B_ALGORITHM_OBJ obj, unsigned char* partOut, unsigned int* partOutLen,
                                    unsigned int maxPartOutLen, B_ALGORITHM_OBJ, A_SURRENDER_CTX*)
{
    AlgorithmObject* a = algorithm(obj);
    if (!a)
        return BE_ALGORITHM_OBJ;
    if (a->state != State::decrypting)
        return BE_ALGORITHM_NOT_INITIALIZED;
    if (!partOutLen)
        return BE_OUTPUT_LEN;
    *partOutLen = 0;
    int rc = 0;
    unsigned char block[kBlock];
    if (a->nKept != kBlock) {
        rc = BE_INPUT_LEN;
    } else if (!wcc::des3Blocks(a->des3, a->kept, block, kBlock)) {
        rc = BE_HARDWARE;
    } else {
        // Checked without early exit, so the time taken does not say which byte failed.
        unsigned int pad = block[kBlock - 1];
        unsigned int bad = (pad == 0) | (pad > kBlock);
        for (unsigned int i = 0; i < kBlock; ++i) {
            unsigned int inPad = (i >= kBlock - pad) & (pad <= kBlock);
            bad |= inPad & (block[i] != pad);
        }
        if (bad) {
            rc = BE_INPUT_DATA;
        } else if (kBlock - pad > maxPartOutLen || (kBlock - pad > 0 && !partOut)) {
            rc = BE_OUTPUT_LEN;
        } else {
            std::memcpy(partOut, block, kBlock - pad);
            *partOutLen = kBlock - pad;
        }
    }
    wcc::wipe(block, sizeof(block));
    a->clearCipher();
    a->state = State::idle;
    return rc;
}

} // extern "C"
