// vardo mail: sends one message through CSISMTPMail, the message text from standard input.
//   --server HOST[:PORT]   mail server (port default: the "smtp" service, else 25);
//                          an IPv6 address is written in brackets: [::1]:25
//   --from ADDR            sender
//   --to ADDR, --cc ADDR   recipients (repeatable; at least one --to)
//   --subject TEXT         subject (non-ASCII text is sent as UTF-8 encoded words)
//   --attach FILE[:NAME[:TYPE]]   attachment, shown name, content type (repeatable)
//   --user NAME --password-file FILE   authenticate; the password is the file's first line
//   --auth login|plain     preferred mechanism when the server offers both
// Output: the server's final reply on standard output. Errors: one line on standard error.
// Exit codes: 0 sent, 1 refused by the server or the dialogue failed, 2 usage, 3 a file
// (attachment, password file, temporary file) could not be read or written.
#include "command.h"
#include "progress.h"

#include "vardo/csismtpmail.h"
#include "vardo/csisocket.h"
#include "vardo/sfile.h"
#include "vardo/sfilesys.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_tool::argToText;
using vardo_tool::utf8;

const char kUsage[] =
    "usage: vardo mail --server HOST[:PORT] --from ADDR --to ADDR [--to ...] [--cc ADDR ...]\n"
    "                  --subject TEXT [--attach FILE[:NAME[:TYPE]] ...]\n"
    "                  [--user NAME --password-file FILE] [--auth login|plain]\n"
    "  The message text is read from standard input.\n";

struct Attachment {
    std::string file, name, type;
};

// FILE[:NAME[:TYPE]]; a drive letter ("C:\\...") stays part of FILE.
Attachment parseAttach(const std::string& attachArg)
{
    Attachment a;
    size_t from = attachArg.size() > 2 && attachArg[1] == ':' && (attachArg[2] == '\\' || attachArg[2] == '/') ? 2 : 0;
    size_t c1 = attachArg.find(':', from);
    a.file = attachArg.substr(0, c1);
    if (c1 != std::string::npos) {
        size_t c2 = attachArg.find(':', c1 + 1);
        a.name = attachArg.substr(c1 + 1, c2 == std::string::npos ? std::string::npos : c2 - c1 - 1);
        if (c2 != std::string::npos)
            a.type = attachArg.substr(c2 + 1);
    }
    return a;
}

int runMail(const std::vector<std::string>& args)
{
    std::string server, from, subject, user, passwordFile, auth;
    bool hasSubject = false;
    std::vector<std::string> to, cc;
    std::vector<Attachment> attachments;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (i + 1 >= args.size()) {
            std::fputs(kUsage, stderr);
            return 2;
        }
        const std::string& v = args[++i];
        if (a == "--server") server = v;
        else if (a == "--from") from = v;
        else if (a == "--to") to.push_back(v);
        else if (a == "--cc") cc.push_back(v);
        else if (a == "--subject") { subject = v; hasSubject = true; }
        else if (a == "--attach") attachments.push_back(parseAttach(v));
        else if (a == "--user") user = v;
        else if (a == "--password-file") passwordFile = v;
        else if (a == "--auth") auth = v;
        else {
            std::fputs(kUsage, stderr);
            return 2;
        }
    }
    if (server.empty() || from.empty() || to.empty() || !hasSubject || (user.empty() != passwordFile.empty()) ||
        (!auth.empty() && auth != "login" && auth != "plain")) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    SWCharString host;
    int port = 0;
    if (!CSISocket::splitNamePort(argToText(server), host, port) || host.isEmpty()) {
        std::fprintf(stderr, "vardo mail: bad server \"%s\"\n", server.c_str());
        return 2;
    }

    try {
        std::string password;
        if (!passwordFile.empty()) {
            SFile f(argToText(passwordFile), SFile::readOnly, 0, SFile::denyNothing);
            password = utf8(f.readLine());
        }
        std::string text;
        char buffer[65536];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, stdin)) > 0)
            text.append(buffer, n);

        CSISMTPMail mail(argToText(from), host, (unsigned short)port, SWCharString());
        for (const std::string& t : to)
            mail.AddToAddress(argToText(t), SWCharString());
        for (const std::string& c : cc)
            mail.AddCCAddress(argToText(c), SWCharString());
        for (const Attachment& a : attachments)
            mail.AddAttachment(argToText(a.file), argToText(a.name), argToText(a.type));
        mail.SetSubject(argToText(subject));
        mail.SetMessage(argToText(text));
        if (!user.empty()) {
            mail.SetUsername(argToText(user));
            mail.SetPassword(argToText(password));
            mail.SetAuthenticationType(auth == "plain" ? CSISMTPMail::authPlain
                                                       : auth == "login" ? CSISMTPMail::authLogin
                                                                         : CSISMTPMail::authNone);
        }
        {
            // The dialogue shows nothing of its progress; a terminal at least sees it alive.
            vardo_tool::Progress progress("sending to " + server, 0, nullptr);
            mail.SendSMTPMessage(false);
        }
        std::printf("%s\n", mail.GetServerReply().data());
        return 0;
    } catch (const CSISMTPMailException& e) {
        std::fprintf(stderr, "vardo mail: %s\n", utf8(e.toString()).c_str());
        return 1;
    } catch (const SFileException& e) {
        std::fprintf(stderr, "vardo mail: %s\n", utf8(e.toString()).c_str());
        return 3;
    } catch (const SFileSysException& e) {
        std::fprintf(stderr, "vardo mail: %s\n", utf8(e.toString()).c_str());
        return 3;
    }
}

} // namespace

VARDO_TOOL_COMMAND(mail, "mail",
                   "mail --server HOST[:PORT] --from ADDR --to ADDR --subject TEXT [...]   sends a mail (text from stdin)",
                   runMail);
