// SCrypt: the encrypted-buffer format, checked against itself, against bad input and
// against an outside implementation (the openssl command-line tool), and without its
// crypto provider.
#include "vardo/scrypt.h"
#include "vardo/DllWrap.h"

#include "wrapcryptoc.h"

#include "assert_capture.h"
#include "child_process.h"
#include "sfile_test_support.h"
#include "t2io_files.h"
#include "text.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

typedef std::vector<unsigned char> Bytes;

using vardo_test::W;

Bytes pattern(size_t n, unsigned seed = 1)
{
    Bytes b(n);
    std::mt19937 gen(seed);
    for (auto& c : b)
        c = static_cast<unsigned char>(gen());
    return b;
}

Bytes toBytes(const SSimpleBuffer& b) { return Bytes(b.data(), b.data() + b.size()); }
SSimpleBuffer toBuffer(const Bytes& b) { return SSimpleBuffer(b.data(), b.size()); }

std::string hex(const unsigned char* p, size_t n)
{
    static const char d[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += d[p[i] >> 4];
        s += d[p[i] & 15];
    }
    return s;
}

SCrypt::Key keyFrom(const SCrypt& crypt, const char16_t* pass)
{
    SCrypt::Key key;
    EXPECT_EQ(SCrypt::success, crypt.makeKey(W(pass), key));
    return key;
}

class SCryptTest : public ::testing::Test {
protected:
    SCrypt m_crypt;
    SCrypt::Key m_key = keyFrom(m_crypt, u"correct horse battery staple");
};

TEST_F(SCryptTest, RoundTripsEveryFormAndSize)
{
    for (size_t n : {0u, 1u, 7u, 8u, 9u, 1000u, 65536u}) {
        Bytes plain = pattern(n, static_cast<unsigned>(n));
        SSimpleBuffer enc;
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(plain), m_key, enc)) << n;
        EXPECT_EQ(32u + (n / 8 + 1) * 8, enc.size());
        SSimpleBuffer back;
        int version = -1;
        ASSERT_EQ(SCrypt::success, m_crypt.decrypt(enc, m_key, back, &version)) << n;
        EXPECT_EQ(1, version);
        EXPECT_EQ(plain, toBytes(back)) << n;

        // The caller-space form: exact space works, one byte less is refused.
        Bytes out(SCrypt::getEncryptedLength(static_cast<uint32_t>(n)));
        SCrypt::ByteStr in(plain.data(), static_cast<uint32_t>(n));
        SCrypt::ByteStr space(out.data(), static_cast<uint32_t>(out.size() - 1));
        int v = 0;
        EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.encrypt(in, m_key, space, v));
        space.m_nLength = static_cast<uint32_t>(out.size());
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(in, m_key, space, v));
        Bytes room(out.size() - 32);
        SCrypt::ByteStr p(room.data(), static_cast<uint32_t>(room.size()));
        ASSERT_EQ(SCrypt::success, m_crypt.decrypt(SCrypt::ByteStr(out.data(), space.m_nLength), m_key, p));
        EXPECT_EQ(plain, Bytes(room.begin(), room.begin() + p.m_nLength));

        // SByteArray form; the same plaintext again gets a fresh initialisation vector.
        SByteArray a(plain.begin(), plain.end()), ea, da;
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(a, m_key, ea));
        EXPECT_NE(0, std::memcmp(ea.data() + 4, enc.data() + 4, 8));
        ASSERT_EQ(SCrypt::success, m_crypt.decrypt(ea, m_key, da));
        EXPECT_TRUE(a == da);
    }
}

