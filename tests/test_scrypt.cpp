// SCrypt: the encrypted-buffer format, checked against itself, against bad input and
// against an outside implementation (the openssl command-line tool), and without its
// crypto provider.
#include "vardo/scrypt.h"
#include "vardo/codesetconverter.h"
#include "vardo/DllWrap.h"

#include "wrapcryptoc.h"

#include "assert_capture.h"
#include "child_process.h"
#include "sfile_test_support.h"
#include "t2io_files.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

typedef std::vector<unsigned char> Bytes;

SWCharString text(const char16_t* s) { return SWCharString(reinterpret_cast<const unsigned short*>(s)); }

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
    EXPECT_EQ(SCrypt::success, crypt.makeKey(text(pass), key));
    return key;
}

class SCryptTest : public ::testing::Test {
protected:
    SCrypt m_crypt;
    SCrypt::Key m_key = keyFrom(m_crypt, u"correct horse battery staple");
};

// ---- round trips ------------------------------------------------------------------------------

TEST_F(SCryptTest, RoundTripsEveryFormAndSize)
{
    ASSERT_TRUE(m_crypt.isInitialized()) << "the WrapCryptoC provider did not load";
    for (size_t n : {0u, 1u, 7u, 8u, 9u, 15u, 16u, 17u, 1000u, 65536u}) {
        Bytes plain = pattern(n, static_cast<unsigned>(n));
        SSimpleBuffer enc;
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(plain), m_key, enc)) << n;
        EXPECT_EQ(32u + (n / 8 + 1) * 8, enc.size());
        EXPECT_EQ(SCrypt::getEncryptedLength(static_cast<uint32_t>(n)), enc.size());
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

        // SByteArray form.
        SByteArray a(plain.begin(), plain.end()), ea, da;
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(a, m_key, ea));
        ASSERT_EQ(SCrypt::success, m_crypt.decrypt(ea, m_key, da));
        EXPECT_TRUE(a == da);
    }
}

TEST_F(SCryptTest, TextFormsCarryUtf16)
{
    // Latin, CJK, a pair (U+1F600), a lone surrogate and an embedded "?" all survive.
    const SWCharString samples[] = {text(u""), text(u"plain ASCII"), text(u"Gr\u00fc\u00dfe \u65e5\u672c \U0001F600 ?"),
                                    SWCharString(static_cast<unsigned short>(0xD800))};
    for (const SWCharString& s : samples) {
        SWCharString enc, back, back2;
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(s, m_key, enc));
        // The text form is upper-case hexadecimal of the encrypted bytes.
        SSimpleBuffer bin;
        ASSERT_TRUE(SCrypt::toBinary(enc, bin));
        EXPECT_EQ(enc, SCrypt::toText(SCrypt::toByteStr(bin)));
        ASSERT_EQ(SCrypt::success, m_crypt.decrypt(enc, m_key, back));
        EXPECT_EQ(s, back);
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(s, m_key, bin));
        ASSERT_EQ(SCrypt::success, m_crypt.decrypt(bin, m_key, back2));
        EXPECT_EQ(s, back2);
    }
    SWCharString out = text(u"left alone?");
    EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.decrypt(text(u"XYZ"), m_key, out));
    EXPECT_TRUE(out.isEmpty());
    EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.decrypt(text(u"0A0"), m_key, out));
}

TEST_F(SCryptTest, FreshInitialisationVectorEachTime)
{
    SSimpleBuffer a, b;
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(pattern(100)), m_key, a));
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(pattern(100)), m_key, b));
    EXPECT_NE(0, std::memcmp(a.data() + 4, b.data() + 4, 8));
}

TEST_F(SCryptTest, VersionZeroBufferReadAsAnotherVersionIsMalformed)
{
    SSimpleBuffer enc;
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(pattern(33)), m_key, enc));
    Bytes v0(enc.data() + 4, enc.data() + enc.size());
    EXPECT_EQ(0, SCrypt::getHeaderVersion(v0.data(), static_cast<uint32_t>(v0.size())));
    Bytes room(v0.size());
    SCrypt::ByteStr out(room.data(), static_cast<uint32_t>(room.size()));
    for (int version : {1, 2})
        EXPECT_EQ(SCrypt::invalidBuffer,
                  m_crypt.decrypt(SCrypt::ByteStr(v0.data(), static_cast<uint32_t>(v0.size())), m_key, out, version));
}

