// A progress line for commands that can run long. It is drawn on standard error, and only
// when standard error is a terminal, so scripts and logs never see it.
#ifndef VARDO_TOOL_PROGRESS_H
#define VARDO_TOOL_PROGRESS_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace vardo_tool {

// Whether standard error is an interactive terminal (the platform decides).
bool stderrIsTerminal();

class Progress {
public:
    // Bytes done so far, or a negative number when they cannot be known.
    typedef std::function<int64_t()> Probe;

    // Starts redrawing "LABEL: done of total (NN%), Ns" about four times a second; total 0
    // leaves out the share, a probe without a byte count leaves out the bytes.
    Progress(const std::string& label, int64_t total, Probe probe);
    // Stops and clears the line.
    ~Progress();

private:
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void run();

    std::string m_label;
    int64_t m_total;
    Probe m_probe;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_bStop = false;
    std::thread m_thread;
};

} // namespace vardo_tool

#endif