TEST_F(SCryptTest, TextFormsCarryUtf16)
{
    // Latin, CJK, a pair (U+1F600), a lone surrogate and an embedded "?" all survive.
    const SWCharString samples[] = {W(u""), W(u"plain ASCII"), W(u"Gr\u00fc\u00dfe \u65e5\u672c \U0001F600 ?"),
                                    SWCharString(static_cast<unsigned short>(0xD800))};
    for (const SWCharString& s : samples) {
        SWCharString enc, back;
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(s, m_key, enc));
        ASSERT_EQ(SCrypt::success, m_crypt.decrypt(enc, m_key, back));
        EXPECT_EQ(s, back);
    }
    SWCharString out = W(u"left alone?");
    EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.decrypt(W(u"XYZ"), m_key, out));
    EXPECT_TRUE(out.isEmpty());

    // What is encrypted is the text's UTF-8 form, without a terminator.
    SSimpleBuffer enc, bytes;
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(samples[2], m_key, enc));
    ASSERT_EQ(SCrypt::success, m_crypt.decrypt(enc, m_key, bytes));
    const char utf8[] = "Gr\xc3\xbc\xc3\x9f" "e \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80 ?";
    EXPECT_EQ(Bytes(utf8, utf8 + sizeof(utf8) - 1), toBytes(bytes));

    // Back to text: version 0 held 8-bit text up to the first zero byte; later ones are UTF-8.
    EXPECT_EQ(W(u"caf\u00e9"), SCrypt::fromSSimpleBuffer(SSimpleBuffer("caf\xe9\0tail", 9), 0));
    SSimpleBuffer utf8Text("caf\xc3\xa9", 5);
    EXPECT_EQ(W(u"caf\u00e9"), SCrypt::fromSSimpleBuffer(utf8Text, 1));
    vardo_test::AssertCapture capture;
    EXPECT_EQ(W(u"caf\u00e9"), SCrypt::fromSSimpleBuffer(utf8Text, 3));
    EXPECT_EQ(std::vector<std::string>{"version == 1"}, capture.seen());
}

// A blank key is refused both ways; a wrong key and any changed byte show as a digest mismatch
// (40 bytes end on a block boundary: a change in the padding-only block must still fail).
TEST_F(SCryptTest, BlankKeyWrongKeyAndChangedBytes)
{
    SCrypt::Key blank;
    SSimpleBuffer enc, out;
    EXPECT_EQ(SCrypt::blankKey, m_crypt.encrypt(toBuffer(pattern(10)), blank, enc));
    EXPECT_TRUE(enc.isEmpty());
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(pattern(40)), m_key, enc));
    EXPECT_EQ(SCrypt::blankKey, m_crypt.decrypt(enc, blank, out));
    EXPECT_EQ(SCrypt::digestMismatch, m_crypt.decrypt(enc, keyFrom(m_crypt, u"correct horse battery stapler"), out));
    EXPECT_TRUE(out.isEmpty());

    const Bytes good = toBytes(enc);
    for (size_t i = 0; i < good.size(); ++i) {
        for (unsigned char flip : {0x01, 0x80, 0xFF}) {
            Bytes bad = good;
            bad[i] ^= flip;
            // The marker, then the IV, digest and ciphertext.
            const SCrypt::Status expected = i < 4 ? SCrypt::invalidBuffer : SCrypt::digestMismatch;
            EXPECT_EQ(expected, m_crypt.decrypt(toBuffer(bad), m_key, out)) << "byte " << i;
            EXPECT_TRUE(out.isEmpty());
        }
    }
}

TEST_F(SCryptTest, MalformedBuffersAreRefused)
{
    SSimpleBuffer out;
    for (size_t n : {0u, 1u, 27u, 28u, 31u, 32u, 35u, 39u, 41u, 43u}) {
        Bytes b(n, 0);
        if (n >= 4)
            b[3] = 1;
        EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.decrypt(toBuffer(b), m_key, out)) << n;
    }
    // Too little room for the plaintext (24 bytes of ciphertext), and no buffer at all.
    SSimpleBuffer enc;
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(pattern(16)), m_key, enc));
    Bytes room(24), v0(enc.data() + 4, enc.data() + enc.size());
    SCrypt::ByteStr p(room.data(), 23), none;
    EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.decrypt(SCrypt::toByteStr(enc), m_key, p));
    EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.decrypt(none, m_key, p));
    // The same buffer without its marker is version 0: it decrypts, but not as an unknown version.
    p.m_nLength = 24;
    const SCrypt::ByteStr in0(v0.data(), static_cast<uint32_t>(v0.size()));
    EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.decrypt(in0, m_key, p, 2));
    int version = -1;
    EXPECT_EQ(SCrypt::success, m_crypt.decrypt(toBuffer(v0), m_key, enc, &version));
    EXPECT_EQ(0, version);
}

