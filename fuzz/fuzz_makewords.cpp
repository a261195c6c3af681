// Fuzzes SStringHelper::makeWords in both forms and the set-based trims.
//
// Input: byte 0 holds the flags (bit 0 quotes, bit 1 keepSeparators, bit 2 the
//   single-character form, bit 3 16-bit input); byte 1 the number of separator units that
//   follow; then the separators, then the text. Units are bytes, or UTF-16LE pairs with
//   bit 3 (a zero unit becomes U+0022 or '0', since strings cannot hold it).
// Checked: no crash or out-of-bounds access; the words equal those of a plain reference
// that follows the documented steps on a working copy (cut after every word); the word
// count and total word length stay within the text's length; with kept separators and
// no quotes the words rejoin to the text; the trims equal their reference.
#include "fuzz_check.h"
#include "vardo/sstringhelper.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

typedef std::u16string Units;

SWCharString toString(const Units& u)
{
    std::vector<unsigned short> z(u.begin(), u.end());
    z.push_back(0);
    return SWCharString(z.data());
}

Units toUnits(const SWCharString& s)
{
    return Units(s.data(), s.data() + s.getLength());
}

bool inSet(char16_t c, const Units& set)
{
    return set.find(c) != Units::npos;
}

// The documented steps, literally: a working copy cut after every word.
std::vector<Units> reference(const Units& text, const Units& separators, bool quotes, bool keep)
{
    std::vector<Units> words;
    Units rest = text;
    Units stop = separators;
    if (quotes)
        stop += u'"';
    auto handleSeparators = [&]() {
        size_t i = 0;
        while (i < rest.size() && inSet(rest[i], separators)) {
            if (keep)
                words.push_back(rest.substr(i, 1));
            ++i;
        }
        rest = rest.substr(i);
    };
    handleSeparators();
    while (!rest.empty()) {
        if (quotes && rest[0] == u'"') {
            rest = rest.substr(1);
            const size_t close = rest.find(u'"');
            if (close == Units::npos) {
                words.push_back(rest);
                rest.clear();
            } else {
                words.push_back(rest.substr(0, close));
                rest = rest.substr(close + 1);
            }
        } else {
            size_t end = 0;
            while (end < rest.size() && !inSet(rest[end], stop))
                ++end;
            words.push_back(rest.substr(0, end));
            rest = rest.substr(end);
        }
        handleSeparators();
    }
    return words;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2 || size > 4096)
        return 0;
    const unsigned flags = data[0];
    const bool quotes = flags & 1, keep = (flags & 2) != 0, single = (flags & 4) != 0;
    const bool wideInput = (flags & 8) != 0;
    Units all;
    if (wideInput) {
        for (size_t i = 2; i + 1 < size; i += 2) {
            const char16_t u = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
            all += u ? u : u'"';
        }
    } else {
        for (size_t i = 2; i < size; ++i)
            all += data[i] ? static_cast<char16_t>(data[i]) : u'0';
    }
    const size_t nSep = data[1] % 8 < all.size() ? data[1] % 8 : all.size();
    Units separators = all.substr(0, nSep);
    const Units text = all.substr(nSep);

    SIArray<SWCharString> words;
    words.push_back(toString(u"stale"));
    const SWCharString textString = toString(text);
    if (single && !separators.empty()) {
        const SChar_t<unsigned short, 1> first(static_cast<unsigned short>(separators[0]));
        SStringHelper::makeWords(textString, words, first, toString(separators.substr(1)), quotes, keep);
    } else {
        SStringHelper::makeWords(textString, words, toString(separators), quotes, keep);
    }
    FUZZ_CHECK(toUnits(textString) == text);

    const std::vector<Units> expected = reference(text, separators, quotes, keep);
    FUZZ_CHECK(words.size() == expected.size());
    size_t total = 0;
    Units joined;
    for (size_t i = 0; i < words.size(); ++i) {
        const Units w = toUnits(words[i]);
        FUZZ_CHECK(w == expected[i]);
        total += w.size();
        joined += w;
        if (!quotes)
            FUZZ_CHECK(!w.empty());
    }
    FUZZ_CHECK(words.size() <= text.size() && total <= text.size());
    if (keep && !quotes)
        FUZZ_CHECK(joined == text);

    // The trims against their reference.
    size_t lead = 0, trail = 0;
    while (lead < text.size() && inSet(text[lead], separators))
        ++lead;
    while (trail < text.size() - lead && inSet(text[text.size() - 1 - trail], separators))
        ++trail;
    SWCharString t = textString;
    SStringHelper::trimLeft(t, toString(separators));
    FUZZ_CHECK(toUnits(t) == text.substr(lead));
    t = textString;
    SStringHelper::trimRight(t, toString(separators));
    size_t rtrail = 0;
    while (rtrail < text.size() && inSet(text[text.size() - 1 - rtrail], separators))
        ++rtrail;
    FUZZ_CHECK(toUnits(t) == text.substr(0, text.size() - rtrail));
    t = textString;
    SStringHelper::trim(t, toString(separators));
    FUZZ_CHECK(toUnits(t) == text.substr(lead, text.size() - lead - trail));
    return 0;
}
