// Child processes for tests that need more than one process: the test binary runs itself
// again with a GoogleTest filter selecting one "child" test case, which skips unless
// isChild() and reads its orders with childArg():
//
//   auto child = vardo_test::spawnSelf("LockChild.Increment", {{"VARDO_CHILD_FILE", path}});
//   EXPECT_EQ(0, vardo_test::wait(child));   // 0: the child's test passed
//
// Strings are UTF-8 (converted to UTF-16 on Windows).
#ifndef VARDO_TEST_CHILD_PROCESS_H
#define VARDO_TEST_CHILD_PROCESS_H

#include <string>
#include <utility>
#include <vector>

namespace vardo_test {

// Path of this test binary.
std::string selfPath();

// A started child process. Move-only; when it is destroyed while still running (or not
// yet waited for), it is killed and reaped, so no test leaves processes behind.
struct ChildProcess {
    ChildProcess() = default;
    ChildProcess(ChildProcess&& o) noexcept;
    ChildProcess& operator=(ChildProcess&& o) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    // Started and not yet waited for.
    bool running() const { return m_started && !m_reaped; }
    // The system's process id (0 when not started).
    long long id() const { return m_id; }

    bool m_started = false;
    bool m_reaped = false;
    int m_exitCode = -1;
    long long m_id = 0;
    void* m_handle = nullptr;   // Windows process handle
};

// Runs this binary again as "<self> --gtest_filter=<gtestFilter>" with the current
// environment plus extraEnv (which overrides variables of the same name) and
// VARDO_CHILD_ROLE=<gtestFilter> unless extraEnv sets it. The child inherits stdout and
// stderr. A failed start records a GoogleTest failure and gives a child not running.
ChildProcess spawnSelf(const std::string& gtestFilter,
                       const std::vector<std::pair<std::string, std::string>>& extraEnv);

// Waits for the child to end and returns its exit code (on Linux 128 + the signal
// number when a signal ended it); the stored code when already waited for, -1 for a
// child that never started.
int wait(ChildProcess& child);

// Ends the child at once (SIGKILL / TerminateProcess) and reaps it, if still running.
void kill(ChildProcess& child);

// True when this process runs as a child of spawnSelf (VARDO_CHILD_ROLE is set).
bool isChild();
// The value of environment variable name, or null when it is unset.
const char* childArg(const char* name);

} // namespace vardo_test

#endif
