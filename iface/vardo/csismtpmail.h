// CSISMTPMail: sends one mail message with optional file attachments to an SMTP server,
// and CSISMTPMailException, the failure of its dialogue.
#ifndef VARDO_CSISMTPMAIL_H
#define VARDO_CSISMTPMAIL_H

#include "vardodefs.h"
#include "sexception.h"
#include "sstring.h"
#include "containers.h"
#include "csitcpsocket.h"

namespace Vardo400 {

class SFile;

// A refused or broken SMTP dialogue (or text that cannot be sent safely). Carries an
// error code, the SMTP reply code that caused it (0 when none; 2, 3 or 4 for the local
// failures "no connection", "cannot send", "no reply in time"), a text argument (host
// and port, an address list) and a message number:
//   41602 the server could not be reached, greeted or authenticated to,
//   41603 the sender or the recipients were refused (or an address was unusable),
//   41604 the message data was refused.
// No text of the exception ever contains the password. Copyable.
class VARDO_API CSISMTPMailException : public SException {
public:
    enum ErrorCodes {
        noError = 0,
        serverError = 1,        // connection, greeting, EHLO/HELO or authentication
        senderOrToError = 2,    // the sender or the To list refused
        ccError = 3,            // the Cc list refused
        dataError = 4,          // DATA or the message refused
        invalidAddress = 5      // an address or shown name holds a line break or control character
    };
    enum MessageNumbers { serverMessage = 41602, addressMessage = 41603, dataMessage = 41604 };

    CSISMTPMailException(ErrorCodes code, long replyCode, const SWCharString& text, int messageNumber);
    ~CSISMTPMailException() override;

    ErrorCodes getErrorCode() const { return m_errorCode; }
    long getReplyCode() const { return m_nReplyCode; }
    const SWCharString& getText() const { return m_text; }
    int getMessageNumber() const { return m_nMessageNumber; }

    // The meaning of the error code, e.g. "The mail server refused the recipients of
    // the Cc list."
    SWCharString SMTPErrorCodeString() const;
    // The message of the message number with the text and reply code filled in, e.g.
    // "Mail error 41603: the mail server refused the sender or recipients a@b, c@d
    // (reply 550)."
    SWCharString toString() const override;
    // toString(), ":", then SMTPErrorCodeString().
    SWCharString summary() const override;

private:
    ErrorCodes m_errorCode;
    long m_nReplyCode;
    SWCharString m_text;
    int m_nMessageNumber;
};

// One mail message and its SMTP dialogue.
//
// Sending writes the whole message (headers and a multipart/mixed MIME body) to a
// temporary file in the system's temporary folder ("tmp" prefix, "smtp" extension), then
// runs the dialogue over a CSITcpSocket and streams the file to the server in pieces of
// 8192 bytes. The file is removed on every path, also when an exception is thrown.
// Memory use does not grow with the size of the attachments.
//
// What the message looks like:
// - "Message-ID: <pid.span@host>", "Date: dd MMM yyyy HH:mm:ss +hhmm" (local time and its
//   offset from UTC), "From:", "To:" and "Cc:" (addresses joined by ", ", each as
//   "\"Shown Name\" <address>" when a shown name is given; a header whose list is empty
//   is left out), "Subject:", "Mime-Version: 1.0".
// - The subject is written as it is when it is printable 7-bit text without a blank at
//   either end and without "=?"; otherwise (and
//   always when SendSMTPMessage is asked for the UTF-8 form) as UTF-8 encoded words
//   "=?UTF-8?B?...?=", folded so no line passes 76 characters. A line break in the
//   subject therefore never starts a header line.
// - The message text is UTF-8; every line break in it (CR LF, lone LF, lone CR) is sent
//   as CR LF, and a line that starts with a full stop gets a second one (the server
//   removes it), so such lines arrive intact.
// - Attachments are base64 (standard alphabet) in lines of 96 characters, with the
//   shown name (control characters replaced by "_") in the Content-Type "name" and
//   Content-Disposition "filename"
//   parameters (RFC 2231 form for names that are not plain printable 7-bit text). A
//   content type that is not of the form type/subtype becomes
//   "application/octet-stream".
// - The body ends with the closing boundary line, then an empty line.
//
// Addresses and shown names must not contain line breaks or other control characters:
// SendSMTPMessage refuses them (invalidAddress, 41603) before anything is sent. The
// user name and password are sent only base64-encoded inside AUTH and never traced.
//
// Authentication (when a user name is set and the server's EHLO reply offers AUTH): the
// configured type when the server offers it, else LOGIN when offered, else PLAIN. A
// reply 235 lets the dialogue go on; any other reply ends it with 41602 and that reply
// code.
//
// Thread-safety: one object belongs to one thread at a time.
class VARDO_API CSISMTPMail {
public:
    enum Authentication { authNone = 0, authPlain = 1, authLogin = 2 };