TEST_F(SCryptTest, KeysAndDigests)
{
    // SHA-1("abc") = a9993e36 4706816a ba3e2571 7850c26c 9cd0d89d, then four zero bytes.
    SCrypt::Key k = keyFrom(m_crypt, u"abc");
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d00000000", hex(k.m_bytes, 24));
    // The pass phrase counts as UTF-8: SHA-1 of C3 A9.
    unsigned char space[24];
    SCrypt::ByteStr s(space, 24);
    ASSERT_EQ(SCrypt::success, m_crypt.makeKey(W(u"\u00e9"), s));
    EXPECT_EQ("bf15be717ac1b080b4f1c456692825891ff5073d00000000", hex(space, 24));
    SCrypt::ByteStr small(space, 23);
    EXPECT_EQ(SCrypt::keySpaceTooSmall, m_crypt.makeKey(W(u"abc"), small));

    // makeDigest(data, salt) = SHA-1(salt || data), here SHA-1("abcdefghij").
    unsigned char d[20];
    const unsigned char salt[8] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    ASSERT_EQ(SCrypt::success, m_crypt.makeDigest(reinterpret_cast<const unsigned char*>("ij"), 2, salt, d));
    EXPECT_EQ("d68c19a0a345b7eab78d5e11e991c026ec60db63", hex(d, 20));

    SCrypt::Key r1, r2;
    ASSERT_EQ(SCrypt::success, m_crypt.randomKey(r1));
    ASSERT_EQ(SCrypt::success, m_crypt.randomKey(r2));
    EXPECT_NE(0, std::memcmp(r1.m_bytes, r2.m_bytes, 24));
}

TEST_F(SCryptTest, ConversionsAndAssertions)
{
    const unsigned char raw[] = {0x00, 0x7f, 0xa5, 0xff};
    SCrypt::ByteStr bs(const_cast<unsigned char*>(raw), 4);
    EXPECT_EQ(W(u"007FA5FF"), SCrypt::toText(bs));
    SSimpleBuffer back;
    ASSERT_TRUE(SCrypt::toBinary(W(u"007fA5Ff"), back));
    EXPECT_EQ(Bytes(raw, raw + 4), toBytes(back));
    EXPECT_FALSE(SCrypt::toBinary(W(u"0g"), back));
    EXPECT_TRUE(back.isEmpty());

    unsigned short buf[8];
    unsigned int n = 0;
    ASSERT_TRUE(SCrypt::toText(bs, buf, 8, n));
    vardo_test::AssertCapture capture;
    EXPECT_FALSE(SCrypt::toText(bs, buf, 7, n));
    EXPECT_EQ(8u, n);
    // The provider is loaded once; a second load asserts.
    SCrypt again;
    EXPECT_TRUE(again.LoadCryptoC());
    EXPECT_EQ(std::vector<std::string>({"cCharText <= cCharTextMax", "m_bCryptoCLibInitialized == false"}),
              capture.seen());

    EXPECT_EQ(0u, SCrypt::getEncryptedLength(0xFFFFFFF0u));
}

TEST(StrongEncryptionException, TextsByStatus)
{
    const char* texts[] = {"Unknown error.",
                           "Encryption library cannot be initialized correctly.",
                           "The space passed in to make a key is too small.",
                           "Encryption/Decryption key passed in is blank.",
                           "The buffer passed in for encryption/decryption does not look valid.",
                           "Checksum does not match after decryption(buffer modified or wrong key used).",
                           "Unknown error."};
    for (int s = 0; s <= 6; ++s) {
        StrongEncryptionException e(static_cast<SCrypt::Status>(s));
        EXPECT_EQ(texts[s], vardo_test::U(e.toString()));
        const SException& base = e;
        EXPECT_EQ(texts[s] + (":status " + std::to_string(s)), vardo_test::U(base.summary()));
    }
}

