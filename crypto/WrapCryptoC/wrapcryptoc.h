/* WrapCryptoC: a Crypto-C style interface (algorithm and key objects, init/update/final,
 * method chooser lists ending with a null entry, integer error codes) over the platform's
 * crypto library. Loaded at run time by name; every entry point uses the C calling
 * convention and C linkage.
 *
 * Objects: B_CreateAlgorithmObject / B_CreateKeyObject make an empty object, which is
 * given its type with B_SetAlgorithmInfo / B_SetKeyInfo (once) and destroyed with
 * B_Destroy...Object, which wipes any key material it holds and nulls the handle.
 * An algorithm object serves one operation at a time; distinct objects may be used from
 * different threads at once.
 *
 * Algorithm and key info types (data symbols; their addresses are the info type):
 *   AI_SHA1                 SHA-1 digest; info null.
 *   AI_SHA1Random           SHA-1 based pseudo-random generator, seeded by
 *                           B_RandomUpdate; info null.
 *   AI_DES_EDE3_CBCPadIV8   Triple-DES (EDE, three keys) in CBC mode with block padding
 *                           (n bytes of value n, 1 <= n <= 8); info points to the 8-byte IV.
 *   KI_DES24Strong          a 24-byte Triple-DES key; info points to the 24 bytes.
 * Method choosers (data symbols): AM_SHA, AM_SHA_RANDOM, AM_DES_EDE3_CBC_ENCRYPT,
 * AM_DES_EDE3_CBC_DECRYPT. An init call takes a list of pointers to them ending with a
 * null pointer; the list must name the method the object's algorithm needs.
 *
 * Streaming: encrypt update writes every whole block it can and keeps the rest; final
 * pads and writes one block. Decrypt update keeps the last whole block back; final checks
 * and strips the padding. maxPartOutLen must cover what a call writes: the whole blocks of
 * (kept bytes + partInLen) for update (less one block when decrypting), 8 for final.
 */
#ifndef WRAPCRYPTOC_H
#define WRAPCRYPTOC_H

#if defined(_WIN32)
#  if defined(WRAPCRYPTOC_BUILDING)
#    define WRAPCRYPTOC_API __declspec(dllexport)
#  else
#    define WRAPCRYPTOC_API __declspec(dllimport)
#  endif
#  define WRAPCRYPTOC_CALL __cdecl
#else
#  define WRAPCRYPTOC_API __attribute__((visibility("default")))
#  define WRAPCRYPTOC_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char* POINTER;
typedef void* B_ALGORITHM_OBJ;
typedef void* B_KEY_OBJ;

/* An algorithm or key info type: the address of one of the AI_ / KI_ data symbols. */
typedef struct B_InfoType {
    unsigned int id;
    const char* name;
} B_INFO_TYPE_DESCRIPTOR;
typedef const B_INFO_TYPE_DESCRIPTOR* B_INFO_TYPE;

/* A method a chooser list may name: one of the AM_ data symbols. */
typedef struct B_AlgorithmMethod {
    unsigned int id;
    const char* name;
} B_ALGORITHM_METHOD;
typedef const B_ALGORITHM_METHOD* const* B_ALGORITHM_CHOOSER;

/* Cancellation callback; accepted for compatibility, never called. */
typedef struct A_SurrenderCtx {
    int (*Surrender)(POINTER handle);
    POINTER handle;
    POINTER reserved;
} A_SURRENDER_CTX;

/* Error codes (0 is success). */
#define BE_ALGORITHM_ALREADY_SET     0x0200
#define BE_ALGORITHM_INFO            0x0201
#define BE_ALGORITHM_NOT_INITIALIZED 0x0202
#define BE_ALGORITHM_NOT_SET         0x0203
#define BE_ALGORITHM_OBJ             0x0204
#define BE_ALLOC                     0x0206
#define BE_HARDWARE                  0x020b  /* the underlying library failed */
#define BE_INPUT_DATA                0x020c  /* decrypt final: the padding is not valid */
#define BE_INPUT_LEN                 0x020d  /* decrypt final: not a whole number of blocks */
#define BE_KEY_ALREADY_SET           0x020e
#define BE_KEY_INFO                  0x020f
#define BE_KEY_NOT_SET               0x0211
#define BE_KEY_OBJ                   0x0212
#define BE_OUTPUT_LEN                0x0218  /* maxPartOutLen / maxDigestLen too small */
#define BE_RANDOM_NOT_INITIALIZED    0x021a
#define BE_WRONG_ALGORITHM_INFO      0x021d
#define BE_METHOD_NOT_IN_CHOOSER     0x0221

