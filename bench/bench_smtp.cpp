// CSISMTPMail sending a 100 MiB attachment to a local sink server, beside a plain socket
// send of the same number of bytes to the same sink.
//
// BM_MailAttachment: the whole send (message written to the temporary file, base64 and
// all, then the dialogue streaming it in 8192-byte pieces). BM_PlainSocketSend: as many
// bytes as the mail send puts on the wire (the attachment in the same base64 lines, made
// beforehand), sent with one send() per 1 MiB from memory to the same sink, which handles
// them as message data and answers; the anchor is done at the answer. Both count
// the attachment's 100 MiB as bytes processed. Printed besides the usual ratio (CPU time
// of the sending thread): "throughput ratio" (anchor wall time / ours) and the process's
// peak memory growth during the mail sends (VmHWM after resetting it, Linux).
#include "vardo/csismtpmail.h"

#include "ratio.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <thread>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

const size_t kAttachmentBytes = 100u << 20;

SWCharString W(const std::string& s)
{
    SWCharString r;
    r.fromUTF8(reinterpret_cast<const unsigned char*>(s.c_str()));
    return r;
}

// The attachment: random bytes, made once, removed at exit.
struct AttachmentFile {
    fs::path dir, file;
    AttachmentFile()
    {
        std::random_device rd;
        dir = fs::temp_directory_path() / ("vardo_bench_smtp_" + std::to_string(rd()));
        fs::create_directories(dir);
        file = dir / "attachment.bin";
        std::ofstream out(file, std::ios::binary);
        std::mt19937_64 rng(7);
        std::string chunk(1 << 20, '\0');
        for (size_t done = 0; done < kAttachmentBytes; done += chunk.size()) {
            for (size_t i = 0; i < chunk.size(); i += 8) {
                uint64_t v = rng();
                std::memcpy(&chunk[i], &v, 8);
            }
            out.write(chunk.data(), (std::streamsize)chunk.size());
        }
        out.close();
        // On disk before any timing, so its write-back does not run during the sends.
        int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            (void)::fsync(fd);
            ::close(fd);
        }
    }
    ~AttachmentFile()
    {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
};

const AttachmentFile& attachment()
{
    static AttachmentFile f;
    return f;
}

// A loopback sink: answers SMTP commands with success and throws the message data
// away. A connection that starts with 'P' (the plain send) is message data from its
// first byte, handled exactly as the data of a mail, and answered the same way.
class Sink {
public:
    Sink()
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a;
        std::memset(&a, 0, sizeof a);
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_fd, (sockaddr*)&a, sizeof a);
        socklen_t len = sizeof a;
        ::getsockname(m_fd, (sockaddr*)&a, &len);
        m_port = ntohs(a.sin_port);
        ::listen(m_fd, 8);
        m_thread = std::thread([this] { run(); });
    }
    ~Sink()
    {
        m_stop = true;
        m_thread.join();
        ::close(m_fd);
    }
    uint16_t port() const { return m_port; }
    // Bytes of message data the last mail connection carried.
    size_t lastDataBytes() const { return m_lastData.load(); }

private:
    void send(int fd, const char* s) { (void)!::send(fd, s, std::strlen(s), MSG_NOSIGNAL); }
    void serve(int fd, bool smtp)
    {
        std::string line;
        std::vector<char> buf(1 << 20);
        if (smtp)
            send(fd, "220 sink\r\n");
        bool inData = !smtp;
        size_t dataBytes = 0;
        std::string tail = "\r\n";   // the last bytes of data seen, to find "\r\n.\r\n" across chunks
        for (;;) {
            ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
            if (n <= 0)
                break;
            size_t i = 0;
            while (i < (size_t)n) {
                if (inData) {
                    // Look for the end of data in the last four bytes before and this chunk.
                    const char* start = buf.data() + i;
                    size_t len = (size_t)n - i;
                    std::string_view view(start, len);
                    size_t end = std::string::npos;
                    std::string joined = tail + std::string(view.substr(0, len < 4 ? len : 4));
                    size_t inJoined = joined.find("\r\n.\r\n");
                    if (inJoined != std::string::npos) {
                        end = inJoined + 5 - tail.size();
                    } else {
                        size_t f = view.find("\r\n.\r\n");
                        if (f != std::string::npos)
                            end = f + 5;
                    }
                    if (end == std::string::npos) {
                        dataBytes += len;
                        std::string last = tail + std::string(view.substr(len > 4 ? len - 4 : 0));
                        tail = last.substr(last.size() > 4 ? last.size() - 4 : 0);
                        i = (size_t)n;
                        continue;
                    }
                    dataBytes += end;
                    i += end;
                    inData = false;
                    if (smtp)
                        m_lastData = dataBytes;
                    send(fd, "250 accepted\r\n");
                    continue;
                }
                char c = buf[i++];
                line += c;
                if (c != '\n')
                    continue;
                if (line.compare(0, 4, "DATA") == 0) {
                    send(fd, "354 go\r\n");
                    inData = true;
                    dataBytes = 0;
                    tail = "\r\n";
                } else if (line.compare(0, 4, "QUIT") == 0) {
                    send(fd, "221 bye\r\n");
                } else {
                    send(fd, "250 ok\r\n");
                }
                line.clear();
            }
        }
        ::close(fd);
    }
    void run()
    {
        while (!m_stop) {
            pollfd p = {m_fd, POLLIN, 0};
            if (::poll(&p, 1, 50) != 1)
                continue;
            int fd = ::accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0)
                continue;
            // The plain sender announces itself with one byte 'P'.
            char first = 0;
            bool smtp = !(::recv(fd, &first, 1, MSG_PEEK | MSG_DONTWAIT) == 1 && first == 'P');
            serve(fd, smtp);
        }
    }
    int m_fd;
    uint16_t m_port;
    std::atomic<bool> m_stop{false};
    std::atomic<size_t> m_lastData{0};
    std::thread m_thread;
};

