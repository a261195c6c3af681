// CSISMTPMail against a real SMTP server (Debian's aiosmtpd, the received messages parsed
// by Python's email package) and against scripted peers for what a real server will not do.
#include "vardo/csismtpmail.h"
#include "vardo/csiprocess.h"
#include "vardo/sfile.h"
#include "vardo/sfilesys.h"

#include "smtp_server_process.h"
#include "socket_peer.h"
#include "t2io_files.h"
#include "text.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;
using vardo_test::nowMs;
using vardo_test::PeerConn;
using vardo_test::ScriptedPeer;
using vardo_test::TempDir;
using vardo_test::U;
using vardo_test::W;
namespace fs = std::filesystem;

namespace {

// The temporary message files of this process still lying around.
int ownTempFiles()
{
    char prefix[32];
    std::snprintf(prefix, sizeof prefix, "tmp%x", (unsigned)CSIProcess::GetCurrentProcessId());
    int n = 0;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(U(SFileSys::getTempDirname()), ec))
        n += e.path().filename().string().rfind(prefix, 0) == 0 && e.path().extension() == ".smtp";
    return n;
}

std::string randomBytes(size_t n, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::string s(n, '\0');
    for (char& c : s)
        c = (char)(rng() & 0xFF);
    return s;
}

// The exception a send ends with; error code noError and message number 0 when it was sent.
CSISMTPMailException sendFailure(CSISMTPMail& mail)
{
    try {
        mail.SendSMTPMessage(false);
        return CSISMTPMailException(CSISMTPMailException::noError, 0, SWCharString(), 0);
    } catch (const CSISMTPMailException& e) {
        return e;
    }
}

// The real server, started once for the test program.
class RealServer : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_store.reset(new TempDir("vardo_smtp_"));
        s_server.reset(new vardo_test::SmtpServerProcess());
        if (!s_server->start(s_store->path.string(), "alice", "s3cret pass", s_error))
            s_server.reset();
    }
    static void TearDownTestSuite()
    {
        s_server.reset();
        s_store.reset();
    }
    void SetUp() override
    {
        if (!s_server)
            GTEST_SKIP() << "real SMTP server not available: " << s_error;
    }
    // Sends; returns the message as stored and parsed.
    vardo_test::StoredMail sendAndFetch(CSISMTPMail& mail, bool utf8Subject = false)
    {
        int before = s_server->count();
        EXPECT_TRUE(mail.SendSMTPMessage(utf8Subject));
        EXPECT_EQ(0, ownTempFiles());
        EXPECT_EQ(before + 1, s_server->count());
        vardo_test::StoredMail m;
        EXPECT_TRUE(vardo_test::readStoredMail(s_store->path.string(), before + 1, m));
        EXPECT_EQ(0, m.defects);
        return m;
    }
    static inline std::unique_ptr<TempDir> s_store;
    static inline std::unique_ptr<vardo_test::SmtpServerProcess> s_server;
    static inline std::string s_error;
};

} // namespace