WRAPCRYPTOC_API extern const B_INFO_TYPE_DESCRIPTOR AI_SHA1;
WRAPCRYPTOC_API extern const B_INFO_TYPE_DESCRIPTOR AI_SHA1Random;
WRAPCRYPTOC_API extern const B_INFO_TYPE_DESCRIPTOR AI_DES_EDE3_CBCPadIV8;
WRAPCRYPTOC_API extern const B_INFO_TYPE_DESCRIPTOR KI_DES24Strong;
WRAPCRYPTOC_API extern const B_ALGORITHM_METHOD AM_SHA;
WRAPCRYPTOC_API extern const B_ALGORITHM_METHOD AM_SHA_RANDOM;
WRAPCRYPTOC_API extern const B_ALGORITHM_METHOD AM_DES_EDE3_CBC_ENCRYPT;
WRAPCRYPTOC_API extern const B_ALGORITHM_METHOD AM_DES_EDE3_CBC_DECRYPT;

/* Function types, for callers that resolve the entry points at run time. */
typedef int (WRAPCRYPTOC_CALL *B_CreateAlgorithmObject_t)(B_ALGORITHM_OBJ* algorithmObject);
typedef void (WRAPCRYPTOC_CALL *B_DestroyAlgorithmObject_t)(B_ALGORITHM_OBJ* algorithmObject);
typedef int (WRAPCRYPTOC_CALL *B_SetAlgorithmInfo_t)(B_ALGORITHM_OBJ algorithmObject, B_INFO_TYPE infoType,
                                                     POINTER info);
typedef int (WRAPCRYPTOC_CALL *B_DigestInit_t)(B_ALGORITHM_OBJ digester, B_KEY_OBJ keyObject,
                                               B_ALGORITHM_CHOOSER chooser, A_SURRENDER_CTX* surrender);
typedef int (WRAPCRYPTOC_CALL *B_DigestUpdate_t)(B_ALGORITHM_OBJ digester, const unsigned char* input,
                                                 unsigned int inputLen, A_SURRENDER_CTX* surrender);
typedef int (WRAPCRYPTOC_CALL *B_DigestFinal_t)(B_ALGORITHM_OBJ digester, unsigned char* digest,
                                                unsigned int* digestLen, unsigned int maxDigestLen,
                                                A_SURRENDER_CTX* surrender);
typedef int (WRAPCRYPTOC_CALL *B_RandomInit_t)(B_ALGORITHM_OBJ randomAlgorithm, B_ALGORITHM_CHOOSER chooser,
                                               A_SURRENDER_CTX* surrender);
typedef int (WRAPCRYPTOC_CALL *B_RandomUpdate_t)(B_ALGORITHM_OBJ randomAlgorithm, const unsigned char* input,
                                                 unsigned int inputLen, A_SURRENDER_CTX* surrender);
typedef int (WRAPCRYPTOC_CALL *B_GenerateRandomBytes_t)(B_ALGORITHM_OBJ randomAlgorithm, unsigned char* output,
                                                        unsigned int outputLen, A_SURRENDER_CTX* surrender);
typedef int (WRAPCRYPTOC_CALL *B_CreateKeyObject_t)(B_KEY_OBJ* keyObject);
typedef int (WRAPCRYPTOC_CALL *B_SetKeyInfo_t)(B_KEY_OBJ keyObject, B_INFO_TYPE infoType, POINTER info);
typedef void (WRAPCRYPTOC_CALL *B_DestroyKeyObject_t)(B_KEY_OBJ* keyObject);
typedef int (WRAPCRYPTOC_CALL *B_CipherInit_t)(B_ALGORITHM_OBJ algorithmObject, B_KEY_OBJ keyObject,
                                               B_ALGORITHM_CHOOSER chooser, A_SURRENDER_CTX* surrender);
