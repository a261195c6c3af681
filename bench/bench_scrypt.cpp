// SCrypt encrypt/decrypt through the WrapCryptoC provider beside the same work done
// directly with OpenSSL's EVP interface: random IV, SHA-1 of salt and plaintext,
// Triple-DES CBC with padding, the 32-byte header (and on decryption the digest check).
#include "vardo/scrypt.h"

#include "ratio.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstring>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

typedef std::vector<unsigned char> Bytes;

Bytes pattern(size_t n)
{
    Bytes b(n);
    for (size_t i = 0; i < n; ++i)
        b[i] = static_cast<unsigned char>(i * 131 + 7);
    return b;
}

struct Setup {
    SCrypt crypt;
    SCrypt::Key key;
    Setup()
    {
        const unsigned short pass[] = {'b', 'e', 'n', 'c', 'h', 0};
        crypt.makeKey(SWCharString(pass), key);
    }
};

Setup& setup()
{
    static Setup s;
    return s;
}

// ---- the anchor: EVP directly ----------------------------------------------------------------

bool evpDigest(const unsigned char* salt, const unsigned char* data, size_t n, unsigned char* out)
{
    EVP_MD_CTX* md = EVP_MD_CTX_new();
    unsigned int len = 0;
    bool ok = md && EVP_DigestInit_ex(md, EVP_sha1(), nullptr) == 1 && EVP_DigestUpdate(md, salt, 8) == 1 &&
              EVP_DigestUpdate(md, data, n) == 1 && EVP_DigestFinal_ex(md, out, &len) == 1;
    EVP_MD_CTX_free(md);
    return ok;
}

size_t evpEncrypt(const unsigned char* key, const Bytes& plain, Bytes& out)
{
    static const unsigned char marker[4] = {0, 0, 0, 1};
    std::memcpy(out.data(), marker, 4);
    unsigned char* salt = out.data() + 4;
    if (RAND_bytes(salt, 8) != 1 || !evpDigest(salt, plain.data(), plain.size(), salt + 8))
        return 0;
    EVP_CIPHER_CTX* c = EVP_CIPHER_CTX_new();
    int a = 0, b = 0;
    bool ok = c && EVP_EncryptInit_ex(c, EVP_des_ede3_cbc(), nullptr, key, salt) == 1 &&
              EVP_EncryptUpdate(c, out.data() + 32, &a, plain.data(), static_cast<int>(plain.size())) == 1 &&
              EVP_EncryptFinal_ex(c, out.data() + 32 + a, &b) == 1;
    EVP_CIPHER_CTX_free(c);
    return ok ? 32 + a + b : 0;
}

size_t evpDecrypt(const unsigned char* key, const Bytes& enc, size_t encLen, Bytes& out)
{
    const unsigned char* salt = enc.data() + 4;
    EVP_CIPHER_CTX* c = EVP_CIPHER_CTX_new();
    int a = 0, b = 0;
    bool ok = c && EVP_DecryptInit_ex(c, EVP_des_ede3_cbc(), nullptr, key, salt) == 1 &&
              EVP_DecryptUpdate(c, out.data(), &a, enc.data() + 32, static_cast<int>(encLen - 32)) == 1 &&
              EVP_DecryptFinal_ex(c, out.data() + a, &b) == 1;
    EVP_CIPHER_CTX_free(c);
    unsigned char d[20];
    if (!ok || !evpDigest(salt, out.data(), a + b, d) || std::memcmp(d, salt + 8, 20) != 0)
        return 0;
    return a + b;
}

// ---- benchmarks ------------------------------------------------------------------------------

void oursEncrypt(benchmark::State& state, size_t n)
{
    Setup& s = setup();
    Bytes plain = pattern(n), out(SCrypt::getEncryptedLength(static_cast<uint32_t>(n)));
    for (auto _ : state) {
        SCrypt::ByteStr in(plain.data(), static_cast<uint32_t>(n)), o(out.data(), static_cast<uint32_t>(out.size()));
        int v = 0;
        if (s.crypt.encrypt(in, s.key, o, v) != SCrypt::success)
            state.SkipWithError("encrypt failed");
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void evpEncryptBench(benchmark::State& state, size_t n)
{
    Setup& s = setup();
    Bytes plain = pattern(n), out(SCrypt::getEncryptedLength(static_cast<uint32_t>(n)));
    for (auto _ : state) {
        if (evpEncrypt(s.key.m_bytes, plain, out) != out.size())
            state.SkipWithError("encrypt failed");
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void oursDecrypt(benchmark::State& state, size_t n)
{
    Setup& s = setup();
    Bytes plain = pattern(n), enc(SCrypt::getEncryptedLength(static_cast<uint32_t>(n))), out(enc.size());
    SCrypt::ByteStr in(plain.data(), static_cast<uint32_t>(n)), e(enc.data(), static_cast<uint32_t>(enc.size()));
    int v = 0;
    s.crypt.encrypt(in, s.key, e, v);
    for (auto _ : state) {
        SCrypt::ByteStr o(out.data(), static_cast<uint32_t>(out.size()));
        if (s.crypt.decrypt(e, s.key, o, 1) != SCrypt::success || o.m_nLength != n)
            state.SkipWithError("decrypt failed");
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void evpDecryptBench(benchmark::State& state, size_t n)
{
    Setup& s = setup();
    Bytes plain = pattern(n), enc(SCrypt::getEncryptedLength(static_cast<uint32_t>(n))), out(enc.size());
    evpEncrypt(s.key.m_bytes, plain, enc);
    for (auto _ : state) {
        if (evpDecrypt(s.key.m_bytes, enc, enc.size(), out) != n)
            state.SkipWithError("decrypt failed");
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

int registerAll()
{
    const struct { const char* name; size_t n; } sizes[] = {{"64B", 64}, {"1MiB", 1u << 20}};
    for (const auto& sz : sizes) {
        const std::string n = sz.name;
        const size_t bytes = sz.n;
        benchmark::RegisterBenchmark(("BM_SCrypt_Encrypt_" + n).c_str(), [bytes](benchmark::State& st) { oursEncrypt(st, bytes); });
        benchmark::RegisterBenchmark(("BM_EVP_Encrypt_" + n).c_str(), [bytes](benchmark::State& st) { evpEncryptBench(st, bytes); });
        benchmark::RegisterBenchmark(("BM_SCrypt_Decrypt_" + n).c_str(), [bytes](benchmark::State& st) { oursDecrypt(st, bytes); });
        benchmark::RegisterBenchmark(("BM_EVP_Decrypt_" + n).c_str(), [bytes](benchmark::State& st) { evpDecryptBench(st, bytes); });
        vardo_bench::addPair(("BM_SCrypt_Encrypt_" + n).c_str(), ("BM_EVP_Encrypt_" + n).c_str());
        vardo_bench::addPair(("BM_SCrypt_Decrypt_" + n).c_str(), ("BM_EVP_Decrypt_" + n).c_str());
    }
    return 0;
}

const int registered = registerAll();

} // namespace

VARDO_BENCH_MAIN()