class OpensslTool : public SCryptTest {
protected:
    void SetUp() override
    {
        if (vardo_test::onWindows())
            GTEST_SKIP() << "needs the Linux openssl command-line tool; not run under Wine";
        if (run("openssl version") != 0)
            GTEST_SKIP() << "the openssl command-line tool is not installed";
    }
    int run(const std::string& cmd) { return std::system((cmd + " >" + path("tool.log") + " 2>&1").c_str()); }
    std::string path(const char* name) const { return m_tmp.str(name); }
    void write(const char* name, const Bytes& b) { m_tmp.write(name, b); }
    Bytes read(const char* name) { return m_tmp.read<Bytes>(name); }
    // SHA-1 by the tool, of the salt followed by the plaintext.
    Bytes toolDigest(const unsigned char* salt, const Bytes& plain)
    {
        Bytes in(salt, salt + 8);
        in.insert(in.end(), plain.begin(), plain.end());
        write("dgst.in", in);
        EXPECT_EQ(0, run("openssl dgst -sha1 -binary -out " + path("dgst.out") + " " + path("dgst.in")));
        return read("dgst.out");
    }
    // The plaintext of our buffer e as the tool decrypts it.
    Bytes toolDecrypt(const Bytes& e)
    {
        write("cipher", Bytes(e.begin() + 32, e.end()));
        EXPECT_EQ(0, run("openssl enc -d -des-ede3-cbc -K " + hex(m_key.m_bytes, 24) + " -iv " +
                         hex(e.data() + 4, 8) + " -in " + path("cipher") + " -out " + path("plain")));
        return read("plain");
    }
    // A version 1 buffer built from the tool's ciphertext and digest of plain.
    Bytes toolBuffer(const Bytes& plain, const Bytes& iv)
    {
        write("plain", plain);
        EXPECT_EQ(0, run("openssl enc -des-ede3-cbc -K " + hex(m_key.m_bytes, 24) +
                         " -iv " + hex(iv.data(), 8) + " -in " + path("plain") + " -out " + path("cipher")));
        Bytes b = {0, 0, 0, 1}, d = toolDigest(iv.data(), plain), c = read("cipher");
        b.insert(b.end(), iv.begin(), iv.end());
        b.insert(b.end(), d.begin(), d.end());
        b.insert(b.end(), c.begin(), c.end());
        return b;
    }

    vardo_test::TempDir m_tmp{"vardo_scrypt_"};
};

// The tool decrypts our buffers and checks their digests; we decrypt the tool's buffers,
// as version 1 and as version 0 (the same without its marker).
TEST_F(OpensslTool, BuffersInteroperateBothWays)
{
    for (size_t n : {0u, 1u, 8u, 13u, 4096u, 10u << 20}) {
        Bytes plain = pattern(n, static_cast<unsigned>(n) + 5);
        SSimpleBuffer enc;
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(plain), m_key, enc));
        Bytes e = toBytes(enc);
        ASSERT_EQ(32u + (n / 8 + 1) * 8, e.size());
        EXPECT_TRUE(plain == toolDecrypt(e)) << n << " bytes";
        EXPECT_EQ(Bytes(e.begin() + 12, e.begin() + 32), toolDigest(e.data() + 4, plain));

        Bytes v1 = toolBuffer(plain, pattern(8, static_cast<unsigned>(n + 99)));
        Bytes v0(v1.begin() + 4, v1.end());
        for (const Bytes* b : {&v1, &v0}) {
            SSimpleBuffer out;
            int version = -1;
            ASSERT_EQ(SCrypt::success, m_crypt.decrypt(toBuffer(*b), m_key, out, &version)) << n;
            EXPECT_EQ(b == &v1 ? 1 : 0, version);
            EXPECT_TRUE(plain == toBytes(out)) << n << " bytes";
        }
    }
}