    // One attachment: the file, the name shown to the receiver, its MIME content type
    // (empty: "application/octet-stream").
    struct VARDO_API MimeAttachment {
        SWCharString m_filePath;
        SWCharString m_shownName;
        SWCharString m_contentType;
        MimeAttachment() {}
        MimeAttachment(const SWCharString& path, const SWCharString& name, const SWCharString& type)
            : m_filePath(path), m_shownName(name), m_contentType(type) {}
    };

    // sender address, server host (name, dotted IPv4 or IPv6 literal), server port (0:
    // the port of the "smtp" service, 25 when unknown), sender's shown name (may be
    // empty).
    CSISMTPMail(const SWCharString& from, const SWCharString& server, unsigned short port,
                const SWCharString& fromName);
    ~CSISMTPMail();

    // Add one recipient (address, shown name which may be empty). True.
    bool AddToAddress(const SWCharString& address, const SWCharString& name);
    bool AddCCAddress(const SWCharString& address, const SWCharString& name);
    // Add one attachment (file path, shown name: empty gives the file's own name,
    // content type). True.
    bool AddAttachment(const SWCharString& path, const SWCharString& name, const SWCharString& contentType);
    bool SetSubject(const SWCharString& subject);
    bool SetMessage(const SWCharString& text);
    bool SetUsername(const SWCharString& user);
    bool SetPassword(const SWCharString& password);
    bool SetAuthenticationType(Authentication type);

    // Builds the message into a temporary file and sends it. utf8Subject asks for the
    // encoded-word form of the subject even when it is plain text. True on success;
    // throws CSISMTPMailException when the dialogue fails or an address is unusable,
    // SFileException / SFileSysException when the temporary file or an attachment
    // cannot be written or read.
    bool SendSMTPMessage(bool utf8Subject = false);
    // SendSMTPMessage(false).
    bool SendMessageW();

    // The last line of the server's reply that accepted the message (after the final
    // "."), e.g. "250 2.0.0 Ok: queued"; empty before a successful send.
    const SAnsiString& GetServerReply() const { return m_serverReply; }

    // ---- the dialogue's steps, usable on their own --------------------------------------
    // Reads one reply within seconds: its code (the first three characters of the line
    // whose fourth is not "-"), 4 when a line cannot be read in time. Lines whose code
    // cannot be read keep the reply going. text (if given) collects the lines.
    long WaitForReplyFromSMTPServer(long seconds, SAnsiString* text);
    // Connects (one retry), reads the greeting, sends EHLO (HELO after a 5xx reply) and
    // authenticates when a user name is set. The last reply code, or 2 (no connection),
    // 3 (a command could not be sent), 4 (no reply in time), 421 (service not available).
    long InitSMTPServer();

private:
    CSISMTPMail(const CSISMTPMail&) = delete;
    CSISMTPMail& operator=(const CSISMTPMail&) = delete;
    long SecurityCheck(const SAnsiString& ehloReply);
    long SecurityCheckHelper(Authentication type);
    long sendCommand(const char* text, size_t length, bool traced);
    long sendRecipients(const SIArray<SWCharString>& list);
    void SendMailToSMTPServer(SFile& file);

    SWCharString m_from;
    SWCharString m_fromName;
    SWCharString m_server;
    CSITcpSocket m_socket;
    unsigned short m_nPort;
    SIArray<SWCharString> m_toAddresses;
    SIArray<SWCharString> m_toNames;
    SIArray<SWCharString> m_ccAddresses;
    SIArray<SWCharString> m_ccNames;
    SWCharString m_subject;
    SWCharString m_message;
    SWCharString m_user;
    SWCharString m_password;
    Authentication m_authType;
    SIArray<MimeAttachment> m_attachments;
    SAnsiString m_serverReply;
};

} // namespace Vardo400

#endif