TEST_F(SCryptTest, VersionZeroTextIsEightBit)
{
    SSimpleBuffer bytes("caf\xe9\0tail", 9);
    EXPECT_EQ(text(u"caf\u00e9"), SCrypt::fromSSimpleBuffer(bytes, 0));
    SSimpleBuffer utf8("caf\xc3\xa9", 5);
    EXPECT_EQ(text(u"caf\u00e9"), SCrypt::fromSSimpleBuffer(utf8, 1));
    vardo_test::AssertCapture capture;
    EXPECT_EQ(text(u"caf\u00e9"), SCrypt::fromSSimpleBuffer(utf8, 3));
    ASSERT_EQ(1u, capture.seen().size());
    EXPECT_EQ("version == 1", capture.seen()[0]);
}

// ---- bad keys and bad buffers --------------------------------------------------------------------

TEST_F(SCryptTest, BlankKeyAndWrongKey)
{
    SCrypt::Key blank;
    SSimpleBuffer enc, out;
    EXPECT_EQ(SCrypt::blankKey, m_crypt.encrypt(toBuffer(pattern(10)), blank, enc));
    EXPECT_TRUE(enc.isEmpty());
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(pattern(10)), m_key, enc));
    EXPECT_EQ(SCrypt::blankKey, m_crypt.decrypt(enc, blank, out));
    SWCharString t;
    EXPECT_EQ(SCrypt::blankKey, m_crypt.encrypt(text(u"x"), blank, t));

    SCrypt::Key other = keyFrom(m_crypt, u"correct horse battery stapler");
    EXPECT_EQ(SCrypt::digestMismatch, m_crypt.decrypt(enc, other, out));
    EXPECT_TRUE(out.isEmpty());
}

TEST_F(SCryptTest, EveryChangedByteIsDetected)
{
    Bytes plain = pattern(40);
    SSimpleBuffer enc;
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(plain), m_key, enc));
    Bytes good = toBytes(enc);
    for (size_t i = 0; i < good.size(); ++i) {
        for (unsigned char flip : {0x01, 0x80, 0xFF}) {
            Bytes bad = good;
            bad[i] ^= flip;
            SSimpleBuffer out;
            SCrypt::Status st = m_crypt.decrypt(toBuffer(bad), m_key, out);
            if (i < 4)
                EXPECT_EQ(SCrypt::invalidBuffer, st) << "marker byte " << i;
            else
                EXPECT_EQ(SCrypt::digestMismatch, st) << "byte " << i;  // IV, digest, ciphertext
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
    // Too little room for the plaintext.
    SSimpleBuffer enc;
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(pattern(16)), m_key, enc));
    Bytes room(23);
    SCrypt::ByteStr p(room.data(), 23);
    EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.decrypt(SCrypt::toByteStr(enc), m_key, p));
    SCrypt::ByteStr none;
    EXPECT_EQ(SCrypt::invalidBuffer, m_crypt.decrypt(none, m_key, p));
}

// ---- keys, digests, conversions, the exception -------------------------------------------------------

