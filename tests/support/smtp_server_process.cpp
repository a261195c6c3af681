// Starts tests/smtp_server.py with pipes (POSIX); reads the store it writes.
#include "smtp_server_process.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#ifndef _WIN32
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace vardo_test {

static std::string readFileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

#ifdef _WIN32
bool SmtpServerProcess::start(const std::string&, const std::string&, const std::string&, std::string& error)
{
    error = "the aiosmtpd server is a Linux python process; the Windows build does not start it";
    return false;
}

void SmtpServerProcess::stop() {}
#else
bool SmtpServerProcess::start(const std::string& storeDir, const std::string& user, const std::string& password,
                              std::string& error)
{
    m_store = storeDir;
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        error = "pipe failed";
        return false;
    }
    std::string script = std::string(VARDO_TESTS_DIR) + "/smtp_server.py";
    pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        const char* argv[] = {"/usr/bin/python3", script.c_str(), storeDir.c_str(),
                              user.empty() ? nullptr : user.c_str(), password.c_str(), nullptr};
        execv(argv[0], (char* const*)argv);
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    m_pid = pid > 0 ? pid : 0;
    m_stdin = in[1];
    std::string line;
    char c;
    while (read(out[0], &c, 1) == 1 && c != '\n')
        line += c;
    close(out[0]);
    if (line.compare(0, 5, "PORT ") != 0) {
        error = "the server did not start (are /usr/bin/python3 and python3-aiosmtpd installed?)";
        stop();
        return false;
    }
    m_port = (uint16_t)std::atoi(line.c_str() + 5);
    return true;
}

void SmtpServerProcess::stop()
{
    if (m_stdin >= 0)
        close(m_stdin);
    m_stdin = -1;
    // An orderly end once its input closes; killed after five seconds.
    for (int i = 0; m_pid > 0 && i < 100; ++i) {
        if (waitpid((pid_t)m_pid, nullptr, WNOHANG) == (pid_t)m_pid)
            m_pid = 0;
        else
            usleep(50000);
    }
    if (m_pid > 0) {
        kill((pid_t)m_pid, SIGKILL);
        waitpid((pid_t)m_pid, nullptr, 0);
        m_pid = 0;
    }
}
#endif

int SmtpServerProcess::count() const
{
    return std::atoi(readFileBytes(m_store + "/count").c_str());
}

namespace {

// The manifest's values are percent-encoded.
std::string unquote(const std::string& s)
{
    std::string r;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size()) {
            r += (char)std::strtol(s.substr(i + 1, 2).c_str(), nullptr, 16);
            i += 2;
        } else {
            r += s[i];
        }
    }
    return r;
}

} // namespace

bool readStoredMail(const std::string& storeDir, int n, StoredMail& out)
{
    std::string folder = storeDir + "/msg-" + std::to_string(n);
    std::string manifest = readFileBytes(folder + "/manifest.txt");
    if (manifest.empty())
        return false;
    out = StoredMail();
    out.raw = readFileBytes(folder + "/raw.eml");
    out.text = readFileBytes(folder + "/text.bin");
    std::istringstream lines(manifest);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::vector<std::string> p;
        for (std::string f; std::getline(fields, f, '\t');)
            p.push_back(unquote(f));
        if (p.size() < 2)
            continue;
        if (p[0] == "mail_from")
            out.mailFrom = p[1];
        else if (p[0] == "rcpt")
            out.rcpt.push_back(p[1]);
        else if (p[0] == "defects")
            out.defects = std::atoi(p[1].c_str());
        else if (p[0] == "attachment" && p.size() >= 4)
            out.attachments.push_back({p[1], p[2], readFileBytes(folder + "/" + p[3])});
        else
            out.headers[p[0]] = p[1];
    }
    return true;
}

} // namespace vardo_test
