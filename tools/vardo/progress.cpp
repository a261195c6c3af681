#include "progress.h"

#include <chrono>
#include <cstdio>

namespace vardo_tool {

namespace {

std::string amount(int64_t bytes)
{
    char buf[32];
    if (bytes < (1 << 20))
        std::snprintf(buf, sizeof buf, "%lld KiB", static_cast<long long>(bytes >> 10));
    else
        std::snprintf(buf, sizeof buf, "%.1f MiB", static_cast<double>(bytes) / (1 << 20));
    return buf;
}

} // namespace

Progress::Progress(const std::string& label, int64_t total, Probe probe)
    : m_label(label), m_total(total), m_probe(std::move(probe))
{
    if (stderrIsTerminal())
        m_thread = std::thread([this] { run(); });
}

Progress::~Progress()
{
    if (!m_thread.joinable())
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bStop = true;
    }
    m_wake.notify_all();
    m_thread.join();
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
}

void Progress::run()
{
    const auto start = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(m_mutex);
    // The first line waits a moment: quick commands finish without drawing anything.
    while (!m_wake.wait_for(lock, std::chrono::milliseconds(250), [this] { return m_bStop; })) {
        const long seconds = static_cast<long>(
            std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count());
        std::string line = m_label + ":";
        const int64_t done = m_probe ? m_probe() : -1;
        if (done >= 0) {
            line += " " + amount(done);
            if (m_total > 0) {
                line += " of " + amount(m_total);
                char share[16];
                std::snprintf(share, sizeof share, " (%d%%)", static_cast<int>(done * 100 / m_total));
                line += share;
            }
        }
        line += ", " + std::to_string(seconds) + " s";
        std::fprintf(stderr, "\r\033[K%s", line.c_str());
        std::fflush(stderr);
    }
}

} // namespace vardo_tool