TEST_F(SCryptTest, KeysAndDigests)
{
    // SHA-1("abc") = a9993e36 4706816a ba3e2571 7850c26c 9cd0d89d, then four zero bytes.
    SCrypt::Key k = keyFrom(m_crypt, u"abc");
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d00000000", hex(k.m_bytes, 24));
    // The pass phrase counts as UTF-8: SHA-1 of C3 A9.
    unsigned char space[24];
    SCrypt::ByteStr s(space, 24);
    ASSERT_EQ(SCrypt::success, m_crypt.makeKey(text(u"\u00e9"), s));
    EXPECT_EQ("bf15be717ac1b080b4f1c456692825891ff5073d00000000", hex(space, 24));
    SCrypt::ByteStr small(space, 23);
    EXPECT_EQ(SCrypt::keySpaceTooSmall, m_crypt.makeKey(text(u"abc"), small));

    // makeDigest(data, salt) = SHA-1(salt || data).
    unsigned char d[20];
    const unsigned char salt[8] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    ASSERT_EQ(SCrypt::success, m_crypt.makeDigest(reinterpret_cast<const unsigned char*>("ij"), 2, salt, d));
    // SHA-1("abcdefghij")
    EXPECT_EQ("d68c19a0a345b7eab78d5e11e991c026ec60db63", hex(d, 20));

    SCrypt::Key r1, r2;
    ASSERT_EQ(SCrypt::success, m_crypt.randomKey(r1));
    ASSERT_EQ(SCrypt::success, m_crypt.randomKey(r2));
    EXPECT_NE(0, std::memcmp(r1.m_bytes, r2.m_bytes, 24));
    r1.clear();
    EXPECT_TRUE(r1.isBlank());
}

TEST_F(SCryptTest, ConversionsAndAssertions)
{
    const unsigned char raw[] = {0x00, 0x7f, 0xa5, 0xff};
    SCrypt::ByteStr bs(const_cast<unsigned char*>(raw), 4);
    EXPECT_EQ(text(u"007FA5FF"), SCrypt::toText(bs));
    SSimpleBuffer back;
    ASSERT_TRUE(SCrypt::toBinary(text(u"007fA5Ff"), back));
    EXPECT_EQ(Bytes(raw, raw + 4), toBytes(back));
    EXPECT_FALSE(SCrypt::toBinary(text(u"0g"), back));
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
        EXPECT_EQ(s, e.GetErrorCode());
        SWCharString expected;
        expected.concatFromAscii(texts[s], static_cast<unsigned int>(std::strlen(texts[s])));
        EXPECT_EQ(expected, e.toString());
        std::string tail = ":status " + std::to_string(s);
        expected.concatFromAscii(tail.c_str(), static_cast<unsigned int>(tail.size()));
        EXPECT_EQ(expected, static_cast<const SException&>(e).summary());
    }
}

TEST_F(SCryptTest, ManyThreadsAtOnce)
{
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            SCrypt crypt;
            for (int i = 0; i < 50; ++i) {
                Bytes plain = pattern(static_cast<size_t>(i * 13), static_cast<unsigned>(t * 100 + i));
                SSimpleBuffer enc, back;
                failures += crypt.encrypt(toBuffer(plain), m_key, enc) != SCrypt::success ||
                            crypt.decrypt(enc, m_key, back) != SCrypt::success || toBytes(back) != plain;
            }
        });
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(0, failures.load());
}

// ---- an outside implementation: the openssl command-line tool ------------------------------------------

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
    Bytes toolBuffer(const Bytes& plain, const Bytes& iv, const char* options = "")
    {
        write("plain", plain);
        EXPECT_EQ(0, run(std::string("openssl enc -des-ede3-cbc ") + options + " -K " + hex(m_key.m_bytes, 24) +
                         " -iv " + hex(iv.data(), 8) + " -in " + path("plain") + " -out " + path("cipher")));
        Bytes b = {0, 0, 0, 1}, d = toolDigest(iv.data(), plain), c = read("cipher");
        EXPECT_EQ(20u, d.size());
        b.insert(b.end(), iv.begin(), iv.end());
        b.insert(b.end(), d.begin(), d.end());
        b.insert(b.end(), c.begin(), c.end());
        return b;
    }

    void checkOurs(const Bytes& plain)
    {
        SSimpleBuffer enc;
        ASSERT_EQ(SCrypt::success, m_crypt.encrypt(toBuffer(plain), m_key, enc));
        Bytes e = toBytes(enc);
        ASSERT_EQ(32u + (plain.size() / 8 + 1) * 8, e.size());
        EXPECT_EQ(Bytes({0, 0, 0, 1}), Bytes(e.begin(), e.begin() + 4));
        EXPECT_TRUE(plain == toolDecrypt(e)) << plain.size() << " bytes";
        EXPECT_EQ(Bytes(e.begin() + 12, e.begin() + 32), toolDigest(e.data() + 4, plain));
    }

    // Version 1, and version 0 (the same without its marker), decrypted by us.
    void checkTheirs(const Bytes& plain)
    {
        Bytes v1 = toolBuffer(plain, pattern(8, static_cast<unsigned>(plain.size() + 99)));
        Bytes v0(v1.begin() + 4, v1.end());
        for (const Bytes* b : {&v1, &v0}) {
            SSimpleBuffer out;
            int version = -1;
            ASSERT_EQ(SCrypt::success, m_crypt.decrypt(toBuffer(*b), m_key, out, &version)) << plain.size();
            EXPECT_EQ(b == &v1 ? 1 : 0, version);
            EXPECT_TRUE(plain == toBytes(out)) << plain.size() << " bytes";
        }
    }

    vardo_test::TempDir m_tmp{"vardo_scrypt_"};
};

