// Fuzzes the SMTP reply reader and the dialogue with arbitrary server bytes over a real
// loopback connection.
//
// Input: byte 0 chooses the client (bit 0: a user name is set, so the AUTH exchange can
// run; bits 1-2: the configured authentication type). The rest is the server's side,
// split at 0xFF bytes into at most 64 turns: the first turn is sent at once (the greeting), each
// later one after the server has read one line from the client (or 10 ms passed, or the
// client closed); then the server stops sending and reads until the client closes. Checked: no crash, no
// sanitizer report, and the send ends (returns or throws CSISMTPMailException) within a
// few seconds, since the server always ends its side.
#include "vardo/csismtpmail.h"

#include "smtp_peer.h"

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;

namespace {

SWCharString W(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, (unsigned int)std::strlen(s));
    return r;
}

fuzz_smtp::Listener& listener()
{
    static fuzz_smtp::Listener l;
    return l;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > 200000)
        return 0;
    std::vector<std::string> turns(1);
    for (size_t i = 1; i < size; ++i) {
        if (data[i] == 0xFF && turns.size() < 64)
            turns.emplace_back();
        else
            turns.back() += (char)data[i];
    }
    std::thread server([&turns] {
        int fd = listener().accept(5000);
        if (fd < 0)
            return;
        std::string pending;
        fuzz_smtp::sendAll(fd, turns[0]);
        bool closed = false;
        for (size_t t = 1; t < turns.size() && !closed; ++t) {
            fuzz_smtp::readLine(fd, pending, 10, &closed);
            fuzz_smtp::sendAll(fd, turns[t]);
        }
        ::shutdown(fd, SHUT_WR);
        fuzz_smtp::drain(fd, 3000);
        ::close(fd);
    });

    auto start = std::chrono::steady_clock::now();
    CSISMTPMail mail(W("from@fuzz.test"), W("127.0.0.1"), listener().port(), W(""));
    mail.AddToAddress(W("a@fuzz.test"), W(""));
    mail.AddToAddress(W("b@fuzz.test"), W(""));
    mail.AddCCAddress(W("c@fuzz.test"), W(""));
    mail.SetSubject(W("fuzz"));
    mail.SetMessage(W("text\r\n.line\r\n"));
    if (data[0] & 1) {
        mail.SetUsername(W("user"));
        mail.SetPassword(W("password"));
        mail.SetAuthenticationType((CSISMTPMail::Authentication)((data[0] >> 1) & 3));
    }
    try {
        mail.SendSMTPMessage((data[0] & 8) != 0);
    } catch (const CSISMTPMailException& e) {
        (void)e.toString();
        (void)e.summary();
    }
    server.join();
    auto spent = std::chrono::steady_clock::now() - start;
    // The server ends its side after at most 10 ms a turn: anything much longer is a hang.
    if (spent > std::chrono::seconds(10))
        std::abort();
    return 0;
}
