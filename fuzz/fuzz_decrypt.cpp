// SCrypt::decrypt with a fixed key over arbitrary buffers and over valid buffers with
// arbitrary edits. Checks: no crash and no read outside the buffer (each is copied to a
// block of its exact size); an edited buffer never decrypts (status 4 for a malformed
// header or length, 5 for a digest mismatch or damaged padding); an unedited one
// decrypts to its plaintext; a failed decryption leaves no output; an arbitrary buffer
// that does decrypt (a seed is a real buffer) has a digest that holds.
//
// Input: byte 0 chooses the mode. Even: the rest is decrypted as it is (as bytes and,
// as hexadecimal text, through the text form). Odd: byte 1 picks one of the valid
// buffers made at start-up (plaintexts of 0 to 40 bytes, versions 1 and 0); the rest are
// edits of 3 bytes each: operation, position, value (xor, set, truncate, append).
#include "fuzz_check.h"
#include "vardo/scrypt.h"

#include <cstdint>
#include <cstring>
#include <vector>

using namespace Vardo400;

namespace {

typedef std::vector<unsigned char> Bytes;

struct Valid {
    Bytes plain;
    Bytes encrypted;
};

struct Fixture {
    SCrypt crypt;
    SCrypt::Key key;
    std::vector<Valid> valid;

    Fixture()
    {
        const unsigned short pass[] = {'f', 'u', 'z', 'z', ' ', 'k', 'e', 'y', 0};
        FUZZ_CHECK(crypt.isInitialized());
        FUZZ_CHECK(crypt.makeKey(SWCharString(pass), key) == SCrypt::success);
        for (unsigned n = 0; n <= 40; ++n) {
            Valid v;
            for (unsigned i = 0; i < n; ++i)
                v.plain.push_back(static_cast<unsigned char>(i * 37 + n));
            SSimpleBuffer enc;
            FUZZ_CHECK(crypt.encrypt(SSimpleBuffer(v.plain.data(), v.plain.size()), key, enc) == SCrypt::success);
            v.encrypted.assign(enc.data(), enc.data() + enc.size());
            valid.push_back(v);
            // The same buffer as version 0: without its marker.
            v.encrypted.erase(v.encrypted.begin(), v.encrypted.begin() + 4);
            valid.push_back(v);
        }
    }
};

Fixture& fixture()
{
    static Fixture* f = new Fixture();
    return *f;
}

// Decrypts bytes held in a block of exactly their size.
SCrypt::Status decrypt(const Bytes& b, SSimpleBuffer& out)
{
    SSimpleBuffer exact(b.data(), b.size());
    return fixture().crypt.decrypt(exact, fixture().key, out);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    Fixture& f = fixture();
    if (data[0] % 2 == 0) {
        Bytes b(data + 1, data + size);
        SSimpleBuffer out;
        SCrypt::Status st = decrypt(b, out);
        if (st == SCrypt::success) {
            // Only a real buffer (such as a seed) decrypts: its digest must hold.
            int v = SCrypt::getHeaderVersion(b.data(), static_cast<uint32_t>(b.size()));
            FUZZ_CHECK(v == 0 || v == 1);
            const unsigned char* salt = b.data() + (v == 1 ? 4 : 0);
            unsigned char d[20];
            FUZZ_CHECK(f.crypt.makeDigest(out.data(), static_cast<uint32_t>(out.size()), salt, d) == SCrypt::success);
            FUZZ_CHECK(std::memcmp(d, salt + 8, 20) == 0);
        } else {
            FUZZ_CHECK(st == SCrypt::invalidBuffer || st == SCrypt::digestMismatch);
            FUZZ_CHECK(out.isEmpty());
        }
        SCrypt::ByteStr bs(b.empty() ? nullptr : b.data(), static_cast<uint32_t>(b.size()));
        SWCharString text;
        SCrypt::Status st2 = f.crypt.decrypt(SCrypt::toText(bs), f.key, text);
        FUZZ_CHECK(st2 == st);
        if (st != SCrypt::success)
            FUZZ_CHECK(text.isEmpty());
        return 0;
    }
    if (size < 2)
        return 0;
    const Valid& base = f.valid[data[1] % f.valid.size()];
    Bytes b = base.encrypted;
    for (size_t i = 2; i + 3 <= size; i += 3) {
        unsigned op = data[i] % 4;
        size_t pos = b.empty() ? 0 : data[i + 1] % (b.size() + (op == 2 ? 1 : 0));
        unsigned char value = data[i + 2];
        switch (op) {
        case 0: if (!b.empty()) b[pos] ^= value; break;
        case 1: if (!b.empty()) b[pos] = value; break;
        case 2: b.resize(pos); break;
        case 3: b.push_back(value); break;
        }
    }
    SSimpleBuffer out;
    SCrypt::Status st = decrypt(b, out);
    if (b == base.encrypted) {
        FUZZ_CHECK(st == SCrypt::success);
        FUZZ_CHECK(out.size() == base.plain.size());
        FUZZ_CHECK(out.size() == 0 || std::memcmp(out.data(), base.plain.data(), out.size()) == 0);
    } else {
        FUZZ_CHECK(st == SCrypt::invalidBuffer || st == SCrypt::digestMismatch);
        FUZZ_CHECK(out.isEmpty());
    }
    return 0;
}
