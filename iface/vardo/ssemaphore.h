// SSemaphore: a counting semaphore with a maximum count of 1000.
#ifndef VARDO_SSEMAPHORE_H
#define VARDO_SSEMAPHORE_H

#include "vardodefs.h"
#include "sexception.h"
#include "sstring.h"

namespace Vardo400 {

// Base of the semaphore's failures: carries the message.
class VARDO_API SSemaphoreError : public SException {
public:
    explicit SSemaphoreError(const SWCharString& message) : m_message(message) {}
    const SWCharString& getMessage() const { return m_message; }
    // The message.
    SWCharString toString() const override;
    // The message, ":", then the class name.
    SWCharString summary() const override;
private:
    SWCharString m_message;
};

// The wait's time limit passed. Its message is "Semaphore wait was abandoned".
class VARDO_API SSemaphoreWaitTimeout : public SException {
public:
    explicit SSemaphoreWaitTimeout(const SWCharString& message) : m_message(message) {}
    const SWCharString& getMessage() const { return m_message; }
    // The message.
    SWCharString toString() const override;
    // The message, ":", then the class name.
    SWCharString summary() const override;
private:
    SWCharString m_message;
};

// Counts are taken by wait() and given back by signal(); the count never exceeds 1000.
// Safe from any thread. Not copyable. The handle is not inherited by child processes.
class VARDO_API SSemaphore {
public:
    // Initial count 0.
    SSemaphore();
    // An initial count above 1000 leaves the semaphore without a handle: every call then
    // throws SSemaphoreError "Semaphore not initialized".
    explicit SSemaphore(unsigned long initialCount);
    ~SSemaphore();

    // Takes one count, waiting at most ms milliseconds (0xFFFFFFFF or more: no limit).
    // Throws SSemaphoreWaitTimeout "Semaphore wait was abandoned" when the time runs out,
    // SSemaphoreError "Semaphore wait failed" when the wait fails and
    // SSemaphoreError "Semaphore not initialized" without a handle.
    void wait(unsigned long ms);
    // Takes one count, waiting without limit.
    void wait();
    // Gives back count counts and returns the count before. Throws SSemaphoreError
    // "Semaphore failed to signal" when the count would pass 1000 (or count is 0), and
    // "Semaphore not initialized" without a handle.
    unsigned long signal(unsigned long count = 1);

private:
    SSemaphore(const SSemaphore&) = delete;
    SSemaphore& operator=(const SSemaphore&) = delete;
    void* m_hSemaphore;
};

} // namespace Vardo400

#endif