TEST_F(RealServer, DeliversHeadersTextAndEveryAttachmentByteForByte)
{
    TempDir files;
    struct Att {
        std::string name, type, bytes;
    };
    // Base64 lines hold 72 input bytes; one attachment is large.
    std::vector<Att> atts = {
        {"empty.txt", "text/plain", ""},
        {"one.bin", "", "A"},
        {"b57.bin", "application/octet-stream", randomBytes(57, 1)},
        {"b72.bin", "application/x-test", randomBytes(72, 2)},
        {"b73.bin", "bad type\r\nX-Injected: 1", randomBytes(73, 3)},
        {"big.bin", "application/octet-stream", randomBytes(10u << 20, 4)},
        {"Grüße \"quoted\".txt", "text/plain", "named"},
    };
    // Leading dots, every kind of line break, and a line that is the boundary.
    const std::string text = ".leading dot\nplain line\r\n..two dots\r.\r\n------_=_next_korvath_message\nü € 😀";

    CSISMTPMail mail(W("sender@example.test"), W("127.0.0.1"), s_server->port(), W("The Sender"));
    mail.AddToAddress(W("one@example.test"), W("First, Person"));
    mail.AddToAddress(W("two@example.test"), W(""));
    mail.AddCCAddress(W("three@example.test"), W("Drei Ünlaut"));
    mail.SetSubject(W("Monthly report"));
    mail.SetMessage(W(text));
    for (const Att& a : atts)
        mail.AddAttachment(W(files.write("f" + std::to_string(&a - &atts[0]), a.bytes)), W(a.name), W(a.type));

    vardo_test::StoredMail m = sendAndFetch(mail);
    EXPECT_EQ("sender@example.test", m.mailFrom);
    EXPECT_EQ((std::vector<std::string>{"one@example.test", "two@example.test", "three@example.test"}), m.rcpt);
    EXPECT_EQ("The Sender <sender@example.test>", m.headers["from"]);
    EXPECT_EQ("\"First, Person\" <one@example.test>, two@example.test", m.headers["to"]);
    EXPECT_EQ("Drei Ünlaut <three@example.test>", m.headers["cc"]);
    EXPECT_EQ("Monthly report", m.headers["subject"]);
    EXPECT_EQ(".leading dot\r\nplain line\r\n..two dots\r\n.\r\n------_=_next_korvath_message\r\nü € 😀", m.text);
    ASSERT_EQ(atts.size(), m.attachments.size());
    for (size_t i = 0; i < atts.size(); ++i) {
        EXPECT_EQ(atts[i].name, m.attachments[i].filename) << i;
        bool valid = atts[i].type.find('/') != std::string::npos && atts[i].type.find(' ') == std::string::npos;
        EXPECT_EQ(valid ? atts[i].type : "application/octet-stream", m.attachments[i].contentType) << i;
        EXPECT_TRUE(atts[i].bytes == m.attachments[i].bytes) << i << " size " << m.attachments[i].bytes.size();
    }
    EXPECT_EQ("250 2.0.0 Ok: stored as " + std::to_string(s_server->count()),
              std::string(mail.GetServerReply().data()));

    // The layout on the wire (Python's parser is lenient about these).
    const std::string& raw = m.raw;
    EXPECT_EQ(0u, raw.find("Message-ID: <"));
    EXPECT_EQ(std::string::npos, raw.find("X-Injected"));
    // "Date: dd MMM yyyy HH:mm:ss +hhmm"
    size_t date = raw.find("\r\nDate: ") + 8;
    EXPECT_EQ(26u, raw.find("\r\n", date) - date) << raw.substr(date, 40);
    EXPECT_NE(std::string::npos, std::string("+-").find(raw[date + 21])) << raw.substr(date, 40);
    size_t big = raw.find("\r\n\r\n", raw.find("name=\"big.bin\"")) + 4;
    EXPECT_EQ(96u, raw.find("\r\n", big) - big);
}

TEST_F(RealServer, SubjectsInUtf8AndLineBreaksNeverMakeHeaders)
{
    const std::vector<std::string> subjects = {
        "Grüße aus Köln – 報告 😀 and a long tail so that it needs more than one encoded word to fit",
        "plain but forced",
        "Injected\r\nBcc: victim@example.test",
        "bare\nline feed",
        "=?UTF-8?B?bG9vaw==?= looks encoded",
        " blanks at both ends ",
        "",
    };
    for (size_t i = 0; i < subjects.size(); ++i) {
        SCOPED_TRACE(subjects[i]);
        CSISMTPMail mail(W("s@example.test"), W("127.0.0.1"), s_server->port(), W(""));
        mail.AddToAddress(W("r@example.test"), W(""));
        mail.SetSubject(W(subjects[i]));
        vardo_test::StoredMail m = sendAndFetch(mail, i == 1);
        // Python unfolds a header: a line break inside the decoded text stays a line break.
        EXPECT_EQ(subjects[i], m.headers["subject"]);
        EXPECT_EQ(std::string::npos, m.raw.find("\r\nBcc:"));
        EXPECT_TRUE(i != 1 || m.raw.find("Subject: =?UTF-8?B?") != std::string::npos);
        for (size_t p = 0, e; (e = m.raw.find("\r\n", p)) != std::string::npos && p < m.raw.find("\r\n\r\n"); p = e + 2)
            EXPECT_LE(e - p, 998u);
    }
}

TEST_F(RealServer, AuthenticatesWithLoginAndPlainAndRefusesAWrongPassword)
{
    const char* wrong = "wrong-Passw0rd";
    struct {
        CSISMTPMail::Authentication type;
        const char* password;
        const char* mechanism;   // the one the server saw
    } cases[] = {
        {CSISMTPMail::authLogin, "s3cret pass", "LOGIN"},
        {CSISMTPMail::authPlain, "s3cret pass", "PLAIN"},
        {CSISMTPMail::authNone, "s3cret pass", "LOGIN"},
        {CSISMTPMail::authLogin, wrong, ""},
        {CSISMTPMail::authPlain, wrong, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.password + std::string(" ") + std::to_string(c.type));
        CSISMTPMail mail(W("auth@example.test"), W("127.0.0.1"), s_server->port(), W(""));
        mail.AddToAddress(W("r@example.test"), W(""));
        mail.SetUsername(W("alice"));
        mail.SetPassword(W(c.password));
        mail.SetAuthenticationType(c.type);
        int before = s_server->count();
        CSISMTPMailException e = sendFailure(mail);
        vardo_test::StoredMail m;
        EXPECT_EQ(c.password != wrong, vardo_test::readStoredMail(s_store->path.string(), before + 1, m));
        EXPECT_EQ(c.mechanism, m.headers["auth"]);
        EXPECT_EQ(c.password == wrong ? 41602 : 0, e.getMessageNumber());
        EXPECT_EQ(c.password == wrong ? 535 : 0, e.getReplyCode());
        std::string all = U(e.toString()) + U(e.summary()) + U(e.getText());
        EXPECT_EQ(std::string::npos, all.find(wrong)) << all;
        EXPECT_EQ(0, ownTempFiles());
    }
}