TEST_F(OpensslTool, ToolDecryptsOurBuffers)
{
    for (size_t n : {0u, 1u, 8u, 13u, 4096u, 10u << 20})
        checkOurs(pattern(n, static_cast<unsigned>(n) + 5));
    // UTF-16 text through the text overload: the tool sees its UTF-8 bytes.
    SWCharString enc;
    ASSERT_EQ(SCrypt::success, m_crypt.encrypt(text(u"Stra\u00dfe \u6771\u4eac \U0001F600"), m_key, enc));
    SSimpleBuffer bin;
    ASSERT_TRUE(SCrypt::toBinary(enc, bin));
    const char utf8[] = "Stra\xc3\x9f" "e \xe6\x9d\xb1\xe4\xba\xac \xf0\x9f\x98\x80";
    EXPECT_EQ(Bytes(utf8, utf8 + sizeof(utf8) - 1), toolDecrypt(toBytes(bin)));
}

TEST_F(OpensslTool, WeDecryptTheToolsBuffers)
{
    for (size_t n : {0u, 1u, 8u, 13u, 4096u, 10u << 20})
        checkTheirs(pattern(n, static_cast<unsigned>(n) + 17));
    // Text: UTF-8 bytes encrypted by the tool come back as the UTF-16 text.
    const char utf8[] = "Gr\xc3\xbc\xc3\x9f" "e \xf0\x9f\x98\x80";
    Bytes b = toolBuffer(Bytes(utf8, utf8 + sizeof(utf8) - 1), pattern(8, 3));
    SWCharString out;
    ASSERT_EQ(SCrypt::success, m_crypt.decrypt(SCrypt::toText(SCrypt::ByteStr(b.data(), static_cast<uint32_t>(b.size()))),
                                                m_key, out));
    EXPECT_EQ(text(u"Gr\u00fc\u00dfe \U0001F600"), out);
}

TEST_F(OpensslTool, BadPaddingIsNeverSuccess)
{
    // Two blocks without padding, the last ending in 00 (not a valid pad): the final step
    // refuses it (error 524); a buffer whose padding was damaged never counts as intact,
    // even when the digest covers exactly the blocks before it.
    Bytes plain = pattern(16, 4);
    plain[15] = 0;
    Bytes iv(8, 0x42);
    Bytes b = toolBuffer(plain, iv, "-nopad");
    SSimpleBuffer out;
    EXPECT_EQ(SCrypt::digestMismatch, m_crypt.decrypt(toBuffer(b), m_key, out));
    EXPECT_TRUE(out.isEmpty());
    Bytes d = toolDigest(iv.data(), Bytes(plain.begin(), plain.begin() + 8));
    std::copy(d.begin(), d.end(), b.begin() + 12);
    EXPECT_EQ(SCrypt::digestMismatch, m_crypt.decrypt(toBuffer(b), m_key, out));
    EXPECT_TRUE(out.isEmpty());
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
    Bytes e = read("enc");
    ASSERT_EQ(SCrypt::getEncryptedLength(5000), e.size());
    // The key is SHA-1 of the first line, so the library decrypts it too.
    SSimpleBuffer back;
    ASSERT_EQ(SCrypt::success, m_crypt.decrypt(toBuffer(e), keyFrom(m_crypt, u"secret"), back));
    EXPECT_TRUE(plain == toBytes(back));
    ASSERT_EQ(0, run("printf 'secret\\n' | " + tool + " crypt decrypt " + path("enc") + " " + path("out")));
    EXPECT_TRUE(plain == read("out"));
    // A wrong pass phrase: exit 1, the status text on stderr, no output file.
    int rc = run("echo wrong | " + tool + " crypt decrypt " + path("enc") + " " + path("out2"));
    EXPECT_NE(0, rc);
    Bytes log = read("tool.log");
    std::string msg(log.begin(), log.end());
    EXPECT_EQ("vardo crypt: Checksum does not match after decryption(buffer modified or wrong key used).\n", msg);
    EXPECT_FALSE(fs::exists(path("out2")));
    // A pass phrase on the command line is not accepted.
    EXPECT_NE(0, run(tool + " crypt encrypt " + path("in") + " " + path("enc") + " secret </dev/null"));
#endif
}

