// The real SMTP server of the mail tests (tests/smtp_server.py, Debian's aiosmtpd) as a
// child process, and a reader of the messages it stored.
#ifndef VARDO_TEST_SMTP_SERVER_PROCESS_H
#define VARDO_TEST_SMTP_SERVER_PROCESS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vardo_test {

class SmtpServerProcess {
public:
    SmtpServerProcess() = default;
    ~SmtpServerProcess() { stop(); }
    SmtpServerProcess(const SmtpServerProcess&) = delete;
    SmtpServerProcess& operator=(const SmtpServerProcess&) = delete;

    // Starts the server storing into storeDir, accepting user/password (empty: no valid
    // pair). False, with the reason in error, where it cannot run (Windows, no
    // /usr/bin/python3 with aiosmtpd).
    bool start(const std::string& storeDir, const std::string& user, const std::string& password,
               std::string& error);
    uint16_t port() const { return m_port; }
    // Messages stored so far.
    int count() const;
    void stop();

private:
    std::string m_store;
    uint16_t m_port = 0;
    long long m_pid = 0;
    int m_stdin = -1;
};

// One stored message, as Python's email package saw it.
struct StoredMail {
    std::string raw;
    std::string mailFrom;
    std::vector<std::string> rcpt;
    std::map<std::string, std::string> headers;   // from, to, cc, subject (decoded)
    int defects = -1;
    std::string text;
    struct Attachment {
        std::string filename, contentType, bytes;
    };
    std::vector<Attachment> attachments;
};

// Reads message number n (from 1) of a store. False when it is not there.
bool readStoredMail(const std::string& storeDir, int n, StoredMail& out);

} // namespace vardo_test

#endif
