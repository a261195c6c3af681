// SStringHelper: static text helpers over SWCharString; here the word splitter that the
// command-line parser and the logger's option handling use, and the set-based trims.
//
// Thread-safety: every member is reentrant and keeps no state; the usual rules for the
// strings and arrays passed in apply (one object, one thread at a time).
// Errors: std::bad_alloc when memory runs out; nothing else is thrown or asserted.
#ifndef VARDO_SSTRINGHELPER_H
#define VARDO_SSTRINGHELPER_H

#include "vardodefs.h"
#include "sstring.h"
#include "containers.h"

namespace Vardo400 {

class VARDO_API SStringHelper {
public:
    // Cuts text into words at the characters of separators (every 16-bit unit of it is one
    // separator). words is cleared first; the words are appended in text order.
    //  - Runs of separators produce no empty words. With keepSeparators every separator
    //    becomes a one-character word of its own, in its place.
    //  - With quotes, a double quote (U+0022) at the start of a word opens a quoted word
    //    that runs to the next double quote, or to the end of the text when there is none;
    //    the quotes are not part of the word, two adjacent quotes give an empty word, and
    //    the word may contain separators. A double quote inside a plain word ends that word
    //    and opens a quoted one ("ab\"cd\"" gives ab and cd).
    //  - Without quotes the double quote is an ordinary character.
    // An empty text, or one of separators only without keepSeparators, gives no words.
    static void makeWords(const SWCharString& text, SIArray<SWCharString>& words,
                          const SWCharString& separators, bool quotes, bool keepSeparators);

    // The same with the separator character separator plus every character of other as
    // the separator set (an empty other means the single separator).
    static void makeWords(const SWCharString& text, SIArray<SWCharString>& words,
                          const SChar_t<unsigned short, 1>& separator, const SWCharString& other,
                          bool quotes, bool keepSeparators);

    // Remove from the start (trimLeft), the end (trimRight) or both ends (trim) of text
    // every character that occurs in set. A text without such characters keeps its buffer;
    // one made only of them becomes the shared empty string.
    static void trimLeft(SWCharString& text, const SWCharString& set);
    static void trimRight(SWCharString& text, const SWCharString& set);
    static void trim(SWCharString& text, const SWCharString& set);
};

} // namespace Vardo400

#endif