// ---- the provider's own interface ------------------------------------------------------------------------

TEST(WrapCryptoC, CryptoCConventions)
{
    CSharedLibrary lib;
    SWCharString path;
    const std::string file = VARDO_TEST_PROVIDER;
    path.concatFromAscii(file.c_str(), static_cast<unsigned int>(file.size()));
    ASSERT_NO_THROW(lib.load(path));
    B_CreateAlgorithmObject_t createAlg;
    B_DestroyAlgorithmObject_t destroyAlg;
    B_SetAlgorithmInfo_t setAlg;
    B_CreateKeyObject_t createKey;
    B_SetKeyInfo_t setKey;
    B_DestroyKeyObject_t destroyKey;
    B_CipherInit_t encInit, decInit;
    B_CipherUpdate_t encUpdate, decUpdate;
    B_CipherFinal_t encFinal, decFinal;
    ASSERT_TRUE(lib.resolve("B_CreateAlgorithmObject", createAlg) && lib.resolve("B_DestroyAlgorithmObject", destroyAlg) &&
                lib.resolve("B_SetAlgorithmInfo", setAlg) && lib.resolve("B_CreateKeyObject", createKey) &&
                lib.resolve("B_SetKeyInfo", setKey) && lib.resolve("B_DestroyKeyObject", destroyKey) &&
                lib.resolve("B_EncryptInit", encInit) && lib.resolve("B_EncryptUpdate", encUpdate) &&
                lib.resolve("B_EncryptFinal", encFinal) && lib.resolve("B_DecryptInit", decInit) &&
                lib.resolve("B_DecryptUpdate", decUpdate) && lib.resolve("B_DecryptFinal", decFinal));
    B_INFO_TYPE ai = static_cast<B_INFO_TYPE>(lib.getProcAddress("AI_DES_EDE3_CBCPadIV8"));
    B_INFO_TYPE ki = static_cast<B_INFO_TYPE>(lib.getProcAddress("KI_DES24Strong"));
    const B_ALGORITHM_METHOD* amEnc = static_cast<const B_ALGORITHM_METHOD*>(lib.getProcAddress("AM_DES_EDE3_CBC_ENCRYPT"));
    const B_ALGORITHM_METHOD* amDec = static_cast<const B_ALGORITHM_METHOD*>(lib.getProcAddress("AM_DES_EDE3_CBC_DECRYPT"));
    const B_ALGORITHM_METHOD* encChooser[] = {amEnc, nullptr};
    const B_ALGORITHM_METHOD* decChooser[] = {amDec, nullptr};

    unsigned char keyBytes[24], iv[8];
    for (int i = 0; i < 24; ++i)
        keyBytes[i] = static_cast<unsigned char>(i * 11 + 1);
    std::memset(iv, 0x5c, 8);
    B_KEY_OBJ key = nullptr;
    ASSERT_EQ(0, createKey(&key));
    ASSERT_EQ(0, setKey(key, ki, keyBytes));
    EXPECT_EQ(BE_KEY_ALREADY_SET, setKey(key, ki, keyBytes));

    // One call, then the same plaintext fed in pieces of every size from 1 to 20: the
    // ciphertext is the same, and decrypting in pieces gives the plaintext back.
    Bytes plain = pattern(101, 3);
    auto run = [&](bool encrypt, const Bytes& in, size_t piece, Bytes& out) {
        B_ALGORITHM_OBJ alg = nullptr;
        EXPECT_EQ(0, createAlg(&alg));
        EXPECT_EQ(0, setAlg(alg, ai, iv));
        EXPECT_EQ(BE_METHOD_NOT_IN_CHOOSER, (encrypt ? encInit : decInit)(alg, key, encrypt ? decChooser : encChooser, nullptr));
        EXPECT_EQ(0, (encrypt ? encInit : decInit)(alg, key, encrypt ? encChooser : decChooser, nullptr));
        out.assign(in.size() + 16, 0);
        unsigned int total = 0, n = 0;
        for (size_t at = 0; at < in.size(); at += piece) {
            unsigned int len = static_cast<unsigned int>(std::min(piece, in.size() - at));
            int rc = (encrypt ? encUpdate : decUpdate)(alg, out.data() + total, &n,
                                                       static_cast<unsigned int>(out.size() - total), in.data() + at, len,
                                                       nullptr, nullptr);
            EXPECT_EQ(0, rc);
            total += n;
        }
        int rc = (encrypt ? encFinal : decFinal)(alg, out.data() + total, &n,
                                                 static_cast<unsigned int>(out.size() - total), nullptr, nullptr);
        total += rc == 0 ? n : 0;
        out.resize(total);
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
    // A damaged last block: the final step refuses the padding with 524.
    Bytes bad = whole;
    bad[bad.size() - 1] ^= 0x55;
    EXPECT_EQ(524, run(false, bad, bad.size(), back));

    // Too little output room is refused, not overrun.
    B_ALGORITHM_OBJ alg = nullptr;
    ASSERT_EQ(0, createAlg(&alg));
    ASSERT_EQ(0, setAlg(alg, ai, iv));
    ASSERT_EQ(0, encInit(alg, key, encChooser, nullptr));
    unsigned char small[8];
    unsigned int n = 0;
    EXPECT_EQ(BE_OUTPUT_LEN, encUpdate(alg, small, &n, 8, plain.data(), 16, nullptr, nullptr));
    destroyAlg(&alg);
    destroyKey(&key);
    destroyKey(&key);  // a null handle is ignored
}

// ---- without the provider ---------------------------------------------------------------------------------

// Runs as a child process while the provider file is renamed away.
TEST(SCryptNoProviderChild, EveryOperationFails)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    vardo_test::AssertCapture capture;
    SCrypt crypt;
    EXPECT_FALSE(crypt.isInitialized());
    EXPECT_FALSE(crypt.Init());
    SCrypt::Key key;
    key.m_bytes[0] = 1;
    EXPECT_EQ(SCrypt::notInitialized, crypt.makeKey(text(u"pass"), key));
    EXPECT_EQ(SCrypt::notInitialized, crypt.randomKey(key));
    unsigned char d[20], salt[8] = {};
    EXPECT_EQ(SCrypt::notInitialized, crypt.makeDigest(salt, 8, salt, d));
    SSimpleBuffer enc, out;
    EXPECT_EQ(SCrypt::notInitialized, crypt.encrypt(toBuffer(pattern(10)), key, enc));
    Bytes b(48, 0);
    b[3] = 1;
    EXPECT_EQ(SCrypt::notInitialized, crypt.decrypt(toBuffer(b), key, out));
    SWCharString t;
    EXPECT_EQ(SCrypt::notInitialized, crypt.encrypt(text(u"x"), key, t));
    EXPECT_EQ(SCrypt::notInitialized, crypt.decrypt(text(u"00"), key, t));
    const std::vector<std::string>& seen = capture.seen();
    EXPECT_NE(seen.end(), std::find(seen.begin(), seen.end(), "m_bCryptoCLibInitialized == true"));
    EXPECT_NE(seen.end(), std::find(seen.begin(), seen.end(), "Crypto not initialized"));
}

TEST(SCryptNoProvider, EveryOperationReturnsStatusOne)
{
    fs::path provider = VARDO_TEST_PROVIDER;
    fs::path away = provider;
    away += ".away";
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