TEST(SmtpInput, UnsafeAddressesAndMissingFilesAreRefusedBeforeAnythingIsSent)
{
    std::atomic<int> connections{0};
    ScriptedPeer peer([&](PeerConn&) { ++connections; });
    // The unsafe text as sender, To, Cc, To name and sender name in turn.
    for (int where = 0; where < 5; ++where) {
        for (const char* b : {"a@b\r\nRCPT To:<x@y>", "nul\x01@x"}) {
            CSISMTPMail mail(W(where == 0 ? b : "ok@x"), W("127.0.0.1"), peer.port(), W(where == 4 ? b : ""));
            mail.AddToAddress(W(where == 1 ? b : "to@x"), W(where == 3 ? b : ""));
            mail.AddCCAddress(W(where == 2 ? b : "cc@x"), W(""));
            CSISMTPMailException e = sendFailure(mail);
            EXPECT_EQ(CSISMTPMailException::invalidAddress, e.getErrorCode()) << where;
            EXPECT_EQ(41603, e.getMessageNumber());
            EXPECT_EQ(std::string::npos, U(e.getText()).find_first_of("\r\n"));
        }
    }
    CSISMTPMail mail(W("from@x"), W("127.0.0.1"), peer.port(), W(""));
    mail.AddToAddress(W("to@x"), W(""));
    TempDir dir;
    mail.AddAttachment(W(dir.str("missing.bin")), W(""), W(""));
    EXPECT_THROW(mail.SendMessageW(), SFileException);
    EXPECT_EQ(0, connections.load());
    EXPECT_EQ(0, ownTempFiles());
}

namespace {

// A scripted SMTP server: sends its greeting and EHLO reply in pieces (the pauses make
// each its own chunk), refuses RCPT of addresses containing "bad", and records the
// commands' verbs. Read them once the peer's thread is joined.
struct ScriptedSmtp {
    std::vector<std::string> greeting = {"220 scripted ESMTP\r\n"};
    std::vector<std::string> ehlo = {"250-scripted\r\n250 HELP\r\n"};
    std::string refusal = "550 no\r\n";
    std::string dataReply = "354 go ahead\r\n";
    bool dropDuringData = false;
    std::string commands;