Sink& sink()
{
    static Sink s;
    return s;
}

long peakKiB()
{
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.compare(0, 6, "VmHWM:") == 0)
            return std::atol(line.c_str() + 6);
    return -1;
}

void resetPeak()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

double g_mailSeconds = 0, g_plainSeconds = 0;
long g_peakGrowthKiB = -1;

void BM_MailAttachment(benchmark::State& state)
{
    const AttachmentFile& a = attachment();
    Sink& s = sink();
    resetPeak();
    long before = peakKiB();
    double seconds = 0;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        CSISMTPMail mail(W("bench@example.test"), W("127.0.0.1"), s.port(), W(""));
        mail.AddToAddress(W("sink@example.test"), W(""));
        mail.SetSubject(W("100 MiB"));
        mail.SetMessage(W("attached"));
        mail.AddAttachment(W(a.file.string()), W("attachment.bin"), W("application/octet-stream"));
        if (!mail.SendSMTPMessage(false))
            state.SkipWithError("send failed");
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
    g_peakGrowthKiB = peakKiB() - before;
    g_mailSeconds = seconds / (double)state.iterations();
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)kAttachmentBytes);
    state.counters["wire_MiB"] = (double)s.lastDataBytes() / (1 << 20);
}

// The anchor's bytes: as many as the mail put on the wire, the attachment in base64
// lines of 96 characters after a filler in place of the headers, and the end of data.
std::string wireImage(size_t total)
{
    static const char abc[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string body;
    body.reserve(kAttachmentBytes / 72 * 98 + 256);
    std::ifstream in(attachment().file, std::ios::binary);
    std::string raw(72 * 8192, '\0');
    while (in.read(&raw[0], (std::streamsize)raw.size()) || in.gcount() > 0) {
        size_t n = (size_t)in.gcount();
        for (size_t at = 0; at < n; at += 72) {
            size_t line = n - at < 72 ? n - at : 72;
            for (size_t i = 0; i < line; i += 3) {
                const unsigned char* p = reinterpret_cast<const unsigned char*>(raw.data() + at + i);
                uint32_t v = (uint32_t)p[0] << 16 | (i + 1 < line ? p[1] << 8 : 0) | (i + 2 < line ? p[2] : 0);
                body += abc[v >> 18];
                body += abc[(v >> 12) & 63];
                body += i + 1 < line ? abc[(v >> 6) & 63] : '=';
                body += i + 2 < line ? abc[v & 63] : '=';
            }
            body += "\r\n";
        }
    }
    const char end[] = "\r\n.\r\n";
    std::string image = "P";
    if (total > body.size() + 6)
        image.append(total - body.size() - 6, 'h');
    image += body;
    image += end;
    return image;
}

void BM_PlainSocketSend(benchmark::State& state)
{
    Sink& s = sink();
    const std::string image = wireImage(s.lastDataBytes() ? s.lastDataBytes() : kAttachmentBytes * 4 / 3);
    state.counters["wire_MiB"] = (double)image.size() / (1 << 20);
    const size_t piece = 1 << 20;
    double seconds = 0;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a;
        std::memset(&a, 0, sizeof a);
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(s.port());
        if (::connect(fd, (sockaddr*)&a, sizeof a) != 0)
            state.SkipWithError("connect failed");
        for (size_t done = 0; done < image.size();) {
            size_t n = image.size() - done < piece ? image.size() - done : piece;
            ssize_t sent = ::send(fd, image.data() + done, n, MSG_NOSIGNAL);
            if (sent <= 0)
                break;
            done += (size_t)sent;
        }
        // Done when the sink has answered, as the mail waits for its reply to the data.
        char c;
        while (::recv(fd, &c, 1, 0) > 0 && c != '\n') {
        }
        ::close(fd);
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
    g_plainSeconds = seconds / (double)state.iterations();
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)kAttachmentBytes);
}

BENCHMARK(BM_MailAttachment)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PlainSocketSend)->Unit(benchmark::kMillisecond)->Iterations(3);

const bool g_pairs = (vardo_bench::addPair("BM_MailAttachment", "BM_PlainSocketSend"), true);

struct Summary {
    ~Summary()
    {
        if (g_mailSeconds > 0 && g_plainSeconds > 0)
            std::printf("throughput ratio (plain wall time / mail wall time, target >= 0.8): %.3f\n",
                        g_plainSeconds / g_mailSeconds);
        if (g_peakGrowthKiB >= 0)
            std::printf("peak memory growth during the mail sends (target <= 16 MiB): %.1f MiB\n",
                        g_peakGrowthKiB / 1024.0);
    }
} g_summary;

} // namespace

VARDO_BENCH_MAIN()
