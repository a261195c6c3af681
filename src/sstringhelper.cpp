// The word splitter and the set-based trims.
//
// The splitter walks the text once with a position instead of cutting a working copy after
// every word; the words, their order and the handling of quotes and separators are those of
// cutting the copy (leading separators trimmed or kept, then word after word).
#include "vardo/sstringhelper.h"

#include <cstdint>

namespace Vardo400 {

namespace {

const unsigned short kDoubleQuote = 0x22;

// Membership in a set of 16-bit units: a bitmap for the ASCII range, a scan of the set for
// the rest (sets are a handful of characters).
class UnitSet {
public:
    UnitSet(const unsigned short* units, unsigned int count, unsigned short extra, bool withExtra)
        : m_pUnits(units), m_count(count), m_bHasWide(false)
    {
        for (int i = 0; i < 4; ++i)
            m_ascii[i] = 0;
        for (unsigned int i = 0; i < count; ++i)
            add(units[i]);
        m_extra = extra;
        m_bWithExtra = withExtra;
        if (withExtra)
            add(extra);
    }

    bool contains(unsigned short c) const
    {
        if (c < 128)
            return (m_ascii[c >> 5] >> (c & 31)) & 1u;
        if (!m_bHasWide)
            return false;
        if (m_bWithExtra && c == m_extra)
            return true;
        for (unsigned int i = 0; i < m_count; ++i)
            if (m_pUnits[i] == c)
                return true;
        return false;
    }

private:
    void add(unsigned short c)
    {
        if (c < 128)
            m_ascii[c >> 5] |= 1u << (c & 31);
        else
            m_bHasWide = true;
    }

    const unsigned short* m_pUnits;
    unsigned int m_count;
    uint32_t m_ascii[4];
    unsigned short m_extra;
    bool m_bWithExtra;
    bool m_bHasWide;
};

SWCharString wordOf(const unsigned short* from, const unsigned short* to)
{
    SWCharString w;
    w.concat(from, static_cast<unsigned int>(to - from));
    return w;
}

void split(const SWCharString& text, SIArray<SWCharString>& words, const UnitSet& separators,
           bool quotes, bool keepSeparators)
{
    // The working copy, taken before words is cleared: text may be one of the words.
    const SWCharString rest(text);
    words.clear();
    const unsigned short* p = rest.data();
    const unsigned short* const end = p + rest.getLength();

    auto handleSeparators = [&]() {
        if (!keepSeparators) {
            while (p < end && separators.contains(*p))
                ++p;
        } else {
            while (p < end && separators.contains(*p)) {
                words.push_back(wordOf(p, p + 1));
                ++p;
            }
        }
    };

    handleSeparators();
    while (p < end) {
        if (quotes && *p == kDoubleQuote) {
            ++p;
            const unsigned short* q = p;
            while (q < end && *q != kDoubleQuote)
                ++q;
            words.push_back(wordOf(p, q));
            p = q < end ? q + 1 : q;
        } else {
            // The stop set: the separators, and the double quote when quotes is set.
            const unsigned short* q = p;
            while (q < end && !separators.contains(*q) && !(quotes && *q == kDoubleQuote))
                ++q;
            words.push_back(wordOf(p, q));
            p = q;
        }
        handleSeparators();
    }
}

// Leading and trailing counts of units of text that belong to set.
unsigned int leadingIn(const SWCharString& text, const UnitSet& set)
{
    const unsigned short* p = text.data();
    const unsigned int n = text.getLength();
    unsigned int i = 0;
    while (i < n && set.contains(p[i]))
        ++i;
    return i;
}

unsigned int trailingIn(const SWCharString& text, const UnitSet& set, unsigned int from)
{
    const unsigned short* p = text.data();
    unsigned int n = text.getLength();
    unsigned int j = 0;
    while (n > from && set.contains(p[n - 1])) {
        --n;
        ++j;
    }
    return j;
}

void keepRange(SWCharString& text, unsigned int lead, unsigned int trail)
{
    const unsigned int n = text.getLength();
    if (lead == 0 && trail == 0)
        return;
    if (lead + trail >= n) {
        text.empty();
        return;
    }
    SWCharString kept;
    kept.concat(text.data() + lead, n - lead - trail);
    text = kept;
}

} // namespace

void SStringHelper::makeWords(const SWCharString& text, SIArray<SWCharString>& words,
                              const SWCharString& separators, bool quotes, bool keepSeparators)
{
    // Own reference: separators may be one of the words' strings or the text itself.
    const SWCharString set(separators);
    split(text, words, UnitSet(set.data(), set.getLength(), 0, false), quotes, keepSeparators);
}

void SStringHelper::makeWords(const SWCharString& text, SIArray<SWCharString>& words,
                              const SChar_t<unsigned short, 1>& separator,
                              const SWCharString& other, bool quotes, bool keepSeparators)
{
    const SWCharString set(other);
    const unsigned short sep = separator;
    // A null separator character cannot occur inside a text: it adds nothing to the set.
    split(text, words, UnitSet(set.data(), set.getLength(), sep, sep != 0), quotes,
          keepSeparators);
}

void SStringHelper::trimLeft(SWCharString& text, const SWCharString& set)
{
    const SWCharString s(set);
    const UnitSet units(s.data(), s.getLength(), 0, false);
    keepRange(text, leadingIn(text, units), 0);
}

void SStringHelper::trimRight(SWCharString& text, const SWCharString& set)
{
    const SWCharString s(set);
    const UnitSet units(s.data(), s.getLength(), 0, false);
    keepRange(text, 0, trailingIn(text, units, 0));
}

void SStringHelper::trim(SWCharString& text, const SWCharString& set)
{
    const SWCharString s(set);
    const UnitSet units(s.data(), s.getLength(), 0, false);
    const unsigned int lead = leadingIn(text, units);
    keepRange(text, lead, trailingIn(text, units, lead));
}

} // namespace Vardo400
