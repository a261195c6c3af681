// The text transforms of the mail writer: base64, message text for SMTP, header words.
// Not installed.
#ifndef VARDO_SMTPMIME_H
#define VARDO_SMTPMIME_H

#include <cstddef>
#include <string>

namespace Vardo400 {
namespace mime {

// Base64 over the standard alphabet, with padding, no line breaks.
std::string Base64(const void* data, size_t size);

// Base64 in lines: "\r\n" after the encoding of every 72 input bytes (96 characters),
// and after the last partial line.
const size_t kLineInput = 72;
const size_t kLineOutput = 98;

// The size of size bytes encoded in lines.
inline size_t Base64LinesSize(size_t size)
{
    return size / kLineInput * kLineOutput + (size % kLineInput ? (size % kLineInput + 2) / 3 * 4 + 2 : 0);
}

// Encodes size bytes in lines into out, which holds at least Base64LinesSize(size)
// bytes; returns the bytes written. Only the last piece of an input may have a size
// that is not a multiple of 72.
size_t Base64LinesInto(const void* data, size_t size, char* out);

// UTF-8 message text as it goes into the message: every line break (CR LF, lone LF,
// lone CR) becomes CR LF and a line starting with "." gets a second ".".
std::string SmtpText(const std::string& utf8);

// True when the text is printable 7-bit (0x20..0x7E) throughout.
bool IsPrintableAscii(const std::string& s);

// The text as UTF-8 encoded words "=?UTF-8?B?...?=" of at most 75 characters each,
// split on character boundaries, joined by "\r\n " (folding).
std::string EncodedWords(const std::string& utf8);

// A header parameter: name="value" for printable 7-bit values without quotes,
// backslashes, "=?" or a blank at either end, else the RFC 2231 form
// name*=UTF-8''percent-encoded.
std::string Parameter(const char* name, const std::string& utf8);

} // namespace mime
} // namespace Vardo400

#endif