    static void sendPieces(PeerConn& c, const std::vector<std::string>& pieces)
    {
        for (const std::string& p : pieces) {
            c.send(p);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    void run(PeerConn& c)
    {
        sendPieces(c, greeting);
        // Until the client closes: longer than its reply limit of 60 seconds.
        for (std::string line; !(line = c.recvLine(90000)).empty();) {
            std::string verb = line.substr(0, 4);
            commands += verb + " ";
            if (verb == "EHLO") {
                sendPieces(c, ehlo);
            } else if (verb == "RCPT") {
                c.send(line.find("bad") != std::string::npos ? refusal : "250 ok\r\n");
            } else if (verb == "DATA") {
                c.send(dataReply);
                if (dataReply[0] != '3')
                    continue;
                // The message up to its end, or a drop in the middle of it.
                std::string data = dropDuringData ? c.recvSome() : c.recvUntil("\r\n.\r\n");
                if (dropDuringData || data.size() < 5 || data.compare(data.size() - 5, 5, "\r\n.\r\n") != 0)
                    return;
                c.send("250 accepted\r\n");
            } else {
                c.send(verb == "QUIT" ? "221 bye\r\n" : "250 ok\r\n");
            }
        }
    }
};

} // namespace

TEST(SmtpScripted, RepliesRecipientRulesAndBrokenServers)
{
    typedef CSISMTPMailException X;
    struct Case {
        const char* what;
        std::function<void(ScriptedSmtp&)> script;
        std::vector<std::string> to, cc;
        std::string commands;      // the verbs the server saw
        std::vector<long> replies; // the exception's reply code is one of these (0: sent)
        int messageNumber;
        X::ErrorCodes code;
        bool stalls;               // ends by the client's 60-second reply limit
    };
    const Case cases[] = {
        {"multi-line EHLO reply in chunks, one of two recipients refused",
         [](ScriptedSmtp& s) { s.ehlo = {"250-scri", "pted\r\n250-SIZE 10", "00\r\n", "250 HELP\r\n"}; },
         {"good@x", "bad@x"}, {}, "EHLO MAIL RCPT RCPT DATA QUIT ", {0}, 0, X::noError, false},
        {"every To recipient refused", [](ScriptedSmtp& s) { s.refusal = "553 no\r\n"; },
         {"bad1@x", "bad2@x"}, {"ok@x"}, "EHLO MAIL RCPT RCPT ", {550}, 41603, X::senderOrToError, false},
        {"every Cc recipient refused", [](ScriptedSmtp&) {},
         {"ok@x"}, {"bad@x"}, "EHLO MAIL RCPT RCPT ", {550}, 41603, X::ccError, false},
        {"another refusal ends the list", [](ScriptedSmtp& s) { s.refusal = "452 later\r\n"; },
         {"bad@x", "ok@x"}, {}, "EHLO MAIL RCPT ", {452}, 41603, X::senderOrToError, false},
        {"greeting 421", [](ScriptedSmtp& s) { s.greeting = {"421 busy\r\n"}; },
         {"a@x"}, {}, "", {421}, 41602, X::serverError, false},
        {"EHLO refused: HELO follows", [](ScriptedSmtp& s) { s.ehlo = {"502 no ehlo\r\n"}; },
         {"a@x"}, {}, "EHLO HELO MAIL RCPT DATA QUIT ", {0}, 0, X::noError, false},
        {"DATA refused", [](ScriptedSmtp& s) { s.dataReply = "554 no data\r\n"; },
         {"a@x"}, {}, "EHLO MAIL RCPT DATA ", {554}, 41604, X::dataError, false},
        {"connection dropped during DATA", [](ScriptedSmtp& s) { s.dropDuringData = true; },
         {"a@x"}, {}, "EHLO MAIL RCPT DATA ", {3, 4}, 41604, X::dataError, false},
        {"reply line of 1 MiB", [](ScriptedSmtp& s) { s.greeting = {"220" + std::string(1 << 20, 'x') + "\r\n"}; },
         {"a@x"}, {}, "", {4}, 41602, X::serverError, false},
        {"stall in the middle of the EHLO reply", [](ScriptedSmtp& s) { s.ehlo = {"250-first line\r\n"}; },
         {"a@x"}, {}, "EHLO ", {4}, 41602, X::serverError, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ScriptedSmtp smtp;
        c.script(smtp);
        auto peer = std::make_unique<ScriptedPeer>([&](PeerConn& conn) { smtp.run(conn); });
        CSISMTPMail mail(W("from@x"), W("127.0.0.1"), peer->port(), W(""));
        for (const std::string& a : c.to)
            mail.AddToAddress(W(a), W(""));
        for (const std::string& a : c.cc)
            mail.AddCCAddress(W(a), W(""));
        int64_t t0 = nowMs();
        CSISMTPMailException e = sendFailure(mail);
        int64_t spent = nowMs() - t0;
        peer.reset();   // joins the peer's thread
        EXPECT_EQ(c.commands, smtp.commands);
        EXPECT_TRUE(std::count(c.replies.begin(), c.replies.end(), e.getReplyCode())) << "reply " << e.getReplyCode();
        EXPECT_EQ(c.messageNumber, e.getMessageNumber());
        EXPECT_EQ(c.code, e.getErrorCode());
        EXPECT_GE(spent, c.stalls ? 59900 : 0);
        EXPECT_LT(spent, c.stalls ? 62000 : 5000);
    }
    EXPECT_EQ(0, ownTempFiles());
}

TEST(SmtpException, TextsAndCodes)
{
    // Nobody listening: local code 2, with host and port in the text.
    CSISMTPMail mail(W("from@x"), W("127.0.0.1"), vardo_test::refusedPort(), W(""));
    mail.AddToAddress(W("a@x"), W(""));
    CSISMTPMailException e = sendFailure(mail);
    EXPECT_EQ(2, e.getReplyCode());
    EXPECT_EQ(41602, e.getMessageNumber());
    EXPECT_NE(std::string::npos, U(e.toString()).find("127.0.0.1:")) << U(e.toString());
    EXPECT_EQ(W("The mail server could not be reached, greeted or authenticated to."), e.SMTPErrorCodeString());
    EXPECT_EQ(e.toString() + W(":") + e.SMTPErrorCodeString(), e.summary());
}