typedef int (WRAPCRYPTOC_CALL *B_CipherUpdate_t)(B_ALGORITHM_OBJ algorithmObject, unsigned char* partOut,
                                                 unsigned int* partOutLen, unsigned int maxPartOutLen,
                                                 const unsigned char* partIn, unsigned int partInLen,
                                                 B_ALGORITHM_OBJ randomAlgorithm, A_SURRENDER_CTX* surrender);
typedef int (WRAPCRYPTOC_CALL *B_CipherFinal_t)(B_ALGORITHM_OBJ algorithmObject, unsigned char* partOut,
                                                unsigned int* partOutLen, unsigned int maxPartOutLen,
                                                B_ALGORITHM_OBJ randomAlgorithm, A_SURRENDER_CTX* surrender);

WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_CreateAlgorithmObject(B_ALGORITHM_OBJ* algorithmObject);
WRAPCRYPTOC_API void WRAPCRYPTOC_CALL B_DestroyAlgorithmObject(B_ALGORITHM_OBJ* algorithmObject);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_SetAlgorithmInfo(B_ALGORITHM_OBJ algorithmObject, B_INFO_TYPE infoType,
                                                        POINTER info);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_DigestInit(B_ALGORITHM_OBJ digester, B_KEY_OBJ keyObject,
                                                  B_ALGORITHM_CHOOSER chooser, A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_DigestUpdate(B_ALGORITHM_OBJ digester, const unsigned char* input,
                                                    unsigned int inputLen, A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_DigestFinal(B_ALGORITHM_OBJ digester, unsigned char* digest,
                                                   unsigned int* digestLen, unsigned int maxDigestLen,
                                                   A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_RandomInit(B_ALGORITHM_OBJ randomAlgorithm, B_ALGORITHM_CHOOSER chooser,
                                                  A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_RandomUpdate(B_ALGORITHM_OBJ randomAlgorithm, const unsigned char* input,
                                                    unsigned int inputLen, A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_GenerateRandomBytes(B_ALGORITHM_OBJ randomAlgorithm,
                                                           unsigned char* output, unsigned int outputLen,
                                                           A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_CreateKeyObject(B_KEY_OBJ* keyObject);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_SetKeyInfo(B_KEY_OBJ keyObject, B_INFO_TYPE infoType, POINTER info);
WRAPCRYPTOC_API void WRAPCRYPTOC_CALL B_DestroyKeyObject(B_KEY_OBJ* keyObject);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_EncryptInit(B_ALGORITHM_OBJ encryptionObject, B_KEY_OBJ keyObject,
                                                   B_ALGORITHM_CHOOSER chooser, A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_EncryptUpdate(B_ALGORITHM_OBJ encryptionObject, unsigned char* partOut,
                                                     unsigned int* partOutLen, unsigned int maxPartOutLen,
                                                     const unsigned char* partIn, unsigned int partInLen,
                                                     B_ALGORITHM_OBJ randomAlgorithm, A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_EncryptFinal(B_ALGORITHM_OBJ encryptionObject, unsigned char* partOut,
                                                    unsigned int* partOutLen, unsigned int maxPartOutLen,
                                                    B_ALGORITHM_OBJ randomAlgorithm, A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_DecryptInit(B_ALGORITHM_OBJ decryptionObject, B_KEY_OBJ keyObject,
                                                   B_ALGORITHM_CHOOSER chooser, A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_DecryptUpdate(B_ALGORITHM_OBJ decryptionObject, unsigned char* partOut,
                                                     unsigned int* partOutLen, unsigned int maxPartOutLen,
                                                     const unsigned char* partIn, unsigned int partInLen,
                                                     B_ALGORITHM_OBJ randomAlgorithm, A_SURRENDER_CTX* surrender);
WRAPCRYPTOC_API int WRAPCRYPTOC_CALL B_DecryptFinal(B_ALGORITHM_OBJ decryptionObject, unsigned char* partOut,
                                                    unsigned int* partOutLen, unsigned int maxPartOutLen,
                                                    B_ALGORITHM_OBJ randomAlgorithm, A_SURRENDER_CTX* surrender);

#ifdef __cplusplus
}
#endif

#endif
