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
// and after the last partial line. Input may come in pieces of any size.
class Base64Lines {
public:
    explicit Base64Lines(std::string& out) : m_out(out), m_nPending(0) {}
    void add(const void* data, size_t size);
    // Encodes what is left; the encoder can then be used for a new input.
    void finish();

private:
    std::string& m_out;
    unsigned char m_pending[72];
    size_t m_nPending;
};

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