TEST_F(OpensslTool, CryptCommandOfTheOperatorTool)
{
#ifndef VARDO_TEST_TOOL
    GTEST_SKIP() << "the vardo tool is not built";
#else
    const std::string tool = VARDO_TEST_TOOL;
    Bytes plain = pattern(5000, 9);
    write("in", plain);
    write("pass", Bytes({'s', 'e', 'c', 'r', 'e', 't', '\n'}));
    // Pass phrase from a file, then from standard input.
    ASSERT_EQ(0, run(tool + " crypt encrypt " + path("in") + " " + path("enc") + " --pass-file " + path("pass")));
    // The key is SHA-1 of the first line, so the library decrypts it too.
    SSimpleBuffer back;
    ASSERT_EQ(SCrypt::success, m_crypt.decrypt(toBuffer(read("enc")), keyFrom(m_crypt, u"secret"), back));
    EXPECT_TRUE(plain == toBytes(back));
    ASSERT_EQ(0, run("printf 'secret\\n' | " + tool + " crypt decrypt " + path("enc") + " " + path("out")));
    EXPECT_TRUE(plain == read("out"));
    // A wrong pass phrase: exit 1, the status text on stderr, no output file.
    EXPECT_NE(0, run("echo wrong | " + tool + " crypt decrypt " + path("enc") + " " + path("out2")));
    EXPECT_EQ("vardo crypt: Checksum does not match after decryption(buffer modified or wrong key used).\n",
              m_tmp.read("tool.log"));
    EXPECT_FALSE(fs::exists(path("out2")));
    // A pass phrase on the command line is not accepted.
    EXPECT_NE(0, run(tool + " crypt encrypt " + path("in") + " " + path("enc") + " secret </dev/null"));
#endif
}

TEST(WrapCryptoC, CryptoCConventions)
{
    CSharedLibrary lib(W(VARDO_TEST_PROVIDER));
    auto entry = [&lib](const char* name) { return lib.getProcAddress(name); };
    auto createAlg = reinterpret_cast<B_CreateAlgorithmObject_t>(entry("B_CreateAlgorithmObject"));
    auto destroyAlg = reinterpret_cast<B_DestroyAlgorithmObject_t>(entry("B_DestroyAlgorithmObject"));
    auto setAlg = reinterpret_cast<B_SetAlgorithmInfo_t>(entry("B_SetAlgorithmInfo"));
    auto createKey = reinterpret_cast<B_CreateKeyObject_t>(entry("B_CreateKeyObject"));
    auto setKey = reinterpret_cast<B_SetKeyInfo_t>(entry("B_SetKeyInfo"));
    auto destroyKey = reinterpret_cast<B_DestroyKeyObject_t>(entry("B_DestroyKeyObject"));
    B_CipherInit_t init[2] = {reinterpret_cast<B_CipherInit_t>(entry("B_DecryptInit")),
                              reinterpret_cast<B_CipherInit_t>(entry("B_EncryptInit"))};
    B_CipherUpdate_t update[2] = {reinterpret_cast<B_CipherUpdate_t>(entry("B_DecryptUpdate")),
                                  reinterpret_cast<B_CipherUpdate_t>(entry("B_EncryptUpdate"))};
    B_CipherFinal_t finish[2] = {reinterpret_cast<B_CipherFinal_t>(entry("B_DecryptFinal")),
                                reinterpret_cast<B_CipherFinal_t>(entry("B_EncryptFinal"))};
    B_INFO_TYPE ai = static_cast<B_INFO_TYPE>(entry("AI_DES_EDE3_CBCPadIV8"));
    B_INFO_TYPE ki = static_cast<B_INFO_TYPE>(entry("KI_DES24Strong"));
    // Choosers by direction: [0] decrypt, [1] encrypt.
    const B_ALGORITHM_METHOD* chooser[2][2] = {
        {static_cast<const B_ALGORITHM_METHOD*>(entry("AM_DES_EDE3_CBC_DECRYPT")), nullptr},
        {static_cast<const B_ALGORITHM_METHOD*>(entry("AM_DES_EDE3_CBC_ENCRYPT")), nullptr}};

    Bytes keyBytes = pattern(24, 5), iv(8, 0x5c);
    B_KEY_OBJ key = nullptr;
    ASSERT_EQ(0, createKey(&key));
    ASSERT_EQ(0, setKey(key, ki, keyBytes.data()));
    EXPECT_EQ(BE_KEY_ALREADY_SET, setKey(key, ki, keyBytes.data()));

    // One call, then the same plaintext fed in pieces of every size from 1 to 20: the
    // ciphertext is the same, and decrypting in pieces gives the plaintext back.
    Bytes plain = pattern(101, 3);
    auto run = [&](bool encrypt, const Bytes& in, size_t piece, Bytes& out) {
        B_ALGORITHM_OBJ alg = nullptr;
        EXPECT_EQ(0, createAlg(&alg));
        EXPECT_EQ(0, setAlg(alg, ai, iv.data()));
        EXPECT_EQ(BE_METHOD_NOT_IN_CHOOSER, init[encrypt](alg, key, chooser[!encrypt], nullptr));
        EXPECT_EQ(0, init[encrypt](alg, key, chooser[encrypt], nullptr));
        out.assign(in.size() + 16, 0);
        unsigned int total = 0, n = 0;
        // Too little output room is refused, not overrun, and changes nothing.
        EXPECT_EQ(BE_OUTPUT_LEN, update[encrypt](alg, out.data(), &n, 8, in.data(), 24, nullptr, nullptr));
        for (size_t at = 0; at < in.size(); at += piece) {
            unsigned int len = static_cast<unsigned int>(std::min(piece, in.size() - at));
            EXPECT_EQ(0, update[encrypt](alg, out.data() + total, &n, static_cast<unsigned int>(out.size() - total),
                                         in.data() + at, len, nullptr, nullptr));
            total += n;
        }
        int rc = finish[encrypt](alg, out.data() + total, &n, static_cast<unsigned int>(out.size() - total), nullptr,
                                nullptr);
        out.resize(total + (rc == 0 ? n : 0));
        destroyAlg(&alg);
        return rc;
    };
    Bytes whole, back;
    ASSERT_EQ(0, run(true, plain, plain.size(), whole));
    EXPECT_EQ(104u, whole.size());
    for (size_t piece = 1; piece <= 20; ++piece) {
        Bytes c;
        ASSERT_EQ(0, run(true, plain, piece, c)) << piece;
        EXPECT_EQ(whole, c) << piece;
        ASSERT_EQ(0, run(false, whole, piece, back)) << piece;
        EXPECT_EQ(plain, back) << piece;
    }
    destroyKey(&key);
    destroyKey(&key);  // a null handle is ignored
}

