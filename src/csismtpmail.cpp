// CSISMTPMail: the message writer (headers and MIME body into a temporary file) and the
// SMTP dialogue that streams it to the server.
#include "vardo/csismtpmail.h"
#include "vardo/csiprocess.h"
#include "vardo/csisocket.h"
#include "vardo/sdatetime.h"
#include "vardo/sfile.h"
#include "vardo/sfilesys.h"
#include "vardo/sresstring.h"
#include "vardo/strace.h"

#include "net_internal.h"
#include "smtpmime.h"
#include "os/os_socket.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

namespace Vardo400 {

namespace {

const char kBoundary[] = "----_=_next_korvath_message";
const long kSendLimit = 120;
const long kReplyLimit = 60;
const long kPieceLimit = 60;
const size_t kPieceSize = 8192;
// A reply longer than this many lines is treated as a broken server.
const int kMaxReplyLines = 1000;
// The collector of a reply's text keeps at most this much.
const unsigned int kMaxReplyText = 65536;

bool traceOn()
{
    return ShouldTrace(0, __FILE__);
}

SWCharString W(const char* s)
{
    return net::FromUtf8(s ? std::string(s) : std::string());
}

SWCharString W(const std::string& s)
{
    return net::FromUtf8(s);
}

bool isPositive(long code)
{
    return code == 250 || code == 251;
}

// Address or shown name: no line breaks or other control characters.
bool usableText(const SWCharString& s)
{
    for (unsigned int i = 0; i < s.getLength(); ++i) {
        unsigned short c = s.data()[i];
        if (c < 0x20 || c == 0x7F || c == 0x85 || c == 0x2028 || c == 0x2029)
            return false;
    }
    return true;
}

// The text for an exception about unusable input: control characters shown as "?".
SWCharString shownSafely(const SWCharString& s)
{
    SWCharString r;
    for (unsigned int i = 0; i < s.getLength(); ++i) {
        unsigned short c = s.data()[i];
        r += SWCharString::Char((unsigned short)(c < 0x20 || c == 0x7F ? '?' : c));
    }
    return r;
}

SWCharString joinAddresses(const SIArray<SWCharString>& list)
{
    SWCharString r;
    for (size_t i = 0; i < list.size(); ++i) {
        if (i)
            r += W(", ");
        r += list[i];
    }
    return r;
}

// "Shown Name" <address>, or the address alone.
std::string mailbox(const SWCharString& address, const SWCharString& name)
{
    std::string a = net::Utf8(address);
    if (name.isEmpty())
        return a;
    std::string n = net::Utf8(name);
    std::string shown;
    if (mime::IsPrintableAscii(n)) {
        shown = "\"";
        for (char c : n) {
            if (c == '"' || c == '\\')
                shown += '\\';
            shown += c;
        }
        shown += '"';
    } else {
        shown = mime::EncodedWords(n);
    }
    return shown + " <" + a + ">";
}

// A header line of mailboxes, folded before a line would pass 76 characters.
std::string addressHeader(const char* field, const SIArray<SWCharString>& addresses,
                          const SIArray<SWCharString>& names)
{
    std::string line = field;
    size_t lineLength = line.size();
    for (size_t i = 0; i < addresses.size(); ++i) {
        std::string box = mailbox(addresses[i], i < names.size() ? names[i] : SWCharString());
        if (i) {
            line += ',';
            ++lineLength;
            if (lineLength + 1 + box.size() > 76) {
                line += "\r\n";
                lineLength = 0;
            }
            line += ' ';
            ++lineLength;
        }
        line += box;
        size_t nl = box.rfind('\n');
        lineLength = nl == std::string::npos ? lineLength + box.size() : box.size() - nl - 1;
    }
    return line + "\r\n";
}

std::string hostNameForMail()
{
    std::string name;
    if (os::hostName(name) != 0 || name.empty())
        return "localhost";
    for (char c : name)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-'))
            return "localhost";
    return name;
}

std::string GenerateMessageId()
{
    // Strictly increasing within the process, so two messages in one millisecond still
    // get distinct identifiers.
    static std::mutex lock;
    static int64_t last = 0;
    int64_t span = (SDateTime::now() - SDateTime(2000, 1, 1)).getCount();
    {
        std::lock_guard<std::mutex> guard(lock);
        if (span <= last)
            span = last + 1;
        last = span;
    }
    char text[64];
    std::snprintf(text, sizeof text, "%u.%lld@", (unsigned)CSIProcess::GetCurrentProcessId(), (long long)span);
    return text + hostNameForMail();
}

std::string GenerateDate()
{
    SDateTime now = SDateTime::now();
    std::string date = net::Utf8(now.format(W("dd MMM yyyy HH':'mm':'ss")));
    int elements = 0;
    bool inWord = false;
    for (char c : date) {
        if (c != ' ' && !inWord)
            ++elements;
        inWord = c != ' ';
    }
    if (elements != 4)
        VARDO_ASSERT_TEXT("arrElements.GetSize() == 4");
    int32_t offsetMinutes = now.getLocalOffset() / 60000;
    char zone[16];
    std::snprintf(zone, sizeof zone, " %c%02d%02d", offsetMinutes < 0 ? '-' : '+',
                  (int)((offsetMinutes < 0 ? -offsetMinutes : offsetMinutes) / 60),
                  (int)((offsetMinutes < 0 ? -offsetMinutes : offsetMinutes) % 60));
    return date + zone;
}

// The boundary: the fixed one, made longer while a line of the text starts with it.
std::string chooseBoundary(const std::string& text)
{
    std::string boundary = kBoundary;
    size_t start = 0;
    bool clash = true;
    int round = 0;
    while (clash) {
        clash = false;
        start = 0;
        while (start <= text.size()) {
            size_t end = text.find_first_of("\r\n", start);
            if (end == std::string::npos)
                end = text.size();
            if (end - start >= 2 && text.compare(start, 2, "--") == 0) {
                std::string line = text.substr(start, end - start);
                if (round == 0 && traceOn()) {
                    std::string rest = line.substr(2);
                    if (rest.size() < 2)
                        STrace("Message boundary line is too small.");
                    else if (!mime::IsPrintableAscii(rest))
                        STrace("Message boundary line is of improper format.");
                    else
                        STrace("Message boundary found: %1", W(rest));
                }
                if (line.compare(2, boundary.size(), boundary) == 0)
                    clash = true;
            }
            start = end + 1;
        }
        if (clash)
            boundary += "_" + std::to_string(++round);
    }
    return boundary;
}

bool validContentType(const std::string& t)
{
    size_t slash = t.find('/');
    if (slash == std::string::npos || slash == 0 || slash + 1 == t.size() || t.find('/', slash + 1) != std::string::npos)
        return false;
    for (char c : t) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  std::strchr("!#$&^_.+-/", c) != nullptr;
        if (!ok || c == 0)
            return false;
    }
    return true;
}

std::string baseName(const std::string& path)
{
    size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Buffered writing into the temporary file: one fixed block, filled in place (the
// attachments are encoded straight into it) and written whole.
class FileSink {
public:
    static const size_t kBlock = 1u << 20;
    explicit FileSink(SFile& f) : m_file(f), m_buffer(new char[kBlock]), m_used(0) {}
    void put(const std::string& s) { put(s.data(), s.size()); }
    void put(const char* data, size_t size)
    {
        while (size) {
            if (m_used == kBlock)
                flush();
            size_t take = kBlock - m_used < size ? kBlock - m_used : size;
            std::memcpy(m_buffer.get() + m_used, data, take);
            m_used += take;
            data += take;
            size -= take;
        }
    }
    // Room for at least size bytes (at most kBlock) at the end of the block.
    char* room(size_t size)
    {
        if (kBlock - m_used < size)
            flush();
        return m_buffer.get() + m_used;
    }
    void commit(size_t size) { m_used += size; }
    void flush()
    {
        size_t done = 0;
        while (done < m_used) {
            int n = m_file.write(m_buffer.get() + done, (unsigned int)(m_used - done));
            if (n <= 0)
                break;
            done += (size_t)n;
        }
        m_used = 0;
    }

private:
    SFile& m_file;
    std::unique_ptr<char[]> m_buffer;
    size_t m_used;
};

// Reads until the buffer is full or the file ends, so only the last block of a file
// can end in a partial base64 line.
size_t readFull(SFile& in, char* buffer, size_t size)
{
    size_t got = 0;
    while (got < size) {
        int n = in.read(buffer + got, (unsigned int)(size - got));
        if (n <= 0)
            break;
        got += (size_t)n;
    }
    return got;
}

// The temporary file: removed on every path out of the send.
class TempFile {
public:
    TempFile()
    {
        m_path = SFileSys::getUniqueFilename(SFileSys::getTempDirname(), W("tmp"), W("smtp"), true);
        m_file.open(m_path, SFile::readAndWrite | SFile::truncate, SFile::ownerRMask | SFile::ownerWMask,
                    SFile::denyNothing);
    }
    ~TempFile()
    {
        try {
            if (m_file.isOpened())
                m_file.close();
        } catch (...) {
        }
        try {
            SFileSys::remove(m_path);
        } catch (...) {
        }
    }
    SFile& file() { return m_file; }

private:
    SWCharString m_path;
    SFile m_file;
};

// Ends the connection and the socket layer when the dialogue leaves, by any path.
class DialogueScope {
public:
    explicit DialogueScope(CSITcpSocket& s) : m_socket(s) { CSISocket::initialize(); }
    ~DialogueScope()
    {
        m_socket.AbortSocket();
        CSISocket::uninitialize();
    }

private:
    CSITcpSocket& m_socket;
};

SAnsiString ansi(const std::string& s)
{
    return SAnsiString(s.c_str());
}

} // namespace

// ---- CSISMTPMailException -------------------------------------------------------------------

CSISMTPMailException::CSISMTPMailException(ErrorCodes code, long replyCode, const SWCharString& text,
                                           int messageNumber)
    : m_errorCode(code), m_nReplyCode(replyCode), m_text(text), m_nMessageNumber(messageNumber)
{
}

CSISMTPMailException::~CSISMTPMailException() {}

SWCharString CSISMTPMailException::SMTPErrorCodeString() const
{
    switch (m_errorCode) {
    case noError: return W("No error.");
    case serverError: return W("The mail server could not be reached, greeted or authenticated to.");
    case senderOrToError: return W("The mail server refused the sender or the recipients of the To list.");
    case ccError: return W("The mail server refused the recipients of the Cc list.");
    case dataError: return W("The mail server refused the message data.");
    case invalidAddress: return W("An address or shown name contains a line break or control character.");
    }
    return W("Unknown mail error.");
}

SWCharString CSISMTPMailException::toString() const
{
    const char* text;
    switch (m_nMessageNumber) {
    case serverMessage:
        text = "Mail error %1: the mail server %2 could not be reached, greeted or authenticated to (reply %3).";
        break;
    case addressMessage:
        text = "Mail error %1: the mail server refused the sender or recipients %2 (reply %3).";
        break;
    case dataMessage:
        text = "Mail error %1: the mail server refused the message data for %2 (reply %3).";
        break;
    default:
        text = "Mail error %1: %2 (reply %3).";
        break;
    }
    SResString r(text);
    r << m_nMessageNumber << m_text << m_nReplyCode;
    return r.format();
}

SWCharString CSISMTPMailException::summary() const
{
    return toString() + W(":") + SMTPErrorCodeString();
}

// ---- CSISMTPMail ----------------------------------------------------------------------------

CSISMTPMail::CSISMTPMail(const SWCharString& from, const SWCharString& server, unsigned short port,
                         const SWCharString& fromName)
    : m_from(from), m_fromName(fromName), m_server(server), m_socket(ansi(net::Utf8(server)), port),
      m_nPort(port), m_authType(authNone)
{
}

CSISMTPMail::~CSISMTPMail() {}

bool CSISMTPMail::AddToAddress(const SWCharString& address, const SWCharString& name)
{
    m_toAddresses.push_back(address);
    m_toNames.push_back(name);
    return true;
}

bool CSISMTPMail::AddCCAddress(const SWCharString& address, const SWCharString& name)
{
    m_ccAddresses.push_back(address);
    m_ccNames.push_back(name);
    return true;
}

bool CSISMTPMail::AddAttachment(const SWCharString& path, const SWCharString& name, const SWCharString& contentType)
{
    m_attachments.push_back(MimeAttachment(path, name, contentType));
    return true;
}

bool CSISMTPMail::SetSubject(const SWCharString& subject) { m_subject = subject; return true; }
bool CSISMTPMail::SetMessage(const SWCharString& text) { m_message = text; return true; }
bool CSISMTPMail::SetUsername(const SWCharString& user) { m_user = user; return true; }
bool CSISMTPMail::SetPassword(const SWCharString& password) { m_password = password; return true; }
bool CSISMTPMail::SetAuthenticationType(Authentication type) { m_authType = type; return true; }

bool CSISMTPMail::SendMessageW()
{
    return SendSMTPMessage(false);
}

long CSISMTPMail::WaitForReplyFromSMTPServer(long seconds, SAnsiString* text)
{
    if (text)
        text->empty();
    char line[CSITcpSocket::maxLineLength];
    long code = 0;
    int lines = 0;
    do {
        if (++lines > kMaxReplyLines) {
            m_socket.AbortSocket();
            return 4;
        }
        if (!m_socket.GetLine(line, seconds))
            return 4;
        if (text && text->getLength() < kMaxReplyText) {
            *text += line;
            *text += "\n";
        }
        if (line[0] == 0 || line[1] == 0 || line[2] == 0 || line[3] != '-') {
            bool digits = line[0] >= '0' && line[0] <= '9' && line[1] >= '0' && line[1] <= '9' &&
                          line[2] >= '0' && line[2] <= '9';
            code = digits ? (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0') : 0;
        }
    } while (code < 100);
    if (traceOn()) {
        size_t n = std::strlen(line);
        if (n && line[n - 1] == '\r')
            line[n - 1] = 0;
        STrace("SMTP reply: %1", W(line));
    }
    return code;
}

long CSISMTPMail::sendCommand(const char* text, size_t length, bool traced)
{
    if (traced && traceOn()) {
        std::string shown(text, length);
        while (!shown.empty() && (shown.back() == '\n' || shown.back() == '\r'))
            shown.pop_back();
        STrace("SMTP command: %1", W(shown));
    }
    return m_socket.Send(text, (unsigned long)length, kSendLimit) ? 0 : 3;
}

long CSISMTPMail::InitSMTPServer()
{
    unsigned short port = m_nPort;
    if (port == 0)
        port = (unsigned short)CSISocket::getportbyname("smtp", 25);
    m_socket.SetPortW(port);
    if (!m_socket.TcpOpen()) {
        if (traceOn())
            STrace("TCP open failed for %1, retrying", m_server);
        if (!m_socket.TcpOpen()) {
            if (traceOn())
                STrace("TCP open still failed for %1, give up", m_server);
            return 2;
        }
    }
    long reply = WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
    // 421 and every other refusal of service (and no greeting at all) end the attempt.
    if (reply == 421 || reply < 200 || reply >= 400)
        return reply;

    std::string client = hostNameForMail();
    SAnsiString collected;
    bool collect = !m_user.isEmpty();
    std::string ehlo = "EHLO " + client + "\r\n";
    if (sendCommand(ehlo.data(), ehlo.size(), true))
        return 3;
    reply = WaitForReplyFromSMTPServer(kReplyLimit, collect ? &collected : nullptr);
    if (reply >= 500 && reply < 600) {
        collected.empty();
        std::string helo = "HELO " + client + "\r\n";
        if (sendCommand(helo.data(), helo.size(), true))
            return 3;
        reply = WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
    }
    if (reply == 250 && collect && !collected.isEmpty()) {
        long auth = SecurityCheck(collected);
        // 235: authenticated, the dialogue goes on. 0: nothing to authenticate with.
        if (auth != 235 && auth != 0)
            return auth;
    }
    return reply;
}

long CSISMTPMail::SecurityCheck(const SAnsiString& ehloReply)
{
    // The mechanisms the server offers on its AUTH line(s).
    std::string text(ehloReply.data(), ehloReply.getLength());
    bool login = false, plain = false;
    size_t pos = 0;
    while ((pos = text.find("AUTH", pos)) != std::string::npos) {
        size_t end = text.find('\n', pos);
        std::string rest = text.substr(pos + 4, end == std::string::npos ? std::string::npos : end - pos - 4);
        for (char& c : rest)
            if (c >= 'a' && c <= 'z')
                c = (char)(c - 'a' + 'A');
        std::string word;
        rest += ' ';
        for (char c : rest) {
            if (c == ' ' || c == '=' || c == '\r' || c == '\t') {
                login = login || word == "LOGIN";
                plain = plain || word == "PLAIN";
                word.clear();
            } else {
                word += c;
            }
        }
        pos += 4;
    }
    Authentication use = authNone;
    if (m_authType == authLogin && login)
        use = authLogin;
    else if (m_authType == authPlain && plain)
        use = authPlain;
    else if (login)
        use = authLogin;
    else if (plain)
        use = authPlain;
    if (use == authNone)
        return 0;
    return SecurityCheckHelper(use);
}

long CSISMTPMail::SecurityCheckHelper(Authentication type)
{
    // Credentials are never traced: the commands carrying them go out untraced.
    std::string user = net::Utf8(m_user);
    std::string password = net::Utf8(m_password);
    if (type == authLogin) {
        static const char cmd[] = "AUTH LOGIN\r\n";
        if (sendCommand(cmd, sizeof cmd - 1, true))
            return 3;
        long reply = WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
        if (reply != 334)
            return reply;
        std::string line = mime::Base64(user.data(), user.size()) + "\r\n";
        if (sendCommand(line.data(), line.size(), false))
            return 3;
        reply = WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
        if (reply == 334) {
            line = mime::Base64(password.data(), password.size()) + "\r\n";
            if (sendCommand(line.data(), line.size(), false))
                return 3;
            reply = WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
        }
        return reply;
    }
    // PLAIN: authorisation identity (empty), NUL, user, NUL, password.
    std::string credentials;
    credentials += '\0';
    credentials += user;
    credentials += '\0';
    credentials += password;
    if (traceOn())
        STrace("SMTP command: AUTH PLAIN");
    std::string line = "AUTH PLAIN " + mime::Base64(credentials.data(), credentials.size()) + "\r\n";
    if (sendCommand(line.data(), line.size(), false))
        return 3;
    return WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
}

long CSISMTPMail::sendRecipients(const SIArray<SWCharString>& list)
{
    if (list.empty())
        return 250;
    size_t refused = 0;
    for (const SWCharString& address : list) {
        std::string cmd = "RCPT To:<" + net::Utf8(address) + ">\r\n";
        if (sendCommand(cmd.data(), cmd.size(), true))
            return 3;
        long reply = WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
        if (reply >= 550 && reply <= 553) {
            ++refused;
            continue;
        }
        if (!isPositive(reply))
            return reply;
    }
    return refused == list.size() ? 550 : 250;
}

void CSISMTPMail::SendMailToSMTPServer(SFile& file)
{
    DialogueScope scope(m_socket);
    long reply = InitSMTPServer();
    if (reply != 250) {
        SResString where("%1:%2");
        where << m_server << (unsigned long)m_socket.GetPort();
        throw CSISMTPMailException(CSISMTPMailException::serverError, reply, where.format(),
                                   CSISMTPMailException::serverMessage);
    }

    std::string cmd = "MAIL From:<" + net::Utf8(m_from) + ">\r\n";
    reply = sendCommand(cmd.data(), cmd.size(), true);
    if (reply == 0)
        reply = WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
    if (!isPositive(reply))
        throw CSISMTPMailException(CSISMTPMailException::senderOrToError, reply, m_from,
                                   CSISMTPMailException::addressMessage);

    reply = sendRecipients(m_toAddresses);
    if (!isPositive(reply))
        throw CSISMTPMailException(CSISMTPMailException::senderOrToError, reply, joinAddresses(m_toAddresses),
                                   CSISMTPMailException::addressMessage);
    reply = sendRecipients(m_ccAddresses);
    if (!isPositive(reply))
        throw CSISMTPMailException(CSISMTPMailException::ccError, reply, joinAddresses(m_ccAddresses),
                                   CSISMTPMailException::addressMessage);

    SWCharString target = joinAddresses(m_toAddresses);
    static const char data[] = "DATA\r\n";
    reply = sendCommand(data, sizeof data - 1, true);
    if (reply == 0)
        reply = WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
    if (reply == 354) {
        file.seekToBegin();
        // Read in blocks of 128 pieces (1 MiB), send piece by piece.
        std::string block(128 * kPieceSize, '\0');
        reply = 0;
        for (;;) {
            int n = file.read(&block[0], (unsigned int)block.size());
            if (n <= 0)
                break;
            for (int at = 0; at < n && reply == 0; at += (int)kPieceSize) {
                int piece = n - at < (int)kPieceSize ? n - at : (int)kPieceSize;
                if (!m_socket.Send(block.data() + at, (unsigned long)piece, kPieceLimit))
                    reply = 3;
            }
            if (reply)
                break;
        }
        if (reply == 0) {
            static const char end[] = "\r\n.\r\n";
            reply = sendCommand(end, sizeof end - 1, true);
            if (reply == 0) {
                SAnsiString text;
                reply = WaitForReplyFromSMTPServer(kReplyLimit, &text);
                // The last line of the reply, without its line end.
                std::string t(text.data(), text.getLength());
                while (!t.empty() && (t.back() == '\n' || t.back() == '\r'))
                    t.pop_back();
                size_t nl = t.rfind('\n');
                if (nl != std::string::npos)
                    t = t.substr(nl + 1);
                if (!t.empty() && t.back() == '\r')
                    t.pop_back();
                m_serverReply = ansi(t);
            }
        }
    }
    if (!isPositive(reply))
        throw CSISMTPMailException(CSISMTPMailException::dataError, reply, target,
                                   CSISMTPMailException::dataMessage);

    static const char quit[] = "QUIT\r\n";
    if (sendCommand(quit, sizeof quit - 1, true) == 0)
        WaitForReplyFromSMTPServer(kReplyLimit, nullptr);
}

bool CSISMTPMail::SendSMTPMessage(bool utf8Subject)
{
    // Refuse what could break a header line or a command before anything is written.
    const SWCharString* bad = nullptr;
    if (!usableText(m_from) || !usableText(m_fromName))
        bad = usableText(m_from) ? &m_fromName : &m_from;
    for (size_t i = 0; !bad && i < m_toAddresses.size(); ++i)
        if (!usableText(m_toAddresses[i]) || !usableText(m_toNames[i]))
            bad = usableText(m_toAddresses[i]) ? &m_toNames[i] : &m_toAddresses[i];
    for (size_t i = 0; !bad && i < m_ccAddresses.size(); ++i)
        if (!usableText(m_ccAddresses[i]) || !usableText(m_ccNames[i]))
            bad = usableText(m_ccAddresses[i]) ? &m_ccNames[i] : &m_ccAddresses[i];
    if (bad)
        throw CSISMTPMailException(CSISMTPMailException::invalidAddress, 0, shownSafely(*bad),
                                   CSISMTPMailException::addressMessage);
    m_serverReply.empty();

    TempFile temp;
    FileSink out(temp.file());

    // ---- headers
    out.put("Message-ID: <" + GenerateMessageId() + ">\r\n");
    out.put("Date: " + GenerateDate() + "\r\n");
    out.put("From: " + mailbox(m_from, m_fromName) + "\r\n");
    if (!m_toAddresses.empty()) {
        std::string line = addressHeader("To: ", m_toAddresses, m_toNames);
        if (traceOn())
            STrace("TO: addresses in mail header: %1", W(line.substr(4, line.size() - 6)));
        out.put(line);
    }
    if (!m_ccAddresses.empty()) {
        std::string line = addressHeader("Cc: ", m_ccAddresses, m_ccNames);
        if (traceOn())
            STrace("CC: addresses in mail header: %1", W(line.substr(4, line.size() - 6)));
        out.put(line);
    }
    std::string subject = net::Utf8(m_subject);
    // Plain only when a reader gets back the same text: no blank at either end (header
    // parsing drops it) and nothing that looks like an encoded word.
    bool plain = !utf8Subject && mime::IsPrintableAscii(subject) && subject.size() <= 900 &&
                 subject.find("=?") == std::string::npos &&
                 (subject.empty() || (subject.front() != ' ' && subject.back() != ' '));
    if (plain)
        out.put("Subject: " + subject + "\r\n");
    else
        out.put("Subject: " + mime::EncodedWords(subject) + "\r\n");
    out.put("Mime-Version: 1.0\r\n");

    // ---- body
    std::string text = net::Utf8(m_message);
    std::string boundary = chooseBoundary(text);
    std::string boundaryLine = "\r\n--" + boundary + "\r\n";
    out.put("Content-Type: multipart/mixed;\r\n");
    out.put(" boundary=\"" + boundary + "\"\r\n");
    out.put("\r\nThis is a multi-part message in MIME format.\r\n");
    out.put(boundaryLine);
    out.put("Content-Type: text/plain;\r\n");
    out.put("              charset=\"UTF-8\"\r\n\r\n");
    out.put(mime::SmtpText(text));
    text.clear();

    // Input blocks of whole lines whose encoding fills most of the write block.
    const size_t inputBlock = (FileSink::kBlock / mime::kLineOutput - 1) * mime::kLineInput;
    std::unique_ptr<char[]> input;
    for (const MimeAttachment& a : m_attachments) {
        std::string path = net::Utf8(a.m_filePath);
        std::string name = a.m_shownName.isEmpty() ? baseName(path) : net::Utf8(a.m_shownName);
        for (char& c : name)
            if ((unsigned char)c < 0x20 || c == 0x7F)
                c = '_';
        std::string type = net::Utf8(a.m_contentType);
        if (!validContentType(type))
            type = "application/octet-stream";
        out.put(boundaryLine);
        out.put("Content-Type: " + type + "; " + mime::Parameter("name", name) + "\r\n");
        out.put("Content-Transfer-Encoding: base64\r\n");
        out.put("Content-Disposition: attachment;\r\n " + mime::Parameter("filename", name) + "\r\n\r\n");
        SFile in(a.m_filePath, SFile::readOnly, 0, SFile::denyNothing);
        if (!input)
            input.reset(new char[inputBlock]);
        for (;;) {
            size_t n = readFull(in, input.get(), inputBlock);
            if (n == 0)
                break;
            char* to = out.room(mime::Base64LinesSize(n));
            out.commit(mime::Base64LinesInto(input.get(), n, to));
            if (n < inputBlock)
                break;
        }
        in.close();
    }
    out.put("\r\n--" + boundary + "--\r\n");
    out.put("\r\n\r\n");
    out.flush();
    SendMailToSMTPServer(temp.file());
    return true;
}

} // namespace Vardo400