// Runs as a child process while the provider file is renamed away.
TEST(SCryptNoProviderChild, EveryOperationFails)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    vardo_test::AssertCapture capture;
    SCrypt crypt;
    EXPECT_FALSE(crypt.Init());
    SCrypt::Key key;
    key.m_bytes[0] = 1;
    EXPECT_EQ(SCrypt::notInitialized, crypt.makeKey(W(u"pass"), key));
    EXPECT_EQ(SCrypt::notInitialized, crypt.randomKey(key));
    unsigned char d[20], salt[8] = {};
    EXPECT_EQ(SCrypt::notInitialized, crypt.makeDigest(salt, 8, salt, d));
    SSimpleBuffer enc, out;
    EXPECT_EQ(SCrypt::notInitialized, crypt.encrypt(toBuffer(pattern(10)), key, enc));
    EXPECT_EQ(SCrypt::notInitialized, crypt.decrypt(enc, key, out));  // before any look at the buffer
    EXPECT_EQ(std::vector<std::string>({"m_bCryptoCLibInitialized == true", "Crypto not initialized",
                                        "Crypto not initialized"}),
              capture.seen());
}

TEST(SCryptNoProvider, EveryOperationReturnsStatusOne)
{
    fs::path provider = VARDO_TEST_PROVIDER;
    fs::path away = provider.string() + ".away";
    std::error_code ec;
    // A run that died half-way left the provider renamed: put it back first.
    if (!fs::exists(provider) && fs::exists(away))
        fs::rename(away, provider, ec);
    ASSERT_TRUE(fs::exists(provider)) << provider;
    fs::rename(provider, away, ec);
    ASSERT_FALSE(ec) << ec.message();
    struct Restore {
        fs::path from, to;
        ~Restore() { std::error_code e; fs::rename(from, to, e); }
    } restore{away, provider};
    auto child = vardo_test::spawnSelf("SCryptNoProviderChild.EveryOperationFails", {});
    EXPECT_EQ(0, vardo_test::wait(child));
}

} // namespace
